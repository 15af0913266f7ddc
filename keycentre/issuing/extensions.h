// The extensions that a profile asks for.
#pragma once

#include "keycentre/profile.h"
#include "nal/certificate.h"

namespace keycentre {

/// What an issuer puts about itself into what it signs.
struct IssuerFacts {
    IdentObj keyId;
    CNALX509Name name;    ///< the issuer of the issuer's own certificate
    IdentObj serial;      ///< of the issuer's own certificate
};

/// @param keyId      the identifier of the subject's key
/// @param notBefore  when the certificate becomes valid
CNALCertExtensionList MakeExtensions(const Profile& profile, const IssuerFacts& issuer, const IdentObj& keyId,
                                     const FILETIME& notBefore);

}  // namespace keycentre
