// A long batch with a user who won't leave it alone: copies of small real clips
// (some broken, some with subtitles) queued by the thousand, and random cancels,
// retries and removals while it runs. At the end nothing may be lost: sources
// byte-identical, no partial output or sidecar, no claim or task left, every item
// finished with a readable message. Prints its figures; exits 1 on any loss.
//
// Usage: morvane_soak [files] [seed]

#include "engine/RemuxService.h"
#include "model/FilePath.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// Clips of every kind a batch meets: plain remuxes, subtitles to write out, audio
// to re-encode, a file that is already fine, and two that fail.
const QStringList clips{u"h264_aac.mkv"_s, u"subtitles.mkv"_s, u"dts.mkv"_s,      u"hevc_aac.mkv"_s,
                        u"h264_aac.mp4"_s, u"truncated.mkv"_s, u"not_video.mkv"_s};

QByteArray digest(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    QCryptographicHash hash(QCryptographicHash::Sha256);
    hash.addData(&file);
    return hash.result();
}

struct Figures {
    int cancels = 0, retries = 0, removals = 0, lost = 0, filesChecked = 0;
};

void lose(Figures& figures, const QString& what) {
    ++figures.lost;
    std::fprintf(stderr, "LOST: %s\n", qUtf8Printable(what));
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    const int count = arguments.size() > 1 ? arguments.at(1).toInt() : 1000;
    const quint32 seed = arguments.size() > 2 ? arguments.at(2).toUInt() : 1;
    QRandomGenerator random(seed);
    FFmpegServiceTesting::setSharedSupportPath(app.applicationDirPath() + u"/../share/morvane"_s);

    QTemporaryDir folder;
    QHash<QString, QByteArray> sources;
    QHash<QString, QByteArray> clipDigest;
    QStringList urls;
    for (int i = 0; i < count; ++i) {
        const QString clip = clips.at(i % clips.size());
        const QString url = folder.filePath(u"soak %1 '%2'.%3"_s.arg(i, 4, 10, QChar(u'0'))
                                                .arg(FilePath::deletingPathExtension(clip))
                                                .arg(FilePath::pathExtension(clip)));
        const QString from = QStringLiteral(MORVANE_TEST_MEDIA_DIR "/") + clip;
        if (!QFile::copy(from, url)) {
            std::fprintf(stderr, "cannot copy %s\n", qUtf8Printable(from));
            return 2;
        }
        if (!clipDigest.contains(clip)) {
            clipDigest.insert(clip, digest(from));
        }
        sources.insert(url, clipDigest.value(clip));
        urls.append(url);
    }

    QElapsedTimer elapsed;
    elapsed.start();
    Figures figures;
    // What each item was when it left the list, by source; those still listed are
    // read at the end.
    QHash<QString, RemuxItem> finalItems;
    // Sources whose row was removed before it finished: nothing of theirs may stay.
    QSet<QString> removedUnfinished;
    {
        RemuxService service;
        service.setPostsNotification(false);
        QObject::connect(&service, &RemuxService::itemsAboutToBeRemoved,
                         [&](qsizetype first, qsizetype last) {
                             for (qsizetype row = first; row <= last; ++row) {
                                 const RemuxItem& item = service.items().at(row);
                                 finalItems.insert(item.url, item);
                                 if (item.status == ProcessingStatus::pending ||
                                     item.status == ProcessingStatus::processing) {
                                     removedUnfinished.insert(item.url);
                                 }
                             }
                         });
        service.addFiles(urls, 0);
        QTimer::singleShot(200, &service, [&] { service.startBatch(); });

        // The meddling user: every 15 ms, now and then, cancels a running item (and
        // half the time retries it at once, while its run still winds down), retries
        // a failed one, or removes any row; until the batch has ended and every run
        // has wound down.
        const auto pick = [&](auto&& wanted) -> std::optional<QUuid> {
            QList<QUuid> ids;
            for (const RemuxItem& item : service.items()) {
                if (wanted(item)) {
                    ids.append(item.id);
                }
            }
            return ids.isEmpty() ? std::nullopt : std::optional(ids.at(random.bounded(ids.size())));
        };
        QTimer meddle;
        meddle.setInterval(15);
        QObject::connect(&meddle, &QTimer::timeout, [&] {
            if (service.items().isEmpty() || !service.isRemuxing()) {
                // Cancelled runs may still wind down after the batch has ended.
                if (Async::BackgroundTask::liveCount() == 0) {
                    meddle.stop();
                    app.quit();
                }
                return;
            }
            const int roll = random.bounded(100);
            if (roll < 3) {
                if (const auto id = pick([](const RemuxItem& item) {
                        return item.status == ProcessingStatus::processing;
                    })) {
                    ++figures.cancels;
                    service.cancelItem(*id);
                    if (random.bounded(2) == 0) {
                        ++figures.retries;
                        service.retryItem(*id);
                    }
                }
            } else if (roll < 6) {
                if (const auto id = pick([](const RemuxItem& item) {
                        return item.status == ProcessingStatus::failed;
                    })) {
                    ++figures.retries;
                    service.retryItem(*id);
                }
            } else if (roll < 7) {
                if (const auto id = pick([](const RemuxItem&) { return true; })) {
                    ++figures.removals;
                    service.removeItem(*id);
                }
            }
        });
        QTimer::singleShot(400, &meddle, qOverload<>(&QTimer::start));
        app.exec();

        if (!service.inflightOutputs().isEmpty() || !service.activeTaskIds().isEmpty()) {
            lose(figures, u"claims or tasks left after the batch"_s);
        }
        for (const RemuxItem& item : service.items()) {
            finalItems.insert(item.url, item);
        }
    }
    if (Async::BackgroundTask::liveCount() != 0) {
        lose(figures, u"tasks outlived the engine"_s);
    }

    // Every file in the folder is a source (unchanged), or an output or sidecar of
    // an item that completed.
    QHash<QString, ProcessingStatus> statusOf;
    QSet<QString> outputs;
    for (const RemuxItem& item : std::as_const(finalItems)) {
        statusOf.insert(item.url, item.status);
        const bool unfinished =
            item.status == ProcessingStatus::pending || item.status == ProcessingStatus::processing;
        if (unfinished && !removedUnfinished.contains(item.url)) {
            lose(figures, item.url + u" never finished"_s);
        }
        if (item.status == ProcessingStatus::failed &&
            item.error.value_or(QString()).trimmed().isEmpty()) {
            lose(figures, item.url + u" failed without a message"_s);
        }
        if (item.status == ProcessingStatus::completed && item.outputURL) {
            outputs.insert(*item.outputURL);
        }
    }
    const QFileInfoList entries = QDir(folder.path()).entryInfoList(QDir::Files | QDir::Hidden);
    for (const QFileInfo& entry : entries) {
        ++figures.filesChecked;
        const QString path = entry.absoluteFilePath();
        if (sources.contains(path)) {
            if (digest(path) != sources.value(path)) {
                lose(figures, path + u" changed"_s);
            }
        } else if (path.endsWith(u".srt"_s)) {
            // "soak 0001 'subtitles'.eng.srt" belongs to "soak 0001 'subtitles'.mkv".
            const QString stem = path.section(u'\'', 0, 1) + u'\'';
            const auto owner =
                std::find_if(sources.keyBegin(), sources.keyEnd(),
                             [&](const QString& url) { return url.startsWith(stem); });
            if (owner == sources.keyEnd() ||
                statusOf.value(*owner) != ProcessingStatus::completed) {
                lose(figures, path + u" is a sidecar of no completed item"_s);
            }
        } else if (!outputs.contains(path) || entry.size() == 0) {
            lose(figures, path + u" is no completed output"_s);
        }
    }
    for (const QString& url : sources.keys()) {
        if (!QFileInfo::exists(url)) {
            lose(figures, url + u" is gone"_s);
        }
    }

    int completed = 0, failed = 0, skipped = 0;
    const int removedEarly = int(removedUnfinished.size());
    for (const ProcessingStatus status : std::as_const(statusOf)) {
        completed += status == ProcessingStatus::completed;
        failed += status == ProcessingStatus::failed;
        skipped += status == ProcessingStatus::skipped;
    }
    std::printf("files %d, seed %u, %.1f s\n", count, seed, double(elapsed.elapsed()) / 1000);
    std::printf("completed %d, failed %d, skipped %d, removed unfinished %d\n", completed, failed,
                skipped, removedEarly);
    std::printf("cancels %d, retries %d, removals %d\n", figures.cancels, figures.retries,
                figures.removals);
    std::printf("files checked %d, lost %d\n", figures.filesChecked, figures.lost);
    return figures.lost == 0 ? 0 : 1;
}
