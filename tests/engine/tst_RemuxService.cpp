#include "DBusSession.h"
#include "DiskLedger.h"
#include "TestSupport.h"
#include "engine/RemuxService.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <chrono>

using namespace Qt::StringLiterals;

namespace {

// Stands in for ffmpeg where timing matters. Sidecars are written at once; the
// video output is written partly, logged "start"/"term" with its name, and
// finished with a real MP4, as the file "mode" says: hold (until "release-<name>"
// exists) or chatty (100 progress lines over a second).
const QByteArray fakeFfmpeg =
    R"SH(for a in "$@"; do case "$a" in *.srt*) printf '1\n00:00:00,000 --> 00:00:01,000\nx\n\n' > "$a";; esac; done
[ -n "$out" ] || exit 0
name=$final
# The signal is caught before the run shows in the log, where the tests wait for it.
trap 'kill $p 2>/dev/null; echo "term $name" >> "$here/log"; exit 255' TERM
echo "start $name" >> "$here/log"
printf partial > "$out"
case "$(cat "$here/mode")" in
  hold) while [ ! -e "$here/release-$name" ]; do sleep 0.02 & p=$!; wait $p; done;;
  chatty) i=0; while [ $i -lt 100 ]; do printf 'time=00:00:00.%02d \r' $i >&2; sleep 0.01 & p=$!; wait $p; i=$((i+1)); done;;
esac
cat "$here/sample.mp4" > "$out"
)SH";

constexpr int runTimeout = 30000;

} // namespace

class RemuxServiceTest final : public QObject {
    Q_OBJECT

    DBusSession bus;
    NotificationRecorder recorder;
    std::unique_ptr<QTemporaryDir> folder;
    std::unique_ptr<RemuxService> service;
    QString fakeBin;

    QString add(const QString& media, const QString& as = {}) {
        return TestSupport::copyInto(*folder, TestSupport::mediaPath(media), as);
    }
    // Appends and probes, and waits until every new item has its early verdict.
    QList<QUuid> addAndProbe(const QStringList& urls) {
        const QList<QUuid> ids = service->appendItems(urls);
        service->probeItems(ids);
        for (const QUuid& id : ids) {
            static_cast<void>(QTest::qWaitFor(
                [&] {
                    return itemAt(id).status != ProcessingStatus::pending ||
                           itemAt(id).cachedMediaInfo;
                },
                runTimeout)); // a probe that never ends shows in the test's own checks
        }
        return ids;
    }
    RemuxItem itemAt(const QUuid& id) const { return *service->item(id); }
    void useFakeFfmpeg(const QString& mode) {
        fakeBin = TestSupport::installFakeTool(*folder, u"ffmpeg"_s, fakeFfmpeg, mode.toUtf8());
        QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffprobe"_s,
                    fakeBin + u"/ffprobe"_s);
    }
    QStringList fakeLog() const {
        QFile log(fakeBin + u"/log"_s);
        return log.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(log.readAll()).split(u'\n', Qt::SkipEmptyParts)
                   : QStringList();
    }
    bool waitForBatchEnd() {
        return QTest::qWaitFor([&] { return !service->isRemuxing(); }, runTimeout);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(bus.start() && bus.registerRecorder(&recorder)); }
    void init() {
        recorder.calls.clear();
        folder = std::make_unique<QTemporaryDir>();
        service = std::make_unique<RemuxService>();
    }
    void cleanup() {
        service.reset();
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        QCOMPARE(Async::BackgroundTask::liveCount(), 0);
    }

    // clang-format off
    // Each file is judged when it is added ("early": the row's verdict then) and its
    // output probed before its row says Completed. "corpus:" files were made by
    // others. The files are what the folder holds afterwards besides the source; for
    // a file judged early they stand there from the start.
    void runsEndAsTheirOutputPlays_data() {
        QTest::addColumn<QString>("media");
        QTest::addColumn<bool>("early");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QStringList>("files");
        const QString noVideo = u"Error: The converted file has no video — the source may be cut short or damaged."_s;
        QTest::newRow("no video") << u"no_video.mkv"_s << true << u"Error: No video stream found"_s << QStringList();
        QTest::newRow("unsupported codec") << u"mpeg4.avi"_s << true << u"Error: mpeg4 video is not supported by QuickTime"_s << QStringList();
        QTest::newRow("10-bit H.264") << u"h264_10bit.mkv"_s << true << u"Error: 10-bit/12-bit H.264 is not supported by QuickTime"_s << QStringList();
        QTest::newRow("already compatible") << u"h264_aac.mp4"_s << true << u"Skipped: Skipped — already QuickTime compatible"_s << QStringList();
        QTest::newRow("output exists") << u"h264_aac.mkv"_s << true << u"Skipped: Skipped — output file already exists"_s << QStringList{u"h264_aac.mp4"_s};
        QTest::newRow("not a video") << u"not_video.mkv"_s << true << u"Error: This doesn't look like a video file, or it's too damaged to read."_s << QStringList();
        QTest::newRow("an MKV cut off after its header fails") << u"cut_after_header.mkv"_s << false << noVideo << QStringList();
        QTest::newRow("a camera MOV cut off after its header fails") << u"cut_after_header.mov"_s << false << noVideo << QStringList();
        QTest::newRow("a video track without frames fails") << u"video_without_frames.mkv"_s << false << noVideo << QStringList();
        QTest::newRow("a capture that starts between key frames is noted") << u"cut_start.ts"_s << false << u"Completed: The converted video is shorter than the source (0:00.5 of 0:01.2) — the source may be damaged."_s << QStringList{u"cut_start.mp4"_s};
        QTest::newRow("timestamps that jump are no loss") << u"timestamp_jump.ts"_s << false << u"Completed"_s << QStringList{u"timestamp_jump.mp4"_s};
        QTest::newRow("a subtitle track without cues is no failure") << u"empty_subtitles.mkv"_s << false << u"Completed"_s << QStringList{u"empty_subtitles.eng.srt"_s, u"empty_subtitles.mp4"_s};
        QTest::newRow("text subtitles") << u"subtitles.mkv"_s << false << u"Completed"_s << QStringList{u"subtitles.eng.srt"_s, u"subtitles.fre.srt"_s, u"subtitles.ger.srt"_s, u"subtitles.mp4"_s};
        QTest::newRow("HEVC") << u"hevc_aac.mkv"_s << false << u"Completed"_s << QStringList{u"hevc_aac.mp4"_s};
        QTest::newRow("ProRes") << u"prores.mov"_s << false << u"Completed"_s << QStringList{u"prores.morvane.mov"_s};
        QTest::newRow("MJPEG with MP3") << u"mjpeg.avi"_s << false << u"Completed"_s << QStringList{u"mjpeg.mov"_s};
        QTest::newRow("AV1 without audio") << u"av1.mkv"_s << false << u"Completed"_s << QStringList{u"av1.mp4"_s};
        QTest::newRow("DTS") << u"dts.mkv"_s << false << u"Completed"_s << QStringList{u"dts.mp4"_s};
        QTest::newRow("corpus: H.264 with AC-3") << u"corpus:sample.mkv"_s << false << u"Completed"_s << QStringList{u"sample.mp4"_s};
        QTest::newRow("corpus: HEVC tagged hev1") << u"corpus:h265_bframes.mp4"_s << false << u"Completed"_s << QStringList{u"h265_bframes.morvane.mp4"_s};
        QTest::newRow("corpus: HEVC in TS") << u"corpus:sample_h265.ts"_s << false << u"Completed"_s << QStringList{u"sample_h265.mp4"_s};
    }
    // clang-format on
    void runsEndAsTheirOutputPlays() {
        QFETCH(QString, media);
        QFETCH(bool, early);
        QFETCH(QString, outcome);
        QFETCH(QStringList, files);
        const bool corpus = media.startsWith(u"corpus:");
        if (corpus && !TestSupport::corpusAvailable()) {
            QSKIP("the shared corpus is not beside the checkout");
        }
        for (const QString& file : early ? files : QStringList()) {
            QFile(folder->filePath(file)).open(QIODevice::WriteOnly);
        }
        const QString source =
            corpus ? TestSupport::copyInto(*folder, TestSupport::corpusPath(media.mid(7)))
                   : add(media);
        const QUuid id = addAndProbe({source}).first();
        QCOMPARE(DiskLedger::outcome(itemAt(id)), early ? outcome : u"Pending"_s);
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        const RemuxItem item = itemAt(id);
        QCOMPARE(DiskLedger::outcome(item), outcome);
        // A failed run says what the tool printed, and leaves only the source.
        QVERIFY(early ||
                item.errorDetails.has_value() == (item.status == ProcessingStatus::failed));
        QStringList left = QDir(folder->path()).entryList(QDir::Files);
        left.removeOne(FilePath::lastPathComponent(source));
        QCOMPARE(left, files);
        QVERIFY(service->inflightOutputs().isEmpty());
        if (item.status == ProcessingStatus::completed) {
            QCOMPARE(*item.outputURL, folder->filePath(files.last()));
        }
    }

    void oneRunWritesWhatTwoRunsWrite_data() {
        QTest::addColumn<QString>("media");
        QTest::newRow("three languages") << u"subtitles.mkv"_s;
        QTest::newRow("corpus: SubRip in MKV") << u"corpus:sample_with_srt.mkv"_s;
    }
    // The real ffmpeg, counting its runs; in mode "split" a run that writes the video
    // and sidecars together fails, as it does when a sidecar can't be written, and the
    // item falls back to a run of sidecars and a remux. Both leave the same files.
    void oneRunWritesWhatTwoRunsWrite() {
        QFETCH(QString, media);
        const bool corpus = media.startsWith(u"corpus:");
        if (corpus && !TestSupport::corpusAvailable()) {
            QSKIP("the shared corpus is not beside the checkout");
        }
        const QByteArray real =
            QFile::encodeName(TestSupport::bundledSupportPath()) + "/ffmpeg/bin/";
        const QByteArray script = "echo run >> \"$here/runs\"\n"
                                  "case \"$(cat \"$here/mode\") $*\" in split*mov_text*\" srt \"*) "
                                  "exit 1;; esac\nexec " +
                                  real + "ffmpeg \"$@\"\n";
        QMap<QString, QByteArray> written[2];
        for (const QString& mode : {u"one"_s, u"split"_s}) {
            const int split = mode == u"split";
            const QString bin =
                TestSupport::installFakeTool(*folder, u"ffmpeg"_s, script, mode.toUtf8());
            QFile::link(QString::fromUtf8(real) + u"ffprobe"_s, bin + u"/ffprobe"_s);
            QDir(folder->path()).mkdir(mode);
            const QString source = TestSupport::copyInto(
                *folder,
                corpus ? TestSupport::corpusPath(media.mid(7)) : TestSupport::mediaPath(media),
                mode + u'/' + media.section(u':', -1));
            const QUuid id = addAndProbe({source}).first();
            service->startBatch();
            QVERIFY(waitForBatchEnd());
            QCOMPARE(DiskLedger::outcome(itemAt(id)), u"Completed"_s);
            QFile runs(bin + u"/runs"_s);
            QVERIFY(runs.open(QIODevice::ReadOnly));
            QCOMPARE(runs.readAll().count('\n'), split ? 3 : 1);
            for (const QString& name : QDir(folder->filePath(mode)).entryList(QDir::Files)) {
                QFile file(folder->filePath(mode + u'/' + name));
                QVERIFY(file.open(QIODevice::ReadOnly));
                written[split][name] = file.readAll();
            }
        }
        QVERIFY(written[0].size() >= 3);
        QCOMPARE(written[0], written[1]);
    }

    // Two sources that would share one output: the second fails. The batch's
    // notification counts every end.
    void collisionsAndTheBatchNotification() {
        for (const QString& sub : {u"a"_s, u"b"_s, u"out"_s}) {
            QDir().mkpath(folder->filePath(sub));
        }
        const QList<QUuid> ids = addAndProbe(
            {add(u"h264_aac.mkv"_s, u"a/Clip.mkv"_s), add(u"hevc_aac.mkv"_s, u"b/Clip.mkv"_s),
             add(u"no_video.mkv"_s), add(u"h264_aac.mp4"_s), add(u"cut_after_header.mkv"_s)});
        service->setCustomOutputDirectory(folder->filePath(u"out"_s));
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        QCOMPARE(DiskLedger::outcome(itemAt(ids[0])), u"Completed"_s);
        QCOMPARE(DiskLedger::outcome(itemAt(ids[1])),
                 u"Error: Output path collision with another queued file: Clip.mp4"_s);
        QTRY_COMPARE(recorder.calls.size(), 1);
        QCOMPARE(recorder.calls.first().body, u"1 converted, 1 skipped, 3 failed"_s);
    }

    // A run cancelled after it wrote its sidecars takes them with it before the next
    // run starts.
    void cancellingARunCleansUpBeforeTheNextStarts() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids =
            addAndProbe({add(u"subtitles.mkv"_s, u"a.mkv"_s), add(u"h264_aac.mkv"_s, u"b.mkv"_s),
                         add(u"h264_aac.mkv"_s, u"c.mkv"_s)});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 2);
        QVERIFY(QFile::exists(folder->filePath(u".a.eng.srt.morvane-partial"_s)));
        service->cancelItem(ids[0]);
        QCOMPARE(DiskLedger::outcome(itemAt(ids[0])), u"Error: Cancelled"_s);
        QTRY_COMPARE(fakeLog().value(3), u"start c.mp4"_s);
        QCOMPARE(fakeLog().value(2), u"term a.mp4"_s);
        QCOMPARE(QDir(folder->path()).entryList({u"*a.*"_s}, QDir::Files | QDir::Hidden),
                 QStringList{u"a.mkv"_s});

        // Cancelling the last runs ends the batch at once, with no notification.
        service->cancelAll();
        QVERIFY(!service->isRemuxing());
        QTRY_COMPARE(QDir(folder->path()).entryList(QDir::Files).size(), 3);
        QTest::qWait(200);
        QCOMPARE(recorder.calls.size(), 0);
    }

    // Progress lines come a hundred a second; the row hears of them ten times a second.
    void progressReachesAnItemAtMostTenTimesASecond() {
        useFakeFfmpeg(u"chatty"_s);
        addAndProbe({add(u"h264_aac.mkv"_s)});
        QList<double> seen;
        const QObject listening; // the connection ends with this test
        connect(service.get(), &RemuxService::itemChanged, &listening, [&](const QUuid& id) {
            if (seen.isEmpty() || seen.last() != itemAt(id).progress) {
                seen.append(itemAt(id).progress);
            }
        });
        const auto started = std::chrono::steady_clock::now();
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        QVERIFY2(seen.size() >= 3, qPrintable(QString::number(seen.size())));
        QVERIFY2(seen.size() <= int(seconds * 10) + 2,
                 qPrintable(u"%1 updates in %2 s"_s.arg(seen.size()).arg(seconds)));
    }
};

QTEST_GUILESS_MAIN(RemuxServiceTest)
#include "tst_RemuxService.moc"
