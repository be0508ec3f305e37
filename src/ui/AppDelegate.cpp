#include "AppDelegate.h"

#include "HelpWindow.h"
#include "async/Blocking.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QPushButton>

using namespace Qt::StringLiterals;

namespace {
QCoro::Task<> askNotificationPermission(NotificationAgent* agent, std::stop_token stop) {
    co_await agent->requestAuthorization(stop);
}

// Gives the cancelled runs their moment, then lets the process go.
QCoro::Task<> quitAfterGrace(double seconds, std::function<void()> quit, std::stop_token stop) {
    co_await Async::sleepFor(seconds, stop);
    if (!stop.stop_requested()) {
        quit();
    }
}
} // namespace

AppDelegate::AppDelegate(QObject* parent)
    : QObject(parent), remuxer_(std::make_unique<RemuxService>()) {}

AppDelegate::~AppDelegate() {
    for (const Async::BackgroundTask& task : tasks_) {
        task.cancel();
        Async::waitFor(task.finished());
    }
    delete help_;
}

void AppDelegate::applicationDidFinishLaunching() {
    tasks_.push_back(Async::start(askNotificationPermission, &remuxer_->notifier()));
}

AppDelegate::TerminateReply AppDelegate::applicationShouldTerminate(QWidget* parent) {
    if (!remuxer_->isRemuxing()) {
        return TerminateReply::now;
    }
    QMessageBox alert(QMessageBox::Warning, u"Morvane"_s, u"Cancel in-progress remux?"_s,
                      QMessageBox::NoButton, parent);
    alert.setObjectName(u"quitGuard"_s);
    alert.setInformativeText(u"Morvane is still converting files. Quitting now cancels the "
                             u"remaining work and deletes any partial output files."_s);
    QPushButton* keep = alert.addButton(u"Keep Running"_s, QMessageBox::RejectRole);
    QPushButton* quit = alert.addButton(u"Cancel Remux and Quit"_s, QMessageBox::DestructiveRole);
    alert.setDefaultButton(keep);
    alert.setEscapeButton(keep);
    alert.exec();
    if (alert.clickedButton() != quit) {
        return TerminateReply::cancel;
    }
    remuxer_->cancelAll();
    tasks_.push_back(Async::start(quitAfterGrace, quitGrace, quit_));
    return TerminateReply::later;
}

void AppDelegate::requestQuit(QWidget* parent) {
    if (applicationShouldTerminate(parent) == TerminateReply::now) {
        quit_();
    }
}

void AppDelegate::openHelp() {
    if (!help_) {
        help_ = new HelpWindow();
    }
    help_->show();
    help_->raise();
    help_->activateWindow();
}
