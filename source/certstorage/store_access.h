// Who may use a store at this moment: threads of this process, and, for a store with a file, processes.
//
// A search holds the store shared, a change holds it alone. Both are recursive per thread, and a change may search; a thread inside
// a search that asks for a change gets EDEADLK, since it would wait for itself. For a file, the first thread in takes the lock
// between processes and brings the tree up to date (store_file.h), the last one out gives it back.
//
// Order of locks: NALStorageLocker, a store's access, a tree's mutex.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "certstorage/store_file.h"
#include "certstorage/tree.h"

namespace nal {

class CertStore;
class StoreBody;

class StoreAccess {
public:
    explicit StoreAccess(Tree& tree) : m_tree(tree) {}
    StoreAccess(const StoreAccess&) = delete;
    StoreAccess& operator=(const StoreAccess&) = delete;

    /// Makes this the access to a store with a file, before its first use.
    void SetFile(std::unique_ptr<StoreFile> file) { m_file = std::move(file); }
    /// Writes out what a file's store holds in memory. @return 0, or an errno
    /// @param left  receives the state in which the file is left, nothing when it is not known
    int CloseFile(std::optional<FileState>& left);

    /// @return 0, or an errno, and then the thread is not in
    int EnterSearch();
    void LeaveSearch();

    int EnterChange();
    /// Ends a change. An inner one only says whether it failed; the outermost makes all of them durable or undoes them, for a file.
    /// @return 0, or an errno, and then the file is as it was before the outermost change
    int LeaveChange(bool failed);

private:
    struct Reader {
        std::thread::id thread;
        unsigned depth;
    };

    std::vector<Reader>::iterator FindReader();

    Tree& m_tree;
    std::unique_ptr<StoreFile> m_file;  // null for a memory store
    std::mutex m_mutex;                 // held while the first one in prepares the store: the others need it too
    std::condition_variable m_free;
    std::vector<Reader> m_readers;
    unsigned m_waitingWriters = 0;
    std::thread::id m_writer;
    unsigned m_writerDepth = 0;
    bool m_changeFailed = false;
};

/// A whole search.
class StoreSearch {
public:
    explicit StoreSearch(CertStore& store);
    ~StoreSearch();
    StoreSearch(const StoreSearch&) = delete;
    StoreSearch& operator=(const StoreSearch&) = delete;

    /// 0, or the errno with which the store cannot be searched.
    int Error() const { return m_error; }

private:
    std::shared_ptr<StoreBody> m_body;
    int m_error;
};

/// A whole change; undone, for a store with a file, unless Commit is called.
class StoreChange {
public:
    explicit StoreChange(CertStore& store);
    ~StoreChange();
    StoreChange(const StoreChange&) = delete;
    StoreChange& operator=(const StoreChange&) = delete;

    int Error() const { return m_error; }
    /// @return 0, or the errno with which the change failed and was undone
    int Commit();

private:
    std::shared_ptr<StoreBody> m_body;  // null once ended
    int m_error;
};

}  // namespace nal
