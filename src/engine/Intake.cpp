// The way into the queue: a drop or an import becomes new items, their early
// probes start, and what was left out shows in the banner for a while.

#include "RemuxService.h"
#include "intake/DropIntake.h"

using namespace Qt::StringLiterals;

void RemuxService::handleDrop(const QList<QUrl>& providers) {
    const DropIntake::ResolvedDrop drop = DropIntake::resolveURLs(providers);
    if (!drop.urls.isEmpty() || drop.failed >= 1) {
        addFiles(drop.urls, drop.failed);
    }
}

void RemuxService::addFiles(const QStringList& urls, int unsupportedCount) {
    const DropIntake::Partition partition = DropIntake::partitionURLs(urls);
    QStringList files = partition.files;
    // Each folder gets a walk of its own: a file reachable from two folders given
    // together is found twice, and the duplicate test decides.
    for (const QString& folder : partition.folders) {
        QSet<QString> visited;
        QStringList found;
        DropIntake::scanFolder(folder, visited, found);
        files.append(found);
    }
    if (!files.isEmpty()) {
        probeItems(appendItems(files));
    }
    const int skipped = unsupportedCount + partition.rejects;
    if (skipped == 0) {
        return;
    }
    const QString text =
        u"%1 unsupported file%2 skipped"_s.arg(skipped).arg(skipped == 1 ? u""_s : u"s"_s);
    setDropFeedbackMessage(text);
    own(Async::start(&RemuxService::clearFeedbackLater, this, text, feedbackDuration_));
}

// Clears the banner unless the user dismissed it or another text replaced it. An
// interrupted wait goes straight to the test.
QCoro::Task<> RemuxService::clearFeedbackLater(QString text, double seconds, std::stop_token stop) {
    co_await Async::sleepFor(seconds, stop);
    if (dropFeedbackMessage_ == text) {
        setDropFeedbackMessage(std::nullopt);
    }
}
