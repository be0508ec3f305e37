#include "ChildProcess.h"

#include "FFmpegService.h"
#include "async/BackgroundTask.h"

#include <QThread>
#include <QTimer>

#include <algorithm>
#include <csignal>
#include <sys/prctl.h>
#include <unistd.h>

namespace ChildProcess {

void describe(QProcess& child, const QString& path, const QStringList& arguments) {
    child.setProgram(path);
    child.setArguments(arguments);
    child.setProcessEnvironment(FFmpegService::childEnvironment());
    child.setStandardInputFile(QProcess::nullDevice());
    // No tool outlives Morvane: however the program ends (SIGKILL, a crash), the
    // kernel kills its children, which would otherwise go on writing. A parent that
    // died before the request was made is caught by the check after it. The child
    // also leaves the terminal's process group, so that Ctrl-C reaches Morvane alone
    // and a cancelled run ends as Morvane decides, not halfway through ffmpeg's own
    // ending. Only async-signal-safe calls: this runs between fork and exec.
    const pid_t parent = ::getpid();
    child.setChildProcessModifier([parent] {
        ::setpgid(0, 0);
        if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || ::getppid() != parent) {
            ::_exit(127);
        }
    });
    // The children run at the application's own priority, which is what the
    // user-initiated class amounts to on Linux.
}

int exitStatus(const QProcess& child) {
    if (child.exitStatus() == QProcess::CrashExit) {
        // Qt gives the signal's number as the exit code of a crashed child; should it
        // ever give 0, the status must still not read as success.
        return 128 + std::max(child.exitCode(), 1);
    }
    return child.exitCode();
}

QCoro::Task<Ending> runToEnd(QProcess& child) {
    Ending ending;
    Async::Wakeup done;
    // Connected through `done`, so the connections end with this frame.
    QObject::connect(&child, &QProcess::finished, &done, [&] {
        ending.status = exitStatus(child);
        done.wake();
    });
    QObject::connect(&child, &QProcess::errorOccurred, &done, [&](QProcess::ProcessError error) {
        // Other errors (a crash, a failed read) are followed by finished().
        if (error == QProcess::FailedToStart) {
            ending.launchError = child.errorString();
            done.wake();
        }
    });
    child.start();
    co_await done.wait();
    co_return ending;
}

void terminateIfRunning(QProcess* child) {
    const auto terminate = [child] {
        if (child->state() != QProcess::NotRunning) {
            child->terminate();
            // A child that ignores SIGTERM would hold its run, and a quit that waits
            // for every run, forever. The timer dies with the child.
            QTimer::singleShot(killGrace, child, [child] {
                if (child->state() != QProcess::NotRunning) {
                    child->kill();
                }
            });
        }
    };
    if (QThread::currentThread() == child->thread()) {
        terminate();
    } else {
        QMetaObject::invokeMethod(child, terminate, Qt::QueuedConnection);
    }
}

} // namespace ChildProcess
