#include "win32/certsign/signer_chains.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "frame/failure.h"
#include "model/certificate_fields.h"
#include "storage/cert_reader.h"

namespace nal {
namespace {

// Chains are short, and every issuer that a message offers may cost a signature check per signer.
constexpr std::size_t c_maxIssuers = 16;
constexpr unsigned c_maxOnChains = 32;  // of those that signed what they are to sign, for all signers together
constexpr std::size_t c_maxCrls = 16;
constexpr std::size_t c_maxLength = 16;
// Certificates of a message that are held against one of its signers' before the rest of what it offers is taken as it comes.
constexpr unsigned c_maxIssuerChecks = 64;

std::string_view TextOf(asnt::View bytes) { return {reinterpret_cast<const char*>(bytes.data), bytes.size}; }

}  // namespace

SignerChains::SignerChains(const CNALSignData& message, const CNALCertStorage* storage)
    : m_message(message), m_storage(storage != nullptr && storage->IsOpened() ? storage : nullptr) {}

// A storage has room for one certificate per key identifier: the one on the chain that is judged now.
void SignerChains::AddCert(const CNALCertContext& cert) {
    IdentObj encoded = EncodingOf(*cert.GetContext()).Copy();
    IdentObj& present = m_present[cert.GetSubjectKeyId()];
    if (present == encoded) return;
    // One that no storage can keep helps nobody.
    if (!m_extra.AddEncodetCertificate(encoded, X509_ASN_ENCODING)) return;
    m_added.insert(encoded);
    present = std::move(encoded);
}

void SignerChains::AddCrl(const CNALCRLContext& crl) {
    IdentObj encoded = EncodingOf(*crl.GetContext()).Copy();
    if (m_added.count(encoded) == 0 && m_extra.AddEncodetCRL(encoded, X509_ASN_ENCODING)) m_added.insert(std::move(encoded));
}

void SignerChains::ReadIssuersOfMessage() {
    std::set<std::string_view> issuers;
    CertificateFields fields;
    for (const IdentObj& encoded : m_message.certificates) {
        if (StepOverCertificate(encoded, fields)) issuers.insert(TextOf(fields.tbs.issuer));
    }
    for (const IdentObj& encoded : m_message.certificates) {
        if (!StepOverCertificate(encoded, fields)) continue;
        const std::string_view subject = TextOf(fields.tbs.subject);
        if (issuers.count(subject) != 0) m_offered.push_back({subject, &encoded});
    }
    std::stable_sort(m_offered.begin(), m_offered.end(), Offered::IsBefore);
}

// Who signed the certificate, who signed that one, and so on: the room is theirs before a message can fill it with others.
void SignerChains::AddIssuersOf(CNALCertContext cert) {
    unsigned checks = 0;
    const auto issuerOf = [&](const CNALCertContext& subject) -> CNALCertContext {
        const Offered wanted{TextOf(IssuerNameOf(*subject.GetContext())), nullptr};
        const auto [first, last] = std::equal_range(m_offered.begin(), m_offered.end(), wanted, Offered::IsBefore);
        for (auto offered = first; offered != last && checks < c_maxIssuerChecks; ++offered, ++checks) {
            try {
                CNALCertContext candidate(*offered->encoded);
                if (subject.IsValidSignature(candidate)) return candidate;
            } catch (const XTOOStatus&) {
                // It does not decode.
            }
        }
        return {};
    };
    for (std::size_t length = 0; length < c_maxLength; ++length) {
        CNALCertContext issuer = issuerOf(cert);
        if (!issuer.IsInitialized()) return;
        if (m_onChains == c_maxOnChains && m_added.count(EncodingOf(*issuer.GetContext()).Copy()) == 0) return;
        const std::size_t before = m_added.size();
        AddCert(issuer);
        m_onChains += static_cast<unsigned>(m_added.size() - before);
        if (issuer == cert) return;
        cert = std::move(issuer);
    }
}

// What stands between them may be in another storage, so the rest may be of use too.
void SignerChains::AddOtherIssuers() {
    for (const Offered& offered : m_offered) {
        if (m_added.size() >= c_maxIssuers) return;
        const IdentObj& encoded = *offered.encoded;
        // Not in the place of another with its key identifier.
        const bool isAdded = CertAddEncodedCertificateToStore(m_extra.GetStore(), X509_ASN_ENCODING, encoded.GetData(), encoded.GetSize(),
                                                              CERT_STORE_ADD_NEW, nullptr) != FALSE;
        if (isAdded) m_added.insert(encoded);
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
    ReadIssuersOfMessage();
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
    const CNALCertContext cert(certificate);
    const bool isFirst = !m_extra.IsOpened();
    if (isFirst) OpenExtra();
    AddIssuersOf(cert);
    if (isFirst) {
        AddOtherIssuers();
        AddCrlsOfMessage();
    }
    if (m_storage != nullptr) AddIssuersFromStorage(cert);
    CNALCertificateChain chain;
    const CERT_TRUST_STATUS status = NALVerifyCertificate(cert, chain, nullptr, &m_extra) ? chain.m_trustStatus : noChain;
    m_known.emplace(certificate, status);
    return status;
}

}  // namespace nal
