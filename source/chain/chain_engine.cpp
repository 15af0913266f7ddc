#include <set>
#include <utility>

#include "chain/trust_bits.h"
#include "frame/failure.h"
#include "nal/chain.h"
#include "nal/settings.h"
#include "nal/trust_storages.h"
#include "storage/issuer_search.h"
#include "storage/signature_memo.h"
#include "storage/store_change.h"
#include "too/time.h"

CNALCertificateChain::CNALCertificateChain() = default;
CNALCertificateChain::CNALCertificateChain(const CNALCertificateChain&) = default;
CNALCertificateChain::CNALCertificateChain(CNALCertificateChain&&) noexcept = default;
CNALCertificateChain& CNALCertificateChain::operator=(const CNALCertificateChain&) = default;
CNALCertificateChain& CNALCertificateChain::operator=(CNALCertificateChain&&) noexcept = default;
CNALCertificateChain::~CNALCertificateChain() = default;

void CNALCertificateChain::Clear() {
    m_elements.clear();
    m_trustStatus = {0, 0};
    m_time = {0, 0};
}

CNALChainEngine::CNALChainEngine() = default;
CNALChainEngine::~CNALChainEngine() = default;

namespace {

/// What was found above one certificate.
struct Link {
    CNALCertContext issuer;  // empty when there is none
    CNALCRLContext crl;
    unsigned failed = 0;  // checks, as a search leaves them
    bool isRoot = false;  // the certificate is its own issuer
};

/// The search of one certificate's issuer: the trust storages first, then the further one.
Link FindLink(const CNALChainEngine& engine, const CNALCertContext& cert, unsigned checks, CNALCertStorage* extra) {
    Link link;
    link.failed = checks;
    if (engine.FindIssuerCertAndCrlInMainStore(cert, link.issuer, link.crl, link.isRoot, link.failed)) return link;
    if (extra != nullptr && extra->IsOpened()) {
        link.failed = checks;
        if (engine.FindIssuerCertAndCrlInAdditionalStore(*extra, cert, link.issuer, link.crl, link.isRoot, link.failed)) return link;
    }
    link.failed = checks;  // without an issuer every check that was asked for failed
    return link;
}

/// The same with the signatures checked outside the lock of the searches.
Link FindSettledLink(const CNALChainEngine& engine, nal::SignatureMemo& memo, const CNALCertContext& cert, unsigned checks,
                     CNALCertStorage* extra) {
    for (;;) {
        Link link = FindLink(engine, cert, checks, extra);
        if (memo.Settle()) return link;
    }
}

// What both searches make of their storage's answer.
bool TakeIssuer(BOOL found, const CNALCertContext& cert, const CNALCertContext& issuer, bool& isRoot, unsigned& flags) {
    if (!found || (flags & CERT_STORE_NO_ISSUER_FLAG) != 0) return false;
    if (issuer == cert) {
        flags &= ~CERT_STORE_NO_CRL_FLAG;
        isRoot = true;
    }
    return true;
}

}  // namespace

BOOL CNALChainEngine::GetCertificateChain(const CNALCertContext& cert, CNALCertificateChain& chain, unsigned* flags,
                                          CNALCertStorage* extra) {
    chain.Clear();
    if (!cert.IsInitialized()) return nal::Refuse(nal::kInvalidParameter);

    const unsigned checks = flags != nullptr ? *flags : nal::kAllChecks;
    DWORD& errors = chain.m_trustStatus.dwErrorStatus;
    nal::SignatureMemo memo;
    std::set<CNALCertContext> seen;
    CNALCertContext current = cert;
    bool stop = false;
    while (!stop) {
        Link link = FindSettledLink(*this, memo, current, checks, extra);
        stop = link.isRoot;
        const DWORD bits = nal::TrustBitsOf(link.failed, gApplicationFlag);
        if (!seen.insert(current).second) {
            errors |= CERT_TRUST_IS_CYCLIC;
            stop = true;
        }
        errors |= bits;
        chain.m_elements.push_back({std::move(current), bits, std::move(link.crl)});
        if (!stop && !link.issuer.IsInitialized()) {
            errors |= CERT_TRUST_IS_PARTIAL_CHAIN;
            stop = true;
        }
        current = std::move(link.issuer);
    }
    if (errors == 0 && !CheckBasicConstraints(chain)) errors |= CERT_TRUST_INVALID_BASIC_CONSTRAINTS;
    chain.m_time = CTOOFileTime::Now();
    return TRUE;
}

bool CNALChainEngine::FindIssuerCertAndCrlInMainStore(const CNALCertContext& cert, CNALCertContext& issuer, CNALCRLContext& crl,
                                                      bool& isRoot, unsigned& flags) const {
    const BOOL found = m_VPN_TrustStorages.FindIssuerCertificate(cert, issuer, &flags, &crl);
    return TakeIssuer(found, cert, issuer, isRoot, flags);
}

bool CNALChainEngine::FindIssuerCertAndCrlInAdditionalStore(CNALCertStorage& storage, const CNALCertContext& cert,
                                                            CNALCertContext& issuer, CNALCRLContext& crl, bool& isRoot,
                                                            unsigned& flags) const {
    const BOOL found = storage.FindIssuerCertificate(cert, issuer, &flags, &crl);
    return TakeIssuer(found, cert, issuer, isRoot, flags);
}

bool CNALChainEngine::OpenMSStorages() {
    constexpr unsigned currentUser = 0x10000;
    constexpr unsigned existingReadOnly = 0xC000;
    constexpr unsigned untrustedMark = 32;
    const struct {
        CNALCertStorage& storage;
        const char* name;
        unsigned kind;
    } stores[] = {{m_root, "Root", NAL_STORAGE_SYSTEM_ROOT}, {m_ca, "CA", NAL_STORAGE_SYSTEM_CA}};
    bool opened = true;
    for (const auto& store : stores) {
        CNALString name(store.name);
        if (!store.storage.OpenStorage(name, CERT_STORE_PROV_SYSTEM_A, currentUser | existingReadOnly, store.kind, nullptr)) {
            opened = false;
            continue;
        }
        store.storage.m_untrusted = (gApplicationFlag & NAL_APP_UNTRUSTED_SYSTEM_STORES) != 0 ? untrustedMark : 0;
    }
    m_storesOpened = opened;
    return opened;
}

BOOL NALVerifyCertificate(const CNALCertContext& cert, CNALCertificateChain& chain, unsigned* flags, CNALCertStorage* extra) {
    CNALChainEngine engine;
    return engine.GetCertificateChain(cert, chain, flags, extra);
}

BOOL NALVerifyCertificate(const CNALCertContext& cert, CERT_TRUST_STATUS& status) {
    CNALCertificateChain chain;
    if (!NALVerifyCertificate(cert, chain)) return FALSE;
    status = chain.m_trustStatus;
    return TRUE;
}
