// Which certificate a recipient of a message is.
#include "encryption/recipient_identity.h"

#include "model/encoding.h"
#include "model/integer_order.h"
#include "nal/enveloped_data.h"
#include "storage/cert_reader.h"
#include "too/status.h"

namespace nal {

CertIdentity::CertIdentity(const CNALCertContext& cert)
    : issuer(IssuerNameOf(*cert.GetContext()).Copy()),
      serialNumber(Reversed(SerialOf(*cert.GetContext()))),
      keyIdentifier(cert.GetSubjectKeyId()) {}

bool CertIdentity::Is(const IdentObj& otherIssuer, const IdentObj& otherSerial, const IdentObj& otherKeyIdentifier) const {
    if (!otherKeyIdentifier.IsEmpty()) return keyIdentifier == otherKeyIdentifier;
    if (serialNumber != otherSerial) return false;
    // The same name may be encoded in another way.
    return issuer == otherIssuer || CNALX509Name(issuer) == CNALX509Name(otherIssuer);
}

}  // namespace nal

CNALTransRecipientInfo::CNALTransRecipientInfo(const CNALCertContext& cert) {
    if (!cert.IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALTransRecipientInfo");
    nal::CertIdentity identity(cert);
    issuer = std::move(identity.issuer);
    serialNumber = std::move(identity.serialNumber);
    const CNALCertPublicKeyInfo key = nal::PublicKeyOf(*cert.GetContext());
    keyEncryptionAlgorithm = nal::Encoded([&](asnt::Writer& writer) { key.m_algorithm.WriteData(writer); });
}

bool CNALTransRecipientInfo::IsFor(const CNALCertContext& cert) const {
    return nal::IsIdentityOf(cert, issuer, serialNumber, subjectKeyIdentifier);
}

bool CNALAgreeRecipientInfo::Recipient::IsFor(const CNALCertContext& cert) const {
    return nal::IsIdentityOf(cert, issuer, serialNumber, subjectKeyIdentifier);
}
