// Figures of the queue engine, printed as "name,value" lines:
// - the longest stall of the main thread's event loop during a batch of two remuxes
//   of a large file, with progress;
// - the time to append 10,000 files to a queue that holds 10,000, and the heap the
//   engine holds for 20,000 items;
// - what a run whose probe is cached adds, from Start to completed, to the bare
//   ffmpeg time of the same command (medians of alternating runs), and what the
//   probe of the output before Completed costs, on that small output and on a
//   large one;
// - the ffmpeg work of a large subtitled item, from the start of its first ffmpeg
//   child to the end of its last, beside one bare ffmpeg run that writes the same
//   files, with the page cache warm and, where it can be dropped, cold.

#include "BenchSupport.h"
#include "async/BackgroundTask.h"
#include "async/Blocking.h"
#include "engine/RemuxService.h"
#include "tools/Logging.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// One output check (the engine's probe of a finished output) and one bare ffprobe
// with the same arguments, each timed into its list.
void timeCheckAndBareProbe(const QString& output, std::vector<double>& check,
                           std::vector<double>& bare) {
    QElapsedTimer clock;
    clock.start();
    Async::waitFor(FFmpegService::probe(output));
    check.push_back(clock.nsecsElapsed() / 1e6);
    clock.start();
    Bench::runQuietly(FFmpegService::ffprobePath(), FFmpegService::probeArguments(output));
    bare.push_back(clock.nsecsElapsed() / 1e6);
}

// When the tool layer said it launched its first ffmpeg of an item and when it
// said the last one ended, read off its log lines.
struct ChildSpan {
    std::optional<std::chrono::steady_clock::time_point> first;
    std::chrono::steady_clock::time_point last;
};
ChildSpan childSpan;

void noteChildren(QtMsgType, const QMessageLogContext&, const QString& message) {
    const auto now = std::chrono::steady_clock::now();
    if (!childSpan.first &&
        (message.startsWith(u"Extracting"_s) || message.startsWith(u"Remux started"_s))) {
        childSpan.first = now;
    } else if (message.startsWith(u"Remux complete"_s)) {
        childSpan.last = now;
    }
}

// Empties the page cache, so that the next read comes from the disk; false where
// this process may not.
bool dropPageCache() {
    ::sync();
    std::ofstream control("/proc/sys/vm/drop_caches");
    control << "3" << std::endl;
    return bool(control);
}

// Drops one file's pages from the cache: a source read from the disk, while the
// programs that read it stay as warm as they are in use.
void evictFromCache(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY);
    if (fd >= 0) {
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
        ::close(fd);
    }
}

// Spins the event loop until the batch has ended.
void waitForBatchEnd(RemuxService& service) {
    while (service.isRemuxing()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
}

// Starts the batch and waits for its end, reading the tool layer's log meanwhile:
// gives how long the item's children took, the first launch to the last end, or -1
// when none ran.
double batchTimingChildren(RemuxService& service) {
    childSpan = {};
    QLoggingCategory& log = const_cast<QLoggingCategory&>(lcFFmpeg());
    const bool wasLogging = log.isInfoEnabled();
    log.setEnabled(QtInfoMsg, true);
    const QtMessageHandler previous = qInstallMessageHandler(noteChildren);
    service.startBatch();
    waitForBatchEnd(service);
    qInstallMessageHandler(previous);
    log.setEnabled(QtInfoMsg, wasLogging);
    return childSpan.first
               ? std::chrono::duration<double, std::milli>(childSpan.last - *childSpan.first)
                     .count()
               : -1;
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

void subtitledRemuxFigures(const QString& media, const QString& work) {
    RemuxService service;
    service.setCustomOutputDirectory(work);
    const QString output = work + u"/"_s + QFileInfo(media).completeBaseName() + u".mp4"_s;
    const MediaInfo info = Async::waitFor(FFmpegService::probe(media));
    QFile::remove(output);
    const QList<FFmpegService::SubtitleExtractionPlan> sidecars =
        FFmpegService::planSubtitleExtraction(media, info.subtitleStreams, work, {});
    const auto removeOutputs = [&] {
        QFile::remove(output);
        for (const FFmpegService::SubtitleExtractionPlan& sidecar : sidecars) {
            QFile::remove(sidecar.url);
        }
    };
    // How cold the source is: warm, evicted from the cache, or the whole cache
    // dropped. Either happens after the early probe, which reads the file's start.
    enum class Cache { warm, sourceEvicted, dropped };
    const auto chill = [&](Cache cache) {
        if (cache == Cache::sourceEvicted) {
            evictFromCache(media);
        } else if (cache == Cache::dropped) {
            dropPageCache();
        }
    };
    const auto timeItem = [&](Cache cache) {
        const QUuid id = addAndProbe(service, {media}).first();
        chill(cache);
        const double children = batchTimingChildren(service);
        if (service.item(id)->status != ProcessingStatus::completed || children < 0 ||
            service.item(id)->statusMessage) {
            std::fprintf(stderr, "subtitled item did not complete cleanly\n");
        }
        service.removeItem(id);
        removeOutputs();
        return children;
    };
    const QStringList oneRun = FFmpegService::remuxArguments(media, output, info, sidecars);
    const QStringList sidecarRun = FFmpegService::subtitleExtractionArguments(media, sidecars);
    const QStringList remuxRun = FFmpegService::remuxArguments(media, output, info);
    const auto timeBare = [&](const QList<QStringList>& runs, Cache cache = Cache::warm) {
        chill(cache);
        const double ms = Bench::millisecondsOf([&] {
            for (const QStringList& arguments : runs) {
                Bench::runQuietly(FFmpegService::ffmpegPath(), arguments);
            }
        });
        removeOutputs();
        return ms;
    };
    std::vector<double> item;
    std::vector<double> bare;
    std::vector<double> twoRuns;
    for (int run = 0; run < 7; ++run) {
        if (run % 2 == 0) {
            item.push_back(timeItem(Cache::warm));
            bare.push_back(timeBare({oneRun}));
        } else {
            bare.push_back(timeBare({oneRun}));
            item.push_back(timeItem(Cache::warm));
        }
        twoRuns.push_back(timeBare({sidecarRun, remuxRun}));
    }
    std::printf("subtitled_mib,%lld\n", (long long)(QFileInfo(media).size() >> 20));
    std::printf("subtitled_item_ms,%.1f\n", Bench::median(item));
    std::printf("subtitled_bare_ms,%.1f\n", Bench::median(bare));
    std::printf("subtitled_two_bare_runs_ms,%.1f\n", Bench::median(twoRuns));
    std::vector<double> evictedItem;
    std::vector<double> evictedBare;
    for (int run = 0; run < 5; ++run) {
        evictedItem.push_back(timeItem(Cache::sourceEvicted));
        evictedBare.push_back(timeBare({oneRun}, Cache::sourceEvicted));
    }
    std::printf("subtitled_evicted_item_ms,%.1f\n", Bench::median(evictedItem));
    std::printf("subtitled_evicted_bare_ms,%.1f\n", Bench::median(evictedBare));
    std::vector<double> coldItem;
    std::vector<double> coldBare;
    for (int run = 0; run < 5 && dropPageCache(); ++run) {
        coldItem.push_back(timeItem(Cache::dropped));
        coldBare.push_back(timeBare({oneRun}, Cache::dropped));
    }
    if (!coldItem.empty()) {
        std::printf("subtitled_cold_item_ms,%.1f\n", Bench::median(coldItem));
        std::printf("subtitled_cold_bare_ms,%.1f\n", Bench::median(coldBare));
    }
}

// A quarter-gigabyte item through the engine: its ffmpeg run into the partial file
// beside the bare ffmpeg into a new file, and from Start to its batch's end (the data
// synced, the name given, the folder synced) beside the bare ffmpeg followed by sync.
void syncedItemFigures(const QString& big, const QString& work) {
    RemuxService service;
    service.setPostsNotification(false);
    service.setCustomOutputDirectory(work);
    const QString output = work + u"/big_h264_aac.mp4"_s;
    const QUuid probed = addAndProbe(service, {big}).first();
    const QStringList arguments =
        FFmpegService::remuxArguments(big, output, *service.item(probed)->cachedMediaInfo);
    service.removeItem(probed);
    std::vector<double> runs, bareRuns, items, bareSynced;
    const auto timeItem = [&] {
        const QUuid id = addAndProbe(service, {big}).first();
        ::sync();
        QElapsedTimer clock;
        double ended = 0;
        const QMetaObject::Connection end =
            QObject::connect(&service, &RemuxService::isRemuxingChanged, [&](bool remuxing) {
                ended = remuxing ? 0 : clock.nsecsElapsed() / 1e6;
            });
        clock.start();
        const double children = batchTimingChildren(service);
        QObject::disconnect(end);
        if (service.item(id)->status != ProcessingStatus::completed || children < 0) {
            std::fprintf(stderr, "synced item did not complete\n");
        }
        items.push_back(ended);
        runs.push_back(children);
        service.removeItem(id);
        QFile::remove(output);
    };
    const auto timeBare = [&] {
        ::sync();
        QElapsedTimer clock;
        clock.start();
        Bench::runQuietly(FFmpegService::ffmpegPath(), arguments);
        bareRuns.push_back(clock.nsecsElapsed() / 1e6);
        ::sync();
        bareSynced.push_back(clock.nsecsElapsed() / 1e6);
        QFile::remove(output);
    };
    // Alternating which goes first, so that neither always meets the other's
    // leftovers (a freed quarter-gigabyte, a warm cache).
    for (int run = 0; run < 9; ++run) {
        if (run % 2 == 0) {
            timeItem();
            timeBare();
        } else {
            timeBare();
            timeItem();
        }
    }
    std::printf("partial_run_ms,%.1f\n", Bench::median(runs));
    std::printf("partial_bare_ms,%.1f\n", Bench::median(bareRuns));
    std::printf("synced_item_ms,%.1f\n", Bench::median(items));
    std::printf("synced_bare_ms,%.1f\n", Bench::median(bareSynced));
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
    if (argc < 5) {
        std::fprintf(stderr, "usage: bench_engine BIG_MKV SMALL_MKV WORK_DIR BIG_SUBTITLED_MKV\n");
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
    subtitledRemuxFigures(QFileInfo(QString::fromLocal8Bit(argv[4])).absoluteFilePath(), work);
    syncedItemFigures(big, work);
    scanFigures(work);
    return 0;
}
