// The B-tree of a store: the only place that calls Berkeley DB's 1.85 interface.
//
// A tree has one physical cursor and may serve several stores, so each store keeps a Position of its own and the cursor is
// brought there before a step. The cursor remembers whose position it stands on, and then the step costs no search.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "asnt/view.h"
#include "certstorage/record_key.h"

struct __db;  // Berkeley DB's 1.85 handle; its header cannot stand beside the native one

namespace nal {

/// Statuses of every record operation.
inline constexpr int kTreeOk = 0;
inline constexpr int kTreeSpecial = 1;  ///< key absent, key already present, end of the tree
inline constexpr int kTreeError = -1;   ///< errno says why

/// Page settings of a tree. Stores have the defaults; tests also try settings under which keys are cut.
struct TreeSettings {
    std::uint32_t cacheSize = 0x4000000;
    std::uint32_t minKeysPerPage = 102;  // of 40-byte keys that fit in one page
    std::uint32_t pageSize = 4096;
};

/// One record; the views are valid until the next operation on the tree.
struct Record {
    asnt::View rawKey;
    asnt::View value;

    /// False for a record of another program: its key has another length.
    bool HasStoreKey() const { return rawKey.size == sizeof(RecordKey); }
    RecordKey Key() const { return RecordKey::FromBytes(rawKey); }
};

/// Where a walk stands: on the last record that it gave, which may be gone since.
class Position {
    friend class Tree;
    bool m_set = false;
    std::uint64_t m_id = 0;  // of this position in the tree's cursor, 0 before the first step
    RecordKey m_key;
};

enum class Step { First, Next };
enum class PutMode { KeepExisting, Overwrite };

/// Operations are for one thread at a time: the caller holds Mutex() around each, and for as long as it uses a Record.
class Tree {
public:
    /// A tree without a file. It is not opened before its second record operation: the first put waits in memory, so a
    /// store that only ever holds one certificate costs no database.
    explicit Tree(const TreeSettings& settings = {});
    ~Tree();
    Tree(const Tree&) = delete;
    Tree& operator=(const Tree&) = delete;

    /// Makes this a tree with a file, before its first record operation. `path` is made with mode 0640 when it is not there.
    /// Who may not write the file gets a tree that can be read.
    /// @return 0, or an errno. Damaged files must not come here: see tree_verify.h.
    int OpenFile(const std::string& path);
    /// Closes the file's tree and opens it again, to take in what another process wrote; positions stay.
    /// @return 0, or an errno, ENOENT when the file is gone, and then every record operation fails until a Reopen succeeds
    int Reopen();
    /// Closes a file's tree, and writes out what was changed. Record operations fail until a Reopen.
    void CloseFile();
    /// False for a tree with a file after CloseFile, and for one without before it is opened.
    bool IsOpen() const { return m_db != nullptr; }

    /// Called, with the mutex held, before each change of a record of a file; an errno that it returns is the operation's failure.
    void SetBeforeChange(std::function<int()> beforeChange) { m_beforeChange = std::move(beforeChange); }

    std::mutex& Mutex() { return m_mutex; }
    bool HasFile() const { return !m_path.empty(); }
    const std::string& Path() const { return m_path; }
    /// The descriptor of the file; -1 without one.
    int FileDescriptor() const;

    int Get(const RecordKey& key, asnt::View& value);
    int Put(const RecordKey& key, asnt::View value, PutMode mode);
    int Delete(const RecordKey& key);

    /// Moves `position` one record on, from before the first with Step::First. When its record is gone, the one that
    /// followed it is next. At the end (1) it stays where it is.
    int Move(Position& position, Step step, Record& record);
    /// Moves to the first record whose key is not below `key`; the position stays where it is when there is none.
    int Seek(Position& position, const RecordKey& key, Record& record);
    /// Moves `position` to the last record; in an empty tree it stays where it is.
    int MoveToLast(Position& position);
    /// Deletes the record that the last Move, Seek or MoveToLast of `position` gave.
    int DeleteAt(Position& position);

    /// Writes everything to the file and makes it durable; nothing to do without one. Nothing is left to write by a later close: the
    /// cursor is taken off a deleted record, which the database only then takes out of its page.
    int WriteOut();

    /// Raised by every operation that changes a record, and by Reopen. May be read without the mutex.
    std::uint64_t ChangeCount() const { return m_changeCount.load(std::memory_order_acquire); }

private:
    struct Closer {
        void operator()(__db* db) const;
    };
    struct PendingPut {
        RecordKey key;
        std::vector<unsigned char> value;
    };

    bool Ensure();
    int OpenDatabase(int create);
    bool EnsureToChange();
    int Sequence(Position& position, unsigned operation, Record& record);
    int BringCursor(Position& position, Record& record, bool& landedBeyond);

    std::mutex m_mutex;
    const TreeSettings m_settings;
    std::string m_path;  // empty without a file
    std::unique_ptr<__db, Closer> m_db;
    std::optional<PendingPut> m_pending;
    std::uint64_t m_cursorHolder = 0;  // the position that the physical cursor stands on, 0 for none
    std::uint64_t m_lastPositionId = 0;
    std::atomic<std::uint64_t> m_changeCount = 0;
    std::function<int()> m_beforeChange;
};

}  // namespace nal
