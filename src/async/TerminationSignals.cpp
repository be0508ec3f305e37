#include "TerminationSignals.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int handled[] = {SIGTERM, SIGINT, SIGHUP};
int signalPipe[2] = {-1, -1};

extern "C" void onSignal(int number) {
    const int saved = errno;
    const unsigned char byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = saved;
}

} // namespace

TerminationSignals::TerminationSignals(QObject* parent) : QObject(parent) {
    if (signalPipe[0] < 0 && ::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return; // the default actions stay: the process ends as it did before
    }
    notifier_ = std::make_unique<QSocketNotifier>(signalPipe[0], QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] {
        unsigned char byte;
        while (::read(signalPipe[0], &byte, 1) > 0) {
            Q_EMIT received(byte);
        }
    });
    struct sigaction action {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int number : handled) {
        ::sigaction(number, &action, nullptr);
    }
}

TerminationSignals::~TerminationSignals() {
    for (const int number : handled) {
        ::signal(number, SIG_DFL);
    }
}
