#include "MediaInfo.h"

#include <algorithm>
#include <cmath>
#include <mutex>

using namespace Qt::StringLiterals;

const QSet<QString>& quickTimeVideoCodecs() {
    static const QSet<QString> codecs{u"h264"_s, u"hevc"_s, u"prores"_s, u"mjpeg"_s, u"av1"_s};
    return codecs;
}

const QSet<QString>& quickTimeAudioCodecs() {
    static const QSet<QString> codecs{u"aac"_s, u"mp3"_s, u"alac"_s, u"ac3"_s, u"eac3"_s};
    return codecs;
}

const QStringList& textSubtitleCodecs() {
    static const QStringList codecs{u"subrip"_s,   u"srt"_s,  u"ass"_s,   u"ssa"_s,
                                    u"mov_text"_s, u"text"_s, u"webvtt"_s};
    return codecs;
}

const QStringList& compatibleContainers() {
    static const QStringList containers{u"mp4"_s, u"m4v"_s, u"mov"_s};
    return containers;
}

bool isTextSubtitleCodec(const QString& codec) {
    return textSubtitleCodecs().contains(codec.toLower());
}

bool isQuickTimeAudioCodec(const QString& codec) {
    return quickTimeAudioCodecs().contains(codec.toLower());
}

namespace {
struct HardwareAnswer {
    std::mutex lock;
    HardwareDecodeTest test = [](quint32) { return true; };
    std::optional<bool> av1;
};

HardwareAnswer& hardwareAnswer() {
    static HardwareAnswer answer;
    return answer;
}
} // namespace

bool supportsHardwareAV1() {
    HardwareAnswer& answer = hardwareAnswer();
    const std::lock_guard guard(answer.lock);
    if (!answer.av1) {
        answer.av1 = answer.test(av1FourCC);
    }
    return *answer.av1;
}

void MediaInfoTesting::setHardwareDecodeTest(HardwareDecodeTest test) {
    HardwareAnswer& answer = hardwareAnswer();
    const std::lock_guard guard(answer.lock);
    answer.test = std::move(test);
    answer.av1.reset();
}

std::optional<QString> MediaInfo::unsupportedReason() const {
    const QString codec = videoCodec.toLower();
    if (!quickTimeVideoCodecs().contains(codec)) {
        return videoCodec + u" video is not supported by QuickTime"_s;
    }
    if (codec == u"av1" && !supportsHardwareAV1()) {
        return u"AV1 video requires Apple M3 or later"_s;
    }
    return std::nullopt;
}

bool MediaInfo::isHighBitDepthH264() const {
    if (videoCodec.toLower() != u"h264" || !pixFmt) {
        return false;
    }
    const QString format = pixFmt->toLower();
    return format.contains(u"p10") || format.contains(u"p12");
}

bool MediaInfo::isAlreadyCompatible(const QString& containerExtension) const {
    const QString extension = containerExtension.toLower();
    if (!compatibleContainers().contains(extension)) {
        return false;
    }
    const QString codec = videoCodec.toLower();
    bool videoFits = false;
    if (codec == u"h264") {
        videoFits = !isHighBitDepthH264();
    } else if (codec == u"hevc") {
        videoFits = videoCodecTag && videoCodecTag->toLower() == u"hvc1";
    } else if (codec == u"prores" || codec == u"mjpeg") {
        videoFits = extension == u"mov";
    } else if (codec == u"av1") {
        videoFits = extension == u"mp4" || extension == u"m4v";
    }
    if (!videoFits) {
        return false;
    }
    return !audioCodec || isQuickTimeAudioCodec(*audioCodec);
}

bool MediaInfo::hasTextSubtitles() const {
    return std::any_of(subtitleStreams.begin(), subtitleStreams.end(),
                       [](const SubtitleStream& s) { return isTextSubtitleCodec(s.codec); });
}

std::optional<Rejection> rejectionFor(const MediaInfo& info, const QString& containerExtension) {
    if (!info.hasVideoStream) {
        return Rejection{ProcessingStatus::failed, u"No video stream found"_s};
    }
    if (const std::optional<QString> reason = info.unsupportedReason()) {
        return Rejection{ProcessingStatus::failed, *reason};
    }
    if (info.isHighBitDepthH264()) {
        return Rejection{ProcessingStatus::failed,
                         u"10-bit/12-bit H.264 is not supported by QuickTime"_s};
    }
    if (info.isAlreadyCompatible(containerExtension)) {
        return Rejection{ProcessingStatus::skipped, u"Skipped — already QuickTime compatible"_s};
    }
    return std::nullopt;
}

QString formatPlayingTime(double seconds) {
    if (!std::isfinite(seconds) || seconds < 0) {
        seconds = 0;
    }
    if (seconds < 60) {
        const qint64 tenths = qint64(std::floor(seconds * 10));
        return u"0:%1.%2"_s.arg(tenths / 10, 2, 10, QLatin1Char('0')).arg(tenths % 10);
    }
    const qint64 whole = qint64(std::floor(std::min(seconds, 1e12)));
    const QString minutesAndSeconds =
        u"%1:%2"_s.arg((whole % 3600) / 60, whole >= 3600 ? 2 : 1, 10, QLatin1Char('0'))
            .arg(whole % 60, 2, 10, QLatin1Char('0'));
    return whole >= 3600 ? QString::number(whole / 3600) + u':' + minutesAndSeconds
                         : minutesAndSeconds;
}

OutputCheck checkOutput(const MediaInfo& source, const MediaInfo& output) {
    OutputCheck check;
    // A stream with a frame count of 0, or without one and without a length, holds
    // no picture: QuickTime shows nothing, whatever the rest of the file holds.
    const bool holdsFrames = output.videoFrameCount ? *output.videoFrameCount > 0
                                                    : output.videoDuration.value_or(0) > 0;
    if (!output.hasVideoStream || output.videoCodec.toLower() != source.videoCodec.toLower() ||
        !holdsFrames) {
        check.failure = u"The converted file has no video — the source may be cut short or damaged."_s;
        return check;
    }

    // The source's video length as its own stream gives it, else the container's. A
    // transport stream's length is its last timestamp less its first, which a jump
    // in the timestamps inflates; ffmpeg closes such a jump, so there the output's
    // whole length bounds what the source really held.
    double expected = source.videoDuration.value_or(source.duration);
    if (source.formatName && source.formatName->contains(u"mpegts"_s)) {
        expected = std::min(expected, output.duration);
    }
    const double produced = output.videoDuration.value_or(output.duration);
    if (std::isfinite(expected) && expected > 0 &&
        expected - produced > std::max(0.5, 0.02 * expected)) {
        check.notes.append(u"The converted video is shorter than the source (%1 of %2) — the source may be damaged."_s.arg(
            formatPlayingTime(produced), formatPlayingTime(expected)));
    }
    if (source.audioCodec && !output.audioCodec) {
        check.notes.append(u"The converted file has no audio, although the source has some."_s);
    }
    const auto textTracks = std::count_if(source.subtitleStreams.begin(),
                                          source.subtitleStreams.end(),
                                          [](const SubtitleStream& s) { return isTextSubtitleCodec(s.codec); });
    const auto embedded = std::count_if(output.subtitleStreams.begin(),
                                        output.subtitleStreams.end(), [](const SubtitleStream& s) {
                                            return s.codec.toLower() == u"mov_text";
                                        });
    if (embedded < textTracks) {
        check.notes.append(u"The converted file holds %1 of %2 subtitle tracks."_s.arg(
            QString::number(embedded), QString::number(textTracks)));
    }
    if (output.videoCodec.toLower() == u"hevc" &&
        output.videoCodecTag.value_or(QString()).toLower() != u"hvc1") {
        check.notes.append(u"The converted HEVC video is not tagged hvc1 — QuickTime may not play it."_s);
    }
    return check;
}
