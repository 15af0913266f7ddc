// The rollback journal of a store's file X: X as it was before a change, and how X is put back from it.
//
// Names beside X; all of them are written under the exclusive lock only:
//
//   X.journal.new   being written; means nothing
//   X.journal       a change is being made, or was cut off: X is as the journal says, whatever lies in X
//   X.journal.done  of a change that is finished; means nothing
//   X.journal.stale a journal that belonged to another file than X and was set aside; never read
//
// The journal is X byte for byte, then, in the machine's byte order:
//
//   offset  size  field
//        0     8  "NALJRNL1"
//        8     8  inode of X
//       16     8  size of X
//       24     8  sum over the bytes before (FNV-1a, 64 bits)
#pragma once

#include <string>

namespace nal {

/// For one thread at a time, under the exclusive lock. Returned numbers are 0 or an errno.
class RollbackJournal {
public:
    explicit RollbackJournal(std::string storePath);

    bool Exists() const;

    /// Copies X, open as `store`, and makes the copy durable under the journal's name.
    int Write(int store) const;

    enum class Finding { None, Restored };
    /// Puts X back, and makes that durable, when a journal of X is there; the journal stays. May be cut off and done again.
    /// A journal of another file, such as when a backup was put in X's place, is set aside.
    /// @return EUCLEAN, and the log says which file, when what lies under its name is no journal
    int PutBack(Finding& finding) const;

    /// Takes the journal away and makes that durable: from here on X is as it is now. Else the journal is still there.
    int Retire() const;

private:
    const std::string m_storePath;
    const std::string m_path;
};

}  // namespace nal
