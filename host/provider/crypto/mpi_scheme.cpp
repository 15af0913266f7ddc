#include "host/provider/crypto/mpi_scheme.h"

#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

MpiPtr SecretNumber(ByteView secret) {
    return MpiFromLittleEndian(secret, true);
}

bool IsInRange(gcry_mpi_t number, gcry_mpi_t order) {
    return gcry_mpi_cmp_ui(number, 0) > 0 && gcry_mpi_cmp(number, order) < 0;
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
        if (IsInRange(number.get(), order)) return number;
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

SecureBytes MpiScheme::GeneratePrivateKey(const KeyParameters& parameters) const {
    SecureBytes secret(kPrivateKeySize);
    MpiToLittleEndian(RandomScalar(Order(parameters).get()).get(), secret.Span());
    return secret;
}

bool MpiScheme::IsPrivateKey(const KeyParameters& parameters, ByteView secret) const {
    return IsInRange(SecretNumber(secret).get(), Order(parameters).get());
}

void MpiScheme::DerivePublicKey(const KeyParameters& parameters, ByteView secret, ByteSpan key) const {
    DerivePublicKey(parameters, SecretNumber(secret).get(), key);
}

Signature MpiScheme::Sign(const KeyParameters& parameters, ByteView secret, const Digest& digest) const {
    const MpiPtr order = Order(parameters);
    const MpiPtr e = HashNumber(digest, order.get());
    const MpiPtr number = SecretNumber(secret);
    for (;;) {
        const MpiPtr random = RandomScalar(order.get());
        const MpiPtr r = Commitment(parameters, random.get());
        const MpiPtr s = Response(number.get(), r.get(), random.get(), e.get(), order.get());
        if (gcry_mpi_cmp_ui(r.get(), 0) == 0 || gcry_mpi_cmp_ui(s.get(), 0) == 0) continue;
        Signature signature;
        MpiToLittleEndian(r.get(), ByteSpan(signature).first(kSignatureSize / 2));
        MpiToLittleEndian(s.get(), ByteSpan(signature).last(kSignatureSize / 2));
        return signature;
    }
}

SecureBytes MpiScheme::CommonSecret(const KeyParameters& parameters, ByteView secret, ByteView peer,
                                    ByteView ukm) const {
    return CommonSecret(parameters, SecretNumber(secret).get(), peer, ukm);
}

}  // namespace nalhost::crypto
