// Session keys wrapped under key-encryption keys.
#pragma once

#include <array>
#include <cstdint>

#include "host/provider/crypto/cipher.h"

namespace nalhost::crypto {

enum class KeyWrap {
    kCryptoPro,  ///< 1.2.643.2.2.13.1, the key-encryption key diversified by the UKM. Source: RFC 4357 section 6.3
    kPlain,      ///< 1.2.643.2.2.13.0, the key-encryption key as it is. Source: RFC 4357 section 6.1
};

/// A wrapped 32-byte key as GostR3410-KeyTransport carries it. Source: RFC 4490 section 4.2.1.
struct WrappedKey {
    std::array<std::uint8_t, kCipherKeySize> encrypted;
    Mac mac;
};

/// Diversifies a key-encryption key. Source: RFC 4357 section 6.5. @param kek  32 bytes @param ukm  8 bytes
/// @throws CryptoError kBadLength, kNoMemory
SecureBytes DiversifyKey(const CipherParameters& parameters, ByteView kek, ByteView ukm);

/// Wraps `key`. Thread-safe; every secret stays in secure memory.
/// @param kek  32 bytes @param ukm  8 bytes, random unless an agreement fixes it @param key  32 bytes
/// @throws CryptoError kBadLength, kNoMemory
WrappedKey WrapKey(KeyWrap wrap, const CipherParameters& parameters, ByteView kek, ByteView ukm, ByteView key);

/// Unwraps a key, 32 bytes; its code is compared in constant time. Thread-safe.
/// @throws CryptoError kBadData when the code does not fit: another key-encryption key, another UKM or changed bytes
SecureBytes UnwrapKey(KeyWrap wrap, const CipherParameters& parameters, ByteView kek, ByteView ukm,
                      const WrappedKey& wrapped);

}  // namespace nalhost::crypto
