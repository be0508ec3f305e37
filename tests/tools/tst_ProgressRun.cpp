#include "TestSupport.h"
#include "tools/ProgressBuffer.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

class ProgressRunTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;

private Q_SLOTS:
    // A stand-in ffmpeg alone, and the failures it acts, are logged as critical.
    void initTestCase() { QLoggingCategory::setFilterRules(u"com.morvane.*.critical=false"_s); }

    void progressFraction() {
        using FFmpegService::progressFraction;
        QCOMPARE(progressFraction(u"frame=1 time=01:01:00.50 bitrate=1"_s, 7321.0),
                 std::optional(0.5));
        QCOMPARE(progressFraction(u"time=00:00:30.00"_s, 10.0), std::optional(1.0)); // past the end
        // A sign or three-digit hours are no match.
        QCOMPARE(progressFraction(u"time=-00:00:01.00 time=100:00:00.00"_s, 10.0), std::nullopt);
    }

    // A chunk is decoded once its characters are whole; the kept tail may start
    // inside a character.
    void bufferDecodesWholeCharacters() {
        ProgressBuffer buffer;
        const QByteArray line = u"é time=00:00:04.00"_s.toUtf8();
        QCOMPARE(buffer.appendAndDecode(line.first(1)), QString());
        QCOMPARE(buffer.appendAndDecode(line.sliced(1)), u"é time=00:00:04.00"_s);

        ProgressBuffer tail;
        tail.appendAndDecode(u"é"_s.toUtf8().repeated(20000));
        tail.appendAndDecode("b"); // pushes the kept tail's start into a character
        QCOMPARE(tail.finish("\nError opening output"), QChar::ReplacementCharacter +
                                                            u"é"_s.repeated(16383) +
                                                            u"b\nError opening output"_s);
    }

    // A stand-in ffmpeg: the fractions reported, then ffmpeg's last lines (its
    // warnings, on a success) or the error's description. The exit status decides
    // before a cancellation.
    // clang-format off
    void run_data() {
        QTest::addColumn<QByteArray>("script");
        QTest::addColumn<double>("duration");
        QTest::addColumn<bool>("cancel");
        QTest::addColumn<QList<double>>("fractions");
        QTest::addColumn<QString>("expected");
        const QByteArray progress = "printf 'ffmpeg version 5.1\\n  built with gcc\\nInput #0, matroska\\n' >&2\n"
                                    "for t in 01 02 03; do printf 'size=1 time=00:00:%s.00 x\\r' $t >&2; sleep 0.1; done\n"
                                    "printf '\\n[mp4 @ 0x1] Timestamps are unset\\nvideo:1kB audio:0kB\\n' >&2\n";
        QTest::newRow("each position, then 1; warnings without the report") << progress << 4.0 << false << QList<double>{0.25, 0.5, 0.75, 1.0} << u"[mp4 @ 0x1] Timestamps are unset"_s;
        QTest::newRow("no duration: only the 1 at the end") << progress << 0.0 << false << QList<double>{1.0} << u"[mp4 @ 0x1] Timestamps are unset"_s;
        QTest::newRow("nonzero exit gives its code and last lines") << QByteArray("printf 'a\\n\\n[out @ 0x1] b\\r\\n' >&2; exit 3\n") << 10.0 << false << QList<double>() << u"Remux failed: ffmpeg exited with code 3\na\n[out @ 0x1] b"_s;
        QTest::newRow("nothing on stderr ends in the line feed") << QByteArray("exit 1\n") << 10.0 << false << QList<double>() << u"Remux failed: ffmpeg exited with code 1\n"_s;
        QTest::newRow("killed by a signal is never success") << QByteArray("kill -KILL $$\n") << 10.0 << false << QList<double>() << u"Remux failed: ffmpeg exited with code 137\n"_s;
        QTest::newRow("a last character cut short still shows") << QByteArray("printf 'bad \\303' >&2; exit 1\n") << 10.0 << false << QList<double>() << u"Remux failed: ffmpeg exited with code 1\nbad \uFFFD"_s;
        QTest::newRow("cancellation ends the child") << QByteArray("exec sleep 30\n") << 10.0 << true << QList<double>() << u"Remux was cancelled."_s;
        QTest::newRow("exit 0 after a cancellation is success") << QByteArray("trap 'exit 0' TERM; sleep 30 >/dev/null 2>&1 & wait\n") << 10.0 << true << QList<double>{1.0} << u""_s;
    }
    // clang-format on
    void run() {
        QFETCH(QByteArray, script);
        QFETCH(double, duration);
        QFETCH(bool, cancel);
        QFETCH(QList<double>, fractions);
        QFETCH(QString, expected);
        TestSupport::installFakeTool(work, u"ffmpeg"_s, script);
        std::stop_source source;
        if (cancel) {
            QTimer::singleShot(300, [&source] { source.request_stop(); });
        }
        QList<double> reported;
        const TestSupport::Outcome<QString> result =
            TestSupport::run(FFmpegService::runFFmpegWithProgress(
                {}, duration, [&reported](double f) { reported.append(f); }, source.get_token()));
        QCOMPARE(reported, fractions);
        QCOMPARE(result.error ? result.error->localizedDescription() : *result.value, expected);
    }
};

QTEST_GUILESS_MAIN(ProgressRunTest)
#include "tst_ProgressRun.moc"
