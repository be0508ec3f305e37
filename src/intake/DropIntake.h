#pragma once

// Turns what the desktop hands over into file paths for the queue: the URLs of a
// drop, a first sort into files, folders and rejects, and the walk of a folder for
// files with a supported extension. Holds no state.

#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace DropIntake {

struct ResolvedDrop {
    QStringList urls;
    // URLs of the drop that gave no local file path.
    int failed = 0;
};

struct Partition {
    QStringList files;
    QStringList folders;
    int rejects = 0;
};

// Each URL of a Qt drop is one provider; one that isn't a local file counts as a
// failed provider and is logged.
ResolvedDrop resolveURLs(const QList<QUrl>& providers);

// Sorts absolute local paths: not absolute or not existing (links followed) is a
// reject; a folder (or a link to one) goes to the folders; a supported extension to
// the files, as given; anything else is a reject. Input order is kept.
Partition partitionURLs(const QStringList& urls);

// Walks `folder` depth first and appends every entry with a supported extension to
// `into`, as listed. Hidden entries are walked too; nothing is sorted. A link found
// in a folder counts as a file by its own name. `visited` holds the resolved paths
// of the folders walked, so that a loop ends.
void scanFolder(const QString& folder, QSet<QString>& visited, QStringList& into);

} // namespace DropIntake
