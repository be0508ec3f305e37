// How the two programs end during a run, and what each ending leaves: the window
// (on a display of its own, with a window manager and an XEmbed tray) and the
// command line, ended by the tray's context click, SIGTERM, SIGINT, SIGHUP, SIGKILL
// and a crash. No tool may live on, nothing may stand under a final name, and after
// the next start no partial file may be left.

#include "TestSupport.h"

#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;

namespace {

constexpr int startTimeout = 30000;
// The kill grace of a child that ignores SIGTERM, and some.
constexpr int endTimeout = 10000;
// Any status but a clean one: a crash under AddressSanitizer ends with its report.
constexpr int unclean = -1;

QString binary(const QString& name) {
    return QCoreApplication::applicationDirPath() + u'/' + name;
}

// The tools at work on files in `folder`, by their command lines.
QStringList toolsAt(const QString& folder) {
    QStringList found;
    for (const QString& pid : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        QFile file(u"/proc/"_s + pid + u"/cmdline"_s);
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        const QByteArray line = file.readAll();
        const QString program = QFileInfo(QFile::decodeName(line.split('\0').first())).fileName();
        if ((program == u"ffmpeg" || program == u"ffprobe") &&
            line.contains(QFile::encodeName(folder))) {
            found.append(pid);
        }
    }
    return found;
}

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

} // namespace

class EndingsTest final : public QObject {
    Q_OBJECT

    QTemporaryDir runtime;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    std::vector<std::unique_ptr<QProcess>> desktop;

    // Runs xdotool or wmctrl to its end and gives the lines it printed.
    QStringList tool(const QString& program, const QStringList& arguments) {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
        process.waitForFinished(startTimeout);
        return QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }
    QStringList visibleWindows() {
        return tool(u"xdotool"_s, {u"search"_s, u"--onlyvisible"_s, u"--classname"_s, u"morvane"_s});
    }
    // The main window, once it shows.
    QStringList mainWindow() {
        return tool(u"xdotool"_s,
                    {u"search"_s, u"--sync"_s, u"--onlyvisible"_s, u"--name"_s, u"^Morvane$"_s});
    }
    QProcess* startDesktopPart(const QString& program, const QStringList& arguments) {
        auto& process = desktop.emplace_back(std::make_unique<QProcess>());
        process->setProcessEnvironment(environment);
        process->start(program, arguments);
        return process.get();
    }

private Q_SLOTS:
    void initTestCase() {
        // A display of its own, with what a desktop has: a window manager and a tray.
        QProcess* xvfb = startDesktopPart(u"Xvfb"_s, {u"-displayfd"_s, u"1"_s, u"-screen"_s, u"0"_s,
                                                      u"1280x800x24"_s, u"-nolisten"_s, u"tcp"_s});
        QVERIFY2(xvfb->waitForReadyRead(startTimeout), "Xvfb did not start");
        environment.insert(u"DISPLAY"_s, u':' + QString::fromUtf8(xvfb->readLine().trimmed()));
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        // One instance per runtime folder; the tray is the XEmbed one, not a bus's.
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
        environment.remove(u"DBUS_SESSION_BUS_ADDRESS"_s);
        startDesktopPart(u"openbox"_s, {});
        startDesktopPart(u"trayer"_s, {u"--edge"_s, u"top"_s, u"--align"_s, u"right"_s,
                                       u"--widthtype"_s, u"pixel"_s, u"--width"_s, u"100"_s,
                                       u"--height"_s, u"24"_s});
        QVERIFY2(!tool(u"xdotool"_s, {u"search"_s, u"--sync"_s, u"--class"_s, u"trayer"_s}).isEmpty(),
                 "no tray");
    }

    void cleanupTestCase() {
        for (auto it = desktop.rbegin(); it != desktop.rend(); ++it) {
            (*it)->terminate();
            (*it)->waitForFinished(endTimeout);
        }
    }

    void endings_data() {
        QTest::addColumn<QString>("program");
        QTest::addColumn<int>("signal");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("convertAgain");
        const QString window = u"morvane"_s;
        const QString cli = u"morvane-cli"_s;
        // Signal 0: the tray icon's context click, which must change nothing.
        QTest::newRow("window, tray right-click: the menu opens, the run goes on")
            << window << 0 << 128 + SIGTERM << false;
        QTest::newRow("window, SIGTERM (logout)") << window << SIGTERM << 128 + SIGTERM << false;
        QTest::newRow("window, SIGINT") << window << SIGINT << 128 + SIGINT << false;
        QTest::newRow("window, SIGHUP") << window << SIGHUP << 128 + SIGHUP << false;
        QTest::newRow("window, SIGKILL") << window << SIGKILL << unclean << false;
        QTest::newRow("window, a crash") << window << SIGSEGV << unclean << false;
        QTest::newRow("command line, Ctrl-C") << cli << SIGINT << 130 << true;
        QTest::newRow("command line, SIGTERM") << cli << SIGTERM << 130 << true;
        QTest::newRow("command line, SIGHUP") << cli << SIGHUP << 130 << false;
        QTest::newRow("command line, SIGKILL") << cli << SIGKILL << unclean << false;
        QTest::newRow("command line, a crash") << cli << SIGSEGV << unclean << false;
    }

    void endings() {
        QFETCH(QString, program);
        QFETCH(int, signal);
        QFETCH(int, status);
        QFETCH(bool, convertAgain);
        QTemporaryDir folder;
        QTemporaryDir state;
        environment.insert(u"XDG_STATE_HOME"_s, state.path());
        const QString source =
            TestSupport::copyInto(folder, TestSupport::mediaPath(u"long_flac.mkv"_s), u"Clip.mkv"_s);
        const QString partial = folder.filePath(u".Clip.mp4.morvane-partial"_s);
        const bool window = program == u"morvane";

        QProcess app;
        app.setProcessEnvironment(environment);
        app.start(binary(program), window ? QStringList{source} : QStringList{u"--json"_s, source});
        if (window) {
            const QStringList shown = mainWindow();
            QVERIFY2(!shown.isEmpty(), "the window did not show");
            tool(u"xdotool"_s, {u"windowactivate"_s, u"--sync"_s, shown.first(), u"key"_s,
                                u"ctrl+Return"_s});
        }
        // Progress has begun: the output grows and, on the command line, reports it.
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(partial).size() > 0, startTimeout);
        if (!window) {
            static const QRegularExpression progress(u"\"progress\":0\\.0*[1-9]"_s);
            QTRY_VERIFY_WITH_TIMEOUT(progress.match(QString::fromUtf8(app.peek(1 << 20))).hasMatch(),
                                     startTimeout);
        }

        if (signal == 0) {
            tool(u"wmctrl"_s, {u"-c"_s, u"Morvane"_s});
            // Hidden, the window leaves the tray icon as the only thing on screen.
            QTRY_COMPARE_WITH_TIMEOUT(visibleWindows().size(), 1, startTimeout);
            tool(u"xdotool"_s,
                 {u"mousemove"_s, u"--window"_s, visibleWindows().first(), u"8"_s, u"8"_s,
                  u"click"_s, u"3"_s});
            QTRY_COMPARE_WITH_TIMEOUT(visibleWindows().size(), 2, startTimeout); // the menu
            // The other program, started meanwhile, leaves the live run's files alone.
            QProcess other;
            other.setProcessEnvironment(environment);
            other.start(binary(u"morvane-cli"_s), {u"--dry-run"_s, source});
            QVERIFY(other.waitForFinished(startTimeout));
            QVERIFY(QFile::exists(partial));
            const qint64 written = QFileInfo(partial).size();
            QTest::qWait(1000);
            QCOMPARE(app.state(), QProcess::Running);
            QVERIFY(!toolsAt(folder.path()).isEmpty());
            QVERIFY(QFileInfo(partial).size() > written);
            signal = SIGTERM; // and then the logout
        }
        ::kill(pid_t(app.processId()), signal);
        QVERIFY2(app.waitForFinished(endTimeout), "the program did not end");
        if (status == unclean) {
            QVERIFY(app.exitStatus() == QProcess::CrashExit || app.exitCode() != 0);
        } else {
            QCOMPARE(app.exitStatus(), QProcess::NormalExit);
            QCOMPARE(app.exitCode(), status);
            // A handled ending removes its files itself.
            QCOMPARE(filesIn(folder.path()), QStringList{u"Clip.mkv"_s});
        }
        // At once: a tool left running would finish its run by itself in a few seconds.
        QTRY_VERIFY_WITH_TIMEOUT(toolsAt(folder.path()).isEmpty(), 2000);
        for (const QString& name : filesIn(folder.path())) {
            QVERIFY2(name == u"Clip.mkv" || name.endsWith(u".morvane-partial"), qPrintable(name));
        }

        // The next start removes what an ended process left, and the file is
        // converted, not skipped.
        QProcess next;
        next.setProcessEnvironment(environment);
        if (window) {
            next.start(binary(program), {});
            QVERIFY(!mainWindow().isEmpty());
            ::kill(pid_t(next.processId()), SIGTERM);
            QVERIFY(next.waitForFinished(endTimeout));
        } else {
            next.start(binary(program), convertAgain ? QStringList{source}
                                                     : QStringList{u"--dry-run"_s, source});
            QVERIFY(next.waitForFinished(120000));
            QCOMPARE(next.exitCode(), 0);
            QCOMPARE(QString::fromUtf8(next.readAllStandardOutput()).trimmed().section(u'\n', -1),
                     convertAgain ? u"1 converted"_s : u"1 to convert"_s);
        }
        // What it removed, it names.
        QCOMPARE(QString::fromLocal8Bit(next.readAllStandardError()).contains(partial),
                 status == unclean);
        QCOMPARE(filesIn(folder.path()),
                 convertAgain ? QStringList({u"Clip.eng.srt"_s, u"Clip.mkv"_s, u"Clip.mp4"_s})
                              : QStringList{u"Clip.mkv"_s});
        QCOMPARE(QDir(state.filePath(u"morvane"_s)).entryList(QDir::Files), QStringList());
    }
};

QTEST_GUILESS_MAIN(EndingsTest)
#include "tst_Endings.moc"
