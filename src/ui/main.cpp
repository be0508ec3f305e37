// The application's entry: one instance per session; the delegate and its engine
// first, then the window. File paths given by the desktop ("Open With") join the
// queue of the running instance as an import does.

#include "AppDelegate.h"
#include "MainWindow.h"
#include "SingleInstance.h"
#include "async/TerminationSignals.h"
#include "engine/RunJournal.h"

#include <QApplication>
#include <QDir>
#include <QIcon>
#include <QLoggingCategory>
#include <QSessionManager>

Q_LOGGING_CATEGORY(lcApp, "com.morvane.App")

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Morvane"));
    QApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("io.github.morvane.Morvane"));
    QApplication::setWindowIcon(QIcon::fromTheme(
        QStringLiteral("io.github.morvane.Morvane"),
        QIcon(QApplication::applicationDirPath() +
              QStringLiteral(
                  "/../share/icons/hicolor/scalable/apps/io.github.morvane.Morvane.svg"))));

    // Only the quit guard ends the process: closing the last visible window (Help,
    // while the main window is hidden during a batch) must not.
    QApplication::setQuitOnLastWindowClosed(false);

    const QStringList paths = QApplication::arguments().mid(1);
    SingleInstance instance;
    if (instance.forwardToRunning(paths)) {
        return 0;
    }
    instance.listen();
    // What a killed or crashed run of either program left half-written goes first.
    RunJournal::removeAbandoned();

    AppDelegate delegate;
    MainWindow window(delegate);
    const auto open = [&delegate](const QStringList& files) {
        if (!files.isEmpty()) {
            delegate.remuxer().addFiles(files, 0);
        }
    };
    QObject::connect(&instance, &SingleInstance::activated, &window, [&](const QStringList& files) {
        qCInfo(lcApp, "Another launch handed over %lld path(s)",
               static_cast<long long>(files.size()));
        window.bringForward();
        open(files);
    });
    // A session logout is a quit request like any other.
    QObject::connect(&app, &QGuiApplication::commitDataRequest, &delegate,
                     [&](QSessionManager& manager) {
                         // A confirmed quit ends by itself; only a refusal holds the
                         // logout back.
                         if (delegate.applicationShouldTerminate(&window) ==
                             AppDelegate::TerminateReply::cancel) {
                             manager.cancel();
                         }
                     });
    // A logout's SIGTERM, a kill, Ctrl-C or a closed terminal: a quit without a
    // question. Every run is cancelled, and the end below waits for their files to go.
    TerminationSignals terminations;
    QObject::connect(&terminations, &TerminationSignals::received, &delegate, [&](int number) {
        qCInfo(lcApp, "Signal %d: cancelling every run and quitting", number);
        delegate.remuxer().cancelAll();
        QCoreApplication::exit(TerminationSignals::exitStatusFor(number));
    });
    delegate.applicationDidFinishLaunching();
    window.show();
    QStringList files;
    for (const QString& path : paths) {
        files.append(QDir::cleanPath(QDir::current().absoluteFilePath(path)));
    }
    open(files);
    const int status = app.exec();
    // The cancelled runs end (their children get SIGKILL after the kill grace) and
    // delete what they wrote before the process goes.
    window.hide();
    delegate.remuxer().shutDown();
    return status;
}
