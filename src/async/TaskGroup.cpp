#include "TaskGroup.h"

#include <algorithm>

namespace Async {

TaskGroup::TaskGroup(std::stop_token parent) {
    parentLink_.emplace(parent, std::function<void()>([this] { cancelled_.request_stop(); }));
}

TaskGroup::~TaskGroup() {
    // Unlink first, so a late cancellation of the parent never reaches a dead group.
    parentLink_.reset();
    children_.clear();
}

void TaskGroup::adopt(BackgroundTask child) {
    std::erase_if(children_, [](const Child& c) { return c.task.isFinished(); });
    connect(child.notifier(), &detail::FinishNotifier::finished, this, [this] {
        for (Wakeup* waiter : waiters_) {
            waiter->wake();
        }
        Q_EMIT childFinished();
    });
    auto link = std::make_unique<Link>(cancelled_.get_token(),
                                       std::function<void()>([child] { child.cancel(); }));
    children_.push_back(Child{std::move(child), std::move(link)});
}

int TaskGroup::running() const {
    return int(std::count_if(children_.begin(), children_.end(),
                             [](const Child& c) { return !c.task.isFinished(); }));
}

QCoro::Task<> TaskGroup::waitUntilFewerThan(int count) {
    while (running() >= std::max(count, 1)) {
        Wakeup childEnded;
        waiters_.push_back(&childEnded);
        co_await childEnded.wait();
        std::erase(waiters_, &childEnded);
    }
}

void TaskGroup::cancelAll() {
    cancelled_.request_stop();
}

} // namespace Async
