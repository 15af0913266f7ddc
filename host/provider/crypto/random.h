// Random bytes.
#pragma once

#include <cstddef>

#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

/// Fills `out` with random bytes fit for session keys, initialisation vectors, salts and nonces. A forked child gets
/// others than its parent. Thread-safe. @throws CryptoError kUnavailable from StartCrypto
void FillRandom(ByteSpan out);

/// `size` random bytes fit for a secret of any kind, in secure memory. Thread-safe. @throws CryptoError kNoMemory
SecureBytes RandomSecret(std::size_t size);

}  // namespace nalhost::crypto
