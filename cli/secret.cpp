#include "cli/secret.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <optional>
#include <string_view>

#include "cli/descriptor.h"
#include "cli/interrupt.h"
#include "cli/program.h"

namespace cli {
namespace {

// A terminal whose echo is off; put back as it was on every way out, and while the program is suspended.
class Quiet {
public:
    /// @param prompt  is shown again when the program goes on; must outlive this
    Quiet(int terminal, const std::string& prompt) {
        if (::tcgetattr(terminal, &s_old) != 0) return;
        s_quiet = s_old;
        s_quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        s_quiet.c_lflag |= ECHONL | ICANON | ISIG;
        s_terminal = terminal;
        s_prompt = prompt;
        struct sigaction action {};
        action.sa_handler = OnSuspend;
        ::sigfillset(&action.sa_mask);
        // In the background the terminal is another program's: its change waits for the foreground, which this signal makes it do.
        ::sigdelset(&action.sa_mask, SIGTTOU);
        struct sigaction old {};
        m_isHandled = ::sigaction(SIGTSTP, nullptr, &old) == 0 && old.sa_handler != SIG_IGN && ::sigaction(SIGTSTP, &action, nullptr) == 0;
        m_isOn = ::tcsetattr(terminal, TCSAFLUSH, &s_quiet) == 0;
    }
    ~Quiet() {
        // A suspension meanwhile would leave the terminal without echo, or set it so again.
        sigset_t suspension;
        sigset_t before;
        ::sigemptyset(&suspension);
        ::sigaddset(&suspension, SIGTSTP);
        ::sigprocmask(SIG_BLOCK, &suspension, &before);
        if (m_isOn) ::tcsetattr(s_terminal, TCSAFLUSH, &s_old);
        if (m_isHandled) ::signal(SIGTSTP, SIG_DFL);
        ::sigprocmask(SIG_SETMASK, &before, nullptr);
    }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

    bool IsOn() const { return m_isOn; }

private:
    static void OnSuspend(int) {
        const int error = errno;
        ::tcsetattr(s_terminal, TCSAFLUSH, &s_old);
        ::raise(SIGSTOP);
        ::tcsetattr(s_terminal, TCSAFLUSH, &s_quiet);
        if (::write(s_terminal, s_prompt.data(), s_prompt.size()) < 0) {}
        errno = error;
    }

    // For the handler. One terminal is asked at a time.
    static inline int s_terminal = -1;
    static inline termios s_old{};
    static inline termios s_quiet{};
    static inline std::string_view s_prompt;

    bool m_isOn = false;
    bool m_isHandled = false;
};

int OpenTerminal() { return ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY); }

void CheckPassword(const Secret& password, const std::string& where) {
    if (std::memchr(password.c_str(), 0, password.size()) != nullptr) {
        throw Fault(kKeys, "the password from " + where + " holds a zero byte", "Passwords are text; write it to the file anew.");
    }
}

// Reads one line; what stands behind it must be nothing, unless it comes from a terminal.
void ReadLine(int fd, const std::string& where, bool isTerminal, Secret& password) {
    bool ended = false;
    for (;;) {
        char c = 0;
        WaitReadable(fd);
        const ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR) {
            ThrowIfInterrupted();
            continue;
        }
        if (got < 0) throw Fault(ExitOfErrno(errno, kKeys), "cannot read the password from " + where + ": " + std::strerror(errno));
        if (got == 0) break;
        if (ended) throw Fault(kKeys, "the password from " + where + " has more than one line", "It must hold the password and nothing else.");
        ended = c == '\n';
        if (ended && isTerminal) break;
        if (!ended && !password.Append(c)) throw Fault(kKeys, "the password from " + where + " is longer than 1024 bytes");
        c = 0;
    }
    CheckPassword(password, where);
}

void StripReturn(Secret& password);

void RequireQuiet(const Quiet& quiet, const std::string& hint) {
    if (!quiet.IsOn()) throw Fault(kSystem, "the terminal cannot hide a password", hint);
}

void Ask(const PasswordSource& source, const std::string& prompt, Secret& password) {
    const std::string instead = "--" + source.name + "-file FILE or --" + source.name + "-fd N.";
    const Descriptor terminal(OpenTerminal());
    if (terminal.Get() < 0) {
        throw Fault(kKeys, "a " + source.Words() + " is needed, and there is no terminal to ask at", "Give it with " + instead, TOO_E_WRONG_PASSWORD);
    }
    const std::string shown = Printable(prompt) + ": ";
    const Quiet quiet(terminal.Get(), shown);
    RequireQuiet(quiet, "Give it with " + instead);
    WriteAll(terminal.Get(), shown);
    ReadLine(terminal.Get(), "the terminal", true, password);
}

void ReadDescriptor(int fd, const std::string& where, Secret& password) {
    static const std::string kNoPrompt;
    const bool isTerminal = IsTerminal(fd);
    std::optional<Quiet> quiet;
    if (isTerminal) RequireQuiet(quiet.emplace(fd, kNoPrompt), "Give it from a file.");
    ReadLine(fd, where, isTerminal, password);
}

void ReadSource(const PasswordSource& source, Secret& password) {
    if (!source.file.empty()) {
        const Descriptor file(::open(source.file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
        struct stat status {};
        const bool isFolder = file.Get() >= 0 && ::fstat(file.Get(), &status) == 0 && S_ISDIR(status.st_mode);
        if (file.Get() < 0 || isFolder) {
            const int error = isFolder ? EISDIR : errno;
            if (error == EINTR) ThrowIfInterrupted();
            throw Fault(ExitOfErrno(error, kKeys), "cannot read the " + source.Words() + " from " + source.file + ": " + std::strerror(error),
                        error == EACCES ? "Check who may read it." : "", TOOStatusFromErrno(error, TOO_E_READ));
        }
        if (S_ISREG(status.st_mode) && (status.st_mode & 077) != 0) {
            WriteAll(STDERR_FILENO, "warning: others may read the password file " + Printable(source.file) + "; its mode should be 0600\n");
        }
        ReadDescriptor(file.Get(), source.file, password);
    } else {
        ReadDescriptor(source.descriptor, "descriptor " + std::to_string(source.descriptor), password);
    }
    StripReturn(password);
}

}  // namespace

bool Secret::Append(char c) {
    if (m_size == kMost) return false;
    m_text[m_size++] = c;
    return true;
}

void Secret::Wipe() {
    ::explicit_bzero(m_text, sizeof m_text);
    m_size = 0;
}

bool Secret::operator==(const Secret& other) const {
    unsigned char difference = m_size == other.m_size ? 0 : 1;
    for (std::size_t i = 0; i < kMost; ++i) difference |= static_cast<unsigned char>(m_text[i] ^ other.m_text[i]);
    return difference == 0;
}

namespace {
// Files from other systems end their lines with CR LF.
void StripReturn(Secret& password) {
    if (password.empty() || password.c_str()[password.size() - 1] != '\r') return;
    Secret shorter;
    for (std::size_t i = 0; i + 1 < password.size(); ++i) shorter.Append(password.c_str()[i]);
    password.Wipe();
    for (std::size_t i = 0; i < shorter.size(); ++i) password.Append(shorter.c_str()[i]);
}
}  // namespace

std::string PasswordSource::Words() const {
    std::string words = name;
    std::replace(words.begin(), words.end(), '-', ' ');
    const std::size_t pin = words.find("pin");
    return pin == std::string::npos ? words : words.replace(pin, 3, "PIN");
}

void PasswordSource::Define(Options& options, const std::string& optionName, bool allowNone) {
    name = optionName;
    mayBeNone = allowNone;
    const std::string words = Words();
    CLI::Option* byFile = options.Path("--" + name + "-file", file, "The " + words + " is the one line of this file");
    CLI::Option* byDescriptor = options.Value("--" + name + "-fd", descriptor, "N", "The " + words + " is the one line that this open descriptor gives");
    byDescriptor->check(CLI::Range(0, 1 << 20));
    byFile->excludes(byDescriptor);
    if (!allowNone) return;
    options.Flag("--no-" + name, none, "There is to be no " + words)->excludes(byFile)->excludes(byDescriptor);
}

void GetPassword(const PasswordSource& source, const std::string& prompt, Secret& password) {
    password.Wipe();
    if (source.none) return;
    if (source.IsGiven()) return ReadSource(source, password);
    Ask(source, prompt, password);
}

void GetNewPassword(const PasswordSource& source, const std::string& prompt, Secret& password) {
    GetPassword(source, prompt, password);
    if (source.none) return;
    if (password.empty()) {
        const std::string what = source.Words().compare(0, 4, "new ") == 0 ? source.Words() : "new " + source.Words();
        throw Fault(kKeys, "the " + what + " is empty",
                    source.mayBeNone ? "Choose one, or say that there is to be none: --no-" + source.name + "." : "Choose one.");
    }
    if (source.IsGiven()) return;
    Secret again;
    Ask(source, prompt + ", again", again);
    if (!(again == password)) throw Fault(kKeys, "what was typed the second time differs", "Nothing was changed; try again.");
}

bool Confirm(const std::string& question, const std::string& option, const std::vector<std::string>& about) {
    const Descriptor terminal(OpenTerminal());
    if (terminal.Get() < 0) throw Fault(kUsage, "this needs to be confirmed, and there is no terminal to ask at", "Give " + option + " to confirm it.");
    std::string text;
    for (const std::string& line : about) text += Printable(line) + "\n";
    WriteAll(terminal.Get(), text + Printable(question) + " [y/N] ");
    Secret answer;
    ReadLine(terminal.Get(), "the terminal", true, answer);
    return answer.size() >= 1 && (answer.c_str()[0] == 'y' || answer.c_str()[0] == 'Y');
}

}  // namespace cli
