#include "host/provider/crypto/nonce.h"

#include <gtest/gtest.h>

#include <set>

#include "gcrypt_oracle.h"
#include "host/provider/crypto/key_scheme.h"
#include "support/hex.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::Near;

std::string Seed(const Bytes& random, const curve::Number& q, const Bytes& secret, const curve::Number& e) {
    const SecureBytes seed = MakeNonceSeed(random, q, secret, e);
    return nal_test::ToHex(Bytes(seed.begin(), seed.end()));
}

// With equal random bytes nothing but an equal signature may get an equal number.
TEST(Nonce, DependsOnKeyDigestAndOrderToo) {
    StartCrypto();
    const Bytes random(32, 1);
    const Bytes secret(32, 2);
    const curve::Number q = curve::LoadCurveParameters("1.2.643.2.2.35.1").q;
    const curve::Number e = {{7, 0, 0, 3}};
    std::set<std::string> seeds = {Seed(random, q, secret, e), Seed(random, Near(q, 1), secret, e),
                                   Seed(random, q, secret, Near(e, 1)), Seed(random, q, secret, {{3, 0, 0, 7}})};
    for (const std::size_t i : {0, 31}) {
        Bytes other(32, 1);
        other[i] ^= 0x80;
        seeds.insert(Seed(other, q, secret, e));
        other = secret;
        other[i] ^= 1;
        seeds.insert(Seed(random, q, other, e));
    }
    EXPECT_EQ(8U, seeds.size());

    Bytes message(96);
    std::copy(random.begin(), random.end(), message.begin());
    curve::StoreNumber(e, message.data() + 32);
    curve::StoreNumber(q, message.data() + 64);
    gcry_buffer_t parts[] = {{secret.size(), 0, secret.size(), const_cast<std::uint8_t*>(secret.data())},
                             {message.size(), 0, message.size(), message.data()}};
    Bytes code(64);
    gcry_md_hash_buffers(GCRY_MD_SHA512, GCRY_MD_FLAG_HMAC, code.data(), parts, 2);
    EXPECT_EQ(nal_test::ToHex(code), Seed(random, q, secret, e));
}

// Every scheme, signing the same twice.
TEST(Nonce, DiffersBetweenSignatures) {
    StartCrypto();
    for (const KeyParameters& set : AllKeyParameters()) {
        const KeyScheme& scheme = SchemeOf(set);
        const SecureBytes secret = scheme.GeneratePrivateKey(set);
        const Signature first = scheme.Sign(set, secret, Digest{});
        const Signature second = scheme.Sign(set, secret, Digest{});
        EXPECT_FALSE(std::equal(first.begin(), first.begin() + 32, second.begin())) << set.oid;
    }
}

}  // namespace
}  // namespace nalhost::crypto
