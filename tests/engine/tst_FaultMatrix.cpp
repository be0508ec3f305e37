#include "DiskLedger.h"
#include "TestSupport.h"
#include "engine/RemuxService.h"

#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

// Stands in for ffmpeg and ends in the real one ("real" next to it) unless the
// file "mode" asks it to fail the way ffmpeg fails: killed by a signal after a
// partial write, a read-only folder, a disk that is full (/dev/full) or fills up
// (a file size limit), or, in mode nosrt, failing any run that writes sidecars
// (after a partial write when it writes the video too). A
// run whose output, or "srt" for a run of sidecars alone, has a "hold-<name>" file
// waits for "go-<name>" first. In mode stubborn it ignores SIGTERM.
const QByteArray fakeFfmpeg = R"SH(name=$(basename "$out")
[ -n "$out" ] || name=srt
mode=$(cat "$here/mode")
[ "$mode" = stubborn ] && trap '' TERM
echo "start $name" >> "$here/log"
if [ -e "$here/hold-$name" ]; then
  while [ ! -e "$here/go-$name" ]; do sleep 0.02; done
fi
if [ "$mode" = nosrt ] && case " $* " in *" srt "*) true;; *) false;; esac; then
  [ -n "$out" ] && for a; do case "$a" in *.srt|*.mp4) printf partial > "$a";; esac; done
  echo "[srt @ 0x1] Could not write header for output file" >&2; exit 1
fi
[ "$name" = srt ] && exec "$here/real" "$@"
ulimit -c 0
case "$mode" in
  KILL|SEGV) printf partial > "$out"
    printf 'frame=   10 fps=0.0 q=-1.0 size=     256kB time=00:00:00.40 bitrate=5242.9kbits/s \r' >&2
    kill -$mode $$;;
  readonly) echo "$out: Permission denied" >&2; exit 1;;
  fills) trap '' XFSZ; ulimit -f 20;;
  full) printf partial > "$out"
    for a; do shift; if [ "$a" = "$out" ]; then set -- "$@" -f mp4 /dev/full; else set -- "$@" "$a"; fi; done;;
esac
exec "$here/real" "$@"
)SH";

constexpr int runTimeout = 60000;

} // namespace

class FaultMatrixTest final : public QObject {
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> root;
    std::unique_ptr<QTemporaryDir> tools;
    std::unique_ptr<RemuxService> service;
    std::unique_ptr<DiskLedger> ledger;
    QString bin;

    QString in(const QString& name) const { return root->filePath(u"in/"_s + name); }
    QString out(const QString& name) const { return root->filePath(u"out/"_s + name); }
    static void touch(const QString& path) { QFile(path).open(QIODevice::WriteOnly); }

    // The fake ffmpeg in `mode`, and the real ffprobe unless a script is given.
    void useTools(const QString& mode, const QByteArray& ffprobe = {}) {
        const QString support = TestSupport::bundledSupportPath() + u"/ffmpeg/bin/"_s;
        const QString probeBin = ffprobe.isEmpty()
                                     ? QString()
                                     : TestSupport::installFakeTool(*tools, u"ffprobe"_s, ffprobe);
        bin = TestSupport::installFakeTool(*tools, u"ffmpeg"_s, fakeFfmpeg);
        QFile::link(support + u"ffmpeg"_s, bin + u"/real"_s);
        QFile::link(ffprobe.isEmpty() ? support + u"ffprobe"_s : probeBin + u"/ffprobe"_s,
                    bin + u"/ffprobe"_s);
        QFile modeFile(bin + u"/mode"_s);
        modeFile.open(QIODevice::WriteOnly);
        modeFile.write(mode.toUtf8());
    }
    // Copies of `media` as in/<name>.mkv for each name, added and probed; the ledger
    // starts from there.
    QList<QUuid> addCopies(const QString& media, const QStringList& names) {
        QStringList urls;
        for (const QString& name : names) {
            urls << TestSupport::copyInto(*root, TestSupport::mediaPath(media),
                                          u"in/"_s + name + u".mkv"_s);
        }
        ledger = std::make_unique<DiskLedger>(root->path(),
                                              QStringList{in({}).chopped(1), out({}).chopped(1)});
        const QList<QUuid> ids = service->appendItems(urls);
        service->probeItems(ids);
        // An item left pending shows in the ledger.
        static_cast<void>(DiskLedger::settled(*service));
        return ids;
    }
    bool started(const QString& name) const {
        QFile log(bin + u"/log"_s);
        return log.open(QIODevice::ReadOnly) && log.readAll().contains("start " + name.toUtf8());
    }
    QString finalTexts(const QList<QUuid>& ids) const {
        QStringList texts;
        for (const QUuid& id : ids) {
            const std::optional<RemuxItem> item = service->item(id);
            texts << (!item ? u"gone"_s : item->error.value_or(rawValue(item->status)));
        }
        return texts.join(u' ');
    }

private Q_SLOTS:
    void init() {
        root = std::make_unique<QTemporaryDir>();
        tools = std::make_unique<QTemporaryDir>();
        QDir(root->path()).mkdir(u"in"_s);
        QDir(root->path()).mkdir(u"out"_s);
        service = std::make_unique<RemuxService>();
        service->setPostsNotification(false);
        service->setCustomOutputDirectory(out({}).chopped(1));
    }
    void cleanup() {
        service.reset();
        FFmpegServiceTesting::setProbeTimeout(30.0);
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        QCOMPARE(Async::BackgroundTask::liveCount(), 0);
    }

    // clang-format off
    void faultsLeaveNothingBehind_data() {
        QTest::addColumn<QString>("media");
        QTest::addColumn<QByteArray>("ffprobe");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("hold"); // the run that waits while the test acts
        QTest::addColumn<QString>("action");
        QTest::addColumn<QString>("outcome");
        const QString missing = u"Error: The file is missing or was moved."_s;
        const QString unparsable = u"Error: Could not parse ffprobe output."_s;
        // Probes of the output (an .mp4) wait or lie; the source's are real.
        const QByteArray realProbe = QFile::encodeName(TestSupport::bundledSupportPath()) + "/ffmpeg/bin/ffprobe";
        const QByteArray heldCheck = "for last; do :; done\ncase \"$last\" in *.mp4) echo 'start check' >> \"$here/log\"\n"
                                     "  while [ ! -e \"$here/go-check\" ]; do sleep 0.02; done;; esac\nexec " + realProbe + " \"$@\"\n";
        const QByteArray garbledCheck = "for last; do :; done\ncase \"$last\" in *.mp4) echo '{'; exit 0;; esac\nexec " + realProbe + " \"$@\"\n";
        QTest::newRow("cancelled during the output check") << u"subtitles.mkv"_s << heldCheck << u"real"_s << u"check"_s << u"cancel"_s << u"Error: Cancelled"_s;
        QTest::newRow("the output can't be read back") << u"subtitles.mkv"_s << garbledCheck << u"real"_s << QString() << QString() << u"Error: The converted file can't be read — the source may be cut short or damaged."_s;
        QTest::newRow("ffmpeg killed mid-write") << u"h264_aac.mkv"_s << QByteArray() << u"KILL"_s << QString() << QString() << u"Error: ffmpeg exited with code 137"_s;
        QTest::newRow("ffmpeg crashes after the sidecars") << u"subtitles.mkv"_s << QByteArray() << u"SEGV"_s << QString() << QString() << u"Error: ffmpeg exited with code 139"_s;
        QTest::newRow("ffmpeg ignores SIGTERM, then finishes") << u"subtitles.mkv"_s << QByteArray() << u"stubborn"_s << u"clip.mp4"_s << u"cancel"_s << u"Error: Cancelled"_s;
        QTest::newRow("ffprobe prints half a document") << u"h264_aac.mkv"_s << QByteArray("printf '{\"streams\": [1,'\n") << u"real"_s << QString() << QString() << unparsable;
        QTest::newRow("ffprobe prints nothing") << u"h264_aac.mkv"_s << QByteArray("exit 0\n") << u"real"_s << QString() << QString() << unparsable;
        QTest::newRow("ffprobe hangs, deaf to SIGTERM") << u"h264_aac.mkv"_s << QByteArray("trap '' TERM; exec sleep 60\n") << u"real"_s << QString() << QString() << u"Error: The operation timed out. The file may be corrupted or unreadable."_s;
        QTest::newRow("ffprobe floods 8 MB of nesting") << u"h264_aac.mkv"_s << QByteArray("head -c 8000000 /dev/zero | tr '\\0' '['\n") << u"real"_s << QString() << QString() << unparsable;
        QTest::newRow("source deleted during its run") << u"subtitles.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"delete source"_s << missing;
        QTest::newRow("source truncated during its run") << u"subtitles.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"truncate source"_s << u"Completed: The converted video is shorter than the source (0:00.4 of 0:01.0) — the source may be damaged."_s;
        QTest::newRow("output folder removed during the run") << u"subtitles.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"remove output folder"_s << missing;
        QTest::newRow("output folder read-only") << u"h264_aac.mkv"_s << QByteArray() << u"readonly"_s << QString() << QString() << u"Error: Permission denied — the file isn't readable."_s;
        QTest::newRow("disk full from the start") << u"subtitles.mkv"_s << QByteArray() << u"full"_s << QString() << QString() << u"Error: No space left on device"_s;
        QTest::newRow("disk fills up mid-write") << u"h264_aac.mkv"_s << QByteArray() << u"fills"_s << QString() << QString() << u"Error: File too large"_s;
        QTest::newRow("output appears before the run") << u"h264_aac.mkv"_s << QByteArray() << u"real"_s << QString() << u"plant output"_s << u"Skipped: Skipped — output file already exists"_s;
        QTest::newRow("ffmpeg can't write the sidecars; output appears meanwhile") << u"subtitles.mkv"_s << QByteArray() << u"nosrt"_s << u"srt"_s << u"plant output"_s << u"Completed: 3 subtitle tracks failed to extract"_s;
        QTest::newRow("output appears as ffmpeg starts") << u"h264_aac.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"plant output"_s << u"Completed"_s;
    }
    // clang-format on
    void faultsLeaveNothingBehind() {
        QFETCH(QString, media);
        QFETCH(QByteArray, ffprobe);
        QFETCH(QString, mode);
        QFETCH(QString, hold);
        QFETCH(QString, action);
        QFETCH(QString, outcome);
        useTools(mode, ffprobe);
        // A probe that hangs is given up on sooner than a user would wait.
        FFmpegServiceTesting::setProbeTimeout(ffprobe.contains("sleep") ? 1.0 : 30.0);
        if (!hold.isEmpty()) {
            touch(bin + u"/hold-"_s + hold);
        }
        const QUuid id = addCopies(media, {u"clip"_s}).first();
        const QString source = in(u"clip.mkv"_s);
        const auto act = [&] {
            if (action == u"cancel") {
                service->cancelItem(id);
            } else if (action == u"delete source") {
                ledger->forget(source);
                QFile::remove(source);
            } else if (action == u"truncate source") {
                ledger->forget(source);
                QFile::resize(source, QFileInfo(source).size() / 2);
            } else if (action == u"remove output folder") {
                QDir(out({})).removeRecursively();
            } else if (action == u"plant output") {
                // Once its run has begun, the name is claimed: the file can't be made.
                QCOMPARE(ledger->plant(out(u"clip.mp4"_s), "someone else's file"), hold.isEmpty());
            }
        };
        if (hold.isEmpty()) {
            act();
        }
        service->startBatch();
        if (!hold.isEmpty()) {
            QTRY_VERIFY_WITH_TIMEOUT(started(hold), runTimeout);
            act();
            touch(bin + u"/go-"_s + hold);
        }
        QVERIFY(DiskLedger::settled(*service));
        QCOMPARE(DiskLedger::outcome(*service->item(id)), outcome);
        const QStringList problems = ledger->problems(service.get());
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }

    // clang-format off
    void userActionsInAnyOrder_data() {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("actions");
        QTest::addColumn<QString>("outcomes");
        QTest::newRow("cancel, retry") << u"real"_s << u"cancel:a retry:a"_s << u"Completed Completed Completed"_s;
        QTest::newRow("cancel, retry, cancel") << u"real"_s << u"cancel:a retry:a cancel:a"_s << u"Cancelled Completed Completed"_s;
        QTest::newRow("before any run began: cancel, retry, cancel") << u"real"_s << u"early cancel:a retry:a cancel:a"_s << u"Cancelled Completed Completed"_s;
        QTest::newRow("cancel, retry, remove") << u"real"_s << u"cancel:a retry:a remove:a"_s << u"gone Completed Completed"_s;
        QTest::newRow("remove one, cancel and retry another") << u"real"_s << u"remove:a cancel:b retry:b"_s << u"gone Completed Completed"_s;
        QTest::newRow("retry while running, remove, cancel waiting") << u"real"_s << u"retry:a remove:b cancel:c"_s << u"Completed gone Cancelled"_s;
        QTest::newRow("cancel, remove, retry all, cancel") << u"real"_s << u"cancel:b remove:b retryAll cancel:a"_s << u"Cancelled gone Completed"_s;
        QTest::newRow("cancel all, retry all") << u"real"_s << u"cancelAll retryAll"_s << u"Completed Completed Completed"_s;
        QTest::newRow("cancel all, retry all, clear") << u"real"_s << u"cancelAll retryAll clear"_s << u"gone gone gone"_s;
        QTest::newRow("deaf to SIGTERM: cancel, retry") << u"stubborn"_s << u"cancel:a retry:a"_s << u"Completed Completed Completed"_s;
        QTest::newRow("deaf to SIGTERM: remove both") << u"stubborn"_s << u"remove:a remove:b"_s << u"gone gone Completed"_s;
        QTest::newRow("deaf to SIGTERM: cancel all, retry all, clear") << u"stubborn"_s << u"cancelAll retryAll clear"_s << u"gone gone gone"_s;
        QTest::newRow("quit") << u"real"_s << u"quit"_s << QString();
        QTest::newRow("deaf to SIGTERM: quit") << u"stubborn"_s << u"quit"_s << QString();
        QTest::newRow("deaf to SIGTERM for good: quit") << u"stubborn"_s << u"hang quit"_s << QString();
    }
    // clang-format on
    // Three items, two running and held after their sidecars, the third waiting; the
    // actions come in one go (or, after "early", before any run began), and the children are let go a moment later (never,
    // after "hang"). A quit destroys the engine, which waits for its runs to take
    // their files with them.
    void userActionsInAnyOrder() {
        QFETCH(QString, mode);
        QFETCH(QString, actions);
        QFETCH(QString, outcomes);
        useTools(mode);
        const QStringList names{u"a"_s, u"b"_s, u"c"_s};
        for (const QString& name : names) {
            touch(bin + u"/hold-"_s + name + u".mp4"_s);
        }
        const QList<QUuid> ids = addCopies(u"subtitles.mkv"_s, names);
        service->startBatch();
        // "early": in the same turn as the start, before any run's body has begun.
        if (!actions.startsWith(u"early")) {
            QTRY_VERIFY_WITH_TIMEOUT(started(u"a.mp4"_s) && started(u"b.mp4"_s), runTimeout);
        }
        QTimer release;
        connect(&release, &QTimer::timeout, [&] {
            for (const QString& name : names) {
                touch(bin + u"/go-"_s + name + u".mp4"_s);
            }
        });
        release.start(300);
        for (const QString& action : actions.split(u' ')) {
            const QString verb = action.section(u':', 0, 0);
            const QUuid id = ids.value(names.indexOf(action.section(u':', 1)));
            if (verb == u"cancel") {
                service->cancelItem(id);
            } else if (verb == u"retry") {
                service->retryItem(id);
            } else if (verb == u"remove") {
                service->removeItem(id);
            } else if (verb == u"cancelAll") {
                service->cancelAll();
            } else if (verb == u"retryAll") {
                service->retryFailed();
            } else if (verb == u"clear") {
                service->clearAll();
            } else if (verb == u"early") {
                continue;
            } else if (verb == u"hang") {
                release.stop();
            } else if (verb == u"quit") {
                service.reset();
                QCOMPARE(Async::BackgroundTask::liveCount(), 0);
            }
        }
        if (service) {
            QVERIFY(DiskLedger::settled(*service));
            QCOMPARE(finalTexts(ids), outcomes);
        }
        const QStringList problems = ledger->problems(service.get());
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }
};

QTEST_GUILESS_MAIN(FaultMatrixTest)
#include "tst_FaultMatrix.moc"
