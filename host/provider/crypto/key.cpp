#include "host/provider/crypto/key.h"

#include <algorithm>
#include <utility>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key_scheme.h"
#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

const KeyScheme& SchemeOf(const KeyParameters& parameters) {
    return parameters.algorithm == KeyAlgorithm::kGost94 ? Gost94Scheme() : Gost2001Scheme();
}

MpiPtr SecretNumber(const SecureBytes& secret) {
    return MpiFromLittleEndian(secret, true);
}

// A random number in 1..order-1, in secure memory.
MpiPtr RandomScalar(gcry_mpi_t order) {
    const unsigned bits = gcry_mpi_get_nbits(order);
    SecureBytes candidate((bits + 7) / 8);
    // At most every second candidate is refused. What the comparison shows of a refused one tells nothing of the next.
    for (;;) {
        FillRandom(candidate.Span());
        candidate[candidate.size() - 1] &= static_cast<std::uint8_t>(0xFF >> (candidate.size() * 8 - bits));
        MpiPtr number = MpiFromLittleEndian(candidate, true);
        if (gcry_mpi_cmp_ui(number.get(), 0) > 0 && gcry_mpi_cmp(number.get(), order) < 0) return number;
    }
}

// s = d r + k e mod q, for the private key d and the random number k.
MpiPtr Response(gcry_mpi_t secret, gcry_mpi_t r, gcry_mpi_t random, gcry_mpi_t e, gcry_mpi_t order) {
    MpiPtr s = NewMpi(8 * kPrivateKeySize, true);
    const MpiPtr product = NewMpi(8 * kPrivateKeySize, true);
    gcry_mpi_mulm(s.get(), secret, r, order);
    gcry_mpi_mulm(product.get(), random, e, order);
    gcry_mpi_addm(s.get(), s.get(), product.get(), order);
    return s;
}

}  // namespace

MpiPtr HashNumber(const Digest& digest, gcry_mpi_t order) {
    MpiPtr number = MpiFromLittleEndian(digest, false);
    gcry_mpi_mod(number.get(), number.get(), order);
    if (gcry_mpi_cmp_ui(number.get(), 0) == 0) gcry_mpi_set_ui(number.get(), 1);
    return number;
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
    SecureBytes secret(kPrivateKeySize);
    MpiToLittleEndian(RandomScalar(SchemeOf(parameters).Order(parameters).get()).get(), secret.Span());
    return {parameters, std::move(secret)};
}

PrivateKey PrivateKey::Import(const KeyParameters& parameters, ByteView bytes) {
    StartCrypto();
    RequireSize(bytes, kPrivateKeySize, "The private key");
    SecureBytes secret(bytes);
    const MpiPtr number = SecretNumber(secret);
    if (gcry_mpi_cmp_ui(number.get(), 0) <= 0 ||
        gcry_mpi_cmp(number.get(), SchemeOf(parameters).Order(parameters).get()) >= 0) {
        throw CryptoError(Failure::kBadKey, "The private key is out of range");
    }
    return {parameters, std::move(secret)};
}

PublicKey PrivateKey::DerivePublicKey() const {
    std::vector<std::uint8_t> key(m_parameters->publicKeySize);
    SchemeOf(*m_parameters).DerivePublicKey(*m_parameters, SecretNumber(m_secret).get(), key);
    return {*m_parameters, std::move(key)};
}

Signature PrivateKey::Sign(const Digest& digest) const {
    const KeyScheme& scheme = SchemeOf(*m_parameters);
    const MpiPtr order = scheme.Order(*m_parameters);
    const MpiPtr e = HashNumber(digest, order.get());
    const MpiPtr secret = SecretNumber(m_secret);
    for (;;) {
        const MpiPtr random = RandomScalar(order.get());
        const MpiPtr r = scheme.Commitment(*m_parameters, random.get());
        const MpiPtr s = Response(secret.get(), r.get(), random.get(), e.get(), order.get());
        if (gcry_mpi_cmp_ui(r.get(), 0) == 0 || gcry_mpi_cmp_ui(s.get(), 0) == 0) continue;
        Signature signature;
        MpiToLittleEndian(r.get(), ByteSpan(signature).first(kSignatureSize / 2));
        MpiToLittleEndian(s.get(), ByteSpan(signature).last(kSignatureSize / 2));
        return signature;
    }
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
    const SecureBytes common =
        SchemeOf(*m_parameters).CommonSecret(*m_parameters, SecretNumber(m_secret).get(), peer.Bytes(), ukm);
    Hash hash(hashParameters);
    hash.Update(common);
    return hash.FinishSecret();
}

}  // namespace nalhost::crypto
