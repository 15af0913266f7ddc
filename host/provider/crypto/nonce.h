// What the random number of a signature is made of. Private to this folder.
#pragma once

#include "host/provider/crypto/curve/number.h"
#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

inline constexpr std::size_t kNonceSeedSize = 64;

/// A number of 512 bits, least significant byte first, that gives a signature's random number when it is reduced modulo
/// the order q: at twice the length of q no value is likelier than another by more than 2^-256.
///
/// It is HMAC-SHA-512, keyed by the private key, of fresh random bytes, e and q. So it is random when the generator is;
/// and one that repeats itself, as in two runs of one snapshot of a machine, gives the same number only for the same
/// signature, and the key stays secret. SHA-512 works in constant time, as GOST R 34.11-94 does not: it reads tables.
/// Source: the idea is that of RFC 6979 section 3.6.
/// @param secret  the private key, 32 bytes @throws CryptoError kNoMemory
SecureBytes MakeNonceSeed(const curve::Number& q, ByteView secret, const curve::Number& e);

/// The same with the random bytes given.
SecureBytes MakeNonceSeed(ByteView random, const curve::Number& q, ByteView secret, const curve::Number& e);

}  // namespace nalhost::crypto
