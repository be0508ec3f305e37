#pragma once

// Owns the one queue engine of the process, from before the first window until the
// end, starts the notification check at launch, opens the Help window, and guards
// every quit: during a batch it asks before cancelling the work.

#include "engine/RemuxService.h"

#include <QCoreApplication>
#include <QObject>
#include <QPointer>

class QWidget;

class AppDelegate final : public QObject {
    Q_OBJECT
public:
    explicit AppDelegate(QObject* parent = nullptr);
    ~AppDelegate() override;

    RemuxService& remuxer() { return *remuxer_; }

    void applicationDidFinishLaunching();
    // The quit guard's answer: quit now, quit by itself 0.3 s after the confirmed
    // cancellation, or stay.
    enum class TerminateReply { now, later, cancel };
    TerminateReply applicationShouldTerminate(QWidget* parent);
    // What the Quit command and a closed window ask for.
    void requestQuit(QWidget* parent);
    void openHelp();
    QWidget* helpWindow() const { return help_; }

    static constexpr double quitGrace = 0.3;
    // What ends the process after a confirmed quit; tests watch it instead.
    void setQuitAction(std::function<void()> quit) { quit_ = std::move(quit); }

private:
    std::unique_ptr<RemuxService> remuxer_;
    QPointer<QWidget> help_;
    std::vector<Async::BackgroundTask> tasks_;
    std::function<void()> quit_ = [] { QCoreApplication::quit(); };
};
