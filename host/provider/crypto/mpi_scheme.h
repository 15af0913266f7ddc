// What both algorithms share when libgcrypt's numbers do them. Private to this folder.
#pragma once

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key_scheme.h"

namespace nalhost::crypto {

/// Numbers named `secret` are in secure memory and lie in 1..q-1.
class MpiScheme : public KeyScheme {
public:
    SecureBytes GeneratePrivateKey(const KeyParameters& parameters) const final;
    bool IsPrivateKey(const KeyParameters& parameters, ByteView secret) const final;
    void DerivePublicKey(const KeyParameters& parameters, ByteView secret, ByteSpan key) const final;
    Signature Sign(const KeyParameters& parameters, ByteView secret, const Digest& digest) const final;
    SecureBytes CommonSecret(const KeyParameters& parameters, ByteView secret, ByteView peer, ByteView ukm) const final;

protected:
    /// q, the order of the group.
    virtual MpiPtr Order(const KeyParameters& parameters) const = 0;

    virtual void DerivePublicKey(const KeyParameters& parameters, gcry_mpi_t secret, ByteSpan key) const = 0;

    /// The number r of a signature, below q, for the random number of that signature; it may be 0.
    virtual MpiPtr Commitment(const KeyParameters& parameters, gcry_mpi_t secretRandom) const = 0;

    virtual SecureBytes CommonSecret(const KeyParameters& parameters, gcry_mpi_t secret, ByteView peer,
                                     ByteView ukm) const = 0;
};

/// Whether 0 < number < order.
bool IsInRange(gcry_mpi_t number, gcry_mpi_t order);

/// The digest as signatures take it: modulo the order, and never 0.
MpiPtr HashNumber(const Digest& digest, gcry_mpi_t order);

}  // namespace nalhost::crypto
