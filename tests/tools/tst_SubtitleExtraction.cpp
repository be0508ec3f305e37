#include "TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;
using FFmpegService::SubtitleExtractionPlan;
using TestSupport::Outcome;

namespace {

// "index:codec:language;…", with "-" for an absent language.
QList<SubtitleStream> streamsFrom(const QString& text) {
    QList<SubtitleStream> streams;
    for (const QString& part : text.split(u';', Qt::SkipEmptyParts)) {
        const QStringList fields = part.split(u':');
        streams.append(SubtitleStream{fields[0].toInt(), fields[1],
                                      fields[2] == u"-" ? std::nullopt : std::optional(fields[2])});
    }
    return streams;
}

void touch(const QString& path) {
    QFile file(path);
    file.open(QIODevice::WriteOnly);
}

bool readsAsSubRip(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    return lines.size() > 2 && lines[0].trimmed() == u"1" &&
           QRegularExpression(u"^\\d\\d:\\d\\d:\\d\\d,\\d{3} --> \\d\\d:\\d\\d:\\d\\d,\\d{3}"_s)
               .match(lines[1])
               .hasMatch();
}

} // namespace

class SubtitleExtractionTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;

private Q_SLOTS:
    void cleanup() {
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
    }

    // clang-format off
    void planNames_data() {
        QTest::addColumn<QString>("streams");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QStringList>("reserved");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("one stream, eng") << u"2:subrip:eng"_s << QStringList() << QStringList() << QStringList{u"Movie.eng.srt"_s};
        QTest::newRow("one stream, und") << u"2:subrip:und"_s << QStringList() << QStringList() << QStringList{u"Movie.srt"_s};
        QTest::newRow("one stream, no language") << u"2:ass:-"_s << QStringList() << QStringList() << QStringList{u"Movie.srt"_s};
        QTest::newRow("one stream, UND is a language") << u"2:ass:UND"_s << QStringList() << QStringList() << QStringList{u"Movie.UND.srt"_s};
        QTest::newRow("three without language, numbered by position")
            << u"5:subrip:-;7:ass:-;9:webvtt:-"_s << QStringList() << QStringList() << QStringList{u"Movie.0.srt"_s, u"Movie.1.srt"_s, u"Movie.2.srt"_s};
        QTest::newRow("und and none") << u"2:subrip:und;3:subrip:-"_s << QStringList() << QStringList() << QStringList{u"Movie.und.srt"_s, u"Movie.1.srt"_s};
        QTest::newRow("two eng: the plan's own claim counts") << u"2:subrip:eng;3:ass:eng"_s << QStringList() << QStringList() << QStringList{u"Movie.eng.srt"_s, u"Movie.eng.1.srt"_s};
        QTest::newRow("existing files are stepped over")
            << u"2:subrip:eng"_s << QStringList{u"Movie.eng.srt"_s, u"Movie.eng.1.srt"_s} << QStringList() << QStringList{u"Movie.eng.2.srt"_s};
        QTest::newRow("a reserved name counts as taken") << u"2:subrip:-"_s << QStringList() << QStringList{u"Movie.srt"_s} << QStringList{u"Movie.1.srt"_s};
        QTest::newRow("bitmap streams are not kept, so one text stream stands alone")
            << u"2:hdmv_pgs_subtitle:eng;3:subrip:und"_s << QStringList() << QStringList() << QStringList{u"Movie.srt"_s};
        QTest::newRow("upper-case codec counts as text") << u"3:SUBRIP:fre"_s << QStringList() << QStringList() << QStringList{u"Movie.fre.srt"_s};
        QTest::newRow("only bitmap gives no plan") << u"2:dvd_subtitle:eng;3:unknown:-"_s << QStringList() << QStringList() << QStringList();
        QTest::newRow("a slash in the language stays in the folder") << u"2:subrip:../x/y"_s << QStringList() << QStringList() << QStringList{u"Movie..._x_y.srt"_s};
        QTest::newRow("control characters become underscores") << u"2:subrip:e\u0001n\u007Fg"_s << QStringList() << QStringList() << QStringList{u"Movie.e_n_g.srt"_s};
        QTest::newRow("language is otherwise kept as stored") << u"2:subrip:pt-BR"_s << QStringList() << QStringList() << QStringList{u"Movie.pt-BR.srt"_s};
    }
    // clang-format on
    void planNames() {
        QFETCH(QString, streams);
        QFETCH(QStringList, existing);
        QFETCH(QStringList, reserved);
        QFETCH(QStringList, expected);
        QTemporaryDir folder;
        for (const QString& name : existing) {
            touch(folder.filePath(name));
        }
        QSet<QString> taken;
        for (const QString& name : reserved) {
            taken.insert(folder.filePath(name));
        }
        const QList<SubtitleExtractionPlan> plans = FFmpegService::planSubtitleExtraction(
            folder.filePath(u"Movie.mkv"_s), streamsFrom(streams), std::nullopt, taken);
        QStringList names;
        for (const SubtitleExtractionPlan& plan : plans) {
            QCOMPARE(QFileInfo(plan.url).absolutePath(), folder.path());
            names.append(QFileInfo(plan.url).fileName());
        }
        QCOMPARE(names, expected);
    }

    void planKeepsStreamIndicesAndUsesTheOutputFolder() {
        QTemporaryDir source;
        QTemporaryDir elsewhere;
        touch(source.filePath(u"Movie.eng.srt"_s)); // only the output folder is tested
        touch(elsewhere.filePath(u"Movie.fre.srt"_s));
        const QList<SubtitleExtractionPlan> plans = FFmpegService::planSubtitleExtraction(
            source.filePath(u"Movie.mkv"_s), streamsFrom(u"4:subrip:eng;7:ass:fre"_s),
            elsewhere.path(), {});
        QCOMPARE(plans, (QList<SubtitleExtractionPlan>{
                            {4, elsewhere.filePath(u"Movie.eng.srt"_s)},
                            {7, elsewhere.filePath(u"Movie.fre.1.srt"_s)},
                        }));
        QCOMPARE(FFmpegService::subtitleExtractionArguments(u"/in/Movie.mkv"_s, plans),
                 QStringList({u"-y"_s, u"-i"_s, u"/in/Movie.mkv"_s, u"-map"_s, u"0:4"_s, u"-c:s"_s,
                              u"srt"_s, u"-truncate"_s, u"0"_s, plans[0].url, u"-map"_s, u"0:7"_s,
                              u"-c:s"_s, u"srt"_s, u"-truncate"_s, u"0"_s, plans[1].url}));
    }

    // Qt's arg() would read a "%1" of the name or the language as its own.
    void percentSignsInNamesStayAsTheyAre() {
        QTemporaryDir folder;
        touch(folder.filePath(u"Show %1 %2.%2.srt"_s));
        const QList<SubtitleExtractionPlan> plans = FFmpegService::planSubtitleExtraction(
            folder.filePath(u"Show %1 %2.mkv"_s), streamsFrom(u"2:subrip:%2"_s), std::nullopt, {});
        QCOMPARE(plans.size(), 1);
        QCOMPARE(plans[0].url, folder.filePath(u"Show %1 %2.%2.1.srt"_s));
    }

    void realExtractionWritesEverySidecar() {
        QTemporaryDir folder;
        const QString source =
            TestSupport::copyInto(folder, TestSupport::mediaPath(u"subtitles.mkv"_s));
        const MediaInfo info = *TestSupport::run(FFmpegService::probe(source)).value;
        const QList<SubtitleExtractionPlan> plans =
            FFmpegService::planSubtitleExtraction(source, info.subtitleStreams, std::nullopt, {});
        QCOMPARE(plans.size(), 3);
        const Outcome<int> missing =
            TestSupport::run(FFmpegService::extractSubtitles(source, plans));
        QCOMPARE(missing.value, std::optional(0));
        for (const SubtitleExtractionPlan& plan : plans) {
            QVERIFY2(readsAsSubRip(plan.url), qPrintable(plan.url));
        }
    }

    void nonzeroExitCountsOnlyMissingFiles() {
        // Writes the first two of the paths it is given, then fails; the third is left
        // as the empty claim the caller made.
        TestSupport::installFakeTool(work, u"ffmpeg"_s,
                                     "n=0; for a in \"$@\"; do case \"$a\" in *.srt) n=$((n+1));"
                                     " [ $n -le 2 ] && echo x > \"$a\";; esac; done;"
                                     " echo 'Conversion failed!' >&2; exit 1\n");
        QTemporaryDir folder;
        const QList<SubtitleExtractionPlan> plans{{2, folder.filePath(u"a.srt"_s)},
                                                  {3, folder.filePath(u"b.srt"_s)},
                                                  {4, folder.filePath(u"c.srt"_s)}};
        QFile(plans[2].url).open(QIODevice::NewOnly);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Process failed"_s));
        QTest::ignoreMessage(QtCriticalMsg, "Subtitle extraction batch failed: Conversion failed!");
        QTest::ignoreMessage(QtCriticalMsg, "1 of 3 subtitle track(s) failed to extract");
        const Outcome<int> missing =
            TestSupport::run(FFmpegService::extractSubtitles(u"/in/x.mkv"_s, plans));
        QCOMPARE(missing.value, std::optional(1));
    }

    void emptyPlanStartsNoProcess() {
        const QString bin = TestSupport::installFakeTool(work, u"ffmpeg"_s, ": > \"$here/ran\"\n");
        const Outcome<int> missing =
            TestSupport::run(FFmpegService::extractSubtitles(u"/in/x.mkv"_s, {}));
        QCOMPARE(missing.value, std::optional(0));
        QVERIFY(!QFile::exists(bin + u"/ran"_s));
    }

    void missingFfmpegFailsEvenWithAnEmptyPlan() {
        FFmpegServiceTesting::setSharedSupportPath(work.filePath(u"nowhere"_s));
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Bundled FFmpeg missing at"_s));
        const Outcome<int> result =
            TestSupport::run(FFmpegService::extractSubtitles(u"/in/x.mkv"_s, {}));
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::ffmpegNotFound);
    }

    void cancellationPassesThrough() {
        TestSupport::installFakeTool(work, u"ffmpeg"_s, "exec sleep 30\n");
        std::stop_source stop;
        QTimer::singleShot(200, [&stop] { stop.request_stop(); });
        const Outcome<int> result = TestSupport::run(FFmpegService::extractSubtitles(
            u"/in/x.mkv"_s, {{2, work.filePath(u"never.srt"_s)}}, stop.get_token()));
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::cancelled);
    }
};

QTEST_GUILESS_MAIN(SubtitleExtractionTest)
#include "tst_SubtitleExtraction.moc"
