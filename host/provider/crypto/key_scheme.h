// What the two signature algorithms do differently, on numbers that key.cpp has checked. Private to this folder.
#pragma once

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key.h"

namespace nalhost::crypto {

/// One of the two algorithms. Stateless: several threads use the one object. Numbers named `secret` are in secure
/// memory and lie in 1..q-1; byte orders are those of key.h.
class KeyScheme {
public:
    virtual ~KeyScheme() = default;

    /// q, the order of the group.
    virtual MpiPtr Order(const KeyParameters& parameters) const = 0;

    /// Whether `key`, of the right size, is a public key that an honest owner can have.
    virtual bool IsPublicKey(const KeyParameters& parameters, ByteView key) const = 0;

    virtual void DerivePublicKey(const KeyParameters& parameters, gcry_mpi_t secret, ByteSpan key) const = 0;

    /// The number r of a signature, below q, for the random number of that signature; it may be 0.
    virtual MpiPtr Commitment(const KeyParameters& parameters, gcry_mpi_t secretRandom) const = 0;

    /// `signature` has the right size; its numbers are not checked yet.
    virtual bool Verify(const KeyParameters& parameters, ByteView key, const Digest& digest,
                        ByteView signature) const = 0;

    /// What the hash turns into the key-encryption key.
    virtual SecureBytes CommonSecret(const KeyParameters& parameters, gcry_mpi_t secret, ByteView peer,
                                     ByteView ukm) const = 0;
};

const KeyScheme& Gost94Scheme();
const KeyScheme& Gost2001Scheme();

/// The digest as signatures take it: modulo the order, and never 0.
MpiPtr HashNumber(const Digest& digest, gcry_mpi_t order);

}  // namespace nalhost::crypto
