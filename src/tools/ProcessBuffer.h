#pragma once

// What a one-shot child wrote, shared by the readers of its two pipes, the
// watchdog, the cancellation handler and the end of the call. Each operation holds
// the lock for one append, one flag write or the final read, nothing longer.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <mutex>

struct ProcessOutcome {
    QString stdoutText;
    QString stderrText;
    bool didTimeout = false;
    bool wasCancelled = false;
};

// Appends `chunk` to `buffer` and keeps only the last `limit` bytes, without ever
// letting the buffer's allocation grow past `limit`: the oldest bytes make room
// first, so the tail costs `limit` however much arrives.
void appendKeepingTail(QByteArray& buffer, QByteArrayView chunk, qsizetype limit);

class ProcessBuffer {
public:
    void appendStdout(QByteArrayView chunk);
    // Keeps at most stderrTailLimit bytes: the tail is what a failure shows.
    void appendStderr(QByteArrayView chunk);
    void noteTimedOut();
    void noteCancelled();
    // Adds the last bytes (untrimmed), decodes both streams as strict UTF-8 (text
    // that isn't valid gives the empty text) and reads both flags.
    ProcessOutcome finalOutcome(const QByteArray& stdoutTail, const QByteArray& stderrTail);

private:
    std::mutex lock;
    QByteArray _stdout;
    QByteArray _stderr;
    bool _didTimeout = false;
    bool _wasCancelled = false;
};
