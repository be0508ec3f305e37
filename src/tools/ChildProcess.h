#pragma once

// What both of the tool layer's runners do alike with a child process.

#include <QByteArrayView>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <qcoro/qcorotask.h>

#include <chrono>
#include <optional>

namespace ChildProcess {

// Program, arguments and the shared environment. The child's standard input is the
// null device: ffmpeg would otherwise read keystrokes from a terminal the
// application was started from, and stop when that terminal is in the background.
void describe(QProcess& child, const QString& path, const QStringList& arguments);

// The exit status, where a child ended by a signal reads as 128 + the signal and
// so never as 0.
int exitStatus(const QProcess& child);

// Reads everything the channel holds now and hands it to `sink` in slices of at
// most 16 KiB, through a buffer on the stack. QIODevice::readAll() would allocate
// twice what is waiting; this way the only heap copy of a chunk is the child's
// own read buffer.
template <typename Sink>
void drain(QProcess& child, QProcess::ProcessChannel channel, Sink&& sink) {
    const QProcess::ProcessChannel previous = child.readChannel();
    child.setReadChannel(channel);
    char slice[16384];
    for (qint64 n; (n = child.read(slice, sizeof slice)) > 0;) {
        sink(QByteArrayView(slice, n));
    }
    child.setReadChannel(previous);
}

// How a child ended: its exit status (see exitStatus()), or, when it never
// started, the launch error's description.
struct Ending {
    std::optional<int> status;
    QString launchError;
};

// Starts the described child and completes once it has ended or failed to start.
// Output that arrives meanwhile goes to whatever the caller connected beforehand.
QCoro::Task<Ending> runToEnd(QProcess& child);

// How long a child has to end after SIGTERM before it gets SIGKILL.
constexpr std::chrono::milliseconds killGrace{5000};

// Sends SIGTERM if the child is running, and SIGKILL if it still runs killGrace
// later. Safe from any thread: off the child's own thread the signals are sent from
// that thread's event loop.
void terminateIfRunning(QProcess* child);

} // namespace ChildProcess
