#pragma once

// The queue engine: the one object that holds the queue, runs it at most two files
// at a time, and lets the user step in. Confined to the main thread; views read it
// through the accessors and follow its change signals. Whatever runs elsewhere (the
// progress of a child) reaches it only through a call queued to the main thread.

#include "NotificationAgent.h"
#include "ProgressThrottle.h"
#include "RunJournal.h"
#include "async/BackgroundTask.h"
#include "model/RemuxItem.h"
#include "tools/FFmpegService.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class RemuxService final : public QObject {
    Q_OBJECT
public:
    static constexpr int maxConcurrent = 2;

    explicit RemuxService(QObject* parent = nullptr);
    // Cancels every task still under way and waits for their ends, so that none of
    // them outlives the engine.
    ~RemuxService() override;
    // What the destructor does, while the engine is still whole for whoever follows
    // its signals: a program that ends calls it before it lets the engine go.
    void shutDown();

    const QList<RemuxItem>& items() const { return items_; }
    bool isRemuxing() const { return isRemuxing_; }
    const std::optional<QString>& customOutputDirectory() const { return customOutputDirectory_; }
    void setCustomOutputDirectory(std::optional<QString> directory);
    const std::optional<QString>& dropFeedbackMessage() const { return dropFeedbackMessage_; }
    void setDropFeedbackMessage(std::optional<QString> message);
    // Ids of the items whose run holds a slot.
    QList<QUuid> activeTaskIds() const { return activeTasks_.keys(); }
    const QSet<QString>& inflightOutputs() const { return inflightOutputs_; }
    NotificationAgent& notifier() { return *notifier_; }
    // Whether the end of a batch posts the desktop notification; the window always
    // does, the command line only when asked.
    void setPostsNotification(bool posts) { postsNotification_ = posts; }

    // Queue state.
    QList<QUuid> appendItems(const QStringList& urls);

    // Intake: every way into the queue ends in addFiles(). Files and folders are
    // sorted, folders walked, new items probed at once, and what was left out shows
    // as the feedback text, which clears itself after feedbackDuration() seconds.
    void handleDrop(const QList<QUrl>& providers);
    void addFiles(const QStringList& urls, int unsupportedCount);
    static constexpr double defaultFeedbackDuration = 4.0;
    double feedbackDuration() const { return feedbackDuration_; }
    // Tests shorten the wait; the application keeps the default.
    void setFeedbackDuration(double seconds) { feedbackDuration_ = seconds; }
    std::optional<RemuxItem> item(const QUuid& id) const;

    // Batch scheduling.
    void startBatch();
    void launchItem(const QUuid& id);
    void scheduleNext();

    // Item pipeline.
    void probeItems(const QList<QUuid>& ids);
    QCoro::Task<> preflightItem(QUuid id, QString url, std::stop_token stop = {});
    QCoro::Task<MediaInfo> resolveMediaInfo(QUuid id, QString url,
                                            std::optional<MediaInfo> cachedInfo,
                                            std::stop_token stop = {});
    QCoro::Task<> processItem(QUuid id, QString url, std::optional<MediaInfo> cachedInfo,
                              std::stop_token stop = {});
    QString outputURL(const RemuxItem& item) const;
    void deleteCreatedOutputs(const QStringList& urls);
    void releaseClaims(const QStringList& urls);

    // Cancellation, retry and removal.
    void markCancelled(const QUuid& id);
    void cancelItem(const QUuid& id);
    void cancelAll();
    void resetForRetry(const QUuid& id);
    void retryItem(const QUuid& id);
    void retryFailed();
    void removeItem(const QUuid& id);
    void removeItems(const QSet<QUuid>& ids);
    void clearCompleted();
    void clearAll();

    // Progress forwarding: safe from any thread.
    void forwardProgress(double fraction, const QUuid& id, ProgressThrottle& throttle);
    void setProgress(double fraction, const QUuid& id);

Q_SIGNALS:
    // One item's fields changed; a view redraws that row.
    void itemChanged(const QUuid& id);
    // Around the appending of rows first..last at the end of the list.
    void itemsAboutToBeInserted(qsizetype first, qsizetype last);
    void itemsInserted(qsizetype first, qsizetype last);
    // Around the removal of the rows first..last.
    void itemsAboutToBeRemoved(qsizetype first, qsizetype last);
    void itemsRemoved(qsizetype first, qsizetype last);
    // Around a change of many rows at once: read the whole list again afterwards.
    void itemsAboutToBeReset();
    void itemsReset();
    void isRemuxingChanged(bool isRemuxing);
    void customOutputDirectoryChanged();
    void dropFeedbackMessageChanged();
    void activeTasksChanged();
    void inflightOutputsChanged();

private:
    struct ActiveRun {
        Async::BackgroundTask task;
        quint64 run = 0;
        // Its output checked, the run only puts its files in place: it holds no slot.
        bool finishing = false;
    };

    qsizetype indexOf(const QUuid& id) const;
    // Applies `change` to the item with `id`, if there is one, and tells the views
    // when it changed anything. A write to an item that is gone is left out.
    void updateItem(const QUuid& id, const std::function<void(RemuxItem&)>& change);
    void setIsRemuxing(bool value);
    void removeRows(qsizetype first, qsizetype last);
    void replaceItems(QList<RemuxItem> items);
    void own(Async::BackgroundTask task);
    // Runs that hold one of the maxConcurrent slots.
    qsizetype runningCount() const;
    // Gives up the slot of the run of `id` whose token is `stop`, and fills it.
    void releaseSlot(const QUuid& id, const std::stop_token& stop);
    // Creates the partial file of `finalPath` and notes it in the journal.
    std::optional<QString> claimPartial(const QString& finalPath, QString* error);

    QCoro::Task<> runItem(QUuid id, QString url, std::optional<MediaInfo> cachedInfo, quint64 run,
                          std::stop_token stop);
    QCoro::Task<> clearFeedbackLater(QString text, double seconds, std::stop_token stop);
    QCoro::Task<OutputCheck> checkWrittenOutput(MediaInfo source, QString output,
                                                QString remuxLines, std::stop_token stop);
    QCoro::Task<> probeAll(QList<std::pair<QUuid, QString>> pairs, std::stop_token stop);

    QList<RemuxItem> items_;
    bool isRemuxing_ = false;
    std::optional<QString> customOutputDirectory_;
    std::optional<QString> dropFeedbackMessage_;
    QHash<QUuid, ActiveRun> activeTasks_;
    QSet<QString> inflightOutputs_;
    std::unique_ptr<NotificationAgent> notifier_;
    RunJournal journal_;

    // Runs cancelled while their child still winds down, by item id. A new run of
    // the same item waits for them first (see runItem()).
    QMultiHash<QUuid, ActiveRun> windingDown_;
    // The duplicate key of each listed item, worked out once when it was added, so
    // an append doesn't resolve every listed path again.
    QHash<QUuid, QString> keyOf_;
    quint64 nextRun_ = 0;
    bool shuttingDown_ = false;
    double feedbackDuration_ = defaultFeedbackDuration;
    bool postsNotification_ = true;
    // Tasks nobody else holds (probe batches): kept so the destructor can end them.
    std::vector<Async::BackgroundTask> owned_;
};
