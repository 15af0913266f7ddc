#include "win32/certsign/signer_chains.h"

#include <string_view>
#include <utility>

#include "frame/failure.h"
#include "model/certificate_fields.h"
#include "storage/cert_reader.h"

namespace nal {
namespace {

// Chains are short, and every issuer that a message offers may cost a signature check per signer.
constexpr std::size_t c_maxIssuers = 16;
constexpr std::size_t c_maxCrls = 16;
constexpr std::size_t c_maxLength = 16;

std::string_view TextOf(asnt::View bytes) { return {reinterpret_cast<const char*>(bytes.data), bytes.size}; }

}  // namespace

SignerChains::SignerChains(const CNALSignData& message, const CNALCertStorage* storage)
    : m_message(message), m_storage(storage != nullptr && storage->IsOpened() ? storage : nullptr) {}

void SignerChains::AddCert(const CNALCertContext& cert) {
    IdentObj encoded = EncodingOf(*cert.GetContext()).Copy();
    // One that no storage can keep helps nobody.
    if (m_added.count(encoded) == 0 && m_extra.AddEncodetCertificate(encoded, X509_ASN_ENCODING)) m_added.insert(std::move(encoded));
}

void SignerChains::AddCrl(const CNALCRLContext& crl) {
    IdentObj encoded = EncodingOf(*crl.GetContext()).Copy();
    if (m_added.count(encoded) == 0 && m_extra.AddEncodetCRL(encoded, X509_ASN_ENCODING)) m_added.insert(std::move(encoded));
}

// Those whose subject is an issuer's name in the message.
void SignerChains::AddIssuersOfMessage() {
    std::set<std::string_view> issuers;
    CertificateFields fields;
    for (const IdentObj& encoded : m_message.certificates) {
        if (StepOverCertificate(encoded, fields)) issuers.insert(TextOf(fields.tbs.issuer));
    }
    for (const IdentObj& encoded : m_message.certificates) {
        if (m_added.size() == c_maxIssuers) return;
        if (!StepOverCertificate(encoded, fields) || issuers.count(TextOf(fields.tbs.subject)) == 0) continue;
        try {
            AddCert(CNALCertContext(encoded));
        } catch (const XTOOStatus&) {
            // It does not decode.
        }
    }
}

// Only those that are not out of date: a signer may put in an old one on which he is not listed yet.
void SignerChains::AddCrlsOfMessage() {
    std::size_t count = 0;
    for (const IdentObj& encoded : m_message.crls) {
        if (++count > c_maxCrls) return;
        try {
            const CNALCRLContext crl(encoded);
            if (crl.GetCheckStatus() == TOO_OK) AddCrl(crl);
        } catch (const XTOOStatus&) {
            // It does not decode, or no storage can key it.
        }
    }
}

void SignerChains::OpenExtra() {
    CNALString noName;
    if (!m_extra.OpenStorage(noName, CERT_STORE_PROV_MEMORY, 0, 0, nullptr)) {
        throw XTOOStatus(LastErrorStatus(), "a storage in memory cannot be made");
    }
    m_extra.m_untrusted = 1;
    AddIssuersOfMessage();
    AddCrlsOfMessage();
}

// The engine takes one further storage, so the issuers in the caller's are put beside those of the message.
void SignerChains::AddIssuersFromStorage(CNALCertContext cert) {
    for (std::size_t length = 0; length < c_maxLength; ++length) {
        CNALCertContext issuer;
        CNALCRLContext crl;
        if (m_storage->FindIssuerCertificate(cert, issuer, nullptr, &crl)) {
            AddCert(issuer);
            if (crl.IsInitialized()) AddCrl(crl);
        } else if (!m_extra.FindIssuerCertificate(cert, issuer, nullptr, nullptr)) {
            return;
        }
        if (issuer == cert) return;
        cert = std::move(issuer);
    }
}

CERT_TRUST_STATUS SignerChains::StatusOf(const IdentObj& certificate) {
    constexpr CERT_TRUST_STATUS noChain{CERT_TRUST_IS_PARTIAL_CHAIN, 0};
    if (certificate.IsEmpty()) return noChain;
    const auto known = m_known.find(certificate);
    if (known != m_known.end()) return known->second;
    if (!m_extra.IsOpened()) OpenExtra();
    const CNALCertContext cert(certificate);
    if (m_storage != nullptr) AddIssuersFromStorage(cert);
    CNALCertificateChain chain;
    const CERT_TRUST_STATUS status = NALVerifyCertificate(cert, chain, nullptr, &m_extra) ? chain.m_trustStatus : noChain;
    m_known.emplace(certificate, status);
    return status;
}

}  // namespace nal
