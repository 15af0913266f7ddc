// The curves' kernels against libgcrypt, on every curve.
#include "host/provider/crypto/curve/curve_kernel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>
#include <tuple>

#include "gcrypt_oracle.h"
#include "host/provider/crypto/curve/key_table_cache.h"
#include "host/provider/crypto/hash.h"
#include "host/provider/crypto/key_scheme.h"

namespace nalhost::crypto::curve {
namespace {

using nal_test::InvertModulo;
using nal_test::Modular;
using nal_test::MultiplyModulo;
using nal_test::Near;
using nal_test::Remainder;

constexpr Number c_zero{};
constexpr Number c_one = {{1, 0, 0, 0}};

bool IsEqual(const PlainPoint& a, const PlainPoint& b) {
    return (IsEqualMask(a.x, b.x) & IsEqualMask(a.y, b.y)) != 0;
}

class CurveKernels : public testing::TestWithParam<const char*> {
protected:
    CurveKernels() : m_oracle(GetParam()) {
        for (const Kernel kernel : {Kernel::kPortable, Kernel::kAvx2}) {
            if (kernel <= ProcessorKernel()) m_kernels.push_back(FindCurveKernel(m_set, kernel));
        }
    }

    const CurveParameters& Curve() const { return m_oracle.Parameters(); }

    Number Scalar() { return Remainder(m_source.Next(), Curve().q); }
    Number NonZero() {
        const Number scalar = Scalar();
        return IsZeroMask(scalar) != 0 ? c_one : scalar;
    }
    Number Product(const Number& a, const Number& b) const { return MultiplyModulo(a, b, Curve().q); }
    Number Minus(const Number& a) const { return Modular(gcry_mpi_subm, c_zero, a, Curve().q); }

    void CheckMultiples(const Number& scalar, const PlainPoint& point) {
        const PlainPoint expected = m_oracle.Multiply(scalar, Curve().generator);
        const PlainPoint expectedOfPoint = m_oracle.Multiply(scalar, point);
        for (const CurveKernel* kernel : m_kernels) {
            const PlainPoint multiple = kernel->MultiplyGenerator(scalar);
            EXPECT_TRUE(IsEqual(expected, multiple));
            EXPECT_TRUE(kernel->IsOnCurve(multiple));
            EXPECT_TRUE(IsEqual(expectedOfPoint, kernel->Multiply(scalar, point)));
        }
    }

    // Whether every kernel, with and without a table, says the same.
    void ExpectVerifies(bool expected, const PlainPoint& point, const Number& e, const Number& r, const Number& s) {
        for (const CurveKernel* kernel : m_kernels) {
            auto table = std::make_unique<KeyTable>();
            kernel->FillTable(point, *table);
            EXPECT_EQ(expected, kernel->Verify(point, e, r, s, nullptr));
            EXPECT_EQ(expected, kernel->Verify(point, e, r, s, table.get())) << "with a table";
        }
    }

    // Verification by its definition.
    bool Verifies(const PlainPoint& point, const Number& e, const Number& r, const Number& s) const {
        const Number inverse = InvertModulo(e, Curve().q);
        PlainPoint c{};
        return m_oracle.Combine(Product(s, inverse), Curve().generator, Product(Minus(r), inverse), point, c) &&
               IsEqualMask(Remainder(c.x, Curve().q), r) != 0;
    }

    const KeyParameters& m_set = *FindKeyParameters(GetParam());
    nal_test::CurveOracle m_oracle;
    nal_test::NumberSource m_source;
    std::vector<const CurveKernel*> m_kernels;
};

INSTANTIATE_TEST_SUITE_P(Curves, CurveKernels,
                         testing::Values("1.2.643.2.2.35.0", "1.2.643.2.2.35.1", "1.2.643.2.2.35.2", "1.2.643.2.2.35.3",
                                         "1.2.643.2.2.36.0", "1.2.643.2.2.36.1"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

TEST_P(CurveKernels, MultiplyAndVerifyLikeTheReference) {
    PlainPoint point = Curve().generator;
    for (int i = nal_test::CaseCount(250); i > 0 && !HasFailure(); --i) {
        const Number d = NonZero();
        CheckMultiples(d, point);
        point = m_oracle.Multiply(d, Curve().generator);
        const Number k = NonZero();
        const Number e = NonZero();
        const Number r = Remainder(m_kernels[0]->MultiplyGenerator(k).x, Curve().q);
        const Number s = m_kernels[0]->CombineScalars(d, r, k, e);
        EXPECT_TRUE(IsEqualMask(s, Modular(gcry_mpi_addm, Product(d, r), Product(k, e), Curve().q)) != 0);
        ASSERT_TRUE(Verifies(point, e, r, s));
        ExpectVerifies(true, point, e, r, s);
        ExpectVerifies(false, point, e, r, NonZero());
        ExpectVerifies(false, point, NonZero(), r, s);
        ExpectVerifies(false, point, e, NonZero(), s);
    }
}

// Zeros, the largest scalars, and sums just below the order, equal to it and just above.
TEST_P(CurveKernels, CombineExtremeScalars) {
    const Number& q = Curve().q;
    const Number half = Product(InvertModulo(Near(c_zero, 2), q), Near(q, -1));  // (q - 1) / 2
    const Number scalars[] = {c_zero, c_one, Near(c_zero, 2), half, Near(half, 1), Near(q, -2), Near(q, -1)};
    for (int i = 0; i < 7 * 7 * 7 * 7 && !HasFailure(); ++i) {
        const auto [a, b, c, d] = std::tie(scalars[i % 7], scalars[i / 7 % 7], scalars[i / 49 % 7], scalars[i / 343]);
        const Number expected = Modular(gcry_mpi_addm, Product(a, b), Product(c, d), q);
        for (const CurveKernel* kernel : m_kernels)
            EXPECT_NE(Limb{0}, IsEqualMask(expected, kernel->CombineScalars(a, b, c, d))) << i;
    }
}

// Small scalars, those near the order, powers of two, and those for which the last addition meets equal points.
TEST_P(CurveKernels, MultiplyByExtremeScalars) {
    const PlainPoint point = m_oracle.Multiply(NonZero(), Curve().generator);
    std::vector<Number> scalars;
    for (int i = 1; i <= 70; ++i) {
        scalars.push_back(Near(c_zero, i));
        scalars.push_back(Near(Curve().q, -i));
    }
    for (int bit = 6; bit < 255; ++bit) {
        Number power{};
        power.limb[bit / 64] = Limb{1} << (bit % 64);
        scalars.push_back(power);
        if (bit % 10 < 3) scalars.push_back(Near(power, -1));
    }
    for (Limb i = 1; i < 16; ++i) {
        const Number highest = {{0, 0, 0, i << 60}};
        scalars.push_back(Modular(gcry_mpi_addm, highest, highest, Curve().q));
        scalars.push_back(Near(scalars.back(), 1));
    }
    for (const Number& scalar : nal_test::SomeOf(scalars)) {
        if (IsZeroMask(scalar) == 0) CheckMultiples(scalar, point);
        if (HasFailure()) return;
    }
}

TEST_P(CurveKernels, KnowScalarsAndPointsOfTheirCurve) {
    const Number ones = {{~Limb{0}, ~Limb{0}, ~Limb{0}, ~Limb{0}}};
    const PlainPoint& g = Curve().generator;
    for (const CurveKernel* kernel : m_kernels) {
        EXPECT_FALSE(kernel->IsScalar(c_zero));
        EXPECT_TRUE(kernel->IsScalar(c_one));
        EXPECT_TRUE(kernel->IsScalar(Near(Curve().q, -1)));
        EXPECT_FALSE(kernel->IsScalar(Curve().q));
        EXPECT_FALSE(kernel->IsScalar(ones));
        for (const Number& number : {c_zero, c_one, Near(Curve().q, -1), Curve().q, Near(Curve().q, 1), ones}) {
            EXPECT_NE(Limb{0}, IsEqualMask(Remainder(number, Curve().q), kernel->ReduceScalar(number)));
            for (const Number& high : {c_zero, c_one, Near(Curve().q, -1), Curve().q, ones}) {
                // 2^256 is ones + 1.
                const Number above = Modular(gcry_mpi_addm, Product(high, ones), high, Curve().q);
                EXPECT_NE(Limb{0}, IsEqualMask(Modular(gcry_mpi_addm, number, above, Curve().q),
                                               kernel->ReduceWide(number, high)));
            }
        }
        EXPECT_TRUE(kernel->IsOnCurve(g));
        EXPECT_FALSE(kernel->IsOnCurve({c_zero, c_zero}));
        EXPECT_FALSE(kernel->IsOnCurve({g.x, Near(g.y, 1)}));
        EXPECT_FALSE(kernel->IsOnCurve({ones, g.y}));
        // The same residues, but not below p, as far as 256 bits hold them.
        for (const Number& coordinate : {g.x, g.y}) {
            Number outside = coordinate;
            unsigned __int128 carry = 0;
            for (int i = 0; i < 4; ++i) {
                carry += static_cast<unsigned __int128>(coordinate.limb[i]) + Curve().p.limb[i];
                outside.limb[i] = static_cast<Limb>(carry);
                carry >>= 64;
            }
            if (carry == 0) {
                EXPECT_FALSE(
                    kernel->IsOnCurve(&coordinate == &g.x ? PlainPoint{outside, g.y} : PlainPoint{g.x, outside}));
            }
        }
    }
}

// Keys that are small multiples of the generator or opposite to them: the sums of verification meet equal points,
// opposite ones and the one at infinity.
TEST_P(CurveKernels, VerifyWhereOperandsMeet) {
    std::vector<Number> keys;
    for (int i = 1; i < 20; ++i) {
        keys.push_back(Near(c_zero, i));
        keys.push_back(Near(Curve().q, -i));
    }
    for (const int bit : {29, 30, 31, 60, 251}) {
        Number power{};
        power.limb[bit / 64] = Limb{1} << (bit % 64);
        keys.push_back(power);
        keys.push_back(Minus(power));
    }
    for (const Number& d : nal_test::SomeOf(keys)) {
        const PlainPoint point = m_oracle.Multiply(d, Curve().generator);
        for (const int small : {1, 3, 17, 100}) {
            const Number k = Near(c_zero, small);
            for (const Number& e : {c_one, Near(Curve().q, -1), NonZero()}) {
                const Number r = Remainder(m_oracle.Multiply(k, Curve().generator).x, Curve().q);
                if (IsZeroMask(r) != 0) continue;  // curve C's generator has x = 0
                const Number s = Modular(gcry_mpi_addm, Product(d, r), Product(k, e), Curve().q);
                ExpectVerifies(IsZeroMask(s) == 0, point, e, r, s);
                // s = d r gives the point at infinity, which has no x.
                ExpectVerifies(false, point, e, r, Product(d, r));
                ExpectVerifies(Verifies(point, e, k, c_one), point, e, k, c_one);
            }
        }
        if (HasFailure()) return;
    }
}

TEST_P(CurveKernels, RefuseSignaturesOutOfRange) {
    const Number d = NonZero();
    const PlainPoint point = m_oracle.Multiply(d, Curve().generator);
    const Number ones = {{~Limb{0}, ~Limb{0}, ~Limb{0}, ~Limb{0}}};
    for (const Number& bad : {c_zero, Curve().q, Near(Curve().q, 1), ones}) {
        ExpectVerifies(false, point, c_one, bad, c_one);
        ExpectVerifies(false, point, c_one, c_one, bad);
    }
    // With k = 1 the point has x = g.x. An r counts for it neither when r or r + q is x + p (r on the test set and B,
    // else r + q) nor when r + q is x + 2^256.
    const Number residues[] = {Modular(gcry_mpi_addm, Curve().p, Curve().generator.x, Curve().q),
                               Modular(gcry_mpi_addm, ones, Near(Curve().generator.x, 1), Curve().q)};
    for (const Number& r : residues) {
        const Number s = Modular(gcry_mpi_addm, Product(d, r), c_one, Curve().q);
        ExpectVerifies(false, point, c_one, r, s);
    }
}

// An x from q to p stands in the signature as x - q. No private key leads there: the public key is computed from the
// point.
TEST_P(CurveKernels, VerifyAnXAboveTheOrder) {
    const Number& p = Curve().p;
    const Number& q = Curve().q;
    if (IsEqualMask(Remainder(q, p), q) == 0 || p.limb[0] % 4 != 3) return;
    Number exponent = Near(p, 1);
    for (int i = 0; i < 2; ++i)
        exponent = {{exponent.limb[0] >> 1 | exponent.limb[1] << 63, exponent.limb[1] >> 1 | exponent.limb[2] << 63,
                     exponent.limb[2] >> 1 | exponent.limb[3] << 63, exponent.limb[3] >> 1}};
    int found = 0;
    for (int small = 1; small < 60; ++small) {
        const Number x = Near(q, small);
        Number right = Modular(gcry_mpi_addm, MultiplyModulo(x, x, p), Curve().a, p);
        right = Modular(gcry_mpi_addm, MultiplyModulo(right, x, p), Curve().b, p);
        const PlainPoint c = {x, Modular(gcry_mpi_powm, right, exponent, p)};
        if (!m_kernels[0]->IsOnCurve(c)) continue;
        ++found;
        const Number e = NonZero();
        const Number s = NonZero();
        const Number r = Near(c_zero, small);
        const Number inverse = InvertModulo(r, q);
        PlainPoint key{};
        ASSERT_TRUE(m_oracle.Combine(Product(s, inverse), Curve().generator, Minus(Product(e, inverse)), c, key));
        ASSERT_TRUE(Verifies(key, e, r, s));
        ExpectVerifies(true, key, e, r, s);
        ExpectVerifies(false, key, e, Near(r, 1), s);
    }
    EXPECT_GT(found, 10);
}

// What the provider calls: each kernel's scheme verifies the others' signatures and agrees on the same keys.
TEST_P(CurveKernels, WorkWithEachOthersKeys) {
    std::vector<const KeyScheme*> schemes;
    for (const Kernel kernel : {Kernel::kReference, Kernel::kPortable, Kernel::kAvx2}) {
        if (kernel <= ProcessorKernel()) schemes.push_back(&Gost2001Scheme(kernel));
    }
    for (int i = 0; i < 20; ++i) {
        const Digest digest = Hash::Of(ByteView(reinterpret_cast<const std::uint8_t*>(&i), sizeof i));
        const std::uint8_t ukm[8] = {1, 2, 3, 4, 5, 6, 7, static_cast<std::uint8_t>(i)};
        for (const KeyScheme* one : schemes) {
            const SecureBytes secret = one->GeneratePrivateKey(m_set);
            std::uint8_t key[64];
            one->DerivePublicKey(m_set, secret, key);
            const Signature signature = one->Sign(m_set, secret, digest);
            const SecureBytes common = one->CommonSecret(m_set, secret, key, ukm);
            for (const KeyScheme* other : schemes) {
                std::uint8_t same[64];
                other->DerivePublicKey(m_set, secret, same);
                EXPECT_TRUE(std::equal(key, key + sizeof key, same));
                EXPECT_TRUE(other->IsPrivateKey(m_set, secret) && other->IsPublicKey(m_set, key));
                EXPECT_TRUE(other->Verify(m_set, key, digest, signature));
                EXPECT_FALSE(other->Verify(m_set, key, Digest{}, signature));
                EXPECT_TRUE(ConstantTimeEqual(common, other->CommonSecret(m_set, secret, key, ukm)));
            }
        }
    }
}

// Sets of one curve share its kernel, and no others do.
TEST(Curves, AreSharedBySetsOfTheSameCurve) {
    for (const KeyParameters& one : AllKeyParameters()) {
        for (const KeyParameters& other : AllKeyParameters()) {
            if (one.algorithm != KeyAlgorithm::kGost2001 || other.algorithm != KeyAlgorithm::kGost2001) continue;
            const CurveParameters a = LoadCurveParameters(one.oid);
            const CurveParameters b = LoadCurveParameters(other.oid);
            const KeyParameters copy = other;
            EXPECT_EQ(memcmp(&a, &b, sizeof a) == 0,
                      FindCurveKernel(one, Kernel::kPortable) == FindCurveKernel(copy, Kernel::kPortable))
                << one.oid << " " << other.oid;
        }
    }
}

class KeyTables : public testing::Test {
protected:
    PlainPoint Point(Limb number) const { return m_kernel.MultiplyGenerator({{number, 0, 0, 0}}); }
    bool HasTable(const PlainPoint& point) { return m_cache.Find(m_kernel, point) != nullptr; }

    const CurveKernel& m_kernel = *FindCurveKernel(*FindKeyParameters("1.2.643.2.2.35.2"), Kernel::kPortable);
    KeyTableCache m_cache;
};

TEST_F(KeyTables, AreMadeAtTheSecondSuccessAndOutlastAFloodOfOtherKeys) {
    const PlainPoint issuer = Point(1);
    for (int i = 0; i < 2; ++i) {
        EXPECT_FALSE(HasTable(issuer) || HasTable(issuer)) << "made by looking";
        m_cache.AddSuccess(m_kernel, issuer);
    }
    const auto table = m_cache.Find(m_kernel, issuer);
    ASSERT_NE(nullptr, table);
    KeyTable expected;
    m_kernel.FillTable(issuer, expected);
    EXPECT_EQ(0, memcmp(&expected, table.get(), sizeof expected));
    // The same numbers on another curve are another key.
    const CurveKernel& other = *FindCurveKernel(*FindKeyParameters("1.2.643.2.2.35.1"), Kernel::kPortable);
    EXPECT_EQ(nullptr, m_cache.Find(other, issuer));

    for (Limb i = 2; i < 2 * KeyTableCache::kSightings; ++i) {
        m_cache.AddSuccess(m_kernel, Point(i));
        EXPECT_FALSE(HasTable(Point(i)));
    }
    EXPECT_EQ(table, m_cache.Find(m_kernel, issuer));

    // Of keys that come twice, the one that verified longest ago gives way; the table in hand stays good.
    auto addTwice = [&](Limb first, std::size_t count) {
        for (Limb i = first; i < first + count; ++i) {
            m_cache.AddSuccess(m_kernel, Point(i));
            m_cache.AddSuccess(m_kernel, Point(i));
        }
    };
    addTwice(1000, KeyTableCache::kTables - 1);
    m_cache.AddSuccess(m_kernel, issuer);
    addTwice(2000, 1);
    EXPECT_TRUE(HasTable(issuer) && HasTable(Point(2000)) && HasTable(Point(1001)));
    EXPECT_FALSE(HasTable(Point(1000)));
    addTwice(3000, KeyTableCache::kTables);
    EXPECT_FALSE(HasTable(issuer));
    EXPECT_EQ(0, memcmp(&expected, table.get(), sizeof expected));
}

// A signature that does not hold teaches the cache nothing.
TEST_F(KeyTables, AreNotMadeForBadSignatures) {
    const KeyParameters& set = *FindKeyParameters("1.2.643.2.2.35.2");
    const KeyScheme& scheme = Gost2001Scheme(Kernel::kPortable);
    const SecureBytes secret = scheme.GeneratePrivateKey(set);
    std::uint8_t key[64];
    scheme.DerivePublicKey(set, secret, key);
    const Signature good = scheme.Sign(set, secret, Digest{});
    Signature bad = good;
    bad[40] ^= 1;
    const PlainPoint point = {LoadNumber(key), LoadNumber(key + 32)};
    auto hasTable = [&] { return KeyTableCache::OfProcess().Find(m_kernel, point) != nullptr; };
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(scheme.Verify(set, key, Digest{}, bad) || scheme.Verify(set, key, Digest{}, Signature{}));
    EXPECT_TRUE(scheme.Verify(set, key, Digest{}, good));
    EXPECT_FALSE(scheme.Verify(set, key, Digest{}, bad) || hasTable());
    EXPECT_TRUE(scheme.Verify(set, key, Digest{}, good) && hasTable());
    EXPECT_TRUE(scheme.Verify(set, key, Digest{}, good));
    EXPECT_FALSE(scheme.Verify(set, key, Digest{}, bad));
}

TEST_F(KeyTables, ServeSeveralThreads) {
    constexpr std::size_t count = KeyTableCache::kTables + 20;
    std::vector<PlainPoint> points;
    std::vector<KeyTable> expected(count);
    for (std::size_t i = 0; i < count; ++i) {
        points.push_back(Point(i + 1));
        m_kernel.FillTable(points[i], expected[i]);
    }
    std::vector<std::thread> threads;
    std::array<int, 4> tables{};
    std::array<int, 4> wrong{};
    for (std::size_t thread = 0; thread < tables.size(); ++thread) {
        threads.emplace_back([&, thread] {
            for (std::size_t round = 0; round < 3 * count; ++round) {
                // Some keys come again and again, and all in turn.
                const std::size_t i = round % 2 == 0 ? round / 2 % 10 : round * 7 % count;
                m_cache.AddSuccess(m_kernel, points[i]);
                const auto table = m_cache.Find(m_kernel, points[i]);
                tables[thread] += table != nullptr;
                wrong[thread] += table && memcmp(table.get(), &expected[i], sizeof expected[i]) != 0;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const int number : tables)
        EXPECT_GT(number, 100);
    EXPECT_EQ((std::array<int, 4>{}), wrong);
}

// The generator's table is made at the first use, whichever thread that is.
TEST(Curves, ServeSeveralThreadsFromTheFirstUse) {
    StartCrypto();
    const CurveParameters parameters = LoadCurveParameters("1.2.643.2.2.35.3");
    for (int round = 0; round < 20; ++round) {
        const auto kernel = MakePortableCurveKernel(parameters);
        std::array<PlainPoint, 4> results{};
        std::vector<std::thread> threads;
        threads.reserve(results.size());
        for (PlainPoint& result : results)
            threads.emplace_back([&] { result = kernel->MultiplyGenerator(c_one); });
        for (std::thread& thread : threads)
            thread.join();
        for (const PlainPoint& result : results)
            EXPECT_TRUE(IsEqual(parameters.generator, result));
    }
}

}  // namespace
}  // namespace nalhost::crypto::curve
