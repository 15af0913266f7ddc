// The walk through the CryptoAPI's system stores.
#include <iterator>
#include <memory>

#include "frame/failure.h"
#include "nal/chain.h"

namespace {

constexpr DWORD c_encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
constexpr DWORD c_currentUser = 0x10000;
constexpr DWORD c_checks = CERT_STORE_SIGNATURE_FLAG | CERT_STORE_TIME_VALIDITY_FLAG;
constexpr DWORD c_selfSigned = 0x80092007;
constexpr DWORD c_noIssuer = 0x800B0107;

struct CodeOfFlag {
    DWORD flag;
    DWORD code;
};

// The later one wins.
constexpr CodeOfFlag c_codes[] = {
    {CERT_STORE_NO_ISSUER_FLAG, c_noIssuer},
    {CERT_STORE_SIGNATURE_FLAG, 0x80090006},
    {CERT_STORE_REVOCATION_FLAG, 0x80092010},
    {CERT_STORE_TIME_VALIDITY_FLAG, 0x800B0101},
};

struct StoreCloser {
    void operator()(void* store) const { CertCloseStore(store, 0); }
};
using Store = std::unique_ptr<void, StoreCloser>;

Store OpenSystem(const char* name) { return Store(CertOpenSystemStore(0, name)); }

Store OpenByProvider(const wchar_t* name) {
    return Store(CertOpenStore(CERT_STORE_PROV_SYSTEM_A, c_encoding, 0, c_currentUser, name));
}

}  // namespace

CNALCertChain::CNALCertChain() = default;
CNALCertChain::~CNALCertChain() = default;

void CNALCertChain::LoadVerifyChain(const CERT_CONTEXT* cert, std::list<CNALX509CheckSignResult>& out) {
    out.clear();
    m_complete = false;
    m_current = cert;
    if (!m_current.IsInitialized()) return;

    const Store stores[] = {OpenSystem("Root"), OpenByProvider(L"Root"), OpenSystem("CA"), OpenByProvider(L"CA"),
                            OpenByProvider(L"MY")};
    while (!m_complete) {
        CNALX509CheckSignResult link;
        bool found = false;
        for (auto store = std::begin(stores); store != std::end(stores) && !found && !m_complete; ++store) {
            link = CNALX509CheckSignResult();
            found = FindNextInStore(store->get(), link) == TOO_OK;
        }
        if (found) {
            out.push_back(std::move(link));
        } else if (!m_complete) {
            // Another round would ask the same stores for the same issuer.
            out.emplace_back(CNALCertInfo(*m_current.GetContext()), c_noIssuer);
            break;
        }
    }
}

int CNALCertChain::FindNextInStore(HCERTSTORE store, CNALX509CheckSignResult& result) {
    if (!m_current.IsInitialized()) return WinErr2ToolsErr(0);

    SetLastError(0);
    DWORD flags = c_checks;
    PCCERT_CONTEXT issuer = nullptr;
    while ((issuer = CertGetIssuerCertificateFromStore(store, m_current.GetContext(), issuer, &flags)) != nullptr && flags != 0) {
        flags = c_checks;
    }
    const DWORD lastError = GetLastError();
    if (issuer != nullptr) {
        m_current = CNALCertContext::Adopt(issuer);
        result = CNALX509CheckSignResult(CNALCertInfo(*issuer));
        return TOO_OK;
    }
    for (const CodeOfFlag& code : c_codes) {
        if ((flags & code.flag) != 0) result.m_result = code.code;
    }
    if (lastError == c_selfSigned) m_complete = true;
    return WinErr2ToolsErr(lastError != 0 ? lastError : result.m_result);
}
