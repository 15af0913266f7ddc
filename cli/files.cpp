#include "cli/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "cli/interrupt.h"
#include "cli/pem.h"
#include "cli/terminal.h"

namespace cli {
namespace {

constexpr std::size_t kChunk = 1 << 16;
constexpr std::size_t kLines = 48;  // bytes of a line of PEM: pieces of whole lines are encoded by themselves
constexpr std::uint64_t kMostSpooled = 0xFFFFFFFEULL;  // what a message can be at most

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd > STDERR_FILENO) ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_fd; }
    int Release() { return std::exchange(m_fd, -1); }

private:
    int m_fd;
};

[[noreturn]] void FailRead(const std::string& name, int error) {
    const char* hint = error == ENOENT ? "Check the path." : error == EACCES ? "Check who may read it." : "";
    if (error == EISDIR) hint = "Name a file in it.";
    throw Fault(ExitOfErrno(error), "cannot read " + name + ": " + std::strerror(error), hint, TOOStatusFromErrno(error, TOO_E_READ));
}

[[noreturn]] void FailWrite(const std::string& name, int error) {
    if (error == EINTR || error == EPIPE) ThrowIfInterrupted();
    if (error == EPIPE) throw Fault(kSystem, "");  // a reader that has seen enough (head, less) is no reason for words
    const char* hint = error == ENOSPC ? "Make room on the disk." : error == EACCES || error == EROFS ? "Check who may write there." : "";
    throw Fault(kSystem, "cannot write " + name + ": " + std::strerror(error), hint, TOOStatusFromErrno(error, TOO_E_WRITE));
}

// Opens without waiting for the writer of a pipe to be opened wrongly: a pipe that is named is waited for, as cat does.
Descriptor OpenInput(const std::string& path, struct stat& status) {
    const std::string name = NameOf(path);
    Descriptor file(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.Get() < 0) {
        if (errno == EINTR) ThrowIfInterrupted();
        FailRead(name, errno);
    }
    if (::fstat(file.Get(), &status) != 0) FailRead(name, errno);
    if (S_ISDIR(status.st_mode)) FailRead(name, EISDIR);
    return Descriptor(file.Release());
}

// Reads up to `size` bytes; less only at the end.
std::size_t ReadSome(int fd, char* buffer, std::size_t size, const std::string& name) {
    std::size_t done = 0;
    while (done < size) {
        WaitReadable(fd);
        const ssize_t got = ::read(fd, buffer + done, size - done);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) FailRead(name, errno);
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

std::string TemporaryRoot() {
    const char* root = std::getenv("TMPDIR");
    return root != nullptr && *root == '/' ? root : "/tmp";
}

int OpenNameless() {
    const std::string root = TemporaryRoot();
    int fd = ::open(root.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd >= 0) return fd;
    std::string name = root + "/nal-XXXXXX";
    fd = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) FailWrite(root, errno);
    ::unlink(name.c_str());
    return fd;
}

}  // namespace

std::string NameOf(const std::string& path, bool isOutput) {
    if (path == "-") return isOutput ? "standard output" : "standard input";
    return path;
}

IdentObj ReadInput(const std::string& path, std::uint64_t limit) {
    struct stat status {};
    const Descriptor file = OpenInput(path, status);
    const std::string name = NameOf(path);
    const auto tooLarge = [&] {
        throw Fault(kInput, name + " is larger than " + std::to_string(limit >> 20) + " MiB, which nothing of this kind is", "Check the path.",
                    TOO_E_TOO_LARGE);
    };
    if (S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_size) > limit) tooLarge();
    IdentObj bytes;
    std::vector<char> buffer(kChunk);
    for (;;) {
        const std::size_t got = ReadSome(file.Get(), buffer.data(), buffer.size(), name);
        if (bytes.GetSize() + got > limit) tooLarge();
        bytes.Append(buffer.data(), static_cast<unsigned>(got));
        if (got < buffer.size()) break;
    }
    if (bytes.IsEmpty()) throw Fault(kInput, name + " is empty", "", TOO_E_BAD_STRUCTURE);
    return bytes;
}

std::string ReadHead(const std::string& path, std::size_t count) {
    struct stat status {};
    const Descriptor file = OpenInput(path, status);
    std::string head(count, '\0');
    head.resize(ReadSome(file.Get(), head.data(), count, path));
    return head;
}

InputFile::InputFile(const std::string& path, bool decodePem, bool own) : m_name(NameOf(path)) {
    struct stat status {};
    Descriptor file = OpenInput(path, status);
    m_size = static_cast<std::uint64_t>(status.st_size);
    const bool atStart = path != "-" || ::lseek(file.Get(), 0, SEEK_CUR) == 0;
    if (!own && S_ISREG(status.st_mode) && atStart) {
        std::string head(decodePem ? kChunk : 0, '\0');
        const ssize_t got = ::pread(file.Get(), head.data(), head.size(), 0);
        if (got <= 0 || !LooksLikePem({head.data(), static_cast<std::size_t>(got)})) {
            m_path = path == "-" ? "/proc/self/fd/0" : path;
            return;
        }
    }
    Spool(file.Get(), decodePem);
}

void InputFile::Spool(int source, bool decodePem) {
    m_descriptor = OpenNameless();
    m_path = "/proc/self/fd/" + std::to_string(m_descriptor);
    std::vector<char> buffer(kChunk);
    m_size = 0;
    PemDecoder pem;
    for (bool first = true;; first = false) {
        const std::size_t got = ReadSome(source, buffer.data(), buffer.size(), m_name);
        if (first) m_wasPem = decodePem && LooksLikePem({buffer.data(), got});
        std::string_view piece(buffer.data(), got);
        std::string decoded;
        if (m_wasPem) {
            pem.Feed(piece, decoded);
            piece = decoded;
        }
        m_size += piece.size();
        if (m_size > kMostSpooled) throw Fault(kInput, m_name + " is larger than 4 GiB", "Messages are at most that large.", TOO_E_TOO_LARGE);
        const int error = WriteAll(m_descriptor, piece);
        if (error != 0) FailWrite("a temporary file in " + TemporaryRoot(), error);
        if (got < buffer.size()) break;
    }
    if (m_wasPem && !pem.IsComplete()) throw Fault(kInput, m_name + " is damaged: its PEM text is cut short or has characters that do not belong there", "", TOO_E_BAD_STRUCTURE);
}

InputFile::~InputFile() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

OutputFile::OutputFile(const std::string& path, bool replace, const char* pemLabel)
    : m_target(path), m_name(NameOf(path, true)), m_path(path), m_pemLabel(pemLabel) {
    struct stat status {};
    const bool exists = path != "-" && ::stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) throw Fault(kInput, m_name + " is a folder", "Name a file in it.", TOO_E_NOT_A_FILE);
    if (exists && S_ISREG(status.st_mode) && !replace) {
        throw Fault(kInput, m_name + " is there already", "Name another file, or replace it with --force.", TOO_E_FILE_EXISTS);
    }
    m_isSpecial = exists && !S_ISREG(status.st_mode);
    CTOOString folder;
    CTOOString name;
    if (path != "-" && storedev::ParseFullPath(path, folder, name) && !CTOOFolder::Exists(folder)) {
        throw Fault(kInput, "cannot write " + m_name + ": there is no folder " + folder.str(), "Make it first, or check the path.", TOO_E_FILE_NOT_FOUND);
    }
    if (!IsStream() && pemLabel == nullptr) return;
    std::string place = TemporaryRoot() + "/nal-XXXXXX";
    if (::mkdtemp(place.data()) == nullptr) FailWrite(TemporaryRoot(), errno);
    m_folder = place;
    RemoveWhenKilled(m_folder);
    m_path = m_folder + "/output";
}

OutputFile::~OutputFile() {
    if (m_folder.empty()) return;
    RemoveFolder(m_folder.c_str());
    RemoveWhenKilled({});
}

void OutputFile::RefuseInput(const std::string& path, const char* done) const {
    struct stat a {};
    struct stat b {};
    if (m_target == "-" || ::stat(m_target.c_str(), &a) != 0) return;
    if (path == "-" ? ::fstat(STDIN_FILENO, &b) != 0 : ::stat(path.c_str(), &b) != 0) return;
    if (!S_ISREG(a.st_mode) || a.st_dev != b.st_dev || a.st_ino != b.st_ino) return;
    throw Fault(kUsage, std::string("the output is the file that is ") + done, "Name another with -o.");
}

// Calls `produce` with a function that takes the output's text piece by piece.
template <class Produce>
void OutputFile::Deliver(Produce produce) {
    const auto encoded = [&](auto write) {
        if (m_pemLabel == nullptr) return produce(write);
        write("-----BEGIN " + std::string(m_pemLabel) + "-----\n");
        produce([&](std::string_view piece) { write(TOO_MIMEBase64Encode(piece.data(), piece.size(), 64).str()); });
        write("-----END " + std::string(m_pemLabel) + "-----\n");
    };
    if (!IsStream()) {
        CTOOWholeFile target(m_target);
        encoded([&](std::string_view piece) {
            ThrowIfInterrupted();
            target.Write(piece.data(), piece.size());
        });
        return target.Commit();
    }
    const Descriptor target(m_target == "-" ? STDOUT_FILENO : ::open(m_target.c_str(), O_WRONLY | O_CLOEXEC));
    if (target.Get() < 0) FailWrite(m_name, errno);
    encoded([&](std::string_view piece) {
        ThrowIfInterrupted();
        const int error = WriteAll(target.Get(), piece, Interrupted);
        if (error != 0) FailWrite(m_name, error);
    });
}

void OutputFile::Finish() {
    if (m_folder.empty()) return;
    const CTOOFile written(m_path, "rb");
    Deliver([&](auto write) {
        std::vector<char> buffer(kLines * 1024);
        while (const std::size_t got = written.Read(buffer.data(), buffer.size())) write(std::string_view(buffer.data(), got));
    });
}

void OutputFile::Write(const IdentObj& bytes) {
    Deliver([&](auto write) { write(std::string_view(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize())); });
}

}  // namespace cli
