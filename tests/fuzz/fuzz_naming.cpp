// Arbitrary file names and language tags: the output and every sidecar get a name
// of their own inside the target folder, and a tag never adds a folder or a control
// character to a name.

#include "FuzzSupport.h"
#include "model/FilePath.h"
#include "model/RemuxItem.h"
#include "tools/FFmpegService.h"

#include <QSet>

using namespace Qt::StringLiterals;

namespace {

const QString folder = u"/nonexistent-fuzz-target/out"_s;

qsizetype controlCharacters(const QString& text) {
    return std::count_if(text.cbegin(), text.cend(),
                         [](QChar c) { return c.category() == QChar::Other_Control; });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzSupport::quietLogging();
    return 0;
}

// Pieces split at 0xFF bytes (which UTF-8 never holds): the file name, then one
// language tag per piece; an empty piece is a stream without a tag.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QList<QByteArray> pieces =
        QByteArray(reinterpret_cast<const char*>(data), qsizetype(size)).split(char(0xFF));
    // A name as a folder listing gives it: no "/" and no NUL.
    QString name = QString::fromUtf8(pieces.first());
    name.remove(u'/').remove(QChar(0));
    if (name.isEmpty() || name == u"."_s || name == u".."_s) {
        return 0;
    }
    RemuxItem item(FilePath::appendingPathComponent(folder, name));
    MediaInfo info;
    info.videoCodec = name.size() % 2 ? u"prores"_s : u"h264"_s;
    for (qsizetype i = 1; i < pieces.size(); ++i) {
        SubtitleStream stream;
        stream.index = int(i);
        stream.codec = u"subrip"_s;
        if (!pieces.at(i).isEmpty()) {
            stream.language = QString::fromUtf8(pieces.at(i));
        }
        info.subtitleStreams.append(stream);
    }
    item.cachedMediaInfo = info;

    const QString output = item.outputFilename();
    FuzzSupport::require(!output.isEmpty() && !output.contains(u'/') && output != u".."_s,
                         "the output is a plain name");
    FuzzSupport::require(output != name, "the output never takes the source's name");
    FuzzSupport::require(output.endsWith(u'.' + item.outputExtension()),
                         "the output ends in its container's extension");
    const QString outputURL = FilePath::appendingPathComponent(folder, output);
    FuzzSupport::require(FilePath::deletingLastPathComponent(outputURL) == folder,
                         "the output lands in the target folder");

    const QList<FFmpegService::SubtitleExtractionPlan> plans =
        FFmpegService::planSubtitleExtraction(item.url, info.subtitleStreams, std::nullopt,
                                              QSet<QString>{outputURL});
    FuzzSupport::require(plans.size() == info.subtitleStreams.size(), "one sidecar a text stream");
    QSet<QString> seen{outputURL};
    // A sidecar is named after the source without its extension.
    const QString stem = FilePath::deletingPathExtension(name);
    for (const FFmpegService::SubtitleExtractionPlan& plan : plans) {
        const QString sidecar = FilePath::lastPathComponent(plan.url);
        FuzzSupport::require(FilePath::deletingLastPathComponent(plan.url) == folder &&
                                 !sidecar.contains(u'/') && sidecar != u".."_s,
                             "a sidecar lands in the target folder");
        FuzzSupport::require(sidecar.endsWith(u".srt"_s), "a sidecar is a SubRip file");
        FuzzSupport::require(controlCharacters(sidecar) == controlCharacters(stem),
                             "a tag adds no control character");
        FuzzSupport::require(!seen.contains(plan.url), "every sidecar has a name of its own");
        seen.insert(plan.url);
    }
    return 0;
}
