#pragma once

// SIGTERM, SIGINT and SIGHUP as a Qt signal on the main thread: a logout, `kill`,
// Ctrl-C or a closed terminal asks the program to end, and it must end the way its
// own quit does, with every run cancelled and its files removed. The handler only
// writes the signal's number to a pipe; a QSocketNotifier reads it from the event
// loop. One instance per process, for as long as the program takes these signals.

#include <QObject>

#include <memory>

class QSocketNotifier;

class TerminationSignals final : public QObject {
    Q_OBJECT
public:
    explicit TerminationSignals(QObject* parent = nullptr);
    // Gives the three signals back their default action.
    ~TerminationSignals() override;

    // The exit status that tells a caller which signal ended the process.
    static int exitStatusFor(int signal) { return 128 + signal; }

Q_SIGNALS:
    // Once for each signal that arrives, with its number.
    void received(int signal);

private:
    std::unique_ptr<QSocketNotifier> notifier_;
};
