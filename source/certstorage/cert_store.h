// The object behind an HCERTSTORE, and the operations on its records.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "certstorage/record_key.h"
#include "certstorage/reference_count.h"
#include "certstorage/store_body.h"
#include "certstorage/tree.h"
#include "nal/wincrypt.h"

namespace nal {

/// One handle on a store: the tree that it shares with the other handles on its file, and a position of its own.
///
/// Record operations return a tree status: 0, 1 (key absent, or already present), -1 with errno. On a closed store they
/// return -1 with EBADF.
///
/// Lifetime: open until its last reference is dropped, which closes the tree. The small object stays until its last context
/// is freed too, so that what a caller does with a late context fails instead of reaching into freed memory.
/// Threads: references and attachments from any; the position is for one walk at a time.
class CertStore {
public:
    /// Frees the object when nobody is attached any more.
    struct Detach {
        void operator()(CertStore* store) const { store->Release(); }
    };
    /// What keeps the object, not the tree, alive: held by each context, and by the handle as long as the store is open.
    using Attachment = std::unique_ptr<CertStore, Detach>;

    /// @return an open store with one reference
    static CertStore* OpenMemory();
    /// @return null with errno, as StoreBody::OpenFile
    static CertStore* OpenFile(const std::string& path);

    static CertStore* FromHandle(HCERTSTORE handle) { return static_cast<CertStore*>(handle); }
    HCERTSTORE Handle() { return this; }

    void AddReference() { m_refCount.Add(); }
    /// The last reference syncs and closes the tree, and may free this object.
    void DropReference();
    Attachment Attach();

    /// What this shares with the other handles on its file; null when closed.
    std::shared_ptr<StoreBody> Body() const { return m_body; }
    bool HasFile() const { return m_body != nullptr && m_body->HasFile(); }

    int storeCert(const KeyIdentifier& key, asnt::View bytes, PutMode mode = PutMode::KeepExisting);
    int deleteCert(const KeyIdentifier& key);
    /// Deletes the certificate and every property of it; the position ends on the last record.
    int deleteCertCascade(const KeyIdentifier& key);

    int storeCrl(const RecordKey& key, asnt::View bytes, PutMode mode);
    int deleteCrl(const RecordKey& key);
    /// Deletes the CRL and every property of it; the position ends on the last record.
    int deleteCrlCascade(const KeyIdentifier& issuer, const CrlSerial& serial);

    /// Stores a property of the certificate or, with a serial, of the CRL, over an earlier one. `propId` may be a kind word.
    int storeProp(const KeyIdentifier& key, std::uint32_t propId, asnt::View bytes, const CrlSerial* crlSerial = nullptr);
    /// Reports the size, and copies the value when `buffer` is not null and *pcb is at least its size.
    int getProp(const KeyIdentifier& key, std::uint32_t propId, void* buffer, DWORD* pcb,
                const CrlSerial* crlSerial = nullptr);
    int getPropSize(const KeyIdentifier& key, std::uint32_t propId, DWORD* pcb, const CrlSerial* crlSerial = nullptr);
    int deleteProp(const KeyIdentifier& key, std::uint32_t propId, const CrlSerial* crlSerial = nullptr);

    /// Deletes this store's properties of `key`, then copies those of `source` whose kind word is exactly 0x40000, that is, a
    /// property with id 0. Kept deliberately: properties of other ids are removed and not carried over.
    int transferProperties(CertStore& source, const KeyIdentifier& key);

    /// One record's value, copied.
    int GetRecord(const RecordKey& key, std::vector<unsigned char>& value);

    /// The operation that the next step uses.
    enum class CursorOp : std::uint32_t { First = 3, Next = 7 };
    void SetCursorOp(CursorOp op) { m_cursorOp = op; }
    /// One step with the cursor operation, and copies of what it came to.
    int traverse(RecordKey& key, std::vector<unsigned char>& value);
    /// Steps with the cursor operation, then onwards, over records of this program until `visit(key, value)` returns true.
    /// `visit` runs under the tree's lock: it must not call the store, and the value is valid only in it.
    template <class Visit>
    int WalkUntil(Visit visit);

    /// Visits the records of one identifier in order, and leaves the position on the last record of the tree, where a walk
    /// over all of it would leave it. What `visit(key, value)` returns says whether the record is deleted. As WalkUntil else.
    template <class Visit>
    int ForIdentifier(const KeyIdentifier& identifier, Visit visit);

    /// Puts the position on a record.
    int SeekTo(const RecordKey& key);

    // For the two functions that open a store, and for the last attachment.
    explicit CertStore(std::shared_ptr<StoreBody> body);
    ~CertStore();
    CertStore(const CertStore&) = delete;
    CertStore& operator=(const CertStore&) = delete;

private:
    void Release();
    static int Closed();

    template <class Operate>
    int WithTree(Operate operate);
    int Delete(const RecordKey& key);
    static RecordKey FirstPossibleKey(const KeyIdentifier& identifier);

    std::shared_ptr<StoreBody> m_body;  // null when closed
    ReferenceCount m_refCount;
    ReferenceCount m_attachments;
    Position m_position;
    CursorOp m_cursorOp = CursorOp::First;
};

template <class Operate>
int CertStore::WithTree(Operate operate) {
    if (m_body == nullptr) return Closed();
    Tree& tree = m_body->GetTree();
    const std::lock_guard lock(tree.Mutex());
    return operate(tree);
}

template <class Visit>
int CertStore::WalkUntil(Visit visit) {
    return WithTree([&](Tree& tree) {
        Record record;
        Step step = m_cursorOp == CursorOp::First ? Step::First : Step::Next;
        for (;;) {
            const int status = tree.Move(m_position, step, record);
            if (status != kTreeOk) return status;
            if (record.HasStoreKey() && visit(record.Key(), record.value)) return kTreeOk;
            step = Step::Next;
        }
    });
}

template <class Visit>
int CertStore::ForIdentifier(const KeyIdentifier& identifier, Visit visit) {
    return WithTree([&](Tree& tree) {
        Record record;
        int status = tree.Seek(m_position, FirstPossibleKey(identifier), record);
        bool atEnd = false;
        while (status == kTreeOk && !atEnd) {
            const RecordKey key = record.Key();
            const int order = std::memcmp(key.identifier.data(), identifier.data(), identifier.size());
            if (order > 0) break;
            if (order == 0 && record.HasStoreKey() && visit(key, record.value)) status = tree.DeleteAt(m_position);
            if (status == kTreeOk) {
                status = tree.Move(m_position, Step::Next, record);
                atEnd = status == kTreeSpecial;  // the position has come to the last record by itself
            }
        }
        if (status != kTreeError && !atEnd) status = tree.MoveToLast(m_position);
        return status == kTreeError ? kTreeError : kTreeOk;
    });
}

}  // namespace nal
