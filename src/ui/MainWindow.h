#pragma once

// The application's main window. It checks for the bundled tools each time it
// appears and says plainly when one is missing.

#include <QMainWindow>

class MainWindow final : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget* parent = nullptr);

protected:
    void showEvent(QShowEvent* event) override;

private:
    void checkEnvironment();
};
