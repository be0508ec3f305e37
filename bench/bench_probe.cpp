// probe(url) beside a bare ffprobe run with the same eleven arguments: the
// difference is what the probe adds (launch through QProcess, JSON, parsing).

#include "BenchSupport.h"
#include "async/Blocking.h"
#include "tools/FFmpegService.h"

#include <QCoreApplication>

#include <benchmark/benchmark.h>
#include <chrono>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

std::string mediaFile;

// Spawns ffprobe with its output on a pipe, reads it all and reaps it.
void runBare(const std::string& tool) {
    const std::vector<std::string> args{tool,           "-v",
                                        "error",        "-print_format",
                                        "json",         "-show_streams",
                                        "-show_format", "-analyzeduration",
                                        "100M",         "-probesize",
                                        "100M",         mediaFile};
    std::vector<char*> argv;
    for (const std::string& a : args) {
        argv.push_back(const_cast<char*>(a.c_str()));
    }
    argv.push_back(nullptr);
    int out[2];
    if (pipe(out) != 0) {
        return;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    pid_t pid = 0;
    posix_spawn(&pid, tool.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    std::string json;
    char buffer[65536];
    for (ssize_t n; (n = read(out[0], buffer, sizeof buffer)) > 0;) {
        json.append(buffer, size_t(n));
    }
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    benchmark::DoNotOptimize(json);
}

// Each iteration runs both, in alternating order, so that drift in the machine's
// load falls on both alike; the counters are per-iteration averages.
void BM_ProbeVsBare(benchmark::State& state) {
    const std::string tool = FFmpegService::ffprobePath().toStdString();
    const QString file = QString::fromStdString(mediaFile);
    const auto bare = [&] { runBare(tool); };
    const auto probe = [&] {
        const MediaInfo info = Async::waitFor(FFmpegService::probe(file));
        benchmark::DoNotOptimize(info.duration);
    };
    double bareTotal = 0;
    double probeTotal = 0;
    bool bareFirst = true;
    for (auto _ : state) {
        if (bareFirst) {
            bareTotal += Bench::millisecondsOf(bare);
            probeTotal += Bench::millisecondsOf(probe);
        } else {
            probeTotal += Bench::millisecondsOf(probe);
            bareTotal += Bench::millisecondsOf(bare);
        }
        bareFirst = !bareFirst;
    }
    const double n = double(state.iterations());
    state.counters["bare_ms"] = bareTotal / n;
    state.counters["probe_ms"] = probeTotal / n;
    state.counters["added_ms"] = (probeTotal - bareTotal) / n;
}

BENCHMARK(BM_ProbeVsBare)->Iterations(4)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    if (argc < 2) {
        fprintf(stderr, "usage: bench_probe [benchmark options] MEDIA_FILE\n");
        return 2;
    }
    mediaFile = argv[1];
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
