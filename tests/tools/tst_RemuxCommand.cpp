#include "TestSupport.h"
#include "model/RemuxItem.h"

#include <QFile>
#include <QMutex>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;
using FFmpegService::SubtitleExtractionPlan;

namespace {

MediaInfo describe(const QString& video, const QString& audio, const QString& subtitles) {
    MediaInfo info;
    info.hasVideoStream = true;
    info.videoCodec = video;
    info.audioCodec = audio.isNull() ? std::nullopt : std::optional(audio);
    for (const QString& part : subtitles.split(u';', Qt::SkipEmptyParts)) {
        const QStringList fields = part.split(u':');
        info.subtitleStreams.append(SubtitleStream{fields[0].toInt(), fields[1], std::nullopt});
    }
    return info;
}

// What a tool prints to standard output, or nothing when it fails.
QString toolOutput(const QString& tool, const QStringList& arguments) {
    const TestSupport::Outcome<QString> result =
        TestSupport::run(FFmpegService::runProcess(tool, arguments, 60));
    return result.value.value_or(QString());
}

// Size and checksum of every decoded frame of the first video stream, as decoded:
// no frame dropped or doubled to fit a frame rate.
QStringList decodedFrames(const QString& file) {
    const QString text =
        toolOutput(FFmpegService::ffmpegPath(),
                   {u"-v"_s, u"error"_s, u"-i"_s, file, u"-map"_s, u"0:v:0"_s, u"-fps_mode"_s,
                    u"passthrough"_s, u"-f"_s, u"framemd5"_s, u"-"_s});
    QStringList frames;
    for (const QString& line : text.split(u'\n', Qt::SkipEmptyParts)) {
        if (!line.startsWith(u'#')) {
            const QStringList fields = line.split(u',');
            frames.append(fields.at(4).trimmed() + u' ' + fields.at(5).trimmed());
        }
    }
    return frames;
}

int audioBitRate(const QString& file) {
    return toolOutput(FFmpegService::ffprobePath(),
                      {u"-v"_s, u"error"_s, u"-select_streams"_s, u"a:0"_s, u"-show_entries"_s,
                       u"stream=bit_rate"_s, u"-of"_s, u"csv=p=0"_s, file})
        .trimmed()
        .toInt();
}

bool readsAsSubRip(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) &&
           QRegularExpression(u"^1\\r?\\n\\d\\d:\\d\\d:\\d\\d,\\d{3} --> "_s)
               .match(QString::fromUtf8(file.readAll()))
               .hasMatch();
}

} // namespace

class RemuxCommandTest final : public QObject {
    Q_OBJECT

    QTemporaryDir work;

private Q_SLOTS:
    // clang-format off
    void arguments_data() {
        QTest::addColumn<MediaInfo>("info");
        QTest::addColumn<QStringList>("expected");
        const QStringList video{u"-i"_s, u"IN"_s, u"-map"_s, u"0:v:0"_s, u"-c:v"_s, u"copy"_s};
        const QStringList hvc1{u"-tag:v"_s, u"hvc1"_s};
        const QStringList audioMap{u"-map"_s, u"0:a:0"_s};
        const QStringList copy{u"-c:a"_s, u"copy"_s};
        const QStringList transcode{u"-c:a"_s, u"aac"_s, u"-ac"_s, u"2"_s, u"-b:a"_s, u"192k"_s};
        const QStringList out{u"-y"_s, u"-truncate"_s, u"0"_s, u"OUT"_s};
        const QString none;
        QTest::newRow("the worked example: HEVC, DTS, text at 2 and 4")
            << describe(u"hevc"_s, u"dts"_s, u"2:subrip;4:ass"_s)
            << QStringList{u"-i"_s, u"IN"_s, u"-map"_s, u"0:v:0"_s, u"-c:v"_s, u"copy"_s, u"-tag:v"_s, u"hvc1"_s,
                           u"-map"_s, u"0:a:0"_s, u"-c:a"_s, u"aac"_s, u"-ac"_s, u"2"_s, u"-b:a"_s, u"192k"_s,
                           u"-map"_s, u"0:2"_s, u"-map"_s, u"0:4"_s, u"-c:s"_s, u"mov_text"_s, u"-y"_s, u"-truncate"_s, u"0"_s, u"OUT"_s};
        QTest::newRow("H.264 with AAC") << describe(u"h264"_s, u"aac"_s, u""_s) << video + audioMap + copy + out;
        QTest::newRow("no audio: no map, no codec") << describe(u"h264"_s, none, u""_s) << video + out;
        for (const char* codec : {"mp3", "alac", "ac3", "eac3", "AC3"}) {
            QTest::addRow("%s is copied", codec) << describe(u"h264"_s, QString::fromLatin1(codec), u""_s) << video + audioMap + copy + out;
        }
        for (const char* codec : {"dts", "flac", "opus", "vorbis", "pcm_s16le", "DTS"}) {
            QTest::addRow("%s is transcoded", codec) << describe(u"h264"_s, QString::fromLatin1(codec), u""_s) << video + audioMap + transcode + out;
        }
        QTest::newRow("upper-case HEVC is tagged") << describe(u"HEVC"_s, none, u""_s) << video + hvc1 + out;
        QTest::newRow("HEVC already tagged hvc1 is tagged again")
            << [&] { MediaInfo i = describe(u"hevc"_s, none, u""_s); i.videoCodecTag = u"hvc1"_s; return i; }() << video + hvc1 + out;
        QTest::newRow("bitmap only: no subtitle map, no -c:s")
            << describe(u"h264"_s, none, u"2:hdmv_pgs_subtitle;3:unknown"_s) << video + out;
        QTest::newRow("text and bitmap: only the text stream, by its index")
            << describe(u"h264"_s, none, u"2:dvd_subtitle;3:SubRip"_s) << video + QStringList{u"-map"_s, u"0:3"_s, u"-c:s"_s, u"mov_text"_s} + out;
        QTest::newRow("three text streams, one -c:s")
            << describe(u"h264"_s, none, u"2:subrip;5:webvtt;9:mov_text"_s)
            << video + QStringList{u"-map"_s, u"0:2"_s, u"-map"_s, u"0:5"_s, u"-map"_s, u"0:9"_s, u"-c:s"_s, u"mov_text"_s} + out;
    }
    // clang-format on
    void arguments() {
        QFETCH(MediaInfo, info);
        QFETCH(QStringList, expected);
        QCOMPARE(FFmpegService::remuxArguments(u"IN"_s, u"OUT"_s, info), expected);
    }

    // clang-format off
    void remuxRealFiles_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("outputName");
        QTest::addColumn<QStringList>("sidecars");
        const auto media = [](const char* name) { return TestSupport::mediaPath(QString::fromLatin1(name)); };
        const auto corpus = [](const char* name) { return TestSupport::corpusPath(QString::fromLatin1(name)); };
        QTest::newRow("H.264 and AAC in MKV") << media("h264_aac.mkv") << u"h264_aac.mp4"_s << QStringList();
        QTest::newRow("HEVC in MKV") << media("hevc_aac.mkv") << u"hevc_aac.mp4"_s << QStringList();
        QTest::newRow("HEVC hev1 in MP4") << media("hevc_hev1.mp4") << u"hevc_hev1.morvane.mp4"_s << QStringList();
        QTest::newRow("AV1 in MKV") << media("av1.mkv") << u"av1.mp4"_s << QStringList();
        QTest::newRow("ProRes with PCM") << media("prores.mov") << u"prores.morvane.mov"_s << QStringList();
        QTest::newRow("MJPEG in AVI") << media("mjpeg.avi") << u"mjpeg.mov"_s << QStringList();
        QTest::newRow("DTS") << media("dts.mkv") << u"dts.mp4"_s << QStringList();
        QTest::newRow("FLAC in MP4") << media("flac.mp4") << u"flac.morvane.mp4"_s << QStringList();
        QTest::newRow("Opus") << media("opus.mkv") << u"opus.mp4"_s << QStringList();
        QTest::newRow("no audio") << media("no_audio.mkv") << u"no_audio.mp4"_s << QStringList();
        QTest::newRow("SRT, ASS, WebVTT") << media("subtitles.mkv") << u"subtitles.mp4"_s
                                          << QStringList{u"subtitles.eng.srt"_s, u"subtitles.fre.srt"_s, u"subtitles.ger.srt"_s};
        if (!TestSupport::corpusAvailable()) {
            return;
        }
        QTest::newRow("corpus: AC-3 copied") << corpus("sample.mkv") << u"sample.mp4"_s << QStringList();
        QTest::newRow("corpus: SubRip") << corpus("sample_with_srt.mkv") << u"sample_with_srt.mp4"_s << QStringList{u"sample_with_srt.eng.srt"_s};
        QTest::newRow("corpus: ASS") << corpus("sample_with_ass_subtitles.mkv") << u"sample_with_ass_subtitles.mp4"_s << QStringList{u"sample_with_ass_subtitles.srt"_s};
        QTest::newRow("corpus: PGS dropped") << corpus("sample_with_pgs_subtitles.mkv") << u"sample_with_pgs_subtitles.mp4"_s << QStringList();
        QTest::newRow("corpus: VobSub dropped") << corpus("sample_with_vobsub.mkv") << u"sample_with_vobsub.mp4"_s << QStringList();
        QTest::newRow("corpus: WebVTT unknown to ffprobe dropped") << corpus("sample_with_vtt_subtitles.mkv") << u"sample_with_vtt_subtitles.mp4"_s << QStringList();
        QTest::newRow("corpus: Vorbis") << corpus("sample_with_vorbis_audio.mkv") << u"sample_with_vorbis_audio.mp4"_s << QStringList();
        QTest::newRow("corpus: HEVC hev1 B-frames") << corpus("h265_bframes.mp4") << u"h265_bframes.morvane.mp4"_s << QStringList();
        QTest::newRow("corpus: HEVC in TS") << corpus("sample_h265.ts") << u"sample_h265.mp4"_s << QStringList();
        QTest::newRow("corpus: H.264 and MP2 in TS") << corpus("sample_h264_mpeg_audio.ts") << u"sample_h264_mpeg_audio.mp4"_s << QStringList();
        QTest::newRow("corpus: big-endian PCM") << corpus("sample_twos_pcm.mp4") << u"sample_twos_pcm.morvane.mp4"_s << QStringList();
        QTest::newRow("corpus: H.264 and MP3 in AVI") << corpus("sample-with-large-length.avi") << u"sample-with-large-length.mp4"_s << QStringList();
        QTest::newRow("corpus: 10-bit AV1") << corpus("sample_av1.mkv") << u"sample_av1.mp4"_s << QStringList();
    }
    // clang-format on

    // The road of one file through the tool layer: probe, sidecars, remux, then
    // the output checked with the tools themselves.
    void remuxRealFiles() {
        QFETCH(QString, source);
        QFETCH(QString, outputName);
        QFETCH(QStringList, sidecars);
        QTemporaryDir folder;
        const QString input = TestSupport::copyInto(folder, source);
        const MediaInfo info = *TestSupport::run(FFmpegService::probe(input)).value;
        RemuxItem item(input);
        item.cachedMediaInfo = info;
        QCOMPARE(item.outputFilename(), outputName);
        const QString output = folder.filePath(outputName);

        const QList<SubtitleExtractionPlan> plans = FFmpegService::planSubtitleExtraction(
            input, info.subtitleStreams, std::nullopt, {output});
        QCOMPARE(TestSupport::run(FFmpegService::extractSubtitles(input, plans)).value,
                 std::optional(0));

        QMutex lock;
        QList<double> fractions;
        const TestSupport::Outcome<bool> result =
            TestSupport::run([](QString in, QString out, MediaInfo i,
                                FFmpegService::ProgressCallback cb) -> QCoro::Task<bool> {
                co_await FFmpegService::remux(in, out, i, cb);
                co_return true;
            }(input, output, info, [&](double f) {
                                 const QMutexLocker guard(&lock);
                                 fractions.append(f);
                             }));
        QVERIFY2(!result.error, result.error ? result.error->what() : "");
        QCOMPARE(fractions.value(fractions.size() - 1), 1.0);

        const QStringList frames = decodedFrames(output);
        QVERIFY(!frames.isEmpty());
        QCOMPARE(frames, decodedFrames(input));

        const MediaInfo out = *TestSupport::run(FFmpegService::probe(output)).value;
        QCOMPARE(out.videoCodec, info.videoCodec);
        if (info.videoCodec == u"hevc") {
            QCOMPARE(out.videoCodecTag, std::optional(u"hvc1"_s));
        }
        if (!info.audioCodec) {
            QVERIFY(!out.audioCodec);
        } else if (isQuickTimeAudioCodec(*info.audioCodec)) {
            QCOMPARE(out.audioCodec, info.audioCodec);
            QCOMPARE(out.audioChannels, info.audioChannels);
        } else {
            QCOMPARE(out.audioCodec, std::optional(u"aac"_s));
            QCOMPARE(out.audioChannels, std::optional(2));
            // An average over a fraction of a second says nothing of the encoder's rate.
            if (info.duration >= 0.5) {
                const int bitRate = audioBitRate(output);
                QVERIFY2(bitRate > 150000 && bitRate < 230000,
                         qPrintable(QString::number(bitRate)));
            }
        }
        QCOMPARE(out.subtitleStreams.size(), sidecars.size());
        for (const SubtitleStream& stream : out.subtitleStreams) {
            QCOMPARE(stream.codec, u"mov_text"_s);
        }

        QStringList written;
        for (const SubtitleExtractionPlan& plan : plans) {
            QVERIFY2(readsAsSubRip(plan.url), qPrintable(plan.url));
            written.append(QFileInfo(plan.url).fileName());
        }
        QCOMPARE(written, sidecars);
        QStringList srtFiles = QDir(folder.path()).entryList({u"*.srt"_s});
        QCOMPARE(srtFiles.size(), sidecars.size());
    }

    void missingFfmpegTouchesNothing() {
        FFmpegServiceTesting::setSharedSupportPath(work.filePath(u"nowhere"_s));
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(u"^Bundled FFmpeg missing at"_s));
        const QString output = work.filePath(u"never.mp4"_s);
        const TestSupport::Outcome<bool> result =
            TestSupport::run([](QString out) -> QCoro::Task<bool> {
                co_await FFmpegService::remux(u"/in/x.mkv"_s, out, MediaInfo{}, [](double) {});
                co_return true;
            }(output));
        FFmpegServiceTesting::setSharedSupportPath(TestSupport::bundledSupportPath());
        QVERIFY(result.error);
        QCOMPARE(result.error->kind(), FFmpegError::Case::ffmpegNotFound);
        QVERIFY(!QFile::exists(output));
    }
};

QTEST_GUILESS_MAIN(RemuxCommandTest)
#include "tst_RemuxCommand.moc"
