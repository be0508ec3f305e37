#include "ProcessBuffer.h"

#include "FFmpegService.h"
#include "Utf8.h"

#include <algorithm>
#include <cstring>

void appendKeepingTail(QByteArray& buffer, QByteArrayView chunk, qsizetype limit) {
    // One allocation of `limit` bytes, reused for good: the kept bytes slide to the
    // front in place and the chunk is copied in behind them. QByteArray's own
    // remove-then-append would sometimes grow the allocation instead.
    if (buffer.capacity() < limit) {
        buffer.reserve(limit);
    }
    if (chunk.size() >= limit) {
        buffer.resize(limit);
        std::memcpy(buffer.data(), chunk.data() + (chunk.size() - limit), size_t(limit));
        return;
    }
    const qsizetype keep = std::min(buffer.size(), limit - chunk.size());
    char* data = buffer.data();
    std::memmove(data, data + (buffer.size() - keep), size_t(keep));
    buffer.resize(keep + chunk.size());
    std::memcpy(buffer.data() + keep, chunk.data(), size_t(chunk.size()));
}

void ProcessBuffer::appendStdout(QByteArrayView chunk) {
    const std::lock_guard guard(lock);
    _stdout.append(chunk);
}

void ProcessBuffer::appendStderr(QByteArrayView chunk) {
    const std::lock_guard guard(lock);
    appendKeepingTail(_stderr, chunk, FFmpegService::stderrTailLimit);
}

void ProcessBuffer::noteTimedOut() {
    const std::lock_guard guard(lock);
    _didTimeout = true;
}

void ProcessBuffer::noteCancelled() {
    const std::lock_guard guard(lock);
    _wasCancelled = true;
}

ProcessOutcome ProcessBuffer::finalOutcome(const QByteArray& stdoutTail,
                                           const QByteArray& stderrTail) {
    const std::lock_guard guard(lock);
    _stdout.append(stdoutTail);
    _stderr.append(stderrTail);
    return ProcessOutcome{
        Utf8::decodeStrict(_stdout).value_or(QString()),
        Utf8::decodeStrict(_stderr).value_or(QString()),
        _didTimeout,
        _wasCancelled,
    };
}
