#include "model/RemuxItem.h"

#include <QTest>

using namespace Qt::StringLiterals;

class RemuxItemTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // clang-format off
    void outputFilename_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("codec"); // null: not probed yet
        QTest::addColumn<QString>("expected");
        const QString notProbed;
        QTest::newRow("Movie.mkv H.264") << u"/v/Movie.mkv"_s << u"h264"_s << u"Movie.mp4"_s;
        QTest::newRow("Movie.mp4 HEVC") << u"/v/Movie.mp4"_s << u"hevc"_s << u"Movie.morvane.mp4"_s;
        QTest::newRow("Movie.MP4 HEVC") << u"/v/Movie.MP4"_s << u"hevc"_s << u"Movie.morvane.mp4"_s;
        QTest::newRow("Movie.m4v HEVC") << u"/v/Movie.m4v"_s << u"hevc"_s << u"Movie.mp4"_s;
        QTest::newRow("Movie.mov H.264") << u"/v/Movie.mov"_s << u"h264"_s << u"Movie.mp4"_s;
        QTest::newRow("Movie.mov ProRes") << u"/v/Movie.mov"_s << u"prores"_s << u"Movie.morvane.mov"_s;
        QTest::newRow("Movie.mp4 ProRes") << u"/v/Movie.mp4"_s << u"prores"_s << u"Movie.mov"_s;
        QTest::newRow("Movie.avi MJPEG") << u"/v/Movie.avi"_s << u"mjpeg"_s << u"Movie.mov"_s;
        QTest::newRow("Movie.mp4 not probed") << u"/v/Movie.mp4"_s << notProbed << u"Movie.morvane.mp4"_s;
        QTest::newRow("Movie.mov not probed") << u"/v/Movie.mov"_s << notProbed << u"Movie.mp4"_s;
        QTest::newRow("my.first.take.ts AV1") << u"/v/my.first.take.ts"_s << u"av1"_s << u"my.first.take.mp4"_s;
        QTest::newRow("base name keeps its case") << u"/v/MiXeD.Case.MKV"_s << u"h264"_s << u"MiXeD.Case.mp4"_s;
        QTest::newRow("upper-case codec name") << u"/v/Clip.mov"_s << u"PRORES"_s << u"Clip.morvane.mov"_s;
        QTest::newRow("no extension gets no infix") << u"/v/Movie"_s << u"h264"_s << u"Movie.mp4"_s;
        QTest::newRow("a name that is only a dot-name") << u"/v/.mp4"_s << u"h264"_s << u".mp4.mp4"_s;
        QTest::newRow("non-ASCII and spaces") << u"/v/Été à Paris.mkv"_s << u"hevc"_s << u"Été à Paris.mp4"_s;
    }
    // clang-format on
    void outputFilename() {
        QFETCH(QString, source);
        QFETCH(QString, codec);
        QFETCH(QString, expected);
        RemuxItem item(source);
        if (!codec.isNull()) {
            MediaInfo info;
            info.hasVideoStream = true;
            info.videoCodec = codec;
            item.cachedMediaInfo = info;
        }
        QCOMPARE(item.outputFilename(), expected);
    }

    // clang-format off
    void statusRawValues_data() {
        QTest::addColumn<ProcessingStatus>("status");
        QTest::addColumn<QString>("raw");
        QTest::newRow("pending") << ProcessingStatus::pending << u"Pending"_s;
        QTest::newRow("processing reads Remuxing") << ProcessingStatus::processing << u"Remuxing"_s;
        QTest::newRow("completed") << ProcessingStatus::completed << u"Completed"_s;
        QTest::newRow("failed reads Error") << ProcessingStatus::failed << u"Error"_s;
        QTest::newRow("skipped") << ProcessingStatus::skipped << u"Skipped"_s;
    }
    // clang-format on
    void statusRawValues() {
        QFETCH(ProcessingStatus, status);
        QFETCH(QString, raw);
        QCOMPARE(rawValue(status), raw);
        QCOMPARE(processingStatusFromRawValue(raw), std::optional(status));
    }

    void unknownRawValueGivesNoStatus() {
        QCOMPARE(processingStatusFromRawValue(u"failed"_s), std::nullopt);
        QCOMPARE(processingStatusFromRawValue(u"pending"_s), std::nullopt);
        QCOMPARE(processingStatusFromRawValue(QString()), std::nullopt);
    }

    void progressAloneMakesItemsUnequal() {
        const RemuxItem item(u"/v/a.mkv"_s);
        RemuxItem moved = item;
        QVERIFY(moved == item);
        moved.progress = 0.5;
        QVERIFY(!(moved == item));
    }

    void supportedExtensionsAndLabel() {
        QCOMPARE(RemuxItem::supportedExtensions(),
                 QSet<QString>({u"mkv"_s, u"webm"_s, u"avi"_s, u"ts"_s, u"mts"_s, u"m2ts"_s,
                                u"mxf"_s, u"mov"_s, u"mp4"_s, u"m4v"_s}));
        QCOMPARE(RemuxItem::supportedFormatsLabel(),
                 u"AVI · M2TS · M4V · MKV · MOV · MP4 · MTS · MXF · TS · WEBM"_s);
    }
};

QTEST_APPLESS_MAIN(RemuxItemTest)
#include "tst_RemuxItem.moc"
