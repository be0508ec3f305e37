#include "async/BackgroundTask.h"
#include "async/Blocking.h"
#include "async/TaskGroup.h"

#include <QElapsedTimer>
#include <QTest>

#include <atomic>
#include <thread>

using Async::BackgroundTask;

namespace {

struct SleepRecord {
    bool started = false;
    std::optional<bool> sleptFully;
    qint64 elapsedMs = -1;
};

QCoro::Task<> sleeper(double seconds, SleepRecord* record, std::stop_token stop) {
    record->started = true;
    QElapsedTimer clock;
    clock.start();
    record->sleptFully = co_await Async::sleepFor(seconds, stop);
    record->elapsedMs = clock.elapsed();
}

struct Concurrency {
    int running = 0;
    int peak = 0;
    QList<int> startOrder;
    int cancelledChildren = 0;
};

QCoro::Task<> child(int number, double seconds, Concurrency* seen, std::stop_token stop) {
    seen->startOrder.append(number);
    seen->peak = std::max(seen->peak, ++seen->running);
    const bool sleptFully = co_await Async::sleepFor(seconds, stop);
    if (!sleptFully) {
        ++seen->cancelledChildren;
    }
    --seen->running;
}

// Starts `count` children, never more than `limit` at once, then waits for all.
QCoro::Task<> boundedParent(int count, int limit, double seconds, Concurrency* seen,
                            std::stop_token stop) {
    Async::TaskGroup group(stop);
    for (int i = 0; i < count; ++i) {
        co_await group.waitUntilFewerThan(limit);
        group.start(child, i, seconds, seen);
    }
    co_await group.waitForAll();
}

QCoro::Task<int> answerLater() {
    co_await Async::yieldToEventLoop();
    co_return 42;
}

QCoro::Task<int> failLater() {
    co_await Async::yieldToEventLoop();
    throw std::runtime_error("late failure");
}

QCoro::Task<> thrower(std::stop_token) {
    co_await Async::yieldToEventLoop();
    throw std::runtime_error("escaped");
}

} // namespace

class BackgroundTaskTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() { QCOMPARE(BackgroundTask::liveCount(), 0); }
    void cleanup() { QTRY_COMPARE(BackgroundTask::liveCount(), 0); }

    void bodyStartsOnALaterTurnAndFinishes() {
        SleepRecord record;
        const BackgroundTask task = Async::start(sleeper, 0.01, &record);
        QVERIFY2(!record.started, "the body must not run inside start()");
        QVERIFY(!task.isFinished());
        QCoro::waitFor(task.finished());
        QVERIFY(task.isFinished());
        QCOMPARE(record.sleptFully, std::optional(true));
    }

    void sleepLastsItsTime() {
        SleepRecord record;
        QCoro::waitFor(Async::start(sleeper, 0.15, &record).finished());
        QCOMPARE(record.sleptFully, std::optional(true));
        QVERIFY2(record.elapsedMs >= 150, qPrintable(QString::number(record.elapsedMs)));
    }

    // clang-format off
    void cancelEndsASleepEarly_data() {
        QTest::addColumn<bool>("fromOtherThread");
        QTest::newRow("cancelled on the main thread") << false;
        QTest::newRow("cancelled from another thread") << true;
    }
    // clang-format on
    void cancelEndsASleepEarly() {
        QFETCH(bool, fromOtherThread);
        SleepRecord record;
        const BackgroundTask task = Async::start(sleeper, 30.0, &record);
        QTRY_VERIFY(record.started);
        if (fromOtherThread) {
            std::thread([task] { task.cancel(); }).join();
        } else {
            task.cancel();
        }
        QCoro::waitFor(task.finished());
        QCOMPARE(record.sleptFully, std::optional(false));
        QVERIFY2(record.elapsedMs < 2000, qPrintable(QString::number(record.elapsedMs)));
        QVERIFY(task.isCancelled());
    }

    void cancelledBeforeTheBodyRunsSkipsTheSleep() {
        SleepRecord record;
        const BackgroundTask task = Async::start(sleeper, 30.0, &record);
        task.cancel();
        QCoro::waitFor(task.finished());
        QVERIFY(record.started);
        QCOMPARE(record.sleptFully, std::optional(false));
    }

    void emptyHandleIsFinishedAndCancelIsHarmless() {
        const BackgroundTask none;
        none.cancel();
        QVERIFY(none.isFinished());
        QVERIFY(!none.isCancelled());
        QCoro::waitFor(none.finished());
    }

    void escapedExceptionEndsTheTaskWithoutHarm() {
        QTest::ignoreMessage(QtCriticalMsg,
                             "Background task ended with an uncaught exception: escaped");
        const BackgroundTask task = Async::start(thrower);
        QCoro::waitFor(task.finished());
        QVERIFY(task.isFinished());
    }

    void blockingWaitGivesTheResultOrRethrows() {
        QCOMPARE(Async::waitFor(answerLater()), 42);
        QVERIFY_THROWS_EXCEPTION(std::runtime_error, Async::waitFor(failLater()));
    }

    void groupRunsAtMostItsLimitInStartOrder() {
        Concurrency seen;
        QCoro::waitFor(Async::start(boundedParent, 10, 4, 0.02, &seen).finished());
        QCOMPARE(seen.startOrder, QList<int>({0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
        QCOMPARE(seen.peak, 4);
        QCOMPARE(seen.running, 0);
        QCOMPARE(seen.cancelledChildren, 0);
    }

    void cancellingTheParentCancelsEveryChild() {
        Concurrency seen;
        const BackgroundTask parent = Async::start(boundedParent, 3, 10, 30.0, &seen);
        QTRY_COMPARE(seen.running, 3);
        std::thread([parent] { parent.cancel(); }).join();
        QCoro::waitFor(parent.finished());
        QCOMPARE(seen.cancelledChildren, 3);
    }
};

QTEST_GUILESS_MAIN(BackgroundTaskTest)
#include "tst_BackgroundTask.moc"
