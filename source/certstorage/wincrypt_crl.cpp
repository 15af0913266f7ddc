// The functions on CRL contexts.
#include <cerrno>
#include <optional>

#include "certstorage/cert_context.h"
#include "certstorage/cert_store.h"
#include "certstorage/crl_add.h"
#include "certstorage/crl_context.h"
#include "certstorage/crl_decoder.h"
#include "certstorage/invariant.h"
#include "frame/failure.h"
#include "too/time.h"

using nal::CertContext;
using nal::CertStore;
using nal::CrlContext;
using nal::Refuse;
using nal::RefuseNull;

namespace {

constexpr DWORD kSettableProps[] = {CERT_SHA1_HASH_PROP_ID, CERT_MD5_HASH_PROP_ID, CERT_SIGNATURE_HASH_PROP_ID};

bool IsSettable(DWORD propId) {
    for (DWORD settable : kSettableProps) {
        if (settable == propId) return true;
    }
    return false;
}

// Null, and a record in the log, for bytes that are no CRL or not the one that the key says.
CrlContext::Reference DecodeOrSkip(const nal::RecordKey& key, asnt::View value) {
    try {
        return CrlContext::FromRecord(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, key, value);
    } catch (const XTOOStatus&) {
        LogError(NAL_HERE(nal::kStoreSource), "a CRL record that does not decode is skipped");
        return nullptr;
    }
}

// A context of the store for a CRL that was just added, and the tail of both functions that add one.
BOOL Added(CertStore& store, DWORD encodingType, asnt::View encoded, PCCRL_CONTEXT* context) {
    if (context != nullptr) *context = CrlContext::Create(encodingType, encoded, &store).release();
    return TRUE;
}

}  // namespace

PCCRL_CONTEXT CertCreateCRLContext(DWORD dwCertEncodingType, const BYTE* pbCrlEncoded, DWORD cbCrlEncoded) {
    return CrlContext::Create(dwCertEncodingType, {pbCrlEncoded, cbCrlEncoded}, nullptr).release();
}

PCCRL_CONTEXT CertDuplicateCRLContext(PCCRL_CONTEXT pCrlContext) {
    if (pCrlContext != nullptr) CrlContext::From(pCrlContext)->AddReference();
    return pCrlContext;
}

BOOL CertFreeCRLContext(PCCRL_CONTEXT pCrlContext) {
    if (pCrlContext == nullptr) return FALSE;
    CrlContext::From(pCrlContext)->DropReference();
    return TRUE;
}

// The properties that the context was built with stay as they were.
BOOL CertSetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, DWORD /*dwFlags*/, const void* pvData) {
    CrlContext* context = CrlContext::From(pCrlContext);
    if (context == nullptr || context->Store() == nullptr) return FALSE;
    if (!IsSettable(dwPropId)) return Refuse(TOO_E_UNSUPPORTED);
    const auto* blob = static_cast<const CRYPT_DATA_BLOB*>(pvData);
    if (blob == nullptr || (blob->pbData == nullptr && blob->cbData != 0)) return FALSE;
    const nal::CrlKey& key = context->Key();
    return context->Store()->storeProp(key.issuerID, dwPropId, nal::ViewOf(*blob), &key.crlSerial) == nal::kTreeOk ? TRUE
                                                                                                                  : FALSE;
}

BOOL CertGetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, void* pvData, DWORD* pcbData) {
    CrlContext* context = CrlContext::From(pCrlContext);
    if (context == nullptr || context->Store() == nullptr || pcbData == nullptr) return FALSE;
    const nal::CrlKey& key = context->Key();
    return context->Store()->getProp(key.issuerID, dwPropId, pvData, pcbData, &key.crlSerial) == nal::kTreeOk ? TRUE
                                                                                                             : FALSE;
}

DWORD CertEnumCRLContextProperties(PCCRL_CONTEXT /*pCrlContext*/, DWORD /*dwPropId*/) {
    return static_cast<DWORD>(Refuse(TOO_E_UNSUPPORTED));
}

PCCRL_CONTEXT CertGetCRLFromStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pIssuerContext, PCCRL_CONTEXT pPrevCrlContext,
                                  DWORD* pdwFlags) {
    // Consumed whatever comes of it. Its store is not compared: kept so.
    const CrlContext::Reference previous(CrlContext::From(pPrevCrlContext));
    if (hCertStore == nullptr) return RefuseNull(NAL_STORE_E_INVALID_ARGUMENT);

    CertStore& store = *CertStore::FromHandle(hCertStore);
    store.SetCursorOp(previous != nullptr ? CertStore::CursorOp::Next : CertStore::CursorOp::First);
    CrlContext::Reference context;
    nal::RecordKey found;
    const int status = store.WalkUntil([&](const nal::RecordKey& key, asnt::View value) {
        if (!key.IsCrl()) return false;
        if (pIssuerContext != nullptr && key.identifier != CertContext::From(pIssuerContext)->Key()) return false;
        context = DecodeOrSkip(key, value);
        found = key;
        return context != nullptr;
    });
    if (status == nal::kTreeError) return RefuseNull(static_cast<DWORD>(errno));
    if (context == nullptr) return RefuseNull(NAL_STORE_E_NOT_FOUND);
    // Reading the properties moves the position to the last record: it goes back to the one found.
    context->BindTo(store);
    store.SeekTo(found);
    if (pdwFlags != nullptr) *pdwFlags = 0;
    SetLastError(0);
    return context.release();
}

BOOL CertAddEncodedCRLToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, const BYTE* pbCrlEncoded, DWORD cbCrlEncoded,
                              DWORD dwAddDisposition, PCCRL_CONTEXT* ppCrlContext) {
    if (hCertStore == nullptr || pbCrlEncoded == nullptr || cbCrlEncoded == 0) return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    CertStore& store = *CertStore::FromHandle(hCertStore);
    const asnt::View encoded(pbCrlEncoded, cbCrlEncoded);
    nal::CrlKey key;
    try {
        const CNAL_CRL_List crl = nal::DecodeCrl(encoded);
        const std::optional<IdentObj> issuerKeyID = nal::IssuerKeyIDOf(crl.m_info);
        if (!issuerKeyID) return FALSE;
        key = nal::ToCrlKey(*issuerKeyID, crl.m_info.GetSerial(),
                            {"issuerKeyID.cbData == CERTIDSIZE", "crlSerial.cbData == CRLSERSIZE"});
    } catch (const XTOOStatus&) {
        return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    }
    if (!nal::AddEncodedCrl(store, key, encoded, dwAddDisposition)) return FALSE;
    return Added(store, dwCertEncodingType, encoded, ppCrlContext);
}

BOOL CertAddCRLContextToStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pCrlContext, DWORD dwAddDisposition,
                              PCCRL_CONTEXT* ppStoreContext) {
    if (hCertStore == nullptr || pCrlContext == nullptr) return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    CertStore& store = *CertStore::FromHandle(hCertStore);
    CrlContext& context = *CrlContext::From(pCrlContext);
    if (!nal::AddCrlContext(store, context, dwAddDisposition)) return FALSE;
    return Added(store, context.dwCertEncodingType, context.Encoded(), ppStoreContext);
}

BOOL CertDeleteCRLFromStore(PCCRL_CONTEXT pCrlContext) {
    if (pCrlContext == nullptr) return FALSE;
    const CrlContext::Reference context(CrlContext::From(pCrlContext));
    if (context->Store() == nullptr) return FALSE;
    const nal::CrlKey& key = context->Key();
    if (context->Store()->deleteCrlCascade(key.issuerID, key.crlSerial) == nal::kTreeOk) return TRUE;
    return Refuse(static_cast<DWORD>(errno));
}

LONG CertVerifyCRLTimeValidity(const FILETIME* pTimeToVerify, PCRL_INFO pCrlInfo) {
    const std::uint64_t time = CTOOFileTime(*pTimeToVerify).GetTicks();
    if (time > CTOOFileTime(pCrlInfo->NextUpdate).GetTicks()) return 1;
    return time < CTOOFileTime(pCrlInfo->ThisUpdate).GetTicks() ? -1 : 0;
}

BOOL CertFindCertificateInCRL(PCCERT_CONTEXT pCert, PCCRL_CONTEXT pCrlContext, DWORD /*dwFlags*/, void* /*pvReserved*/,
                              PCRL_ENTRY* ppCrlEntry) {
    PCRL_ENTRY found = nullptr;
    if (pCert != nullptr && pCrlContext != nullptr) {
        const asnt::View serial = nal::ViewOf(pCert->pCertInfo->SerialNumber);
        const CRL_INFO& crl = *pCrlContext->pCrlInfo;
        for (DWORD i = 0; i < crl.cCRLEntry && found == nullptr; ++i) {
            if (nal::ViewOf(crl.rgCRLEntry[i].SerialNumber) == serial) found = &crl.rgCRLEntry[i];
        }
    }
    if (ppCrlEntry != nullptr) *ppCrlEntry = found;
    return found != nullptr ? TRUE : FALSE;
}
