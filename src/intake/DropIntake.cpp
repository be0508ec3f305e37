#include "DropIntake.h"

#include "model/FilePath.h"
#include "model/RemuxItem.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcDropIntake, "com.morvane.DropIntake")

using namespace Qt::StringLiterals;

namespace DropIntake {

namespace {
bool hasSupportedExtension(const QString& path) {
    return RemuxItem::supportedExtensions().contains(FilePath::pathExtension(path).toLower());
}
} // namespace

ResolvedDrop resolveURLs(const QList<QUrl>& providers) {
    ResolvedDrop drop;
    for (const QUrl& url : providers) {
        if (url.isLocalFile() && !url.toLocalFile().isEmpty()) {
            drop.urls.append(url.toLocalFile());
            continue;
        }
        qCCritical(lcDropIntake, "Failed to load URL from drop provider: %s",
                   qUtf8Printable(u"not a local file: "_s + url.toDisplayString()));
        ++drop.failed;
    }
    return drop;
}

Partition partitionURLs(const QStringList& urls) {
    Partition partition;
    for (const QString& url : urls) {
        const QFileInfo info(url);
        if (url.isEmpty() || !QDir::isAbsolutePath(url) || !info.exists()) {
            ++partition.rejects;
        } else if (info.isDir()) {
            partition.folders.append(url);
        } else if (hasSupportedExtension(url)) {
            partition.files.append(url);
        } else {
            ++partition.rejects;
        }
    }
    return partition;
}

void scanFolder(const QString& folder, QSet<QString>& visited, QStringList& into) {
    const QString resolved = QFileInfo(folder).canonicalFilePath();
    const QString key = resolved.isEmpty() ? QDir::cleanPath(folder) : resolved;
    if (visited.contains(key)) {
        return;
    }
    visited.insert(key);
    // An unreadable folder lists nothing, and the walk goes on with its parent.
    QDirIterator entries(folder,
                         QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (entries.hasNext()) {
        entries.next();
        const QFileInfo entry = entries.fileInfo();
        if (entry.isDir() && !entry.isSymLink()) {
            scanFolder(entry.filePath(), visited, into);
        } else if (hasSupportedExtension(entry.fileName())) {
            into.append(entry.filePath());
        }
    }
}

} // namespace DropIntake
