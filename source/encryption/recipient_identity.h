// Which certificate a recipient of a message is.
#pragma once

#include "nal/context.h"
#include "too/ident_obj.h"
#include "too/status.h"

namespace nal {

/// What a message may name a certificate by.
struct CertIdentity {
    /// @param cert  not empty @throws XTOOStatus(206) for one that does not decode
    explicit CertIdentity(const CNALCertContext& cert);

    /// @param otherKeyIdentifier  when it is not empty it alone decides
    bool Is(const IdentObj& otherIssuer, const IdentObj& otherSerial, const IdentObj& otherKeyIdentifier) const;

    IdentObj issuer;
    IdentObj serialNumber;  // as DER has it
    IdentObj keyIdentifier;
};

/// As CertIdentity::Is; false for an empty context and for a certificate that does not decode.
inline bool IsIdentityOf(const CNALCertContext& cert, const IdentObj& issuer, const IdentObj& serialNumber, const IdentObj& keyIdentifier) {
    if (!cert.IsInitialized()) return false;
    try {
        return CertIdentity(cert).Is(issuer, serialNumber, keyIdentifier);
    } catch (const XTOOStatus&) {
        return false;
    }
}

}  // namespace nal
