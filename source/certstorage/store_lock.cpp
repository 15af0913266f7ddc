#include "certstorage/store_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "certstorage/block_sum.h"
#include "certstorage/file_copy.h"

namespace nal {
namespace {

constexpr char kMagic[8] = {'N', 'A', 'L', 'L', 'O', 'C', 'K', '1'};

struct RecordLayout {
    char magic[8];
    std::uint64_t counter;
    FileState state;
    std::uint64_t sum;
};
static_assert(sizeof(RecordLayout) == 72, "the layout is the lock file's");

int Flock(int descriptor, LockKind kind) {
    while (flock(descriptor, kind == LockKind::Exclusive ? LOCK_EX : LOCK_SH) != 0) {
        if (errno != EINTR) return errno;
    }
    return 0;
}

bool MayNotWrite(int error) { return error == EACCES || error == EPERM || error == EROFS; }

}  // namespace

StoreLock::StoreLock(std::string storePath) : m_storePath(std::move(storePath)), m_path(m_storePath + ".lock") {}

// Leaves m_lock closed, without an error, for a reader when there is no lock file and none can be made.
int StoreLock::Open(LockKind kind) {
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    m_lock = OpenFd(m_path, O_RDWR | kFlags);
    if (!m_lock && errno == ENOENT) {
        m_lock = OpenFd(m_path, O_RDWR | O_CREAT | O_EXCL | kFlags, 0640);
        struct stat store{};
        // Who may read the store must be able to lock it.
        if (m_lock && stat(m_storePath.c_str(), &store) == 0 && fchmod(m_lock.Get(), store.st_mode & 0666) != 0) return errno;
        if (!m_lock && errno == EEXIST) return Open(kind);
    }
    m_writable = static_cast<bool>(m_lock);
    if (!m_lock && kind == LockKind::Shared && MayNotWrite(errno)) {
        m_lock = OpenFd(m_path, O_RDONLY | kFlags);
        if (!m_lock && errno == ENOENT) return 0;
    }
    if (!m_lock) return errno;
    struct stat info{};
    if (fstat(m_lock.Get(), &info) != 0) return errno;
    return S_ISREG(info.st_mode) ? 0 : EINVAL;
}

int StoreLock::Take(LockKind kind) {
    // A forked child shares the parent's open file, and with it the parent's lock.
    if (m_process != getpid()) {
        m_lock = UniqueFd();
        m_store = UniqueFd();
        m_process = getpid();
    }
    for (;;) {
        if (!m_lock || (kind == LockKind::Exclusive && !m_writable)) {
            if (const int error = Open(kind)) {
                m_lock = UniqueFd();
                return error;
            }
        }
        if (!m_lock) break;
        if (const int error = Flock(m_lock.Get(), kind)) return error;
        // The file may have been replaced while this process waited: everybody else locks the new one.
        const auto mine = FileState::OfDescriptor(m_lock.Get());
        const auto present = FileState::OfPath(m_path);
        if (mine && present && mine->SameFile(*present)) break;
        m_lock = UniqueFd();
    }
    if (m_lock && kind == LockKind::Shared) return 0;
    m_store = OpenFd(m_storePath, O_RDONLY | O_NONBLOCK | O_NOCTTY);
    int error = 0;
    if (m_store) {
        error = Flock(m_store.Get(), kind);
    } else if (!m_lock || errno != ENOENT) {  // a store that is being made is not there yet
        error = errno;
    }
    if (error != 0) Release();
    return error;
}

void StoreLock::Release() {
    m_store = UniqueFd();
    if (m_lock) flock(m_lock.Get(), LOCK_UN);
}

std::optional<StoreLock::Record> StoreLock::Read() const {
    RecordLayout record{};
    if (!m_lock || pread(m_lock.Get(), &record, sizeof record, 0) != static_cast<ssize_t>(sizeof record)) return std::nullopt;
    if (!IsWhole(record, kMagic)) return std::nullopt;
    return Record{record.counter, record.state};
}

int StoreLock::Write(const Record& record) const {
    RecordLayout layout{};
    layout.counter = record.counter;
    layout.state = record.state;
    Seal(layout, kMagic);
    return WriteAt(m_lock.Get(), &layout, sizeof layout, 0) ? 0 : errno;
}

}  // namespace nal
