// The ways to compute the two signature algorithms, on values whose sizes key.cpp has checked. Private to this folder.
#pragma once

#include "host/provider/crypto/kernel_choice.h"
#include "host/provider/crypto/key.h"

namespace nalhost::crypto {

/// One way to compute one of the two algorithms. Stateless: several threads use the one object. `secret` is a private
/// key of 32 bytes in secure memory; byte orders are those of key.h. All throw CryptoError kNoMemory, kInternal.
class KeyScheme {
public:
    virtual ~KeyScheme() = default;

    /// A random private key.
    virtual SecureBytes GeneratePrivateKey(const KeyParameters& parameters) const = 0;

    /// Whether `secret` lies in 1..q-1, q the order of the group.
    virtual bool IsPrivateKey(const KeyParameters& parameters, ByteView secret) const = 0;

    /// Whether `key` is a public key that an honest owner can have.
    virtual bool IsPublicKey(const KeyParameters& parameters, ByteView key) const = 0;

    virtual void DerivePublicKey(const KeyParameters& parameters, ByteView secret, ByteSpan key) const = 0;

    virtual Signature Sign(const KeyParameters& parameters, ByteView secret, const Digest& digest) const = 0;

    /// @param signature  of the right size; its numbers are not checked yet
    virtual bool Verify(const KeyParameters& parameters, ByteView key, const Digest& digest,
                        ByteView signature) const = 0;

    /// What the hash turns into the key-encryption key. @throws CryptoError kBadKey for the point at infinity
    virtual SecureBytes CommonSecret(const KeyParameters& parameters, ByteView secret, ByteView peer,
                                     ByteView ukm) const = 0;
};

/// GOST R 34.10-94 by libgcrypt's big numbers.
const KeyScheme& Gost94Scheme();

/// GOST R 34.10-2001 by the kernel of this kind, or the highest below for which there is code; libgcrypt for
/// kReference.
/// @param kernel  not above ProcessorKernel()
const KeyScheme& Gost2001Scheme(Kernel kernel);

/// The scheme of a parameter set, with the chosen kernel.
const KeyScheme& SchemeOf(const KeyParameters& parameters);

}  // namespace nalhost::crypto
