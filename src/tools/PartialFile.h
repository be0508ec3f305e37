#pragma once

// A run writes under a partial name and only a verified output takes its final
// name: whatever ends the program (a logout, a kill, a crash, a power cut), nothing
// half-written ever stands where a finished conversion would. The partial file sits
// beside its final name, hidden, and says what it is: ".Clip.mp4.morvane-partial".

#include <QSet>
#include <QString>

#include <optional>

namespace PartialFile {

inline const QString suffix = QStringLiteral(".morvane-partial");

// The partial name of `finalPath`; a later `attempt` adds its number
// (".Clip.mp4.1.morvane-partial"), for when another run has the first.
QString pathFor(const QString& finalPath, int attempt = 0);
bool isPartial(const QString& path);
// The partial name with its suffix taken off: what ffmpeg must know the container by.
QString withoutSuffix(const QString& path);

// Creates an empty partial file for `finalPath`, exclusively, under the first of
// its partial names that is free. Gives its path, or sets `error` (a folder that
// can't be written, a final name too long for any file system) and gives nothing.
std::optional<QString> create(const QString& finalPath, QString* error);

// Gives `partial` the name `finalPath` without replacing anything. When another
// program has taken that name meanwhile, the next free one: "Clip.1.mp4",
// "Clip.2.mp4"…, passing over `reserved`. Gives the name it took, or sets `error`.
std::optional<QString> putInPlace(const QString& partial, const QString& finalPath,
                                  const QSet<QString>& reserved, QString* error);

// Blocking: the file's data on the disk, so that a name given after it never stands
// over an empty file after a power cut.
void syncData(const QString& path);
// Blocking: a name given in `folder` on the disk.
void syncFolder(const QString& folder);

} // namespace PartialFile

namespace PartialFileTesting {
// How putInPlace() gives a name without replacing anything: the kernel's flag, or
// what it falls back on where a file system lacks the flag (a hard link) or links
// too (a test, then the rename).
enum class Rename { noReplaceFlag, linkThenUnlink, testThenRename };
void forceRename(Rename method);
} // namespace PartialFileTesting
