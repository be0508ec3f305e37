// The one ffmpeg command line that does the main job: copy the video, make the
// audio playable, embed text subtitles, and write them out beside it.

#include "FFmpegService.h"
#include "Logging.h"
#include "PartialFile.h"
#include "model/FilePath.h"

#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace FFmpegService {

QStringList remuxArguments(const QString& input, const QString& output, const MediaInfo& info,
                           const QList<SubtitleExtractionPlan>& sidecars) {
    QStringList arguments{u"-i"_s, input, u"-map"_s, u"0:v:0"_s, u"-c:v"_s, u"copy"_s};
    if (info.videoCodec.toLower() == u"hevc") {
        // QuickTime plays HEVC only under the hvc1 tag, whatever the source says.
        arguments << u"-tag:v"_s << u"hvc1"_s;
        qCInfo(lcFFmpeg, "HEVC detected — tagging as hvc1 for QuickTime");
    }
    if (info.audioCodec) {
        arguments << u"-map"_s << u"0:a:0"_s;
        if (isQuickTimeAudioCodec(*info.audioCodec)) {
            arguments << u"-c:a"_s << u"copy"_s;
            qCInfo(lcFFmpeg, "Audio is AAC — copying as-is");
        } else {
            arguments << u"-c:a"_s << u"aac"_s << u"-ac"_s << u"2"_s << u"-b:a"_s << u"192k"_s;
            qCInfo(lcFFmpeg, "Audio needs transcoding: %s → AAC stereo 192k",
                   qUtf8Printable(*info.audioCodec));
        }
    } else {
        qCInfo(lcFFmpeg, "No audio track found — video only");
    }
    long textStreams = 0;
    for (const SubtitleStream& stream : info.subtitleStreams) {
        if (isTextSubtitleCodec(stream.codec)) {
            arguments << u"-map"_s << u"0:%1"_s.arg(stream.index);
            ++textStreams;
        }
    }
    if (textStreams > 0) {
        arguments << u"-c:s"_s << u"mov_text"_s;
        qCInfo(lcFFmpeg, "Embedding %ld text subtitle track(s) as mov_text", textStreams);
    }
    // The output is a claim this run fills: left untruncated, an empty file is written
    // as a new one is, where truncating it would make the file system flush the whole
    // output as it is closed (a quarter more time on a large file).
    // The container is named, not guessed: a partial file's name ends in its own
    // suffix, and only the final name's extension says MP4 or MOV.
    const bool mov =
        FilePath::pathExtension(PartialFile::withoutSuffix(output)).toLower() == u"mov";
    arguments << u"-f"_s << (mov ? u"mov"_s : u"mp4"_s);
    arguments << u"-y"_s << u"-truncate"_s << u"0"_s << output;
    return arguments + sidecarArguments(sidecars);
}

QCoro::Task<QString> remux(QString input, QString output, MediaInfo info, ProgressCallback progress,
                           std::stop_token stop, QList<SubtitleExtractionPlan> sidecars) {
    qCInfo(lcFFmpeg, "Remux started: %s", qUtf8Printable(FilePath::lastPathComponent(input)));
    const QString tool = ffmpegPath();
    if (tool.isEmpty() || !QFileInfo::exists(tool)) {
        throw FFmpegError::ffmpegNotFound();
    }
    const QStringList arguments = remuxArguments(input, output, info, sidecars);
    qCDebug(lcFFmpeg, "FFmpeg remux: %s → %s (%ld args)",
            qUtf8Printable(FilePath::lastPathComponent(input)),
            qUtf8Printable(FilePath::lastPathComponent(output)), long(arguments.size()));
    const QString lines =
        co_await runFFmpegWithProgress(arguments, info.duration, std::move(progress), stop);
    qCInfo(lcFFmpeg, "Remux complete: %s", qUtf8Printable(FilePath::lastPathComponent(output)));
    co_return lines;
}

} // namespace FFmpegService
