// The long ffmpeg run of a remux, with its progress read from standard error.

#include "ChildProcess.h"
#include "FFmpegService.h"
#include "Logging.h"
#include "ProgressBuffer.h"
#include "TextLines.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace FFmpegService {

namespace {
const QRegularExpression& progressTimePattern() {
    static const QRegularExpression pattern(u"time=(\\d{2}):(\\d{2}):(\\d{2})\\.(\\d{2})"_s);
    return pattern;
}

// What ffmpeg prints besides its errors, and may print after the line that says
// what went wrong: progress, the stream mapping, the note that a message repeated,
// and an error label whose reason came out empty. The row would show it instead.
QString withoutBookkeeping(const QString& text) {
    static const QRegularExpression bookkeeping(
        u"^(frame=|size=|Last message repeated|Stream mapping:|Stream #\\S+ -> |Press \\[q\\])|--$"_s);
    QStringList lines = TextLines::nonBlankLines(text);
    lines.removeIf([](const QString& line) { return bookkeeping.match(line).hasMatch(); });
    return lines.join(u'\n');
}
// What ffmpeg warned about on a run that succeeded: its report of the streams (the
// banner, the "Input #"/"Output #" headings and their indented lines, the closing
// sizes) and the bookkeeping left out, which would hide the warnings that tell why
// an output came out empty.
QString warningsOf(const QString& text) {
    static const QRegularExpression report(
        u"^(\\s|ffmpeg version |Input #|Output #|(\\[[^\\]]*\\] )?video:\\d+(kB|KiB) )"_s);
    QStringList kept;
    for (const QString& line : text.split(QRegularExpression(u"[\r\n]"_s))) {
        if (!report.match(line).hasMatch()) {
            kept.append(line);
        }
    }
    return withoutBookkeeping(kept.join(u'\n'));
}
} // namespace

std::optional<double> progressFraction(const QString& text, double totalDuration) {
    if (text.isEmpty() || !(totalDuration > 0)) {
        return std::nullopt;
    }
    const QRegularExpressionMatch match = progressTimePattern().match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    double parts[4];
    for (int group = 1; group <= 4; ++group) {
        bool ok = false;
        parts[group - 1] = match.capturedView(group).toDouble(&ok);
        if (!ok) {
            return std::nullopt;
        }
    }
    const double position = parts[0] * 3600 + parts[1] * 60 + parts[2] + parts[3] / 100;
    return std::min(position / totalDuration, 1.0);
}

QCoro::Task<QString> runFFmpegWithProgress(QStringList arguments, double totalDuration,
                                           ProgressCallback progress, std::stop_token stop) {
    QProcess child;
    ChildProcess::describe(child, ffmpegPath(), arguments);
    auto buffer = std::make_shared<ProgressBuffer>();

    std::optional<FFmpegError> failure;
    QString lines;
    {
        // A cancellation before the launch signals nothing; the exit status decides.
        const std::stop_callback onCancel(stop, [&child, buffer] {
            buffer->noteCancelled();
            qCInfo(lcFFmpeg, "Task cancelled — terminating FFmpeg process");
            ChildProcess::terminateIfRunning(&child);
        });

        child.setStandardOutputFile(QProcess::nullDevice());
        child.setReadChannel(QProcess::StandardError);
        // Each chunk is decoded and scanned once, on its own; a "time=" split across
        // two chunks is in neither and goes unreported.
        const auto reader = QObject::connect(
            &child, &QProcess::readyReadStandardError, &child,
            [&child, buffer, totalDuration, &progress] {
                ChildProcess::drain(child, QProcess::StandardError, [&](QByteArrayView chunk) {
                    const QString text = buffer->appendAndDecode(chunk);
                    if (const std::optional<double> fraction =
                            progressFraction(text, totalDuration)) {
                        progress(*fraction);
                    }
                });
            });

        const ChildProcess::Ending ending = co_await ChildProcess::runToEnd(child);
        QObject::disconnect(reader);
        if (!ending.status) {
            failure = FFmpegError::remuxFailed(ending.launchError);
        } else {
            const QString text = buffer->finish(child.readAllStandardError());
            const int status = *ending.status;
            // ffmpeg 5.1 exits with 0 when it can't write the end of its output (the
            // disk filled up): the file is cut short, whatever the status says.
            // Only at the start of a line: a path or a title may hold the words.
            static const QRegularExpression cutShortPattern(
                u"(^|[\r\n])(Error writing trailer of |Error closing file )"_s);
            const bool cutShort = cutShortPattern.match(text).hasMatch();
            // The exit status decides first: a child that finished its work despite
            // a cancellation has written a whole file.
            if (status == 0 && !cutShort) {
                lines = lastLines(warningsOf(text), 10);
                progress(1.0);
            } else if (buffer->wasCancelled()) {
                qCInfo(lcFFmpeg, "FFmpeg terminated by user cancellation");
                failure = FFmpegError::cancelled();
            } else {
                lines = lastLines(withoutBookkeeping(text), 10);
                qCCritical(lcFFmpeg, "FFmpeg failed (exit %d):\n%s", status, qUtf8Printable(lines));
                failure = FFmpegError::remuxFailed(u"ffmpeg exited with code "_s +
                                                   QString::number(status) + u'\n' + lines)
                              .withDetails(lines);
            }
        }
    }
    if (failure) {
        throw *failure;
    }
    co_return lines;
}

} // namespace FFmpegService
