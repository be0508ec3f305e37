#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace Utf8 {
// The text, or nothing when the bytes are not entirely valid UTF-8 (including a
// sequence cut off at the end). A byte order mark is kept as a character.
std::optional<QString> decodeStrict(const QByteArray& bytes);
// The text with every invalid sequence replaced by U+FFFD.
QString decodeLossy(const QByteArray& bytes);
} // namespace Utf8
