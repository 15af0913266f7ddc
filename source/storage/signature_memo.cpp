#include "storage/signature_memo.h"

#include "model/certificate_fields.h"
#include "storage/cert_reader.h"

namespace nal {
namespace {

constexpr unsigned kMaxWrongGuesses = 2;

thread_local SignatureMemo* t_memo = nullptr;

// Empty for a certificate that does not decode; its checks fail, whatever they are filed under.
IdentObj KeyOf(const CNALCertContext& cert) {
    CertificateFields fields;
    if (!StepOverCertificate(EncodingOf(*cert.GetContext()), fields)) return {};
    return fields.tbs.publicKeyInfo.Copy();
}

}  // namespace

SignatureMemo::SignatureMemo() : m_outer(std::exchange(t_memo, this)) {}

SignatureMemo::~SignatureMemo() { t_memo = m_outer; }

bool SignatureMemo::Holds(const CNALCertContext& subject, const CNALCertContext& issuer) {
    return t_memo != nullptr ? t_memo->Ask(subject, issuer) : subject.IsValidSignature(issuer);
}

bool SignatureMemo::Ask(const CNALCertContext& subject, const CNALCertContext& issuer) {
    const auto [place, isNew] = m_answers.try_emplace(Pair(subject, KeyOf(issuer)));
    if (isNew) {
        if (m_wrongGuesses < kMaxWrongGuesses) {
            m_guessed.emplace_back(&*place, issuer);
        } else {
            Check(*place, issuer);
        }
    }
    return place->second.holds;
}

void SignatureMemo::Check(Answers::value_type& entry, const CNALCertContext& issuer) {
    ++m_checks;
    entry.second = {true, entry.first.first.IsValidSignature(issuer)};
}

bool SignatureMemo::Settle() {
    bool right = true;
    for (const auto& [entry, issuer] : m_guessed) {
        Check(*entry, issuer);
        right = right && entry->second.holds;
    }
    m_guessed.clear();
    m_wrongGuesses = right ? 0 : m_wrongGuesses + 1;
    return right;
}

}  // namespace nal
