#include "certstorage/store_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <mutex>

#include "certstorage/change_step.h"
#include "certstorage/file_copy.h"
#include "certstorage/invariant.h"
#include "certstorage/tree_verify.h"

namespace nal {

StoreFile::StoreFile(const std::string& path) : m_path(RealPath(path)), m_lock(m_path), m_journal(m_path) {}

void StoreFile::Log(const std::string& text) const { LogError(NAL_HERE(kStoreSource), "store file " + m_path + ": " + text); }

std::uint64_t StoreFile::Counter() const {
    const auto record = m_lock.Read();
    return record ? record->counter : m_seenCounter;
}

// From here on everybody knows that the file has changed, and in which state it is sound.
int StoreFile::CountChange() {
    const auto state = FileState::OfPath(m_path);
    if (!state) return errno;
    const StoreLock::Record record{Counter() + 1, *state};
    if (const int error = MakeStep(ChangeStep::WriteCounter, [&] {
            const int written = m_lock.Write(record);
            errno = written;
            return written == 0;
        })) {
        return error;
    }
    m_seenCounter = record.counter;
    m_seenState = state;
    return 0;
}

// --- Opening and closing ---

int StoreFile::Verify() const {
    std::string finding;
    const int error = VerifyTreeFile(m_path, &finding);
    if (error != 0) {
        Log("it is refused: " + finding + "; \"nal store check\" tells more, \"nal store salvage\" brings back what can be read");
    }
    return error;
}

// Under another name first, so that a process that dies here leaves no file that is no store.
int StoreFile::Create() const {
    const std::string fresh = m_path + ".new";
    unlink(fresh.c_str());
    Tree tree;
    int error = tree.OpenFile(fresh);
    if (error == 0) error = tree.WriteOut() == kTreeOk ? 0 : errno;
    tree.CloseFile();
    if (error == 0 && rename(fresh.c_str(), m_path.c_str()) != 0) error = errno;
    if (error != 0) {
        unlink(fresh.c_str());
        return error;
    }
    return SyncFolderOf(m_path) ? 0 : errno;
}

int StoreFile::Open(Tree& tree, std::optional<FileState>& sound) {
    const bool isNew = !FileState::OfPath(m_path) && errno == ENOENT;
    int error = LockAndRecover(tree, isNew ? LockKind::Exclusive : LockKind::Shared);
    if (error != 0) return error;
    auto before = FileState::OfPath(m_path);
    if (!before && isNew) {
        error = Create();
        sound = before = FileState::OfPath(m_path);
    }
    const auto record = m_lock.Read();
    const bool isCounted = record && before && record->state == *before;
    if (error == 0 && !before) error = errno;
    if (error == 0 && before != sound && !(sound && isCounted)) error = Verify();
    if (error == 0) error = tree.OpenFile(m_path);
    if (error == 0) {
        const auto opened = FileState::OfDescriptor(tree.FileDescriptor());
        // Replaced between the verification and the opening: what was verified is not what was opened.
        if (!opened || !opened->SameFile(*before)) error = EAGAIN;
        sound = m_seenState = before;
        m_seenCounter = Counter();
        m_countedChanges = tree.ChangeCount();
    }
    m_lock.Release();
    return error;
}

int StoreFile::Close(Tree& tree, std::optional<FileState>& left) {
    bool waiting = false;
    {
        const std::lock_guard treeLock(tree.Mutex());
        waiting = HasWaiting(tree);
    }
    int error = 0;
    if (waiting && m_lock.Take(LockKind::Exclusive) == 0) {
        const std::lock_guard treeLock(tree.Mutex());
        // A dead process's journal comes first: what waits here is of another state than the file that it left.
        error = Recover(tree);
        if (error == 0) error = WriteOutWaiting(tree);
        m_lock.Release();
    } else if (waiting) {
        Log("what was changed is written, but not counted, so others will verify the file again");
        return 0;
    }
    left = m_seenState;
    return error;
}

// --- What others did, and what waits ---

// Takes the lock; a change that a dead process left unfinished is undone, and what waits in memory is written out.
int StoreFile::LockAndRecover(Tree& tree, LockKind kind) {
    for (LockKind next = kind;; next = kind) {
        if (const int error = m_lock.Take(next)) return error;
        bool ready = false;
        {
            const std::lock_guard treeLock(tree.Mutex());
            ready = !m_journal.Exists() && !HasWaiting(tree);
        }
        if (ready) return 0;
        if (next == LockKind::Shared) {
            m_lock.Release();
            if (const int error = m_lock.Take(LockKind::Exclusive)) {
                Log("a change that was not finished has to be undone first, by somebody who may write the file");
                return error;
            }
        }
        int error = 0;
        {
            const std::lock_guard treeLock(tree.Mutex());
            error = Recover(tree);
            if (error == 0) error = WriteOutWaiting(tree);
        }
        if (error != 0 || kind == LockKind::Exclusive) {
            if (error != 0) m_lock.Release();
            return error;
        }
        m_lock.Release();
    }
}

// Under the exclusive lock.
int StoreFile::WriteOutWaiting(Tree& tree) {
    if (!HasWaiting(tree)) return 0;
    const auto state = FileState::OfPath(m_path);
    const bool isOurs = Counter() == m_seenCounter && state && m_seenState && state->SameFile(*m_seenState);
    if (isOurs) {
        if (tree.WriteOut() != kTreeOk) return errno;
        m_countedChanges = tree.ChangeCount();
        return CountChange();
    }
    Log("what this process changed outside of transactions is dropped, since another process has changed the file meanwhile");
    if (!state) {
        // The tree's own file is gone; what it writes goes nowhere.
        tree.CloseFile();
        return 0;
    }
    // Closing a tree writes what waits in it, so the file is kept aside meanwhile.
    const UniqueFd store = OpenFd(m_path, O_RDWR);
    if (!store) return errno;
    if (const int error = m_journal.Write(store.Get())) return error;
    return Undo(tree);
}

// Takes in what was done to the file since this process looked last.
int StoreFile::TakeIn(Tree& tree) {
    const auto record = m_lock.Read();
    const std::uint64_t counter = record ? record->counter : m_seenCounter;
    const auto state = FileState::OfPath(m_path);
    if (!state) {
        const int error = errno;
        Log("it is gone");
        return error;
    }
    const std::lock_guard treeLock(tree.Mutex());
    if (counter == m_seenCounter && state == m_seenState && tree.IsOpen()) return 0;
    // Not as a counted change left it: it came from elsewhere, and may be anything.
    if (!record || record->state != *state) {
        if (const int error = Verify()) {
            tree.CloseFile();
            m_seenState.reset();
            return error;
        }
    }
    if (const int error = tree.Reopen()) return error;
    m_seenCounter = counter;
    m_seenState = state;
    m_countedChanges = tree.ChangeCount();
    return 0;
}

int StoreFile::BeginSearch(Tree& tree) {
    int error = LockAndRecover(tree, LockKind::Shared);
    if (error != 0) return error;
    error = TakeIn(tree);
    if (error != 0) m_lock.Release();
    return error;
}

// --- Changes ---

int StoreFile::BeginChange(Tree& tree) {
    int error = LockAndRecover(tree, LockKind::Exclusive);
    if (error != 0) return error;
    error = TakeIn(tree);
    if (error != 0) {
        m_lock.Release();
        return error;
    }
    const std::lock_guard treeLock(tree.Mutex());
    m_journalWritten = false;
    tree.SetBeforeChange([this, &tree] { return PrepareToChange(tree); });
    return 0;
}

// Called by the tree before it changes a record.
int StoreFile::PrepareToChange(Tree& tree) {
    if (!m_journalWritten) {
        // What could not be put back is not changed.
        const UniqueFd store = OpenFd(m_path, O_RDWR);
        if (!store) return errno;
        const auto opened = FileState::OfDescriptor(store.Get());
        const auto inTree = FileState::OfDescriptor(tree.FileDescriptor());
        if (!opened || !inTree || !opened->SameFile(*inTree)) return ESTALE;
        if (const int error = m_journal.Write(store.Get())) return error;
        m_journalWritten = true;
    }
    return MakeStep(ChangeStep::ChangeRecord, [] { return true; });
}

int StoreFile::EndChange(Tree& tree, bool failed) {
    int error = 0;
    {
        const std::lock_guard treeLock(tree.Mutex());
        tree.SetBeforeChange(nullptr);
        if (m_journalWritten) {
            if (!failed) error = Commit(tree);
            if ((failed || error != 0) && Undo(tree) != 0) {
                Log("a change that failed could not be undone yet; it will be when the store is next used");
            }
        }
        m_countedChanges = tree.ChangeCount();
        m_journalWritten = false;
    }
    m_lock.Release();
    return error;
}

int StoreFile::Commit(Tree& tree) {
    int error = MakeStep(ChangeStep::SyncTree, [&] { return tree.WriteOut() == kTreeOk; });
    if (error == 0) error = CountChange();
    if (error == 0) error = m_journal.Retire();
    return error;
}

// --- Undoing ---

int StoreFile::Undo(Tree& tree) {
    tree.CloseFile();  // writes part of what is undone; the journal has all of the file
    if (const int error = Recover(tree)) return error;
    return tree.Reopen();
}

// Under the exclusive lock: puts the file back when there is reason to.
int StoreFile::Recover(Tree& tree) {
    if (!m_journal.Exists()) return 0;
    if (HasWaiting(tree)) Log("what this process changed outside of transactions is dropped with the unfinished change of another");
    // What an open tree holds in memory is of the file in between.
    tree.CloseFile();
    auto finding = RollbackJournal::Finding::None;
    if (const int error = m_journal.PutBack(finding)) return error;
    if (finding == RollbackJournal::Finding::None) return 0;
    if (const int error = CountChange()) return error;
    return m_journal.Retire();
}

}  // namespace nal
