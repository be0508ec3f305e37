// Text subtitle streams written out as .srt sidecars: names planned without
// touching anything, then one ffmpeg run for all of them.

#include "FFmpegService.h"
#include "Logging.h"
#include "model/FilePath.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace FFmpegService {

namespace {

constexpr double extractionTimeout = 30.0;

// A language tag goes into the file name as stored, except what could lead the
// name out of its folder or break it: "/", NUL and other control characters.
QString safeForFileName(const QString& language) {
    QString safe = language;
    for (QChar& c : safe) {
        if (c == u'/' || c.category() == QChar::Other_Control) {
            c = u'_';
        }
    }
    return safe;
}

QString suffixFor(const SubtitleStream& stream, qsizetype position, qsizetype keptCount) {
    if (keptCount == 1) {
        if (!stream.language || *stream.language == u"und") {
            return QString();
        }
        return u'.' + safeForFileName(*stream.language);
    }
    if (!stream.language) {
        return u'.' + QString::number(position);
    }
    return u'.' + safeForFileName(*stream.language);
}

} // namespace

bool nameTaken(const QString& path) {
    const QFileInfo file(path);
    return file.exists() || file.isSymLink();
}

QList<SubtitleExtractionPlan> planSubtitleExtraction(const QString& input,
                                                     const QList<SubtitleStream>& streams,
                                                     const std::optional<QString>& outputDirectory,
                                                     const QSet<QString>& reserved) {
    QList<SubtitleStream> kept;
    for (const SubtitleStream& stream : streams) {
        if (isTextSubtitleCodec(stream.codec)) {
            kept.append(stream);
        }
    }
    if (kept.isEmpty()) {
        return {};
    }
    // The source's own name: never the output's ".morvane." one.
    const QString base = FilePath::deletingPathExtension(FilePath::lastPathComponent(input));
    const QString directory = outputDirectory.value_or(FilePath::deletingLastPathComponent(input));
    QSet<QString> claimed;
    const auto taken = [&](const QString& url) {
        return nameTaken(url) || claimed.contains(url) || reserved.contains(url);
    };

    QList<SubtitleExtractionPlan> plans;
    for (qsizetype position = 0; position < kept.size(); ++position) {
        const SubtitleStream& stream = kept.at(position);
        const QString stem = base + suffixFor(stream, position, kept.size());
        QString candidate = FilePath::appendingPathComponent(directory, stem + u".srt"_s);
        for (int counter = 1; taken(candidate); ++counter) {
            candidate = FilePath::appendingPathComponent(
                directory, stem + u'.' + QString::number(counter) + u".srt"_s);
        }
        claimed.insert(candidate);
        plans.append(SubtitleExtractionPlan{stream.index, candidate});
    }
    return plans;
}

QStringList sidecarArguments(const QList<SubtitleExtractionPlan>& plans) {
    QStringList arguments;
    for (const SubtitleExtractionPlan& plan : plans) {
        // Each file is an empty claim; see the output's in remuxArguments().
        arguments << u"-map"_s << u"0:%1"_s.arg(plan.streamIndex) << u"-c:s"_s << u"srt"_s
                  << u"-f"_s << u"srt"_s << u"-truncate"_s << u"0"_s << plan.url;
    }
    return arguments;
}

QStringList subtitleExtractionArguments(const QString& input,
                                        const QList<SubtitleExtractionPlan>& plans) {
    return QStringList{u"-y"_s, u"-i"_s, input} + sidecarArguments(plans);
}

QCoro::Task<int> extractSubtitles(QString input, QList<SubtitleExtractionPlan> plans,
                                  std::stop_token stop) {
    const QString tool = ffmpegPath();
    if (tool.isEmpty() || !QFileInfo::exists(tool)) {
        throw FFmpegError::ffmpegNotFound();
    }
    if (plans.isEmpty()) {
        co_return 0;
    }
    qCInfo(lcFFmpeg, "Extracting %ld subtitle track(s) from %s", long(plans.size()),
           qUtf8Printable(FilePath::lastPathComponent(input)));
    bool runFailed = false;
    try {
        co_await runProcess(tool, subtitleExtractionArguments(input, plans), extractionTimeout,
                            stop);
    } catch (const FFmpegError& error) {
        // Only whether each file came into being counts; a time-out or a
        // cancellation is the caller's to handle.
        if (error.kind() != FFmpegError::Case::processFailed) {
            throw;
        }
        runFailed = true;
        qCCritical(lcFFmpeg, "Subtitle extraction batch failed: %s",
                   qUtf8Printable(error.message()));
    }
    // The exit status covers every sidecar of the run. After a success an empty
    // file is a stream without cues, written on purpose; after a failure it is the
    // caller's claim, which ffmpeg never replaced.
    const int missing =
        int(std::count_if(plans.begin(), plans.end(), [runFailed](const auto& plan) {
            const QFileInfo file(plan.url);
            return !file.exists() || (runFailed && file.size() == 0);
        }));
    if (missing > 0) {
        qCCritical(lcFFmpeg, "%ld of %ld subtitle track(s) failed to extract", long(missing),
                   long(plans.size()));
    }
    co_return missing;
}

} // namespace FFmpegService
