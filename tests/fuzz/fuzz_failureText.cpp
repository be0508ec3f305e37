// Arbitrary bytes as a tool's standard error: the tail kept for the log and the
// one line a row shows must stay short, trimmed and on one line.

#include "FuzzSupport.h"
#include "tools/FFmpegError.h"
#include "tools/FFmpegService.h"
#include "tools/TextLines.h"

using namespace Qt::StringLiterals;

namespace {

bool hasLineSeparator(const QString& text) {
    for (const QChar c : text) {
        if ((c >= u'\n' && c <= u'\r') || c == QChar(0x85) || c == QChar(0x2028) ||
            c == QChar(0x2029)) {
            return true;
        }
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    FuzzSupport::quietLogging();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    // The first byte picks how many lines to keep, the rest is the text.
    const int count = data[0] % 8;
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data + 1), qsizetype(size - 1));

    const QString tail = FFmpegService::lastLines(text, count);
    const QStringList kept = tail.isEmpty() ? QStringList() : tail.split(u'\n');
    for (const QString& line : kept) {
        FuzzSupport::require(!line.isEmpty() && !hasLineSeparator(line), "kept lines are whole");
        FuzzSupport::require(TextLines::trimmed(line) == line, "kept lines are trimmed");
    }
    const QStringList all = TextLines::nonBlankLines(text);
    FuzzSupport::require(kept.size() == std::min<qsizetype>(count, all.size()) &&
                             kept == all.mid(all.size() - kept.size()),
                         "the kept lines are the last ones, as many as asked or there are");

    const QString friendly = FFmpegService::friendlyLine(text);
    FuzzSupport::require(text.isEmpty() || !friendly.isEmpty(), "a line never reads as nothing");

    const QString row = FFmpegService::friendlyMessage(FFmpegError::remuxFailed(text));
    if (!all.isEmpty()) {
        FuzzSupport::require(!row.isEmpty() && !hasLineSeparator(row),
                             "a failure with any text shows one non-empty line");
    }
    return 0;
}
