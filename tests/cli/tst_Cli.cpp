#include "TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

struct Result {
    int exitCode = -1;
    QString out, err;
};

Result runCli(const QStringList& arguments, const QString& workingDirectory = {},
              const QString& binary = QCoreApplication::applicationDirPath() + u"/morvane-cli"_s) {
    QProcess cli;
    cli.setWorkingDirectory(workingDirectory);
    cli.start(binary, arguments);
    cli.waitForFinished(120000);
    return {cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1,
            QString::fromUtf8(cli.readAllStandardOutput()),
            QString::fromUtf8(cli.readAllStandardError())};
}

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

} // namespace

class CliTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // A dry run, in JSON lines, judges each file and writes nothing. The run, given
    // a path relative to the working folder, converts the rest, and a failure's line
    // has the tool's own lines under it.
    void judgesThenConverts() {
        QTemporaryDir folder;
        for (const QString& name :
             {u"subtitles.mkv"_s, u"hevc_aac.mkv"_s, u"not_video.mkv"_s, u"h264_aac.mp4"_s}) {
            TestSupport::copyInto(folder, TestSupport::mediaPath(name));
        }
        QFile(folder.filePath(u"notes.txt"_s)).open(QIODevice::WriteOnly);
        const QStringList sources = filesIn(folder.path());
        Result result =
            runCli({u"--dry-run"_s, u"--json"_s, folder.path(), folder.filePath(u"notes.txt"_s)});
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(filesIn(folder.path()), sources);
        QStringList kinds;
        for (const QString& line : result.out.split(u'\n', Qt::SkipEmptyParts)) {
            kinds.append(QJsonDocument::fromJson(line.toUtf8())[u"event"_s].toString());
        }
        kinds.sort();
        QCOMPARE(kinds.join(u' '), u"added added added added batch done done feedback verdict "
                                   u"verdict verdict verdict"_s);
        QVERIFY(result.out.contains(u"\"message\":\"1 unsupported file skipped\""_s));
        QVERIFY(result.out.contains(u": Invalid data found when processing input"_s));
        QVERIFY(result.out.contains(
            u"{\"converted\":0,\"event\":\"batch\",\"failed\":1,\"skipped\":1}"_s));

        result = runCli({u"."_s}, folder.path());
        QCOMPARE(result.exitCode, 1);
        QCOMPARE(filesIn(folder.path()),
                 QStringList({u"h264_aac.mp4"_s, u"hevc_aac.mkv"_s, u"hevc_aac.mp4"_s,
                              u"not_video.mkv"_s, u"notes.txt"_s, u"subtitles.eng.srt"_s,
                              u"subtitles.fre.srt"_s, u"subtitles.ger.srt"_s, u"subtitles.mkv"_s,
                              u"subtitles.mp4"_s}));
        QVERIFY(result.out.contains(
            u"Skipped    h264_aac.mp4  Skipped — already QuickTime compatible"_s));
        QVERIFY(result.out.contains(u"Completed  hevc_aac.mkv  → hevc_aac.mp4\n"_s));
        QVERIFY2(
            result.out.contains(u"\nError      not_video.mkv  This doesn't look like a video file, "
                                u"or it's too damaged to read.\n    "_s),
            qPrintable(result.out));
        QCOMPARE(result.out.trimmed().section(u'\n', -1), u"2 converted, 1 skipped, 1 failed"_s);
    }

    // A copy of the program under another name: it still names itself and says why it
    // cannot run without its tools.
    void usageAndTools() {
        QCOMPARE(runCli({}).exitCode, 2);
        QTemporaryDir folder;
        QCOMPARE(runCli({u"-o"_s, folder.filePath(u"none"_s), folder.path()}).exitCode, 2);
        QTemporaryDir install;
        QDir().mkpath(install.filePath(u"share"_s));
        QDir().mkpath(install.filePath(u"bin"_s));
        const QString copy = install.filePath(u"bin/converter"_s);
        QFile::copy(QCoreApplication::applicationDirPath() + u"/morvane-cli"_s, copy);
        QVERIFY(runCli({u"--version"_s}, {}, copy).out.startsWith(u"morvane-cli "_s));
        const Result missing = runCli({folder.path()}, {}, copy);
        QCOMPARE(missing.exitCode, 2);
        QVERIFY2(missing.err.contains(u"ffmpeg not found in app bundle."_s),
                 qPrintable(missing.err));
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "tst_Cli.moc"
