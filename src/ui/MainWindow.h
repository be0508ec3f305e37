#pragma once

// The main window: the queue list under the application's menus. Menu items follow
// the engine's state at once; the tools are checked each time the window appears.

#include <QMainWindow>

class AppDelegate;
class ControlBar;
class DropFeedbackBanner;
class FileListView;
class QAction;
class QSystemTrayIcon;

class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(AppDelegate& app, QWidget* parent = nullptr);

    FileListView& list() { return *list_; }
    DropFeedbackBanner& banner() { return *banner_; }
    ControlBar& bar() { return *bar_; }
    QAction* action(const QString& text) const;
    void confirmClearAll();
    // Shows the window again and raises it (another launch, the tray).
    void bringForward();

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void checkEnvironment();
    void updateMenus();
    void updateTitle();

    AppDelegate& app_;
    FileListView* list_;
    DropFeedbackBanner* banner_ = nullptr;
    ControlBar* bar_ = nullptr;
    QAction* import_ = nullptr;
    QAction* clearCompleted_ = nullptr;
    QAction* clearAll_ = nullptr;
    QAction* start_ = nullptr;
    QAction* cancelAll_ = nullptr;
    QAction* retryFailed_ = nullptr;
    QAction* chooseFolder_ = nullptr;
    QAction* useSourceFolder_ = nullptr;
    QSystemTrayIcon* tray_ = nullptr;
};
