#include "cli/interrupt.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

#include "cli/fault.h"

namespace cli {
namespace {

volatile std::sig_atomic_t g_signal = 0;
volatile std::time_t g_first = 0;
constexpr std::time_t kPatience = 2;  // seconds; keeps an impatient double Ctrl-C from cutting the clean-up off

extern "C" void OnSignal(int number) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    if (g_signal == 0) {
        g_signal = number;
        g_first = now.tv_sec;
    } else if (now.tv_sec - g_first > kPatience) {
        ::signal(number, SIG_DFL);
        ::raise(number);
    }
}

std::vector<std::string> g_effects;

}  // namespace

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnSignal;  // without SA_RESTART: a read that waits for the operator ends
    ::sigemptyset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        // A signal that is ignored from outside (nohup, a script's background job) stays so.
        if (::sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        ::sigaction(number, &action, nullptr);
    }
    ::signal(SIGPIPE, SIG_IGN);
}

bool Interrupted() { return g_signal != 0; }

void ThrowIfInterrupted() {
    if (Interrupted()) throw Stopped{};
}

void WaitReadable(int descriptor) {
    // A signal between the look at the flag and the wait would be slept over; so it is let in by the wait alone.
    sigset_t ours;
    sigset_t before;
    ::sigemptyset(&ours);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaddset(&ours, number);
    ::sigprocmask(SIG_BLOCK, &ours, &before);
    pollfd one{descriptor, POLLIN, 0};
    if (!Interrupted()) ::ppoll(&one, 1, nullptr, &before);
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    ThrowIfInterrupted();
}

void RecordEffect(std::string what) { g_effects.push_back(std::move(what)); }

const std::vector<std::string>& Effects() { return g_effects; }

void EndBySignal() {
    const int number = g_signal != 0 ? g_signal : SIGINT;
    ::signal(number, SIG_DFL);
    ::raise(number);
    ::_exit(128 + number);
}

}  // namespace cli
