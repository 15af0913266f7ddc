// The functions on certificate contexts.
#include <cerrno>
#include <cstring>

#include "certstorage/cert_add.h"
#include "certstorage/cert_context.h"
#include "certstorage/cert_find.h"
#include "certstorage/cert_store.h"
#include "frame/failure.h"
#include "too/time.h"

using nal::CertContext;
using nal::CertStore;
using nal::Refuse;
using nal::RefuseNull;

namespace {

std::uint64_t Ticks(const FILETIME& time) { return CTOOFileTime(time).GetTicks(); }

// Every walk consumes its previous context, whatever comes of it, and starts where the store's position is; without one it
// starts at the first record. False, with the last error set, when the context is not of this store.
bool BeginWalk(HCERTSTORE hCertStore, PCCERT_CONTEXT pPrevCertContext) {
    const CertContext::Reference previous(CertContext::From(pPrevCertContext));
    if (hCertStore == nullptr || (previous != nullptr && previous->hCertStore != hCertStore)) {
        return Refuse(NAL_STORE_E_INVALID_ARGUMENT) != FALSE;
    }
    CertStore::FromHandle(hCertStore)->SetCursorOp(previous != nullptr ? CertStore::CursorOp::Next : CertStore::CursorOp::First);
    return true;
}

}  // namespace

PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType, const BYTE* pbCertEncoded, DWORD cbCertEncoded) {
    return CertContext::Create(dwCertEncodingType, {pbCertEncoded, cbCertEncoded}, nullptr).release();
}

PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext) {
    if (pCertContext != nullptr) CertContext::From(pCertContext)->AddReference();
    return pCertContext;
}

BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    if (pCertContext == nullptr) return FALSE;
    CertContext::From(pCertContext)->DropReference();
    return TRUE;
}

BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, void* pvData, DWORD* pcbData) {
    return pCertContext != nullptr ? CertContext::From(pCertContext)->getProperty(dwPropId, pvData, pcbData) : FALSE;
}

BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, DWORD /*dwFlags*/, const void* pvData) {
    return pCertContext != nullptr ? CertContext::From(pCertContext)->setProperty(dwPropId, pvData) : FALSE;
}

PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pPrevCertContext) {
    return CertFindCertificateInStore(hCertStore, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, 0, CERT_FIND_ANY, nullptr,
                                      pPrevCertContext);
}

PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD /*dwCertEncodingType*/, DWORD /*dwFindFlags*/,
                                          DWORD dwFindType, const void* pvFindPara, PCCERT_CONTEXT pPrevCertContext) {
    if (!BeginWalk(hCertStore, pPrevCertContext)) return nullptr;
    return nal::FindCert(*CertStore::FromHandle(hCertStore), dwFindType, pvFindPara).release();
}

BOOL CertAddEncodedCertificateToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, const BYTE* pbCertEncoded,
                                      DWORD cbCertEncoded, DWORD dwAddDisposition, PCCERT_CONTEXT* ppCertContext) {
    if (hCertStore == nullptr || pbCertEncoded == nullptr || cbCertEncoded == 0) return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    const asnt::View encoded(pbCertEncoded, cbCertEncoded);
    nal::KeyIdentifier key;
    try {
        const nal::CertFields fields = nal::ReadCertFields(encoded);
        if (!fields.hasSubjectKeyId) return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
        key = nal::ToKeyIdentifier(fields.subjectKeyId);
    } catch (const XTOOStatus&) {
        return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    }
    CertStore& store = *CertStore::FromHandle(hCertStore);
    if (nal::AddEncodedCert(store, key, encoded, dwAddDisposition) != nal::AddResult::Stored) return FALSE;
    if (ppCertContext != nullptr) *ppCertContext = CertContext::Create(dwCertEncodingType, encoded, &store).release();
    return TRUE;
}

BOOL CertAddCertificateContextToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext, DWORD dwAddDisposition,
                                      PCCERT_CONTEXT* ppStoreContext) {
    if (pCertContext == nullptr) return FALSE;
    if (hCertStore == nullptr) return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    const nal::AddResult result =
        nal::AddCertContext(*CertStore::FromHandle(hCertStore), *CertContext::From(pCertContext), dwAddDisposition);
    if (result == nal::AddResult::Present) return FALSE;
    // The caller's own context, also after a failure: kept so.
    if (ppStoreContext != nullptr) *ppStoreContext = CertDuplicateCertificateContext(pCertContext);
    return result == nal::AddResult::Stored ? TRUE : FALSE;
}

BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext) {
    if (pCertContext == nullptr) return FALSE;
    const CertContext::Reference context(CertContext::From(pCertContext));
    if (context->Store().deleteCertCascade(context->Key()) == nal::kTreeOk) return TRUE;
    return Refuse(static_cast<DWORD>(errno));
}

PCCERT_CONTEXT CertGetIssuerCertificateFromStore(HCERTSTORE /*hCertStore*/, PCCERT_CONTEXT /*pSubjectContext*/,
                                                 PCCERT_CONTEXT /*pPrevIssuerContext*/, DWORD* /*pdwFlags*/) {
    return RefuseNull(TOO_E_UNSUPPORTED);
}

BOOL CertVerifySubjectCertificateContext(PCCERT_CONTEXT /*pSubject*/, PCCERT_CONTEXT /*pIssuer*/, DWORD* /*pdwFlags*/) {
    return Refuse(TOO_E_UNSUPPORTED);
}

PCERT_EXTENSION CertFindExtension(LPCSTR pszObjId, DWORD cExtensions, CERT_EXTENSION rgExtensions[]) {
    if (pszObjId == nullptr || rgExtensions == nullptr) return nullptr;
    for (DWORD i = 0; i < cExtensions; ++i) {
        // A prefix is a match, kept deliberately: "2.5.29.14" also finds an entry "2.5.29.1".
        const char* entry = rgExtensions[i].pszObjId;
        if (entry != nullptr && std::strncmp(pszObjId, entry, std::strlen(entry)) == 0) return &rgExtensions[i];
    }
    return nullptr;
}

BOOL CertVerifyValidityNesting(PCERT_INFO pSubjectInfo, PCERT_INFO pIssuerInfo) {
    return Ticks(pSubjectInfo->NotBefore) > Ticks(pIssuerInfo->NotBefore) &&
                   Ticks(pIssuerInfo->NotAfter) > Ticks(pSubjectInfo->NotAfter)
               ? TRUE
               : FALSE;
}
