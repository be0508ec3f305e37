#include "RemuxService.h"

#include "Logging.h"
#include "async/Blocking.h"
#include "async/TaskGroup.h"

#include <QDir>
#include <QFileInfo>

Q_LOGGING_CATEGORY(lcRemuxService, "com.morvane.RemuxService")

using namespace Qt::StringLiterals;

namespace {

// Symbolic links resolved, the path standardised, then lower-cased: two spellings of
// one file give one key, on any file system.
QString duplicateKey(const QString& url) {
    const QString resolved = QFileInfo(url).canonicalFilePath();
    return (resolved.isEmpty() ? QDir::cleanPath(url) : resolved).toLower();
}

} // namespace

RemuxService::RemuxService(QObject* parent)
    : QObject(parent), notifier_(std::make_unique<NotificationAgent>()) {}

RemuxService::~RemuxService() {
    shutDown();
}

void RemuxService::shutDown() {
    // No tail may launch anything from here on.
    shuttingDown_ = true;
    // Their tails still call back into the engine, which is whole until here; a call
    // that arrives meanwhile may start one more task, so look again until none is left.
    for (;;) {
        std::vector<Async::BackgroundTask> pending;
        for (const Async::BackgroundTask& task : owned_) {
            pending.push_back(task);
        }
        for (const ActiveRun& run : activeTasks_) {
            pending.push_back(run.task);
        }
        for (const ActiveRun& run : windingDown_) {
            pending.push_back(run.task);
        }
        std::erase_if(pending, [](const Async::BackgroundTask& t) { return t.isFinished(); });
        if (pending.empty()) {
            break;
        }
        for (const Async::BackgroundTask& task : pending) {
            task.cancel();
        }
        for (const Async::BackgroundTask& task : pending) {
            Async::waitFor(task.finished());
        }
    }
}

void RemuxService::setCustomOutputDirectory(std::optional<QString> directory) {
    if (directory != customOutputDirectory_) {
        customOutputDirectory_ = std::move(directory);
        Q_EMIT customOutputDirectoryChanged();
    }
}

void RemuxService::setDropFeedbackMessage(std::optional<QString> message) {
    if (message != dropFeedbackMessage_) {
        dropFeedbackMessage_ = std::move(message);
        Q_EMIT dropFeedbackMessageChanged();
    }
}

void RemuxService::setIsRemuxing(bool value) {
    if (value != isRemuxing_) {
        isRemuxing_ = value;
        Q_EMIT isRemuxingChanged(value);
    }
}

qsizetype RemuxService::indexOf(const QUuid& id) const {
    for (qsizetype i = 0; i < items_.size(); ++i) {
        if (items_.at(i).id == id) {
            return i;
        }
    }
    return -1;
}

void RemuxService::updateItem(const QUuid& id, const std::function<void(RemuxItem&)>& change) {
    const qsizetype index = indexOf(id);
    if (index < 0) {
        return;
    }
    RemuxItem updated = items_.at(index);
    change(updated);
    if (!(updated == items_.at(index))) {
        items_[index] = std::move(updated);
        Q_EMIT itemChanged(id);
    }
}

std::optional<RemuxItem> RemuxService::item(const QUuid& id) const {
    const qsizetype index = indexOf(id);
    return index < 0 ? std::nullopt : std::optional(items_.at(index));
}

QList<QUuid> RemuxService::appendItems(const QStringList& urls) {
    QSet<QString> listed;
    listed.reserve(keyOf_.size());
    for (const QString& key : std::as_const(keyOf_)) {
        listed.insert(key);
    }
    // The set is not extended during the pass: the same file twice in one call
    // gives two items.
    QList<QUuid> ids;
    QList<RemuxItem> added;
    for (const QString& url : urls) {
        const QString key = duplicateKey(url);
        if (listed.contains(key)) {
            continue;
        }
        RemuxItem item(url);
        keyOf_.insert(item.id, key);
        ids.append(item.id);
        added.append(std::move(item));
    }
    if (!added.isEmpty()) {
        const qsizetype first = items_.size();
        Q_EMIT itemsAboutToBeInserted(first, first + added.size() - 1);
        items_.append(added);
        Q_EMIT itemsInserted(first, items_.size() - 1);
    }
    return ids;
}

void RemuxService::removeRows(qsizetype first, qsizetype last) {
    Q_EMIT itemsAboutToBeRemoved(first, last);
    for (qsizetype i = first; i <= last; ++i) {
        keyOf_.remove(items_.at(i).id);
    }
    items_.remove(first, last - first + 1);
    Q_EMIT itemsRemoved(first, last);
}

void RemuxService::replaceItems(QList<RemuxItem> items) {
    if (items == items_) {
        return;
    }
    QHash<QUuid, QString> keys;
    for (const RemuxItem& item : items) {
        keys.insert(item.id, keyOf_.value(item.id));
    }
    Q_EMIT itemsAboutToBeReset();
    keyOf_ = std::move(keys);
    items_ = std::move(items);
    Q_EMIT itemsReset();
}

qsizetype RemuxService::runningCount() const {
    return std::count_if(activeTasks_.begin(), activeTasks_.end(),
                         [](const ActiveRun& run) { return !run.finishing; });
}

void RemuxService::releaseSlot(const QUuid& id, const std::stop_token& stop) {
    const auto entry = activeTasks_.find(id);
    if (entry == activeTasks_.end() || entry->finishing || entry->task.stopToken() != stop) {
        return;
    }
    entry->finishing = true;
    Q_EMIT activeTasksChanged();
    scheduleNext();
}

void RemuxService::own(Async::BackgroundTask task) {
    if (shuttingDown_) {
        task.cancel(); // started by a call that came in while the engine winds down
    }
    std::erase_if(owned_, [](const Async::BackgroundTask& t) { return t.isFinished(); });
    owned_.push_back(std::move(task));
}

// Batch scheduling ------------------------------------------------------------

void RemuxService::startBatch() {
    if (items_.isEmpty()) {
        return;
    }
    setIsRemuxing(true);
    QList<QUuid> pending;
    for (const RemuxItem& item : std::as_const(items_)) {
        if (item.status == ProcessingStatus::pending) {
            pending.append(item.id);
        }
    }
    if (pending.isEmpty()) {
        setIsRemuxing(false);
        return;
    }
    for (qsizetype i = 0; i < std::min<qsizetype>(pending.size(), maxConcurrent); ++i) {
        launchItem(pending.at(i));
    }
}

void RemuxService::launchItem(const QUuid& id) {
    const std::optional<RemuxItem> found = item(id);
    if (!found || shuttingDown_) {
        return;
    }
    updateItem(id, [](RemuxItem& item) { item.status = ProcessingStatus::processing; });
    const quint64 run = ++nextRun_;
    // The task's body begins after the present main-thread work, so the entry
    // below always stands before the run's first step.
    activeTasks_.insert(id, ActiveRun{Async::start(&RemuxService::runItem, this, id, found->url,
                                                   found->cachedMediaInfo, run),
                                      run});
    Q_EMIT activeTasksChanged();
}

// One item task: the run, then the tail. Each launch has its own run number, so
// that two runs of one item (a retry launched while a cancelled run still winds
// down) are told apart: a tail removes only its own entry. The new run first waits
// for the old one to end, so it never meets the old run's claim or partial file.
QCoro::Task<> RemuxService::runItem(QUuid id, QString url, std::optional<MediaInfo> cachedInfo,
                                    quint64 run, std::stop_token stop) {
    for (const ActiveRun& previous : windingDown_.values(id)) {
        // Only the runs launched before this one: two runs that waited for each
        // other would never end, and the later one would hold its slot for good.
        if (previous.run < run) {
            co_await previous.task.finished();
        }
    }
    // A run cancelled before it began has nothing to undo: whoever cancelled it has
    // set the item, and starting its child now would only make the user wait for a
    // whole remux that is then thrown away (a quit would hang on it).
    if (!stop.stop_requested()) {
        co_await processItem(id, url, cachedInfo, stop);
    }

    if (activeTasks_.contains(id) && activeTasks_.value(id).run == run) {
        activeTasks_.remove(id);
        Q_EMIT activeTasksChanged();
    }
    for (auto it = windingDown_.find(id); it != windingDown_.end() && it.key() == id;) {
        it = it->run == run ? windingDown_.erase(it) : std::next(it);
    }
    scheduleNext();
}

void RemuxService::scheduleNext() {
    if (runningCount() < maxConcurrent) {
        for (const RemuxItem& item : std::as_const(items_)) {
            if (item.status == ProcessingStatus::pending) {
                launchItem(item.id);
                break;
            }
        }
    }
    if (!activeTasks_.isEmpty()) {
        return;
    }
    const bool anyPending = std::any_of(items_.begin(), items_.end(), [](const RemuxItem& item) {
        return item.status == ProcessingStatus::pending;
    });
    if (anyPending) {
        return;
    }
    // A batch that a cancellation ended posts nothing.
    if (!isRemuxing_) {
        return;
    }
    setIsRemuxing(false);
    if (postsNotification_) {
        const BatchTally counts = tally(items_);
        notifier_->postBatchComplete(counts.converted, counts.skipped, counts.failed);
    }
}

// Cancellation, retry and removal ----------------------------------------------

void RemuxService::markCancelled(const QUuid& id) {
    updateItem(id, [](RemuxItem& item) {
        if (item.status != ProcessingStatus::processing) {
            return;
        }
        item.status = ProcessingStatus::failed;
        item.progress = 0;
        item.error = u"Cancelled"_s;
        item.errorDetails.reset();
        item.statusMessage.reset();
    });
}

void RemuxService::cancelItem(const QUuid& id) {
    if (activeTasks_.contains(id)) {
        // The slot is free at once; the run cleans up when its child has gone, and
        // its tail then launches the next item, so the two never overlap.
        const ActiveRun run = activeTasks_.take(id);
        run.task.cancel();
        windingDown_.insert(id, run);
        Q_EMIT activeTasksChanged();
        markCancelled(id);
    } else {
        const std::optional<RemuxItem> found = item(id);
        if (!found || found->status != ProcessingStatus::pending) {
            return;
        }
        updateItem(id, [](RemuxItem& item) {
            item.status = ProcessingStatus::failed;
            item.error = u"Cancelled"_s;
        });
    }
    const bool anyPending = std::any_of(items_.begin(), items_.end(), [](const RemuxItem& item) {
        return item.status == ProcessingStatus::pending;
    });
    if (isRemuxing_ && activeTasks_.isEmpty() && !anyPending) {
        setIsRemuxing(false);
    }
}

void RemuxService::cancelAll() {
    const QHash<QUuid, ActiveRun> running = std::exchange(activeTasks_, {});
    for (auto it = running.begin(); it != running.end(); ++it) {
        it->task.cancel();
        windingDown_.insert(it.key(), *it);
        markCancelled(it.key());
    }
    if (!running.isEmpty()) {
        Q_EMIT activeTasksChanged();
    }
    for (const RemuxItem& item : QList<RemuxItem>(items_)) {
        if (item.status == ProcessingStatus::pending) {
            updateItem(item.id, [](RemuxItem& i) {
                i.status = ProcessingStatus::failed;
                i.error = u"Cancelled"_s;
            });
        }
    }
    setIsRemuxing(false);
}

void RemuxService::resetForRetry(const QUuid& id) {
    updateItem(id, [](RemuxItem& item) {
        item.status = ProcessingStatus::pending;
        item.progress = 0;
        item.error.reset();
        item.errorDetails.reset();
        item.statusMessage.reset();
        item.cachedMediaInfo.reset();
    });
}

void RemuxService::retryItem(const QUuid& id) {
    const std::optional<RemuxItem> found = item(id);
    if (!found || found->status != ProcessingStatus::failed) {
        return;
    }
    resetForRetry(id);
    if (isRemuxing_ && runningCount() < maxConcurrent) {
        launchItem(id);
        return;
    }
    if (isRemuxing_) {
        return;
    }
    startBatch();
}

void RemuxService::retryFailed() {
    QList<QUuid> failed;
    for (const RemuxItem& item : std::as_const(items_)) {
        if (item.status == ProcessingStatus::failed) {
            failed.append(item.id);
        }
    }
    for (const QUuid& id : failed) {
        resetForRetry(id);
    }
    if (!isRemuxing_) {
        startBatch();
        return;
    }
    for (const QUuid& id : failed) {
        if (runningCount() >= maxConcurrent) {
            continue;
        }
        const std::optional<RemuxItem> found = item(id);
        if (found && found->status == ProcessingStatus::pending) {
            launchItem(id);
        }
    }
}

void RemuxService::removeItem(const QUuid& id) {
    const std::optional<RemuxItem> found = item(id);
    if (!found) {
        return;
    }
    if (found->status == ProcessingStatus::processing) {
        cancelItem(id);
    }
    const qsizetype index = indexOf(id);
    removeRows(index, index);
}

void RemuxService::removeItems(const QSet<QUuid>& ids) {
    for (const QUuid& id : ids) {
        removeItem(id);
    }
}

void RemuxService::clearCompleted() {
    QList<RemuxItem> kept;
    for (const RemuxItem& item : std::as_const(items_)) {
        if (item.status != ProcessingStatus::completed &&
            item.status != ProcessingStatus::skipped) {
            kept.append(item);
        }
    }
    replaceItems(std::move(kept));
}

void RemuxService::clearAll() {
    cancelAll();
    replaceItems({});
}

// Progress forwarding ------------------------------------------------------------

void RemuxService::forwardProgress(double fraction, const QUuid& id, ProgressThrottle& throttle) {
    if (!throttle.admit()) {
        return;
    }
    // Each update is its own call on the main thread; one may arrive after its run.
    QMetaObject::invokeMethod(
        this, [this, fraction, id] { setProgress(fraction, id); }, Qt::QueuedConnection);
}

void RemuxService::setProgress(double fraction, const QUuid& id) {
    updateItem(id, [fraction](RemuxItem& item) { item.progress = fraction; });
}
