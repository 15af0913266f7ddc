#include "certstorage/tree.h"

#include <db_185.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "certstorage/db_memory.h"

namespace nal {
namespace {

asnt::View ToView(const DBT& dbt) { return {dbt.data, dbt.size}; }

DBT ToDbt(asnt::View view) {
    DBT dbt{};
    dbt.data = const_cast<unsigned char*>(view.data);  // the interface's inputs are not const, and not written to
    dbt.size = view.size;
    return dbt;
}

extern "C" int CompareDbt(const DBT* a, const DBT* b) { return CompareKeys(ToView(*a), ToView(*b)); }
extern "C" size_t PrefixDbt(const DBT* a, const DBT* b) { return KeyPrefix(ToView(*a), ToView(*b)); }

DB* Open(const char* path, int flags, int mode, const TreeSettings& settings) {
    PrepareDbMemory();
    BTREEINFO info{};
    info.cachesize = settings.cacheSize;
    info.minkeypage = settings.minKeysPerPage;
    info.psize = settings.pageSize;
    info.compare = CompareDbt;
    info.prefix = PrefixDbt;
    return dbopen(path, flags, mode, DB_BTREE, &info);
}

// Berkeley DB's own codes are negative and no errno that a caller could look up.
int Status(int result) {
    if (result == RET_ERROR && errno <= 0) errno = EIO;
    return result;
}

}  // namespace

void Tree::Closer::operator()(__db* db) const { db->close(db); }

Tree::Tree(const TreeSettings& settings) : m_settings(settings) {}

Tree::~Tree() = default;

int Tree::OpenFile(const std::string& path) {
    m_path = path;
    return OpenDatabase(access(m_path.c_str(), F_OK) == 0 ? 0 : O_CREAT);
}

void Tree::CloseFile() {
    m_cursorHolder = 0;
    m_db.reset();
}

// Never makes the file: one that is gone is an error, not an empty store.
int Tree::Reopen() {
    CloseFile();
    ++m_changeCount;
    return OpenDatabase(0);
}

int Tree::OpenDatabase(int create) {
    m_db.reset(Open(m_path.c_str(), O_RDWR | create, 0640, m_settings));
    if (m_db == nullptr && (errno == EACCES || errno == EPERM || errno == EROFS)) {
        m_db.reset(Open(m_path.c_str(), O_RDONLY, 0, m_settings));
    }
    if (m_db != nullptr) return 0;
    Status(RET_ERROR);
    return errno;
}

int Tree::FileDescriptor() const { return HasFile() && m_db != nullptr ? m_db->fd(m_db.get()) : -1; }

// Opens a tree without a file at last, and makes up for the put that waited.
bool Tree::Ensure() {
    if (m_db != nullptr) return true;
    if (HasFile()) {
        errno = EBADF;  // a Reopen failed
        return false;
    }
    std::unique_ptr<__db, Closer> db(Open(nullptr, O_RDWR | O_CREAT, 0600, m_settings));
    if (db == nullptr) return Status(RET_ERROR) == RET_SUCCESS;
    if (m_pending) {
        DBT key = ToDbt(m_pending->key.Bytes());
        const DBT value = ToDbt({m_pending->value.data(), m_pending->value.size()});
        if (db->put(db.get(), &key, &value, 0) != RET_SUCCESS) return Status(RET_ERROR) == RET_SUCCESS;
        m_pending.reset();
    }
    m_db = std::move(db);
    return true;
}

bool Tree::EnsureToChange() {
    if (!Ensure()) return false;
    const int error = m_beforeChange ? m_beforeChange() : 0;
    if (error != 0) errno = error;
    return error == 0;
}

int Tree::Get(const RecordKey& key, asnt::View& value) {
    if (!Ensure()) return kTreeError;
    const DBT wanted = ToDbt(key.Bytes());
    DBT found{};
    const int result = m_db->get(m_db.get(), &wanted, &found, 0);
    if (result == RET_SUCCESS) value = ToView(found);
    return Status(result);
}

int Tree::Put(const RecordKey& key, asnt::View value, PutMode mode) {
    if (m_db == nullptr && !m_pending && !HasFile()) {
        m_pending = PendingPut{key, {value.begin(), value.end()}};
        ++m_changeCount;
        return kTreeOk;
    }
    if (!EnsureToChange()) return kTreeError;
    DBT newKey = ToDbt(key.Bytes());
    const DBT newValue = ToDbt(value);
    const int result = m_db->put(m_db.get(), &newKey, &newValue, mode == PutMode::KeepExisting ? R_NOOVERWRITE : 0);
    if (result == RET_SUCCESS) ++m_changeCount;
    return Status(result);
}

int Tree::Delete(const RecordKey& key) {
    if (!EnsureToChange()) return kTreeError;
    const DBT wanted = ToDbt(key.Bytes());
    const int result = m_db->del(m_db.get(), &wanted, 0);
    if (result == RET_SUCCESS) ++m_changeCount;
    return Status(result);
}

int Tree::Sequence(Position& position, unsigned operation, Record& record) {
    DBT key = ToDbt(position.m_key.Bytes());  // read by R_CURSOR only
    DBT value{};
    const int result = m_db->seq(m_db.get(), &key, &value, operation);
    if (result != RET_SUCCESS) return Status(result);
    record = {ToView(key), ToView(value)};
    if (position.m_id == 0) position.m_id = ++m_lastPositionId;
    position.m_key = record.Key();
    position.m_set = true;
    m_cursorHolder = position.m_id;
    return kTreeOk;
}

// Puts the physical cursor on the record of `position`. `landedBeyond`: that record is gone, and the cursor has moved to
// the one that followed it, which `record` describes.
int Tree::BringCursor(Position& position, Record& record, bool& landedBeyond) {
    landedBeyond = false;
    if (m_cursorHolder == position.m_id) return kTreeOk;
    const RecordKey wanted = position.m_key;
    const int result = Sequence(position, R_CURSOR, record);
    landedBeyond = result == kTreeOk && CompareKeys(record.rawKey, wanted.Bytes()) != 0;
    return result;
}

int Tree::Move(Position& position, Step step, Record& record) {
    if (!Ensure()) return kTreeError;
    // A cursor that was never set goes to the first record.
    if (step == Step::First || !position.m_set) return Sequence(position, R_FIRST, record);
    bool landedBeyond = false;
    const int result = BringCursor(position, record, landedBeyond);
    if (result != kTreeOk || landedBeyond) return result;
    return Sequence(position, R_NEXT, record);
}

int Tree::Seek(Position& position, const RecordKey& key, Record& record) {
    if (!Ensure()) return kTreeError;
    Position there = position;
    there.m_key = key;
    const int result = Sequence(there, R_CURSOR, record);
    if (result == kTreeOk) position = there;
    return result;
}

int Tree::MoveToLast(Position& position) {
    if (!Ensure()) return kTreeError;
    Record last;
    return Sequence(position, R_LAST, last);
}

int Tree::DeleteAt(Position& position) {
    if (!EnsureToChange()) return kTreeError;
    if (position.m_id == 0 || m_cursorHolder != position.m_id) {
        errno = EINVAL;
        return kTreeError;
    }
    const DBT unused{};
    const int result = m_db->del(m_db.get(), &unused, R_CURSOR);
    if (result == RET_SUCCESS) ++m_changeCount;
    return Status(result);
}

int Tree::WriteOut() {
    if (!HasFile()) return kTreeOk;
    if (!Ensure()) return kTreeError;
    if (m_cursorHolder != 0) {
        DBT key{};
        DBT value{};
        const int first = m_db->seq(m_db.get(), &key, &value, R_FIRST);
        m_cursorHolder = 0;
        if (first == RET_ERROR) return Status(first);
        // In an empty tree there is no record to go to, so only closing it takes the cursor away.
        if (first == RET_SPECIAL) {
            CloseFile();
            if (const int error = OpenDatabase(0)) {
                errno = error;
                return kTreeError;
            }
        }
    }
    if (m_db->sync(m_db.get(), 0) != RET_SUCCESS) return Status(RET_ERROR);
    return fdatasync(FileDescriptor()) == 0 ? kTreeOk : kTreeError;
}

}  // namespace nal
