#include "MediaInfo.h"

#include <algorithm>
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
