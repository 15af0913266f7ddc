// GOST R 34.10-2001 by libgcrypt: the reference that the kernels are held to, and what serves where none can. A curve
// context serves one operation: libgcrypt's contexts are not to be shared by threads.
#include <algorithm>
#include <array>

#include "host/provider/crypto/curve_scheme.h"
#include "host/provider/crypto/immortal.h"
#include "host/provider/crypto/mpi_scheme.h"

namespace nalhost::crypto {
namespace {

constexpr std::size_t kCoordinateSize = 32;

struct Curve {
    ContextPtr context;
    MpiPtr p;
    MpiPtr n;
};

Curve OpenCurve(const KeyParameters& parameters) {
    gcry_ctx_t context = nullptr;
    CheckGcrypt(gcry_mpi_ec_new(&context, nullptr, parameters.oid), "opening a curve");
    Curve curve{ContextPtr(context), nullptr, nullptr};
    curve.p.reset(gcry_mpi_ec_get_mpi("p", context, 1));
    curve.n.reset(gcry_mpi_ec_get_mpi("n", context, 1));
    if (!curve.p || !curve.n) throw CryptoError(Failure::kInternal, "a curve without parameters");
    return curve;
}

PointPtr NewPoint() {
    return PointPtr(gcry_mpi_point_new(0));
}

// The same multiple of a point by a scalar whose length is always that of n and one bit more, so that the time of the
// multiplication does not tell how many leading zeros the secret has.
MpiPtr FixLength(gcry_mpi_t secret, gcry_mpi_t n) {
    const unsigned bits = gcry_mpi_get_nbits(n);
    std::array<MpiPtr, 2> candidates = {NewMpi(bits + 2, true), NewMpi(bits + 2, true)};
    gcry_mpi_add(candidates[0].get(), secret, n);
    gcry_mpi_add(candidates[1].get(), candidates[0].get(), n);
    const bool second = gcry_mpi_get_nbits(candidates[0].get()) <= bits;
    return std::move(candidates[second]);
}

// X and Y of secret * point (the generator when null). False for the point at infinity.
bool Multiply(const Curve& curve, gcry_mpi_t secret, gcry_mpi_point_t point, bool resultIsSecret, ByteSpan out) {
    PointPtr generator;
    if (!point) {
        generator.reset(gcry_mpi_ec_get_point("g", curve.context.get(), 1));
        point = generator.get();
    }
    const PointPtr product = NewPoint();
    const MpiPtr scalar = FixLength(secret, curve.n.get());
    gcry_mpi_ec_mul(product.get(), scalar.get(), point, curve.context.get());
    const MpiPtr x = NewMpi(8 * kCoordinateSize, resultIsSecret);
    const MpiPtr y = NewMpi(8 * kCoordinateSize, resultIsSecret);
    if (gcry_mpi_ec_get_affine(x.get(), y.get(), product.get(), curve.context.get()) != 0) return false;
    MpiToLittleEndian(x.get(), out.first(kCoordinateSize));
    MpiToLittleEndian(y.get(), out.last(kCoordinateSize));
    return true;
}

PointPtr PointFromKey(ByteView key) {
    const MpiPtr x = MpiFromLittleEndian(key.first(kCoordinateSize), false);
    const MpiPtr y = MpiFromLittleEndian(key.last(kCoordinateSize), false);
    const MpiPtr z(gcry_mpi_set_ui(nullptr, 1));
    PointPtr point = NewPoint();
    gcry_mpi_point_set(point.get(), x.get(), y.get(), z.get());
    return point;
}

template <typename... Arguments>
SexpPtr BuildSexp(const char* format, Arguments... arguments) {
    gcry_sexp_t expression = nullptr;
    CheckGcrypt(gcry_sexp_build(&expression, nullptr, format, arguments...), "building an expression");
    return SexpPtr(expression);
}

// Only this form of the hash is safe: (flags gost raw)(hash ...) takes any hash for the number 1.
SexpPtr HashExpression(const Digest& digest) {
    std::array<std::uint8_t, kDigestSize> number;
    std::reverse_copy(digest.begin(), digest.end(), number.begin());
    return BuildSexp("(data(flags gost)(value %b))", static_cast<int>(number.size()), number.data());
}

class Gost2001 final : public MpiScheme {
public:
    bool IsPublicKey(const KeyParameters& parameters, ByteView key) const override {
        const Curve curve = OpenCurve(parameters);
        for (const ByteView coordinate : {key.first(kCoordinateSize), key.last(kCoordinateSize)}) {
            if (gcry_mpi_cmp(MpiFromLittleEndian(coordinate, false).get(), curve.p.get()) >= 0) return false;
        }
        return gcry_mpi_ec_curve_point(PointFromKey(key).get(), curve.context.get()) != 0;
    }

    bool Verify(const KeyParameters& parameters, ByteView key, const Digest& digest,
                ByteView signature) const override {
        std::array<std::uint8_t, 1 + 2 * kCoordinateSize> point;
        point[0] = 4;
        std::reverse_copy(key.begin(), key.begin() + kCoordinateSize, point.begin() + 1);
        std::reverse_copy(key.begin() + kCoordinateSize, key.end(), point.begin() + 1 + kCoordinateSize);
        const SexpPtr publicKey = BuildSexp("(public-key(ecc(curve %s)(flags gost)(q %b)))", parameters.oid,
                                            static_cast<int>(point.size()), point.data());
        const MpiPtr r = MpiFromLittleEndian(signature.first(kCoordinateSize), false);
        const MpiPtr s = MpiFromLittleEndian(signature.last(kCoordinateSize), false);
        const SexpPtr expression = BuildSexp("(sig-val(gost(r %m)(s %m)))", r.get(), s.get());
        const gcry_error_t result = gcry_pk_verify(expression.get(), HashExpression(digest).get(), publicKey.get());
        if (gcry_err_code(result) == GPG_ERR_BAD_SIGNATURE) return false;
        CheckGcrypt(result, "verifying a signature");
        return true;
    }

protected:
    MpiPtr Order(const KeyParameters& parameters) const override { return std::move(OpenCurve(parameters).n); }

    void DerivePublicKey(const KeyParameters& parameters, gcry_mpi_t secret, ByteSpan key) const override {
        if (!Multiply(OpenCurve(parameters), secret, nullptr, false, key)) {
            throw CryptoError(Failure::kInternal, "a private key in range has no public key");
        }
    }

    // Not by gcry_pk_sign: it copies the private key into ordinary memory and does not wipe it there.
    MpiPtr Commitment(const KeyParameters& parameters, gcry_mpi_t secretRandom) const override {
        const Curve curve = OpenCurve(parameters);
        std::array<std::uint8_t, 2 * kCoordinateSize> point;
        if (!Multiply(curve, secretRandom, nullptr, false, point)) {
            throw CryptoError(Failure::kInternal, "a random number in range gives no point");
        }
        MpiPtr r = MpiFromLittleEndian(ByteView(point).first(kCoordinateSize), false);
        gcry_mpi_mod(r.get(), r.get(), curve.n.get());
        return r;
    }

    SecureBytes CommonSecret(const KeyParameters& parameters, gcry_mpi_t secret, ByteView peer,
                             ByteView ukm) const override {
        const Curve curve = OpenCurve(parameters);
        const MpiPtr scalar = NewMpi(8 * kPrivateKeySize, true);
        gcry_mpi_mulm(scalar.get(), MpiFromLittleEndian(ukm, true).get(), secret, curve.n.get());
        SecureBytes common(2 * kCoordinateSize);
        if (!Multiply(curve, scalar.get(), PointFromKey(peer).get(), true, common.Span())) {
            throw CryptoError(Failure::kBadKey, "The agreement gives the point at infinity");
        }
        return common;
    }
};

}  // namespace

const KeyScheme& Gost2001Scheme(Kernel kernel) {
    static Immortal<Gost2001> reference;
    static Immortal<CurveScheme> portable(Kernel::kPortable);
    static Immortal<CurveScheme> mulx(Kernel::kAvx2);
    if (kernel == Kernel::kReference || !curve::HasCurveKernels()) return *reference;
    return kernel == Kernel::kPortable ? *portable : *mulx;
}

}  // namespace nalhost::crypto
