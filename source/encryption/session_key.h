// Session keys out of messages.
#pragma once

#include "model/provider_handles.h"
#include "nal/enveloped_data.h"

namespace nal {

/// How content is encrypted, as the message says.
struct ContentCipher {
    IdentObj iv;
    CTOOString paramSet;
};

/// @throws XTOOStatus: (73, context) for another cipher than GOST 28147-89, (206, context) for damaged parameters
ContentCipher ReadContentCipher(const CNALAlgorithmIdentifier& algorithm, const char* context);

/// Unwrap a session key and make it ready to decrypt.
///
/// @param hPrivateKey  of the recipient
/// @param recipient    the algorithm of the recipient's public key, whose parameters count where the originator's key has none
/// @param context      text of what is thrown; a literal
/// @throws XTOOStatus: (206, context) for a damaged wrapped key, (56, context) for a form of it that is not supported, (73, context) for an
///         unknown algorithm, else the provider's status
KeyHandle UnwrapTransported(unsigned long hPrivateKey, const CNALAlgorithmIdentifier& recipient, const CNALTransRecipientInfo& info,
                            const ContentCipher& cipher, const char* context);
KeyHandle UnwrapAgreed(unsigned long hPrivateKey, const CNALAlgorithmIdentifier& recipient, const CNALAgreeRecipientInfo& info,
                       const IdentObj& encryptedKey, const ContentCipher& cipher, const char* context);

}  // namespace nal
