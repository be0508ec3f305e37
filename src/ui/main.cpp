// The application's entry: the delegate and its engine first, then the window.

#include "AppDelegate.h"
#include "MainWindow.h"

#include <QApplication>
#include <QSessionManager>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Morvane"));
    QApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("morvane"));

    AppDelegate delegate;
    MainWindow window(delegate);
    // A session logout is a quit request like any other.
    QObject::connect(&app, &QGuiApplication::commitDataRequest, &delegate,
                     [&](QSessionManager& manager) {
                         if (!delegate.applicationShouldTerminate(&window)) {
                             manager.cancel();
                         }
                     });
    delegate.applicationDidFinishLaunching();
    window.show();
    return app.exec();
}
