#include "nal/storage.h"

#include <algorithm>
#include <utility>

#include "certstorage/arena.h"
#include "certstorage/store_access.h"
#include "frame/failure.h"
#include "frame/log.h"
#include "nal/crl.h"
#include "storage/cert_reader.h"
#include "storage/find_subject_cert.h"
#include "storage/storage_index.h"
#include "storage/store_change.h"

namespace {

constexpr DWORD c_encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

// Whether a store can key the CRL; the reason goes to the log.
bool CanBeKeyed(const IdentObj& encoded) {
    try {
        CNAL_CRL_List crl;
        crl.ReadData(encoded.GetData(), encoded.GetSize());
        NALCheckCRLKey(crl.m_info);
        return true;
    } catch (const XTOOStatus& status) {
        nal::LogError(NAL_HERE("source/storage"), status.what());
        return false;
    }
}

}  // namespace

boost::recursive_mutex NALStorageLocker;

/// The index of one store, for the storages that share it.
struct nal::SharedIndex {
    std::unique_ptr<StorageIndex> index;  // null until the first search
};

using Locked = boost::recursive_mutex::scoped_lock;

CNALCertStorage::CNALCertStorage(CNALString& name, const char* storeProvider, unsigned int flags, unsigned int storageType,
                                 void* reserved) {
    OpenStorage(name, storeProvider, flags, storageType, reserved);
}

CNALCertStorage::CNALCertStorage(const CNALCertStorage& other)
    : m_storageType(other.m_storageType),
      m_untrusted(other.m_untrusted),
      m_name(other.m_name),
      m_store(CertDuplicateStore(other.m_store)),
      m_index(other.m_index) {}

CNALCertStorage& CNALCertStorage::operator=(const CNALCertStorage& other) {
    if (this == &other) return *this;
    const HCERTSTORE store = CertDuplicateStore(other.m_store);
    const std::shared_ptr<nal::SharedIndex> index = other.m_index;
    CloseStorage();
    m_store = store;
    m_index = index;
    m_storageType = other.m_storageType;
    m_untrusted = other.m_untrusted;
    m_name = other.m_name;
    return *this;
}

CNALCertStorage::~CNALCertStorage() { CloseStorage(); }

CNALCertStorage CNALCertStorage::OverStore(HCERTSTORE store) {
    CNALCertStorage storage;
    // The store of a context that has outlived it is closed for good.
    if (store == nullptr || nal::CertStore::FromHandle(store)->Body() == nullptr) return storage;
    storage.m_store = CertDuplicateStore(store);
    storage.m_index = std::make_shared<nal::SharedIndex>();
    return storage;
}

BOOL CNALCertStorage::OpenStorage(CNALString& name, const char* storeProvider, unsigned int flags, unsigned int storageType,
                                  void* /*reserved*/) {
    CloseStorage();
    m_name = name;
    m_storageType = storageType;
    if (storeProvider == CERT_STORE_PROV_MEMORY) {
        m_store = CertOpenStore(storeProvider, c_encoding, 0, flags, nullptr);
    } else if (storeProvider == CERT_STORE_PROV_FILENAME_A) {
        m_store = CertOpenStore(storeProvider, c_encoding, 0, flags, name.ToBytes().c_str());
    } else {
        m_store = CertOpenStore(storeProvider, c_encoding, 0, flags, name.c_str());
    }
    if (!IsOpened()) return FALSE;
    m_index = std::make_shared<nal::SharedIndex>();
    return TRUE;
}

void CNALCertStorage::CloseStorage(bool /*flag*/) {
    {
        const Locked lock(NALStorageLocker);
        m_index.reset();
    }
    if (m_store != nullptr) CertCloseStore(std::exchange(m_store, nullptr), 0);
}

void CNALCertStorage::Clear() {
    CloseStorage();
    m_storageType = 0;
    m_untrusted = 0;
    m_name.clear();
}

// --- Changes ---

template <class Change>
BOOL CNALCertStorage::MakeChange(HCERTSTORE store, Change&& change) {
    return store != nullptr ? nal::ChangeStore(store, std::forward<Change>(change)) : nal::Refuse(nal::kInvalidHandle);
}

BOOL CNALCertStorage::AddCertificate(const CNALCertContext& cert) {
    return MakeChange(m_store, [&] { return nal::AddToStore(m_store, cert); });
}

BOOL CNALCertStorage::AddEncodetCertificate(const IdentObj& encoded, unsigned int encoding) {
    return MakeChange(m_store, [&] {
        return CertAddEncodedCertificateToStore(m_store, encoding, encoded.GetData(), encoded.GetSize(),
                                                CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES, nullptr);
    });
}

BOOL CNALCertStorage::AddCertificateList(const std::list<CNALCertContext>& certs) {
    return MakeChange(m_store, [&] {
        for (const CNALCertContext& cert : certs) {
            if (!nal::AddToStore(m_store, cert)) return FALSE;
        }
        return TRUE;
    });
}

BOOL CNALCertStorage::AddCRLContext(const CNALCRLContext& crl, unsigned int disposition) {
    return MakeChange(m_store, [&] { return CertAddCRLContextToStore(m_store, crl.GetContext(), disposition, nullptr); });
}

BOOL CNALCertStorage::AddEncodetCRL(const IdentObj& encoded, unsigned int encoding) {
    if (!CanBeKeyed(encoded)) return nal::Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    return MakeChange(m_store, [&] {
        return CertAddEncodedCRLToStore(m_store, encoding, encoded.GetData(), encoded.GetSize(), CERT_STORE_ADD_ALWAYS, nullptr);
    });
}

BOOL CNALCertStorage::DeleteCertificate(CNALCertContext& cert) {
    if (!cert.IsInitialized()) return nal::Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    const BOOL deleted = MakeChange(cert.GetContext()->hCertStore, [&] {
        // The call takes a reference; the wrapper's own stays until all is done.
        return CertDeleteCertificateFromStore(CertDuplicateCertificateContext(cert.GetContext()));
    });
    if (deleted) cert = static_cast<const CERT_CONTEXT*>(nullptr);
    return deleted;
}

BOOL CNALCertStorage::DeleteCRL(CNALCRLContext& crl) {
    if (!crl.IsInitialized()) return nal::Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    const CNALCRLContext taken = std::move(crl);
    crl = static_cast<const CRL_CONTEXT*>(nullptr);
    if (taken.GetContext()->hCertStore == nullptr) return CertDeleteCRLFromStore(CertDuplicateCRLContext(taken.GetContext()));
    return MakeChange(taken.GetContext()->hCertStore,
                      [&] { return CertDeleteCRLFromStore(CertDuplicateCRLContext(taken.GetContext())); });
}

// --- Searches ---

nal::StorageIndex& CNALCertStorage::Index() const {
    nal::CertStore& store = *nal::CertStore::FromHandle(m_store);
    std::unique_ptr<nal::StorageIndex>& index = m_index->index;
    if (index == nullptr || !index->IsCurrent()) index = std::make_unique<nal::StorageIndex>(store, index.get());
    return *index;
}

CNALCRLContext CNALCertStorage::FindCRLInStore(unsigned int /*flags*/, const void* /*reserved*/,
                                               const CNALCRLContext& previous) const {
    if (m_store == nullptr) return {};
    const Locked lock(NALStorageLocker);
    const nal::StoreSearch search(*nal::CertStore::FromHandle(m_store));
    if (search.Error() != 0) {
        SetLastError(static_cast<DWORD>(search.Error()));
        return {};
    }
    DWORD flags = 0;
    return CNALCRLContext::Adopt(CertGetCRLFromStore(m_store, nullptr, CertDuplicateCRLContext(previous.GetContext()), &flags));
}

BOOL CNALCertStorage::FindWithIndex(std::list<CNALCertContext>& list, unsigned int findType, const void* findPara) const {
    nal::StorageIndex& index = Index();
    if (findType == CERT_FIND_SUBJECT_CERT) {
        const auto& wanted = *static_cast<const CERT_INFO*>(findPara);
        std::list<CNALCertContext> candidates;
        if (const auto keyId = nal::KeyIdentifierInName(wanted.Issuer)) {
            index.FindKey(nal::ToKeyIdentifier(*keyId), candidates);
        } else {
            IdentObj octets = nal::ViewOf(wanted.SerialNumber).Copy();
            std::reverse(octets.GetData(), octets.GetData() + octets.GetSize());
            index.Find(nal::StorageIndex::By::Serial, octets, candidates);
        }
        for (CNALCertContext& candidate : candidates) {
            if (nal::FitsCertInfo(candidate, wanted)) list.push_back(std::move(candidate));
        }
        return TRUE;
    }
    const asnt::View name = nal::ViewOf(*static_cast<const CERT_NAME_BLOB*>(findPara));
    index.Find(findType == CERT_FIND_SUBJECT_NAME ? nal::StorageIndex::By::Subject : nal::StorageIndex::By::Issuer, name, list);
    return TRUE;
}

BOOL CNALCertStorage::FindCertList(std::list<CNALCertContext>& list, unsigned int findType, const void* findPara) const {
    if (findType != CERT_FIND_ANY && findPara == nullptr) return nal::Refuse(nal::kInvalidParameter);
    if (m_store == nullptr) return nal::Refuse(nal::kInvalidHandle);
    const Locked lock(NALStorageLocker);
    const nal::StoreSearch search(*nal::CertStore::FromHandle(m_store));
    if (search.Error() != 0) return nal::Refuse(static_cast<DWORD>(search.Error()));

    std::list<CNALCertContext> found;
    switch (findType) {
        case CERT_FIND_SUBJECT_NAME:
        case CERT_FIND_ISSUER_NAME:
        case CERT_FIND_SUBJECT_CERT:
            if (!nal::FindIn([&] { return FindWithIndex(found, findType, findPara); })) return FALSE;
            SetLastError(found.empty() ? NAL_STORE_E_NOT_FOUND : 0);
            break;
        case CERT_FIND_EXISTING: {
            const auto& blob = *static_cast<const CRYPT_HASH_BLOB*>(findPara);
            if (blob.pbData == nullptr) return nal::Refuse(nal::kInvalidParameter);
            // Asked once: the store gives the same certificate each time.
            const PCCERT_CONTEXT one = CertFindCertificateInStore(m_store, c_encoding, 0, findType, blob.pbData, nullptr);
            if (one != nullptr) found.push_back(CNALCertContext::Adopt(one));
            break;
        }
        default: {
            PCCERT_CONTEXT next = nullptr;
            while ((next = CertFindCertificateInStore(m_store, c_encoding, 0, findType, findPara, next)) != nullptr) {
                found.emplace_back(next);
            }
            if (GetLastError() != NAL_STORE_E_NOT_FOUND) return FALSE;  // a part is not what fits
        }
    }
    if (found.empty()) return FALSE;
    for (CNALCertContext& cert : found) cert.m_storageType = m_storageType;
    list.splice(list.end(), found);
    return TRUE;
}

BOOL CNALCertStorage::GetCrlFromStorage(const CNALCertContext& issuer, CNALCRLContext& crl) const {
    if (m_store == nullptr) return nal::Refuse(nal::kInvalidHandle);
    if (!issuer.IsInitialized()) return nal::Refuse(nal::kInvalidParameter);
    const Locked lock(NALStorageLocker);
    const nal::StoreSearch search(*nal::CertStore::FromHandle(m_store));
    if (search.Error() != 0) return nal::Refuse(static_cast<DWORD>(search.Error()));
    return nal::FindIn([&] {
        const nal::StorageIndex::Crl* found =
            Index().FindCrl(nal::CertContext::From(issuer.GetContext())->Key(), nal::PublicKeyOf(*issuer.GetContext()));
        if (found == nullptr) return nal::Refuse(NAL_STORE_E_NOT_FOUND);
        crl = found->context;
        return TRUE;
    });
}

BOOL CNALCertStorage::FindRevocation(const CNALCertContext& subject, const CNALCertContext& issuer, bool& isListed,
                                     CNALCRLContext& crl) const {
    if (m_store == nullptr) return nal::Refuse(nal::kInvalidHandle);
    if (!subject.IsInitialized() || !issuer.IsInitialized()) return nal::Refuse(nal::kInvalidParameter);
    const Locked lock(NALStorageLocker);
    const nal::StoreSearch search(*nal::CertStore::FromHandle(m_store));
    if (search.Error() != 0) return nal::Refuse(static_cast<DWORD>(search.Error()));
    const CERT_CONTEXT& issuerCert = *issuer.GetContext();
    const IdentObj serial = nal::SerialOf(issuerCert);
    return nal::FindIn([&] {
        const nal::StorageIndex::Crl* found =
            Index().FindCrl(nal::CertContext::From(&issuerCert)->Key(), nal::PublicKeyOf(issuerCert), &serial);
        if (found == nullptr) return nal::Refuse(NAL_STORE_E_NOT_FOUND);
        isListed = found->Lists(nal::SerialOf(*subject.GetContext()));
        crl = found->context;
        return TRUE;
    });
}
