// Protection of secrets at rest: a key from a password, and authenticated encryption under it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

inline constexpr std::size_t kProtectionKeySize = 32;
inline constexpr std::size_t kMinSaltSize = 8;
inline constexpr std::size_t kSealNonceSize = 12;
inline constexpr std::size_t kSealTagSize = 16;
inline constexpr std::size_t kSealOverhead = kSealNonceSize + kSealTagSize;

/// The cost of a derivation by scrypt with r = 8, as a file records it: it takes N KiB of memory.
struct ScryptCost {
    std::uint32_t n = 8192;  ///< a power of two
    std::uint32_t p = 1;

    /// Whether the cost may be used: from 1 to 64 MiB, p from 1 to 4. Costs read from a file are hostile until checked.
    bool IsAcceptable() const;
};

/// Derives a protection key of 32 bytes from a password by scrypt. Source: RFC 7914.
/// @param password  any bytes, empty too @param salt  at least 8 bytes; 16 random ones for a new file
/// @throws CryptoError kBadData for an unacceptable cost; kBadLength; kNoMemory
/// Thread-safe. Takes n KiB of ordinary memory while it runs.
SecureBytes DeriveProtectionKey(ByteView password, ByteView salt, const ScryptCost& cost);

/// Encrypts and authenticates `plain`, and authenticates `associated`, by AES-256-GCM under a fresh random nonce.
/// Source: NIST SP 800-38D. A key seals at most 2^32 blocks.
///
///   offset  size  field
///        0    12  nonce
///       12     n  ciphertext, as long as the plaintext
///     12+n    16  tag
///
/// @param key  32 bytes @throws CryptoError kBadLength, kNoMemory. Thread-safe.
std::vector<std::uint8_t> Seal(ByteView key, ByteView associated, ByteView plain);

/// @return the plaintext, or nothing when key, associated data or a byte of `sealed` is not what was sealed.
/// @throws CryptoError kBadLength for a key of the wrong size; kNoMemory. Thread-safe.
std::optional<SecureBytes> Unseal(ByteView key, ByteView associated, ByteView sealed);

}  // namespace nalhost::crypto
