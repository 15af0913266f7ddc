#include "cli/interrupt.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <ctime>

#include "cli/fault.h"

namespace cli {
namespace {

volatile std::sig_atomic_t g_signal = 0;
volatile std::time_t g_first = 0;
constexpr std::time_t kPatience = 2;  // seconds; keeps an impatient double Ctrl-C from cutting the clean-up off

// For the handler, which must not touch what the program has allocated. The flag is set while the text is whole.
char g_folder[PATH_MAX] = {};
volatile std::sig_atomic_t g_hasFolder = 0;

extern "C" void OnSignal(int number) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    if (g_signal == 0) {
        g_first = now.tv_sec;
        g_signal = number;
    } else if (now.tv_sec - g_first > kPatience) {
        if (g_hasFolder != 0) RemoveFolder(g_folder);
        ::signal(number, SIG_DFL);
        ::raise(number);
    }
}

std::vector<std::string> g_effects;

}  // namespace

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnSignal;  // without SA_RESTART: a read that waits for the operator ends
    ::sigfillset(&action.sa_mask);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old {};
        // A signal that is ignored from outside (nohup, a script's background job) stays so.
        if (::sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
        ::sigaction(number, &action, nullptr);
    }
    ::signal(SIGPIPE, SIG_IGN);
}

void GuardStandardDescriptors() {
    for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        // The lowest free number is given, and those below are in use.
        if (::fcntl(number, F_GETFD) < 0 && errno == EBADF && ::open("/dev/null", number == STDIN_FILENO ? O_WRONLY : O_RDONLY) != number) ::_exit(kSystem);
    }
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
    while (!Interrupted() && ::ppoll(&one, 1, nullptr, &before) < 0 && errno == EINTR) {}
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    ThrowIfInterrupted();
}

void RecordEffect(std::string what) { g_effects.push_back(std::move(what)); }

const std::vector<std::string>& Effects() { return g_effects; }

void RemoveFolder(const char* path) {
    const int folder = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder < 0) return;
    alignas(dirent64) char entries[4096];
    for (ssize_t size = 0; (size = ::getdents64(folder, entries, sizeof entries)) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(entries + at);
            ::unlinkat(folder, entry->d_name, 0);  // "." and ".." are folders, which this leaves
            at += entry->d_reclen;
        }
    }
    ::close(folder);
    ::rmdir(path);
}

void RemoveWhenKilled(const std::string& folder) {
    g_hasFolder = 0;
    if (folder.empty() || folder.size() >= sizeof g_folder) return;
    std::memcpy(g_folder, folder.c_str(), folder.size() + 1);
    g_hasFolder = 1;
}

void EndBySignal() {
    const int number = g_signal != 0 ? g_signal : SIGINT;
    ::signal(number, SIG_DFL);
    ::raise(number);
    ::_exit(128 + number);
}

}  // namespace cli
