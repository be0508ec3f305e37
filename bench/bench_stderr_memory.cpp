// Runs a child that writes 100 MB to standard error through runProcess() and
// reports how much more heap the process held at most while the child wrote, than
// the same call holds for a child that writes nothing. The process buffer keeps a
// 32 KiB tail; one chunk is at most a pipe's capacity.

#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

size_t heapInUse() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

long maxResidentKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

int pipeCapacity() {
    int fds[2];
    if (pipe(fds) != 0) {
        return -1;
    }
    const int size = fcntl(fds[0], F_GETPIPE_SZ);
    close(fds[0]);
    close(fds[1]);
    return size;
}

struct Run {
    double peakKiB = 0;
    double seconds = 0;
    bool failed = false;
};

// Peak heap above the starting point, sampled until the child has written all.
// The child marks the end of its writing, so that what the call does after the
// child has ended (decoding the kept tail) stays out of the figure.
Run flood(long long bytes) {
    const QString written = QDir::temp().filePath(u"morvane-bench-written-%1"_s.arg(getpid()));
    QFile::remove(written);
    const QString script =
        u"head -c \"$2\" /dev/zero | tr '\\0' e >&2; touch \"$1\"; sleep 0.3; exit 0"_s;
    const size_t baseline = heapInUse();
    std::atomic<bool> running{true};
    std::atomic<size_t> peak{baseline};
    std::thread sampler([&] {
        while (running && !QFile::exists(written)) {
            const size_t now = heapInUse();
            if (now > peak) {
                peak = now;
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    Run run;
    const auto start = std::chrono::steady_clock::now();
    try {
        Async::waitFor(FFmpegService::runProcess(
            u"/bin/sh"_s, {u"-c"_s, script, u"sh"_s, written, QString::number(bytes)}, 300));
    } catch (const FFmpegError&) {
        run.failed = true;
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    running = false;
    sampler.join();
    QFile::remove(written);
    run.peakKiB = double(peak - baseline) / 1024.0;
    return run;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    flood(0); // warms up the allocator and Qt's process machinery
    const Run quiet = flood(0);
    const long residentBefore = maxResidentKiB();
    const Run loud = flood(100'000'000);
    if (quiet.failed || loud.failed) {
        std::fprintf(stderr, "a flood run failed\n");
        return 2;
    }
    const double heldKiB = loud.peakKiB - quiet.peakKiB;
    const double limitKiB = 32.0 + pipeCapacity() / 1024.0;
    std::printf("stderr_held_kib,%.1f\n", heldKiB);
    std::printf("stderr_call_overhead_kib,%.1f\n", quiet.peakKiB);
    std::printf("stderr_limit_kib,%.1f\n", limitKiB);
    std::printf("stderr_rss_growth_kib,%ld\n", maxResidentKiB() - residentBefore);
    std::printf("stderr_seconds,%.2f\n", loud.seconds);
    return heldKiB <= limitKiB ? 0 : 1;
}
