#pragma once

// Path operations on the local absolute paths that stand for URLs throughout the
// application. They work on the text alone and never touch the file system.

#include <QString>

namespace FilePath {

// The part after the last dot of the last component; empty when there is none, when
// the name ends in a dot, or when the only dot starts the name (".mkv" is a name).
QString pathExtension(const QString& path);
QString lastPathComponent(const QString& path);
// The last component without its last extension.
QString deletingPathExtension(const QString& name);
QString deletingLastPathComponent(const QString& path);
QString appendingPathComponent(const QString& directory, const QString& component);

} // namespace FilePath
