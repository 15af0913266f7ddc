// Key pairs of GOST R 34.10-94 and GOST R 34.10-2001: signature, verification, agreement.
//
// Everything is least significant byte first, as it crosses the provider's interface:
//
//   value               bytes  layout
//   private key            32  the number
//   public key, 2001       64  X, Y, 32 bytes each
//   public key, 94        128  the number
//   signature              64  r, s, 32 bytes each: the bytes of a certificate (s, r most significant first) reversed
//   digest                 32  as the hash gives it
//   UKM                     8  as messages carry it
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "host/provider/crypto/hash.h"
#include "host/provider/crypto/parameters.h"
#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

inline constexpr std::size_t kPrivateKeySize = 32;
inline constexpr std::size_t kSignatureSize = 64;
inline constexpr std::size_t kUkmSize = 8;

using Signature = std::array<std::uint8_t, kSignatureSize>;

/// A public key that has passed its checks. Immutable: several threads may use one object at once. Copies are deep.
class PublicKey {
public:
    /// Takes a key from outside. 2001: X and Y below p and the point on the curve (the curves have prime order, so no
    /// point of small order exists); 94: 1 < y < p and y^q = 1, which leaves no value of small order.
    /// @param bytes  parameters.publicKeySize bytes, see above @throws CryptoError kBadLength, kBadKey, kNoMemory
    static PublicKey Import(const KeyParameters& parameters, ByteView bytes);

    /// @return whether `signature` is this key's signature of `digest`; false for one of the wrong size and for r or s
    ///         outside 1..q-1. @throws CryptoError kNoMemory, kInternal
    bool Verify(const Digest& digest, ByteView signature) const;

    const KeyParameters& Parameters() const { return *m_parameters; }
    ByteView Bytes() const { return m_bytes; }

private:
    friend class PrivateKey;
    PublicKey(const KeyParameters& parameters, std::vector<std::uint8_t> bytes);

    const KeyParameters* m_parameters;
    std::vector<std::uint8_t> m_bytes;
};

/// A private key in secure memory. Immutable but for moves: several threads may use one object at once.
///
/// What an operation works on does not show in its time where our own arithmetic does it: curves by a kernel other than
/// the reference, and what a signature adds up, for every algorithm. The powers of 94 and the multiples of the
/// reference are libgcrypt's, whose numbers are not made for that: powers take a blinded exponent, multiples a scalar
/// of one length. Every signature takes a random number of its own, which stays secret where random numbers repeat
/// themselves.
class PrivateKey {
public:
    /// A new key, 1 <= d < q. @throws CryptoError kNoMemory, kUnavailable
    static PrivateKey Generate(const KeyParameters& parameters);

    /// Takes a key from outside. @param bytes  32 bytes
    /// @throws CryptoError kBadLength; kBadKey for zero and for a number not below q
    static PrivateKey Import(const KeyParameters& parameters, ByteView bytes);

    PrivateKey(PrivateKey&&) noexcept = default;
    PrivateKey& operator=(PrivateKey&&) noexcept = default;

    /// Computes the public key: about as expensive as a signature, so keep the result.
    PublicKey DerivePublicKey() const;

    Signature Sign(const Digest& digest) const;

    /// The key-encryption key (32 bytes) agreed with the owner of `peer` by VKO GOST R 34.10-2001 or 34.10-94.
    /// Source: RFC 4357 sections 5.1 and 5.2.
    /// @param ukm   8 bytes, not all zero, for 2001; for 94 it does not go into the agreement and may be empty
    /// @param hash  the parameter set of the hash that makes the key from the common secret
    /// @throws CryptoError kBadKey when `peer` has other parameters, or the common point is infinite; kBadLength;
    ///         kBadData for a zero UKM
    SecureBytes Agree(const PublicKey& peer, ByteView ukm, const HashParameters& hash = DefaultHashParameters()) const;

    const KeyParameters& Parameters() const { return *m_parameters; }
    /// The 32 bytes, for a container or a wrapped blob; they live as long as this object.
    ByteView Secret() const { return m_secret; }

private:
    PrivateKey(const KeyParameters& parameters, SecureBytes secret);

    const KeyParameters* m_parameters;
    SecureBytes m_secret;
};

}  // namespace nalhost::crypto
