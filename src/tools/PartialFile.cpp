#include "PartialFile.h"

#include "model/FilePath.h"

#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace PartialFile {

namespace {

// The longest file name, in bytes, of the file systems Linux mounts.
constexpr qsizetype nameMax = 255;

QString errorText(int number) {
    return QString::fromLocal8Bit(std::strerror(number));
}

// "dir/Clip.mp4" as "dir/Clip.<n>.mp4": the sidecars' rule for a taken name.
QString numbered(const QString& finalPath, int n) {
    const QString folder = FilePath::deletingLastPathComponent(finalPath);
    const QString name = FilePath::lastPathComponent(finalPath);
    const QString extension = FilePath::pathExtension(name);
    const QString stem = FilePath::deletingPathExtension(name);
    return FilePath::appendingPathComponent(
        folder,
        stem + u'.' + QString::number(n) + (extension.isEmpty() ? QString() : u'.' + extension));
}

PartialFileTesting::Rename forcedRename = PartialFileTesting::Rename::noReplaceFlag;

// rename() that fails on a taken name. Some file systems don't know the flag:
// there a hard link fails on a taken name too, and where links don't exist (FAT)
// a test just before the rename is the best there is.
int renameNoReplace(const QByteArray& from, const QByteArray& to) {
    using PartialFileTesting::Rename;
    if (forcedRename == Rename::noReplaceFlag) {
        if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) ==
            0) {
            return 0;
        }
        if (errno != EINVAL && errno != ENOSYS) {
            return -1;
        }
    }
    if (forcedRename != Rename::testThenRename) {
        if (::link(from.constData(), to.constData()) == 0) {
            ::unlink(from.constData());
            return 0;
        }
        if (errno != EPERM && errno != EOPNOTSUPP) {
            return -1;
        }
    }
    struct stat taken {};
    if (::lstat(to.constData(), &taken) == 0) {
        errno = EEXIST;
        return -1;
    }
    return ::rename(from.constData(), to.constData());
}

void syncPath(const QString& path, int flags, bool dataOnly) {
    const int fd = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC);
    if (fd >= 0) {
        dataOnly ? ::fdatasync(fd) : ::fsync(fd);
        ::close(fd);
    }
}

} // namespace

QString pathFor(const QString& finalPath, int attempt) {
    const QString name = FilePath::lastPathComponent(finalPath);
    const QString extension = FilePath::pathExtension(name);
    QString stem = extension.isEmpty() ? name : name.chopped(extension.size() + 1);
    const QString tail = (extension.isEmpty() ? QString() : u'.' + extension) +
                         (attempt > 0 ? u'.' + QString::number(attempt) : QString()) + suffix;
    // A final name near the file system's limit keeps as much of itself as fits.
    while (!stem.isEmpty() && QFile::encodeName(u'.' + stem + tail).size() > nameMax) {
        stem.chop(1);
    }
    return FilePath::appendingPathComponent(FilePath::deletingLastPathComponent(finalPath),
                                            u'.' + stem + tail);
}

bool isPartial(const QString& path) {
    return FilePath::lastPathComponent(path).startsWith(u'.') && path.endsWith(suffix);
}

QString withoutSuffix(const QString& path) {
    return path.endsWith(suffix) ? path.chopped(suffix.size()) : path;
}

std::optional<QString> create(const QString& finalPath, QString* error) {
    // A final name that can never be given fails now, not after the whole run.
    if (QFile::encodeName(FilePath::lastPathComponent(finalPath)).size() > nameMax) {
        *error = errorText(ENAMETOOLONG);
        return std::nullopt;
    }
    for (int attempt = 0;; ++attempt) {
        const QString path = pathFor(finalPath, attempt);
        const int fd = ::open(QFile::encodeName(path).constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            return path;
        }
        if (errno != EEXIST) {
            *error = errorText(errno);
            return std::nullopt;
        }
    }
}

std::optional<QString> putInPlace(const QString& partial, const QString& finalPath,
                                  const QSet<QString>& reserved, QString* error) {
    const QByteArray from = QFile::encodeName(partial);
    for (int n = 0;; ++n) {
        const QString target = n == 0 ? finalPath : numbered(finalPath, n);
        if (n > 0 && reserved.contains(target)) {
            continue;
        }
        if (renameNoReplace(from, QFile::encodeName(target)) == 0) {
            return target;
        }
        if (errno != EEXIST) {
            *error = errorText(errno);
            return std::nullopt;
        }
    }
}

void syncData(const QString& path) {
    syncPath(path, O_RDONLY, true);
}

void syncFolder(const QString& folder) {
    syncPath(folder, O_RDONLY | O_DIRECTORY, false);
}

} // namespace PartialFile

void PartialFileTesting::forceRename(Rename method) {
    PartialFile::forcedRename = method;
}
