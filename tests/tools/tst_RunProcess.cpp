#include "TestSupport.h"
#include "async/BackgroundTask.h"
#include "tools/FFmpegService.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <csignal>
#include <sys/types.h>
#include <thread>

using namespace Qt::StringLiterals;
using TestSupport::Outcome;

namespace {

const QString fixedFailure =
    u"The file couldn't be read. It may be corrupted, incomplete, or not a supported video format."_s;

// Runs a shell script as the child; "$1", "$2"… are `args`.
Outcome<QString> runScript(const QString& script, const QStringList& args = {}, double timeout = 20,
                           std::stop_token stop = {}) {
    return TestSupport::run(FFmpegService::runProcess(
        u"/bin/sh"_s, QStringList{u"-c"_s, script, u"sh"_s} + args, timeout, stop));
}

bool processExists(pid_t pid) {
    return ::kill(pid, 0) == 0 || errno != ESRCH;
}

} // namespace

class RunProcessTest final : public QObject {
    Q_OBJECT

    QTemporaryDir dir;

    QString marker(const QString& name) const { return dir.filePath(name); }

private Q_SLOTS:
    void cleanup() { QCOMPARE(Async::BackgroundTask::liveCount(), 0); }

    // clang-format off
    void lastLines_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("count");
        QTest::addColumn<QString>("expected");
        QString twelve;
        for (int i = 1; i <= 12; ++i) {
            twelve += u"line %1\n\n"_s.arg(i);
        }
        QTest::newRow("empty text") << u""_s << 10 << u""_s;
        QTest::newRow("twelve lines keep the last ten, blanks not counted")
            << twelve << 10
            << u"line 3\nline 4\nline 5\nline 6\nline 7\nline 8\nline 9\nline 10\nline 11\nline 12"_s;
        QTest::newRow("fewer lines than the count") << u"a\nb"_s << 10 << u"a\nb"_s;
        QTest::newRow("ends are trimmed of tabs and spaces") << u"\t a \u00A0\n  b\t"_s << 10 << u"a\nb"_s;
        QTest::newRow("carriage returns split progress lines")
            << u"frame=1\rframe=2\r\nerror here\r\n"_s << 2 << u"frame=2\nerror here"_s;
        QTest::newRow("every separator counts")
            << u"a\u2028b\u2029c\u0085d\u000Be\u000Cf"_s << 10 << u"a\nb\nc\nd\ne\nf"_s;
        QTest::newRow("only blanks") << u"  \n\t\n\r\n"_s << 10 << u""_s;
    }
    // clang-format on
    void lastLines() {
        QFETCH(QString, text);
        QFETCH(int, count);
        QFETCH(QString, expected);
        QCOMPARE(FFmpegService::lastLines(text, count), expected);
    }

    void successGivesStandardOutput() {
        const Outcome<QString> result = runScript(u"printf 'héllo\\n'; echo noise >&2"_s);
        QVERIFY(!result.error);
        QCOMPARE(*result.value, u"héllo\n"_s);
    }

    void floodingBothStreamsAtOnceRunsToTheEnd() {
        const Outcome<QString> result = runScript(
            u"(head -c 3000000 /dev/zero | tr '\\0' o) & (head -c 3000000 /dev/zero | tr '\\0' e >&2) & wait"_s);
        QVERIFY(!result.error);
        QCOMPARE(result.value->size(), 3000000);
        QVERIFY(result.value->startsWith(u"ooo"_s));
    }

    void timeOutTerminatesTheChild() {
        QElapsedTimer clock;
        clock.start();
        const Outcome<QString> result = runScript(
            u"trap 'kill $p; touch \"$1\"; exit 0' TERM; sleep 30 >/dev/null 2>&1 & p=$!; wait"_s,
            {marker(u"term-on-timeout"_s)}, 0.3);
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::timedOut);
        QVERIFY2(QFile::exists(marker(u"term-on-timeout"_s)), "the child got no SIGTERM");
        QVERIFY(clock.elapsed() < 10000);
    }

    // clang-format off
    void cancellationWhileRunningEndsTheChild_data() {
        QTest::addColumn<bool>("fromOtherThread");
        QTest::newRow("cancelled on the main thread") << false;
        QTest::newRow("cancelled from another thread") << true;
    }
    // clang-format on
    void cancellationWhileRunningEndsTheChild() {
        QFETCH(bool, fromOtherThread);
        const QString pidFile = marker(u"pid-%1"_s.arg(fromOtherThread));
        std::stop_source source;
        QTimer::singleShot(300, [&source, fromOtherThread] {
            if (fromOtherThread) {
                std::thread([&source] { source.request_stop(); }).join();
            } else {
                source.request_stop();
            }
        });
        const Outcome<QString> result =
            runScript(u"echo $$ > \"$1\"; exec sleep 30"_s, {pidFile}, 60, source.get_token());
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::cancelled);
        QFile file(pidFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const pid_t pid = pid_t(file.readAll().trimmed().toLongLong());
        QVERIFY(pid > 0);
        QVERIFY2(!processExists(pid), "the cancelled child is still there");
    }

    void cancellationBeforeLaunchLetsTheChildFinish() {
        std::stop_source source;
        source.request_stop();
        const Outcome<QString> result =
            runScript(u"sleep 0.3; touch \"$1\"; echo done"_s, {marker(u"ran-to-end"_s)}, 0.1,
                      source.get_token());
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::cancelled);
        QVERIFY2(QFile::exists(marker(u"ran-to-end"_s)), "the child was stopped");
    }

    // The flags decide before the exit status; cancellation before the time-out.
    // clang-format off
    void flagsDecideBeforeTheExitStatus_data() {
        QTest::addColumn<double>("timeout");
        QTest::addColumn<int>("cancelAfterMs");
        QTest::addColumn<int>("expected");
        QTest::newRow("time-out of a child that still exits 0")
            << 0.2 << -1 << int(FFmpegError::Case::timedOut);
        QTest::newRow("cancellation after a time-out")
            << 0.2 << 500 << int(FFmpegError::Case::cancelled);
    }
    // clang-format on
    void flagsDecideBeforeTheExitStatus() {
        QFETCH(double, timeout);
        QFETCH(int, cancelAfterMs);
        QFETCH(int, expected);
        std::stop_source source;
        if (cancelAfterMs >= 0) {
            QTimer::singleShot(cancelAfterMs, [&source] { source.request_stop(); });
        }
        // Ignores SIGTERM and exits 0 after a second.
        const Outcome<QString> result =
            runScript(u"trap '' TERM; sleep 1; exit 0"_s, {}, timeout, source.get_token());
        QVERIFY(result.error);
        QCOMPARE(int(result.error->kind()), expected);
    }

    void missingExecutableFailsAtOnce() {
        QElapsedTimer clock;
        clock.start();
        const Outcome<QString> result =
            TestSupport::run(FFmpegService::runProcess(dir.filePath(u"no-such-tool"_s), {}, 30));
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::processFailed);
        QVERIFY(!result.error->message().isEmpty());
        QVERIFY(clock.elapsed() < 2000);
        QCOMPARE(Async::BackgroundTask::liveCount(), 0); // no watchdog left sleeping
    }

    void invalidUtf8OutputGivesEmptyText() {
        const Outcome<QString> result = runScript(u"printf 'ok\\377\\376'"_s);
        QVERIFY(!result.error);
        QCOMPARE(*result.value, QString());
    }

    // clang-format off
    void failureMessage_data() {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("message");
        QTest::newRow("last ten non-blank lines of standard error")
            << u"for i in 1 2 3 4 5 6 7 8 9 10 11 12; do printf 'err %s\\r\\n\\n' $i >&2; done; exit 2"_s
            << u"err 3\nerr 4\nerr 5\nerr 6\nerr 7\nerr 8\nerr 9\nerr 10\nerr 11\nerr 12"_s;
        QTest::newRow("empty standard error gives the fixed text") << u"exit 1"_s << fixedFailure;
        QTest::newRow("blank standard error is not empty, so the message is")
            << u"printf '  \\n \\n' >&2; exit 1"_s << u""_s;
        QTest::newRow("killed by SIGKILL is a failure") << u"kill -KILL $$"_s << fixedFailure;
        QTest::newRow("killed by SIGTERM is a failure") << u"kill -TERM $$"_s << fixedFailure;
        QTest::newRow("only the kept tail of standard error shows")
            << u"echo FIRST >&2; head -c 40000 /dev/zero | tr '\\0' x >&2; echo >&2; echo LAST >&2; "
               u"sleep 0.3; exit 1"_s
            << u"LAST"_s;
        QTest::newRow("a tail cut inside a character reads as empty")
            << u"yes é | head -n 20000 | tr -d '\\n' >&2; printf a >&2; sleep 0.3; exit 1"_s
            << fixedFailure;
    }
    // clang-format on
    void failureMessage() {
        QFETCH(QString, script);
        QFETCH(QString, message);
        QTest::ignoreMessage(QtCriticalMsg,
                             QRegularExpression(u"^Process failed \\(exit [1-9][0-9]*\\):\n"_s));
        const Outcome<QString> result = runScript(script);
        QVERIFY2(result.error, "a failed child read as success");
        QCOMPARE(result.error->kind(), FFmpegError::Case::processFailed);
        if (message == u"LAST") {
            QVERIFY(!result.error->message().contains(u"FIRST"_s));
            QVERIFY(result.error->message().endsWith(u"\nLAST"_s));
        } else {
            QCOMPARE(result.error->message(), message);
        }
    }

    void mainThreadRunsWhileTheChildRuns() {
        int ticks = 0;
        QTimer ticker;
        ticker.setInterval(20);
        connect(&ticker, &QTimer::timeout, [&ticks] { ++ticks; });
        ticker.start();
        QElapsedTimer clock;
        clock.start();
        const Outcome<QString> result = runScript(u"sleep 2; echo done"_s);
        QVERIFY(!result.error);
        QVERIFY(clock.elapsed() >= 2000);
        // A blocked main thread would tick once or not at all.
        QVERIFY2(ticks >= 50, qPrintable(u"%1 ticks"_s.arg(ticks)));
    }
};

QTEST_GUILESS_MAIN(RunProcessTest)
#include "tst_RunProcess.moc"
