#include "MainWindow.h"

#include "tools/FFmpegService.h"

#include <QMessageBox>
#include <QTimer>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent) {
    setWindowTitle(u"Morvane"_s);
    resize(720, 480);
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    // After the window is up, so that the alert has a parent on screen.
    QTimer::singleShot(0, this, &MainWindow::checkEnvironment);
}

void MainWindow::checkEnvironment() {
    try {
        FFmpegService::verifyTools();
    } catch (const FFmpegError& error) {
        auto* alert = new QMessageBox(
            QMessageBox::Warning, u"FFmpeg Not Available"_s,
            error.localizedDescription() +
                u"\n\nThis is a build-time problem: the app must be rebuilt with the FFmpeg "
                u"binaries present in `ffmpeg-bundle/` (run `scripts/build-ffmpeg`)."_s,
            QMessageBox::Ok, this);
        alert->setAttribute(Qt::WA_DeleteOnClose);
        alert->open();
    }
}
