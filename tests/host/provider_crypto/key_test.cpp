#include "host/provider/crypto/key.h"

#include <gcrypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <thread>

#include "gcrypt_oracle.h"
#include "host/provider/crypto/error.h"
#include "host/provider/crypto/random.h"
#include "support/hex.h"
#include "support/paths.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::FromHex;
using nal_test::Reversed;
using nal_test::Text;

template <typename Action>
Failure FailureOf(Action action) {
    try {
        action();
    } catch (const CryptoError& error) {
        return error.Kind();
    }
    ADD_FAILURE() << "nothing was refused";
    return Failure::kInternal;
}

Bytes Concatenate(Bytes first, const Bytes& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Digest DigestOf(const Bytes& bytes) {
    Digest digest;
    std::copy_n(bytes.begin(), digest.size(), digest.begin());
    return digest;
}

// The order of a set's group, least significant byte first, as libgcrypt or the table has it.
Bytes OrderOf(const KeyParameters& set) {
    if (set.algorithm == KeyAlgorithm::kGost94) return Reversed(FromHex(set.q));
    StartCrypto();
    gcry_ctx_t context = nullptr;
    EXPECT_EQ(0U, gcry_mpi_ec_new(&context, nullptr, set.oid));
    gcry_mpi_t n = gcry_mpi_ec_get_mpi("n", context, 1);
    Bytes order(32);
    std::size_t size = 0;
    EXPECT_EQ(0U, gcry_mpi_print(GCRYMPI_FMT_USG, order.data(), order.size(), &size, n));
    EXPECT_EQ(order.size(), size);
    gcry_mpi_release(n);
    gcry_ctx_release(context);
    return Reversed(order);
}

class EverySet : public testing::TestWithParam<const char*> {
protected:
    const KeyParameters& m_set = *FindKeyParameters(GetParam());
};

std::string SetName(const testing::TestParamInfo<const char*>& info) {
    std::string name = info.param;
    std::replace(name.begin(), name.end(), '.', '_');
    return name;
}

std::vector<const char*> KeySets() {
    std::vector<const char*> oids;
    for (const KeyParameters& set : AllKeyParameters())
        oids.push_back(set.oid);
    return oids;
}

INSTANTIATE_TEST_SUITE_P(Key, EverySet, testing::ValuesIn(KeySets()), SetName);

TEST_P(EverySet, SignsAndVerifies) {
    const PrivateKey key = PrivateKey::Generate(m_set);
    const PublicKey publicKey = key.DerivePublicKey();
    EXPECT_NO_THROW(PublicKey::Import(m_set, publicKey.Bytes()));

    const Digest digest = Hash::Of(Text("message"));
    const Signature signature = key.Sign(digest);
    EXPECT_TRUE(publicKey.Verify(digest, signature));
    EXPECT_NE(signature, key.Sign(digest));

    EXPECT_FALSE(publicKey.Verify(Hash::Of(Text("massage")), signature));
    EXPECT_FALSE(PrivateKey::Generate(m_set).DerivePublicKey().Verify(digest, signature));
    for (std::size_t i = 0; i < signature.size(); i += 9) {
        Signature changed = signature;
        changed[i] ^= 1;
        EXPECT_FALSE(publicKey.Verify(digest, changed)) << i;
    }
}

// The number that is signed is never zero, and digests above the order are reduced.
TEST_P(EverySet, SignsExtremeDigests) {
    const PrivateKey key = PrivateKey::Generate(m_set);
    const PublicKey publicKey = key.DerivePublicKey();
    const Digest zero{};
    Digest one{};
    one[0] = 1;
    Digest ones;
    ones.fill(0xFF);
    const Digest order = DigestOf(OrderOf(m_set));
    for (const Digest& digest : {zero, one, ones, order})
        EXPECT_TRUE(publicKey.Verify(digest, key.Sign(digest)));
    EXPECT_TRUE(publicKey.Verify(one, key.Sign(zero)));
    EXPECT_TRUE(publicKey.Verify(zero, key.Sign(order)));
    EXPECT_FALSE(publicKey.Verify(ones, key.Sign(one)));
}

TEST_P(EverySet, RefusesSignaturesOutOfRange) {
    const PrivateKey key = PrivateKey::Generate(m_set);
    const PublicKey publicKey = key.DerivePublicKey();
    const Digest digest = Hash::Of(Text("message"));
    const Signature good = key.Sign(digest);
    const Bytes order = OrderOf(m_set);
    for (const Bytes& number : {Bytes(32, 0), order, Bytes(32, 0xFF)}) {
        for (const std::size_t offset : {0U, 32U}) {
            Signature bad = good;
            std::copy(number.begin(), number.end(), bad.begin() + static_cast<std::ptrdiff_t>(offset));
            EXPECT_FALSE(publicKey.Verify(digest, bad));
        }
    }
    EXPECT_FALSE(publicKey.Verify(digest, Signature{}));
    EXPECT_FALSE(publicKey.Verify(digest, ByteView(good).first(63)));
    EXPECT_FALSE(publicKey.Verify(digest, Concatenate({good.begin(), good.end()}, {0})));
    EXPECT_FALSE(publicKey.Verify(digest, ByteView()));
}

TEST_P(EverySet, RefusesPrivateKeysOutOfRange) {
    Bytes order = OrderOf(m_set);
    EXPECT_EQ(Failure::kBadKey, FailureOf([&] { PrivateKey::Import(m_set, Bytes(32, 0)); }));
    EXPECT_EQ(Failure::kBadKey, FailureOf([&] { PrivateKey::Import(m_set, order); }));
    EXPECT_EQ(Failure::kBadKey, FailureOf([&] { PrivateKey::Import(m_set, Bytes(32, 0xFF)); }));
    EXPECT_EQ(Failure::kBadLength, FailureOf([&] { PrivateKey::Import(m_set, Bytes(31, 1)); }));
    EXPECT_EQ(Failure::kBadLength, FailureOf([&] { PrivateKey::Import(m_set, Bytes(33, 1)); }));

    // The extremes of the range work: their scalars are the shortest, and their blinded forms the longest.
    order[0] -= 1;
    Bytes one(32, 0);
    one[0] = 1;
    for (const Bytes& secret : {one, order}) {
        const PrivateKey key = PrivateKey::Import(m_set, secret);
        const Digest digest = Hash::Of(Text("message"));
        EXPECT_TRUE(PublicKey::Import(m_set, key.DerivePublicKey().Bytes()).Verify(digest, key.Sign(digest)));
    }
}

TEST_P(EverySet, AgreesOnOneKeyPerUkm) {
    const PrivateKey first = PrivateKey::Generate(m_set);
    const PrivateKey second = PrivateKey::Generate(m_set);
    const SecureBytes ukm = RandomSecret(kUkmSize);
    const SecureBytes kek = first.Agree(second.DerivePublicKey(), ukm);
    EXPECT_EQ(32U, kek.size());
    EXPECT_TRUE(ConstantTimeEqual(kek, second.Agree(first.DerivePublicKey(), ukm)));
    const bool takesUkm = m_set.algorithm == KeyAlgorithm::kGost2001;
    EXPECT_EQ(!takesUkm, ConstantTimeEqual(kek, second.Agree(first.DerivePublicKey(), RandomSecret(kUkmSize))));
    EXPECT_FALSE(ConstantTimeEqual(kek, PrivateKey::Generate(m_set).Agree(first.DerivePublicKey(), ukm)));
    EXPECT_FALSE(ConstantTimeEqual(kek, first.Agree(second.DerivePublicKey(), ukm, AllHashParameters()[0])));

    for (const KeyParameters& other : AllKeyParameters()) {
        if (&other == &m_set || other.algorithm != m_set.algorithm) continue;
        EXPECT_EQ(Failure::kBadKey,
                  FailureOf([&] { PrivateKey::Generate(other).Agree(first.DerivePublicKey(), ukm); }));
    }
    if (takesUkm) {
        EXPECT_EQ(Failure::kBadData, FailureOf([&] { first.Agree(second.DerivePublicKey(), Bytes(8)); }));
        EXPECT_EQ(Failure::kBadLength, FailureOf([&] { first.Agree(second.DerivePublicKey(), Bytes()); }));
    }
}

TEST_P(EverySet, RefusesForeignPublicKeys) {
    const PublicKey good = PrivateKey::Generate(m_set).DerivePublicKey();
    const Bytes bytes(good.Bytes().begin(), good.Bytes().end());
    auto refused = [&](const Bytes& key) { return FailureOf([&] { PublicKey::Import(m_set, key); }); };
    EXPECT_EQ(Failure::kBadLength, refused({}));
    EXPECT_EQ(Failure::kBadLength, refused(Bytes(bytes.begin(), bytes.end() - 1)));
    EXPECT_EQ(Failure::kBadLength, refused(Concatenate(bytes, {0})));
    EXPECT_EQ(Failure::kBadKey, refused(Bytes(bytes.size(), 0)));
    EXPECT_EQ(Failure::kBadKey, refused(Bytes(bytes.size(), 0xFF)));
    for (std::size_t i = 0; i < bytes.size(); i += 13) {
        Bytes changed = bytes;
        changed[i] ^= 1;
        EXPECT_EQ(Failure::kBadKey, refused(changed)) << i;
    }
    if (m_set.algorithm == KeyAlgorithm::kGost94) {
        const Bytes p = Reversed(FromHex(m_set.p));
        Bytes one(128, 0);
        one[0] = 1;
        Bytes minusOne = p;  // order 2
        minusOne[0] -= 1;
        EXPECT_EQ(Failure::kBadKey, refused(one));
        EXPECT_EQ(Failure::kBadKey, refused(minusOne));
        EXPECT_EQ(Failure::kBadKey, refused(p));
    }
}

// Each operation has its own context in the library below; sharing one would corrupt memory.
TEST_P(EverySet, KeysServeSeveralThreadsAtOnce) {
    const PrivateKey key = PrivateKey::Generate(m_set);
    const PublicKey publicKey = key.DerivePublicKey();
    const Digest digest = Hash::Of(Text("message"));
    const Bytes ukm(8, 5);
    const SecureBytes kek = key.Agree(publicKey, ukm);
    std::array<int, 4> good{};
    std::vector<std::thread> threads;
    threads.reserve(good.size());
    for (int& count : good) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i) {
                count +=
                    publicKey.Verify(digest, key.Sign(digest)) && ConstantTimeEqual(kek, key.Agree(publicKey, ukm));
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const int count : good)
        EXPECT_EQ(5, count);
}

// By Hasse's theorem a curve has at most p + 1 + 2 sqrt(p) points, so twice a prime order above p + 2^130 leaves no room
// for a cofactor: no point of small order exists.
TEST(Curve, EveryCurveHasPrimeOrder) {
    StartCrypto();
    for (const KeyParameters& set : AllKeyParameters()) {
        if (set.algorithm != KeyAlgorithm::kGost2001) continue;
        SCOPED_TRACE(set.oid);
        const nal_test::CurveOracle curve(set.oid);
        const curve::Number& q = curve.Parameters().q;
        const curve::PlainPoint& g = curve.Parameters().generator;
        const MpiPtr n = nal_test::ToMpi(q);
        EXPECT_EQ(0U, gcry_prime_check(n.get(), 0));
        const MpiPtr twice = NewMpi(260, false);
        gcry_mpi_mul_2exp(twice.get(), n.get(), 1);
        const MpiPtr most = NewMpi(260, false);
        gcry_mpi_set_bit(most.get(), 130);
        gcry_mpi_add(most.get(), most.get(), nal_test::ToMpi(curve.Parameters().p).get());
        EXPECT_GT(gcry_mpi_cmp(twice.get(), most.get()), 0);
        curve::PlainPoint sum{};
        EXPECT_FALSE(curve.Combine(nal_test::Near(q, -1), g, {{1, 0, 0, 0}}, g, sum)) << "q G is not infinite";
        EXPECT_TRUE(curve.Combine(nal_test::Near(q, -1), g, {{2, 0, 0, 0}}, g, sum));
    }
}

TEST(Group, EveryGeneratorHasThePrimeOrder) {
    for (const KeyParameters& set : AllKeyParameters()) {
        if (set.algorithm != KeyAlgorithm::kGost94) continue;
        EXPECT_NO_THROW(PublicKey::Import(set, Reversed(FromHex(set.a)))) << set.oid;
    }
}

// RFC 5832 section 7.1.
TEST(Gost2001, VerifiesThePublishedExample) {
    const KeyParameters& set = *FindKeyParameters("1.2.643.2.2.35.0");
    const PrivateKey key =
        PrivateKey::Import(set, Reversed(FromHex("7A929ADE789BB9BE10ED359DD39A72C11B60961F49397EEE1D19CE9891EC3B28")));
    const Bytes expected =
        Concatenate(Reversed(FromHex("7F2B49E270DB6D90D8595BEC458B50C58585BA1D4E9B788F6689DBD8E56FD80B")),
                    Reversed(FromHex("26F1B489D6701DD185C8413A977B3CBBAF64D1C593D26627DFFB101A87FF77DA")));
    const PublicKey publicKey = key.DerivePublicKey();
    EXPECT_EQ(nal_test::ToHex(expected), nal_test::ToHex(publicKey.Bytes()));
    const Digest digest =
        DigestOf(Reversed(FromHex("2DFBC1B372D89A1188C09C52E0EEC61FCE52032AB1022E8E67ECE6672B043EE5")));
    EXPECT_TRUE(publicKey.Verify(
        digest, Concatenate(Reversed(FromHex("41AA28D2F1AB148280CD9ED56FEDA41974053554A42767B83AD043FD39DC0493")),
                            Reversed(FromHex("01456C64BA4642A1653C235A98A60249BCD6D3F746B631DF928014F6C5BF9C40")))));
}

// The self-signed certificates of RFC 4491 section 4. The signed part follows four bytes of
// header and ends with the public key.
TEST(Certificates, ThePublishedOnesVerify) {
    const struct {
        const char* file;
        const char* set;
        std::size_t signedSize;
    } cases[] = {{"rfc4491-gost94.cer", "1.2.643.2.2.32.2", 446}, {"rfc4491-gost2001.cer", "1.2.643.2.2.36.0", 387}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.file);
        std::ifstream file(nal_test::SourceDir() + "/tests/data/" + one.file, std::ios::binary);
        const Bytes certificate{std::istreambuf_iterator<char>(file), {}};
        ASSERT_GT(certificate.size(), 4 + one.signedSize + 64);
        const KeyParameters& set = *FindKeyParameters(one.set);
        const ByteView signedPart = ByteView(certificate).subspan(4, one.signedSize);
        const PublicKey key = PublicKey::Import(set, signedPart.last(set.publicKeySize));
        const Bytes signature = Reversed(Bytes(certificate.end() - 64, certificate.end()));
        EXPECT_TRUE(key.Verify(Hash::Of(signedPart), signature));
        EXPECT_FALSE(key.Verify(Hash::Of(signedPart.first(one.signedSize - 1)), signature));
    }
}

TEST(Parameters, UnknownIdentifiersAreNotFound) {
    for (const char* oid : {"", "1.2.643.2.2.35", "1.2.643.2.2.35.4", "1.2.643.2.2.35.1 ", "nistp256"}) {
        EXPECT_FALSE(FindKeyParameters(oid)) << oid;
        EXPECT_FALSE(FindHashParameters(oid)) << oid;
        EXPECT_FALSE(FindCipherParameters(oid)) << oid;
    }
}

}  // namespace
}  // namespace nalhost::crypto
