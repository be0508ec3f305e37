#pragma once

// The standard error of a running ffmpeg as the progress parser sees it: each
// chunk decoded on its own, bytes of an unfinished character held back until the
// next chunk, and a bounded tail kept for the failure message. Two locks, never
// held together, so a cancellation never waits for a decode.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <mutex>

class ProgressBuffer {
public:
    // Undecodable bytes are held back only up to this much; then they are decoded
    // with replacement characters so that reporting can go on.
    static constexpr qsizetype pendingDecodeLimit = 65536;

    // The text to scan for progress now; empty while the bytes so far end inside a
    // character (or never decode, up to the limit).
    QString appendAndDecode(QByteArrayView chunk);
    // Adds the last bytes and gives all of the kept standard error as text, with
    // replacement characters where it doesn't decode. The last bytes are not trimmed.
    QString finish(QByteArrayView lastBytes);

    void noteCancelled();
    bool wasCancelled() const;

private:
    std::mutex stderrLock;
    mutable std::mutex cancelLock;
    QByteArray _stderr;
    QByteArray _pending;
    bool _wasCancelled = false;
};
