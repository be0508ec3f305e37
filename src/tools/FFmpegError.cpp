#include "FFmpegError.h"

using namespace Qt::StringLiterals;

FFmpegError::FFmpegError(Case kind, QString message)
    : case_(kind), message_(std::move(message)), what_(localizedDescription().toUtf8()) {}

QString FFmpegError::localizedDescription() const {
    switch (case_) {
    case Case::probeFailed:
        return u"Failed to probe video: "_s + message_;
    case Case::remuxFailed:
        return u"Remux failed: "_s + message_;
    case Case::processFailed:
        return u"Process failed: "_s + message_;
    case Case::ffmpegNotFound:
        return u"ffmpeg not found in app bundle. The app must be built with ffmpeg-bundle/ present."_s;
    case Case::ffprobeNotFound:
        return u"ffprobe not found in app bundle. The app must be built with ffmpeg-bundle/ present."_s;
    case Case::cancelled:
        return u"Remux was cancelled."_s;
    case Case::timedOut:
        return u"Operation timed out — the process may be unresponsive."_s;
    }
    Q_UNREACHABLE();
    return QString();
}
