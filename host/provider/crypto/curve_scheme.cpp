#include "host/provider/crypto/curve_scheme.h"

#include <algorithm>

#include "host/provider/crypto/curve/key_table_cache.h"
#include "host/provider/crypto/nonce.h"
#include "host/provider/crypto/random.h"
#include "host/provider/crypto/secret_marks.h"

namespace nalhost::crypto {
namespace {

using curve::CurveKernel;
using curve::kNumberSize;
using curve::LoadNumber;
using curve::Number;
using curve::PlainPoint;
using curve::StoreNumber;

PlainPoint LoadPoint(ByteView key) {
    return {LoadNumber(key.data()), LoadNumber(key.data() + kNumberSize)};
}

void StorePoint(const PlainPoint& point, ByteSpan key) {
    StoreNumber(point.x, key.data());
    StoreNumber(point.y, key.data() + kNumberSize);
}

bool IsZero(const Number& number) {
    return curve::IsZeroMask(number) != 0;
}

bool IsScalar(const CurveKernel& kernel, const Number& secret) {
    curve::Mask isScalar = kernel.IsScalar(secret);
    MarkPublic(&isScalar, sizeof isScalar);
    return isScalar != 0;
}

// A private key: random in 1..q-1. At most every second candidate is refused; that one was tells nothing of the next.
Number RandomScalar(const CurveKernel& kernel) {
    for (;;) {
        std::uint8_t bytes[kNumberSize];
        FillRandom(bytes);
        MarkSecret(bytes, sizeof bytes);
        const Number candidate = LoadNumber(bytes);
        if (IsScalar(kernel, candidate)) return candidate;
    }
}

// The digest as signatures take it: modulo the order, and never 0.
Number HashNumber(const CurveKernel& kernel, const Digest& digest) {
    const Number number = kernel.ReduceScalar(LoadNumber(digest.data()));
    return IsZero(number) ? Number{{1, 0, 0, 0}} : number;
}

}  // namespace

const CurveKernel& CurveScheme::KernelOf(const KeyParameters& parameters) const {
    return *curve::FindCurveKernel(parameters, m_kernel);
}

SecureBytes CurveScheme::GeneratePrivateKey(const KeyParameters& parameters) const {
    SecureBytes secret(kPrivateKeySize);
    WithWipedStack([&] { StoreNumber(RandomScalar(KernelOf(parameters)), secret.data()); });
    return secret;
}

bool CurveScheme::IsPrivateKey(const KeyParameters& parameters, ByteView secret) const {
    bool isPrivateKey = false;
    WithWipedStack([&] { isPrivateKey = IsScalar(KernelOf(parameters), LoadNumber(secret.data())); });
    return isPrivateKey;
}

bool CurveScheme::IsPublicKey(const KeyParameters& parameters, ByteView key) const {
    return KernelOf(parameters).IsOnCurve(LoadPoint(key));
}

void CurveScheme::DerivePublicKey(const KeyParameters& parameters, ByteView secret, ByteSpan key) const {
    WithWipedStack([&] { StorePoint(KernelOf(parameters).MultiplyGenerator(LoadNumber(secret.data())), key); });
    MarkPublic(key.data(), key.size());
}

// Source: RFC 5832 section 6.1.
Signature CurveScheme::Sign(const KeyParameters& parameters, ByteView secret, const Digest& digest) const {
    const CurveKernel& kernel = KernelOf(parameters);
    Signature signature;
    WithWipedStack([&] {
        const Number e = HashNumber(kernel, digest);
        for (;;) {
            const SecureBytes seed = MakeNonceSeed(kernel.Parameters().q, secret, e);
            const Number nonce = kernel.ReduceWide(LoadNumber(seed.data()), LoadNumber(seed.data() + kNumberSize));
            if (!IsScalar(kernel, nonce)) continue;
            Number r = kernel.ReduceScalar(kernel.MultiplyGenerator(nonce).x);
            MarkPublic(&r, sizeof r);
            Number s = kernel.CombineScalars(LoadNumber(secret.data()), r, nonce, e);
            MarkPublic(&s, sizeof s);
            if (IsZero(r) || IsZero(s)) continue;
            StoreNumber(r, signature.data());
            StoreNumber(s, signature.data() + kNumberSize);
            return;
        }
    });
    return signature;
}

bool CurveScheme::Verify(const KeyParameters& parameters, ByteView key, const Digest& digest,
                         ByteView signature) const {
    const CurveKernel& kernel = KernelOf(parameters);
    const PlainPoint point = LoadPoint(key);
    curve::KeyTableCache& cache = curve::KeyTableCache::OfProcess();
    const auto table = cache.Find(kernel, point);
    const bool holds = kernel.Verify(point, HashNumber(kernel, digest), LoadNumber(signature.data()),
                                     LoadNumber(signature.data() + kNumberSize), table.get());
    if (holds) cache.AddSuccess(kernel, point);
    return holds;
}

// Source: RFC 4357 section 5.2. The UKM is not zero, so neither is the scalar, and the point is finite.
SecureBytes CurveScheme::CommonSecret(const KeyParameters& parameters, ByteView secret, ByteView peer,
                                      ByteView ukm) const {
    const CurveKernel& kernel = KernelOf(parameters);
    SecureBytes common(2 * kNumberSize);
    WithWipedStack([&] {
        std::uint8_t factor[kNumberSize] = {};
        std::copy(ukm.begin(), ukm.end(), factor);
        const Number zero{};
        const Number scalar = kernel.CombineScalars(LoadNumber(factor), LoadNumber(secret.data()), zero, zero);
        StorePoint(kernel.Multiply(scalar, LoadPoint(peer)), common.Span());
    });
    // The hash reads tables at places that depend on what it hashes.
    MarkPublic(common.data(), common.size());
    return common;
}

}  // namespace nalhost::crypto
