// Arbitrary bytes as ffmpeg's standard error, cut into arbitrary chunks: decoding
// never loses or invents text, and every progress it reads lies between 0 and 1.

#include "FuzzSupport.h"
#include "tools/FFmpegService.h"
#include "tools/ProgressBuffer.h"

using namespace Qt::StringLiterals;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzSupport::quietLogging();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) {
        return 0;
    }
    // The first two bytes give the chunk length (1 to 256) and the duration.
    const size_t chunk = size_t(data[0]) + 1;
    const double duration = double(data[1]) / 8.0;
    const char* bytes = reinterpret_cast<const char*>(data + 2);
    const qsizetype length = qsizetype(size - 2);

    ProgressBuffer buffer;
    QString decoded;
    qsizetype offset = 0;
    for (; offset + qsizetype(chunk) < length; offset += qsizetype(chunk)) {
        const QString text =
            buffer.appendAndDecode(QByteArrayView(bytes + offset, qsizetype(chunk)));
        decoded += text;
        if (const std::optional<double> fraction =
                FFmpegService::progressFraction(text, duration)) {
            FuzzSupport::require(*fraction >= 0 && *fraction <= 1, "progress lies between 0 and 1");
        }
    }
    const QString all = buffer.finish(QByteArrayView(bytes + offset, length - offset));
    // Whatever decoded along the way is what the whole decodes to, when the bytes
    // are valid UTF-8 and the kept tail is the whole.
    const QByteArray whole(bytes, length);
    if (QString::fromUtf8(whole).toUtf8() == whole && all == QString::fromUtf8(whole)) {
        FuzzSupport::require(all.startsWith(decoded), "chunks decode to the whole, in order");
    }
    return 0;
}
