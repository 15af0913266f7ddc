#include "win32/certsign/signer_finder.h"

#include <algorithm>

#include "asnt/writer.h"
#include "frame/failure.h"
#include "model/integer_order.h"
#include "model/name_key.h"

namespace nal {
namespace {

CRYPTOAPI_BLOB BlobOf(IdentObj& bytes) { return {bytes.GetSize(), bytes.GetData()}; }

/// The name that stands for a key identifier where an issuer is sought.
IdentObj NameOfKeyId(const IdentObj& keyId) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Set([&] {
            writer.Sequence([&] {
                writer.Oid("1.3.6.1.4.1.311.10.7.1");
                writer.OctetString(keyId);
            });
        });
    });
    return writer.Finish();
}

bool Decodes(const CNALX509Name& name) {
    try {
        NameKey(name);
        return true;
    } catch (const XTOOStatus&) {
        return false;
    }
}

void FindCerts(const CNALCertStorage& storage, DWORD findType, const void* what, std::list<CNALCertContext>& found) {
    if (!storage.FindCertList(found, findType, what) && GetLastError() != NAL_STORE_E_NOT_FOUND) {
        throw XTOOStatus(LastErrorStatus(), "the storage cannot be searched");
    }
}

}  // namespace

SignerFinder::SignerFinder(const std::list<IdentObj>& certificates, const CNALCertStorage* storage)
    : m_storage(storage != nullptr && storage->IsOpened() ? storage : nullptr) {
    m_ofMessage.AddAll(certificates);
}

void SignerFinder::FindInStorage(const CNALMessageSignerInfo& signer, std::vector<CNALCertContext>& found) const {
    const bool byKeyId = !signer.subjectKeyIdentifier.IsEmpty();
    if (!byKeyId && !Decodes(signer.issuer)) return;
    IdentObj name = byKeyId ? NameOfKeyId(signer.subjectKeyIdentifier) : static_cast<const IdentObj&>(signer.issuer);
    IdentObj serial = Reversed(signer.serialNumber);
    CERT_INFO wanted{};
    wanted.Issuer = BlobOf(name);
    wanted.SerialNumber = BlobOf(serial);
    std::list<CNALCertContext> certs;
    FindCerts(*m_storage, CERT_FIND_SUBJECT_CERT, &wanted, certs);
    // Signers with this hash write the subject's name in the place of the issuer's.
    if (!byKeyId && signer.digestAlgorithm.Is(c_NAL_OID_HASH_PRIVATE)) {
        FindCerts(*m_storage, CERT_FIND_SUBJECT_NAME, &wanted.Issuer, certs);
    }
    for (CNALCertContext& cert : certs) {
        if (found.size() == SignerCandidates::c_maxOfOneName) return;
        if (IsSignerOf(cert, signer)) found.push_back(std::move(cert));
    }
}

std::vector<CNALCertContext> SignerFinder::Find(const CNALMessageSignerInfo& signer) const {
    std::vector<CNALCertContext> found;
    if (m_storage != nullptr) FindInStorage(signer, found);
    for (CNALCertContext& cert : m_ofMessage.Find(signer)) {
        if (std::find(found.begin(), found.end(), cert) == found.end()) found.push_back(std::move(cert));
    }
    return found;
}

}  // namespace nal
