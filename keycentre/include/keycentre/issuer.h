/// Issuing: certificates and CRLs under one key.
///
///     keycentre::Issuer root = keycentre::Issuer::SelfSigned(KeyPair::Create(file, ""), Name("CN=Root"), RootProfile());
///     KeyPair user = KeyPair::Create(other, "");
///     IdentObj certificate = root.Certify(Name("CN=Ivan"), user.GetPublicKey(), SignatureProfile());
///     IdentObj crl = root.MakeCrl({});
///
/// What an issuer signs is wholly given by its arguments: it keeps no record of what it made. Encodings are DER.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "keycentre/key.h"
#include "keycentre/profile.h"
#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/name.h"
#include "nal/pkcs10.h"
#include "too/ident_obj.h"
#include "too/types.h"

namespace keycentre {

/// A name from UTF-8 text such as "CN=Ivan, O=Works"; strings are UTF8String. @throws XTOOStatus(22) naming what was refused
CNALX509Name Name(std::string_view text);

/// One revoked certificate of a CRL to be.
struct Revoked {
    IdentObj serial;                 ///< least significant byte first
    FILETIME when{0, 0};             ///< 0: now
    std::optional<unsigned> reason;  ///< CRLReason, 0 to 10 without 7 (RFC 5280 section 5.3.1)
};

/// What a CRL is to say. As with Profile, nothing is checked but that it can be encoded.
struct CrlProfile {
    std::uint64_t counter = 1;             ///< rises from list to list; becomes the number, see MakeCrlNumber
    std::optional<IdentObj> number;        ///< another CRL number, least significant byte first
    bool omitNumber = false;
    std::optional<FILETIME> thisUpdate;    ///< nothing: now
    std::optional<FILETIME> nextUpdate;    ///< nothing: `days` after thisUpdate
    unsigned days = 30;                    ///< 0 and no nextUpdate: the field is left out
    std::optional<IdentObj> authorityKeyId;  ///< another key identifier than the issuer's
    bool omitAuthorityKeyId = false;
    std::vector<Revoked> revoked;
    CNALCertExtensionList extensions;      ///< further ones
};

/// The number of a CRL, 16 bytes, least significant first, so that numbers order as counters do and name their issuer:
///
///   offset  size  field
///        0     4  the first four stored bytes of the serial number of the issuer's certificate (its least significant ones)
///        4     8  counter, least significant byte first
///       12     3  0
///       15     1  0x40, so that the INTEGER has 16 octets
IdentObj MakeCrlNumber(const IdentObj& issuerSerial, std::uint64_t counter);

/// A certificate with its private key. Movable; for one thread at a time.
///
/// Functions throw XTOOStatus: 36 for what cannot be encoded, 28 for months beyond the calendar, the provider's status when signing
/// fails.
class Issuer {
public:
    /// Takes up a certificate that exists. @throws XTOOStatus(106) when the key is not the certificate's
    Issuer(KeyPair key, const IdentObj& certificate);

    /// Makes a certificate for `key` signed with itself. The profile's authority key identifier is the certificate's own.
    static Issuer SelfSigned(KeyPair key, const CNALX509Name& subject, const Profile& profile);

    const KeyPair& GetKeyPair() const { return m_key; }
    const IdentObj& GetCertificate() const { return m_encoded; }
    const CNALCertInfo& GetInfo() const { return m_certificate.m_info; }
    const CNALX509Name& GetName() const { return m_certificate.m_info.m_subject; }
    /// The subject key identifier of the certificate, or that of the key when it has none.
    const IdentObj& GetKeyId() const { return m_keyId; }
    /// A free-standing context of the certificate.
    CNALCertContext GetContext() const { return CNALCertContext(m_encoded); }

    /// Makes a certificate.
    IdentObj Certify(const CNALX509Name& subject, const CNALCertPublicKeyInfo& key, const Profile& profile) const;
    /// Makes a certificate for the subject and key of a request. What the request wants is the caller's to judge and to put into
    /// the profile; neither its signatures nor its attributes are looked at.
    IdentObj Certify(const CNALPKCS10Request& request, const Profile& profile) const {
        return Certify(request.GetData().m_subject, request.GetData().m_publicKey, profile);
    }
    /// Makes a certificate for `key` and an issuer of the two.
    Issuer CertifyIssuer(KeyPair key, const CNALX509Name& subject, const Profile& profile) const;

    /// Makes a CRL (RFC 5280 section 5).
    IdentObj MakeCrl(const CrlProfile& profile) const;

private:
    void TakeCertificate(const IdentObj& certificate);

    KeyPair m_key;
    IdentObj m_encoded;
    CNALX509Certificate m_certificate;
    IdentObj m_keyId;
};

/// A request for `key`, signed with it, DER.
/// @param extensions  what it asks for
IdentObj MakeRequest(const KeyPair& key, const CNALX509Name& subject, const CNALCertExtensionList& extensions = {});

}  // namespace keycentre
