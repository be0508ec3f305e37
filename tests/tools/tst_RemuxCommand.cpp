#include "TestSupport.h"

#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using Plans = QList<FFmpegService::SubtitleExtractionPlan>;

class RemuxCommandTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;
    QString bin;

private Q_SLOTS:
    // A stand-in ffmpeg that keeps the command line it is given, one argument a line.
    void initTestCase() {
        bin = TestSupport::installFakeTool(work, u"ffmpeg"_s,
                                           "printf '%s\\n' \"$@\" > \"$here/arguments\"\n");
    }

    // clang-format off
    void remux_data() {
        QTest::addColumn<MediaInfo>("info");
        QTest::addColumn<Plans>("sidecars");
        QTest::addColumn<QStringList>("expected");
        const auto media = [](const char* video, const char* audio = nullptr, const QList<SubtitleStream>& subtitles = {}) {
            MediaInfo info;
            info.videoCodec = QString::fromLatin1(video);
            info.audioCodec = audio ? std::optional(QString::fromLatin1(audio)) : std::nullopt;
            info.subtitleStreams = subtitles;
            return info;
        };
        const QStringList video{u"-i"_s, u"IN"_s, u"-map"_s, u"0:v:0"_s, u"-c:v"_s, u"copy"_s};
        const QStringList hvc1{u"-tag:v"_s, u"hvc1"_s};
        const QStringList copy{u"-map"_s, u"0:a:0"_s, u"-c:a"_s, u"copy"_s};
        const QStringList transcode{u"-map"_s, u"0:a:0"_s, u"-c:a"_s, u"aac"_s, u"-ac"_s, u"2"_s, u"-b:a"_s, u"192k"_s};
        const QStringList out{u"-f"_s, u"mp4"_s, u"-y"_s, u"-truncate"_s, u"0"_s, u"OUT"_s};
        QTest::newRow("HEVC, DTS, text at 2 and 4, sidecars after the output") << media("hevc", "dts", {{2, u"subrip"_s, {}}, {4, u"ass"_s, {}}}) << Plans{{2, u"/o/a.srt"_s}, {4, u"/o/b.srt"_s}} << video + hvc1 + transcode + QStringList{u"-map"_s, u"0:2"_s, u"-map"_s, u"0:4"_s, u"-c:s"_s, u"mov_text"_s} + out + QStringList{u"-map"_s, u"0:2"_s, u"-c:s"_s, u"srt"_s, u"-f"_s, u"srt"_s, u"-truncate"_s, u"0"_s, u"/o/a.srt"_s, u"-map"_s, u"0:4"_s, u"-c:s"_s, u"srt"_s, u"-f"_s, u"srt"_s, u"-truncate"_s, u"0"_s, u"/o/b.srt"_s};
        QTest::newRow("no audio: no map, no codec") << media("h264") << Plans() << video + out;
        for (const char* codec : {"aac", "mp3", "alac", "ac3", "eac3", "AC3"}) {
            QTest::addRow("%s is copied", codec) << media("h264", codec) << Plans() << video + copy + out;
        }
        for (const char* codec : {"dts", "flac", "opus", "vorbis", "pcm_s16le", "DTS"}) {
            QTest::addRow("%s is transcoded", codec) << media("h264", codec) << Plans() << video + transcode + out;
        }
        QTest::newRow("upper-case HEVC is tagged") << media("HEVC") << Plans() << video + hvc1 + out;
        QTest::newRow("bitmap only: no subtitle map, no -c:s") << media("h264", nullptr, {{2, u"hdmv_pgs_subtitle"_s, {}}, {3, u"unknown"_s, {}}}) << Plans() << video + out;
        QTest::newRow("text and bitmap: only the text stream, by its index") << media("h264", nullptr, {{2, u"dvd_subtitle"_s, {}}, {3, u"SubRip"_s, {}}}) << Plans() << video + QStringList{u"-map"_s, u"0:3"_s, u"-c:s"_s, u"mov_text"_s} + out;
    }
    // clang-format on
    void remux() {
        QFETCH(MediaInfo, info);
        QFETCH(Plans, sidecars);
        QFETCH(QStringList, expected);
        const TestSupport::Outcome<QString> result = TestSupport::run(FFmpegService::remux(
            u"IN"_s, u"OUT"_s, info, [](double) {}, {}, sidecars));
        QVERIFY2(!result.error, result.error ? result.error->what() : "");
        QFile recorded(bin + u"/arguments"_s);
        QVERIFY(recorded.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(recorded.readAll()).split(u'\n', Qt::SkipEmptyParts), expected);
    }

    // A partial file's name ends in its own suffix: the container is the final name's.
    void partialFilesAreMuxedAsTheirFinalName() {
        MediaInfo prores;
        prores.videoCodec = u"prores"_s;
        const QStringList arguments =
            FFmpegService::remuxArguments(u"IN"_s, u".a.mov.morvane-partial"_s, prores);
        QCOMPARE(arguments.mid(arguments.indexOf(u"-f"_s), 2), QStringList({u"-f"_s, u"mov"_s}));
    }
};

QTEST_GUILESS_MAIN(RemuxCommandTest)
#include "tst_RemuxCommand.moc"
