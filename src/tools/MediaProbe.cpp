// The probe: one ffprobe run whose JSON becomes a MediaInfo.

#include "FFmpegService.h"
#include "Logging.h"
#include "model/FilePath.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonValue>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

using namespace Qt::StringLiterals;

namespace FFmpegService {

namespace {

constexpr double defaultProbeTimeout = 30.0;
// Read on the main thread only, where probes start.
double probeTimeout = defaultProbeTimeout;

std::optional<QString> stringValue(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

// A JSON number that is a whole value, as the tools write indices and counts.
std::optional<qint64> integerValue(const QJsonObject& object, QLatin1StringView key) {
    const QJsonValue value = object.value(key);
    if (!value.isDouble()) {
        return std::nullopt;
    }
    const double number = value.toDouble();
    if (number != std::trunc(number) || std::abs(number) > 9.0e15) {
        return std::nullopt;
    }
    return qint64(number);
}

// A text reads as a number only when the whole of it does.
std::optional<double> wholeNumber(const QString& text) {
    if (text.isEmpty() || text.front().isSpace()) {
        return std::nullopt;
    }
    // from_chars ignores the locale, which a Qt application sets from the user's.
    const QByteArray latin = text.toLatin1();
    const char* begin = latin.constData();
    const char* end = begin + latin.size();
    if (QString::fromLatin1(latin) != text) {
        return std::nullopt;
    }
    if (*begin == '+' && end - begin > 1 && begin[1] != '-') {
        ++begin;
    }
    double number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number);
    if (error != std::errc() || stop != end) {
        return std::nullopt;
    }
    return number;
}

std::optional<double> durationOf(const std::optional<QJsonObject>& object) {
    if (!object) {
        return std::nullopt;
    }
    const std::optional<QString> text = stringValue(*object, "duration"_L1);
    return text ? wholeNumber(*text) : std::nullopt;
}

// Matroska keeps a stream's length only as a "DURATION" tag, "HH:MM:SS.nnnnnnnnn".
std::optional<double> taggedDuration(const QJsonObject& stream) {
    const QJsonObject tags = stream.value("tags"_L1).toObject();
    for (auto it = tags.begin(); it != tags.end(); ++it) {
        if (it.key().compare("duration"_L1, Qt::CaseInsensitive) != 0 || !it.value().isString()) {
            continue;
        }
        const QStringList parts = it.value().toString().split(u':');
        if (parts.size() != 3) {
            return std::nullopt;
        }
        const std::optional<double> hours = wholeNumber(parts[0]);
        const std::optional<double> minutes = wholeNumber(parts[1]);
        const std::optional<double> seconds = wholeNumber(parts[2]);
        if (!hours || !minutes || !seconds) {
            return std::nullopt;
        }
        return *hours * 3600 + *minutes * 60 + *seconds;
    }
    return std::nullopt;
}

std::optional<QJsonObject> firstStream(const QJsonArray& streams, QLatin1StringView type) {
    for (const QJsonValue& stream : streams) {
        const QJsonObject object = stream.toObject();
        if (stringValue(object, "codec_type"_L1) == type) {
            return object;
        }
    }
    return std::nullopt;
}

std::optional<QString> streamString(const std::optional<QJsonObject>& stream,
                                    QLatin1StringView key) {
    return stream ? stringValue(*stream, key) : std::nullopt;
}

struct ProbeDocument {
    QJsonArray streams;
    std::optional<QJsonObject> format;
};

// The top level must be a non-empty object whose "streams" is an array of objects.
std::optional<ProbeDocument> readDocument(const QString& output) {
    const QJsonDocument document = QJsonDocument::fromJson(output.toUtf8());
    const QJsonObject top = document.object();
    if (!document.isObject() || top.isEmpty() || !top.value("streams"_L1).isArray()) {
        return std::nullopt;
    }
    ProbeDocument parsed{top.value("streams"_L1).toArray(), std::nullopt};
    for (const QJsonValue& stream : parsed.streams) {
        if (!stream.isObject()) {
            return std::nullopt;
        }
    }
    if (top.value("format"_L1).isObject()) {
        parsed.format = top.value("format"_L1).toObject();
    }
    return parsed;
}

} // namespace

QStringList probeArguments(const QString& url) {
    return {u"-v"_s,
            u"error"_s,
            u"-print_format"_s,
            u"json"_s,
            u"-show_streams"_s,
            u"-show_format"_s,
            u"-analyzeduration"_s,
            u"100M"_s,
            u"-probesize"_s,
            u"100M"_s,
            url};
}

QCoro::Task<MediaInfo> probe(QString url, std::stop_token stop) {
    qCInfo(lcFFmpeg, "Probing: %s", qUtf8Printable(FilePath::lastPathComponent(url)));
    const QString tool = ffprobePath();
    if (tool.isEmpty() || !QFileInfo::exists(tool)) {
        throw FFmpegError::ffprobeNotFound();
    }
    const QString output = co_await runProcess(tool, probeArguments(url), probeTimeout, stop);

    const std::optional<ProbeDocument> document = readDocument(output);
    if (!document) {
        throw FFmpegError::probeFailed(u"Could not parse ffprobe output."_s);
    }
    MediaInfo info = parseMediaInfo(document->streams, document->format);

    qCInfo(lcFFmpeg, "Probe complete: video=%s, audio=%s(%ldch), %ld subtitle tracks, duration=%s",
           qUtf8Printable(info.videoCodec), qUtf8Printable(info.audioCodec.value_or(u"none"_s)),
           long(info.audioChannels.value_or(0)), long(info.subtitleStreams.size()),
           qUtf8Printable(formatTimestamp(info.duration)));
    co_return info;
}

MediaInfo parseMediaInfo(const QJsonArray& streams, const std::optional<QJsonObject>& format) {
    const std::optional<QJsonObject> video = firstStream(streams, "video"_L1);
    const std::optional<QJsonObject> audio = firstStream(streams, "audio"_L1);

    MediaInfo info;
    // Only the first video stream may stand in for the container's duration.
    info.duration = durationOf(format).value_or(durationOf(video).value_or(0.0));
    for (const QJsonValue& stream : streams) {
        const QJsonObject object = stream.toObject();
        if (stringValue(object, "codec_type"_L1) == u"subtitle") {
            info.subtitleStreams.append(parseSubtitleStream(object));
        }
    }
    info.videoCodec = streamString(video, "codec_name"_L1).value_or(u"unknown"_s);
    info.audioCodec = streamString(audio, "codec_name"_L1);
    if (audio) {
        if (const std::optional<qint64> channels = integerValue(*audio, "channels"_L1)) {
            info.audioChannels = int(*channels);
        }
    }
    info.pixFmt = streamString(video, "pix_fmt"_L1);
    info.videoCodecTag = streamString(video, "codec_tag_string"_L1);
    info.hasVideoStream = video.has_value();
    if (video) {
        info.videoDuration = durationOf(video);
        if (!info.videoDuration) {
            info.videoDuration = taggedDuration(*video);
        }
        if (const std::optional<QString> frames = stringValue(*video, "nb_frames"_L1)) {
            if (const std::optional<double> count = wholeNumber(*frames);
                count && *count >= 0 && *count < 9.0e15 && *count == std::trunc(*count)) {
                info.videoFrameCount = qint64(*count);
            }
        }
    }
    if (format) {
        info.formatName = stringValue(*format, "format_name"_L1);
    }
    return info;
}

SubtitleStream parseSubtitleStream(const QJsonObject& stream) {
    SubtitleStream subtitle;
    subtitle.index = int(integerValue(stream, "index"_L1).value_or(0));
    subtitle.codec = stringValue(stream, "codec_name"_L1).value_or(u"unknown"_s);
    const QJsonValue tags = stream.value("tags"_L1);
    if (tags.isObject()) {
        subtitle.language = stringValue(tags.toObject(), "language"_L1);
    }
    return subtitle;
}

QString formatTimestamp(double seconds) {
    // Only finite values that fit a 64-bit integer have a meaning here.
    if (!std::isfinite(seconds) || std::abs(seconds) >= 9.2e18) {
        return u"--:--:--"_s;
    }
    const qint64 whole = qint64(std::trunc(seconds));
    return QString::asprintf("%02lld:%02lld:%02lld", whole / 3600, (whole % 3600) / 60, whole % 60);
}

} // namespace FFmpegService

void FFmpegServiceTesting::setProbeTimeout(double seconds) {
    FFmpegService::probeTimeout = seconds;
}
