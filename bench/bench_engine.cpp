// Figures of the queue engine, printed as "name,value" lines:
// - the longest stall of the main thread's event loop during a batch of two remuxes
//   of a large file, with progress;
// - the time to append 10,000 files to a queue that holds 10,000, and the heap the
//   engine holds for 20,000 items;
// - what a run whose probe is cached adds, from Start to completed, to the bare
//   ffmpeg time of the same command (medians of alternating runs), and what the
//   probe of the output before Completed costs, on that small output and on a
//   large one.

#include "BenchSupport.h"
#include "async/BackgroundTask.h"
#include "async/Blocking.h"
#include "engine/RemuxService.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// The early probe's arguments, which the output check uses too.
QStringList probeArguments(const QString& file) {
    return {u"-v"_s,   u"error"_s, u"-print_format"_s,   u"json"_s, u"-show_streams"_s,
            u"-show_format"_s, u"-analyzeduration"_s, u"100M"_s, u"-probesize"_s,   u"100M"_s,
            file};
}

// One output check (the engine's probe of a finished output) and one bare ffprobe
// with the same arguments, each timed into its list.
void timeCheckAndBareProbe(const QString& output, std::vector<double>& check,
                           std::vector<double>& bare) {
    QElapsedTimer clock;
    clock.start();
    Async::waitFor(FFmpegService::probe(output));
    check.push_back(clock.nsecsElapsed() / 1e6);
    clock.start();
    Bench::runQuietly(FFmpegService::ffprobePath(), probeArguments(output));
    bare.push_back(clock.nsecsElapsed() / 1e6);
}

// Spins the event loop until the batch has ended.
void waitForBatchEnd(RemuxService& service) {
    while (service.isRemuxing()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
}

QList<QUuid> addAndProbe(RemuxService& service, const QStringList& files) {
    const QList<QUuid> ids = service.appendItems(files);
    service.probeItems(ids);
    for (const QUuid& id : ids) {
        while (!service.item(id)->cachedMediaInfo) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        }
    }
    return ids;
}

double largestStallDuringBatch(const QString& big, const QString& work) {
    const QString second = work + u"/second.mkv"_s;
    QFile::remove(second);
    ::link(QFile::encodeName(big).constData(), QFile::encodeName(second).constData());
    RemuxService service;
    service.setCustomOutputDirectory(work);
    addAndProbe(service, {big, second});
    QFile::remove(work + u"/big_h264_aac.mp4"_s);
    QFile::remove(work + u"/second.mp4"_s);

    const Bench::StallMeter stalls;
    service.startBatch();
    waitForBatchEnd(service);
    const double worst = stalls.worstMilliseconds();
    for (const RemuxItem& item : service.items()) {
        if (item.status != ProcessingStatus::completed) {
            std::fprintf(stderr, "batch item did not complete: %s\n",
                         qPrintable(item.error.value_or(u"?"_s)));
        }
    }
    QFile::remove(work + u"/big_h264_aac.mp4"_s);
    QFile::remove(work + u"/second.mp4"_s);
    QFile::remove(second);
    return worst;
}

void appendFigures(const QString& work) {
    const QString dir = work + u"/many"_s;
    QDir().mkpath(dir);
    QStringList first;
    QStringList second;
    for (int i = 0; i < 20000; ++i) {
        const QString path = dir + u"/clip-%1.mkv"_s.arg(i, 5, 10, QLatin1Char('0'));
        QFile(path).open(QIODevice::WriteOnly);
        (i < 10000 ? first : second).append(path);
    }
    const size_t before = Bench::heapInUse();
    {
        RemuxService service;
        service.appendItems(first);
        QElapsedTimer clock;
        clock.start();
        service.appendItems(second);
        const double ms = clock.nsecsElapsed() / 1e6;
        std::printf("append_10k_to_10k_ms,%.1f\n", ms);
        std::printf("engine_heap_20k_items_mib,%.2f\n",
                    double(Bench::heapInUse() - before) / 1048576.0);
    }
    QDir(dir).removeRecursively();
}

void startToCompletedFigures(const QString& media, const QString& work) {
    RemuxService service;
    service.setCustomOutputDirectory(work);
    const QString output = work + u"/"_s + QFileInfo(media).completeBaseName() + u".mp4"_s;
    std::vector<double> engine;
    std::vector<double> bare;
    std::vector<double> check;
    std::vector<double> bareProbe;
    for (int run = 0; run < 11; ++run) {
        QFile::remove(output);
        const QUuid id = addAndProbe(service, {media}).first();
        const QStringList arguments =
            FFmpegService::remuxArguments(media, output, *service.item(id)->cachedMediaInfo);
        QElapsedTimer clock;
        const auto timeEngine = [&] {
            clock.start();
            service.startBatch();
            waitForBatchEnd(service);
            engine.push_back(clock.nsecsElapsed() / 1e6);
            QFile::remove(output);
        };
        // The output check of a run is this one probe of what the run wrote.
        const auto timeBare = [&] {
            clock.start();
            Bench::runQuietly(FFmpegService::ffmpegPath(), arguments);
            bare.push_back(clock.nsecsElapsed() / 1e6);
            timeCheckAndBareProbe(output, check, bareProbe);
            QFile::remove(output);
        };
        if (run % 2 == 0) {
            timeEngine();
            timeBare();
        } else {
            timeBare();
            timeEngine();
        }
        service.removeItem(id);
    }
    std::printf("start_to_completed_ms,%.2f\n", Bench::median(engine));
    std::printf("bare_ffmpeg_ms,%.2f\n", Bench::median(bare));
    std::printf("start_to_completed_added_ms,%.2f\n", Bench::median(engine) - Bench::median(bare));
    std::printf("output_check_ms,%.2f\n", Bench::median(check));
    std::printf("bare_ffprobe_ms,%.2f\n", Bench::median(bareProbe));
}

// The output check on a large output: one probe of its header, however big the file.
void outputCheckOfALargeFile(const QString& big, const QString& work) {
    const QString output = work + u"/large-check.mp4"_s;
    QFile::remove(output);
    Bench::runQuietly(FFmpegService::ffmpegPath(),
                      {u"-i"_s, big, u"-map"_s, u"0:v:0"_s, u"-map"_s, u"0:a:0"_s, u"-c"_s,
                       u"copy"_s, u"-y"_s, output});
    std::vector<double> check;
    std::vector<double> bare;
    for (int run = 0; run < 11; ++run) {
        timeCheckAndBareProbe(output, check, bare);
    }
    std::printf("large_output_check_ms,%.2f\n", Bench::median(check));
    std::printf("large_bare_ffprobe_ms,%.2f\n", Bench::median(bare));
    std::printf("large_output_mib,%lld\n", (long long)(QFileInfo(output).size() >> 20));
    QFile::remove(output);
}

// 100 folders of 1,000 entries each, a tenth of them videos; the rest are other
// files and a few subfolders. Adding the tree walks it on the main thread.
void scanFigures(const QString& work) {
    const QString root = work + u"/tree"_s;
    QDir(root).removeRecursively();
    for (int folder = 0; folder < 100; ++folder) {
        const QString dir = root + u"/folder-%1"_s.arg(folder);
        QDir().mkpath(dir + u"/sub"_s);
        for (int entry = 0; entry < 999; ++entry) {
            const bool video = entry % 10 == 0;
            QFile(dir + (video ? u"/clip-%1.mkv"_s : u"/note-%1.txt"_s).arg(entry))
                .open(QIODevice::WriteOnly);
        }
    }
    RemuxService service;
    QElapsedTimer clock;
    clock.start();
    service.addFiles({root}, 0);
    std::printf("scan_100k_entries_ms,%.1f\n", clock.nsecsElapsed() / 1e6);
    std::printf("scan_videos_added,%lld\n", (long long)service.items().size());
    service.cancelAll();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 4) {
        std::fprintf(stderr, "usage: bench_engine BIG_MKV SMALL_MKV WORK_DIR\n");
        return 2;
    }
    // The queue takes absolute paths only.
    const QString big = QFileInfo(QString::fromLocal8Bit(argv[1])).absoluteFilePath();
    const QString small = QFileInfo(QString::fromLocal8Bit(argv[2])).absoluteFilePath();
    const QString work = QFileInfo(QString::fromLocal8Bit(argv[3])).absoluteFilePath();
    QDir().mkpath(work);
    std::printf("main_thread_worst_stall_ms,%.2f\n", largestStallDuringBatch(big, work));
    appendFigures(work);
    startToCompletedFigures(small, work);
    outputCheckOfALargeFile(big, work);
    scanFigures(work);
    return 0;
}
