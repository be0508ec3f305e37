#include "model/MediaInfo.h"
#include "model/RemuxItem.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {
MediaInfo video(const QString& codec, std::optional<QString> audio = std::nullopt) {
    MediaInfo info;
    info.hasVideoStream = true;
    info.videoCodec = codec;
    info.audioCodec = audio;
    return info;
}
} // namespace

class MediaInfoTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // clang-format off
    void rejectionOrder_data() {
        QTest::addColumn<MediaInfo>("info");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("verdict"); // null: goes on to be remuxed
        const QString skip = u"Skipped: Skipped — already QuickTime compatible"_s;
        QTest::newRow("no video stream fails first") << MediaInfo() << u"mp4"_s << u"Error: No video stream found"_s;
        QTest::newRow("an unsupported codec is named as spelled") << video(u"VP9"_s) << u"webm"_s << u"Error: VP9 video is not supported by QuickTime"_s;
        QTest::newRow("H.264 and AAC in MP4 are skipped") << video(u"h264"_s, u"aac"_s) << u"MP4"_s << skip;
        QTest::newRow("H.264 without audio in mov is skipped") << video(u"h264"_s) << u"mov"_s << skip;
        QTest::newRow("FLAC audio in mp4 is remuxed") << video(u"h264"_s, u"flac"_s) << u"mp4"_s << QString();
    }
    // clang-format on
    void rejectionOrder() {
        QFETCH(MediaInfo, info);
        QFETCH(QString, extension);
        QFETCH(QString, verdict);
        const std::optional<Rejection> rejection = rejectionFor(info, extension);
        QCOMPARE(rejection ? rawValue(rejection->status) + u": "_s + rejection->text : QString(),
                 verdict);
    }

    void checkOutputNotesWhatWasLost() {
        MediaInfo source = video(u"h264"_s, u"aac"_s);
        source.videoDuration = 20.0;
        MediaInfo output = video(u"h264"_s);
        output.videoDuration = 12.3;
        QCOMPARE(
            checkOutput(source, output).notes,
            QStringList({u"The converted video is shorter than the source (0:12.3 of 0:20.0) "
                         u"— the source may be damaged."_s,
                         u"The converted file has no audio, although the source has some."_s}));
    }

    // clang-format off
    void outputFilename_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("codec"); // null: not probed yet
        QTest::addColumn<QString>("expected");
        QTest::newRow("Movie.mkv H.264") << u"/v/Movie.mkv"_s << u"h264"_s << u"Movie.mp4"_s;
        QTest::newRow("Movie.MP4 HEVC would overwrite its source") << u"/v/Movie.MP4"_s << u"hevc"_s << u"Movie.morvane.mp4"_s;
        QTest::newRow("Movie.mov ProRes would overwrite its source") << u"/v/Movie.mov"_s << u"prores"_s << u"Movie.morvane.mov"_s;
        QTest::newRow("Movie.mp4 not probed") << u"/v/Movie.mp4"_s << QString() << u"Movie.morvane.mp4"_s;
        QTest::newRow("a one-letter name and trailing slashes") << u"/v/M//"_s << u"h264"_s << u"M.mp4"_s;
    }
    // clang-format on
    void outputFilename() {
        QFETCH(QString, source);
        QFETCH(QString, codec);
        QFETCH(QString, expected);
        RemuxItem item(source);
        if (!codec.isNull()) {
            item.cachedMediaInfo = MediaInfo();
            item.cachedMediaInfo->videoCodec = codec;
        }
        QCOMPARE(item.outputFilename(), expected);
    }

    void statusRawValuesRoundTrip() {
        for (int i = 0; i <= int(ProcessingStatus::skipped); ++i) {
            const auto status = ProcessingStatus(i);
            QCOMPARE(processingStatusFromRawValue(rawValue(status)), std::optional(status));
        }
    }
};

QTEST_APPLESS_MAIN(MediaInfoTest)
#include "tst_MediaInfo.moc"
