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

QStringList filesIn(const QString& folder) {
    return QDir(folder).entryList(QDir::Files | QDir::Hidden, QDir::Name);
}

} // namespace

class EndingsTest final : public QObject {
    Q_OBJECT

    QTemporaryDir runtime;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString bin = QCoreApplication::applicationDirPath();
    // Everything started here, the display's parts first; each ends with the test.
    std::list<QProcess> processes;

    QProcess& launch(const QString& command) {
        QProcess& process = processes.emplace_back();
        process.setProcessEnvironment(environment);
        const QStringList words = QProcess::splitCommand(command);
        process.start(words.first(), words.mid(1));
        return process;
    }
    // Runs an X tool's command line to its end and gives the lines it printed.
    QStringList tool(const QString& command) {
        QProcess& process = launch(command);
        process.waitForFinished(startTimeout);
        return QString::fromUtf8(process.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
    }
    QStringList visibleWindows() {
        return tool(u"xdotool search --onlyvisible --classname morvane"_s);
    }

private Q_SLOTS:
    void initTestCase() {
        // A display of its own, with what a desktop has: a window manager and a tray.
        QProcess& xvfb = launch(u"Xvfb -displayfd 1 -screen 0 1280x800x24 -nolisten tcp"_s);
        QVERIFY2(xvfb.waitForReadyRead(startTimeout), "Xvfb did not start");
        environment.insert(u"DISPLAY"_s, u':' + QString::fromUtf8(xvfb.readLine().trimmed()));
        environment.insert(u"QT_QPA_PLATFORM"_s, u"xcb"_s);
        // One instance per runtime folder; the tray is the XEmbed one, not a bus's.
        environment.insert(u"XDG_RUNTIME_DIR"_s, runtime.path());
        environment.remove(u"DBUS_SESSION_BUS_ADDRESS"_s);
        launch(u"openbox"_s);
        launch(u"trayer --edge top --align right --widthtype pixel --width 100 --height 24"_s);
        QVERIFY2(!tool(u"xdotool search --sync --class trayer"_s).isEmpty(), "no tray");
    }

    void cleanupTestCase() {
        for (auto it = processes.rbegin(); it != processes.rend(); ++it) {
            it->terminate();
            it->waitForFinished(endTimeout);
        }
    }

    void endings_data() {
        QTest::addColumn<QString>("program");
        QTest::addColumn<int>("signal");
        // Signal 0: the tray icon's context click, which must change nothing.
        QTest::newRow("morvane, tray right-click: menu opens, run goes on") << u"morvane"_s << 0;
        // A logout's SIGTERM, Ctrl-C, a closed terminal, kill -9 and a crash.
        for (const char* program : {"morvane", "morvane-cli"}) {
            for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGKILL, SIGSEGV}) {
                QTest::addRow("%s, SIG%s", program, sigabbrev_np(signal))
                    << QString::fromLatin1(program) << signal;
            }
        }
    }

    void endings() {
        QFETCH(QString, program);
        QFETCH(int, signal);
        const bool window = program == u"morvane";
        // Those it takes, either program answers as its own quit does; the others
        // leave a partial file for the next start.
        const bool handled = signal != SIGKILL && signal != SIGSEGV;
        QTemporaryDir folder, state;
        environment.insert(u"XDG_STATE_HOME"_s, state.path());
        const QString source = TestSupport::copyInto(
            folder, TestSupport::mediaPath(u"long_flac.mkv"_s), u"Clip.mkv"_s);
        const QString partial = folder.filePath(u".Clip.mp4.morvane-partial"_s);
        // The tools at work on its files, by their command lines.
        const QString tools = u"pgrep -f ff(mpeg|probe).*"_s + folder.path();

        QProcess& app =
            launch(u"%1/%2 %3 %4"_s.arg(bin, program, window ? QString() : u"--json"_s, source));
        if (window) { // Start, from the keyboard, once the window shows
            tool(u"xdotool search --sync --onlyvisible --name ^Morvane$ windowactivate --sync key "
                 u"ctrl+Return"_s);
        }
        // Progress has begun: the output grows and, on the command line, reports it.
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(partial).size() > 0, startTimeout);
        const QRegularExpression progress(u"\"progress\":0\\.0*[1-9]"_s);
        QTRY_VERIFY_WITH_TIMEOUT(window || QString::fromUtf8(app.peek(1 << 20)).contains(progress),
                                 startTimeout);

        if (signal == 0) {
            tool(u"wmctrl -c Morvane"_s);
            // Hidden, the window leaves the tray icon as the only thing on screen.
            QTRY_COMPARE_WITH_TIMEOUT(visibleWindows().size(), 1, startTimeout);
            tool(u"xdotool mousemove --window %1 8 8 click 3"_s.arg(visibleWindows().first()));
            QTRY_COMPARE_WITH_TIMEOUT(visibleWindows().size(), 2, startTimeout); // the menu
            // The other program, started meanwhile, leaves the live run's files alone.
            QVERIFY(launch(u"%1/morvane-cli --dry-run %2"_s.arg(bin, source)).waitForFinished());
            const qint64 written = QFileInfo(partial).size();
            QTest::qWait(1000);
            QCOMPARE(app.state(), QProcess::Running);
            QVERIFY(!tool(tools).isEmpty());
            QVERIFY(QFileInfo(partial).size() > written);
            signal = SIGTERM; // and then the logout
        }
        ::kill(pid_t(app.processId()), signal);
        QVERIFY2(app.waitForFinished(endTimeout), "the program did not end");
        if (!handled) {
            // Any status but a clean one: a crash under AddressSanitizer ends with its report.
            QVERIFY(app.exitStatus() == QProcess::CrashExit || app.exitCode() != 0);
        } else {
            QCOMPARE(app.exitStatus() == QProcess::NormalExit ? app.exitCode() : -1,
                     window ? 128 + signal : 130);
            // A handled ending removes its files itself.
            QCOMPARE(filesIn(folder.path()), QStringList{u"Clip.mkv"_s});
        }
        // At once: a tool left running would finish its run by itself in a few seconds.
        QTRY_VERIFY_WITH_TIMEOUT(tool(tools).isEmpty(), 2000);
        QCOMPARE(filesIn(folder.path()).filter(QRegularExpression(u"^Clip\\.(?!mkv$)"_s)),
                 QStringList());

        // The next start removes what an ended process left; the command line then
        // converts the file rather than skip it.
        QProcess& next = launch(u"%1/%2 %3"_s.arg(bin, program, window ? QString() : source));
        if (window) {
            QVERIFY(!tool(u"xdotool search --sync --onlyvisible --name ^Morvane$"_s).isEmpty());
            ::kill(pid_t(next.processId()), SIGTERM);
            QVERIFY(next.waitForFinished(endTimeout));
        } else {
            QVERIFY(next.waitForFinished(120000));
            QCOMPARE(next.exitCode(), 0);
            QCOMPARE(QString::fromUtf8(next.readAllStandardOutput()).trimmed().section(u'\n', -1),
                     u"1 converted"_s);
        }
        // What it removed, it names.
        QCOMPARE(QString::fromLocal8Bit(next.readAllStandardError()).contains(partial), !handled);
        QCOMPARE(filesIn(folder.path()),
                 window ? QStringList{u"Clip.mkv"_s}
                        : QStringList({u"Clip.eng.srt"_s, u"Clip.mkv"_s, u"Clip.mp4"_s}));
        QCOMPARE(QDir(state.filePath(u"morvane"_s)).entryList(QDir::Files), QStringList());
    }
};

QTEST_GUILESS_MAIN(EndingsTest)
#include "tst_Endings.moc"
