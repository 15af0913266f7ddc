// The signature of a trust list: who may make it, and its check. What a list says is looked at in trust/, after its signature held.
#pragma once

#include "nal/context.h"
#include "nal/signed_data.h"

namespace nal {

/// What the signature of a trust list covers, and whose it is.
struct SignedTrustList {
    IdentObj content;          ///< DER, not looked at
    CNALCertContext signer;
    CTOOFileTime signingTime;  ///< now, when the signature does not tell
};

/// Whether a certificate is one for signing trust lists: no CA's, with the usage for it.
/// @return false also when one of the extensions does not decode @throws XTOOStatus for a certificate that does not decode
bool MaySignTrustLists(const CNALCertContext& cert);

/// Checks that a message is a trust list and that its signature holds under a certificate of the message that may sign trust lists.
/// Neither its chain nor its validity are looked at.
/// @throws XTOOStatus: 205, 206 for what is no trust list; 73 for an unknown hash; 58 for a signature that does not hold; 194 when the
///         signer's certificate is not in the message; 106 when it may not sign trust lists. The text says so.
SignedTrustList CheckTrustListSignature(const IdentObj& encoded);

}  // namespace nal
