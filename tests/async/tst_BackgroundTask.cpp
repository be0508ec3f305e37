#include "async/BackgroundTask.h"
#include "async/TaskGroup.h"

#include <QElapsedTimer>
#include <QTest>

#include <thread>

namespace {
struct Seen {
    int running = 0, peak = 0, sleptFully = 0, cancelled = 0;
};

QCoro::Task<> child(double seconds, Seen* seen, std::stop_token stop) {
    seen->peak = std::max(seen->peak, ++seen->running);
    const bool sleptFully = co_await Async::sleepFor(seconds, stop);
    ++(sleptFully ? seen->sleptFully : seen->cancelled);
    --seen->running;
}

// Starts `count` children, never more than `limit` at once, then waits for all.
QCoro::Task<> boundedParent(int count, int limit, double seconds, Seen* seen,
                            std::stop_token stop) {
    Async::TaskGroup group(stop);
    for (int i = 0; i < count; ++i) {
        co_await group.waitUntilFewerThan(limit);
        group.start(child, seconds, seen);
    }
    co_await group.waitForAll();
}
} // namespace

class BackgroundTaskTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void groupRunsAtMostItsLimitAndEachSleepLastsItsTime() {
        Seen seen;
        QElapsedTimer clock;
        clock.start();
        const Async::BackgroundTask task = Async::start(boundedParent, 4, 2, 0.15, &seen);
        QTRY_VERIFY(task.isFinished());
        QVERIFY2(clock.elapsed() >= 300, qPrintable(QString::number(clock.elapsed())));
        QCOMPARE(seen.peak, 2);
        QCOMPARE(seen.sleptFully, 4);
    }

    void cancellingTheParentCancelsEveryChild() {
        Seen seen;
        const Async::BackgroundTask task = Async::start(boundedParent, 3, 10, 30.0, &seen);
        QTRY_COMPARE(seen.running, 3);
        std::thread([task] { task.cancel(); }).join();
        QTRY_VERIFY(task.isFinished());
        QCOMPARE(seen.cancelled, 3);
    }
};

QTEST_GUILESS_MAIN(BackgroundTaskTest)
#include "tst_BackgroundTask.moc"
