// remux() beside the bare ffmpeg command with the same arguments, run side by
// side in alternating order, and the share of the run's CPU time that this process
// spends (reading standard error, parsing progress) beside ffmpeg's own.

#include "BenchSupport.h"
#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>
#include <QFile>

#include <benchmark/benchmark.h>
#include <chrono>
#include <sys/resource.h>

namespace {

QString sourceFile;
QString outputDirectory;

double cpuSeconds(int who) {
    rusage usage{};
    getrusage(who, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
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
        const auto bare = [&] { Bench::runQuietly(FFmpegService::ffmpegPath(), arguments); };
        const auto remux = [&] {
            const double self = cpuSeconds(RUSAGE_SELF);
            const double children = cpuSeconds(RUSAGE_CHILDREN);
            Async::waitFor(FFmpegService::remux(sourceFile, output, info, [](double) {}));
            ownCpu += cpuSeconds(RUSAGE_SELF) - self;
            childCpu += cpuSeconds(RUSAGE_CHILDREN) - children;
        };
        if (bareFirst) {
            bareTotal += Bench::millisecondsOf(bare);
            QFile::remove(output);
            remuxTotal += Bench::millisecondsOf(remux);
        } else {
            remuxTotal += Bench::millisecondsOf(remux);
            QFile::remove(output);
            bareTotal += Bench::millisecondsOf(bare);
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
