// The object behind a PCCERT_CONTEXT.
#pragma once

#include <memory>
#include <vector>

#include "certstorage/arena.h"
#include "certstorage/cert_fields.h"
#include "certstorage/cert_store.h"
#include "certstorage/key_prov_info.h"
#include "certstorage/reference_count.h"
#include "nal/wincrypt.h"

namespace nal {

/// A certificate and where it is kept. Callers read the CERT_CONTEXT that it begins with.
///
/// Owns a copy of the encoding, which the CERT_INFO points into. A context made for a store keeps the small store object, not its
/// tree, alive; a free-standing one has a memory store of its own and closes it. References: any thread. Else as a store.
class CertContext : public CERT_CONTEXT {
public:
    struct Dropper {
        void operator()(CertContext* context) const { context->DropReference(); }
    };
    /// One reference.
    using Reference = std::unique_ptr<CertContext, Dropper>;

    /// @param store  the store of the context; null makes a free-standing one
    /// @throws as CertCreateCertificateContext
    static Reference Create(DWORD encodingType, asnt::View encoded, CertStore* store);

    /// The interface has contexts const, but counts their references.
    static CertContext* From(PCCERT_CONTEXT context) {
        return static_cast<CertContext*>(const_cast<CERT_CONTEXT*>(context));
    }

    void AddReference() { m_refCount.Add(); }
    void DropReference();

    /// The subject key identifier when it has 20 bytes, else zeros.
    const KeyIdentifier& Key() const { return m_key; }
    asnt::View Encoded() const { return {pbCertEncoded, cbCertEncoded}; }
    CertStore& Store() const { return *m_store; }
    bool BoundToStore() const { return m_boundToStore; }
    HCRYPTPROV CryptProv() const { return m_hCryptProv; }

    /// Properties: see cert_properties.cpp.
    BOOL getProperty(DWORD propId, void* data, DWORD* pcbData) const;
    BOOL setProperty(DWORD propId, const void* data);

    // For Create, and for the last reference.
    CertContext(DWORD encodingType, asnt::View encoded);
    ~CertContext();
    CertContext(const CertContext&) = delete;
    CertContext& operator=(const CertContext&) = delete;

private:
    void FillInfo();
    void OpenPrivateStore();

    HCRYPTPROV m_hCryptProv = 0;
    KeyIdentifier m_key{};
    ReferenceCount m_refCount;
    bool m_boundToStore = false;
    CertStore::Attachment m_store;
    std::unique_ptr<unsigned char[]> m_encoded;
    CERT_INFO m_info{};
    Arena m_arena;
    std::vector<SecretBytes> m_ownedBuffers;  // the blocks of set key provider infos
};

}  // namespace nal
