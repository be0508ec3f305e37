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
#include <QList>
#include <QProcessEnvironment>
#include <QSet>
#include <QString>
#include <QStringList>
#include <qcoro/qcorotask.h>

#include <functional>
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

// What `ffmpeg -version` says of the build that runs: its upstream version and the
// licence its configuration puts it under.
struct FFmpegBuild {
    QString version;
    QString license;

    bool operator==(const FFmpegBuild&) const = default;
};
// Absent when the text is not ffmpeg's answer to -version.
std::optional<FFmpegBuild> parseVersionOutput(const QString& text);

// The application's own environment, taken once and handed unchanged to every child.
const QProcessEnvironment& childEnvironment();

// Runs one short tool call to its end and gives its standard output. Throws
// processFailed (launch failure or nonzero exit), timedOut or cancelled; a
// cancellation or time-out wins over whatever the child's exit status was.
QCoro::Task<QString> runProcess(QString path, QStringList arguments, double timeout,
                                std::stop_token stop = {});

// Receives the completed fraction of a run, from 0 to 1.
using ProgressCallback = std::function<void(double fraction)>;

// Runs the long ffmpeg remux with `arguments`, reporting the position of each
// "time=" that standard error shows as a fraction of `totalDuration` (none when it
// is not above 0), and 1.0 at a successful end. No time limit. Throws remuxFailed
// (launch failure or nonzero exit) or cancelled. The exit status decides before
// the cancellation: a child that exits 0 after all is a success. Gives the last
// lines that ffmpeg printed besides its progress: its warnings, on a success.
QCoro::Task<QString> runFFmpegWithProgress(QStringList arguments, double totalDuration,
                                           ProgressCallback progress, std::stop_token stop = {});
// The fraction that one decoded chunk of standard error reports: its first
// "time=HH:MM:SS.hh", over `totalDuration`, at most 1.0.
std::optional<double> progressFraction(const QString& text, double totalDuration);

// One text subtitle stream and the .srt sidecar it goes to.
struct SubtitleExtractionPlan {
    int streamIndex = 0;
    QString url;

    bool operator==(const SubtitleExtractionPlan&) const = default;
};
// The ffmpeg arguments that remux `input` into `output`: video copied (HEVC tagged
// hvc1), the first audio copied or made AAC stereo 192k, text subtitles as mov_text;
// then each of `sidecars` as a further output of the same run, so that the source
// is read once.
QStringList remuxArguments(const QString& input, const QString& output, const MediaInfo& info,
                           const QList<SubtitleExtractionPlan>& sidecars = {});
// Remuxes `input` into `output` (whose extension picks the container), writing
// `sidecars` in the same run. Throws ffmpegNotFound, or what runFFmpegWithProgress()
// throws. Writes only `output` and the sidecars. Gives ffmpeg's last lines, as
// runFFmpegWithProgress() does.
QCoro::Task<QString> remux(QString input, QString output, MediaInfo info, ProgressCallback progress,
                           std::stop_token stop = {}, QList<SubtitleExtractionPlan> sidecars = {});

// Whether something stands at `path`: a file, a folder, or a link even when it leads
// nowhere, since ffmpeg would write through it, out of the folder.
bool nameTaken(const QString& path);
// Names a sidecar for each text subtitle stream, in stream order, avoiding files and
// links that exist, names taken earlier in this plan and the `reserved` paths. Reads
// the file system only to test for existing files.
QList<SubtitleExtractionPlan> planSubtitleExtraction(const QString& input,
                                                     const QList<SubtitleStream>& streams,
                                                     const std::optional<QString>& outputDirectory,
                                                     const QSet<QString>& reserved);
// The output options of the planned sidecars: each stream as SubRip into its file.
QStringList sidecarArguments(const QList<SubtitleExtractionPlan>& plans);
// The ffmpeg arguments that write every planned sidecar in one run.
QStringList subtitleExtractionArguments(const QString& input,
                                        const QList<SubtitleExtractionPlan>& plans);
// Writes the sidecars in one ffmpeg run of at most 30 seconds and gives the number
// of planned files that did not come out: missing, or, after a failed run, empty
// (the caller claims each name with an empty file, which the run replaces; a
// stream without cues gives an empty file on purpose). A failed run is only
// counted; throws ffmpegNotFound, timedOut or cancelled.
QCoro::Task<int> extractSubtitles(QString input, QList<SubtitleExtractionPlan> plans,
                                  std::stop_token stop = {});

// The one sentence a row shows for any failure.
QString friendlyMessage(const std::exception& error);
// One line of the tools' diagnostics, made readable.
QString friendlyLine(const QString& line);

// The ffprobe arguments that describe `url` as JSON: its streams and container.
QStringList probeArguments(const QString& url);
// Runs ffprobe on the file and describes it.
QCoro::Task<MediaInfo> probe(QString url, std::stop_token stop = {});
MediaInfo parseMediaInfo(const QJsonArray& streams, const std::optional<QJsonObject>& format);
SubtitleStream parseSubtitleStream(const QJsonObject& stream);
// "HH:MM:SS" of whole seconds, for the log.
QString formatTimestamp(double seconds);

} // namespace FFmpegService

namespace FFmpegServiceTesting {
// How long a probe may take (30 seconds unless a test sets it).
void setProbeTimeout(double seconds);
// Points the shared-support location elsewhere and forgets the located tools.
void setSharedSupportPath(const QString& path);
} // namespace FFmpegServiceTesting
