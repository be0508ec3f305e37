// Heap held by the tool layer's two runners while their child prints a lot:
// - runProcess() with a child writing 100 MB to standard error, beyond what the
//   same call holds for a quiet child: the process buffer keeps a 32 KiB tail and
//   one chunk is at most a pipe's capacity;
// - runFFmpegWithProgress() with a stand-in ffmpeg printing 50 MB of bytes that
//   aren't text and 50 MB of progress lines;
// - remux() of a real file, when one is given.

#include "BenchSupport.h"
#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

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

// Samples the heap from another thread until `stop` is set or `marker` exists, and
// keeps the highest figure above the starting point.
class HeapPeak {
public:
    explicit HeapPeak(QString marker = {})
        : marker_(std::move(marker)), baseline_(Bench::heapInUse()) {
        sampler_ = std::thread([this] {
            while (running_ && (marker_.isEmpty() || !QFile::exists(marker_))) {
                const size_t now = Bench::heapInUse();
                if (now > peak_) {
                    peak_ = now;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
    }
    double stopKiB() {
        running_ = false;
        sampler_.join();
        return double(peak_ > baseline_ ? peak_ - baseline_ : 0) / 1024.0;
    }

private:
    QString marker_;
    size_t baseline_;
    std::atomic<size_t> peak_{0};
    std::atomic<bool> running_{true};
    std::thread sampler_;
};

QString markerPath() {
    const QString path = QDir::temp().filePath(u"morvane-bench-written-%1"_s.arg(getpid()));
    QFile::remove(path);
    return path;
}

// The child marks the end of its writing, so that what the call does after the
// child has ended (decoding the kept tail) stays out of the figure.
double floodRunProcess(long long bytes, double* seconds = nullptr) {
    const QString written = markerPath();
    const QString script =
        u"head -c \"$2\" /dev/zero | tr '\\0' e >&2; touch \"$1\"; sleep 0.3; exit 0"_s;
    HeapPeak peak(written);
    const auto start = std::chrono::steady_clock::now();
    Async::waitFor(FFmpegService::runProcess(
        u"/bin/sh"_s, {u"-c"_s, script, u"sh"_s, written, QString::number(bytes)}, 300));
    if (seconds) {
        *seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    const double kib = peak.stopKiB();
    QFile::remove(written);
    return kib;
}

double floodProgressRun(const QString& fakeSupport, long long bytes) {
    const QString written = markerPath();
    const QString bin = fakeSupport + u"/ffmpeg/bin"_s;
    QDir().mkpath(bin);
    QFile tool(bin + u"/ffmpeg"_s);
    tool.open(QIODevice::WriteOnly | QIODevice::Truncate);
    tool.write(QStringLiteral("#!/bin/sh\nhead -c %1 /dev/urandom >&2\n"
                              "yes 'frame=1 time=00:00:01.00 speed=1x' | head -c %1 >&2\n"
                              "touch '%2'; sleep 0.3; exit 0\n")
                   .arg(bytes / 2)
                   .arg(written)
                   .toUtf8());
    tool.close();
    tool.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    FFmpegServiceTesting::setSharedSupportPath(fakeSupport);
    HeapPeak peak(written);
    Async::waitFor(FFmpegService::runFFmpegWithProgress({}, 10, [](double) {}));
    const double kib = peak.stopKiB();
    QFile::remove(written);
    return kib;
}

double remuxRun(const QString& source) {
    const MediaInfo info = Async::waitFor(FFmpegService::probe(source));
    const QString output = QDir::temp().filePath(u"morvane-bench-%1.mp4"_s.arg(getpid()));
    HeapPeak peak;
    Async::waitFor(FFmpegService::remux(source, output, info, [](double) {}));
    const double kib = peak.stopKiB();
    QFile::remove(output);
    return kib;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    floodRunProcess(0); // warms up the allocator and Qt's process machinery
    const double quiet = floodRunProcess(0);
    const long residentBefore = maxResidentKiB();
    double seconds = 0;
    const double loud = floodRunProcess(100'000'000, &seconds);
    const double heldKiB = loud - quiet;
    const double limitKiB = 32.0 + pipeCapacity() / 1024.0;
    std::printf("stderr_held_kib,%.1f\n", heldKiB);
    std::printf("stderr_call_overhead_kib,%.1f\n", quiet);
    std::printf("stderr_limit_kib,%.1f\n", limitKiB);
    std::printf("stderr_rss_growth_kib,%ld\n", maxResidentKiB() - residentBefore);
    std::printf("stderr_seconds,%.2f\n", seconds);

    if (argc > 1) {
        std::printf("remux_heap_kib,%.1f\n", remuxRun(QString::fromLocal8Bit(argv[1])));
    }
    const QString fake = QDir::temp().filePath(u"morvane-bench-fake-%1"_s.arg(getpid()));
    std::printf("progress_flood_heap_kib,%.1f\n", floodProgressRun(fake, 100'000'000));
    QDir(fake).removeRecursively();
    return heldKiB <= limitKiB ? 0 : 1;
}
