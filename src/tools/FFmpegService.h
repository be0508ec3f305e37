#pragma once

// The tool layer: finding and running ffmpeg and ffprobe as child processes,
// reading what they print, and the words for their failures. A namespace of free
// functions; each call owns its child and its buffers. Failures are thrown as
// FFmpegError. Calls that wait suspend the calling coroutine without blocking the
// main thread, and take the caller's stop token: cancelling it terminates the child.

#include "FFmpegError.h"
#include "model/MediaInfo.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <qcoro/qcorotask.h>

#include <optional>
#include <stop_token>

namespace FFmpegService {

// How much of a child's standard error is kept while it runs.
inline constexpr qsizetype stderrTailLimit = 32768;

struct ToolPaths {
    QString ffmpeg;
    QString ffprobe;
};

// Where the bundled tools stand: <shared support>/ffmpeg/bin. Computed once; the
// paths are given even when the files are missing, so that each use names the tool.
ToolPaths locateTools();
QString ffmpegPath();
QString ffprobePath();
// Throws ffmpegNotFound or ffprobeNotFound (ffmpeg is tested first).
void verifyTools();

// The last `count` non-blank lines of `text`, trimmed, joined by line feeds. Every
// line separator counts by itself, carriage returns included.
QString lastLines(const QString& text, int count);

// The application's own environment, taken once and handed unchanged to every child.
const QProcessEnvironment& childEnvironment();

// Runs one short tool call to its end and gives its standard output. Throws
// processFailed (launch failure or nonzero exit), timedOut or cancelled; a
// cancellation or time-out wins over whatever the child's exit status was.
QCoro::Task<QString> runProcess(QString path, QStringList arguments, double timeout,
                                std::stop_token stop = {});

// The one sentence a row shows for any failure.
QString friendlyMessage(const std::exception& error);
// One line of the tools' diagnostics, made readable.
QString friendlyLine(const QString& line);

// Runs ffprobe on the file and describes it.
QCoro::Task<MediaInfo> probe(QString url, std::stop_token stop = {});
MediaInfo parseMediaInfo(const QJsonArray& streams, const std::optional<QJsonObject>& format);
SubtitleStream parseSubtitleStream(const QJsonObject& stream);
// "HH:MM:SS" of whole seconds, for the log.
QString formatTimestamp(double seconds);

} // namespace FFmpegService

namespace FFmpegServiceTesting {
// Points the shared-support location elsewhere and forgets the located tools.
void setSharedSupportPath(const QString& path);
} // namespace FFmpegServiceTesting
