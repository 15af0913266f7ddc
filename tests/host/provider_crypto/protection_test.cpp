#include "host/provider/crypto/protection.h"

#include <gtest/gtest.h>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/random.h"
#include "support/hex.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::Text;

TEST(DeriveProtectionKey, DependsOnEveryInputAndOnNothingElse) {
    const Bytes salt(16, 1);
    const ScryptCost cheap{1024, 1};
    const SecureBytes key = DeriveProtectionKey(Text("password"), salt, cheap);
    EXPECT_EQ(kProtectionKeySize, key.size());
    EXPECT_TRUE(ConstantTimeEqual(key, DeriveProtectionKey(Text("password"), salt, cheap)));
    EXPECT_FALSE(ConstantTimeEqual(key, DeriveProtectionKey(Text("passworc"), salt, cheap)));
    EXPECT_FALSE(ConstantTimeEqual(key, DeriveProtectionKey(Bytes(), salt, cheap)));
    EXPECT_FALSE(ConstantTimeEqual(key, DeriveProtectionKey(Text("password"), Bytes(16, 2), cheap)));
    EXPECT_FALSE(ConstantTimeEqual(key, DeriveProtectionKey(Text("password"), salt, {2048, 1})));
    EXPECT_FALSE(ConstantTimeEqual(key, DeriveProtectionKey(Text("password"), salt, {1024, 2})));
}

// The third example of RFC 7914 section 12; a shorter key is the beginning of a longer one.
TEST(DeriveProtectionKey, GivesThePublishedValue) {
    EXPECT_EQ("7023bdcb3afd7348461c06cd81fd38ebfda8fbba904f8e3ea9b543f6545da1f2",
              nal_test::ToHex(DeriveProtectionKey(Text("pleaseletmein"), Text("SodiumChloride"), {16384, 1})));
}

TEST(DeriveProtectionKey, RefusesCostsThatAFileMustNotAskFor) {
    for (const ScryptCost cost : {ScryptCost{0, 1},
                                  {1, 1},
                                  {512, 1},
                                  {8191, 1},
                                  {8192, 0},
                                  {8192, 5},
                                  {131072, 1},
                                  {0x80000000U, 1},
                                  {8192, 0xFFFFFFFFU}}) {
        EXPECT_FALSE(cost.IsAcceptable());
        EXPECT_THROW(DeriveProtectionKey(Text("p"), Bytes(16), cost), CryptoError) << cost.n << " " << cost.p;
    }
    EXPECT_TRUE(ScryptCost().IsAcceptable());
    EXPECT_THROW(DeriveProtectionKey(Text("p"), Bytes(7), ScryptCost()), CryptoError);
}

TEST(Seal, OpensOnlyWhatWasSealed) {
    const SecureBytes key = RandomSecret(32);
    const Bytes associated = Text("header");
    for (const std::size_t size : {0U, 1U, 16U, 1000U}) {
        SCOPED_TRACE(size);
        const SecureBytes plain = RandomSecret(size);
        const Bytes sealed = Seal(key, associated, plain);
        EXPECT_EQ(size + kSealOverhead, sealed.size());
        EXPECT_NE(sealed, Seal(key, associated, plain));
        const auto opened = Unseal(key, associated, sealed);
        ASSERT_TRUE(opened);
        EXPECT_TRUE(ConstantTimeEqual(plain, *opened));

        for (std::size_t i = 0; i < sealed.size(); i += 7) {
            Bytes changed = sealed;
            changed[i] ^= 1;
            EXPECT_FALSE(Unseal(key, associated, changed)) << i;
        }
        EXPECT_FALSE(Unseal(key, associated, ByteView(sealed).first(sealed.size() - 1)));
        EXPECT_FALSE(Unseal(key, Text("Header"), sealed));
        EXPECT_FALSE(Unseal(RandomSecret(32), associated, sealed));
    }
    EXPECT_FALSE(Unseal(key, associated, Bytes(kSealOverhead - 1)));
    EXPECT_THROW(Unseal(RandomSecret(16), associated, Bytes(100)), CryptoError);
    EXPECT_THROW(Seal(RandomSecret(16), associated, Bytes(100)), CryptoError);
}

}  // namespace
}  // namespace nalhost::crypto
