#pragma once

// The line handling that failure texts share.

#include <QString>
#include <QStringList>

namespace TextLines {
// Removes tabs and space separators (Unicode Zs) from both ends.
QString trimmed(const QString& text);
// Splits at every line separator (U+000A to U+000D, U+0085, U+2028, U+2029, each
// one by itself), trims each piece and drops the empty ones.
QStringList nonBlankLines(const QString& text);
} // namespace TextLines
