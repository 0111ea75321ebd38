#include "interrupt.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

namespace kzdump {

namespace {

volatile std::sig_atomic_t gStopSignal = 0;
int gWake[2] = {-1, -1};

void OnStopSignal(int signal) {
    const int savedErrno = errno;
    gStopSignal = signal;
    [[maybe_unused]] const ssize_t written = ::write(gWake[1], "!", 1);
    errno = savedErrno;
}

}  // namespace

void CatchStopSignals() {
    if (::pipe2(gWake, O_CLOEXEC | O_NONBLOCK) != 0) return;
    struct sigaction action {};
    action.sa_handler = &OnStopSignal;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a blocking read returns, and the run sees the signal.
    action.sa_flags = 0;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

int StopSignal() { return gStopSignal; }

int StopWakeDescriptor() { return gWake[0]; }

void RaiseStopSignal() {
    const int signal = gStopSignal;
    std::signal(signal, SIG_DFL);
    std::raise(signal);
    std::_Exit(128 + signal);
}

}  // namespace kzdump
