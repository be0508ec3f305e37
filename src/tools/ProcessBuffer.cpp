#include "ProcessBuffer.h"

#include "FFmpegService.h"
#include "Utf8.h"

void appendKeepingTail(QByteArray& buffer, const QByteArray& chunk, qsizetype limit) {
    if (chunk.size() >= limit) {
        buffer.resize(0);
        buffer.append(chunk.constData() + (chunk.size() - limit), limit);
        return;
    }
    const qsizetype overflow = buffer.size() + chunk.size() - limit;
    if (overflow > 0) {
        buffer.remove(0, overflow);
    }
    buffer.append(chunk);
}

ProcessBuffer::ProcessBuffer() { _stderr.reserve(FFmpegService::stderrTailLimit); }

void ProcessBuffer::appendStdout(const QByteArray& chunk) {
    const std::lock_guard guard(lock);
    _stdout.append(chunk);
}

void ProcessBuffer::appendStderr(const QByteArray& chunk) {
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
