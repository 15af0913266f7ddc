// What the steps of signing and checking share in their calls of the provider.
#pragma once

#include <cstddef>

#include "asnt/view.h"
#include "frame/failure.h"
#include "model/provider_handles.h"
#include "nal/sign.h"

namespace nal {

/// How much of a content is hashed at a time.
inline constexpr std::size_t c_hashChunk = 0x10000;

/// The hash that a signature over attributes covers, ready to be signed with `info.hKey` or checked: of the attributes, or, with hash
/// 0x8029, of the content in `info.hHash` and the attributes. The running hash stays as it is.
/// @param attributes  their encoding under the tag of a SET OF; empty when there are none: the content's hash then, from `info.hHash`
/// @throws XTOOStatus(the provider's status, "ORKCreateHash ()" or "ORKHashData ()")
HashHandle HashOfAttributes(const SNALCryptInfo& info, asnt::View attributes);

/// Whether a signature, least significant byte first, holds over a hash, which it finishes.
/// @return false also for a signature of a wrong length, and for a key that does not go with the hash
/// @throws XTOOStatus when the provider cannot tell
bool VerifyHash(const HashHandle& hash, const IdentObj& signature, const KeyHandle& key, const char* context);

/// Imports the public key of a certificate. @return none when it is no usable key @throws as VerifyHash
KeyHandle ImportPublicKey(unsigned long hProv, const CNALCertPublicKeyInfo& info, const char* context);

}  // namespace nal
