#include "DBusSession.h"
#include "DiskLedger.h"
#include "TestSupport.h"
#include "engine/RemuxService.h"
#include "tools/ChildProcess.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Stands in for ffmpeg where timing matters. Sidecars are written at once; the
// video output is written partly, logged "start"/"end"/"term" with its name, and
// finished with a real MP4, as the file "mode" says: fail, hold (until
// "release-<name>" exists), chatty (100 progress lines over a second), or at once.
// In mode slowsrt a run waits to be stopped once its sidecars are written; in mode
// stubborn the remux ignores SIGTERM until released.
const QByteArray fakeFfmpeg = R"SH(case " $* " in
  *" srt "*)
    for a in "$@"; do case "$a" in *.srt) printf '1\n00:00:00,000 --> 00:00:01,000\nx\n\n' > "$a";; esac; done
    if [ "$(cat "$here/mode" 2>/dev/null)" = slowsrt ]; then
      echo "extracting" >> "$here/log"
      trap 'kill $p 2>/dev/null; exit 255' TERM; sleep 30 & p=$!; wait $p
    fi
    [ -n "$out" ] || exit 0;;
esac
name=$(basename "$out")
mode=$(cat "$here/mode" 2>/dev/null)
# Signals are set up before the run shows in the log, where the tests wait for it.
if [ "$mode" = stubborn ]; then trap '' TERM
else trap 'kill $p 2>/dev/null; echo "term $name" >> "$here/log"; exit 255' TERM; fi
echo "start $name" >> "$here/log"
printf partial > "$out"
case "$mode" in
  fail) echo "[mp4 @ 0x1] Could not write header for output file" >&2; exit 1;;
  hold) while [ ! -e "$here/release-$name" ]; do sleep 0.02 & p=$!; wait $p; done;;
  stubborn) while [ ! -e "$here/release-$name" ]; do sleep 0.02; done; echo "end $name" >> "$here/log"; exit 1;;
  chatty) i=0; while [ $i -lt 100 ]; do printf 'time=00:00:00.%02d \r' $i >&2; sleep 0.01 & p=$!; wait $p; i=$((i+1)); done;;
esac
cat "$here/sample.mp4" > "$out"
echo "end $name" >> "$here/log"
exit 0
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
            if (!QTest::qWaitFor(
                    [&] {
                        const auto item = service->item(id);
                        return item->status != ProcessingStatus::pending || item->cachedMediaInfo;
                    },
                    runTimeout)) {
                qWarning("early probe did not end");
            }
        }
        return ids;
    }
    // Copies of one small H.264 clip under the given names, added and probed.
    QList<QUuid> addClips(const QStringList& names) {
        QStringList urls;
        for (const QString& name : names) {
            urls.append(add(u"h264_aac.mkv"_s, name + u".mkv"_s));
        }
        return addAndProbe(urls);
    }
    RemuxItem itemAt(const QUuid& id) const { return *service->item(id); }
    void useFakeFfmpeg(const QString& mode) {
        fakeBin = TestSupport::installFakeTool(*folder, u"ffmpeg"_s, fakeFfmpeg);
        QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffprobe"_s,
                    fakeBin + u"/ffprobe"_s);
        QFile modeFile(fakeBin + u"/mode"_s);
        modeFile.open(QIODevice::WriteOnly);
        modeFile.write(mode.toUtf8());
    }
    QStringList fakeLog() const {
        QFile log(fakeBin + u"/log"_s);
        if (!log.open(QIODevice::ReadOnly)) {
            return {};
        }
        return QString::fromUtf8(log.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }
    void release(const QString& outputName) {
        QFile(fakeBin + u"/release-"_s + outputName).open(QIODevice::WriteOnly);
    }
    bool waitForBatchEnd() {
        return QTest::qWaitFor([&] { return !service->isRemuxing(); }, runTimeout);
    }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(bus.start());
        QVERIFY(bus.registerRecorder(&recorder));
    }
    void init() {
        recorder.calls.clear();
        folder = std::make_unique<QTemporaryDir>();
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        service = std::make_unique<RemuxService>();
    }
    void cleanup() {
        service.reset();
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        QCOMPARE(Async::BackgroundTask::liveCount(), 0);
    }

    void duplicatesAreLeftOut() {
        const QString clip = add(u"h264_aac.mkv"_s, u"Clip.mkv"_s);
        QFile::link(clip, folder->filePath(u"link.mkv"_s));
        QCOMPARE(service->appendItems({clip}).size(), 1);
        QVERIFY(service->appendItems({folder->filePath(u"CLIP.MKV"_s)}).isEmpty());
        QVERIFY(service->appendItems({folder->filePath(u"link.mkv"_s)}).isEmpty());
        QVERIFY(service->appendItems({folder->filePath(u"./sub/../Clip.mkv"_s)}).isEmpty());
        const QString other = add(u"no_audio.mkv"_s);
        QSignalSpy inserted(service.get(), &RemuxService::itemsInserted);
        QCOMPARE(service->appendItems({other, other}).size(), 2);
        QCOMPARE(inserted.size(), 1);
        QCOMPARE(service->items().size(), 3);
        QCOMPARE(service->items().at(1).url, other);
    }

    // clang-format off
    void earlyVerdicts_data() {
        QTest::addColumn<QString>("media");
        QTest::addColumn<bool>("outputExists");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("text");
        QTest::newRow("no video") << u"no_video.mkv"_s << false << u"Error"_s << u"No video stream found"_s;
        QTest::newRow("unsupported codec") << u"mpeg4.avi"_s << false << u"Error"_s << u"mpeg4 video is not supported by QuickTime"_s;
        QTest::newRow("10-bit H.264") << u"h264_10bit.mkv"_s << false << u"Error"_s << u"10-bit/12-bit H.264 is not supported by QuickTime"_s;
        QTest::newRow("already compatible") << u"h264_aac.mp4"_s << false << u"Skipped"_s << u"Skipped — already QuickTime compatible"_s;
        QTest::newRow("output exists") << u"h264_aac.mkv"_s << true << u"Skipped"_s << u"Skipped — output file already exists"_s;
        QTest::newRow("not a video") << u"not_video.mkv"_s << false << u"Error"_s << u"This doesn't look like a video file, or it's too damaged to read."_s;
        QTest::newRow("to be remuxed") << u"hevc_aac.mkv"_s << false << u"Pending"_s << QString();
    }
    // clang-format on
    void earlyVerdicts() {
        QFETCH(QString, media);
        QFETCH(bool, outputExists);
        QFETCH(QString, status);
        QFETCH(QString, text);
        const QString source = add(media);
        if (outputExists) {
            QFile(folder->filePath(u"h264_aac.mp4"_s)).open(QIODevice::WriteOnly);
        }
        const QUuid id = addAndProbe({source}).first();
        const RemuxItem item = itemAt(id);
        QCOMPARE(rawValue(item.status), status);
        QCOMPARE(item.status == ProcessingStatus::skipped ? item.statusMessage : item.error,
                 text.isNull() ? std::nullopt : std::optional(text));
        QCOMPARE(item.cachedMediaInfo.has_value(), media != u"not_video.mkv");
        QVERIFY(!service->isRemuxing());
    }

    // clang-format off
    // Every output is probed before its row says Completed. "corpus:" files were made
    // by others. The files are what the folder holds afterwards besides the source.
    void realRunsEndAsTheirOutputPlays_data() {
        QTest::addColumn<QString>("media");
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QStringList>("files");
        const QString noVideo = u"Error: The converted file has no video — the source may be cut short or damaged."_s;
        QTest::newRow("an MKV cut off after its header fails") << u"cut_after_header.mkv"_s << noVideo << QStringList();
        QTest::newRow("a camera MOV cut off after its header fails") << u"cut_after_header.mov"_s << noVideo << QStringList();
        QTest::newRow("a video track without frames fails") << u"video_without_frames.mkv"_s << noVideo << QStringList();
        QTest::newRow("a capture that starts between key frames is noted") << u"cut_start.ts"_s << u"Completed: The converted video is shorter than the source (0:00.5 of 0:01.2) — the source may be damaged."_s << QStringList{u"cut_start.mp4"_s};
        QTest::newRow("timestamps that jump are no loss") << u"timestamp_jump.ts"_s << u"Completed"_s << QStringList{u"timestamp_jump.mp4"_s};
        QTest::newRow("a subtitle track without cues is no failure") << u"empty_subtitles.mkv"_s << u"Completed"_s << QStringList{u"empty_subtitles.eng.srt"_s, u"empty_subtitles.mp4"_s};
        QTest::newRow("text subtitles") << u"subtitles.mkv"_s << u"Completed"_s << QStringList{u"subtitles.eng.srt"_s, u"subtitles.fre.srt"_s, u"subtitles.ger.srt"_s, u"subtitles.mp4"_s};
        QTest::newRow("HEVC") << u"hevc_aac.mkv"_s << u"Completed"_s << QStringList{u"hevc_aac.mp4"_s};
        QTest::newRow("ProRes") << u"prores.mov"_s << u"Completed"_s << QStringList{u"prores.morvane.mov"_s};
        QTest::newRow("MJPEG with MP3") << u"mjpeg.avi"_s << u"Completed"_s << QStringList{u"mjpeg.mov"_s};
        QTest::newRow("AV1 without audio") << u"av1.mkv"_s << u"Completed"_s << QStringList{u"av1.mp4"_s};
        QTest::newRow("DTS") << u"dts.mkv"_s << u"Completed"_s << QStringList{u"dts.mp4"_s};
        QTest::newRow("FLAC") << u"flac.mp4"_s << u"Completed"_s << QStringList{u"flac.morvane.mp4"_s};
        QTest::newRow("Opus") << u"opus.mkv"_s << u"Completed"_s << QStringList{u"opus.mp4"_s};
        QTest::newRow("corpus: H.264 with AC-3") << u"corpus:sample.mkv"_s << u"Completed"_s << QStringList{u"sample.mp4"_s};
        QTest::newRow("corpus: Vorbis") << u"corpus:sample_with_vorbis_audio.mkv"_s << u"Completed"_s << QStringList{u"sample_with_vorbis_audio.mp4"_s};
        QTest::newRow("corpus: HEVC tagged hev1") << u"corpus:h265_bframes.mp4"_s << u"Completed"_s << QStringList{u"h265_bframes.morvane.mp4"_s};
        QTest::newRow("corpus: big-endian PCM") << u"corpus:sample_twos_pcm.mp4"_s << u"Completed"_s << QStringList{u"sample_twos_pcm.morvane.mp4"_s};
        QTest::newRow("corpus: H.264 in AVI") << u"corpus:sample-with-large-length.avi"_s << u"Completed"_s << QStringList{u"sample-with-large-length.mp4"_s};
        QTest::newRow("corpus: HEVC in TS") << u"corpus:sample_h265.ts"_s << u"Completed"_s << QStringList{u"sample_h265.mp4"_s};
        QTest::newRow("corpus: H.264 with MP2 in TS") << u"corpus:sample_h264_mpeg_audio.ts"_s << u"Completed"_s << QStringList{u"sample_h264_mpeg_audio.mp4"_s};
    }
    // clang-format on
    void realRunsEndAsTheirOutputPlays() {
        QFETCH(QString, media);
        QFETCH(QString, outcome);
        QFETCH(QStringList, files);
        const bool corpus = media.startsWith(u"corpus:");
        if (corpus && !TestSupport::corpusAvailable()) {
            QSKIP("the shared corpus is not beside the checkout");
        }
        const QString source =
            corpus ? TestSupport::copyInto(*folder, TestSupport::corpusPath(media.mid(7)))
                   : add(media);
        const QUuid id = addAndProbe({source}).first();
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        const RemuxItem item = itemAt(id);
        QCOMPARE(DiskLedger::outcome(item), outcome);
        // A failure says what the tool printed, and leaves only the source.
        QCOMPARE(item.errorDetails.has_value(), item.status == ProcessingStatus::failed);
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
        QTest::newRow("a track without cues") << u"empty_subtitles.mkv"_s;
        QTest::newRow("corpus: SubRip in MKV") << u"corpus:sample_with_srt.mkv"_s;
    }
    // The real ffmpeg, counting its runs; in mode "split" a run that writes the video
    // and sidecars together fails, as it does when a sidecar can't be written, and the
    // item falls back to a run of sidecars and a remux.
    void oneRunWritesWhatTwoRunsWrite() {
        QFETCH(QString, media);
        const bool corpus = media.startsWith(u"corpus:");
        if (corpus && !TestSupport::corpusAvailable()) {
            QSKIP("the shared corpus is not beside the checkout");
        }
        const QByteArray real = QFile::encodeName(TestSupport::bundledSupportPath()) + "/ffmpeg/bin/";
        const QString bin = TestSupport::installFakeTool(
            *folder, u"ffmpeg"_s,
            "echo run >> \"$here/runs-$(cat \"$here/mode\")\"\n"
            "case \"$(cat \"$here/mode\") $*\" in split*mov_text*\" srt \"*) exit 1;; esac\n"
            "exec " + real + "ffmpeg \"$@\"\n");
        QFile::link(QString::fromUtf8(real) + u"ffprobe"_s, bin + u"/ffprobe"_s);
        QMap<QString, QByteArray> written[2];
        for (const int split : {0, 1}) {
            const QString mode = split ? u"split"_s : u"one"_s;
            QFile modeFile(bin + u"/mode"_s);
            QVERIFY(modeFile.open(QIODevice::WriteOnly | QIODevice::Truncate));
            modeFile.write(mode.toUtf8());
            modeFile.close();
            QDir(folder->path()).mkdir(mode);
            const QString source = TestSupport::copyInto(
                *folder, corpus ? TestSupport::corpusPath(media.mid(7)) : TestSupport::mediaPath(media),
                mode + u'/' + media.section(u':', -1));
            const QUuid id = addAndProbe({source}).first();
            service->startBatch();
            QVERIFY(waitForBatchEnd());
            QCOMPARE(DiskLedger::outcome(itemAt(id)), u"Completed"_s);
            QFile runs(bin + u"/runs-"_s + mode);
            QVERIFY(runs.open(QIODevice::ReadOnly));
            QCOMPARE(runs.readAll().count('\n'), split ? 3 : 1);
            for (const QString& name : QDir(folder->filePath(mode)).entryList(QDir::Files)) {
                QFile file(folder->filePath(mode + u'/' + name));
                QVERIFY(file.open(QIODevice::ReadOnly));
                written[split][name] = file.readAll();
            }
        }
        QCOMPARE(written[0].keys(), written[1].keys());
        QVERIFY(written[0].size() >= 3);
        for (const QString& name : written[0].keys()) {
            QVERIFY2(written[0][name] == written[1][name], qPrintable(name + u" differs"_s));
        }
    }

    void theBatchNotificationCountsTheEnds() {
        addAndProbe({add(u"hevc_aac.mkv"_s), add(u"no_video.mkv"_s), add(u"h264_aac.mp4"_s),
                     add(u"cut_after_header.mkv"_s)});
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        QTRY_COMPARE(recorder.calls.size(), 1);
        QCOMPARE(recorder.calls.first().body, u"1 converted, 1 skipped, 2 failed"_s);
    }

    void cachedProbeMeansNoSecondProbe() {
        const QUuid id = addAndProbe({add(u"h264_aac.mkv"_s)}).first();
        // From here on ffprobe records what it probes; only the output is read.
        const QString real = TestSupport::bundledSupportPath() + u"/ffmpeg/bin/"_s;
        const QString bin = TestSupport::installFakeTool(
            *folder, u"ffprobe"_s,
            "for last; do :; done\necho \"$last\" >> \"$here/probed\"\nexec " +
                QFile::encodeName(real) + "ffprobe \"$@\"\n");
        QFile::link(real + u"ffmpeg"_s, bin + u"/ffmpeg"_s);
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        QCOMPARE(itemAt(id).status, ProcessingStatus::completed);
        QFile probed(bin + u"/probed"_s);
        QVERIFY(probed.open(QIODevice::ReadOnly));
        QCOMPARE(probed.readAll(), QFile::encodeName(folder->filePath(u"h264_aac.mp4"_s)) + "\n");
    }

    void twoSourcesOnOneOutputCollide() {
        QDir().mkpath(folder->filePath(u"a"_s));
        QDir().mkpath(folder->filePath(u"b"_s));
        QDir().mkpath(folder->filePath(u"out"_s));
        const QList<QUuid> ids = addAndProbe(
            {add(u"h264_aac.mkv"_s, u"a/Clip.mkv"_s), add(u"hevc_aac.mkv"_s, u"b/Clip.mkv"_s)});
        service->setCustomOutputDirectory(folder->filePath(u"out"_s));
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        QCOMPARE(itemAt(ids[0]).status, ProcessingStatus::completed);
        QCOMPARE(itemAt(ids[1]).status, ProcessingStatus::failed);
        QCOMPARE(itemAt(ids[1]).error,
                 std::optional(u"Output path collision with another queued file: Clip.mp4"_s));
    }

    void failedRemuxLeavesNothingBehind() {
        useFakeFfmpeg(u"fail"_s);
        const QUuid id = addAndProbe({add(u"subtitles.mkv"_s)}).first();
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        const RemuxItem item = itemAt(id);
        QCOMPARE(item.status, ProcessingStatus::failed);
        QCOMPARE(item.error, std::optional(u"Could not write header for output file"_s));
        QCOMPARE(item.outputURL, std::optional(folder->filePath(u"subtitles.mp4"_s)));
        QVERIFY(fakeLog().contains(u"start subtitles.mp4"_s));
        QCOMPARE(QDir(folder->path()).entryList(QDir::Files), QStringList({u"subtitles.mkv"_s}));
    }

    void twoSlotsRefilledInQueueOrder() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s, u"c"_s});
        service->startBatch();
        // The two children race to their logs; which of them the batch launched is
        // what counts.
        QTRY_COMPARE(fakeLog().size(), 2);
        QCOMPARE(itemAt(ids[0]).status, ProcessingStatus::processing);
        QCOMPARE(itemAt(ids[1]).status, ProcessingStatus::processing);
        QCOMPARE(itemAt(ids[2]).status, ProcessingStatus::pending);
        release(u"b.mp4"_s);
        QTRY_COMPARE(fakeLog().value(3), u"start c.mp4"_s);
        QCOMPARE(itemAt(ids[0]).status, ProcessingStatus::processing);
        release(u"a.mp4"_s);
        release(u"c.mp4"_s);
        QVERIFY(waitForBatchEnd());
        QTRY_COMPARE(recorder.calls.size(), 1);
        QCOMPARE(recorder.calls.first().body, u"3 converted"_s);

        // Leftovers of the last batch count again in the next one.
        addClips({u"d"_s});
        release(u"d.mp4"_s);
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        QTRY_COMPARE(recorder.calls.size(), 2);
        QCOMPARE(recorder.calls.last().body, u"4 converted"_s);
    }

    void filesAddedDuringARunWaitForTails() {
        useFakeFfmpeg(u"hold"_s);
        addClips({u"a"_s});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 1);
        addClips({u"b"_s, u"c"_s});
        QTest::qWait(200);
        QCOMPARE(fakeLog().size(), 1);
        release(u"a.mp4"_s);
        QTRY_COMPARE(fakeLog().value(2), u"start b.mp4"_s);
        QTest::qWait(200);
        QCOMPARE(fakeLog().size(), 3); // c waits for b's tail
        release(u"b.mp4"_s);
        release(u"c.mp4"_s);
        QVERIFY(waitForBatchEnd());
        QCOMPARE(fakeLog(), QStringList({u"start a.mp4"_s, u"end a.mp4"_s, u"start b.mp4"_s,
                                         u"end b.mp4"_s, u"start c.mp4"_s, u"end c.mp4"_s}));
    }

    void startWithNothingToDo() {
        QSignalSpy remuxing(service.get(), &RemuxService::isRemuxingChanged);
        service->startBatch();
        QCOMPARE(remuxing.size(), 0);
        addAndProbe({add(u"no_video.mkv"_s)});
        service->startBatch();
        QCOMPARE(remuxing.size(), 2);
        QVERIFY(!service->isRemuxing());
        QTest::qWait(200);
        QCOMPARE(recorder.calls.size(), 0);
    }

    void cancellingARunCleansUpBeforeTheNextStarts() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids =
            addAndProbe({add(u"subtitles.mkv"_s, u"a.mkv"_s), add(u"h264_aac.mkv"_s, u"b.mkv"_s),
                         add(u"h264_aac.mkv"_s, u"c.mkv"_s)});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 2);
        QVERIFY(QFile::exists(folder->filePath(u"a.eng.srt"_s)));
        service->cancelItem(ids[0]);
        const RemuxItem cancelled = itemAt(ids[0]);
        QCOMPARE(cancelled.status, ProcessingStatus::failed);
        QCOMPARE(cancelled.error, std::optional(u"Cancelled"_s));
        QVERIFY(!service->activeTaskIds().contains(ids[0]));
        QTRY_COMPARE(fakeLog().value(3), u"start c.mp4"_s);
        QCOMPARE(fakeLog().value(2), u"term a.mp4"_s);
        QVERIFY(!QFile::exists(folder->filePath(u"a.mp4"_s)));
        QCOMPARE(QDir(folder->path()).entryList({u"*.srt"_s}), QStringList());

        // Cancelling the last runs ends the batch at once, with no notification.
        service->cancelItem(ids[1]);
        QVERIFY(service->isRemuxing());
        service->cancelItem(ids[2]);
        QVERIFY(!service->isRemuxing());
        QTRY_COMPARE(fakeLog().size(), 6);
        QTest::qWait(200);
        QCOMPARE(recorder.calls.size(), 0);
        QCOMPARE(QDir(folder->path()).entryList(QDir::Files).size(), 3);
    }

    void aCancelAfterTheSidecarsLeavesNothing() {
        useFakeFfmpeg(u"slowsrt"_s);
        const QUuid id = addAndProbe({add(u"subtitles.mkv"_s)}).first();
        service->startBatch();
        QTRY_COMPARE(fakeLog(), QStringList({u"extracting"_s}));
        QCOMPARE(QDir(folder->path()).entryList({u"*.srt"_s}).size(), 3);
        service->cancelItem(id);
        QVERIFY(!service->isRemuxing());
        QTRY_COMPARE(QDir(folder->path()).entryList({u"*.srt"_s}), QStringList());
        QTRY_VERIFY(service->inflightOutputs().isEmpty());
        QCOMPARE(QDir(folder->path()).entryList(QDir::Files), QStringList({u"subtitles.mkv"_s}));
    }

    void aRunCancelledBeforeItBeganStartsNoChild() {
        useFakeFfmpeg(u"hold"_s);
        const QUuid id = addClips({u"a"_s}).first();
        service->startBatch();
        service->cancelItem(id); // in the same turn: the task's body has not begun
        QVERIFY(!service->isRemuxing());
        QTest::qWait(300);
        QVERIFY(fakeLog().isEmpty());
        QCOMPARE(itemAt(id).error, std::optional(u"Cancelled"_s));
    }

    void aChildIgnoringSigtermKeepsNoSlot() {
        useFakeFfmpeg(u"stubborn"_s);
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s, u"c"_s});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 2);
        service->cancelItem(ids[0]);
        QCOMPARE(service->activeTaskIds().size(), 1);
        release(u"b.mp4"_s);
        QTRY_COMPARE(itemAt(ids[2]).status, ProcessingStatus::processing);
        QVERIFY(QFile::exists(folder->filePath(u"a.mp4"_s))); // a's run is still alive
        release(u"a.mp4"_s);
        QTRY_VERIFY(!QFile::exists(folder->filePath(u"a.mp4"_s)));
        QCOMPARE(itemAt(ids[0]).error, std::optional(u"Cancelled"_s));
        release(u"c.mp4"_s);
        QVERIFY(waitForBatchEnd());
    }

    void aChildIgnoringSigtermForGoodIsKilled() {
        useFakeFfmpeg(u"stubborn"_s);
        const QList<QUuid> ids = addClips({u"a"_s});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 1);
        service->cancelItem(ids[0]);
        QVERIFY(waitForBatchEnd());
        QTRY_VERIFY_WITH_TIMEOUT(!QFile::exists(folder->filePath(u"a.mp4"_s)),
                                 int(ChildProcess::killGrace.count()) + 5000);
        QCOMPARE(itemAt(ids[0]).error, std::optional(u"Cancelled"_s));
    }

    void removingARunningItemStillDeletesItsFiles() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 2);
        service->removeItems({ids[0], ids[1]});
        QVERIFY(service->items().isEmpty());
        QVERIFY(!service->isRemuxing());
        QTRY_COMPARE(fakeLog().size(), 4);
        QTRY_COMPARE(QDir(folder->path()).entryList(QDir::Files),
                     QStringList({u"a.mkv"_s, u"b.mkv"_s}));
    }

    void cancelAllFailsPendingItemsToo() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s, u"c"_s});
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 2);
        service->cancelAll();
        QVERIFY(!service->isRemuxing());
        for (const QUuid& id : ids) {
            QCOMPARE(itemAt(id).error, std::optional(u"Cancelled"_s));
        }
        QTRY_COMPARE(fakeLog().size(), 4);
        QTest::qWait(200);
        QCOMPARE(recorder.calls.size(), 0);
        QCOMPARE(fakeLog().filter(u"start"_s).size(), 2);
    }

    // A retry launched while the cancelled run still winds down: the new run waits
    // for the old one, keeps its slot, and neither collides nor skips.
    void retryDuringWindDownIsToldApart() {
        useFakeFfmpeg(u"hold"_s);
        const QUuid id = addClips({u"a"_s}).first();
        service->startBatch();
        QTRY_COMPARE(fakeLog().size(), 1);
        service->cancelItem(id);
        service->retryItem(id);
        QCOMPARE(itemAt(id).status, ProcessingStatus::processing);
        QTRY_COMPARE(fakeLog().size(), 3);
        QCOMPARE(fakeLog(), QStringList({u"start a.mp4"_s, u"term a.mp4"_s, u"start a.mp4"_s}));
        QVERIFY(service->activeTaskIds().contains(id));
        release(u"a.mp4"_s);
        QVERIFY(waitForBatchEnd());
        QCOMPARE(itemAt(id).status, ProcessingStatus::completed);
    }

    void retryAndClearOperations() {
        const QList<QUuid> ids =
            addAndProbe({add(u"no_video.mkv"_s), add(u"h264_aac.mp4"_s), add(u"hevc_aac.mkv"_s)});
        // Pending item cancelled with no batch: failed, then Retry Failed brings it back.
        service->cancelItem(ids[2]);
        QCOMPARE(itemAt(ids[2]).error, std::optional(u"Cancelled"_s));
        QVERIFY(!service->isRemuxing());
        // A skipped item can't be retried; a failed one is reset whole.
        service->retryItem(ids[1]);
        QCOMPARE(itemAt(ids[1]).status, ProcessingStatus::skipped);
        service->retryFailed();
        QVERIFY(service->isRemuxing());
        QVERIFY(waitForBatchEnd());
        // The early rejection comes again from the run, in the same words.
        QCOMPARE(itemAt(ids[0]).error, std::optional(u"No video stream found"_s));
        QCOMPARE(itemAt(ids[2]).status, ProcessingStatus::completed);
        service->clearCompleted();
        QCOMPARE(service->items().size(), 1);
        QCOMPARE(service->items().first().id, ids[0]);
        service->clearAll();
        QVERIFY(service->items().isEmpty());
        QVERIFY(QFile::exists(folder->filePath(u"hevc_aac.mp4"_s))); // finished output stays
    }

    void retryWithNoBatchStartsOneForEveryPendingItem() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s});
        service->cancelItem(ids[0]);
        service->retryItem(ids[0]);
        QVERIFY(service->isRemuxing());
        QCOMPARE(itemAt(ids[0]).status, ProcessingStatus::processing);
        QCOMPARE(itemAt(ids[1]).status, ProcessingStatus::processing);
        release(u"a.mp4"_s);
        release(u"b.mp4"_s);
        QVERIFY(waitForBatchEnd());
    }

    void retryWhileTwoRunWaitsForATail() {
        useFakeFfmpeg(u"hold"_s);
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s, u"c"_s});
        service->cancelItem(ids[2]);
        service->startBatch();
        service->retryItem(ids[2]);
        QCOMPARE(itemAt(ids[2]).status, ProcessingStatus::pending);
        release(u"a.mp4"_s);
        QTRY_COMPARE(itemAt(ids[2]).status, ProcessingStatus::processing);
        release(u"b.mp4"_s);
        release(u"c.mp4"_s);
        QVERIFY(waitForBatchEnd());
    }

    void retryFailedWithoutFailuresStillStartsABatch() {
        useFakeFfmpeg(u"hold"_s);
        const QUuid skipped = addAndProbe({add(u"h264_aac.mp4"_s)}).first();
        QSignalSpy remuxing(service.get(), &RemuxService::isRemuxingChanged);
        service->retryFailed(); // nothing pending, nothing failed: on and off again
        QCOMPARE(remuxing.size(), 2);
        QCOMPARE(itemAt(skipped).status, ProcessingStatus::skipped);
        const QUuid pending = addClips({u"a"_s}).first();
        service->retryFailed();
        QCOMPARE(itemAt(pending).status, ProcessingStatus::processing);
        release(u"a.mp4"_s);
        QVERIFY(waitForBatchEnd());
    }

    void clearCompletedDuringABatchLeavesTheRestAndTheTally() {
        useFakeFfmpeg(u"hold"_s);
        addAndProbe({add(u"h264_aac.mp4"_s)}); // skipped early
        const QList<QUuid> ids = addClips({u"a"_s, u"b"_s, u"c"_s});
        service->startBatch();
        release(u"a.mp4"_s);
        QTRY_COMPARE(itemAt(ids[0]).status, ProcessingStatus::completed);
        service->clearCompleted();
        QCOMPARE(service->items().size(), 2);
        QCOMPARE(itemAt(ids[1]).status, ProcessingStatus::processing);
        release(u"b.mp4"_s);
        release(u"c.mp4"_s);
        QVERIFY(waitForBatchEnd());
        QTRY_COMPARE(recorder.calls.size(), 1);
        QCOMPARE(recorder.calls.first().body, u"2 converted"_s);
    }

    void progressReachesAnItemAtMostTenTimesASecond() {
        ProgressThrottle throttle;
        QList<bool> admitted;
        for (double t : {100.0, 100.05, 100.15, 100.2, 100.3}) {
            admitted.append(throttle.admit(t));
        }
        QCOMPARE(admitted, QList<bool>({true, false, true, false, true}));

        useFakeFfmpeg(u"chatty"_s);
        const QUuid id = addAndProbe({add(u"h264_aac.mkv"_s)}).first();
        QList<double> seen;
        const QObject listening; // the connection ends with this test
        connect(service.get(), &RemuxService::itemChanged, &listening, [&](const QUuid& changed) {
            const double progress = itemAt(changed).progress;
            if (changed == id && (seen.isEmpty() || seen.last() != progress)) {
                seen.append(progress);
            }
        });
        QElapsedTimer clock;
        clock.start();
        service->startBatch();
        QVERIFY(waitForBatchEnd());
        const double seconds = clock.elapsed() / 1000.0;
        QVERIFY2(seen.size() >= 3, qPrintable(QString::number(seen.size())));
        QVERIFY2(seen.size() <= int(seconds * 10) + 2,
                 qPrintable(u"%1 updates in %2 s"_s.arg(seen.size()).arg(seconds)));
    }
};

QTEST_GUILESS_MAIN(RemuxServiceTest)
#include "tst_RemuxService.moc"
