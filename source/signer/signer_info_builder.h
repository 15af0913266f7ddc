// Making one signer info: the one builder of every function that signs.
#pragma once

#include "nal/context.h"
#include "nal/sign.h"

namespace nal {

/// In which order the three signed attributes are written; the content type is first. Both are kept deliberately: messages of either
/// kind are told by it.
enum class AttributeOrder : unsigned char { DigestThenTime, TimeThenDigest };

/// What a signer signs.
struct SignedClaims {
    const char* contentType = c_NAL_OID_DATA;
    IdentObj digest;           ///< the content's hash
    CTOOFileTime signingTime;
    AttributeOrder order = AttributeOrder::TimeThenDigest;
};

/// A signer info with everything but the signature.
/// @param flags  c_NAL_SIGN_BY_KEY_ID counts
/// @throws XTOOStatus: (73, context) when the hash has no OID; for a certificate that does not decode
CNALMessageSignerInfo PrepareSigner(const CNALCertContext& cert, DWORD hashAlgId, const SignedClaims& claims, DWORD flags,
                                    const char* context);

/// Signs a prepared signer info.
/// @param info  with hash 0x8029, hHash holds the content
/// @throws XTOOStatus(the provider's status; "ORKCreateHash ()", "ORKHashData ()" or "ORKSignHash ")
void SignSigner(const CNALCertContext& cert, const SNALCryptInfo& info, CNALMessageSignerInfo& signer);

/// Puts a signature that was made elsewhere into a prepared signer info, once it holds under the certificate's key.
/// @param signature  as ORKSignHash gives it
/// @throws XTOOStatus: (58, context); the provider's
void PutSignature(const CNALCertContext& cert, const SNALCryptInfo& info, const IdentObj& signature, CNALMessageSignerInfo& signer,
                  const char* context);

/// Adds an algorithm to a message's list, which is then sorted and has each once.
void AddDigestAlgorithm(CNALSignData& message, const CNALAlgorithmIdentifier& algorithm);

/// Adds a certificate to a message that does not have it.
void AddCertificate(CNALSignData& message, const CNALCertContext& cert);

}  // namespace nal
