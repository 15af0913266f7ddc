// GOST R 34.10-94. Names as in RFC 4357: y = a^x mod p, and a has the prime order q.
#include <algorithm>

#include "host/provider/crypto/immortal.h"
#include "host/provider/crypto/mpi_scheme.h"
#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

constexpr unsigned kOrderBits = 256;
constexpr unsigned kModulusBits = 1024;
constexpr std::size_t kNumberSize = 32;

MpiPtr MpiFromHex(const char* digits) {
    gcry_mpi_t number = nullptr;
    CheckGcrypt(gcry_mpi_scan(&number, GCRYMPI_FMT_HEX, digits, 0, nullptr), "reading a parameter");
    return MpiPtr(number);
}

struct Group {
    explicit Group(const KeyParameters& parameters)
        : p(MpiFromHex(parameters.p)), q(MpiFromHex(parameters.q)), a(MpiFromHex(parameters.a)) {}

    MpiPtr p;
    MpiPtr q;
    MpiPtr a;
};

// base^secret mod p for a base of order q. The exponent gets a random multiple of q, because the time of the power
// depends on the exponent's digits.
MpiPtr BlindedPower(const Group& group, gcry_mpi_t base, gcry_mpi_t secret) {
    SecureBytes random = RandomSecret(8);
    random[7] |= 0x80;
    const MpiPtr exponent = NewMpi(kOrderBits + 65, true);
    gcry_mpi_mul(exponent.get(), MpiFromLittleEndian(random, true).get(), group.q.get());
    gcry_mpi_add(exponent.get(), exponent.get(), secret);
    MpiPtr power = NewMpi(kModulusBits, true);
    gcry_mpi_powm(power.get(), base, exponent.get(), group.p.get());
    return power;
}

class Gost94 final : public MpiScheme {
public:
    bool IsPublicKey(const KeyParameters& parameters, ByteView key) const override {
        const Group group(parameters);
        const MpiPtr y = MpiFromLittleEndian(key, false);
        if (gcry_mpi_cmp_ui(y.get(), 1) <= 0 || gcry_mpi_cmp(y.get(), group.p.get()) >= 0) return false;
        const MpiPtr power = NewMpi(kModulusBits, false);
        gcry_mpi_powm(power.get(), y.get(), group.q.get(), group.p.get());
        return gcry_mpi_cmp_ui(power.get(), 1) == 0;
    }

    bool Verify(const KeyParameters& parameters, ByteView key, const Digest& digest,
                ByteView signature) const override {
        const Group group(parameters);
        const gcry_mpi_t q = group.q.get();
        const MpiPtr r = MpiFromLittleEndian(signature.first(kNumberSize), false);
        const MpiPtr s = MpiFromLittleEndian(signature.last(kNumberSize), false);
        if (!IsInRange(r.get(), q) || !IsInRange(s.get(), q)) return false;

        // v = 1/e, u = (a^(s v) y^((q-r) v) mod p) mod q, and u must be r.
        const MpiPtr v = NewMpi(kOrderBits, false);
        if (!gcry_mpi_invm(v.get(), HashNumber(digest, q).get(), q)) return false;
        const MpiPtr z1 = NewMpi(kOrderBits, false);
        const MpiPtr z2 = NewMpi(kOrderBits, false);
        gcry_mpi_mulm(z1.get(), s.get(), v.get(), q);
        gcry_mpi_sub(z2.get(), q, r.get());
        gcry_mpi_mulm(z2.get(), z2.get(), v.get(), q);
        const MpiPtr u = NewMpi(kModulusBits, false);
        const MpiPtr second = NewMpi(kModulusBits, false);
        gcry_mpi_powm(u.get(), group.a.get(), z1.get(), group.p.get());
        gcry_mpi_powm(second.get(), MpiFromLittleEndian(key, false).get(), z2.get(), group.p.get());
        gcry_mpi_mulm(u.get(), u.get(), second.get(), group.p.get());
        gcry_mpi_mod(u.get(), u.get(), q);
        return gcry_mpi_cmp(u.get(), r.get()) == 0;
    }

protected:
    MpiPtr Order(const KeyParameters& parameters) const override { return MpiFromHex(parameters.q); }

    void DerivePublicKey(const KeyParameters& parameters, gcry_mpi_t secret, ByteSpan key) const override {
        const Group group(parameters);
        MpiToLittleEndian(BlindedPower(group, group.a.get(), secret).get(), key);
    }

    MpiPtr Commitment(const KeyParameters& parameters, gcry_mpi_t secretRandom) const override {
        const Group group(parameters);
        MpiPtr r = BlindedPower(group, group.a.get(), secretRandom);
        gcry_mpi_mod(r.get(), r.get(), group.q.get());
        return r;
    }

    SecureBytes CommonSecret(const KeyParameters& parameters, gcry_mpi_t secret, ByteView peer,
                             ByteView) const override {
        const Group group(parameters);
        SecureBytes common(parameters.publicKeySize);
        MpiToLittleEndian(BlindedPower(group, MpiFromLittleEndian(peer, false).get(), secret).get(), common.Span());
        return common;
    }
};

}  // namespace

const KeyScheme& Gost94Scheme() {
    static Immortal<Gost94> scheme;
    return *scheme;
}

}  // namespace nalhost::crypto
