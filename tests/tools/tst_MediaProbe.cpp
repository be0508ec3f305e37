#include "TestSupport.h"
#include "model/FilePath.h"
#include "tools/FFmpegService.h"

#include <QJsonDocument>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace Qt::StringLiterals;
using TestSupport::Outcome;

namespace {

// "index:codec:language" for each subtitle stream, comma-separated; "-" for no language.
QString describeSubtitles(const QList<SubtitleStream>& streams) {
    QStringList parts;
    for (const SubtitleStream& s : streams) {
        parts.append(u"%1:%2:%3"_s.arg(s.index).arg(s.codec, s.language.value_or(u"-"_s)));
    }
    return parts.join(u',');
}

MediaInfo parseDocument(const QString& json) {
    const QJsonObject top = QJsonDocument::fromJson(json.toUtf8()).object();
    const QJsonValue format = top.value("format"_L1);
    return FFmpegService::parseMediaInfo(top.value("streams"_L1).toArray(),
                                         format.isObject() ? std::optional(format.toObject())
                                                           : std::nullopt);
}

const QString none;
const QString remux;

} // namespace

class MediaProbeTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;
    const QString realSupport = TestSupport::bundledSupportPath();

    // A stand-in ffprobe that records its arguments and prints `output`.
    QString installFakeProbe(const QString& output) {
        const QString bin = TestSupport::installFakeTool(
            work, u"ffprobe"_s,
            "printf '%s\\n' \"$@\" > \"$here/arguments\"\ncat \"$here/output\"\n");
        QFile text(bin + u"/output"_s);
        text.open(QIODevice::WriteOnly);
        text.write(output.toUtf8());
        return bin;
    }

private Q_SLOTS:
    void init() { FFmpegServiceTesting::setSharedSupportPath(realSupport); }
    void cleanupTestCase() { FFmpegServiceTesting::setSharedSupportPath(realSupport); }

    // clang-format off
    void formatTimestamp_data() {
        QTest::addColumn<double>("seconds");
        QTest::addColumn<QString>("expected");
        QTest::newRow("zero") << 0.0 << u"00:00:00"_s;
        QTest::newRow("one hour, one minute and 1.9 seconds") << 3661.9 << u"01:01:01"_s;
        QTest::newRow("a hundred hours") << 360000.0 << u"100:00:00"_s;
    }
    // clang-format on
    void formatTimestamp() {
        QFETCH(double, seconds);
        QFETCH(QString, expected);
        QCOMPARE(FFmpegService::formatTimestamp(seconds), expected);
    }

    // clang-format off
    void parseMediaInfo_data() {
        QTest::addColumn<QString>("json");
        QTest::addColumn<double>("duration");
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("audio");
        QTest::addColumn<int>("channels");
        QTest::addColumn<QString>("subtitles");
        QTest::newRow("stream duration when the format has none")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264","duration":"12.5"}],"format":{}})"_s
            << 12.5 << u"h264"_s << none << -1 << u""_s;
        QTest::newRow("format duration that is no number falls back to the stream")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264","duration":"3.25"}],"format":{"duration":"N/A"}})"_s
            << 3.25 << u"h264"_s << none << -1 << u""_s;
        QTest::newRow("numeric format duration counts as none")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264"}],"format":{"duration":7.0}})"_s
            << 0.0 << u"h264"_s << none << -1 << u""_s;
        QTest::newRow("padded duration text is no number")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264"}],"format":{"duration":" 7.0"}})"_s
            << 0.0 << u"h264"_s << none << -1 << u""_s;
        QTest::newRow("audio duration is never used")
            << uR"({"streams":[{"codec_type":"audio","codec_name":"aac","duration":"9.0"}]})"_s
            << 0.0 << u"unknown"_s << u"aac"_s << -1 << u""_s;
        QTest::newRow("first video stream decides, cover art included")
            << uR"({"streams":[{"codec_type":"video","codec_name":"mjpeg","disposition":{"attached_pic":1}},{"codec_type":"video","codec_name":"h264"}],"format":{"duration":"1.0"}})"_s
            << 1.0 << u"mjpeg"_s << none << -1 << u""_s;
        QTest::newRow("only the first of two audio streams counts")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264"},{"codec_type":"audio","codec_name":"dts","channels":6},{"codec_type":"audio","codec_name":"aac","channels":2}]})"_s
            << 0.0 << u"h264"_s << u"dts"_s << 6 << u""_s;
        QTest::newRow("audio without channels")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264"},{"codec_type":"audio","codec_name":"aac"}]})"_s
            << 0.0 << u"h264"_s << u"aac"_s << -1 << u""_s;
        QTest::newRow("subtitle indices, missing index, empty tags, missing codec")
            << uR"({"streams":[{"codec_type":"video","codec_name":"h264"},{"index":3,"codec_type":"subtitle","codec_name":"subrip","tags":{"language":"eng"}},{"index":7,"codec_type":"subtitle","codec_name":"ass","tags":{}},{"codec_type":"subtitle","tags":{"language":5}},{"index":9,"codec_type":"subtitle","codec_name":"dvd_subtitle","tags":"eng"}]})"_s
            << 0.0 << u"h264"_s << none << -1
            << u"3:subrip:eng,7:ass:-,0:unknown:-,9:dvd_subtitle:-"_s;
        QTest::newRow("codec type compared exactly, other types ignored")
            << uR"({"streams":[{"codec_type":"Video","codec_name":"h264"},{"codec_type":"data","codec_name":"bin_data"},{"codec_name":"x"}]})"_s
            << 0.0 << u"unknown"_s << none << -1 << u""_s;
        QTest::newRow("no streams at all")
            << uR"({"streams":[],"format":{"duration":"4.5"}})"_s << 4.5 << u"unknown"_s << none << -1 << u""_s;
    }
    // clang-format on
    void parseMediaInfo() {
        QFETCH(QString, json);
        QFETCH(double, duration);
        QFETCH(QString, video);
        QFETCH(QString, audio);
        QFETCH(int, channels);
        QFETCH(QString, subtitles);
        const MediaInfo info = parseDocument(json);
        QCOMPARE(info.duration, duration);
        QCOMPARE(info.videoCodec, video);
        QCOMPARE(info.hasVideoStream, video != u"unknown");
        QCOMPARE(info.audioCodec, audio.isNull() ? std::nullopt : std::optional(audio));
        QCOMPARE(info.audioChannels, channels < 0 ? std::nullopt : std::optional(channels));
        QCOMPARE(describeSubtitles(info.subtitleStreams), subtitles);
    }

    // The video stream's own length and frame count, which the output check reads;
    // Matroska gives the length only as a "DURATION" tag.
    void videoStreamLengthAndFrames() {
        const MediaInfo mkv = parseDocument(
            uR"({"streams":[{"codec_type":"video","codec_name":"h264","tags":{"DURATION":"00:01:02.500000000"}}],"format":{"duration":"70.0","format_name":"matroska,webm"}})"_s);
        QCOMPARE(mkv.videoDuration, std::optional(62.5));
        QCOMPARE(mkv.formatName, std::optional(u"matroska,webm"_s));
        const MediaInfo mp4 = parseDocument(
            uR"({"streams":[{"codec_type":"video","codec_name":"h264","duration":"2.0","nb_frames":"48","tags":{"DURATION":"00:00:09.0"}}]})"_s);
        QCOMPARE(mp4.videoDuration, std::optional(2.0));
        QCOMPARE(mp4.videoFrameCount, std::optional<qint64>(48));
        const MediaInfo odd = parseDocument(
            uR"({"streams":[{"codec_type":"video","codec_name":"h264","nb_frames":"N/A","tags":{"DURATION":"62.5"}}]})"_s);
        QCOMPARE(odd.videoDuration, std::nullopt);
        QCOMPARE(odd.videoFrameCount, std::nullopt);
    }

    // clang-format off
    void probeRejectsOutputItCannotRead_data() {
        QTest::addColumn<QString>("output");
        QTest::addColumn<bool>("readable");
        QTest::newRow("empty output") << u""_s << false;
        QTest::newRow("not JSON") << u"hello"_s << false;
        QTest::newRow("top level is an array") << u"[1]"_s << false;
        QTest::newRow("empty object") << u"{}"_s << false;
        QTest::newRow("no streams key") << uR"({"format":{}})"_s << false;
        QTest::newRow("streams is no array") << uR"({"streams":{}})"_s << false;
        QTest::newRow("streams holds a non-object") << uR"({"streams":[{},1]})"_s << false;
        QTest::newRow("empty streams is readable") << uR"({"streams":[]})"_s << true;
        QTest::newRow("format that is no object is ignored")
            << uR"({"streams":[],"format":"x"})"_s << true;
    }
    // clang-format on
    void probeRejectsOutputItCannotRead() {
        QFETCH(QString, output);
        QFETCH(bool, readable);
        installFakeProbe(output);
        const Outcome<MediaInfo> result =
            TestSupport::run(FFmpegService::probe(u"/some/file.mkv"_s));
        if (readable) {
            QVERIFY(!result.error);
            QVERIFY(!result.value->hasVideoStream);
        } else {
            QVERIFY(result.error);
            QCOMPARE(*result.error, FFmpegError::probeFailed(u"Could not parse ffprobe output."_s));
        }
    }

    void probePassesElevenArgumentsAndThePathWhole() {
        const QString bin = installFakeProbe(uR"({"streams":[]})"_s);
        const QString path = u"/tmp/My \"Clip\" – été $HOME.mkv"_s;
        QVERIFY(!TestSupport::run(FFmpegService::probe(path)).error);
        QFile recorded(bin + u"/arguments"_s);
        QVERIFY(recorded.open(QIODevice::ReadOnly));
        const QStringList arguments =
            QString::fromUtf8(recorded.readAll()).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(arguments,
                 QStringList({u"-v"_s, u"error"_s, u"-print_format"_s, u"json"_s,
                              u"-show_streams"_s, u"-show_format"_s, u"-analyzeduration"_s,
                              u"100M"_s, u"-probesize"_s, u"100M"_s, path}));
    }

    void missingToolsAreNamed() {
        FFmpegServiceTesting::setSharedSupportPath(work.filePath(u"nowhere"_s));
        QTest::ignoreMessage(
            QtCriticalMsg,
            QRegularExpression(
                u"^Bundled FFmpeg missing at .*nowhere/ffmpeg/bin — app will refuse to run$"_s));
        try {
            FFmpegService::verifyTools();
            QFAIL("verifyTools() accepted a missing ffmpeg");
        } catch (const FFmpegError& error) {
            QCOMPARE(error.kind(), FFmpegError::Case::ffmpegNotFound);
        }
        const Outcome<MediaInfo> result =
            TestSupport::run(FFmpegService::probe(TestSupport::mediaPath(u"h264_aac.mkv"_s)));
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::ffprobeNotFound);
    }

    void onlyFfprobeMissing() {
        const QString bin = work.filePath(u"half/ffmpeg/bin"_s);
        QDir().mkpath(bin);
        QFile::copy(realSupport + u"/ffmpeg/bin/ffmpeg"_s, bin + u"/ffmpeg"_s);
        FFmpegServiceTesting::setSharedSupportPath(work.filePath(u"half"_s));
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Bundled FFmpeg missing at "_s));
        QVERIFY_THROWS_EXCEPTION(FFmpegError, FFmpegService::verifyTools());
        try {
            FFmpegService::verifyTools();
        } catch (const FFmpegError& error) {
            QCOMPARE(error.kind(), FFmpegError::Case::ffprobeNotFound);
        }
    }

    void bundledToolsAreFound() {
        FFmpegService::verifyTools();
        QCOMPARE(FFmpegService::ffmpegPath(), realSupport + u"/ffmpeg/bin/ffmpeg"_s);
        QCOMPARE(FFmpegService::ffprobePath(), realSupport + u"/ffmpeg/bin/ffprobe"_s);
    }

    // clang-format off
    void probeRealFiles_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<double>("duration");
        QTest::addColumn<QString>("video");
        QTest::addColumn<QString>("pixFmt");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("audio");
        QTest::addColumn<QString>("subtitles");
        QTest::addColumn<QString>("status"); // null: goes on to be remuxed
        QTest::addColumn<QString>("text");
        const auto media = [](const char* name) { return TestSupport::mediaPath(QString::fromUtf8(name)); };
        const auto corpus = [](const char* name) { return TestSupport::corpusPath(QString::fromUtf8(name)); };
        const QString yuv = u"yuv420p"_s;
        const QString skipped = u"Skipped"_s;
        const QString compatible = u"Skipped — already QuickTime compatible"_s;
        const QString error = u"Error"_s;
        const QString noTag = u"[0][0][0][0]"_s;
        const auto row = [](const char* name) -> QTestData& { return QTest::newRow(name); };

        row("H.264 and AAC in MKV") << media("h264_aac.mkv") << 1.021 << u"h264"_s << yuv << noTag << u"aac"_s << u""_s << remux << none;
        row("H.264 and AAC in MP4") << media("h264_aac.mp4") << 1.0 << u"h264"_s << yuv << u"avc1"_s << u"aac"_s << u""_s << skipped << compatible;
        row("MP4 with mov_text") << media("h264_aac_movtext.mp4") << 1.0 << u"h264"_s << yuv << u"avc1"_s << u"aac"_s << u"2:mov_text:eng"_s << skipped << compatible;
        row("10-bit H.264") << media("h264_10bit.mkv") << 1.021 << u"h264"_s << u"yuv420p10le"_s << noTag << u"aac"_s << u""_s << error << u"10-bit/12-bit H.264 is not supported by QuickTime"_s;
        row("HEVC in MKV") << media("hevc_aac.mkv") << 1.021 << u"hevc"_s << yuv << noTag << u"aac"_s << u""_s << remux << none;
        row("HEVC hev1 in MP4") << media("hevc_hev1.mp4") << 1.0 << u"hevc"_s << yuv << u"hev1"_s << u"aac"_s << u""_s << remux << none;
        row("HEVC hvc1 in MP4") << media("hevc_hvc1.mp4") << 1.0 << u"hevc"_s << yuv << u"hvc1"_s << u"aac"_s << u""_s << skipped << compatible;
        row("AV1 in MP4") << media("av1.mp4") << 1.0 << u"av1"_s << yuv << u"av01"_s << u"aac"_s << u""_s << skipped << compatible;
        row("AV1 in MKV") << media("av1.mkv") << 1.0 << u"av1"_s << yuv << noTag << none << u""_s << remux << none;
        row("ProRes with PCM in MOV") << media("prores.mov") << 1.0 << u"prores"_s << u"yuv422p10le"_s << u"apco"_s << u"pcm_s16le"_s << u""_s << remux << none;
        row("MJPEG in MOV") << media("mjpeg.mov") << 1.0 << u"mjpeg"_s << u"yuvj420p"_s << u"jpeg"_s << u"aac"_s << u""_s << skipped << compatible;
        row("MPEG-4 Part 2 in AVI") << media("mpeg4.avi") << 1.04 << u"mpeg4"_s << yuv << u"FMP4"_s << u"mp3"_s << u""_s << error << u"mpeg4 video is not supported by QuickTime"_s;
        row("no video") << media("no_video.mkv") << 1.021 << u"unknown"_s << none << none << u"aac"_s << u""_s << error << u"No video stream found"_s;
        row("no audio") << media("no_audio.mkv") << 1.0 << u"h264"_s << yuv << noTag << none << u""_s << remux << none;
        row("DTS audio") << media("dts.mkv") << 1.003 << u"h264"_s << yuv << noTag << u"dts"_s << u""_s << remux << none;
        row("FLAC audio in MP4") << media("flac.mp4") << 1.0 << u"h264"_s << yuv << u"avc1"_s << u"flac"_s << u""_s << remux << none;
        row("Opus audio") << media("opus.mkv") << 1.008 << u"h264"_s << yuv << noTag << u"opus"_s << u""_s << remux << none;
        row("SRT, ASS and WebVTT with languages") << media("subtitles.mkv") << 1.021 << u"h264"_s << yuv << noTag << u"aac"_s << u"2:subrip:eng,3:ass:fre,4:webvtt:ger"_s << remux << none;

        if (!TestSupport::corpusAvailable()) {
            return;
        }
        row("corpus: H.264 and AC-3 in MKV") << corpus("sample.mkv") << 1.072 << u"h264"_s << yuv << noTag << u"ac3"_s << u""_s << remux << none;
        row("corpus: SubRip") << corpus("sample_with_srt.mkv") << 1.234 << u"h264"_s << yuv << noTag << u"ac3"_s << u"2:subrip:eng"_s << remux << none;
        row("corpus: ASS without language") << corpus("sample_with_ass_subtitles.mkv") << 1.139 << u"h264"_s << yuv << noTag << u"ac3"_s << u"2:ass:-"_s << remux << none;
        row("corpus: PGS") << corpus("sample_with_pgs_subtitles.mkv") << 1.24 << u"h264"_s << yuv << noTag << u"ac3"_s << u"2:hdmv_pgs_subtitle:eng"_s << remux << none;
        row("corpus: VobSub in MKV") << corpus("sample_with_vobsub.mkv") << 1.24 << u"h264"_s << yuv << noTag << u"ac3"_s << u"2:dvd_subtitle:eng"_s << remux << none;
        row("corpus: VobSub in MP4 is already compatible") << corpus("sample_with_vobsub.mp4") << 1.24 << u"h264"_s << yuv << u"avc1"_s << u"ac3"_s << u"2:dvd_subtitle:eng"_s << skipped << compatible;
        row("corpus: WebVTT without codec name") << corpus("sample_with_vtt_subtitles.mkv") << 1.234 << u"h264"_s << yuv << noTag << u"ac3"_s << u"2:unknown:-"_s << remux << none;
        row("corpus: Vorbis audio") << corpus("sample_with_vorbis_audio.mkv") << 1.072 << u"h264"_s << yuv << noTag << u"vorbis"_s << u""_s << remux << none;
        row("corpus: 10-bit AV1 in MKV") << corpus("sample_av1.mkv") << 1.0 << u"av1"_s << u"yuv420p10le"_s << noTag << none << u""_s << remux << none;
        row("corpus: AV1 in MP4") << corpus("sample_av1.mp4") << 1.089 << u"av1"_s << yuv << u"av01"_s << u"aac"_s << u""_s << skipped << compatible;
        row("corpus: VP9 in WebM") << corpus("bbb_642x642_768kbps_30fps_vp9.webm") << 2.967 << u"vp9"_s << yuv << noTag << none << u""_s << error << u"vp9 video is not supported by QuickTime"_s;
        row("corpus: H.264 and AAC in MP4") << corpus("sample.mp4") << 1.024 << u"h264"_s << yuv << u"avc1"_s << u"aac"_s << u""_s << skipped << compatible;
        row("corpus: HEVC hev1") << corpus("h265_bframes.mp4") << 1.0 << u"hevc"_s << yuv << u"hev1"_s << none << u""_s << remux << none;
        row("corpus: HEVC hvc1") << corpus("sample_unrecognized_hevc_sei.mp4") << 0.439 << u"hevc"_s << yuv << u"hvc1"_s << u"aac"_s << u""_s << skipped << compatible;
        row("corpus: MPEG-4 in MP4") << corpus("bbb_176x144_192kbps_15fps_mpeg4.mp4") << 1.0 << u"mpeg4"_s << yuv << u"mp4v"_s << none << u""_s << error << u"mpeg4 video is not supported by QuickTime"_s;
        row("corpus: big-endian PCM") << corpus("sample_twos_pcm.mp4") << 1.089 << u"h264"_s << yuv << u"avc1"_s << u"pcm_s16be"_s << u""_s << remux << none;
        row("corpus: audio only") << corpus("sample_ac3_aac.mp4") << 0.298 << u"unknown"_s << none << none << u"ac3"_s << u""_s << error << u"No video stream found"_s;
        row("corpus: MPEG-4 in AVI") << corpus("sample.avi") << 4.087 << u"mpeg4"_s << yuv << u"FMP4"_s << u"mp3"_s << u""_s << error << u"mpeg4 video is not supported by QuickTime"_s;
        row("corpus: H.264 in AVI") << corpus("sample-with-large-length.avi") << 1.967 << u"h264"_s << yuv << u"H264"_s << u"mp3"_s << u""_s << remux << none;
        row("corpus: HEVC in TS") << corpus("sample_h265.ts") << 1.0 << u"hevc"_s << yuv << u"HEVC"_s << none << u""_s << remux << none;
        row("corpus: H.264 and MP2 in TS") << corpus("sample_h264_mpeg_audio.ts") << 0.1 << u"h264"_s << yuv << u"[27][0][0][0]"_s << u"mp2"_s << u""_s << remux << none;
        row("corpus: MPEG-2 in TS") << corpus("sample_h262_mpeg_audio.ts") << -1.0 << u"mpeg2video"_s << yuv << u"[2][0][0][0]"_s << u"mp2"_s << u""_s << error << u"mpeg2video video is not supported by QuickTime"_s;
    }
    // clang-format on
    void probeRealFiles() {
        QFETCH(QString, source);
        QFETCH(double, duration);
        QFETCH(QString, video);
        QFETCH(QString, pixFmt);
        QFETCH(QString, tag);
        QFETCH(QString, audio);
        QFETCH(QString, subtitles);
        QFETCH(QString, status);
        QFETCH(QString, text);
        const QString path = TestSupport::copyInto(work, source);
        const Outcome<MediaInfo> result = TestSupport::run(FFmpegService::probe(path));
        QVERIFY2(!result.error, result.error ? result.error->what() : "");
        const MediaInfo& info = *result.value;
        if (duration >= 0) {
            QVERIFY2(qAbs(info.duration - duration) < 0.01,
                     qPrintable(QString::number(info.duration)));
        }
        QCOMPARE(info.videoCodec, video);
        QCOMPARE(info.hasVideoStream, video != u"unknown");
        QCOMPARE(info.pixFmt, pixFmt.isNull() ? std::nullopt : std::optional(pixFmt));
        QCOMPARE(info.videoCodecTag, tag.isNull() ? std::nullopt : std::optional(tag));
        QCOMPARE(info.audioCodec, audio.isNull() ? std::nullopt : std::optional(audio));
        QCOMPARE(info.audioChannels.has_value(), !audio.isNull());
        QCOMPARE(describeSubtitles(info.subtitleStreams), subtitles);

        const std::optional<Rejection> verdict = rejectionFor(info, FilePath::pathExtension(path));
        QCOMPARE(verdict ? rawValue(verdict->status) : QString(), status);
        QCOMPARE(verdict ? verdict->text : QString(), text);
    }

    // clang-format off
    void unreadableFilesGetAPlainSentence_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("sentence");
        const QString notVideo = u"This doesn't look like a video file, or it's too damaged to read."_s;
        QTest::newRow("MP4 cut before its movie header") << TestSupport::mediaPath(u"truncated.mp4"_s) << notVideo;
        QTest::newRow("text file named .mkv") << TestSupport::mediaPath(u"not_video.mkv"_s) << notVideo;
        QTest::newRow("MKV cut after its first bytes") << TestSupport::mediaPath(u"truncated.mkv"_s) << u"Input/output error"_s;
        QTest::newRow("missing file") << QString() << u"The file is missing or was moved."_s;
        if (TestSupport::corpusAvailable()) {
            QTest::newRow("corpus: malformed box") << TestSupport::corpusPath(u"sample_malformed_free_box.mp4"_s) << notVideo;
        }
    }
    // clang-format on
    void unreadableFilesGetAPlainSentence() {
        QFETCH(QString, source);
        QFETCH(QString, sentence);
        const QString path =
            source.isNull() ? work.filePath(u"gone.mkv"_s) : TestSupport::copyInto(work, source);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Process failed \\(exit 1\\):"_s));
        const Outcome<MediaInfo> result = TestSupport::run(FFmpegService::probe(path));
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::processFailed);
        QCOMPARE(FFmpegService::friendlyMessage(*result.error), sentence);
    }

    void unreadablePermissionIsNamed() {
        if (::geteuid() == 0) {
            QSKIP("root reads every file, so a permission failure can't be made here");
        }
        const QString path =
            TestSupport::copyInto(work, TestSupport::mediaPath(u"h264_aac.mkv"_s), u"locked.mkv"_s);
        QFile::setPermissions(path, QFileDevice::Permissions());
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Process failed"_s));
        const Outcome<MediaInfo> result = TestSupport::run(FFmpegService::probe(path));
        QVERIFY(result.error);
        QCOMPARE(FFmpegService::friendlyMessage(*result.error),
                 u"Permission denied — the file isn't readable."_s);
    }

    void pathWithSpacesAndNonAsciiIsOneArgument() {
        const QString path = TestSupport::copyInto(work, TestSupport::mediaPath(u"subtitles.mkv"_s),
                                                   u"Été à Paris (1) 'x' \"y\".mkv"_s);
        const Outcome<MediaInfo> result = TestSupport::run(FFmpegService::probe(path));
        QVERIFY(!result.error);
        QCOMPARE(result.value->subtitleStreams.size(), 3);
    }
};

QTEST_GUILESS_MAIN(MediaProbeTest)
#include "tst_MediaProbe.moc"
