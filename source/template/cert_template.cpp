// Templates from the key centre: certificates verified against the issuers that the host already trusts.
#include <iterator>

#include "frame/failure.h"
#include "nal/cert_template.h"
#include "nal/errors.h"
#include "nal/settings.h"
#include "nal/signature_check.h"
#include "nal/trust_storages.h"
#include "nal/verify.h"

namespace {

constexpr unsigned c_listsOfAllNetworks = NAL_STORAGE_ALL_NETWORKS | NAL_STORAGE_UNSIGNED_LIST | NAL_STORAGE_USERS;
constexpr unsigned c_listsOfChainAlone = NAL_STORAGE_ALL_NETWORKS | NAL_STORAGE_UNSIGNED_LIST;

/// The first storage with an issuer for a certificate that is within its validity; a closed one when there is none.
CNALCertStorage FindStorageWithIssuer(const CNALCertContext& cert, unsigned kinds) {
    for (const CNALCertStorage& storage : m_VPN_TrustStorages.GetStorages(kinds)) {
        CNALCertContext issuer;
        unsigned flags = CERT_STORE_SIGNATURE_FLAG | CERT_STORE_TIME_VALIDITY_FLAG | CERT_STORE_REVOCATION_FLAG;
        if (storage.FindIssuerCertificate(cert, issuer, &flags, nullptr) && (flags & CERT_STORE_TIME_VALIDITY_FLAG) == 0) return storage;
    }
    return {};
}

CNALCertStorage CandidateIssuers(const CNALCertContext& cert, unsigned kinds) {
    if ((gApplicationFlag & NAL_APP_EXTENDED_STORAGES) != 0) return FindStorageWithIssuer(cert, kinds);
    return m_VPN_TrustStorages.GetList(NALGetUsersListName(cert));
}

void ForgiveBasicConstraints(CNALCertificateChain& chain) {
    if ((chain.GetErrors() & CERT_TRUST_INVALID_BASIC_CONSTRAINTS) == 0) return;
    chain.m_trustStatus.dwErrorStatus &= ~CERT_TRUST_INVALID_BASIC_CONSTRAINTS;
    std::next(chain.m_elements.begin())->m_trustErrors &= ~CERT_TRUST_INVALID_BASIC_CONSTRAINTS;
}

BOOL BuildTemplateChain(const CNALCertContext& cert, CNALCertificateChain& chain, unsigned kinds) {
    CNALCertStorage issuers;
    if (cert.IsInitialized()) issuers = CandidateIssuers(cert, kinds);
    if (!NALVerifyCertificate(cert, chain, nullptr, &issuers)) return FALSE;
    ForgiveBasicConstraints(chain);
    return TRUE;
}

void SetStatus(CNALWholeSignatureCheck& check, DWORD status) {
    check.status = status;
    check.statusText = NALGetWinErrorExplaination(status);
}

IdentObj EncodingOf(const CNALCertContext& cert) {
    return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded};
}

/// The issuer of a chain's first certificate; empty when none was found.
IdentObj IssuerIn(const CNALCertificateChain& chain) {
    if (chain.GetCount() > 1) return EncodingOf(std::next(chain.m_elements.begin())->m_cert);
    const bool isRoot = (chain.GetErrors() & CERT_TRUST_IS_PARTIAL_CHAIN) == 0;
    return isRoot ? EncodingOf(chain.m_elements.front().m_cert) : IdentObj();
}

/// What is to be said of the signer; 0 when nothing is.
DWORD FaultOfSigner(const CNALCertContext& signer, const CNALWholeSignatureCheck& check) {
    if (!signer.IsInitialized() || (!check.signerCertificate.IsEmpty() && check.signerCertificate != EncodingOf(signer))) {
        return c_NAL_SIGNER_NOT_FOUND;
    }
    int status = TOO_OK;
    CTOOFileTime time = check.signerInfo.GetSigningDate(&status);
    if (status != TOO_OK && status != TOO_E_NOT_FOUND) return c_NAL_SIGNATURE_INVALID;
    if (status == TOO_E_NOT_FOUND) time = CTOOFileTime::Now();
    if (!signer.IsValidTime(&time)) return c_NAL_SIGNING_TIME_INVALID;
    return NALCanSignByCert(signer, true, time) ? 0 : c_NAL_SIGNER_NOT_ALLOWED;
}

}  // namespace

BOOL NALVerifyCertTemplate(const CNALCertContext& cert, CNALCertificateChain& chain) {
    return BuildTemplateChain(cert, chain, c_listsOfChainAlone);
}

BOOL NALVerifyCertTemplate(const CNALCertContext& cert, CNALWholeSignatureCheck& check, CNALCertificateChain* chain) {
    CNALCertificateChain own;
    CNALCertificateChain& built = chain != nullptr ? *chain : own;
    if (!BuildTemplateChain(cert, built, c_listsOfAllNetworks)) return FALSE;
    check.signerCertificate = IssuerIn(built);
    SetStatus(check, NALCertFlags2WinErr(built.GetErrors()));
    return TRUE;
}

BOOL NALVerifyCertTemplate(const CNALCertContext& cert, const CNALCertContext& signer, CNALWholeSignatureCheck& check,
                           unsigned& status) {
    CNALCertificateChain chain;
    if (!BuildTemplateChain(cert, chain, c_listsOfAllNetworks)) return FALSE;
    status = chain.GetErrors();
    DWORD fault = check.status;
    if (fault == 0) fault = FaultOfSigner(signer, check);
    if (fault == 0) fault = NALCertFlags2WinErr(status);
    SetStatus(check, fault);
    return TRUE;
}
