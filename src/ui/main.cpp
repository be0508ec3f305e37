#include "MainWindow.h"

#include <QApplication>

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Morvane"));
    QApplication::setApplicationVersion(QStringLiteral(MORVANE_VERSION));
    MainWindow window;
    window.show();
    return app.exec();
}
