#include "host/provider/crypto/key.h"

#include <algorithm>
#include <utility>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key_scheme.h"

namespace nalhost::crypto {
const KeyScheme& SchemeOf(const KeyParameters& parameters) {
    return parameters.algorithm == KeyAlgorithm::kGost94 ? Gost94Scheme() : Gost2001Scheme(ChosenKernel());
}

PublicKey::PublicKey(const KeyParameters& parameters, std::vector<std::uint8_t> bytes)
    : m_parameters(&parameters), m_bytes(std::move(bytes)) {}

PublicKey PublicKey::Import(const KeyParameters& parameters, ByteView bytes) {
    StartCrypto();
    RequireSize(bytes, parameters.publicKeySize, "The public key");
    if (!SchemeOf(parameters).IsPublicKey(parameters, bytes)) {
        throw CryptoError(Failure::kBadKey, "The public key does not belong to its parameter set");
    }
    return {parameters, {bytes.begin(), bytes.end()}};
}

bool PublicKey::Verify(const Digest& digest, ByteView signature) const {
    if (signature.size() != kSignatureSize) return false;
    return SchemeOf(*m_parameters).Verify(*m_parameters, m_bytes, digest, signature);
}

PrivateKey::PrivateKey(const KeyParameters& parameters, SecureBytes secret)
    : m_parameters(&parameters), m_secret(std::move(secret)) {}

PrivateKey PrivateKey::Generate(const KeyParameters& parameters) {
    StartCrypto();
    return {parameters, SchemeOf(parameters).GeneratePrivateKey(parameters)};
}

PrivateKey PrivateKey::Import(const KeyParameters& parameters, ByteView bytes) {
    StartCrypto();
    RequireSize(bytes, kPrivateKeySize, "The private key");
    SecureBytes secret(bytes);
    if (!SchemeOf(parameters).IsPrivateKey(parameters, secret)) {
        throw CryptoError(Failure::kBadKey, "The private key is out of range");
    }
    return {parameters, std::move(secret)};
}

PublicKey PrivateKey::DerivePublicKey() const {
    std::vector<std::uint8_t> key(m_parameters->publicKeySize);
    SchemeOf(*m_parameters).DerivePublicKey(*m_parameters, m_secret, key);
    return {*m_parameters, std::move(key)};
}

Signature PrivateKey::Sign(const Digest& digest) const {
    return SchemeOf(*m_parameters).Sign(*m_parameters, m_secret, digest);
}

SecureBytes PrivateKey::Agree(const PublicKey& peer, ByteView ukm, const HashParameters& hashParameters) const {
    if (&peer.Parameters() != m_parameters) {
        throw CryptoError(Failure::kBadKey, "The keys of an agreement have different parameter sets");
    }
    if (m_parameters->algorithm == KeyAlgorithm::kGost2001) {
        RequireSize(ukm, kUkmSize, "The UKM");
        if (std::all_of(ukm.begin(), ukm.end(), [](std::uint8_t byte) { return byte == 0; })) {
            throw CryptoError(Failure::kBadData, "The UKM is zero");
        }
    }
    const SecureBytes common = SchemeOf(*m_parameters).CommonSecret(*m_parameters, m_secret, peer.Bytes(), ukm);
    SecureBytes kek;
    // The hash leaves its value on the stack.
    WithWipedStack([&] {
        Hash hash(hashParameters);
        hash.Update(common);
        kek = hash.FinishSecret();
    });
    return kek;
}

}  // namespace nalhost::crypto
