#include "too/file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <memory>
#include <utility>

#include "host/tools/system_file.h"
#include "too/path.h"

using namespace nalhost;

namespace {

constexpr unsigned c_privatePermissions = 0600;
constexpr unsigned c_ordinaryPermissions = 0666;
constexpr std::size_t c_copyChunk = 256 * 1024;

struct OpenMode {
    int flags;
    bool commit;
    bool creates;
    unsigned permissions;
};

bool ParseMode(const char* text, OpenMode& mode) {
    if (!text || (*text != 'r' && *text != 'w')) return false;
    const bool writes = *text == 'w';
    bool both = false;
    bool exclusive = false;
    mode.commit = false;
    for (const char* c = text + 1; *c; ++c) {
        switch (*c) {
            case '+':
                both = true;
                break;
            case 'b':
                break;
            case 'c':
                mode.commit = true;
                break;
            case 'x':
                exclusive = true;
                break;
            default:
                return false;
        }
    }
    if (exclusive && !writes) return false;
    // A reader has written nothing that could be waited for.
    mode.commit = mode.commit && (writes || both);
    mode.creates = writes;
    mode.flags = both ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
    if (writes) mode.flags |= exclusive ? O_CREAT | O_EXCL | O_NOFOLLOW : O_CREAT | O_TRUNC;
    mode.permissions = exclusive ? c_privatePermissions : c_ordinaryPermissions;
    return true;
}

// Copies what is left in `from` to `to`, by reference where the file system can.
void CopyContent(const CTOOFile& from, CTOOFile& to) {
    const auto length = static_cast<std::size_t>(from.Length());
    std::size_t copied = 0;
    while (copied < length) {
        const ssize_t part =
            copy_file_range(from.GetDescriptor(), nullptr, to.GetDescriptor(), nullptr, length - copied, 0);
        if (part <= 0) break;
        copied += static_cast<std::size_t>(part);
    }
    // Whatever the system would not copy by itself (another file system, an old kernel) goes through memory, and so
    // does the error of a disk that is full.
    IdentObj buffer;
    buffer.SetSize(c_copyChunk);
    while (const std::size_t got = from.Read(buffer.GetData(), c_copyChunk))
        to.Write(buffer.GetData(), got);
}

// The process's umask, without changing it for a moment as umask() would.
unsigned CurrentUmask() {
    constexpr unsigned cautious = 077;
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, Closer> status(std::fopen("/proc/self/status", "re"));
    char line[256];
    while (status && std::fgets(line, sizeof line, status.get())) {
        unsigned mask = 0;
        if (std::sscanf(line, "Umask: %o", &mask) == 1) return mask;  // NOLINT(cert-err34-c)
    }
    return cautious;
}

}  // namespace

// ---- CTOOFile ----

CTOOFile::CTOOFile(CTOOFile&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)),
      m_commit(other.m_commit),
      m_created(other.m_created),
      m_name(std::move(other.m_name)) {}

CTOOFile& CTOOFile::operator=(CTOOFile&& other) noexcept {
    if (this != &other) {
        CloseQuietly();
        m_descriptor = std::exchange(other.m_descriptor, -1);
        m_commit = other.m_commit;
        m_created = other.m_created;
        m_name = std::move(other.m_name);
    }
    return *this;
}

CTOOFile::~CTOOFile() {
    CloseQuietly();
}

void CTOOFile::CloseQuietly() noexcept {
    UniqueDescriptor(std::exchange(m_descriptor, -1)).Reset();
}

void CTOOFile::Open(const CTOOString& path, const char* mode) {
    OpenMode wanted{};
    if (!ParseMode(mode, wanted)) {
        throw XTOOFile(TOO_E_BAD_ARGUMENT, path, fmt::format("mode \"{}\" cannot open", mode ? mode : ""));
    }
    Close();
    UniqueDescriptor descriptor =
        OpenFile(path, wanted.flags, wanted.permissions, wanted.creates ? "cannot create" : "cannot open");
    m_name = path;
    m_commit = wanted.commit;
    m_created = wanted.creates;
    m_descriptor = descriptor.Release();
}

void CTOOFile::RequireOpen() const {
    if (!IsOpen()) throw XTOOFile(TOO_E_NOT_INITIALIZED, m_name, "not open:");
}

std::size_t CTOOFile::Read(void* buffer, std::size_t size) const {
    RequireOpen();
    return ReadFrom(m_descriptor, buffer, size, m_name);
}

void CTOOFile::ReadExactly(void* buffer, std::size_t size) const {
    if (Read(buffer, size) != size) throw XTOOFile(TOO_E_READ, m_name, "unexpected end of");
}

void CTOOFile::Write(const void* data, std::size_t size) {
    RequireOpen();
    WriteTo(m_descriptor, data, size, m_name);
}

std::uint64_t CTOOFile::Seek(std::int64_t offset, Origin origin) const {
    RequireOpen();
    const int whence = origin == c_begin ? SEEK_SET : origin == c_current ? SEEK_CUR : SEEK_END;
    const off_t position = lseek(m_descriptor, offset, whence);
    // EINVAL is a position before the beginning here, not a bad argument of the host's.
    if (position < 0) throw XTOOFile(TOO_E_SEEK, m_name, "cannot seek in", errno);
    return static_cast<std::uint64_t>(position);
}

std::uint64_t CTOOFile::Length() const {
    RequireOpen();
    struct stat info {};
    if (fstat(m_descriptor, &info) != 0) ThrowFile(errno, TOO_E_READ, m_name, "cannot take the length of");
    return static_cast<std::uint64_t>(info.st_size);
}

void CTOOFile::SetLength(std::uint64_t length) {
    RequireOpen();
    if (length > static_cast<std::uint64_t>(std::numeric_limits<off_t>::max())) {
        throw XTOOFile(TOO_E_TOO_LARGE, m_name, "cannot change the length of");
    }
    SetDescriptorLength(m_descriptor, static_cast<off_t>(length), m_name);
}

void CTOOFile::Flush() {
    RequireOpen();
    if (m_commit) Sync();
}

void CTOOFile::Sync() {
    RequireOpen();
    SyncDescriptor(m_descriptor, m_name);
}

void CTOOFile::Close() {
    if (!IsOpen()) return;
    UniqueDescriptor descriptor(std::exchange(m_descriptor, -1));
    if (m_commit) {
        SyncDescriptor(descriptor.Get(), m_name);
        if (m_created) SyncFolderOf(m_name);
    }
    // Some file systems report a failed write only here.
    if (close(descriptor.Release()) != 0 && errno != EINTR) ThrowFile(errno, TOO_E_WRITE, m_name, "cannot close");
}

bool CTOOFile::Exists(const CTOOString& path) {
    struct stat info {};
    return path.find(std::string_view("\0", 1)) == CTOOString::npos && stat(path.c_str(), &info) == 0 &&
           !S_ISDIR(info.st_mode);
}

bool CTOOFile::Delete(const CTOOString& path) {
    const char* action = "cannot remove";
    if (unlink(SystemPath(path, action)) == 0) return true;
    if (errno == ENOENT) return false;
    ThrowFile(errno, TOO_E_WRITE, path, action);
}

void CTOOFile::MoveFile(const CTOOString& from, const CTOOString& to) {
    SystemPath(from, "cannot move");
    SystemPath(to, "cannot move to");
    if (access(from.c_str(), F_OK) != 0 && errno == ENOENT) ThrowFile(ENOENT, TOO_E_READ, from, "cannot move");
    try {
        RenameFile(from, to);
    } catch (const XTOOFile& failure) {
        if (failure.GetSystemError() != EXDEV) throw;
        CopyFile(from, to);
        Delete(from);
        SyncFolderOf(from);
        return;
    }
    SyncFolderOf(to);
}

void CTOOFile::CopyFile(const CTOOString& from, const CTOOString& to) {
    const CTOOFile source(from, "rb");
    struct stat info {};
    if (fstat(source.GetDescriptor(), &info) != 0) ThrowFile(errno, TOO_E_READ, from, "cannot read");
    if (!S_ISREG(info.st_mode)) ThrowFile(ENXIO, TOO_E_READ, from, "cannot copy");
    CTOOWholeFile target(to, info.st_mode & 0777);
    CopyContent(source, target.GetFile());
    target.Commit();
}

IdentObj CTOOFile::ReadWhole(const CTOOString& path, std::uint32_t limit) {
    const CTOOFile file(path, "rb");
    const auto refuse = [&] { throw XTOOFile(TOO_E_TOO_LARGE, path, fmt::format("more than {} bytes in", limit)); };
    const std::uint64_t length = file.Length();
    if (length > limit) refuse();
    IdentObj content;
    content.SetSize(static_cast<unsigned>(length));
    // The file may change while it is read: what is there at the end of it counts, up to the limit.
    std::size_t got = file.Read(content.GetData(), content.GetSize());
    content.SetSize(static_cast<unsigned>(got));
    unsigned char more[4096];
    while (got == length && (got = file.Read(more, sizeof more)) != 0) {
        if (got > limit - content.GetSize()) refuse();
        content.Append(more, static_cast<unsigned>(got));
        got = static_cast<std::size_t>(length);
    }
    return content;
}

// ---- CTOOWholeFile ----

CTOOWholeFile::CTOOWholeFile(const CTOOString& target) : m_target(target), m_permissions(0), m_fixedPermissions(false) {
    OpenNamed(Prepare());
}

CTOOWholeFile::CTOOWholeFile(const CTOOString& target, unsigned permissions)
    : m_target(target), m_permissions(permissions), m_fixedPermissions(true) {
    OpenNamed(Prepare());
}

CTOOWholeFile::CTOOWholeFile(const CTOOString& target, UnnamedTag /*tag*/)
    : m_target(target), m_permissions(0), m_fixedPermissions(false) {
    const CTOOString temporary = Prepare();
    if (!OpenUnnamed(temporary)) OpenNamed(temporary);
}

CTOOWholeFile::~CTOOWholeFile() {
    if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

// Checks the target. Returns a name for a temporary file beside it.
CTOOString CTOOWholeFile::Prepare() {
    const char* action = "cannot create";
    struct stat info {};
    if (lstat(SystemPath(m_target, action), &info) == 0) {
        if (S_ISDIR(info.st_mode)) ThrowFile(EISDIR, TOO_E_OPEN, m_target, action);
        if (!S_ISREG(info.st_mode) && !S_ISLNK(info.st_mode)) ThrowFile(ENXIO, TOO_E_OPEN, m_target, action);
    } else if (errno != ENOENT) {
        ThrowFile(errno, TOO_E_OPEN, m_target, action);
    }
    CTOOString folder;
    CTOOString name;
    storedev::ParseFullPath(m_target, folder, name);
    if (name.empty()) ThrowFile(EISDIR, TOO_E_OPEN, m_target, action);
    // A file name has at most 255 bytes.
    const CTOOString shortName = name.substr(0, 200);
    return storedev::MakeFullPath(folder, "." + shortName + "." + CTOOString(RandomDigits()), "tmp");
}

void CTOOWholeFile::OpenNamed(const CTOOString& temporary) {
    try {
        m_file.Open(temporary, "wbx+");
    } catch (const XTOOFile& failure) {
        // The user knows the target only.
        throw XTOOFile(failure.GetCode(), m_target, "cannot create", failure.GetSystemError());
    }
    m_temporary = temporary;
}

bool CTOOWholeFile::OpenUnnamed(const CTOOString& temporary) {
    UniqueDescriptor descriptor = OpenUnnamedFile(temporary, m_target);
    if (!descriptor.IsOpen()) return false;
    m_file.m_descriptor = descriptor.Release();
    m_file.m_name = m_target;
    m_laterName = temporary;
    return true;
}

// Returns whether the file has the target's name now; else it has the temporary one.
bool CTOOWholeFile::LinkUnnamed() {
    if (LinkFile(m_file.GetDescriptor(), m_target, m_target)) return true;
    if (!LinkFile(m_file.GetDescriptor(), m_laterName, m_target)) ThrowFile(EEXIST, TOO_E_WRITE, m_target, "cannot put in place");
    m_temporary = m_laterName;
    return false;
}

void CTOOWholeFile::Write(const void* data, std::size_t size) {
    if (!m_file.IsOpen()) throw XTOOFile(TOO_E_NOT_INITIALIZED, m_target, "not open:");
    WriteTo(m_file.GetDescriptor(), data, size, m_target);
}

void CTOOWholeFile::Commit() {
    if (!m_file.IsOpen()) throw XTOOFile(TOO_E_NOT_INITIALIZED, m_target, "not open:");
    const int descriptor = m_file.GetDescriptor();
    struct stat old {};
    const bool replaces = lstat(m_target.c_str(), &old) == 0 && S_ISREG(old.st_mode);
    unsigned permissions = m_permissions;
    if (!m_fixedPermissions) permissions = replaces ? old.st_mode & 0777 : c_ordinaryPermissions & ~CurrentUmask();
    // Only a privileged process may give a file away; for any other the new file is its own. Where not even the group
    // can be kept, another group gets no more than everybody does.
    if (replaces && fchown(descriptor, old.st_uid, old.st_gid) != 0 &&
        fchown(descriptor, static_cast<uid_t>(-1), old.st_gid) != 0) {
        permissions &= 0707 | (permissions & 07) << 3;
    }
    if (fchmod(descriptor, permissions) != 0) ThrowFile(errno, TOO_E_WRITE, m_target, "cannot set permissions of");
    SyncDescriptor(descriptor, m_target);
    const bool isInPlace = !m_laterName.empty() && LinkUnnamed();
    m_file.Close();
    if (!isInPlace) RenameFile(m_temporary, m_target);
    m_temporary.clear();
    SyncFolderOf(m_target);
}

void CTOOWholeFile::Store(const CTOOString& target, const void* data, std::size_t size) {
    CTOOWholeFile file(target);
    file.Write(data, size);
    file.Commit();
}
