#include "host/tools/system_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "too/path.h"
#include "too/status.h"
#include "too/testing.h"

namespace nalhost {

namespace {

// Calls until it is not interrupted.
template <class Call>
auto Retry(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

// Moves `size` bytes by `call(bytes done, bytes to go)`; returns the bytes moved, fewer only when the call gives 0.
template <class Call>
std::size_t MoveAll(std::size_t size, int otherwise, const CTOOString& name, const char* action, Call call) {
    // One system call moves at most this much, whatever it is asked.
    constexpr std::size_t most = std::size_t{1} << 30;
    std::size_t done = 0;
    while (done < size) {
        const std::size_t toGo = size - done < most ? size - done : most;
        const ssize_t moved = Retry([&] { return call(done, toGo); });
        if (moved < 0) ThrowFile(errno, otherwise, name, action);
        if (moved == 0) break;
        done += static_cast<std::size_t>(moved);
    }
    return done;
}

template <class Call>
void WriteAll(std::size_t size, const CTOOString& name, Call call) {
    const char* action = "cannot write";
    if (too_testing::NextStepIsBad()) MoveAll(size / 2, TOO_E_WRITE, name, action, call);
    if (const int error = too_testing::NextStepFails()) ThrowFile(error, TOO_E_WRITE, name, action);
    if (MoveAll(size, TOO_E_WRITE, name, action, call) < size) ThrowFile(ENOSPC, TOO_E_WRITE, name, action);
}

// A step that a test can make fail: returns 0 or the errno.
template <class Call>
int Step(Call call) {
    if (const int error = too_testing::NextStepFails()) return error;
    return Retry(call) < 0 ? errno : 0;
}

}  // namespace

void ThrowFile(int systemError, int otherwise, const CTOOString& file, const char* action) {
    throw XTOOFile(TOOStatusFromErrno(systemError, otherwise), file, action, systemError);
}

const char* SystemPath(const CTOOString& path, const char* action) {
    if (path.empty()) throw XTOOFile(TOO_E_BAD_ARGUMENT, path, fmt::format("{} (empty path)", action));
    if (path.find(std::string_view("\0", 1)) != CTOOString::npos) {
        // The text of the error ends at the zero byte for everyone who prints it, so it is shown as "?".
        std::string shown = path.str();
        for (char& c : shown) {
            if (c == '\0') c = '?';
        }
        throw XTOOFile(TOO_E_BAD_ARGUMENT, shown, fmt::format("{} (zero byte in the path)", action));
    }
    return path.c_str();
}

UniqueDescriptor TryOpenFile(const char* path, int flags, unsigned permissions) {
    UniqueDescriptor descriptor(
        Retry([&] { return open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, permissions); }));
    if (!descriptor.IsOpen()) return descriptor;
    struct stat info {};
    if (fstat(descriptor.Get(), &info) != 0) return UniqueDescriptor();
    if (!S_ISREG(info.st_mode) && !S_ISCHR(info.st_mode)) {
        descriptor.Reset();
        errno = S_ISDIR(info.st_mode) ? EISDIR : ENXIO;
        return descriptor;
    }
    // O_NONBLOCK was for the opening; a terminal is to be read and written in the ordinary way.
    if (S_ISCHR(info.st_mode)) fcntl(descriptor.Get(), F_SETFL, flags & ~(O_CREAT | O_EXCL | O_TRUNC));
    return descriptor;
}

UniqueDescriptor OpenFile(const CTOOString& path, int flags, unsigned permissions, const char* action) {
    UniqueDescriptor descriptor = TryOpenFile(SystemPath(path, action), flags, permissions);
    if (!descriptor.IsOpen()) ThrowFile(errno, TOO_E_OPEN, path, action);
    return descriptor;
}

std::size_t ReadFrom(int descriptor, void* buffer, std::size_t size, const CTOOString& name) {
    auto* to = static_cast<unsigned char*>(buffer);
    return MoveAll(size, TOO_E_READ, name, "cannot read",
                   [=](std::size_t done, std::size_t toGo) { return read(descriptor, to + done, toGo); });
}

std::size_t ReadAt(int descriptor, void* buffer, std::size_t size, off_t offset, const CTOOString& name) {
    auto* to = static_cast<unsigned char*>(buffer);
    return MoveAll(size, TOO_E_READ, name, "cannot read", [=](std::size_t done, std::size_t toGo) {
        return pread(descriptor, to + done, toGo, offset + static_cast<off_t>(done));
    });
}

void WriteTo(int descriptor, const void* data, std::size_t size, const CTOOString& name) {
    const auto* from = static_cast<const unsigned char*>(data);
    WriteAll(size, name, [=](std::size_t done, std::size_t toGo) { return write(descriptor, from + done, toGo); });
}

void WriteAt(int descriptor, const void* data, std::size_t size, off_t offset, const CTOOString& name) {
    const auto* from = static_cast<const unsigned char*>(data);
    WriteAll(size, name, [=](std::size_t done, std::size_t toGo) {
        return pwrite(descriptor, from + done, toGo, offset + static_cast<off_t>(done));
    });
}

void SyncDescriptor(int descriptor, const CTOOString& name) {
    const int error = Step([=] { return fsync(descriptor); });
    // A device or a file system without fsync has nothing to wait for.
    if (error != 0 && error != EINVAL && error != ENOTSUP) ThrowFile(error, TOO_E_WRITE, name, "cannot write to disk");
}

void SetDescriptorLength(int descriptor, off_t length, const CTOOString& name) {
    const int error = Step([=] { return ftruncate(descriptor, length); });
    if (error != 0) ThrowFile(error, TOO_E_WRITE, name, "cannot change the length of");
}

UniqueDescriptor OpenUnnamedFile(const CTOOString& path, const CTOOString& name) {
    const std::string folder = FolderOf(path);
    UniqueDescriptor descriptor(
        Retry([&] { return open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR); }));
    // EISDIR is what kernels say that do not know the flag; some file systems say ENOENT or EINVAL, and whether the folder is
    // there is found out by those who then make an ordinary file.
    const bool isUnknown = errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL;
    if (!descriptor.IsOpen() && !isUnknown) ThrowFile(errno, TOO_E_OPEN, name, "cannot create");
    return descriptor;
}

bool LinkFile(int descriptor, const CTOOString& path, const CTOOString& name) {
    const std::string link = fmt::format("/proc/self/fd/{}", descriptor);
    int error = Step([&] { return linkat(AT_FDCWD, link.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW); });
    // Without /proc, which this needs, only a privileged process can.
    if (error == ENOENT) error = Step([&] { return linkat(descriptor, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH); });
    if (error != 0 && error != EEXIST) ThrowFile(error, TOO_E_WRITE, name, "cannot put in place");
    return error == 0;
}

void RenameFile(const CTOOString& from, const CTOOString& to) {
    const int error = Step([&] { return std::rename(from.c_str(), to.c_str()); });
    if (error != 0) ThrowFile(error, TOO_E_WRITE, to, "cannot put in place");
}

void SyncFolderOf(const CTOOString& file) {
    const std::string folder = FolderOf(file);
    const UniqueDescriptor descriptor(Retry([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    // A folder that may be written but not read cannot be synced; the rename in it has happened all the same.
    if (!descriptor.IsOpen() && errno == EACCES) return;
    if (!descriptor.IsOpen()) ThrowFile(errno, TOO_E_WRITE, folder, "cannot write to disk");
    SyncDescriptor(descriptor.Get(), folder);
}

void LockDescriptor(int descriptor, int operation, const CTOOString& name) {
    if (Retry([=] { return flock(descriptor, operation); }) != 0) ThrowFile(errno, TOO_E_LOCK, name, "cannot lock");
}

bool IsFileAt(int descriptor, const char* path) {
    struct stat open {};
    struct stat named {};
    return fstat(descriptor, &open) == 0 && stat(path, &named) == 0 && open.st_dev == named.st_dev &&
           open.st_ino == named.st_ino;
}

std::string FolderOf(const CTOOString& file) {
    CTOOString folder;
    CTOOString name;
    return storedev::ParseFullPath(file, folder, name) ? folder.str() : ".";
}

std::string RandomDigits() {
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, 0) != sizeof number) throw XTOOStatus(TOO_E_INTERNAL, "getrandom");
    return fmt::format("{:016x}", number);
}

}  // namespace nalhost
