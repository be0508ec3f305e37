#pragma once

// The background task of the application: a coroutine that runs on the main
// thread's event loop between its suspensions, with a handle that can cancel it.
//
// Cancellation is cooperative. BackgroundTask::cancel() requests a stop on the
// task's std::stop_source; the task's body receives the matching std::stop_token
// as its last argument and hands it down to whatever it awaits. A wait that can be
// cancelled installs a std::stop_callback for exactly its own duration; the callback
// runs at once on the cancelling thread (or at registration, when the stop was
// already requested) and makes the awaited thing complete early. Nothing is ever
// stopped by force, and no coroutine frame is destroyed while it is suspended.
//
//     QCoro::Task<> watch(int id, std::stop_token stop);
//     Async::BackgroundTask task = Async::start(watch, 42);
//     task.cancel();                  // from any thread
//     co_await task.finished();       // on the main thread
//
// GCC 12 miscompiles a co_await inside a condition (`if (!co_await f())` resumes a
// dangling frame): bind the awaited result to a variable first, then test it.

#include <QObject>
#include <qcoro/qcorotask.h>

#include <atomic>
#include <coroutine>
#include <functional>
#include <memory>
#include <stop_token>
#include <vector>

namespace Async {

// A one-shot wake-up for one coroutine on the owner's thread. wake() may be called
// from any thread, any number of times; the first call counts. The waiter always
// resumes from the owner's event loop, never inside wake(), so a cancellation
// handler that wakes a wait never runs the rest of the waiting coroutine itself.
// A stop_callback that calls wake() must be destroyed before the Wakeup.
//
// This stands in for awaiting a Qt signal with qCoro(): QCoro 0.8 resumes such a
// wait through a queued call that dangles if the signal fires twice before it runs.
class Wakeup final : public QObject {
    Q_OBJECT
public:
    explicit Wakeup(QObject* parent = nullptr) : QObject(parent) {}

    void wake();

    // `co_await wakeup.wait()` returns at once when already woken.
    struct Awaiter {
        Wakeup& wakeup;
        bool await_ready() const noexcept { return wakeup.woken_; }
        void await_suspend(std::coroutine_handle<> waiter) noexcept { wakeup.waiter_ = waiter; }
        void await_resume() const noexcept {}
    };
    Awaiter wait() { return Awaiter{*this}; }

private:
    bool woken_ = false;
    std::coroutine_handle<> waiter_;
};

// Sleeps for `seconds` on the monotonic clock. Returns true when the time passed,
// false when `stop` was requested before or during the sleep.
QCoro::Task<bool> sleepFor(double seconds, std::stop_token stop);

// Resumes the caller from the next turn of the event loop.
QCoro::Task<> yieldToEventLoop();

// Runs `work` on a thread of its own and resumes the caller from the event loop once
// it has returned: for a blocking call (a flush to the disk) that must not stall the
// main thread. It can't be cancelled; whoever awaits it waits for it.
QCoro::Task<> runOffThread(std::function<void()> work);

namespace detail {
class FinishNotifier final : public QObject {
    Q_OBJECT
Q_SIGNALS:
    void finished();
};

struct TaskState {
    std::stop_source source;
    FinishNotifier notifier;
    bool finished = false;
    // Those awaiting finished(); each entry lives in its waiter's frame.
    std::vector<Wakeup*> waiters;
};

void noteStarted();
void noteFinished(TaskState& state);
void reportEscapedException(std::exception_ptr error);
} // namespace detail

// The handle of a started task. Copies share the task. An empty handle has no task:
// cancelling it does nothing and it counts as finished.
class BackgroundTask {
public:
    BackgroundTask() = default;

    // Requests the stop. Safe from any thread; the task's handlers run at once.
    void cancel() const;
    bool isCancelled() const;
    // Main thread only, as is everything below.
    bool isFinished() const;
    std::stop_token stopToken() const;
    // Completes when the task's body has returned or thrown.
    QCoro::Task<> finished() const;
    // Emitted once, on the main thread, when the body has ended.
    detail::FinishNotifier* notifier() const { return state_ ? &state_->notifier : nullptr; }

    // Started tasks whose bodies have not ended yet, in the whole process. Lets
    // tests show that nothing was left running.
    static int liveCount();

private:
    explicit BackgroundTask(std::shared_ptr<detail::TaskState> state) : state_(std::move(state)) {}
    std::shared_ptr<detail::TaskState> state_;

    template <typename Body, typename... Args> friend BackgroundTask start(Body body, Args... args);
};

namespace detail {
template <typename Body, typename... Args>
QCoro::Task<> runTask(std::shared_ptr<TaskState> state, Body body, Args... args) {
    // A started task begins on a later turn of the event loop, like any other
    // background task: its starter finishes its own work first.
    co_await yieldToEventLoop();
    try {
        co_await std::invoke(body, std::move(args)..., state->source.get_token());
    } catch (...) {
        reportEscapedException(std::current_exception());
    }
    noteFinished(*state);
}
} // namespace detail

// Starts `body(args..., stopToken)` as a background task bound to the main thread.
// `body` returns QCoro::Task<>; it and the arguments are copied into the task, so
// pass values, not references. A member function takes its object as first argument.
// An exception that escapes the body is logged; handle errors inside the body.
template <typename Body, typename... Args> BackgroundTask start(Body body, Args... args) {
    auto state = std::make_shared<detail::TaskState>();
    detail::noteStarted();
    // The returned coroutine owns itself: QCoro frees its frame when it ends.
    detail::runTask(state, std::move(body), std::move(args)...);
    return BackgroundTask(std::move(state));
}

} // namespace Async
