#include "BackgroundTask.h"

#include <QLoggingCategory>
#include <QTimer>

#include <chrono>
#include <climits>
#include <cmath>
#include <thread>
#include <utility>

Q_LOGGING_CATEGORY(lcAsync, "com.morvane.Async")

namespace Async {

namespace {
std::atomic<int> liveTasks{0};

std::chrono::milliseconds toTimerInterval(double seconds) {
    if (!(seconds > 0)) {
        return std::chrono::milliseconds(0);
    }
    // QTimer takes an int of milliseconds; longer sleeps are capped (about 24 days).
    const double ms = std::ceil(seconds * 1000.0);
    return std::chrono::milliseconds(ms >= double(INT_MAX) ? INT_MAX : qint64(ms));
}
} // namespace

void Wakeup::wake() {
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (woken_) {
                return;
            }
            woken_ = true;
            if (waiter_) {
                std::exchange(waiter_, nullptr).resume();
            }
        },
        Qt::QueuedConnection);
}

QCoro::Task<> yieldToEventLoop() {
    Wakeup next;
    next.wake();
    co_await next.wait();
}

QCoro::Task<> runOffThread(std::function<void()> work) {
    Wakeup done;
    std::thread worker([&done, work = std::move(work)] {
        work();
        done.wake();
    });
    co_await done.wait();
    worker.join();
}

QCoro::Task<bool> sleepFor(double seconds, std::stop_token stop) {
    if (stop.stop_requested()) {
        co_return false;
    }
    Wakeup wakeup;
    QTimer timer;
    timer.setSingleShot(true);
    // QTimer measures with the monotonic clock; a precise timer is not coarsened.
    timer.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer, &QTimer::timeout, &wakeup, &Wakeup::wake);
    timer.start(toTimerInterval(seconds));
    {
        std::stop_callback onCancel(stop, [&wakeup] { wakeup.wake(); });
        co_await wakeup.wait();
    }
    co_return !stop.stop_requested();
}

namespace detail {
void noteStarted() {
    ++liveTasks;
}

void noteFinished(TaskState& state) {
    state.finished = true;
    --liveTasks;
    for (Wakeup* waiter : state.waiters) {
        waiter->wake();
    }
    Q_EMIT state.notifier.finished();
}

void reportEscapedException(std::exception_ptr error) {
    try {
        std::rethrow_exception(error);
    } catch (const std::exception& e) {
        qCCritical(lcAsync, "Background task ended with an uncaught exception: %s", e.what());
    } catch (...) {
        qCCritical(lcAsync, "Background task ended with an uncaught exception");
    }
}
} // namespace detail

void BackgroundTask::cancel() const {
    if (state_) {
        state_->source.request_stop();
    }
}

bool BackgroundTask::isCancelled() const {
    return state_ && state_->source.stop_requested();
}

bool BackgroundTask::isFinished() const {
    return !state_ || state_->finished;
}

std::stop_token BackgroundTask::stopToken() const {
    return state_ ? state_->source.get_token() : std::stop_token();
}

QCoro::Task<> BackgroundTask::finished() const {
    // Held by value: the handle this was called on may be gone when the task ends.
    const std::shared_ptr<detail::TaskState> state = state_;
    if (state && !state->finished) {
        Wakeup ended;
        state->waiters.push_back(&ended);
        co_await ended.wait();
        std::erase(state->waiters, &ended);
    }
}

int BackgroundTask::liveCount() {
    return liveTasks.load();
}

} // namespace Async
