#pragma once

// Child background tasks that a parent starts and then waits for, all or some.
// Cancelling the group, or the parent's stop token given at construction, cancels
// every child, also those started afterwards. A group lives on the main thread, in
// the frame of the coroutine that owns it, and must outlive its waits.

#include "BackgroundTask.h"

#include <QObject>

#include <memory>
#include <optional>
#include <vector>

namespace Async {

class TaskGroup final : public QObject {
    Q_OBJECT
public:
    explicit TaskGroup(std::stop_token parent = {});
    ~TaskGroup() override;

    template <typename Body, typename... Args> void start(Body body, Args... args) {
        adopt(Async::start(std::move(body), std::move(args)...));
    }

    // Children that have not finished yet.
    int running() const;
    // Completes once fewer than `count` children are running.
    QCoro::Task<> waitUntilFewerThan(int count);
    QCoro::Task<> waitForAll() { return waitUntilFewerThan(1); }
    void cancelAll();

Q_SIGNALS:
    void childFinished();

private:
    void adopt(BackgroundTask child);

    using Link = std::stop_callback<std::function<void()>>;
    struct Child {
        BackgroundTask task;
        // Carries the group's cancellation to this child, from whichever thread cancels.
        std::unique_ptr<Link> link;
    };

    std::vector<Child> children_;
    std::vector<Wakeup*> waiters_;
    std::stop_source cancelled_;
    std::optional<Link> parentLink_;
};

} // namespace Async
