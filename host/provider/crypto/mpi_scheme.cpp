#include "host/provider/crypto/mpi_scheme.h"

#include "host/provider/crypto/curve/arithmetic_portable.h"
#include "host/provider/crypto/curve/scalar_arithmetic.h"
#include "host/provider/crypto/nonce.h"
#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

using curve::LoadNumber;
using curve::Number;

MpiPtr SecretNumber(ByteView secret) {
    return MpiFromLittleEndian(secret, true);
}

Number PublicNumber(gcry_mpi_t number) {
    std::uint8_t bytes[curve::kNumberSize];
    MpiToLittleEndian(number, bytes);
    return LoadNumber(bytes);
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

}  // namespace

bool IsInRange(gcry_mpi_t number, gcry_mpi_t order) {
    return gcry_mpi_cmp_ui(number, 0) > 0 && gcry_mpi_cmp(number, order) < 0;
}

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

// The sums with secrets are not libgcrypt's work: its products take longer for longer numbers.
Signature MpiScheme::Sign(const KeyParameters& parameters, ByteView secret, const Digest& digest) const {
    const MpiPtr order = Order(parameters);
    const Number e = PublicNumber(HashNumber(digest, order.get()).get());
    const curve::ScalarArithmetic<curve::Portable> scalars(PublicNumber(order.get()));
    for (;;) {
        const SecureBytes seed = MakeNonceSeed(scalars.Order(), secret, e);
        SecureBytes nonce(curve::kNumberSize);
        WithWipedStack([&] {
            const Number high = LoadNumber(seed.data() + curve::kNumberSize);
            StoreNumber(scalars.ReduceWide(LoadNumber(seed.data()), high), nonce.data());
        });
        const MpiPtr random = SecretNumber(nonce);
        if (gcry_mpi_cmp_ui(random.get(), 0) == 0) continue;
        const Number r = PublicNumber(Commitment(parameters, random.get()).get());
        Number s{};
        WithWipedStack([&] { s = scalars.Combine(LoadNumber(secret.data()), r, LoadNumber(nonce.data()), e); });
        if ((curve::IsZeroMask(r) | curve::IsZeroMask(s)) != 0) continue;
        Signature signature;
        StoreNumber(r, signature.data());
        StoreNumber(s, signature.data() + curve::kNumberSize);
        return signature;
    }
}

SecureBytes MpiScheme::CommonSecret(const KeyParameters& parameters, ByteView secret, ByteView peer,
                                    ByteView ukm) const {
    return CommonSecret(parameters, SecretNumber(secret).get(), peer, ukm);
}

}  // namespace nalhost::crypto
