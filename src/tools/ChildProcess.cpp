#include "ChildProcess.h"

#include "FFmpegService.h"
#include "async/BackgroundTask.h"

#include <QThread>
#include <QTimer>

#include <algorithm>

namespace ChildProcess {

void describe(QProcess& child, const QString& path, const QStringList& arguments) {
    child.setProgram(path);
    child.setArguments(arguments);
    child.setProcessEnvironment(FFmpegService::childEnvironment());
    child.setStandardInputFile(QProcess::nullDevice());
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
