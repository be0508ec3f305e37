#include "TextLines.h"

namespace TextLines {

namespace {
bool isBlank(QChar c) {
    return c == u'\t' || c.category() == QChar::Separator_Space;
}

bool isLineSeparator(QChar c) {
    const char16_t u = c.unicode();
    return (u >= 0x0A && u <= 0x0D) || u == 0x85 || u == 0x2028 || u == 0x2029;
}
} // namespace

QString trimmed(const QString& text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text.at(begin))) {
        ++begin;
    }
    while (end > begin && isBlank(text.at(end - 1))) {
        --end;
    }
    return text.mid(begin, end - begin);
}

QStringList nonBlankLines(const QString& text) {
    QStringList lines;
    qsizetype start = 0;
    for (qsizetype i = 0; i <= text.size(); ++i) {
        if (i == text.size() || isLineSeparator(text.at(i))) {
            const QString line = trimmed(text.mid(start, i - start));
            if (!line.isEmpty()) {
                lines.append(line);
            }
            start = i + 1;
        }
    }
    return lines;
}

} // namespace TextLines
