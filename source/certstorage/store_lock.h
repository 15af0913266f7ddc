// The lock between processes on a store's file X, and the change counter in it.
//
// X.lock is locked (flock): shared by searches and while X is opened, exclusively by changes. It stays, and holds one record in
// the machine's byte order:
//
//   offset  size  field
//        0     8  "NALLOCK1"
//        8     8  change counter: raised inside each exclusive lock under which X was changed
//       16    48  X as that change left it (file_state.h): inode, size, times
//       64     8  sum over the bytes before (FNV-1a, 64 bits)
//
// The record speaks to processes that run now, so it is not forced to the disk: after a failure of power it may be an older one,
// which does not fit X, and X is verified again.
//
// Whoever changes X locks X itself too: a reader who finds no X.lock and may not make one shares that lock.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

#include "certstorage/file_state.h"
#include "certstorage/unique_fd.h"

namespace nal {

enum class LockKind { Shared, Exclusive };

/// Not thread-safe. A flock ends with its process, however that ends.
class StoreLock {
public:
    struct Record {
        std::uint64_t counter = 0;
        FileState state;
    };

    /// @param storePath  X, which need not be there yet
    explicit StoreLock(std::string storePath);

    /// Waits for the lock. @return 0, or an errno: EACCES or the like for who may not write and asks for the exclusive lock
    int Take(LockKind kind);
    void Release();

    /// Nothing when there is none, or none that is whole.
    std::optional<Record> Read() const;
    /// Under the exclusive lock. @return 0 or an errno
    int Write(const Record& record) const;

private:
    int Open(LockKind kind);

    const std::string m_storePath;
    const std::string m_path;
    UniqueFd m_lock;
    bool m_writable = false;
    UniqueFd m_store;  // X itself, while it is locked
    pid_t m_process = 0;
};

}  // namespace nal
