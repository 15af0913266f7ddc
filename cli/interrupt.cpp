#include "cli/interrupt.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
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

constexpr int kSignals[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP};

// In a signal handler too. What the memory held, a password perhaps, goes into no core file.
void EndBy(int number) {
    if (g_hasFolder != 0) RemoveFolder(g_folder);
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_CORE, &none);
    ::signal(number, SIG_DFL);
    ::raise(number);
}

// Waits until a descriptor is ready for `events`, or a signal asked to end. A signal between a check and a call that waits would be slept
// over; so it is let in by the wait alone.
void AwaitUnlessStopped(int descriptor, short events) {
    sigset_t ours;
    sigset_t before;
    ::sigemptyset(&ours);
    for (const int number : kSignals) ::sigaddset(&ours, number);
    ::sigprocmask(SIG_BLOCK, &ours, &before);
    pollfd one{descriptor, events, 0};
    while (!Interrupted() && ::ppoll(&one, 1, nullptr, &before) < 0 && errno == EINTR) {}
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
}

extern "C" void OnSignal(int number) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    if (g_signal == 0) {
        g_first = now.tv_sec;
        g_signal = number;
    } else if (now.tv_sec - g_first > kPatience) {
        EndBy(number);
    }
}

std::vector<std::string> g_effects;

}  // namespace

void InstallSignalHandlers() {
    struct sigaction action {};
    action.sa_handler = OnSignal;  // without SA_RESTART: a read that waits for the operator ends
    ::sigfillset(&action.sa_mask);
    for (const int number : kSignals) {
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
    AwaitUnlessStopped(descriptor, POLLIN);
    ThrowIfInterrupted();
}

int WriteUnlessStopped(int descriptor, std::string_view text) {
    struct stat status {};
    const bool mayWait = ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode);
    while (!text.empty()) {
        // A pipe that is ready takes so much without waiting.
        const std::size_t size = mayWait ? std::min<std::size_t>(text.size(), PIPE_BUF) : text.size();
        if (mayWait) AwaitUnlessStopped(descriptor, POLLOUT);
        if (Interrupted()) return EINTR;
        const ssize_t written = ::write(descriptor, text.data(), size);
        if (written < 0 && errno != EINTR) return errno;
        if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
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
    EndBy(number);
    ::_exit(128 + number);
}

}  // namespace cli
