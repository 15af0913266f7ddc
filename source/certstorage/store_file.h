// The file of a store between processes: who may read or change it, what other processes did to it, and changes that are made whole
// or not at all. docs/store-format.md writes the protocol down; store_lock.h and rollback_journal.h draw the files beside it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "certstorage/file_state.h"
#include "certstorage/rollback_journal.h"
#include "certstorage/store_lock.h"
#include "certstorage/tree.h"
#include "certstorage/unique_fd.h"

namespace nal {

/// One for each open tree with a file. Not thread-safe: StoreAccess has one thread in here at a time; what touches the tree holds its
/// mutex. Returned numbers are 0 or an errno.
///
/// The bare Cert* functions change the tree without a transaction: their changes wait in memory. They are written out and counted
/// when the store is closed, or the next search or change begins. If another process has changed the file meanwhile they are
/// dropped, and logged, since pages of two states must not be mixed.
class StoreFile {
public:
    /// @param path  the store's file, which need not exist yet
    explicit StoreFile(const std::string& path);
    StoreFile(const StoreFile&) = delete;
    StoreFile& operator=(const StoreFile&) = delete;

    /// Opens the tree of the file, which is made, whole or not at all, when it is not there. The lock is held meanwhile, and no longer.
    /// @param sound  in: the state in which this process knows the file to be sound; in another, which no counted change has left,
    ///               it is verified first. Out: the state in which it was opened
    int Open(Tree& tree, std::optional<FileState>& sound);
    /// Writes out what waits in memory. @param left  receives the state in which the file is left, nothing when it is not known
    int Close(Tree& tree, std::optional<FileState>& left);

    /// Locks the file shared, and takes in what other processes did.
    int BeginSearch(Tree& tree);
    void EndSearch() { m_lock.Release(); }

    /// The same exclusively. The journal is written when the first record is about to change.
    int BeginChange(Tree& tree);
    /// Makes the change durable, or, when it failed or that fails, undoes it.
    /// @return 0, or the errno with which making it durable failed
    int EndChange(Tree& tree, bool failed);

private:
    int Create() const;
    int Verify() const;
    int LockAndRecover(Tree& tree, LockKind kind);
    int Recover(Tree& tree);
    int WriteOutWaiting(Tree& tree);
    int TakeIn(Tree& tree);
    int PrepareToChange(Tree& tree);
    int Commit(Tree& tree);
    int Undo(Tree& tree);
    int CountChange();
    std::uint64_t Counter() const;
    bool HasWaiting(const Tree& tree) const { return tree.IsOpen() && tree.ChangeCount() != m_countedChanges; }
    void Log(const std::string& text) const;

    const std::string m_path;  // without symbolic links
    StoreLock m_lock;
    RollbackJournal m_journal;
    bool m_journalWritten = false;
    std::uint64_t m_seenCounter = 0;
    std::optional<FileState> m_seenState;  // in which the tree was opened, or written by this process
    std::uint64_t m_countedChanges = 0;    // the tree's change count when nothing waited
};

}  // namespace nal
