#include "cli/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "cli/descriptor.h"
#include "cli/interrupt.h"
#include "cli/kinds.h"
#include "cli/pem.h"
#include "cli/terminal.h"

namespace cli {
namespace {

constexpr std::size_t kChunk = 1 << 16;
constexpr std::size_t kLines = 48;  // bytes of a line of PEM: pieces of whole lines are encoded by themselves
constexpr std::uint64_t kMostSpooled = 0xFFFFFFFEULL;  // what a message can be at most

std::vector<std::string> g_inputs;  // as the command line named them

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
    m_isRegular = S_ISREG(status.st_mode);
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

void NameInput(const std::string& path) { g_inputs.push_back(path); }

OutputFile::OutputFile(const std::string& path, bool replace, const char* pemLabel, const std::string& replaces)
    : m_target(path), m_name(NameOf(path, true)), m_pemLabel(pemLabel), m_mayReplace(replace) {
    if (path == "-") return;
    struct stat status {};
    struct stat itself {};
    const bool isThere = ::lstat(path.c_str(), &itself) == 0;
    if (!isThere && errno != ENOENT && errno != ENOTDIR) FailWrite(m_name, errno);
    const bool exists = isThere && ::stat(path.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) throw Fault(kInput, m_name + " is a folder", "Name a file in it.", TOO_E_NOT_A_FILE);
    m_isSpecial = exists && !S_ISREG(status.st_mode);
    if (isThere && !m_isSpecial && !replace) RefuseExisting();
    if (exists && !m_isSpecial) RefusePrecious(status.st_dev, status.st_ino, replaces);
    CTOOString folder;
    CTOOString name;
    if (storedev::ParseFullPath(path, folder, name) && !CTOOFolder::Exists(folder)) {
        throw Fault(kInput, "cannot write " + m_name + ": there is no folder " + folder.str(), "Make it first, or check the path.", TOO_E_FILE_NOT_FOUND);
    }
}

OutputFile::~OutputFile() {
    if (m_folder.empty()) return;
    RemoveFolder(m_folder.c_str());
    RemoveWhenKilled({});
}

void OutputFile::RefuseExisting() const {
    throw Fault(kInput, m_name + " is there already", "Name another file, or replace it with --force.", TOO_E_FILE_EXISTS);
}

// What --force does not replace either.
void OutputFile::RefusePrecious(dev_t device, ino_t number, const std::string& replaces) const {
    for (const std::string& input : g_inputs) {
        struct stat other {};
        if (input == replaces) continue;
        if (input == "-" ? ::fstat(STDIN_FILENO, &other) != 0 : ::stat(input.c_str(), &other) != 0) continue;
        if (other.st_dev == device && other.st_ino == number) throw Fault(kUsage, "the output " + m_name + " is a file that is read", "Name another with -o.");
    }
    if (::access(m_target.c_str(), R_OK) != 0) return;
    const Kind kind = KindOf(ReadHead(m_target, 64));
    if (kind != Kind::Store && kind != Kind::Container) return;
    throw Fault(kInput, "the output " + m_name + " is " + TextOf(kind) + ", which no output replaces", "Name another file, or remove this one first.",
                TOO_E_FILE_EXISTS);
}

const std::string& OutputFile::Folder() {
    if (!m_folder.empty()) return m_folder;
    std::string place = TemporaryRoot() + "/";
    // What becomes a file is made on its file system, so that it can take its place at once.
    if (!IsStream()) place = m_target.substr(0, m_target.rfind('/') + 1) + ".";
    place += "nal-XXXXXX";
    if (::mkdtemp(place.data()) == nullptr) FailWrite(IsStream() ? TemporaryRoot() : m_name, errno);
    m_folder = place;
    RemoveWhenKilled(m_folder);
    return m_folder;
}

const std::string& OutputFile::Path() {
    if (m_path.empty()) m_path = IsWrittenInPlace() ? m_target : Folder() + "/output";
    return m_path;
}

// Gives a finished file of the temporary folder its name, which no other file may have got meanwhile.
void OutputFile::Place(const std::string& finished) const {
    int error = ::renameat2(AT_FDCWD, finished.c_str(), AT_FDCWD, m_target.c_str(), RENAME_NOREPLACE) == 0 ? 0 : errno;
    // Not every file system knows of that; what they do know differs.
    if (error == EINVAL || error == ENOSYS) error = ::link(finished.c_str(), m_target.c_str()) == 0 ? 0 : errno;
    struct stat other {};
    if ((error == EPERM || error == EOPNOTSUPP || error == ENOSYS) && ::lstat(m_target.c_str(), &other) != 0) {
        error = ::rename(finished.c_str(), m_target.c_str()) == 0 ? 0 : errno;
    }
    if (error == EEXIST) RefuseExisting();
    if (error != 0) FailWrite(m_name, error);
    const std::size_t slash = m_target.rfind('/');
    const Descriptor folder(::open(slash == std::string::npos ? "." : m_target.substr(0, slash + 1).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() >= 0 && ::fsync(folder.Get()) != 0 && errno != EINVAL) FailWrite(m_name, errno);
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
        const std::string whole = m_mayReplace ? m_target : Folder() + "/whole";
        try {
            CTOOWholeFile target(whole);
            encoded([&](std::string_view piece) {
                ThrowIfInterrupted();
                target.Write(piece.data(), piece.size());
            });
            target.Commit();
        } catch (const XTOOFile& failure) {
            // Nobody knows the temporary folder's name.
            const Fault fault = FaultOf(failure, {});
            std::string message = fault.Message();
            const std::size_t at = message.find(whole);
            if (at != std::string::npos) message.replace(at, whole.size(), m_target);
            throw Fault(fault.Exit(), message, fault.Hint(), fault.Status());
        }
        if (!m_mayReplace) Place(whole);
        return Written();
    }
    const Descriptor target(m_target == "-" ? STDOUT_FILENO : ::open(m_target.c_str(), O_WRONLY | O_CLOEXEC));
    if (target.Get() < 0) FailWrite(m_name, errno);
    encoded([&](std::string_view piece) {
        ThrowIfInterrupted();
        const int error = WriteUnlessStopped(target.Get(), piece);
        if (error != 0) FailWrite(m_name, error);
    });
}

void OutputFile::Written() const { RecordEffect(m_name + " was written"); }

void OutputFile::Finish() {
    if (IsWrittenInPlace()) return Written();
    if (!IsStream() && m_pemLabel == nullptr) {
        Place(m_path);
        return Written();
    }
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
