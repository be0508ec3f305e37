#include "TestSupport.h"
#include "async/BackgroundTask.h"
#include "tools/FFmpegService.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

class RunProcessTest final : public QObject {
    Q_OBJECT

    QTemporaryDir dir;

private Q_SLOTS:
    // The failures are the subject here, not what they log.
    void initTestCase() { QLoggingCategory::setFilterRules(u"com.morvane.*.critical=false"_s); }
    void cleanup() { QCOMPARE(Async::BackgroundTask::liveCount(), 0); }

    // A shell script as the child, with a marker path as its "$1": its standard
    // output, or the error's description. The flags decide before the exit status,
    // a cancellation before a time-out; a child cancelled before its launch runs on.
    // clang-format off
    void run_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<double>("timeout");
        QTest::addColumn<int>("cancelAfterMs"); // 0: before the launch; -1: never
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("touched");
        const QString fixed = u"Process failed: The file couldn't be read. It may be corrupted, incomplete, or not a supported video format."_s;
        const QString onTerm = u"trap 'kill $p; touch \"$1\"; exit 0' TERM; sleep 30 >/dev/null 2>&1 & p=$!; wait"_s;
        const QString cancelled = u"Remux was cancelled."_s;
        // Both pipes are drained at once, or the child blocks on a full one.
        QTest::newRow("standard output, both pipes flooded") << u"printf 'héllo'; (head -c 3000000 /dev/zero | tr '\\0' o) & (head -c 3000000 /dev/zero | tr '\\0' e >&2) & wait"_s << 20.0 << -1 << u"héllo"_s + QString(3000000, u'o') << false;
        QTest::newRow("output that is no UTF-8 is empty") << u"printf 'ok\\377\\376'"_s << 20.0 << -1 << u""_s << false;
        QTest::newRow("last ten non-blank lines, each separator counts, ends trimmed") << u"printf 'x\\ny\\nz\\n1\\n\\n \\t2\\302\\240 \\r3\\r\\n4\\342\\200\\2505\\342\\200\\2516\\302\\2057\\v8\\f9\\n10' >&2; exit 2"_s << 20.0 << -1 << u"Process failed: 1\n2\n3\n4\n5\n6\n7\n8\n9\n10"_s << false;
        QTest::newRow("empty standard error gives the fixed text") << u"exit 1"_s << 20.0 << -1 << fixed << false;
        QTest::newRow("blank standard error is not empty, so the message is") << u"printf '  \\n\\t\\n' >&2; exit 1"_s << 20.0 << -1 << u"Process failed: "_s << false;
        QTest::newRow("killed by SIGKILL is a failure") << u"kill -KILL $$"_s << 20.0 << -1 << fixed << false;
        QTest::newRow("only the last 32 KiB of standard error are kept") << u"echo FIRST >&2; head -c 40000 /dev/zero | tr '\\0' x >&2; echo >&2; echo LAST >&2; sleep 0.3; exit 1"_s << 20.0 << -1 << u"Process failed: "_s + QString(32768 - 6, u'x') + u"\nLAST"_s << false;
        QTest::newRow("a tail cut inside a character reads as empty") << u"yes é | head -n 20000 | tr -d '\\n' >&2; printf a >&2; sleep 0.3; exit 1"_s << 20.0 << -1 << fixed << false;
        QTest::newRow("time-out of a child that exits 0 on SIGTERM") << onTerm << 0.3 << -1 << u"Operation timed out — the process may be unresponsive."_s << true;
        QTest::newRow("cancelled") << onTerm << 60.0 << 300 << cancelled << true;
        QTest::newRow("cancellation after a time-out") << u"trap '' TERM; sleep 1; exit 0"_s << 0.2 << 500 << cancelled << false;
        QTest::newRow("cancelled before the launch") << u"sleep 0.3; touch \"$1\""_s << 0.1 << 0 << cancelled << true;
    }
    // clang-format on
    void run() {
        QFETCH(QString, script);
        QFETCH(double, timeout);
        QFETCH(int, cancelAfterMs);
        QFETCH(QString, expected);
        QFETCH(bool, touched);
        std::stop_source source;
        if (cancelAfterMs == 0) {
            source.request_stop();
        } else if (cancelAfterMs > 0) {
            QTimer::singleShot(cancelAfterMs, [&source] { source.request_stop(); });
        }
        const QString marker = dir.filePath(QString::fromUtf8(QTest::currentDataTag()));
        const TestSupport::Outcome<QString> result = TestSupport::run(FFmpegService::runProcess(
            u"/bin/sh"_s, {u"-c"_s, script, u"sh"_s, marker}, timeout, source.get_token()));
        QCOMPARE(result.error ? result.error->localizedDescription() : *result.value, expected);
        QCOMPARE(QFile::exists(marker), touched);
    }

    void missingExecutableIsAFailure() {
        const TestSupport::Outcome<QString> result =
            TestSupport::run(FFmpegService::runProcess(dir.filePath(u"no-such-tool"_s), {}, 30));
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::processFailed);
        QVERIFY(!result.error->message().isEmpty());
    }

    // A tool failure's message and the sentence its row shows: its last non-blank
    // line, made readable.
    // clang-format off
    void friendlyMessage_data() {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("expected");
        const QString longPath = u"/"_s + QString(210, u'p');
        // Two UTF-16 units each, one character each.
        const QString astral = QString::fromUcs4(U"\U0001D400");
        QTest::newRow("bracketed component, missing moov") << u"[mov,mp4,m4a,3gp,3g2,mj2 @ 0x5563] moov atom not found"_s << u"The file is incomplete or corrupted (missing movie metadata)."_s;
        QTest::newRow("path, colon, invalid data") << u"/tmp/a.mkv: Invalid data found when processing input"_s << u"This doesn't look like a video file, or it's too damaged to read."_s;
        QTest::newRow("end of file") << u"[matroska @ 0x1] Read error: End of file"_s << u"The file ends unexpectedly — it may be a partial download."_s;
        QTest::newRow("a path of 200 characters keeps its colon, substring still found") << longPath + u": Permission denied"_s << u"Permission denied — the file isn't readable."_s;
        QTest::newRow("a path of 200 characters and an unknown cause stays whole") << longPath + u": Odd failure"_s << longPath + u": Odd failure"_s;
        QTest::newRow("199 characters before the colon is short enough") << QString(199, u'a') + u": Odd failure"_s << u"Odd failure"_s;
        QTest::newRow("199 non-BMP characters are 398 units, still short enough") << astral.repeated(199) + u": Odd failure"_s << u"Odd failure"_s;
        QTest::newRow("200 non-BMP characters before the colon stay whole") << astral.repeated(200) + u": Odd failure"_s << astral.repeated(200) + u": Odd failure"_s;
        QTest::newRow("a line ending in a colon comes back") << u"Stream #0:"_s << u"Stream #0:"_s;
        QTest::newRow("open bracket without close is kept, colon applies") << u"[no close: Weird Thing"_s << u"Weird Thing"_s;
        QTest::newRow("cause right after the bracket") << u"[aac @ 0x1]Too many bits"_s << u"Too many bits"_s;
        QTest::newRow("first colon decides") << u"Error: while reading: Input/output error"_s << u"while reading: Input/output error"_s;
        QTest::newRow("a known cause in an earlier line has no effect") << u"ffmpeg exited with code 1\n[in#0 @ 0x1] moov atom not found\n/x.mp4: Odd\n"_s << u"Odd"_s;
        QTest::newRow("no standard error: the exit code") << u"ffmpeg exited with code 1\n"_s << u"ffmpeg exited with code 1"_s;
        QTest::newRow("a blank message comes back as given") << u"  \n \n"_s << u"  \n \n"_s;
    }
    // clang-format on
    void friendlyMessage() {
        QFETCH(QString, message);
        QFETCH(QString, expected);
        QCOMPARE(FFmpegService::friendlyMessage(FFmpegError::remuxFailed(message)), expected);
    }
};

QTEST_GUILESS_MAIN(RunProcessTest)
#include "tst_RunProcess.moc"
