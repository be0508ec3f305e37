#include "TestSupport.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

struct Result {
    int exitCode = -1;
    QString out;
    QString err;
};

// The environment of a server: no display, no platform plugin chosen.
QProcessEnvironment headless() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(u"DISPLAY"_s);
    environment.remove(u"WAYLAND_DISPLAY"_s);
    environment.remove(u"QT_QPA_PLATFORM"_s);
    return environment;
}

Result runCli(const QStringList& arguments, const QString& workingDirectory = {},
              const QString& binary = QCoreApplication::applicationDirPath() + u"/morvane-cli"_s) {
    QProcess cli;
    cli.setProcessEnvironment(headless());
    cli.setWorkingDirectory(workingDirectory);
    cli.start(binary, arguments);
    cli.waitForFinished(120000);
    return Result{cli.exitStatus() == QProcess::NormalExit ? cli.exitCode() : -1,
                  QString::fromUtf8(cli.readAllStandardOutput()),
                  QString::fromUtf8(cli.readAllStandardError())};
}

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files, QDir::Name);
}

} // namespace

class CliTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void convertsLikeTheEngine() {
        QTemporaryDir folder;
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"subtitles.mkv"_s));
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"hevc_aac.mkv"_s));
        if (TestSupport::corpusAvailable()) {
            TestSupport::copyInto(folder, TestSupport::corpusPath(u"sample_with_srt.mkv"_s));
        }
        const Result result = runCli({u"."_s}, folder.path());
        QCOMPARE(result.exitCode, 0);
        QStringList expected{u"hevc_aac.mkv"_s,      u"hevc_aac.mp4"_s,      u"subtitles.eng.srt"_s,
                             u"subtitles.fre.srt"_s, u"subtitles.ger.srt"_s, u"subtitles.mkv"_s,
                             u"subtitles.mp4"_s};
        if (TestSupport::corpusAvailable()) {
            expected << u"sample_with_srt.eng.srt"_s << u"sample_with_srt.mkv"_s
                     << u"sample_with_srt.mp4"_s;
            expected.sort();
        }
        QCOMPARE(filesIn(folder.path()), expected);
        QVERIFY(result.out.contains(u"Completed  hevc_aac.mkv  → hevc_aac.mp4"_s));
        QCOMPARE(result.out.trimmed().section(u'\n', -1),
                 TestSupport::corpusAvailable() ? u"3 converted"_s : u"2 converted"_s);
    }

    void dryRunWritesNothing() {
        QTemporaryDir folder;
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"subtitles.mkv"_s));
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"h264_aac.mp4"_s));
        const QStringList before = filesIn(folder.path());
        const Result result = runCli({u"--dry-run"_s, folder.path()});
        QCOMPARE(result.exitCode, 0);
        QCOMPARE(filesIn(folder.path()), before);
        QVERIFY(result.out.contains(u"Pending    subtitles.mkv  → subtitles.mp4"_s));
        QVERIFY(result.out.contains(u"Skipped — already QuickTime compatible"_s));
        QCOMPARE(result.out.trimmed().section(u'\n', -1), u"1 to convert, 1 skipped"_s);
    }

    void jsonLinesCarryEveryEvent() {
        QTemporaryDir folder;
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"hevc_aac.mkv"_s));
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"no_video.mkv"_s));
        // A tool that refuses the file, and an output found without video.
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"not_video.mkv"_s));
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"cut_after_header.mkv"_s));
        QFile(folder.filePath(u"notes.txt"_s)).open(QIODevice::WriteOnly);
        const Result result = runCli(
            {u"--json"_s, u"-o"_s, folder.path(), folder.filePath(u"hevc_aac.mkv"_s),
             folder.filePath(u"no_video.mkv"_s), folder.filePath(u"not_video.mkv"_s),
             folder.filePath(u"cut_after_header.mkv"_s), folder.filePath(u"notes.txt"_s)});
        QCOMPARE(result.exitCode, 1);
        QMultiHash<QString, QJsonObject> events;
        QStringList order;
        for (const QString& line : result.out.split(u'\n', Qt::SkipEmptyParts)) {
            QJsonParseError error{};
            const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8(), &error);
            QVERIFY2(document.isObject(), qPrintable(line));
            const QJsonObject event = document.object();
            events.insert(event.value(u"event"_s).toString(), event);
            order.append(event.value(u"event"_s).toString());
        }
        QCOMPARE(events.count(u"added"_s), 4);
        QCOMPARE(events.value(u"feedback"_s).value(u"message"_s).toString(),
                 u"1 unsupported file skipped"_s);
        QCOMPARE(events.count(u"verdict"_s), 4);
        QCOMPARE(events.count(u"done"_s), 4);
        QCOMPARE(order.last(), u"batch"_s);
        const QJsonObject batch = events.value(u"batch"_s);
        QCOMPARE(batch.value(u"converted"_s).toInt(), 1);
        QCOMPARE(batch.value(u"failed"_s).toInt(), 3);
        for (const QJsonObject& done : events.values(u"done"_s)) {
            const QString name = done.value(u"path"_s).toString().section(u'/', -1);
            // Every failure of a tool run carries what the tool said; a verdict has
            // no tool to quote.
            QCOMPARE(done.contains(u"details"_s),
                     name == u"not_video.mkv" || name == u"cut_after_header.mkv");
            if (name == u"not_video.mkv") {
                QVERIFY(done.value(u"details"_s).toString().contains(u"Invalid data found"_s));
            } else if (name == u"cut_after_header.mkv") {
                QCOMPARE(done.value(u"error"_s).toString(),
                         u"The converted file has no video — the source may be cut short or damaged."_s);
                QVERIFY(done.value(u"details"_s).toString().contains(u"File ended prematurely"_s));
            } else if (name == u"no_video.mkv") {
                QCOMPARE(done.value(u"status"_s).toString(), u"Error"_s);
                QCOMPARE(done.value(u"error"_s).toString(), u"No video stream found"_s);
            } else {
                QCOMPARE(done.value(u"status"_s).toString(), u"Completed"_s);
                QCOMPARE(done.value(u"output"_s).toString(), folder.filePath(u"hevc_aac.mp4"_s));
            }
        }
    }

    void aFailureShowsTheToolsLinesUnderIt() {
        QTemporaryDir folder;
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"not_video.mkv"_s));
        const Result result = runCli({folder.path()});
        QCOMPARE(result.exitCode, 1);
        const QStringList lines = result.out.split(u'\n');
        const qsizetype at = lines.indexOf(
            u"Error      not_video.mkv  This doesn't look like a video file, or it's too damaged to read."_s);
        QVERIFY2(at >= 0, qPrintable(result.out));
        QVERIFY(lines.value(at + 1).startsWith(u"    "_s));
        QVERIFY(lines.mid(at + 1).join(u'\n').contains(u"    "_s + folder.filePath(u"not_video.mkv"_s) +
                                                          u": Invalid data found when processing input"_s));
    }

    void usageErrorsAndMissingTools() {
        QCOMPARE(runCli({}).exitCode, 2);
        QCOMPARE(runCli({u"-o"_s, u"/no/such/folder"_s, u"/tmp"_s}).exitCode, 2);
        // A copy of the program with no tools beside it.
        QTemporaryDir install;
        QDir().mkpath(install.filePath(u"bin"_s));
        QFile::copy(QCoreApplication::applicationDirPath() + u"/morvane-cli"_s,
                    install.filePath(u"bin/morvane-cli"_s));
        const Result result = runCli({u"/tmp"_s}, {}, install.filePath(u"bin/morvane-cli"_s));
        QCOMPARE(result.exitCode, 2);
        QVERIFY(result.err.contains(
            u"ffmpeg not found in app bundle. The app must be built with ffmpeg-bundle/ present."_s));
    }

    void interruptionLeavesNoPartialFiles() {
        QTemporaryDir install;
        const QString bin = install.filePath(u"share/morvane/ffmpeg/bin"_s);
        QDir().mkpath(bin);
        QDir().mkpath(install.filePath(u"bin"_s));
        QFile::copy(QCoreApplication::applicationDirPath() + u"/morvane-cli"_s,
                    install.filePath(u"bin/morvane-cli"_s));
        QFile::link(TestSupport::bundledSupportPath() + u"/ffmpeg/bin/ffprobe"_s,
                    bin + u"/ffprobe"_s);
        // Writes the sidecars at once, then a partial output it never finishes.
        QFile fake(bin + u"/ffmpeg"_s);
        fake.open(QIODevice::WriteOnly);
        fake.write(
            "#!/bin/sh\nfor a; do case \"$a\" in *.srt) echo 1 > \"$a\";; *.mp4) out=$a;; esac; "
            "done\nprintf partial > \"$out\"\ntrap 'exit 255' TERM\nwhile :; do sleep 0.05; done\n");
        fake.close();
        fake.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

        QTemporaryDir folder;
        TestSupport::copyInto(folder, TestSupport::mediaPath(u"subtitles.mkv"_s));
        QProcess cli;
        cli.setProcessEnvironment(headless());
        cli.start(install.filePath(u"bin/morvane-cli"_s), {folder.path()});
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(folder.filePath(u"subtitles.mp4"_s)), 20000);
        QCOMPARE(filesIn(folder.path()).size(), 5);
        ::kill(pid_t(cli.processId()), SIGINT);
        QVERIFY(cli.waitForFinished(20000));
        QCOMPARE(cli.exitCode(), 130);
        QCOMPARE(filesIn(folder.path()), QStringList({u"subtitles.mkv"_s}));
    }
};

QTEST_GUILESS_MAIN(CliTest)
#include "tst_Cli.moc"
