#include "TestSupport.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Streams = QList<SubtitleStream>;

class SubtitleExtractionTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;

private Q_SLOTS:
    // A failed run's log is no part of what the caller is told.
    void initTestCase() { QLoggingCategory::setFilterRules(u"com.morvane.*.critical=false"_s); }

    // The sidecars' names, by stream index. A source under "src/" has its sidecars
    // planned into the folder above, where only the names taken there count.
    // clang-format off
    void plan_data() {
        QTest::addColumn<QString>("input");
        QTest::addColumn<Streams>("streams");
        QTest::addColumn<QStringList>("taken"); // existing files, and "reserved:" names
        QTest::addColumn<QStringList>("expected");
        const QString movie = u"Movie.mkv"_s;
        const auto stream = [](int index, const char* codec, std::optional<QString> language) { return SubtitleStream{index, QString::fromLatin1(codec), language}; };
        QTest::newRow("one stream, eng") << movie << Streams{stream(2, "subrip", u"eng"_s)} << QStringList() << QStringList{u"2:Movie.eng.srt"_s};
        QTest::newRow("one stream, und") << movie << Streams{stream(2, "subrip", u"und"_s)} << QStringList() << QStringList{u"2:Movie.srt"_s};
        QTest::newRow("one stream, no language") << movie << Streams{stream(2, "ass", {})} << QStringList() << QStringList{u"2:Movie.srt"_s};
        QTest::newRow("three without language, numbered by position") << movie << Streams{stream(5, "subrip", {}), stream(7, "ass", {}), stream(9, "webvtt", {})} << QStringList() << QStringList{u"5:Movie.0.srt"_s, u"7:Movie.1.srt"_s, u"9:Movie.2.srt"_s};
        QTest::newRow("und and none") << movie << Streams{stream(2, "subrip", u"und"_s), stream(3, "subrip", {})} << QStringList() << QStringList{u"2:Movie.und.srt"_s, u"3:Movie.1.srt"_s};
        QTest::newRow("two eng: the plan's own claim counts") << movie << Streams{stream(2, "subrip", u"eng"_s), stream(3, "ass", u"eng"_s)} << QStringList() << QStringList{u"2:Movie.eng.srt"_s, u"3:Movie.eng.1.srt"_s};
        QTest::newRow("existing files are stepped over") << movie << Streams{stream(2, "subrip", u"eng"_s)} << QStringList{u"Movie.eng.srt"_s, u"Movie.eng.1.srt"_s} << QStringList{u"2:Movie.eng.2.srt"_s};
        QTest::newRow("a reserved name counts as taken") << movie << Streams{stream(2, "subrip", {})} << QStringList{u"reserved:Movie.srt"_s} << QStringList{u"2:Movie.1.srt"_s};
        QTest::newRow("bitmap streams are not kept, so one text stream stands alone") << movie << Streams{stream(2, "hdmv_pgs_subtitle", u"eng"_s), stream(3, "subrip", u"und"_s)} << QStringList() << QStringList{u"3:Movie.srt"_s};
        QTest::newRow("slashes and control characters become underscores") << movie << Streams{stream(2, "subrip", u"../x/\u0001y\u007F"_s)} << QStringList() << QStringList{u"2:Movie..._x__y_.srt"_s};
        QTest::newRow("only the output folder counts") << u"src/Movie.mkv"_s << Streams{stream(4, "subrip", u"eng"_s), stream(7, "ass", u"fre"_s)} << QStringList{u"src/Movie.eng.srt"_s, u"Movie.fre.srt"_s} << QStringList{u"4:Movie.eng.srt"_s, u"7:Movie.fre.1.srt"_s};
        // Qt's arg() would read a "%1" of the name or the language as its own.
        QTest::newRow("percent signs stay as they are") << u"Show %1 %2.mkv"_s << Streams{stream(2, "subrip", u"%2"_s)} << QStringList{u"Show %1 %2.%2.srt"_s} << QStringList{u"2:Show %1 %2.%2.1.srt"_s};
    }
    // clang-format on
    void plan() {
        QFETCH(QString, input);
        QFETCH(Streams, streams);
        QFETCH(QStringList, taken);
        QFETCH(QStringList, expected);
        QTemporaryDir folder;
        QDir(folder.path()).mkdir(u"src"_s);
        QSet<QString> reserved;
        for (const QString& name : taken) {
            if (name.startsWith(u"reserved:")) {
                reserved.insert(folder.filePath(name.sliced(9)));
            } else {
                QVERIFY(QFile(folder.filePath(name)).open(QIODevice::NewOnly));
            }
        }
        QStringList names;
        for (const FFmpegService::SubtitleExtractionPlan& plan :
             FFmpegService::planSubtitleExtraction(
                 folder.filePath(input), streams,
                 input.contains(u'/') ? std::optional(folder.path()) : std::nullopt, reserved)) {
            QCOMPARE(QFileInfo(plan.url).absolutePath(), folder.path());
            names.append(QString::number(plan.streamIndex) + u':' + QFileInfo(plan.url).fileName());
        }
        QCOMPARE(names, expected);
    }

    // Over the empty claims the caller makes, the run writes each sidecar; what did
    // not come out is counted, and after a failed run an empty claim did not.
    void extractionCountsWhatIsMissing() {
        const QString source =
            TestSupport::copyInto(work, TestSupport::mediaPath(u"subtitles.mkv"_s));
        const QList<FFmpegService::SubtitleExtractionPlan> plans =
            FFmpegService::planSubtitleExtraction(
                source, TestSupport::run(FFmpegService::probe(source)).value->subtitleStreams,
                std::nullopt, {});
        for (const FFmpegService::SubtitleExtractionPlan& plan : plans) {
            QVERIFY(QFile(plan.url).open(QIODevice::NewOnly));
        }
        QCOMPARE(TestSupport::run(FFmpegService::extractSubtitles(source, plans)).value,
                 std::optional(0));
        QFile last(plans.value(2).url);
        QVERIFY(last.open(QIODevice::ReadOnly) && last.readAll().startsWith("1\n00:00:0"));
        // Writes the first two of the three, then fails.
        TestSupport::installFakeTool(work, u"ffmpeg"_s,
                                     "n=0; for a; do case \"$a\" in *.srt*) n=$((n+1));"
                                     " [ $n -le 2 ] && echo x > \"$a\";; esac; done; exit 1\n");
        QVERIFY(QFile(plans.value(2).url).resize(0));
        QCOMPARE(TestSupport::run(FFmpegService::extractSubtitles(source, plans)).value,
                 std::optional(1));
    }
};

QTEST_GUILESS_MAIN(SubtitleExtractionTest)
#include "tst_SubtitleExtraction.moc"
