// GOST R 34.10-2001 by the curves' kernels. Private to this folder.
#pragma once

#include "host/provider/crypto/curve/curve_kernel.h"
#include "host/provider/crypto/key_scheme.h"

namespace nalhost::crypto {

/// Private keys, nonces and what is computed of them are kept in constant time and wiped from the stack.
class CurveScheme final : public KeyScheme {
public:
    /// @param kernel  not above ProcessorKernel(), nor kReference
    explicit CurveScheme(Kernel kernel) : m_kernel(kernel) {}

    SecureBytes GeneratePrivateKey(const KeyParameters& parameters) const override;
    bool IsPrivateKey(const KeyParameters& parameters, ByteView secret) const override;
    bool IsPublicKey(const KeyParameters& parameters, ByteView key) const override;
    void DerivePublicKey(const KeyParameters& parameters, ByteView secret, ByteSpan key) const override;
    Signature Sign(const KeyParameters& parameters, ByteView secret, const Digest& digest) const override;
    bool Verify(const KeyParameters& parameters, ByteView key, const Digest& digest, ByteView signature) const override;
    SecureBytes CommonSecret(const KeyParameters& parameters, ByteView secret, ByteView peer,
                             ByteView ukm) const override;

private:
    const curve::CurveKernel& KernelOf(const KeyParameters& parameters) const;

    Kernel m_kernel;
};

}  // namespace nalhost::crypto
