#include "ProgressBuffer.h"

#include "FFmpegService.h"
#include "ProcessBuffer.h"
#include "Utf8.h"

QString ProgressBuffer::appendAndDecode(QByteArrayView chunk) {
    const std::lock_guard guard(stderrLock);
    _pending.append(chunk);
    std::optional<QString> text = Utf8::decodeStrict(_pending);
    if (!text) {
        if (_pending.size() <= pendingDecodeLimit) {
            return QString();
        }
        text = Utf8::decodeLossy(_pending);
    }
    appendKeepingTail(_stderr, _pending, FFmpegService::stderrTailLimit);
    _pending.resize(0);
    return *text;
}

QString ProgressBuffer::finish(QByteArrayView lastBytes) {
    const std::lock_guard guard(stderrLock);
    _pending.append(lastBytes);
    _stderr.append(_pending);
    _pending.resize(0);
    return Utf8::decodeStrict(_stderr).value_or(Utf8::decodeLossy(_stderr));
}

void ProgressBuffer::noteCancelled() {
    const std::lock_guard guard(cancelLock);
    _wasCancelled = true;
}

bool ProgressBuffer::wasCancelled() const {
    const std::lock_guard guard(cancelLock);
    return _wasCancelled;
}
