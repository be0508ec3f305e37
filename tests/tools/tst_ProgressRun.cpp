#include "TestSupport.h"
#include "tools/ProgressBuffer.h"

#include <QFile>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <csignal>

using namespace Qt::StringLiterals;
using TestSupport::Outcome;

namespace {

// Collects reported fractions; called from wherever the runner reports.
struct Reports {
    QMutex lock;
    QList<double> fractions;
    FFmpegService::ProgressCallback callback() {
        return [this](double fraction) {
            const QMutexLocker guard(&lock);
            fractions.append(fraction);
        };
    }
};

Outcome<bool> runWithProgress(const QStringList& arguments, double duration, Reports& reports,
                              std::stop_token stop = {}) {
    return TestSupport::run([](QStringList args, double total, FFmpegService::ProgressCallback cb,
                               std::stop_token token) -> QCoro::Task<bool> {
        co_await FFmpegService::runFFmpegWithProgress(args, total, cb, token);
        co_return true;
    }(arguments, duration, reports.callback(), stop));
}

} // namespace

class ProgressRunTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;

private Q_SLOTS:
    void cleanup() {
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
    }

    // clang-format off
    void progressFraction_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<double>("duration");
        QTest::addColumn<double>("fraction"); // -1: nothing reported
        QTest::newRow("half way") << u"frame=1 time=00:00:05.00 bitrate=1"_s << 10.0 << 0.5;
        QTest::newRow("hours, minutes, hundredths") << u"time=01:01:00.50"_s << 7321.0 << 0.5;
        QTest::newRow("beyond the end is exactly 1") << u"time=00:00:30.00"_s << 10.0 << 1.0;
        QTest::newRow("the earliest of two positions") << u"time=00:00:02.00\rtime=00:00:08.00"_s << 10.0 << 0.2;
        QTest::newRow("a sign is no match") << u"time=-00:00:01.00"_s << 10.0 << -1.0;
        QTest::newRow("N/A is no match") << u"time=N/A bitrate=N/A"_s << 10.0 << -1.0;
        QTest::newRow("three-digit hours are no match") << u"time=100:00:00.00"_s << 10.0 << -1.0;
        QTest::newRow("no duration, no report") << u"time=00:00:05.00"_s << 0.0 << -1.0;
    }
    // clang-format on
    void progressFraction() {
        QFETCH(QString, text);
        QFETCH(double, duration);
        QFETCH(double, fraction);
        const std::optional<double> reported = FFmpegService::progressFraction(text, duration);
        QCOMPARE(reported.value_or(-1.0), fraction);
    }

    void characterSplitAcrossChunksWaitsForItsEnd() {
        ProgressBuffer buffer;
        const QByteArray line = u"é time=00:00:04.00"_s.toUtf8();
        QCOMPARE(buffer.appendAndDecode(line.first(1)), QString());
        const QString text = buffer.appendAndDecode(line.sliced(1));
        QCOMPARE(text, u"é time=00:00:04.00"_s);
        QCOMPARE(FFmpegService::progressFraction(text, 8.0), std::optional(0.5));
    }

    void timeSplitAcrossChunksIsNotReported() {
        ProgressBuffer buffer;
        const QString first = buffer.appendAndDecode("frame=9 tim");
        const QString second = buffer.appendAndDecode("e=00:00:04.00 speed=1x");
        QVERIFY(!first.isEmpty() && !second.isEmpty());
        QVERIFY(!FFmpegService::progressFraction(first, 8.0));
        QVERIFY(!FFmpegService::progressFraction(second, 8.0));
    }

    void bytesThatNeverDecodeAreHeldOnlyUpToTheLimit() {
        ProgressBuffer buffer;
        const QByteArray junk(4096, '\xff');
        qsizetype fed = 0;
        QString text;
        while (text.isEmpty() && fed < 200000) {
            const QByteArray chunk = fed == 0 ? QByteArray("time=00:00:03.00 ") + junk : junk;
            text = buffer.appendAndDecode(chunk);
            fed += chunk.size();
        }
        QVERIFY2(fed > ProgressBuffer::pendingDecodeLimit, "reported before the limit");
        QVERIFY(fed <= ProgressBuffer::pendingDecodeLimit + junk.size());
        QVERIFY(text.contains(QChar::ReplacementCharacter));
        QCOMPARE(FFmpegService::progressFraction(text, 6.0), std::optional(0.5));
        // Reporting goes on with the next chunk.
        QCOMPARE(buffer.appendAndDecode("time=00:00:06.00"), u"time=00:00:06.00"_s);
    }

    void tailTrimmedInsideACharacterStillReads() {
        ProgressBuffer buffer;
        const QByteArray accents = u"é"_s.toUtf8().repeated(20000);
        buffer.appendAndDecode(accents);
        buffer.appendAndDecode("b"); // pushes the kept tail's start into a character
        const QString text = buffer.finish("\nError opening output");
        QVERIFY(text.startsWith(QChar::ReplacementCharacter));
        QVERIFY(text.endsWith(u"éb\nError opening output"_s));
        QCOMPARE(FFmpegService::lastLines(text, 10).section(u'\n', -1), u"Error opening output"_s);
    }

    // clang-format off
    void failureOfTheChild_data() {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<QString>("message");
        QTest::newRow("nonzero exit gives its code and last lines")
            << QByteArray("printf 'a\\n\\n[out @ 0x1] b\\r\\n' >&2; exit 3\n") << u"ffmpeg exited with code 3\na\n[out @ 0x1] b"_s;
        QTest::newRow("nothing on stderr ends in the line feed")
            << QByteArray("exit 1\n") << u"ffmpeg exited with code 1\n"_s;
        QTest::newRow("killed by a signal is never success")
            << QByteArray("kill -KILL $$\n") << u"ffmpeg exited with code 137\n"_s;
    }
    // clang-format on
    void failureOfTheChild() {
        QFETCH(QByteArray, script);
        QFETCH(QString, message);
        TestSupport::installFakeTool(work, u"ffmpeg"_s, script);
        QTest::ignoreMessage(QtCriticalMsg,
                             QRegularExpression(u"^FFmpeg failed \\(exit \\d+\\):"_s));
        Reports reports;
        const Outcome<bool> result = runWithProgress({}, 10, reports);
        QVERIFY(result.error);
        QCOMPARE(*result.error, FFmpegError::remuxFailed(message));
        QVERIFY(reports.fractions.isEmpty());
    }

    void childThatCannotStart() {
        const QString bin = TestSupport::installFakeTool(work, u"ffmpeg"_s, "exit 0\n");
        QFile::setPermissions(bin + u"/ffmpeg"_s, QFile::ReadOwner | QFile::WriteOwner);
        Reports reports;
        const Outcome<bool> result = runWithProgress({}, 10, reports);
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::remuxFailed);
        QVERIFY(!result.error->message().startsWith(u"ffmpeg exited"_s));
    }

    void reportsEachPositionThenOne() {
        TestSupport::installFakeTool(
            work, u"ffmpeg"_s,
            "for t in 01 02 03; do printf 'size=1 time=00:00:%s.00 x\\r' $t >&2;"
            " sleep 0.1; done; exit 0\n");
        Reports reports;
        QVERIFY(!runWithProgress({}, 4, reports).error);
        QCOMPARE(reports.fractions, QList<double>({0.25, 0.5, 0.75, 1.0}));
        Reports unknownLength;
        QVERIFY(!runWithProgress({}, 0, unknownLength).error);
        QCOMPARE(unknownLength.fractions, QList<double>({1.0}));
    }

    void cancellationEndsTheChild() {
        const QString bin = TestSupport::installFakeTool(
            work, u"ffmpeg"_s, "echo $$ > \"$here/pid\"; exec sleep 30\n");
        std::stop_source source;
        QTimer::singleShot(300, [&source] { source.request_stop(); });
        Reports reports;
        const Outcome<bool> result = runWithProgress({}, 10, reports, source.get_token());
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::cancelled);
        QFile pidFile(bin + u"/pid"_s);
        QVERIFY(pidFile.open(QIODevice::ReadOnly));
        const pid_t pid = pid_t(pidFile.readAll().trimmed().toLongLong());
        QVERIFY(pid > 0 && ::kill(pid, 0) != 0);
        QVERIFY(reports.fractions.isEmpty());
    }

    void exitZeroAfterCancellationIsSuccess() {
        TestSupport::installFakeTool(work, u"ffmpeg"_s,
                                     "trap 'exit 0' TERM; sleep 30 >/dev/null 2>&1 & wait\n");
        std::stop_source source;
        QTimer::singleShot(300, [&source] { source.request_stop(); });
        Reports reports;
        QVERIFY(!runWithProgress({}, 10, reports, source.get_token()).error);
        QCOMPARE(reports.fractions, QList<double>({1.0}));
    }

    // A real ffmpeg over twenty seconds of media, read at ten times its rate so that
    // it prints its position several times along the way.
    void realRunReportsIncreasingFractions() {
        const QString source =
            TestSupport::copyInto(work, TestSupport::mediaPath(u"long_20s.mkv"_s));
        Reports reports;
        const Outcome<bool> result =
            runWithProgress({u"-readrate"_s, u"10"_s, u"-i"_s, source, u"-c"_s, u"copy"_s, u"-f"_s,
                             u"null"_s, u"-"_s},
                            20.0, reports);
        QVERIFY(!result.error);
        const QList<double> fractions = reports.fractions;
        QVERIFY2(fractions.size() >= 4, qPrintable(QString::number(fractions.size())));
        QVERIFY(std::is_sorted(fractions.begin(), fractions.end()));
        QVERIFY(fractions.first() < 0.5);
        QCOMPARE(fractions.last(), 1.0);
    }
};

QTEST_GUILESS_MAIN(ProgressRunTest)
#include "tst_ProgressRun.moc"
