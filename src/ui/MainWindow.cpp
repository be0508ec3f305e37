#include "MainWindow.h"

#include "AppDelegate.h"
#include "ControlBar.h"
#include "DropFeedbackBanner.h"
#include "FileListView.h"
#include "intake/Panels.h"
#include "tools/FFmpegService.h"

#include <QCloseEvent>
#include <QFrame>
#include <QMenuBar>
#include "Alert.h"

#include <QMessageBox>
#include <QPushButton>
#include <QStyle>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

MainWindow::MainWindow(AppDelegate& app, QWidget* parent)
    : QMainWindow(parent), app_(app), list_(new FileListView(app.remuxer(), this)) {
    setWindowTitle(u"Morvane"_s);
    setMinimumSize(720, 400);
    resize(900, 600);
    auto* content = new QWidget(this);
    auto* stack = new QVBoxLayout(content);
    stack->setContentsMargins(0, 0, 0, 0);
    stack->setSpacing(0);
    banner_ = new DropFeedbackBanner(app.remuxer(), content);
    stack->addWidget(banner_);
    stack->addWidget(list_, 1);
    auto* divider = new QFrame(content);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Sunken);
    stack->addWidget(divider);
    bar_ = new ControlBar(app.remuxer(), *list_, content);
    stack->addWidget(bar_);
    // Tab reads the window as a person does: the banner above, the list, then the bar
    // from left to right.
    QList<QWidget*> order{banner_->dismissButton(), list_};
    for (const char* name : {"import", "saveTo", "remove", "start", "cancel", "retryFailed",
                             "clearCompleted"}) {
        order.append(bar_->button(QString::fromLatin1(name)));
    }
    for (qsizetype i = 1; i < order.size(); ++i) {
        setTabOrder(order[i - 1], order[i]);
    }
    setCentralWidget(content);
    RemuxService& engine = app_.remuxer();

    QMenu* file = menuBar()->addMenu(u"&File"_s);
    import_ = file->addAction(u"Import…"_s, QKeySequence(u"Ctrl+O"_s), this, [this] {
        Panels::presentImportPanel(this,
                                   [this](QStringList urls) { app_.remuxer().addFiles(urls, 0); });
    });
    file->addSeparator();
    clearCompleted_ = file->addAction(u"Clear Completed"_s, QKeySequence(u"Ctrl+K"_s), &engine,
                                      &RemuxService::clearCompleted);
    clearAll_ = file->addAction(u"Clear All…"_s, this, &MainWindow::confirmClearAll);
    file->addSeparator();
    QAction* quit =
        file->addAction(u"Quit"_s, QKeySequence::Quit, this, [this] { app_.requestQuit(this); });

    QMenu* convert = menuBar()->addMenu(u"&Convert"_s);
    start_ = convert->addAction(u"Start"_s, &engine, &RemuxService::startBatch);
    start_->setShortcuts({QKeySequence(u"Ctrl+R"_s), QKeySequence(u"Ctrl+Return"_s)});
    cancelAll_ = convert->addAction(u"Cancel All"_s, &engine, &RemuxService::cancelAll);
    cancelAll_->setShortcuts({QKeySequence(u"Ctrl+."_s), QKeySequence(u"Ctrl+Escape"_s)});
    convert->addSeparator();
    retryFailed_ = convert->addAction(u"Retry Failed"_s, &engine, &RemuxService::retryFailed);
    convert->addSeparator();
    chooseFolder_ = convert->addAction(u"Choose Output Folder…"_s, this, [this] {
        Panels::presentOutputFolderPanel(
            this, [this](QString folder) { app_.remuxer().setCustomOutputDirectory(folder); });
    });
    useSourceFolder_ = convert->addAction(u"Use Source Folder"_s, this, [this] {
        app_.remuxer().setCustomOutputDirectory(std::nullopt);
    });

    QMenu* help = menuBar()->addMenu(u"&Help"_s);
    QAction* helpAction = help->addAction(u"Morvane Help"_s);
    helpAction->setShortcuts({QKeySequence(u"Ctrl+?"_s), QKeySequence(Qt::Key_F1)});
    // The window's keys work in the Help window too: its actions are added there.
    connect(helpAction, &QAction::triggered, this,
            [this, shared = QList<QAction*>{import_, quit, helpAction, start_, cancelAll_}] {
                app_.openHelp();
                app_.helpWindow()->addActions(shared);
            });

    // Enablement follows the engine at once.
    for (auto signal : {&RemuxService::itemsInserted, &RemuxService::itemsRemoved}) {
        connect(&engine, signal, this, &MainWindow::updateMenus);
    }
    connect(&engine, &RemuxService::itemChanged, this, &MainWindow::updateMenus);
    connect(&engine, &RemuxService::itemsReset, this, &MainWindow::updateMenus);
    connect(&engine, &RemuxService::isRemuxingChanged, this, &MainWindow::updateMenus);
    connect(&engine, &RemuxService::customOutputDirectoryChanged, this, &MainWindow::updateMenus);
    // With no tray to bring it back, a window closed during a batch comes back when the
    // batch ends, rather than staying hidden in a running process.
    connect(&engine, &RemuxService::isRemuxingChanged, this, [this](bool remuxing) {
        if (!remuxing && !isVisible() && !tray_) {
            bringForward();
        }
    });
    updateMenus();
}

QAction* MainWindow::action(const QString& text) const {
    for (QAction* candidate : findChildren<QAction*>()) {
        if (candidate->text() == text) {
            return candidate;
        }
    }
    return nullptr;
}

// "Morvane", or during a batch "Morvane — 4 of 10": finished items of all items.
void MainWindow::updateTitle() {
    const RemuxService& engine = app_.remuxer();
    if (!engine.isRemuxing()) {
        setWindowTitle(u"Morvane"_s);
        return;
    }
    const QList<RemuxItem>& items = engine.items();
    setWindowTitle(u"Morvane \u2014 %1 of %2"_s.arg(tally(items).finished()).arg(items.size()));
}

void MainWindow::updateMenus() {
    updateTitle();
    const RemuxService& engine = app_.remuxer();
    const QList<RemuxItem>& items = engine.items();
    const auto any = [&items](auto test) { return std::any_of(items.begin(), items.end(), test); };
    clearCompleted_->setEnabled(any([](const RemuxItem& i) {
        return i.status == ProcessingStatus::completed || i.status == ProcessingStatus::skipped;
    }));
    clearAll_->setEnabled(!items.isEmpty());
    start_->setEnabled(!items.isEmpty() && !engine.isRemuxing());
    cancelAll_->setEnabled(engine.isRemuxing());
    retryFailed_->setEnabled(!engine.isRemuxing() && any([](const RemuxItem& i) {
        return i.status == ProcessingStatus::failed;
    }));
    useSourceFolder_->setEnabled(engine.customOutputDirectory().has_value());
}

void MainWindow::confirmClearAll() {
    QMessageBox* confirm = Alert::create(
        this, u"Clear All Items?"_s,
        u"This will remove all items from the queue and cancel any in-progress remuxes."_s);
    confirm->setObjectName(u"clearAllConfirmation"_s);
    confirm->setAttribute(Qt::WA_DeleteOnClose);
    Alert::addCancel(confirm);
    QPushButton* clear = confirm->addButton(u"Clear All"_s, QMessageBox::DestructiveRole);
    connect(confirm, &QMessageBox::finished, this, [this, confirm, clear] {
        if (confirm->clickedButton() == clear) {
            app_.remuxer().clearAll();
        }
    });
    confirm->open();
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    // After the window is up, so that the alert has a parent on screen.
    QTimer::singleShot(0, this, &MainWindow::checkEnvironment);
}

// Closing the window with no batch running quits. During a batch the window only
// goes away: the batch runs on, the tray icon (where the desktop has a tray) and a
// second launch bring it back.
void MainWindow::closeEvent(QCloseEvent* event) {
    event->ignore();
    if (!app_.remuxer().isRemuxing()) {
        app_.requestQuit(this);
        return;
    }
    hide();
    if (QSystemTrayIcon::isSystemTrayAvailable()) {
        if (!tray_) {
            // The application's icon, unless it can't be drawn (an SVG without Qt's
            // SVG plugin): an empty square would be no way back to the window.
            const QIcon icon = windowIcon();
            tray_ = new QSystemTrayIcon(icon.pixmap(QSize(22, 22)).isNull()
                                            ? style()->standardIcon(QStyle::SP_MediaPlay)
                                            : icon,
                                        this);
            tray_->setToolTip(u"Morvane"_s);
            // The window comes back after the tray's own mouse and menu handling:
            // hiding the icon from inside it pulls the icon's window out from under
            // that handler.
            const auto showLater = [this] {
                QMetaObject::invokeMethod(this, &MainWindow::bringForward, Qt::QueuedConnection);
            };
            auto* menu = new QMenu(this);
            menu->addAction(u"Show"_s, this, showLater);
            menu->addAction(u"Quit"_s, this, [this] { app_.requestQuit(this); });
            tray_->setContextMenu(menu);
            // The context click opens the menu and does nothing more.
            connect(tray_, &QSystemTrayIcon::activated, this,
                    [showLater](QSystemTrayIcon::ActivationReason reason) {
                        if (reason != QSystemTrayIcon::Context) {
                            showLater();
                        }
                    });
        }
        tray_->show();
    }
}

void MainWindow::bringForward() {
    if (tray_) {
        tray_->hide();
    }
    show();
    raise();
    activateWindow();
}

void MainWindow::checkEnvironment() {
    try {
        FFmpegService::verifyTools();
    } catch (const FFmpegError& error) {
        if (findChild<QMessageBox*>(u"environmentAlert"_s)) {
            return; // one alert at a time; the one up already says it
        }
        QMessageBox* alert = Alert::create(
            this, u"FFmpeg Not Available"_s,
            error.localizedDescription() +
                u"\n\nThis is a build-time problem: the app must be rebuilt with the FFmpeg "
                u"binaries present in `ffmpeg-bundle/` (run `scripts/build-ffmpeg`)."_s);
        QPushButton* ok = alert->addButton(QMessageBox::Ok);
        alert->setDefaultButton(ok);
        alert->setEscapeButton(ok);
        alert->setObjectName(u"environmentAlert"_s);
        alert->setAttribute(Qt::WA_DeleteOnClose);
        alert->open();
    }
}
