#include "NotificationAgent.h"

#include "async/Blocking.h"
#include "model/RemuxItem.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDBusPendingCallWatcher>
#include <QLoggingCategory>
#include <QStringList>
#include <QUuid>
#include <QVariantMap>

Q_LOGGING_CATEGORY(lcNotificationAgent, "com.morvane.NotificationAgent")

using namespace Qt::StringLiterals;

namespace {

const QString service = u"org.freedesktop.Notifications"_s;
const QString path = u"/org/freedesktop/Notifications"_s;

// Sends a call to the notification service and waits for its answer without
// blocking; gives the error's text, or nothing when the call succeeded or the wait
// was cancelled.
QCoro::Task<std::optional<QString>> callService(QDBusMessage call, std::stop_token stop) {
    QDBusPendingCallWatcher watcher(QDBusConnection::sessionBus().asyncCall(call));
    Async::Wakeup answered;
    QObject::connect(&watcher, &QDBusPendingCallWatcher::finished, &answered,
                     [&answered] { answered.wake(); });
    {
        const std::stop_callback onCancel(stop, [&answered] { answered.wake(); });
        if (!watcher.isFinished()) {
            co_await answered.wait();
        }
    }
    if (!watcher.isFinished()) {
        co_return std::nullopt;
    }
    if (watcher.isError()) {
        co_return watcher.error().message().isEmpty() ? watcher.error().name()
                                                      : watcher.error().message();
    }
    co_return std::nullopt;
}

} // namespace

NotificationAgent::NotificationAgent(QObject* parent) : QObject(parent) {}

NotificationAgent::~NotificationAgent() {
    for (const Async::BackgroundTask& post : posts_) {
        post.cancel();
    }
    for (const Async::BackgroundTask& post : posts_) {
        Async::waitFor(post.finished());
    }
}

QCoro::Task<> NotificationAgent::requestAuthorization(std::stop_token stop) {
    const std::optional<QString> error = co_await callService(
        QDBusMessage::createMethodCall(service, path, service, u"GetServerInformation"_s), stop);
    if (error) {
        qCCritical(lcNotificationAgent, "Notification permission error: %s",
                   qUtf8Printable(*error));
    }
}

void NotificationAgent::postBatchComplete(int converted, int skipped, int failed) {
    const QStringList parts = BatchTally{converted, skipped, failed}.parts();
    if (parts.isEmpty()) {
        return;
    }
    const Request request{QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(),
                          u"Morvane — Batch Complete"_s, parts.join(u", "_s)};
    std::erase_if(posts_, [](const Async::BackgroundTask& post) { return post.isFinished(); });
    posts_.push_back(Async::start(&NotificationAgent::postRequest, this, request));
}

QCoro::Task<> NotificationAgent::finishPosting() {
    const std::vector<Async::BackgroundTask> posts = posts_;
    for (const Async::BackgroundTask& post : posts) {
        co_await post.finished();
    }
}

QCoro::Task<> NotificationAgent::postRequest(Request request, std::stop_token stop) {
    if (stop.stop_requested()) {
        co_return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, service, u"Notify"_s);
    const QVariantMap hints{{u"sound-name"_s, u"message-new-instant"_s},
                            {u"desktop-entry"_s, u"morvane"_s},
                            {u"x-morvane-request"_s, request.identifier}};
    // replaces_id 0: a new notification every time, never one replacing another.
    call << u"Morvane"_s << 0u << u"morvane"_s << request.title << request.body << QStringList()
         << hints << -1;
    const std::optional<QString> error = co_await callService(call, stop);
    if (error) {
        qCCritical(lcNotificationAgent, "Failed to post batch-complete notification: %s",
                   qUtf8Printable(*error));
    }
}
