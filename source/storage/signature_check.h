// Signatures of certificates and CRLs under an issuer's key.
#pragma once

#include "model/provider_handles.h"
#include "nal/algorithm.h"
#include "nal/wincrypt.h"

class CNAL_CRL_List;

namespace nal {

/// A provider context without a container, for checking. Zero, with the last error set, when the provider refuses.
ContextHandle OpenVerifyProvider();

/// Signature algorithms.
enum class Algorithms {
    Standard,    // GOST R 34.10-2001 and 34.10-94
    WithPrivate  // and the private one
};

/// Whether a signature algorithm is one of these.
bool IsAmong(Algorithms algorithms, const CNALAlgorithmIdentifier& algorithm);

/// Whether a certificate's signature holds under `issuerKey`.
/// @return false, with last error 230, for an algorithm that is not among those accepted
/// @throws XTOOStatus for a certificate that does not decode
bool IsSignedBy(const CERT_CONTEXT& cert, const CNALCertPublicKeyInfo& issuerKey, Algorithms accepted = Algorithms::Standard);

/// The same for a CRL, which throws nothing.
bool IsSignedBy(const CNAL_CRL_List& crl, const CNALCertPublicKeyInfo& issuerKey);

}  // namespace nal
