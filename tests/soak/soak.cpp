// A long batch with a user who won't leave it alone: copies of small real clips
// (some broken, some with subtitles) queued by the thousand, and random cancels,
// retries and removals while it runs. At the end nothing may be lost: sources
// byte-identical, no partial output or sidecar, no claim or task left, every item
// finished with a readable message. Prints its figures; exits 1 on any loss.
//
// Usage: morvane_soak [files] [seed]

#include "DiskLedger.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

#include <chrono>
#include <cstdio>

using namespace Qt::StringLiterals;

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int count = arguments.size() > 1 ? arguments.at(1).toInt() : 1000;
    const quint32 seed = arguments.size() > 2 ? arguments.at(2).toUInt() : 1;
    QRandomGenerator random(seed);
    FFmpegServiceTesting::setSharedSupportPath(app.applicationDirPath() + u"/../share/morvane"_s);

    // Clips of every kind a batch meets: plain remuxes, subtitles to write out, audio
    // to re-encode, a file that is already fine, and two that fail.
    const QStringList clips{u"h264_aac.mkv"_s, u"subtitles.mkv"_s, u"dts.mkv"_s,
                            u"hevc_aac.mkv"_s, u"h264_aac.mp4"_s,  u"truncated.mkv"_s,
                            u"not_video.mkv"_s};
    QTemporaryDir folder;
    QStringList urls;
    for (int i = 0; i < count; ++i) {
        const QString clip = clips.at(i % clips.size());
        urls << folder.filePath(
            u"soak %1 '%2"_s.arg(i, 4, 10, QChar(u'0')).arg(clip).replace(u'.', u"'."_s));
        if (!QFile::copy(QStringLiteral(MORVANE_TEST_MEDIA_DIR "/") + clip, urls.last())) {
            std::fprintf(stderr, "cannot copy %s\n", qUtf8Printable(clip));
            return 2;
        }
    }
    const auto started = std::chrono::steady_clock::now();
    const DiskLedger ledger(folder.path(), {folder.path()});
    int cancels = 0, retries = 0, removals = 0;
    QList<RemuxItem> removed;
    QStringList problems;
    {
        RemuxService service;
        service.setPostsNotification(false);
        QObject::connect(&service, &RemuxService::itemsAboutToBeRemoved,
                         [&](qsizetype first, qsizetype last) {
                             removed += service.items().mid(first, last - first + 1);
                         });
        service.addFiles(urls, 0);
        QTimer::singleShot(200, &service, [&] { service.startBatch(); });

        // The meddling user: every 15 ms, now and then, cancels a running item (and
        // half the time retries it at once, while its run still winds down), retries
        // a failed one, or removes any row; until every run has wound down.
        QTimer meddle;
        QObject::connect(&meddle, &QTimer::timeout, [&] {
            if (service.items().isEmpty() || !service.isRemuxing()) {
                if (Async::BackgroundTask::liveCount() == 0) {
                    app.quit();
                }
                return;
            }
            const int roll = int(random.bounded(100));
            const RemuxItem& item = service.items().at(random.bounded(service.items().size()));
            if (roll < 50 && item.status == ProcessingStatus::processing) {
                ++cancels;
                service.cancelItem(item.id);
                if (random.bounded(2) == 0) {
                    ++retries;
                    service.retryItem(item.id);
                }
            } else if (roll < 60 && item.status == ProcessingStatus::failed) {
                ++retries;
                service.retryItem(item.id);
            } else if (roll == 99) {
                ++removals;
                service.removeItem(item.id);
            }
        });
        QTimer::singleShot(400, &meddle, [&] { meddle.start(15); });
        app.exec();
        problems = ledger.problems(&service, removed);
    }
    if (Async::BackgroundTask::liveCount() != 0) {
        problems << u"tasks outlived the engine"_s;
    }
    for (const QString& problem : problems) {
        std::fprintf(stderr, "LOST: %s\n", qUtf8Printable(problem));
    }
    std::printf("files %d, seed %u, %.1f s; cancels %d, retries %d, removals %d, lost %lld\n",
                count, seed,
                std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count(),
                cancels, retries, removals, (long long)problems.size());
    return problems.isEmpty() ? 0 : 1;
}
