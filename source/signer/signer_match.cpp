#include "signer/signer_match.h"

#include <algorithm>

#include "model/integer_order.h"
#include "model/name_key.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace nal {
namespace {

// What a signer may be called by, as texts that are equal exactly when the names are.
constexpr char c_byKeyId = 'k';
constexpr char c_byIssuer = 'i';
constexpr char c_bySubject = 's';

std::string TextOf(asnt::View bytes) {
    return {reinterpret_cast<const char*>(bytes.data), bytes.size};
}

std::string NamedBy(char kind, asnt::View serial, const CNALX509Name& name) {
    return kind + std::to_string(serial.size) + ':' + TextOf(serial) + NameKey(name);
}

// A message may hold what is no certificate or name, and what it says of them is then nothing.
template <class Collect>
std::vector<std::string> Collected(Collect&& collect) {
    std::vector<std::string> names;
    try {
        collect(names);
    } catch (const XTOOStatus&) {
        names.clear();
    }
    return names;
}

std::vector<std::string> NamesOf(const CNALCertContext& cert) {
    if (!cert.IsInitialized()) return {};
    return Collected([&](std::vector<std::string>& names) {
        const CERT_CONTEXT& context = *cert.GetContext();
        const IdentObj serial = Reversed(SerialOf(context));
        names.push_back(NamedBy(c_byIssuer, serial, CNALX509Name(IssuerNameOf(context).Copy())));
        names.push_back(NamedBy(c_bySubject, serial, CNALX509Name(SubjectNameOf(context).Copy())));
        const IdentObj keyId = cert.GetSubjectKeyId();
        if (!keyId.IsEmpty()) names.push_back(c_byKeyId + TextOf(keyId));
    });
}

std::vector<std::string> NamesIn(const CNALMessageSignerInfo& signer) {
    return Collected([&](std::vector<std::string>& names) {
        if (!signer.subjectKeyIdentifier.IsEmpty()) {
            names.push_back(c_byKeyId + TextOf(signer.subjectKeyIdentifier));
            return;
        }
        names.push_back(NamedBy(c_byIssuer, signer.serialNumber, signer.issuer));
        // Signers with this hash write the subject's name in the place of the issuer's.
        if (signer.digestAlgorithm.Is(c_NAL_OID_HASH_PRIVATE)) {
            names.push_back(NamedBy(c_bySubject, signer.serialNumber, signer.issuer));
        }
    });
}

}  // namespace

bool IsSignerOf(const CNALCertContext& cert, const CNALMessageSignerInfo& signer) {
    const std::vector<std::string> names = NamesOf(cert);
    const std::vector<std::string> wanted = NamesIn(signer);
    return std::find_first_of(names.begin(), names.end(), wanted.begin(), wanted.end()) != names.end();
}

void SignerCandidates::Add(const CNALCertContext& cert) {
    const std::vector<std::string> names = NamesOf(cert);
    if (names.empty()) return;
    const auto same = m_byName.equal_range(names.front());
    if (std::any_of(same.first, same.second, [&](const auto& entry) { return m_certs[entry.second] == cert; })) return;
    for (const std::string& name : names) m_byName.emplace(name, m_certs.size());
    m_certs.push_back(cert);
}

void SignerCandidates::AddAll(const std::list<IdentObj>& certificates) {
    for (const IdentObj& encoded : certificates) {
        try {
            Add(CNALCertContext(encoded));
        } catch (const XTOOStatus&) {
            // Other forms of certificates, and what is none, sign nothing here.
        }
    }
}

std::vector<CNALCertContext> SignerCandidates::Find(const CNALMessageSignerInfo& signer) const {
    std::vector<std::size_t> found;
    for (const std::string& name : NamesIn(signer)) {
        const auto range = m_byName.equal_range(name);
        for (auto entry = range.first; entry != range.second; ++entry) found.push_back(entry->second);
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    std::vector<CNALCertContext> certs;
    for (const std::size_t index : found) certs.push_back(m_certs[index]);
    return certs;
}

}  // namespace nal
