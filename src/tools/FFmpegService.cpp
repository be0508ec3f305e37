#include "FFmpegService.h"

#include "ChildProcess.h"
#include "Logging.h"
#include "ProcessBuffer.h"
#include "TextLines.h"
#include "async/BackgroundTask.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QProcess>
#include <QRegularExpression>

#include <mutex>

Q_LOGGING_CATEGORY(lcFFmpeg, "com.morvane.FFmpeg")

using namespace Qt::StringLiterals;

namespace FFmpegService {

namespace {

struct Location {
    std::mutex lock;
    std::optional<QString> sharedSupportOverride;
    std::optional<ToolPaths> tools;
};

Location& location() {
    static Location instance;
    return instance;
}

// <dir of the executable>/../share/morvane; empty when the executable's folder
// can't be known (no application object yet).
QString sharedSupportPath(const Location& where) {
    if (where.sharedSupportOverride) {
        return *where.sharedSupportOverride;
    }
    if (!QCoreApplication::instance()) {
        return QString();
    }
    return QDir::cleanPath(QCoreApplication::applicationDirPath() + u"/../share/morvane"_s);
}

ToolPaths findTools(const Location& where) {
    const QString support = sharedSupportPath(where);
    if (support.isEmpty()) {
        qCCritical(lcFFmpeg,
                   "Bundle.main.sharedSupportPath unavailable — cannot locate bundled FFmpeg");
        return ToolPaths{};
    }
    const QString toolDirectory = support + u"/ffmpeg/bin"_s;
    ToolPaths paths{toolDirectory + u"/ffmpeg"_s, toolDirectory + u"/ffprobe"_s};
    if (QFileInfo::exists(paths.ffmpeg) && QFileInfo::exists(paths.ffprobe)) {
        qCInfo(lcFFmpeg, "Using bundled FFmpeg from SharedSupport");
    } else {
        qCCritical(lcFFmpeg, "Bundled FFmpeg missing at %s — app will refuse to run",
                   qUtf8Printable(toolDirectory));
    }
    return paths;
}

bool fileExists(const QString& path) {
    return !path.isEmpty() && QFileInfo::exists(path);
}

// The watchdog of one call: after `timeout` seconds it marks the call timed out and
// signals the child. The flag is set even when the child has just ended, so a call
// whose end and time limit meet reports the time-out.
QCoro::Task<> watch(double timeout, std::shared_ptr<ProcessBuffer> buffer, QPointer<QProcess> child,
                    std::stop_token stop) {
    co_await Async::sleepFor(timeout, stop);
    if (stop.stop_requested()) {
        co_return;
    }
    buffer->noteTimedOut();
    if (child) {
        ChildProcess::terminateIfRunning(child);
    }
}

} // namespace

ToolPaths locateTools() {
    Location& where = location();
    const std::lock_guard guard(where.lock);
    if (!where.tools) {
        where.tools = findTools(where);
    }
    return *where.tools;
}

QString ffmpegPath() {
    return locateTools().ffmpeg;
}

QString ffprobePath() {
    return locateTools().ffprobe;
}

void verifyTools() {
    const ToolPaths paths = locateTools();
    if (!fileExists(paths.ffmpeg)) {
        throw FFmpegError::ffmpegNotFound();
    }
    if (!fileExists(paths.ffprobe)) {
        throw FFmpegError::ffprobeNotFound();
    }
    qCInfo(lcFFmpeg, "Using ffmpeg at: %s", qUtf8Printable(paths.ffmpeg));
}

QString lastLines(const QString& text, int count) {
    const QStringList lines = TextLines::nonBlankLines(text);
    return lines.mid(std::max<qsizetype>(0, lines.size() - count)).join(u'\n');
}

std::optional<FFmpegBuild> parseVersionOutput(const QString& text) {
    static const QRegularExpression first(u"^ffmpeg version (\\S+)"_s);
    const QRegularExpressionMatch match = first.match(text);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    // The packager's revision ("5.1.6-0+deb12u1") is no part of FFmpeg's version.
    QString version = match.captured(1);
    version = version.left(version.indexOf(u'-') < 0 ? version.size() : version.indexOf(u'-'));
    // The licence follows from how the build was configured.
    const bool gpl = text.contains(u"--enable-gpl"_s);
    const bool version3 = text.contains(u"--enable-version3"_s);
    QString license = gpl ? (version3 ? u"GPL-3.0-or-later"_s : u"GPL-2.0-or-later"_s)
                          : (version3 ? u"LGPL-3.0-or-later"_s : u"LGPL-2.1-or-later"_s);
    if (text.contains(u"--enable-nonfree"_s)) {
        license = u"nonfree"_s;
    }
    return FFmpegBuild{version, license};
}

const QProcessEnvironment& childEnvironment() {
    static const QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    return environment;
}

QCoro::Task<QString> runProcess(QString path, QStringList arguments, double timeout,
                                std::stop_token stop) {
    QProcess child;
    ChildProcess::describe(child, path, arguments);
    child.setProcessChannelMode(QProcess::SeparateChannels);
    auto buffer = std::make_shared<ProcessBuffer>();

    // Both pipes are drained as data arrives, so the child never blocks on a full pipe.
    const auto stdoutReader =
        QObject::connect(&child, &QProcess::readyReadStandardOutput, &child, [&child, buffer] {
            ChildProcess::drain(child, QProcess::StandardOutput,
                                [&buffer](QByteArrayView chunk) { buffer->appendStdout(chunk); });
        });
    const auto stderrReader =
        QObject::connect(&child, &QProcess::readyReadStandardError, &child, [&child, buffer] {
            ChildProcess::drain(child, QProcess::StandardError,
                                [&buffer](QByteArrayView chunk) { buffer->appendStderr(chunk); });
        });

    const Async::BackgroundTask watchdog =
        Async::start(watch, timeout, buffer, QPointer<QProcess>(&child));

    std::optional<FFmpegError> failure;
    ProcessOutcome outcome;
    {
        // A cancellation before the launch only sets the flag: the child then runs to
        // its end unwatched, and the call reports the cancellation.
        const std::stop_callback onCancel(stop, [&watchdog, &child, buffer] {
            watchdog.cancel();
            buffer->noteCancelled();
            ChildProcess::terminateIfRunning(&child);
        });
        const ChildProcess::Ending ending = co_await ChildProcess::runToEnd(child);
        watchdog.cancel();
        QObject::disconnect(stdoutReader);
        QObject::disconnect(stderrReader);
        if (!ending.status) {
            failure = FFmpegError::processFailed(ending.launchError);
        } else {
            outcome =
                buffer->finalOutcome(child.readAllStandardOutput(), child.readAllStandardError());
            // The flags decide before the exit status: a cancelled or timed-out call
            // reports that even when the child managed to exit with 0.
            if (outcome.wasCancelled) {
                failure = FFmpegError::cancelled();
            } else if (outcome.didTimeout) {
                failure = FFmpegError::timedOut();
            } else if (*ending.status != 0) {
                const QString message =
                    outcome.stderrText.isEmpty()
                        ? u"The file couldn't be read. It may be corrupted, incomplete, or not a supported video format."_s
                        : lastLines(outcome.stderrText, 10);
                qCCritical(lcFFmpeg, "Process failed (exit %d):\n%s", *ending.status,
                           qUtf8Printable(message));
                failure = FFmpegError::processFailed(message).withDetails(
                    outcome.stderrText.isEmpty() ? QString() : message);
            }
        }
    }
    // The watchdog may touch the child; it must be gone before the child is.
    co_await watchdog.finished();
    if (failure) {
        throw *failure;
    }
    co_return outcome.stdoutText;
}

} // namespace FFmpegService

void FFmpegServiceTesting::setSharedSupportPath(const QString& path) {
    FFmpegService::Location& where = FFmpegService::location();
    const std::lock_guard guard(where.lock);
    where.sharedSupportOverride = path;
    where.tools.reset();
}
