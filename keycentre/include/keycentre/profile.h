/// What a certificate is to say beside its subject and its key.
///
/// A profile is a plain record: start from one of the functions below and change what should be different. Nothing is checked but
/// that it can be encoded, so a profile also makes the certificates that a verifier has to refuse.
#pragma once

#include <list>
#include <optional>
#include <vector>

#include "nal/extensions.h"
#include "nal/name.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

namespace keycentre {

/// The forms in which a certificate says whether it is a CA's.
enum class Constraints : unsigned char {
    None,    ///< it does not
    New,     ///< "2.5.29.19"
    Old,     ///< "2.5.29.10"
    Both,
};

/// The forms of the authority key identifier.
enum class AuthorityKey : unsigned char {
    None,
    KeyId,           ///< "2.5.29.35" with the issuer's key identifier
    KeyIdAndSerial,  ///< the same with the name and serial number of the issuer's certificate
    Old,             ///< "2.5.29.1" with all three
};

/// A stretch of time; an empty bound is left out.
struct Period {
    std::optional<FILETIME> notBefore;
    std::optional<FILETIME> notAfter;
};

struct Profile {
    int version = 2;                     ///< as encoded: 2 is v3; -1 leaves the field out
    /// Least significant byte first, all content octets of the INTEGER; empty: MakeSerial(network, 0).
    IdentObj serial;
    unsigned short network = 0;          ///< of the serial number, when that is made here
    std::optional<CNALX509Name> issuer;  ///< another issuer's name than the issuer's

    std::optional<FILETIME> notBefore;   ///< nothing: now
    std::optional<FILETIME> notAfter;    ///< nothing: `months` after notBefore
    unsigned short months = 12;

    Constraints constraints = Constraints::None;
    bool isCa = false;
    std::optional<DWORD> pathLength;
    bool constraintsCritical = true;     ///< of "2.5.29.19"

    unsigned keyUsage = 0;               ///< CNALKeyUsage flags; 0 leaves the extension out
    bool keyUsageCritical = true;
    std::list<CTOOString> extendedUsage;
    std::optional<Period> privateKeyUsage;
    unsigned short privateKeyMonths = 0; ///< without `privateKeyUsage`: the period is these months from notBefore; 0: none

    /// Subject key identifier. Nothing: that of the key, 20 bytes (CNALCertPublicKeyInfo::GetKeyID). Of any length, empty for an
    /// empty one; `omitSubjectKeyId` leaves the extension out.
    std::optional<IdentObj> subjectKeyId;
    bool omitSubjectKeyId = false;
    AuthorityKey authorityKey = AuthorityKey::KeyId;

    std::vector<CNALGeneralName> subjectAltNames;
    std::vector<CNALGeneralName> issuerAltNames;
    bool oldAltNames = false;            ///< as "2.5.29.7" and "2.5.29.8", not "2.5.29.17" and "2.5.29.18"
    std::list<CTOOString> policies;      ///< OIDs
    std::list<CTOOString> crlUris;       ///< one distribution point each

    /// Takes the place of what is made of the fields above where the OID is the same; else added behind it.
    CNALCertExtensionList extensions;
};

/// A root's: CA, signs certificates and CRLs, ten years.
Profile RootProfile();
/// A subordinate CA's: the same, five years, no further CA below it.
Profile CaProfile();
/// A user's signature key: digital signature and non-repudiation, fifteen months, the private key for twelve.
Profile SignatureProfile();
/// A user's exchange key: as above, and key and data encipherment and key agreement.
Profile ExchangeProfile();
/// A signer's of trust lists: digital signature and c_NAL_OID_TRUST_LIST_SIGNING, five years.
Profile TrustListProfile();

/// A serial number of 16 bytes, least significant first, in the layout of a request's identity:
///
///   offset  size  field (machine's byte order)
///        0     4  network number << 16
///        4     4  certificate number
///        8     8  random; the last byte is 1 to 0x7F, so that the INTEGER has 16 octets
///
/// @throws XTOOStatus when the provider has no random numbers
IdentObj MakeSerial(unsigned short network, DWORD number);

}  // namespace keycentre
