#include "tools/FFmpegService.h"

#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;
using FFmpegService::friendlyLine;
using FFmpegService::friendlyMessage;

class FailureWordingTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // clang-format off
    void friendlyLine_data() {
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("expected");
        const QString longPath = u"/"_s + QString(210, u'p');
        QTest::newRow("bracketed component, missing moov")
            << u"[mov,mp4,m4a,3gp,3g2,mj2 @ 0x5563] moov atom not found"_s
            << u"The file is incomplete or corrupted (missing movie metadata)."_s;
        QTest::newRow("path, colon, invalid data")
            << u"/tmp/a.mkv: Invalid data found when processing input"_s
            << u"This doesn't look like a video file, or it's too damaged to read."_s;
        QTest::newRow("missing file")
            << u"/tmp/gone.mkv: No such file or directory"_s << u"The file is missing or was moved."_s;
        QTest::newRow("permission")
            << u"/tmp/a.mkv: Permission denied"_s << u"Permission denied — the file isn't readable."_s;
        QTest::newRow("end of file")
            << u"[matroska @ 0x1] Read error: End of file"_s
            << u"The file ends unexpectedly — it may be a partial download."_s;
        QTest::newRow("a path of 200 characters keeps its colon, substring still found")
            << longPath + u": Permission denied"_s << u"Permission denied — the file isn't readable."_s;
        QTest::newRow("a path of 200 characters and an unknown cause stays whole")
            << longPath + u": Odd failure"_s << longPath + u": Odd failure"_s;
        QTest::newRow("199 characters before the colon is short enough")
            << QString(199, u'a') + u": Odd failure"_s << u"Odd failure"_s;
        QTest::newRow("a line ending in a colon comes back") << u"Stream #0:"_s << u"Stream #0:"_s;
        QTest::newRow("a single colon comes back") << u":"_s << u":"_s;
        QTest::newRow("unknown text keeps its case") << u"Something Odd Happened"_s << u"Something Odd Happened"_s;
        QTest::newRow("open bracket without close is kept, colon applies")
            << u"[no close: Weird Thing"_s << u"Weird Thing"_s;
        QTest::newRow("bracket only, cause after it")
            << u"[aac @ 0x1]   Too many bits  "_s << u"Too many bits"_s;
        QTest::newRow("first colon decides")
            << u"Error: while reading: Input/output error"_s << u"while reading: Input/output error"_s;
        QTest::newRow("only spaces come back as given") << u"   "_s << u"   "_s;
    }
    // clang-format on
    void friendlyLine() {
        QFETCH(QString, line);
        QFETCH(QString, expected);
        QCOMPARE(FFmpegService::friendlyLine(line), expected);
    }

    // clang-format off
    void friendlyMessage_data() {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("expected");
        using C = FFmpegError::Case;
        QTest::newRow("cancelled") << int(C::cancelled) << u""_s << u"Cancelled"_s;
        QTest::newRow("timed out") << int(C::timedOut) << u""_s
                                   << u"The operation timed out. The file may be corrupted or unreadable."_s;
        QTest::newRow("ffmpeg missing") << int(C::ffmpegNotFound) << u""_s
            << u"ffmpeg not found in app bundle. The app must be built with ffmpeg-bundle/ present."_s;
        QTest::newRow("ffprobe missing") << int(C::ffprobeNotFound) << u""_s
            << u"ffprobe not found in app bundle. The app must be built with ffmpeg-bundle/ present."_s;
        QTest::newRow("remux failure reads its last line, not the prefix")
            << int(C::remuxFailed)
            << u"ffmpeg exited with code 1\n[in#0 @ 0x1] moov atom not found\n/x.mp4: Odd failure\n"_s
            << u"Odd failure"_s;
        QTest::newRow("a known cause in an earlier line has no effect")
            << int(C::processFailed) << u"/x: No such file or directory\nsomething else"_s
            << u"something else"_s;
        QTest::newRow("remux failure with no standard error shows its code")
            << int(C::remuxFailed) << u"ffmpeg exited with code 1\n"_s << u"ffmpeg exited with code 1"_s;
        QTest::newRow("fixed probe text passes unchanged")
            << int(C::processFailed)
            << u"The file couldn't be read. It may be corrupted, incomplete, or not a supported video format."_s
            << u"The file couldn't be read. It may be corrupted, incomplete, or not a supported video format."_s;
        QTest::newRow("probe parse failure")
            << int(C::probeFailed) << u"Could not parse ffprobe output."_s
            << u"Could not parse ffprobe output."_s;
        QTest::newRow("blank message comes back unchanged")
            << int(C::processFailed) << u"  \n \n"_s << u"  \n \n"_s;
        QTest::newRow("rule text passes unchanged")
            << int(C::remuxFailed) << u"10-bit/12-bit H.264 is not supported by QuickTime"_s
            << u"10-bit/12-bit H.264 is not supported by QuickTime"_s;
    }
    // clang-format on
    void friendlyMessage() {
        QFETCH(int, kind);
        QFETCH(QString, message);
        QFETCH(QString, expected);
        const auto make = [&]() -> FFmpegError {
            switch (FFmpegError::Case(kind)) {
            case FFmpegError::Case::probeFailed:
                return FFmpegError::probeFailed(message);
            case FFmpegError::Case::remuxFailed:
                return FFmpegError::remuxFailed(message);
            case FFmpegError::Case::processFailed:
                return FFmpegError::processFailed(message);
            case FFmpegError::Case::ffmpegNotFound:
                return FFmpegError::ffmpegNotFound();
            case FFmpegError::Case::ffprobeNotFound:
                return FFmpegError::ffprobeNotFound();
            case FFmpegError::Case::cancelled:
                return FFmpegError::cancelled();
            case FFmpegError::Case::timedOut:
                return FFmpegError::timedOut();
            }
            return FFmpegError::cancelled();
        };
        QCOMPARE(FFmpegService::friendlyMessage(make()), expected);
    }

    void otherErrorsKeepTheirDescription() {
        QCOMPARE(
            FFmpegService::friendlyMessage(std::runtime_error("disk on fire: moov atom not found")),
            u"disk on fire: moov atom not found"_s);
    }
};

QTEST_APPLESS_MAIN(FailureWordingTest)
#include "tst_FailureWording.moc"
