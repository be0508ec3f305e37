// The one short sentence that a row shows for a failure of the tool layer.

#include "FFmpegService.h"
#include "TextLines.h"

#include <QTextBoundaryFinder>

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace FFmpegService {

namespace {

// The tools' wordings, tested in this order on the lower-cased line.
const std::array<std::pair<const char16_t*, const char16_t*>, 5> knownCauses{{
    {u"moov atom not found", u"The file is incomplete or corrupted (missing movie metadata)."},
    {u"invalid data found when processing input",
     u"This doesn't look like a video file, or it's too damaged to read."},
    {u"no such file or directory", u"The file is missing or was moved."},
    {u"permission denied", u"Permission denied — the file isn't readable."},
    {u"end of file", u"The file ends unexpectedly — it may be a partial download."},
}};

// Whether fewer than `limit` user-perceived characters stand before `position`.
bool fewerCharactersThan(const QString& text, qsizetype position, int limit) {
    if (position < limit) {
        return true; // a character is at least one UTF-16 unit
    }
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, text.left(position));
    int count = 0;
    while (graphemes.toNextBoundary() != -1) {
        if (++count >= limit) {
            return false;
        }
    }
    return true;
}

} // namespace

QString friendlyMessage(const std::exception& error) {
    const auto* failure = dynamic_cast<const FFmpegError*>(&error);
    if (!failure) {
        return QString::fromUtf8(error.what());
    }
    switch (failure->kind()) {
    case FFmpegError::Case::cancelled:
        return u"Cancelled"_s;
    case FFmpegError::Case::timedOut:
        return u"The operation timed out. The file may be corrupted or unreadable."_s;
    case FFmpegError::Case::ffmpegNotFound:
    case FFmpegError::Case::ffprobeNotFound:
        return failure->localizedDescription();
    case FFmpegError::Case::probeFailed:
    case FFmpegError::Case::remuxFailed:
    case FFmpegError::Case::processFailed:
        break;
    }
    // The message, never the description: "Remux failed: " is no news to the user.
    const QString& message = failure->message();
    const QStringList lines = TextLines::nonBlankLines(message);
    return friendlyLine(lines.isEmpty() ? message : lines.last());
}

QString friendlyLine(const QString& line) {
    QString result = line;
    // "[component @ 0x…] text": the component is noise.
    if (result.startsWith(u'[')) {
        const qsizetype close = result.indexOf(u']');
        if (close >= 0) {
            result = TextLines::trimmed(result.mid(close + 1));
        }
    }
    // "path: cause": the cause is what matters, unless the head is too long to be a
    // path or a component name.
    const qsizetype colon = result.indexOf(u':');
    if (colon >= 0 && fewerCharactersThan(result, colon, 200)) {
        const QString cause = TextLines::trimmed(result.mid(colon + 1));
        if (!cause.isEmpty()) {
            result = cause;
        }
    }
    const QString lowered = result.toLower();
    for (const auto& [wording, sentence] : knownCauses) {
        if (lowered.contains(QString::fromUtf16(wording))) {
            return QString::fromUtf16(sentence);
        }
    }
    return result.isEmpty() ? line : result;
}

} // namespace FFmpegService
