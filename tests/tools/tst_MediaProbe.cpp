#include "TestSupport.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// "duration video pix_fmt tag audio/channels [index:codec:language,…]
// video-length/frames format", with "-" for what is absent.
QString describe(const MediaInfo& info) {
    const auto text = [](const std::optional<QString>& value) { return value.value_or(u"-"_s); };
    const auto number = [](const auto& value) { return value ? QString::number(*value) : u"-"_s; };
    QStringList subtitles;
    for (const SubtitleStream& s : info.subtitleStreams) {
        subtitles.append(u"%1:%2:%3"_s.arg(s.index).arg(s.codec, text(s.language)));
    }
    return u"%1 %2%3 %4 %5 %6/%7 [%8] %9/%10 %11"_s.arg(
        QString::number(info.duration), info.videoCodec,
        info.hasVideoStream ? u""_s : u"(absent)"_s, text(info.pixFmt), text(info.videoCodecTag),
        text(info.audioCodec), number(info.audioChannels), subtitles.join(u','),
        number(info.videoDuration), number(info.videoFrameCount), text(info.formatName));
}

// Quotes, a dash, accents and a "$": the tool must get it whole, as one argument.
const QString awkwardPath = u"/tmp/My \"Clip\" – été $HOME.mkv"_s;

} // namespace

class MediaProbeTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;

private Q_SLOTS:
    // The failures are the subject here, not what they log.
    void initTestCase() { QLoggingCategory::setFilterRules(u"com.morvane.*.critical=false"_s); }

    // What a row learns of a file, or the sentence it shows. An input that is no
    // absolute path is what a stand-in ffprobe prints; the real files come first, so
    // that the tools are found where the build put them.
    // clang-format off
    void probe_data() {
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        const auto media = [](const char* name) { return TestSupport::mediaPath(QString::fromUtf8(name)); };
        const QString unreadable = u"Could not parse ffprobe output."_s;
        QTest::newRow("H.264 and AAC in MKV") << media("h264_aac.mkv") << u"1.021 h264 yuv420p [0][0][0][0] aac/1 [] 1.021/- matroska,webm"_s;
        QTest::newRow("MP4 with mov_text") << media("h264_aac_movtext.mp4") << u"1 h264 yuv420p avc1 aac/1 [2:mov_text:eng] 1/24 mov,mp4,m4a,3gp,3g2,mj2"_s;
        QTest::newRow("ProRes with PCM in MOV") << media("prores.mov") << u"1 prores yuv422p10le apco pcm_s16le/1 [] 1/24 mov,mp4,m4a,3gp,3g2,mj2"_s;
        QTest::newRow("no video") << media("no_video.mkv") << u"1.021 unknown(absent) - - aac/1 [] -/- matroska,webm"_s;
        QTest::newRow("SRT, ASS and WebVTT with languages") << media("subtitles.mkv") << u"1.021 h264 yuv420p [0][0][0][0] aac/1 [2:subrip:eng,3:ass:fre,4:webvtt:ger] 1.021/- matroska,webm"_s;
        QTest::newRow("MP4 cut before its movie header") << media("truncated.mp4") << u"This doesn't look like a video file, or it's too damaged to read."_s;
        QTest::newRow("missing file") << media("gone.mkv") << u"The file is missing or was moved."_s;
        QTest::newRow("format duration that is no number falls back to the stream") << uR"({"streams":[{"codec_type":"video","codec_name":"h264","duration":"3.25"}],"format":{"duration":"N/A"}})"_s << u"3.25 h264 - - -/- [] 3.25/- -"_s;
        QTest::newRow("first video and audio streams decide, cover art included") << uR"({"streams":[{"codec_type":"video","codec_name":"mjpeg","disposition":{"attached_pic":1}},{"codec_type":"video","codec_name":"h264"},{"codec_type":"audio","codec_name":"dts","channels":6},{"codec_type":"audio","codec_name":"aac","channels":2}],"format":{"duration":"1.0"}})"_s << u"1 mjpeg - - dts/6 [] -/- -"_s;
        QTest::newRow("subtitle indices, missing index, empty tags, missing codec") << uR"({"streams":[{"index":3,"codec_type":"subtitle","codec_name":"subrip","tags":{"language":"eng"}},{"index":7,"codec_type":"subtitle","codec_name":"ass","tags":{}},{"codec_type":"subtitle","tags":{"language":5}},{"index":9,"codec_type":"subtitle","codec_name":"dvd_subtitle","tags":"eng"}]})"_s << u"0 unknown(absent) - - -/- [3:subrip:eng,7:ass:-,0:unknown:-,9:dvd_subtitle:-] -/- -"_s;
        QTest::newRow("Matroska's DURATION tag, and the format's name") << uR"({"streams":[{"codec_type":"video","codec_name":"h264","tags":{"DURATION":"00:01:02.500000000"}}],"format":{"duration":"70.0","format_name":"matroska,webm"}})"_s << u"70 h264 - - -/- [] 62.5/- matroska,webm"_s;
        QTest::newRow("the stream's own duration before the tag, and its frames") << uR"({"streams":[{"codec_type":"video","codec_name":"h264","duration":"2.0","nb_frames":"48","tags":{"DURATION":"00:00:09.0"}}]})"_s << u"2 h264 - - -/- [] 2/48 -"_s;
        QTest::newRow("empty streams") << uR"({"streams":[],"format":"x"})"_s << u"0 unknown(absent) - - -/- [] -/- -"_s;
        QTest::newRow("not JSON") << u"hello"_s << unreadable;
        QTest::newRow("streams holds a non-object") << uR"({"streams":[{},1]})"_s << unreadable;
    }
    // clang-format on
    void probe() {
        QFETCH(QString, input);
        QFETCH(QString, expected);
        QString path = input;
        if (!input.startsWith(u'/')) {
            // It prints `input` only when given the eleven arguments, the path whole.
            TestSupport::installFakeTool(
                work, u"ffprobe"_s,
                "[ $# = 11 ] && [ \"$*\" = '-v error -print_format json -show_streams -show_format "
                "-analyzeduration 100M -probesize 100M " +
                    awkwardPath.toUtf8() + "' ] && cat <<'END'\n" + input.toUtf8() + "\nEND\n");
            path = awkwardPath;
        }
        const TestSupport::Outcome<MediaInfo> result = TestSupport::run(FFmpegService::probe(path));
        QCOMPARE(result.error ? FFmpegService::friendlyMessage(*result.error)
                              : describe(*result.value),
                 expected);
    }

    void missingToolsAreNamed() {
        FFmpegServiceTesting::setSharedSupportPath(work.filePath(u"nowhere"_s));
        const QString output = work.filePath(u"never.mp4"_s);
        QCOMPARE(TestSupport::run(FFmpegService::remux(u"/in/x.mkv"_s, output, {}, {})).error,
                 FFmpegError::ffmpegNotFound());
        QVERIFY(!QFile::exists(output));
        QCOMPARE(TestSupport::run(FFmpegService::probe(awkwardPath)).error,
                 FFmpegError::ffprobeNotFound());
    }
};

QTEST_GUILESS_MAIN(MediaProbeTest)
#include "tst_MediaProbe.moc"
