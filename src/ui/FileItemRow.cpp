#include "FileItemRow.h"

#include "Legibility.h"
#include "model/FilePath.h"

#include <cmath>

using namespace Qt::StringLiterals;

namespace FileItemRow {

QString printable(QString text) {
    for (QChar& c : text) {
        // Line and paragraph separators break the line too; bidirectional
        // overrides and isolates could make a name read as another.
        const char16_t u = c.unicode();
        if (c.category() == QChar::Other_Control || u == 0x2028 || u == 0x2029 ||
            (u >= 0x202A && u <= 0x202E) || (u >= 0x2066 && u <= 0x2069)) {
            c = QChar::ReplacementCharacter;
        }
    }
    return text;
}

QString fileName(const RemuxItem& item) {
    return printable(FilePath::lastPathComponent(item.url));
}

QString pathText(const RemuxItem& item) {
    return printable(item.url);
}

QString statusText(const RemuxItem& item) {
    return item.statusMessage.value_or(rawValue(item.status));
}

bool isMeasurable(const RemuxItem& item) {
    return item.cachedMediaInfo && item.cachedMediaInfo->duration > 0;
}

QString percentText(double progress) {
    return QString::number(qint64(std::trunc(progress * 100))) + u'%';
}

QString errorLine(const RemuxItem& item) {
    return item.status == ProcessingStatus::failed ? printable(item.error.value_or(QString()))
                                                   : QString();
}

QString errorDetailsText(const RemuxItem& item) {
    if (item.status != ProcessingStatus::failed || !item.errorDetails) {
        return QString();
    }
    // Line feeds are the lines' own separators; anything else could garble the tip.
    QStringList lines = item.errorDetails->split(u'\n');
    for (QString& line : lines) {
        line = printable(line);
    }
    return lines.join(u'\n');
}

QString toolTip(const RemuxItem& item) {
    if (item.status == ProcessingStatus::failed) {
        const QString details = errorDetailsText(item);
        return details.isEmpty() ? errorLine(item) : errorLine(item) + u"\n\n"_s + details;
    }
    if (item.status == ProcessingStatus::completed || item.status == ProcessingStatus::skipped) {
        return printable(item.statusMessage.value_or(QString()));
    }
    return QString();
}

QColor errorColour(const QColor& background, const QColor& fallback) {
    for (const QColor& red : {QColor(0xc0, 0x1c, 0x1c), QColor(0xff, 0x8a, 0x80)}) {
        if (Legibility::contrastRatio(red, background) >= 4.5) {
            return red;
        }
    }
    return fallback;
}

QString accessibleText(const RemuxItem& item) {
    if (item.status != ProcessingStatus::processing) {
        return fileName(item) + u", "_s + statusAccessibilityLabel(item);
    }
    const QString value = progressAccessibilityValue(item);
    return fileName(item) + u", Remuxing"_s + (value.isEmpty() ? QString() : u", "_s + value);
}

QString statusIconName(const RemuxItem& item) {
    switch (item.status) {
    case ProcessingStatus::completed:
        return u"object-select-symbolic"_s;
    case ProcessingStatus::failed:
        return u"dialog-warning-symbolic"_s;
    case ProcessingStatus::skipped:
        return u"go-next-symbolic"_s;
    case ProcessingStatus::pending:
    case ProcessingStatus::processing:
        break;
    }
    return QString();
}

QString statusAccessibilityLabel(const RemuxItem& item) {
    return u"Status: "_s + statusText(item);
}

QString progressAccessibilityLabel(const RemuxItem& item) {
    return u"Remuxing "_s + fileName(item);
}

QString progressAccessibilityValue(const RemuxItem& item) {
    if (!isMeasurable(item)) {
        return QString();
    }
    return QString::number(qint64(std::trunc(item.progress * 100))) + u" percent complete"_s;
}

QString progressText(const RemuxItem& item) {
    if (item.status != ProcessingStatus::processing) {
        return QString();
    }
    return isMeasurable(item) ? percentText(item.progress) : u"Remuxing\u2026"_s;
}

QString accessibleLabel(const RemuxItem& item) {
    return item.status == ProcessingStatus::processing ? progressAccessibilityLabel(item)
                                                       : statusAccessibilityLabel(item);
}

QString accessibleValue(const RemuxItem& item) {
    return item.status == ProcessingStatus::processing ? progressAccessibilityValue(item)
                                                       : QString();
}

} // namespace FileItemRow
