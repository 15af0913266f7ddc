#include "certstorage/file_copy.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>

namespace nal {
namespace {

bool CopyThroughMemory(int from, int to, std::uint64_t offset, std::uint64_t size) {
    constexpr std::size_t kPiece = 256U << 10;
    const auto piece = std::make_unique_for_overwrite<unsigned char[]>(kPiece);
    while (offset < size) {
        const ssize_t got = pread(from, piece.get(), std::min<std::uint64_t>(kPiece, size - offset), static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got == 0) errno = EIO;
        if (got <= 0 || !WriteAt(to, piece.get(), static_cast<std::size_t>(got), static_cast<off_t>(offset))) return false;
        offset += static_cast<std::uint64_t>(got);
    }
    return true;
}

}  // namespace

UniqueFd OpenFd(const std::string& path, int flags, mode_t mode) { return UniqueFd(open(path.c_str(), flags | O_CLOEXEC, mode)); }

bool WriteAt(int descriptor, const void* data, std::size_t size, off_t offset) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    while (size != 0) {
        const ssize_t written = pwrite(descriptor, bytes, size, offset);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        bytes += written;
        offset += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

bool CopyBytes(int from, int to, std::uint64_t size) {
    file_clone_range whole{from, 0, size, 0};
    // Only between whole blocks; where the file system cannot, or the end is not on one, bytes are copied.
    if (ioctl(to, FICLONERANGE, &whole) == 0) return true;
    off_t fromOffset = 0;
    off_t toOffset = 0;
    while (static_cast<std::uint64_t>(toOffset) < size) {
        const ssize_t copied = copy_file_range(from, &fromOffset, to, &toOffset, size - static_cast<std::uint64_t>(toOffset), 0);
        if (copied > 0 || (copied < 0 && errno == EINTR)) continue;
        if (copied < 0 && errno != EXDEV && errno != EINVAL && errno != EOPNOTSUPP && errno != ENOSYS) return false;
        return CopyThroughMemory(from, to, static_cast<std::uint64_t>(toOffset), size);
    }
    return true;
}

bool SyncFolderOf(const std::string& path) {
    const UniqueFd folder = OpenFd(path.substr(0, path.rfind('/') + 1), O_RDONLY | O_DIRECTORY);
    return folder && fsync(folder.Get()) == 0;
}

std::string RealPath(const std::string& path) {
    const auto resolve = [](const std::string& of) {
        const std::unique_ptr<char, decltype(&std::free)> whole(realpath(of.c_str(), nullptr), std::free);
        return whole != nullptr ? std::string(whole.get()) : std::string();
    };
    if (std::string whole = resolve(path); !whole.empty()) return whole;
    const std::size_t slash = path.rfind('/');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    std::string folder = resolve(slash == std::string::npos ? "." : path.substr(0, slash + 1));
    if (folder.empty()) return path;
    if (folder.back() != '/') folder += '/';
    return folder + name;
}

}  // namespace nal
