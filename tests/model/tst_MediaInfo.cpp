#include "model/MediaInfo.h"

#include <QTest>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

namespace {
// A null QString in a data row stands for an absent value.
std::optional<QString> optional(const QString& text) {
    return text.isNull() ? std::nullopt : std::optional(text);
}

MediaInfo video(const QString& codec, const QString& audio = {}, const QString& tag = {},
                const QString& pixFmt = {}) {
    MediaInfo info;
    info.hasVideoStream = true;
    info.videoCodec = codec;
    info.audioCodec = optional(audio);
    info.videoCodecTag = optional(tag);
    info.pixFmt = optional(pixFmt);
    return info;
}

const QString none;

// A stream layout in a few words: "h264 2.0s 48f aac 2*srt mpegts" reads as an H.264
// video of 2 s and 48 frames, AAC audio, two SubRip tracks, in a transport stream.
MediaInfo layout(const QString& words) {
    MediaInfo info;
    for (const QString& word : words.split(u' ', Qt::SkipEmptyParts)) {
        if (word.endsWith(u's') && word.front().isDigit()) {
            info.videoDuration = word.chopped(1).toDouble();
        } else if (word.endsWith(u'f') && word.front().isDigit()) {
            info.videoFrameCount = word.chopped(1).toLongLong();
        } else if (word.startsWith(u"container=")) {
            info.duration = word.mid(10).toDouble();
        } else if (word.contains(u'*')) {
            for (int i = 0; i < word.section(u'*', 0, 0).toInt(); ++i) {
                info.subtitleStreams.append({i + 2, word.section(u'*', 1), std::nullopt});
            }
        } else if (word == u"mpegts") {
            info.formatName = word;
        } else if (word == u"hvc1" || word == u"hev1") {
            info.videoCodecTag = word;
        } else if (isQuickTimeAudioCodec(word) || word == u"flac") {
            info.audioCodec = word;
        } else {
            info.hasVideoStream = true;
            info.videoCodec = word;
        }
    }
    return info;
}
} // namespace

class MediaInfoTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void cleanup() {
        MediaInfoTesting::setHardwareDecodeTest([](quint32) { return true; });
    }

    // clang-format off
    void checkOutput_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("verdict");
        const QString noVideo = u"fails: The converted file has no video — the source may be cut short or damaged."_s;
        QTest::newRow("a whole copy plays") << u"h264 2.0s aac 2*subrip"_s << u"h264 2.0s 48f aac 2*mov_text"_s << QString();
        QTest::newRow("no video stream") << u"h264 2.0s aac"_s << u"aac"_s << noVideo;
        QTest::newRow("a video stream of another codec") << u"h264 2.0s"_s << u"mjpeg 1.0s 1f"_s << noVideo;
        QTest::newRow("no frames by count") << u"h264 2.0s"_s << u"h264 2.0s 0f"_s << noVideo;
        QTest::newRow("no count and no length") << u"h264 2.0s"_s << u"h264 0s"_s << noVideo;
        QTest::newRow("no count but a length plays") << u"h264 2.0s"_s << u"h264 2.0s"_s << QString();
        QTest::newRow("shorter by more than half a second") << u"h264 72.5s"_s << u"h264 4.2s 100f"_s << u"notes: The converted video is shorter than the source (0:04.2 of 1:12) — the source may be damaged."_s;
        QTest::newRow("half a second short is within reach") << u"h264 2.0s"_s << u"h264 1.5s 36f"_s << QString();
        QTest::newRow("2 % short of an hour is within reach") << u"h264 3600s"_s << u"h264 3529s 9f"_s << QString();
        QTest::newRow("more than 2 % short of an hour") << u"h264 3600s"_s << u"h264 3527s 9f"_s << u"notes: The converted video is shorter than the source (58:47 of 1:00:00) — the source may be damaged."_s;
        QTest::newRow("the source's video, not its container") << u"h264 2.0s aac container=9"_s << u"h264 2.0s 48f aac"_s << QString();
        QTest::newRow("no video length: the container's") << u"h264 aac container=9"_s << u"h264 2.0s 48f aac"_s << u"notes: The converted video is shorter than the source (0:02.0 of 0:09.0) — the source may be damaged."_s;
        QTest::newRow("an unknown length notes nothing") << u"h264 aac"_s << u"h264 2.0s 48f aac"_s << QString();
        QTest::newRow("a transport stream whose timestamps jump") << u"h264 602s aac mpegts"_s << u"h264 4.0s 96f aac container=4.04"_s << QString();
        QTest::newRow("a transport stream that lost its start") << u"h264 1.2s aac mpegts"_s << u"h264 0.5s 12f aac container=1.37"_s << u"notes: The converted video is shorter than the source (0:00.5 of 0:01.2) — the source may be damaged."_s;
        QTest::newRow("audio lost") << u"h264 2s flac"_s << u"h264 2s 48f"_s << u"notes: The converted file has no audio, although the source has some."_s;
        QTest::newRow("subtitles lost") << u"h264 2s 3*subrip 1*hdmv_pgs_subtitle"_s << u"h264 2s 48f 1*mov_text"_s << u"notes: The converted file holds 1 of 3 subtitle tracks."_s;
        QTest::newRow("HEVC without hvc1") << u"hevc 2s"_s << u"hevc hev1 2s 48f"_s << u"notes: The converted HEVC video is not tagged hvc1 — QuickTime may not play it."_s;
        QTest::newRow("HEVC with hvc1") << u"hevc 2s"_s << u"hevc hvc1 2s 48f"_s << QString();
    }
    void checkOutput() {
        QFETCH(QString, source);
        QFETCH(QString, output);
        QFETCH(QString, verdict);
        const OutputCheck check = ::checkOutput(layout(source), layout(output));
        const QString found = check.failure ? u"fails: "_s + *check.failure
                              : check.notes.isEmpty() ? QString()
                                                      : u"notes: "_s + check.notes.join(u" | "_s);
        QCOMPARE(found, verdict);
    }

    void unsupportedReason_data() {
        QTest::addColumn<QString>("codec");
        QTest::addColumn<bool>("av1InHardware");
        QTest::addColumn<QString>("reason");
        QTest::newRow("h264 is accepted") << u"h264"_s << true << none;
        QTest::newRow("upper-case HEVC is accepted") << u"HEVC"_s << true << none;
        QTest::newRow("prores is accepted") << u"prores"_s << true << none;
        QTest::newRow("mjpeg is accepted") << u"mjpeg"_s << true << none;
        QTest::newRow("av1 with hardware is accepted") << u"av1"_s << true << none;
        QTest::newRow("av1 without hardware needs an M3")
            << u"av1"_s << false << u"AV1 video requires Apple M3 or later"_s;
        QTest::newRow("vp9 is named as spelled")
            << u"vp9"_s << true << u"vp9 video is not supported by QuickTime"_s;
        QTest::newRow("spelling is kept, not lower-cased")
            << u"MPEG4"_s << true << u"MPEG4 video is not supported by QuickTime"_s;
        QTest::newRow("a stream without codec name")
            << u"unknown"_s << true << u"unknown video is not supported by QuickTime"_s;
    }
    // clang-format on
    void unsupportedReason() {
        QFETCH(QString, codec);
        QFETCH(bool, av1InHardware);
        QFETCH(QString, reason);
        MediaInfoTesting::setHardwareDecodeTest([=](quint32) { return av1InHardware; });
        QCOMPARE(video(codec).unsupportedReason(), optional(reason));
    }

    // clang-format off
    void isHighBitDepthH264_data() {
        QTest::addColumn<QString>("codec");
        QTest::addColumn<QString>("pixFmt");
        QTest::addColumn<bool>("expected");
        QTest::newRow("8-bit 4:2:0") << u"h264"_s << u"yuv420p"_s << false;
        QTest::newRow("10-bit 4:2:0") << u"h264"_s << u"yuv420p10le"_s << true;
        QTest::newRow("12-bit 4:2:2") << u"h264"_s << u"yuv422p12le"_s << true;
        QTest::newRow("upper-case format and codec") << u"H264"_s << u"YUV420P10BE"_s << true;
        QTest::newRow("no pixel format") << u"h264"_s << none << false;
        QTest::newRow("10-bit HEVC is not H.264") << u"hevc"_s << u"yuv420p10le"_s << false;
    }
    // clang-format on
    void isHighBitDepthH264() {
        QFETCH(QString, codec);
        QFETCH(QString, pixFmt);
        QFETCH(bool, expected);
        QCOMPARE(video(codec, none, none, pixFmt).isHighBitDepthH264(), expected);
    }

    // clang-format off
    void isAlreadyCompatible_data() {
        QTest::addColumn<QString>("codec");
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("pixFmt");
        QTest::addColumn<QString>("audio");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<bool>("expected");
        const QString aac = u"aac"_s;
        QTest::newRow("h264+aac in mp4") << u"h264"_s << none << u"yuv420p"_s << aac << u"mp4"_s << true;
        QTest::newRow("h264+aac in mov") << u"h264"_s << none << none << aac << u"mov"_s << true;
        QTest::newRow("h264+aac in MP4") << u"h264"_s << none << none << aac << u"MP4"_s << true;
        QTest::newRow("h264+aac in Mov") << u"h264"_s << none << none << aac << u"Mov"_s << true;
        QTest::newRow("h264+aac in mkv") << u"h264"_s << none << none << aac << u"mkv"_s << false;
        QTest::newRow("empty extension") << u"h264"_s << none << none << aac << u""_s << false;
        QTest::newRow("10-bit h264 in mp4") << u"h264"_s << none << u"yuv420p10le"_s << aac << u"mp4"_s << false;
        QTest::newRow("hevc hev1 in mp4") << u"hevc"_s << u"hev1"_s << none << aac << u"mp4"_s << false;
        QTest::newRow("hevc hvc1 in mp4") << u"hevc"_s << u"hvc1"_s << none << aac << u"mp4"_s << true;
        QTest::newRow("hevc HVC1 in mov") << u"hevc"_s << u"HVC1"_s << none << aac << u"mov"_s << true;
        QTest::newRow("hevc without tag") << u"hevc"_s << none << none << aac << u"mp4"_s << false;
        QTest::newRow("prores in mp4") << u"prores"_s << none << none << aac << u"mp4"_s << false;
        QTest::newRow("prores in mov") << u"prores"_s << none << none << aac << u"mov"_s << true;
        QTest::newRow("mjpeg in mov") << u"mjpeg"_s << none << none << aac << u"mov"_s << true;
        QTest::newRow("av1 in mp4") << u"av1"_s << none << none << aac << u"mp4"_s << true;
        QTest::newRow("av1 in m4v") << u"av1"_s << none << none << aac << u"m4v"_s << true;
        QTest::newRow("av1 in mov") << u"av1"_s << none << none << aac << u"mov"_s << false;
        QTest::newRow("vp9 in mp4") << u"vp9"_s << none << none << aac << u"mp4"_s << false;
        QTest::newRow("dts audio in mp4") << u"h264"_s << none << none << u"dts"_s << u"mp4"_s << false;
        QTest::newRow("flac audio in mp4") << u"h264"_s << none << none << u"flac"_s << u"mp4"_s << false;
        QTest::newRow("no audio in mp4") << u"h264"_s << none << none << none << u"mp4"_s << true;
        QTest::newRow("upper-case AC3 audio") << u"h264"_s << none << none << u"AC3"_s << u"mp4"_s << true;
        QTest::newRow("each copied audio codec: eac3") << u"h264"_s << none << none << u"eac3"_s << u"mp4"_s << true;
    }
    // clang-format on
    void isAlreadyCompatible() {
        QFETCH(QString, codec);
        QFETCH(QString, tag);
        QFETCH(QString, pixFmt);
        QFETCH(QString, audio);
        QFETCH(QString, extension);
        QFETCH(bool, expected);
        QCOMPARE(video(codec, audio, tag, pixFmt).isAlreadyCompatible(extension), expected);
    }

    void textSubtitlesDoNotChangeCompatibility() {
        MediaInfo info = video(u"h264"_s, u"aac"_s);
        info.subtitleStreams = {SubtitleStream{2, u"mov_text"_s, u"eng"_s}};
        QVERIFY(info.isAlreadyCompatible(u"mp4"_s));
    }

    // clang-format off
    void hasTextSubtitles_data() {
        QTest::addColumn<QStringList>("codecs");
        QTest::addColumn<bool>("expected");
        QTest::newRow("no subtitle streams") << QStringList() << false;
        QTest::newRow("only bitmap") << QStringList{u"hdmv_pgs_subtitle"_s, u"dvd_subtitle"_s} << false;
        QTest::newRow("unknown counts as bitmap") << QStringList{u"unknown"_s} << false;
        QTest::newRow("subrip") << QStringList{u"subrip"_s} << true;
        QTest::newRow("upper-case ASS") << QStringList{u"ASS"_s} << true;
        QTest::newRow("bitmap then webvtt") << QStringList{u"dvd_subtitle"_s, u"webvtt"_s} << true;
        QTest::newRow("each text codec: srt ssa mov_text text")
            << QStringList{u"srt"_s, u"ssa"_s, u"mov_text"_s, u"text"_s} << true;
    }
    // clang-format on
    void hasTextSubtitles() {
        QFETCH(QStringList, codecs);
        QFETCH(bool, expected);
        MediaInfo info = video(u"h264"_s);
        for (qsizetype i = 0; i < codecs.size(); ++i) {
            info.subtitleStreams.append(SubtitleStream{int(i) + 2, codecs.at(i), std::nullopt});
        }
        QCOMPARE(info.hasTextSubtitles(), expected);
    }

    // clang-format off
    void rejectionOrder_data() {
        QTest::addColumn<MediaInfo>("info");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<bool>("av1InHardware");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("text");
        MediaInfo audioOnly;
        audioOnly.audioCodec = u"aac"_s;
        QTest::newRow("no video stream fails first")
            << audioOnly << u"mkv"_s << true << u"Error"_s << u"No video stream found"_s;
        QTest::newRow("unsupported codec fails")
            << video(u"vp9"_s) << u"webm"_s << true << u"Error"_s
            << u"vp9 video is not supported by QuickTime"_s;
        QTest::newRow("AV1 without hardware fails even when already in mp4")
            << video(u"av1"_s, u"aac"_s) << u"mp4"_s << false << u"Error"_s
            << u"AV1 video requires Apple M3 or later"_s;
        QTest::newRow("10-bit H.264 fails before the compatibility test")
            << video(u"h264"_s, u"aac"_s, none, u"yuv420p10le"_s) << u"mp4"_s << true
            << u"Error"_s << u"10-bit/12-bit H.264 is not supported by QuickTime"_s;
        QTest::newRow("compatible file is skipped")
            << video(u"h264"_s, u"aac"_s) << u"MP4"_s << true << u"Skipped"_s
            << u"Skipped — already QuickTime compatible"_s;
        QTest::newRow("h264 in mkv goes on to be remuxed")
            << video(u"h264"_s, u"aac"_s) << u"mkv"_s << true << none << none;
        QTest::newRow("AV1 in mov goes on to be remuxed")
            << video(u"av1"_s) << u"mov"_s << true << none << none;
    }
    // clang-format on
    void rejectionOrder() {
        QFETCH(MediaInfo, info);
        QFETCH(QString, extension);
        QFETCH(bool, av1InHardware);
        QFETCH(QString, status);
        QFETCH(QString, text);
        MediaInfoTesting::setHardwareDecodeTest([=](quint32) { return av1InHardware; });
        const std::optional<Rejection> rejection = rejectionFor(info, extension);
        if (status.isNull()) {
            QVERIFY(!rejection);
        } else {
            QVERIFY(rejection);
            QCOMPARE(rawValue(rejection->status), status);
            QCOMPARE(rejection->text, text);
        }
    }

    void hardwareIsAskedOnceAndOnlyForAV1() {
        std::atomic<int> calls{0};
        std::atomic<quint32> askedFor{0};
        MediaInfoTesting::setHardwareDecodeTest([&](quint32 fourCC) {
            ++calls;
            askedFor = fourCC;
            // Slow enough that two threads arriving together would both ask.
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            return false;
        });
        QVERIFY(!video(u"h264"_s).unsupportedReason());
        QVERIFY(!video(u"hevc"_s).isAlreadyCompatible(u"mp4"_s));
        QCOMPARE(calls.load(), 0);

        std::thread other([] { video(u"av1"_s).unsupportedReason(); });
        const std::optional<QString> reason = video(u"av1"_s).unsupportedReason();
        other.join();
        video(u"AV1"_s).unsupportedReason();
        QCOMPARE(calls.load(), 1);
        QCOMPARE(askedFor.load(), 0x61763031u);
        QCOMPARE(reason, std::optional(u"AV1 video requires Apple M3 or later"_s));
    }
};

QTEST_APPLESS_MAIN(MediaInfoTest)
#include "tst_MediaInfo.moc"
