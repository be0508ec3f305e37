// Arbitrary bytes as ffprobe's standard output: read as JSON the way the probe
// reads it, described, and the description fed to everything that reads it next.

#include "FuzzSupport.h"
#include "tools/FFmpegService.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzSupport::quietLogging();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const QJsonDocument document = QJsonDocument::fromJson(QString::fromUtf8(bytes).toUtf8());
    const QJsonObject top = document.object();
    std::optional<QJsonObject> format;
    if (top.value("format"_L1).isObject()) {
        format = top.value("format"_L1).toObject();
    }
    const MediaInfo info = FFmpegService::parseMediaInfo(top.value("streams"_L1).toArray(), format);

    (void)info.unsupportedReason();
    (void)info.isAlreadyCompatible(u"mkv"_s);
    (void)info.isAlreadyCompatible(u"MP4"_s);
    (void)info.hasTextSubtitles();
    (void)FFmpegService::formatTimestamp(info.duration);
    const QStringList arguments =
        FFmpegService::remuxArguments(u"/in/a.mkv"_s, u"/out/a.mp4"_s, info);
    FuzzSupport::require(arguments.size() >= 2 && arguments.last() == u"/out/a.mp4"_s,
                         "the output path is the last remux argument");
    FuzzSupport::require(arguments.contains(u"/in/a.mkv"_s), "the input path is one argument");
    const std::optional<double> fraction =
        FFmpegService::progressFraction(u"frame=1 time=00:00:01.50 bitrate=1"_s, info.duration);
    FuzzSupport::require(!fraction || (*fraction >= 0 && *fraction <= 1),
                         "a progress fraction lies between 0 and 1");
    return 0;
}
