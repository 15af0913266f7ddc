#include "keycentre/issuer.h"

#include <string>
#include <utility>

#include "asnt/writer.h"
#include "keycentre/issuing/extensions.h"
#include "keycentre/issuing/times.h"
#include "nal/crl.h"
#include "nal/name_codec.h"
#include "nal/wide_string.h"
#include "too/status.h"

namespace keycentre {
namespace {

constexpr unsigned kNumberSize = 16;
constexpr unsigned kSerialInNumber = 4;

/// The TBSCertificate (RFC 5280 section 4.1.2).
IdentObj EncodeToBeSigned(const Profile& profile, const CNALX509Name& subject, const CNALCertPublicKeyInfo& key,
                          const IssuerFacts& issuer, const CNALX509Name& issuerName, const CNALAlgorithmIdentifier& algorithm) {
    const IdentObj serial = profile.serial.IsEmpty() ? MakeSerial(profile.network, 0) : profile.serial;
    const FILETIME notBefore = profile.notBefore.value_or(Now());
    const FILETIME notAfter = profile.notAfter ? *profile.notAfter : AddMonths(notBefore, profile.months);
    const CNALX509Name& name = profile.issuer ? *profile.issuer : issuerName;
    const CNALCertExtensionList extensions = MakeExtensions(profile, issuer, key.GetKeyID(), notBefore);

    asnt::Writer writer;
    writer.Sequence([&] {
        if (profile.version >= 0) writer.Context(0, [&] { writer.Integer(profile.version); });
        writer.IntegerReversed(serial);
        writer.Raw(algorithm.WriteData());
        writer.Raw(asnt::View(name));
        writer.Sequence([&] {
            writer.Time(notBefore);
            writer.Time(notAfter);
        });
        writer.Raw(asnt::View(subject));
        key.WriteData(writer);
        if (!extensions.empty()) writer.Context(3, [&] { extensions.WriteData(writer); });
    });
    return writer.Finish();
}

CNAL_CRL_Entry MakeEntry(const Revoked& revoked, const FILETIME& now) {
    CNAL_CRL_Entry entry;
    entry.m_serialNumber = revoked.serial;
    entry.m_revocationDate = CTOOFileTime(revoked.when).IsZero() ? now : revoked.when;
    if (revoked.reason) entry.m_extensions.Add(CNALReasonCode(*revoked.reason).ToExtension(c_NAL_OID_REASON_CODE, false));
    return entry;
}

}  // namespace

CNALX509Name Name(std::string_view text) {
    X500NameParser::X500NameEncoder encoder;
    encoder.SetEncoderOptions(CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG | CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG);
    IdentObj der;
    if (!encoder.Encode(CNALString(CTOOString(text)).str(), der, true)) {
        throw XTOOStatus(TOO_E_NAME_ENCODE, CTOOString("the name \"") + CTOOString(text) + "\": " + encoder.GetFailure());
    }
    return CNALX509Name(std::move(der));
}

IdentObj MakeCrlNumber(const IdentObj& issuerSerial, std::uint64_t counter) {
    IdentObj number(nullptr, kNumberSize);
    unsigned char* bytes = number.GetData();
    for (unsigned i = 0; i < kSerialInNumber && i < issuerSerial.GetSize(); ++i)
        bytes[i] = issuerSerial.GetData()[i];
    for (unsigned i = 0; i < sizeof(counter); ++i)
        bytes[kSerialInNumber + i] = static_cast<unsigned char>(counter >> 8 * i);
    bytes[kNumberSize - 1] = 0x40;
    return number;
}

Issuer::Issuer(KeyPair key, const IdentObj& certificate) : m_key(std::move(key)) {
    TakeCertificate(certificate);
    if (!(m_certificate.m_info.m_publicKeyInfo == m_key.GetPublicKey())) {
        throw XTOOStatus(TOO_E_CERT_REFUSED, CTOOString("the certificate is not that of the key in ") + m_key.GetContainer());
    }
}

void Issuer::TakeCertificate(const IdentObj& certificate) {
    m_certificate.DecodeCert(certificate);
    m_encoded = certificate;
    CNALSubjectKeyID id;
    m_keyId = id.ReadFrom(m_certificate.m_info.m_extensions, c_NAL_OID_SUBJECT_KEY_ID) ? id.m_keyId
                                                                                       : m_key.GetPublicKey().GetKeyID();
}

Issuer Issuer::SelfSigned(KeyPair key, const CNALX509Name& subject, const Profile& profile) {
    Profile own = profile;
    if (own.serial.IsEmpty()) own.serial = MakeSerial(own.network, 0);
    const IssuerFacts facts{profile.subjectKeyId.value_or(key.GetPublicKey().GetKeyID()), subject, own.serial};
    const IdentObj certificate =
        key.Sign(EncodeToBeSigned(own, subject, key.GetPublicKey(), facts, subject, key.GetSignatureAlgorithm()));
    return {std::move(key), certificate};
}

IdentObj Issuer::Certify(const CNALX509Name& subject, const CNALCertPublicKeyInfo& key, const Profile& profile) const {
    const IssuerFacts facts{m_keyId, GetInfo().m_issuer, GetInfo().m_serialNumber};
    return m_key.Sign(EncodeToBeSigned(profile, subject, key, facts, GetName(), m_key.GetSignatureAlgorithm()));
}

Issuer Issuer::CertifyIssuer(KeyPair key, const CNALX509Name& subject, const Profile& profile) const {
    const IdentObj certificate = Certify(subject, key.GetPublicKey(), profile);
    return {std::move(key), certificate};
}

IdentObj Issuer::MakeCrl(const CrlProfile& profile) const {
    CNAL_CRL_Info crl;
    crl.m_signatureAlgorithm = m_key.GetSignatureAlgorithm();
    crl.m_issuer = GetName();
    crl.m_thisUpdate = profile.thisUpdate.value_or(Now());
    if (profile.nextUpdate) {
        crl.m_nextUpdate = *profile.nextUpdate;
    } else if (profile.days != 0) {
        crl.m_nextUpdate = AddDays(crl.m_thisUpdate, profile.days);
    }
    for (const Revoked& revoked : profile.revoked)
        crl.AddEntry(MakeEntry(revoked, crl.m_thisUpdate));
    if (!profile.omitAuthorityKeyId) {
        const CNALIssuerPublicKeyID id(profile.authorityKeyId.value_or(m_keyId));
        crl.m_extensions.Add(id.ToExtension(c_NAL_OID_AUTHORITY_KEY_ID, false));
    }
    if (!profile.omitNumber) {
        const IdentObj number = profile.number ? *profile.number : MakeCrlNumber(GetInfo().m_serialNumber, profile.counter);
        crl.m_extensions.Add(CNALCRLNumber(number).ToExtension(c_NAL_OID_CRL_NUMBER, false));
    }
    for (const CNALCertExtension& extension : profile.extensions)
        crl.m_extensions.Replace(extension);
    return m_key.Sign(crl.WriteData());
}

IdentObj MakeRequest(const KeyPair& key, const CNALX509Name& subject, const CNALCertExtensionList& extensions) {
    CNALPKCS10Data data;
    data.m_subject = subject;
    data.m_publicKey = key.GetPublicKey();
    data.SetExtensions(extensions);
    CNALPKCS10Request request;
    request.SignData(data, key.GetProvider(), key.GetKey(), nullptr);
    return request.WriteData();
}

}  // namespace keycentre
