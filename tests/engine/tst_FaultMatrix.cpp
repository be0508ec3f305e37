#include "DiskLedger.h"
#include "TestSupport.h"
#include "engine/RemuxService.h"

#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Stands in for ffmpeg and ends in the real one ("real" next to it) unless the
// file "mode" asks it to fail the way ffmpeg fails: killed by a signal after a
// partial write, a disk that is full (/dev/full), or, in mode nosrt, failing any run that writes
// sidecars (after a partial write when it writes the video too). A run whose output, or "srt" for a
// run of sidecars alone, has a "hold-<name>" file waits for "go-<name>" first. In mode stubborn it
// ignores SIGTERM.
const QByteArray fakeFfmpeg = R"SH(name=$final
[ -n "$out" ] || name=srt
mode=$(cat "$here/mode")
[ "$mode" = stubborn ] && trap '' TERM
echo "start $name" >> "$here/log"
if [ -e "$here/hold-$name" ]; then
  while [ ! -e "$here/go-$name" ]; do sleep 0.02; done
fi
if [ "$mode" = nosrt ] && case " $* " in *" srt "*) true;; *) false;; esac; then
  [ -n "$out" ] && for a; do case "$a" in *.srt*|*.mp4*) printf partial > "$a";; esac; done
  echo "[srt @ 0x1] Could not write header for output file" >&2; exit 1
fi
[ "$name" = srt ] && exec "$here/real" "$@"
ulimit -c 0
case "$mode" in
  KILL|SEGV) printf partial > "$out"
    printf 'frame=   10 fps=0.0 q=-1.0 size=     256kB time=00:00:00.40 bitrate=5242.9kbits/s \r' >&2
    kill -$mode $$;;
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
        bin = TestSupport::installFakeTool(*tools, u"ffmpeg"_s, fakeFfmpeg, mode.toUtf8());
        QFile::link(support + u"ffmpeg"_s, bin + u"/real"_s);
        QFile::link(ffprobe.isEmpty() ? support + u"ffprobe"_s : probeBin + u"/ffprobe"_s,
                    bin + u"/ffprobe"_s);
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
    QString inDir;  // the folder dropped, where hostile names' outputs go too
    QString banner; // what the drop said it left out
    const QString startDir = QDir::currentPath();

    // Copies `media` to a path given as bytes, which need not be UTF-8.
    static bool writeRaw(const QByteArray& path, const QString& media) {
        QFile source(TestSupport::mediaPath(media));
        const QByteArray bytes = source.open(QIODevice::ReadOnly) ? source.readAll() : QByteArray();
        const int fd = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL, 0644);
        const bool written = fd >= 0 && ::write(fd, bytes.constData(), size_t(bytes.size())) ==
                                            ssize_t(bytes.size());
        return (fd < 0 || ::close(fd) == 0) && written && !bytes.isEmpty();
    }
    // Drops `urls` (the folder by default), runs what they added and gives what went
    // wrong. New files may appear only in `targets`.
    QStringList dropAndRun(QStringList targets = {}, QList<QUrl> urls = {}) {
        DiskLedger disk(root->path(), targets.isEmpty() ? QStringList{inDir} : targets);
        service->setCustomOutputDirectory(std::nullopt); // outputs beside their sources
        service->handleDrop(urls.isEmpty() ? QList<QUrl>{QUrl::fromLocalFile(inDir)} : urls);
        banner = service->dropFeedbackMessage().value_or(QString());
        const bool probed = DiskLedger::settled(*service);
        service->startBatch();
        return probed && DiskLedger::settled(*service) ? disk.problems(service.get())
                                                       : QStringList{u"the queue never settled"_s};
    }

private Q_SLOTS:
    void init() {
        root = std::make_unique<QTemporaryDir>();
        tools = std::make_unique<QTemporaryDir>();
        inDir = root->filePath(u"in"_s);
        // A shell that ran a name would write "pwned" here, under the ledger's eyes.
        QDir::setCurrent(root->path());
        QVERIFY(QDir(root->path()).mkdir(u"in"_s) && QDir(root->path()).mkdir(u"out"_s));
        service = std::make_unique<RemuxService>();
        service->setPostsNotification(false);
        service->setCustomOutputDirectory(out({}).chopped(1));
    }
    void cleanup() {
        service.reset();
        QDir::setCurrent(startDir);
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
        const QByteArray heldCheck = "for last; do :; done\ncase \"$last\" in *.mp4*) echo 'start check' >> \"$here/log\"\n"
                                     "  while [ ! -e \"$here/go-check\" ]; do sleep 0.02; done;; esac\nexec " + realProbe + " \"$@\"\n";
        const QByteArray garbledCheck = "for last; do :; done\ncase \"$last\" in *.mp4*) echo '{'; exit 0;; esac\nexec " + realProbe + " \"$@\"\n";
        QTest::newRow("cancelled during the output check") << u"subtitles.mkv"_s << heldCheck << u"real"_s << u"check"_s << u"cancel"_s << u"Error: Cancelled"_s;
        QTest::newRow("the output can't be read back") << u"subtitles.mkv"_s << garbledCheck << u"real"_s << QString() << QString() << u"Error: The converted file can't be read — the source may be cut short or damaged."_s;
        QTest::newRow("ffmpeg killed mid-write") << u"h264_aac.mkv"_s << QByteArray() << u"KILL"_s << QString() << QString() << u"Error: ffmpeg exited with code 137"_s;
        QTest::newRow("ffmpeg crashes after the sidecars") << u"subtitles.mkv"_s << QByteArray() << u"SEGV"_s << QString() << QString() << u"Error: ffmpeg exited with code 139"_s;
        QTest::newRow("ffmpeg ignores SIGTERM, then finishes") << u"subtitles.mkv"_s << QByteArray() << u"stubborn"_s << u"clip.mp4"_s << u"cancel"_s << u"Error: Cancelled"_s;
        QTest::newRow("ffprobe prints half a document") << u"h264_aac.mkv"_s << QByteArray("printf '{\"streams\": [1,'\n") << u"real"_s << QString() << QString() << unparsable;
        QTest::newRow("ffprobe hangs, deaf to SIGTERM") << u"h264_aac.mkv"_s << QByteArray("trap '' TERM; exec sleep 60\n") << u"real"_s << QString() << QString() << u"Error: The operation timed out. The file may be corrupted or unreadable."_s;
        QTest::newRow("source deleted during its run") << u"subtitles.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"delete source"_s << missing;
        QTest::newRow("source truncated during its run") << u"subtitles.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"truncate source"_s << u"Completed: The converted video is shorter than the source (0:00.4 of 0:01.0) — the source may be damaged."_s;
        QTest::newRow("output folder removed during the run") << u"subtitles.mkv"_s << QByteArray() << u"real"_s << u"clip.mp4"_s << u"remove output folder"_s << missing;
        QTest::newRow("disk full from the start") << u"subtitles.mkv"_s << QByteArray() << u"full"_s << QString() << QString() << u"Error: No space left on device"_s;
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
                QVERIFY(ledger->plant(out(u"clip.mp4"_s), "someone else's file"));
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
        if (action == u"plant output" && !hold.isEmpty()) {
            // A name taken while the run wrote is kept; the output takes the next one.
            QCOMPARE(service->item(id)->outputURL, std::optional(out(u"clip.1.mp4"_s)));
        }
        const QStringList problems = ledger->problems(service.get());
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }

    // clang-format off
    void userActionsInAnyOrder_data() {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("actions");
        QTest::addColumn<QString>("outcomes");
        QTest::newRow("cancel, retry") << u"real"_s << u"cancel:a retry:a"_s << u"Completed, Completed, Completed"_s;
        QTest::newRow("cancel, retry, cancel") << u"real"_s << u"cancel:a retry:a cancel:a"_s << u"Error: Cancelled, Completed, Completed"_s;
        QTest::newRow("before any run began: cancel, retry, cancel") << u"real"_s << u"early cancel:a retry:a cancel:a"_s << u"Error: Cancelled, Completed, Completed"_s;
        QTest::newRow("retry while running, remove, cancel waiting") << u"real"_s << u"retry:a remove:b cancel:c"_s << u"Completed, gone, Error: Cancelled"_s;
        QTest::newRow("cancel, remove, retry all, cancel") << u"real"_s << u"cancel:b remove:b retryAll cancel:a"_s << u"Error: Cancelled, gone, Completed"_s;
        QTest::newRow("cancel all, retry all, clear") << u"real"_s << u"cancelAll retryAll clear"_s << u"gone, gone, gone"_s;
        QTest::newRow("deaf to SIGTERM: cancel, retry") << u"stubborn"_s << u"cancel:a retry:a"_s << u"Completed, Completed, Completed"_s;
        QTest::newRow("deaf to SIGTERM: remove both") << u"stubborn"_s << u"remove:a remove:b"_s << u"gone, gone, Completed"_s;
        QTest::newRow("deaf to SIGTERM: cancel all, retry all, clear") << u"stubborn"_s << u"cancelAll retryAll clear"_s << u"gone, gone, gone"_s;
        QTest::newRow("quit") << u"real"_s << u"quit"_s << QString();
        QTest::newRow("deaf to SIGTERM: quit") << u"stubborn"_s << u"quit"_s << QString();
        QTest::newRow("deaf to SIGTERM for good: quit") << u"stubborn"_s << u"hang quit"_s << QString();
    }
    // clang-format on
    // Three items, two running and held after their sidecars, the third waiting; the
    // actions come in one go (or, after "early", before any run began), and the children are let go
    // a moment later (never, after "hang"). A quit destroys the engine, which waits for its runs to
    // take their files with them.
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
            QCOMPARE(service->item(ids[2])->status, ProcessingStatus::pending); // two at a time
        }
        QTimer release;
        connect(&release, &QTimer::timeout, [&] {
            for (const QString& name : names) {
                touch(bin + u"/go-"_s + name + u".mp4"_s);
            }
        });
        release.start(300);
        // "early" needs nothing more; "hang" keeps the children held for good.
        const QHash<QString, std::function<void(const QUuid&)>> verbs{
            {u"cancel"_s, [&](const QUuid& id) { service->cancelItem(id); }},
            {u"retry"_s, [&](const QUuid& id) { service->retryItem(id); }},
            {u"remove"_s, [&](const QUuid& id) { service->removeItem(id); }},
            {u"cancelAll"_s, [&](const QUuid&) { service->cancelAll(); }},
            {u"retryAll"_s, [&](const QUuid&) { service->retryFailed(); }},
            {u"clear"_s, [&](const QUuid&) { service->clearAll(); }},
            {u"hang"_s, [&](const QUuid&) { release.stop(); }},
            {u"quit"_s, [&](const QUuid&) { service.reset(); }},
            {u"early"_s, [](const QUuid&) {}}};
        for (const QString& action : actions.split(u' ')) {
            verbs[action.section(u':', 0, 0)](ids.value(names.indexOf(action.section(u':', 1))));
        }
        QVERIFY(service || Async::BackgroundTask::liveCount() == 0); // a quit waits for every run
        if (service) {
            QVERIFY(DiskLedger::settled(*service));
            QStringList texts;
            for (const QUuid& id : ids) {
                texts << (service->item(id) ? DiskLedger::outcome(*service->item(id)) : u"gone"_s);
            }
            QCOMPARE(texts.join(u", "_s), outcomes);
        }
        const QStringList problems = ledger->problems(service.get());
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }

    // clang-format off
    void hostileNames_data() {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<QString>("link"); // a link to nowhere, where a file will be named
        QTest::addColumn<QString>("outcome"); // <inDir> stands for the folder
        QTest::newRow("spaces") << QByteArray(" two  spaces .mkv") << QString() << u"Completed"_s;
        QTest::newRow("quotes") << QByteArray("it's a \"clip\".mkv") << QString() << u"Completed"_s;
        QTest::newRow("a newline") << QByteArray("line\nbreak.mkv") << QString() << u"Completed"_s;
        QTest::newRow("a leading dash") << QByteArray("-y -i x.mkv") << QString() << u"Completed"_s;
        QTest::newRow("a colon") << QByteArray("file:clip.mkv") << QString() << u"Completed"_s;
        QTest::newRow("shell syntax") << QByteArray("$(touch pwned) `touch pwned`; touch pwned.mkv") << QString() << u"Completed"_s;
        QTest::newRow("non-ASCII") << u"Ünïcødé 日本.mkv"_s.toUtf8() << QString() << u"Completed"_s;
        QTest::newRow("bytes that are not UTF-8") << QByteArray("bad\xff\xfe.mkv") << QString() << u"Banner: 1 unsupported file skipped"_s;
        QTest::newRow("255 bytes, sidecar names too long") << QByteArray(251, 'a') + ".mkv" << QString() << u"Completed: 3 subtitle tracks failed to extract"_s;
        QTest::newRow("255 bytes, output name too long") << QByteArray(252, 'a') + ".ts" << QString() << u"Error: <inDir>/%1.mp4: File name too long"_s.arg(QString(252, u'a'));
        QTest::newRow("255 bytes of CJK, output name too long") << u"日"_s.repeated(84).toUtf8() + ".ts" << QString() << u"Error: File name too long"_s;
        QTest::newRow("a link to nowhere as the output") << QByteArray("clip.mkv") << u"clip.mp4"_s << u"Skipped: Skipped — output file already exists"_s;
        QTest::newRow("a link to nowhere as a sidecar") << QByteArray("clip.mkv") << u"clip.eng.srt"_s << u"Completed"_s;
    }
    // clang-format on
    void hostileNames() {
        QFETCH(QByteArray, name);
        QFETCH(QString, link);
        QFETCH(QString, outcome);
        const QByteArray path = QFile::encodeName(inDir) + '/' + name;
        // Qt can't name a file whose name isn't UTF-8, so it can't delete it either.
        const auto removeRaw = qScopeGuard([&] { ::unlink(path.constData()); });
        QVERIFY(writeRaw(path, u"subtitles.mkv"_s));
        // Writing through it would put a file outside the folder.
        QVERIFY(link.isEmpty() || QFile::link(root->filePath(u"elsewhere"_s), inDir + u'/' + link));
        const QStringList problems =
            dropAndRun({}, {QUrl::fromEncoded("file://" + path.toPercentEncoding("/"))});
        QCOMPARE(service->items().isEmpty() ? u"Banner: "_s + banner
                                            : DiskLedger::outcome(service->items().first()),
                 outcome.replace(u"<inDir>"_s, inDir));
        QCOMPARE(service->items().size(), outcome.startsWith(u"Banner") ? 0 : 1);
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
    }

    // A folder reachable through itself: the walk ends, and each real file becomes
    // one item.
    void aSymlinkLoopEndsAndAddsRealFilesOnce() {
        QDir().mkdir(inDir + u"/sub"_s);
        QVERIFY(writeRaw(QFile::encodeName(inDir) + "/clip.mkv", u"h264_aac.mkv"_s));
        QVERIFY(writeRaw(QFile::encodeName(inDir) + "/sub/clip2.mkv", u"h264_aac.mkv"_s));
        QFile::link(inDir, inDir + u"/sub/up"_s);
        QFile::link(inDir + u"/sub"_s, inDir + u"/sub/self"_s);
        QFile::link(inDir, inDir + u"/loop.mkv"_s);
        QFile::link(inDir + u"/b.mkv"_s, inDir + u"/a.mkv"_s);
        QFile::link(inDir + u"/a.mkv"_s, inDir + u"/b.mkv"_s);

        const QStringList problems = dropAndRun({inDir, inDir + u"/sub"_s});
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(u'\n')));
        QStringList realFiles;
        for (const RemuxItem& item : service->items()) {
            if (QFileInfo(item.url).isFile()) {
                realFiles << QFileInfo(item.url).canonicalFilePath();
            }
        }
        realFiles.sort();
        QCOMPARE(realFiles, QStringList({inDir + u"/clip.mkv"_s, inDir + u"/sub/clip2.mkv"_s}));
    }
};

QTEST_GUILESS_MAIN(FaultMatrixTest)
#include "tst_FaultMatrix.moc"
