// Signatures of certificates and CRLs under an issuer's key.
#pragma once

#include "model/provider_handles.h"
#include "nal/algorithm.h"
#include "nal/wincrypt.h"

class CNAL_CRL_List;

namespace nal {

/// A provider context without a container, for checking. Zero, with the last error set, when the provider refuses.
ContextHandle OpenVerifyProvider();

/// Whether a certificate's signature holds under `issuerKey`.
/// @return false, with last error 230, for an algorithm outside GOST R 34.10-2001 and 34.10-94
/// @throws XTOOStatus for a certificate that does not decode
bool IsSignedBy(const CERT_CONTEXT& cert, const CNALCertPublicKeyInfo& issuerKey);

/// The same for a CRL, which throws nothing.
bool IsSignedBy(const CNAL_CRL_List& crl, const CNALCertPublicKeyInfo& issuerKey);

}  // namespace nal
