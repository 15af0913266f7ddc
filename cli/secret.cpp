#include "cli/secret.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/interrupt.h"
#include "cli/program.h"

namespace cli {
namespace {

// The controlling terminal, with echo off on demand; put back as it was on every way out.
class Prompt {
public:
    explicit Prompt(bool echo) : m_fd(::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
        if (m_fd < 0 || echo || ::tcgetattr(m_fd, &m_old) != 0) return;
        termios quiet = m_old;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        quiet.c_lflag |= ECHONL | ICANON | ISIG;
        m_isChanged = ::tcsetattr(m_fd, TCSAFLUSH, &quiet) == 0;
    }
    ~Prompt() {
        if (m_isChanged) ::tcsetattr(m_fd, TCSAFLUSH, &m_old);
        if (m_fd >= 0) ::close(m_fd);
    }
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    int Get() const { return m_fd; }
    bool IsQuiet() const { return m_isChanged; }

private:
    int m_fd;
    termios m_old{};
    bool m_isChanged = false;
};

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
        if (got < 0) throw Fault(kKeys, "cannot read the password from " + where + ": " + std::strerror(errno));
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

void Ask(const std::string& prompt, Secret& password) {
    const Prompt terminal(false);
    if (terminal.Get() < 0) {
        throw Fault(kKeys, "a password is needed, and there is no terminal to ask at", "Give it with --password-file FILE or --password-fd N.",
                    TOO_E_WRONG_PASSWORD);
    }
    if (!terminal.IsQuiet()) throw Fault(kSystem, "the terminal cannot hide a password", "Give it with --password-file FILE.");
    WriteAll(terminal.Get(), Printable(prompt) + ": ");
    ReadLine(terminal.Get(), "the terminal", true, password);
}

void ReadSource(const PasswordSource& source, Secret& password) {
    if (!source.file.empty()) {
        const int fd = ::open(source.file.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status {};
        const bool isFolder = fd >= 0 && ::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode);
        if (fd < 0 || isFolder) {
            const int error = isFolder ? EISDIR : errno;
            if (fd >= 0) ::close(fd);
            throw Fault(kKeys, "cannot read the password from " + source.file + ": " + std::strerror(error), "", TOOStatusFromErrno(error, TOO_E_READ));
        }
        struct Closer {
            int fd;
            ~Closer() { ::close(fd); }
        } closer{fd};
        if (S_ISREG(status.st_mode) && (status.st_mode & 077) != 0) {
            WriteAll(STDERR_FILENO, "warning: others may read the password file " + Printable(source.file) + "; its mode should be 0600\n");
        }
        ReadLine(fd, source.file, false, password);
    } else {
        ReadLine(source.descriptor, "descriptor " + std::to_string(source.descriptor), false, password);
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

void PasswordSource::Define(Options& options, const std::string& name, bool allowNone) {
    std::string words = name == "pin" ? "PIN" : name == "new-pin" ? "new PIN" : name;
    std::replace(words.begin(), words.end(), '-', ' ');
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
    Ask(prompt, password);
}

void GetNewPassword(const PasswordSource& source, const std::string& prompt, Secret& password) {
    GetPassword(source, prompt, password);
    if (source.none) return;
    if (password.empty()) {
        throw Fault(kKeys, "the new password is empty", "Choose one, or say that there is to be none: --no-password.");
    }
    if (source.IsGiven()) return;
    Secret again;
    Ask(prompt + ", again", again);
    if (!(again == password)) throw Fault(kKeys, "the two passwords differ", "Nothing was changed; try again.");
}

bool Confirm(const std::string& question, const std::string& option) {
    const Prompt terminal(true);
    if (terminal.Get() < 0) throw Fault(kUsage, "this needs to be confirmed, and there is no terminal to ask at", "Give " + option + " to confirm it.");
    WriteAll(terminal.Get(), Printable(question, true) + " [y/N] ");
    Secret answer;
    ReadLine(terminal.Get(), "the terminal", true, answer);
    return answer.size() >= 1 && (answer.c_str()[0] == 'y' || answer.c_str()[0] == 'Y');
}

}  // namespace cli
