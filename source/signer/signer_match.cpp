#include "signer/signer_match.h"

#include <algorithm>

#include "model/certificate_fields.h"
#include "model/name_key.h"
#include "nal/certificate.h"
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

IdentObj KeyIdOf(const CertificateFields& fields) {
    asnt::View keyId;
    if (FindSubjectKeyId(fields.tbs, keyId) && !keyId.empty()) return keyId.Copy();
    CNALCertPublicKeyInfo key;
    key.ReadData(fields.tbs.publicKeyInfo.data, static_cast<unsigned>(fields.tbs.publicKeyInfo.size));
    return key.GetKeyID();
}

std::vector<std::string> NamesOf(asnt::View certificate) {
    CertificateFields fields;
    if (!StepOverCertificate(certificate, fields)) return {};
    return Collected([&](std::vector<std::string>& names) {
        names.push_back(NamedBy(c_byIssuer, fields.tbs.serial, CNALX509Name(fields.tbs.issuer.Copy())));
        names.push_back(NamedBy(c_bySubject, fields.tbs.serial, CNALX509Name(fields.tbs.subject.Copy())));
        names.push_back(c_byKeyId + TextOf(KeyIdOf(fields)));
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
    if (!cert.IsInitialized()) return false;
    const std::vector<std::string> names = NamesOf(EncodingOf(*cert.GetContext()));
    const std::vector<std::string> wanted = NamesIn(signer);
    return std::find_first_of(names.begin(), names.end(), wanted.begin(), wanted.end()) != names.end();
}

void SignerCandidates::Add(const CNALCertContext& cert) {
    if (cert.IsInitialized()) AddEntry({EncodingOf(*cert.GetContext()), cert});
}

void SignerCandidates::AddAll(const std::list<IdentObj>& certificates) {
    for (const IdentObj& encoded : certificates) AddEntry({encoded, {}});
}

void SignerCandidates::AddEntry(Entry entry) {
    bool isNew = false;
    for (std::string& name : NamesOf(entry.encoded)) {
        std::vector<std::size_t>& same = m_byName[std::move(name)];
        const bool isKnown =
            std::any_of(same.begin(), same.end(), [&](std::size_t index) { return m_entries[index].encoded == entry.encoded; });
        if (isKnown || same.size() == c_maxOfOneName) continue;
        same.push_back(m_entries.size());
        isNew = true;
    }
    if (isNew) m_entries.push_back(std::move(entry));
}

std::vector<CNALCertContext> SignerCandidates::Find(const CNALMessageSignerInfo& signer) const {
    std::vector<std::size_t> found;
    for (const std::string& name : NamesIn(signer)) {
        const auto same = m_byName.find(name);
        if (same != m_byName.end()) found.insert(found.end(), same->second.begin(), same->second.end());
    }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    std::vector<CNALCertContext> certs;
    for (const std::size_t index : found) {
        const Entry& entry = m_entries[index];
        try {
            certs.push_back(entry.cert.IsInitialized() ? entry.cert : CNALCertContext(entry.encoded.Copy()));
        } catch (const XTOOStatus&) {
            // It has the fields that name it, and is no certificate all the same.
        }
    }
    return certs;
}

void SignerNames::Add(const CNALMessageSignerInfo& signer) {
    for (std::string& name : NamesIn(signer)) m_names.insert(std::move(name));
}

bool SignerNames::Include(asnt::View certificate) const {
    const std::vector<std::string> names = NamesOf(certificate);
    return std::any_of(names.begin(), names.end(), [this](const std::string& name) { return m_names.count(name) != 0; });
}

}  // namespace nal
