// remux() beside the bare ffmpeg command with the same arguments, run side by
// side in alternating order, and the share of the run's CPU time that this process
// spends (reading standard error, parsing progress) beside ffmpeg's own.

#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>
#include <QFile>

#include <benchmark/benchmark.h>
#include <chrono>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace {

QString sourceFile;
QString outputDirectory;

// Runs ffmpeg with its standard error on the null device, as a terminal user who
// doesn't watch it would.
void runBare(const QStringList& arguments) {
    std::vector<std::string> args{FFmpegService::ffmpegPath().toStdString()};
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

double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double millisecondsOf(const auto& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
        .count();
}

void BM_RemuxVsBare(benchmark::State& state) {
    const MediaInfo info = Async::waitFor(FFmpegService::probe(sourceFile));
    const QString output = outputDirectory + QStringLiteral("/out.mp4");
    const QStringList arguments = FFmpegService::remuxArguments(sourceFile, output, info);
    double bareTotal = 0;
    double remuxTotal = 0;
    double ownCpu = 0;
    double childCpu = 0;
    bool bareFirst = state.iterations() % 2 == 0;
    for (auto _ : state) {
        const auto bare = [&] { runBare(arguments); };
        const auto remux = [&] {
            const double self = cpuSeconds(RUSAGE_SELF);
            const double children = cpuSeconds(RUSAGE_CHILDREN);
            Async::waitFor(FFmpegService::remux(sourceFile, output, info, [](double) {}));
            ownCpu += cpuSeconds(RUSAGE_SELF) - self;
            childCpu += cpuSeconds(RUSAGE_CHILDREN) - children;
        };
        if (bareFirst) {
            bareTotal += millisecondsOf(bare);
            QFile::remove(output);
            remuxTotal += millisecondsOf(remux);
        } else {
            remuxTotal += millisecondsOf(remux);
            QFile::remove(output);
            bareTotal += millisecondsOf(bare);
        }
        QFile::remove(output);
        bareFirst = !bareFirst;
    }
    const double n = double(state.iterations());
    state.counters["bare_ms"] = bareTotal / n;
    state.counters["remux_ms"] = remuxTotal / n;
    state.counters["ratio"] = remuxTotal / bareTotal;
    state.counters["own_cpu_share_pct"] = 100.0 * ownCpu / (ownCpu + childCpu);
}

BENCHMARK(BM_RemuxVsBare)->Iterations(2)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_remux [benchmark options] SOURCE OUTPUT_DIR\n");
        return 2;
    }
    sourceFile = QString::fromLocal8Bit(argv[1]);
    outputDirectory = QString::fromLocal8Bit(argv[2]);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
