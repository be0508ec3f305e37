#pragma once

// What the benchmarks share: timing, the heap in use, and running a tool the way a
// terminal user would, with nothing of ours in between.

#include <QElapsedTimer>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <malloc.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace Bench {

inline double millisecondsOf(const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Bytes the allocator has handed out and not taken back, in every arena.
inline size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Runs `tool` with `arguments`, every standard stream on the null device, and
// waits for it.
inline void runQuietly(const QString& tool, const QStringList& arguments) {
    std::vector<std::string> args{tool.toStdString()};
    for (const QString& a : arguments) {
        args.push_back(a.toStdString());
    }
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    waitpid(pid, &status, 0);
}

// Measures how late a 5 ms timer fires on the main thread: the longest stall of
// the event loop while it runs.
class StallMeter {
public:
    StallMeter() {
        ticker_.setTimerType(Qt::PreciseTimer);
        ticker_.setInterval(5);
        QObject::connect(&ticker_, &QTimer::timeout, [this] {
            const qint64 now = clock_.nsecsElapsed();
            worst_ = std::max(worst_, now - last_ - 5'000'000);
            last_ = now;
        });
        clock_.start();
        ticker_.start();
    }
    double worstMilliseconds() const { return double(worst_) / 1e6; }

private:
    QElapsedTimer clock_;
    QTimer ticker_;
    qint64 last_ = 0;
    qint64 worst_ = 0;
};

} // namespace Bench
