// The object behind a PCCRL_CONTEXT.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "certstorage/arena.h"
#include "certstorage/cert_store.h"
#include "certstorage/reference_count.h"
#include "nal/wincrypt.h"

class CNAL_CRL_Info;

namespace nal {

/// A property of a CRL as it was in the store when the context was built.
struct CRLProp {
    std::uint32_t kind = 0;  // 0x80000 | property id
    std::uint32_t size = 0;
    std::vector<unsigned char> data;
};

/// What a store keys a CRL by.
struct CrlKey {
    KeyIdentifier issuerID{};
    CrlSerial crlSerial{};

    RecordKey Record() const { return RecordKey::Crl(issuerID, crlSerial); }
};

/// A CRL and where it is kept. Callers read the CRL_CONTEXT that it begins with. A free-standing one has no store.
/// References: any thread. Else as a store.
class CrlContext : public CRL_CONTEXT {
public:
    struct Dropper {
        void operator()(CrlContext* context) const { context->DropReference(); }
    };
    /// One reference.
    using Reference = std::unique_ptr<CrlContext, Dropper>;

    /// @param store  bound to, when not null
    /// @throws as CertCreateCRLContext. Aborts for a key of another size.
    static Reference Create(DWORD encodingType, asnt::View encoded, CertStore* store);
    /// A context for a stored record, not bound to its store yet.
    /// @throws XTOOStatus when the bytes are no CRL, or one that does not belong under this key
    static Reference FromRecord(DWORD encodingType, const RecordKey& record, asnt::View encoded);

    /// Makes this a context of `store`, and reads the CRL's properties there, which leaves the store's position on its last record.
    void BindTo(CertStore& store);

    /// The interface has contexts const, but counts their references.
    static CrlContext* From(PCCRL_CONTEXT context) {
        return static_cast<CrlContext*>(const_cast<CRL_CONTEXT*>(context));
    }

    void AddReference() { m_refCount.Add(); }
    void DropReference();

    const CrlKey& Key() const { return m_key; }
    asnt::View Encoded() const { return {pbCrlEncoded, cbCrlEncoded}; }
    /// Null for a free-standing context.
    CertStore* Store() const { return m_store.get(); }

    /// Writes the properties that the context was built with to another store.
    /// @return 0, also for the context's own store, where nothing is done; 22 for null; else an errno
    int storeProperties(CertStore* target);

    // For Create and FromRecord, and for the last reference.
    CrlContext(DWORD encodingType, asnt::View encoded, const CNAL_CRL_Info& crl, const CrlKey& key);
    ~CrlContext();
    CrlContext(const CrlContext&) = delete;
    CrlContext& operator=(const CrlContext&) = delete;

private:
    void FillInfo(const CNAL_CRL_Info& crl);
    void FillEntries(const CNAL_CRL_Info& crl);

    CrlKey m_key;
    ReferenceCount m_refCount;
    CertStore::Attachment m_store;
    std::unique_ptr<unsigned char[]> m_encoded;
    CRL_INFO m_info{};
    Arena m_arena;
    std::mutex m_propertiesMutex;
    std::map<std::uint32_t, CRLProp> m_properties;  // by kind word
};

}  // namespace nal
