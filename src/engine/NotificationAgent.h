#pragma once

// Tells the user, with one desktop notification, how a batch ended. Speaks to the
// freedesktop notification service on the session bus; a missing or failing
// service leaves a log line and nothing else.

#include "async/BackgroundTask.h"

#include <QObject>
#include <QString>
#include <qcoro/qcorotask.h>

#include <vector>

class NotificationAgent final : public QObject {
    Q_OBJECT
public:
    // One notification to show.
    struct Request {
        QString identifier;
        QString title;
        QString body;

        bool operator==(const Request&) const = default;
    };

    explicit NotificationAgent(QObject* parent = nullptr);
    // Cancels and waits out the posts still on their way.
    ~NotificationAgent() override;

    // Checks that the notification service answers; logs when it doesn't. The
    // desktop decides itself whether notifications are shown.
    QCoro::Task<> requestAuthorization(std::stop_token stop = {});
    // Posts "3 converted, 1 skipped, 2 failed" (zero counts left out), or nothing at
    // all when every count is zero. Returns at once; the post goes on in the background.
    void postBatchComplete(int converted, int skipped, int failed);
    QCoro::Task<> postRequest(Request request, std::stop_token stop = {});
    // Completes when every post handed over so far has reached the service (or failed).
    QCoro::Task<> finishPosting();

private:
    std::vector<Async::BackgroundTask> posts_;
};
