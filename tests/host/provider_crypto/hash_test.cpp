#include "host/provider/crypto/hash.h"

#include <gtest/gtest.h>

#include "host/provider/crypto/error.h"
#include "support/hex.h"

namespace nalhost::crypto {
namespace {

using nal_test::Text;
using nal_test::ToHex;

constexpr const char* kTestSet = "1.2.643.2.2.30.0";
constexpr const char* kCryptoProSet = "1.2.643.2.2.30.1";

struct Vector {
    const char* set;
    std::string message;
    const char* digest;
};

// The two messages of 32 and 50 bytes under the test set are the examples of RFC 5831 section 7.3.
const Vector kVectors[] = {
    {kTestSet, "", "ce85b99cc46752fffee35cab9a7b0278abb4c2d2055cff685af4912c49490f8d"},
    {kTestSet, "This is message, length=32 bytes", "b1c466d37519b82e8319819ff32595e047a28cb6f83eff1c6916a815a637fffa"},
    {kTestSet, "Suppose the original message has length = 50 bytes",
     "471aba57a60a770d3a76130635c1fbea4ef14de51f78b4ae57dd893b62f55208"},
    {kCryptoProSet, "", "981e5f3ca30c841487830f84fb433e13ac1101569b9c13584ac483234cd656c0"},
    {kCryptoProSet, "a", "e74c52dd282183bf37af0079c9f78055715a103f17e3133ceff1aacf2f403011"},
    {kCryptoProSet, "abc", "b285056dbf18d7392d7677369524dd14747459ed8143997e163b2986f92fd42c"},
    {kCryptoProSet, "This is message, length=32 bytes",
     "2cefc2f7b7bdc514e18ea57fa74ff357e7fa17d652c75f69cb1be7893ede48eb"},
    {kCryptoProSet, "Suppose the original message has length = 50 bytes",
     "c3730c5cbccacf915ac292676f21e8bd4ef75331d9405e5f1a61dc3130a65011"},
};

TEST(Hash, GivesThePublishedValues) {
    for (const Vector& vector : kVectors) {
        const HashParameters* set = FindHashParameters(vector.set);
        ASSERT_TRUE(set);
        EXPECT_EQ(vector.digest, ToHex(Hash::Of(Text(vector.message), *set))) << vector.set << " " << vector.message;
    }
}

TEST(Hash, ChunksOfAnySizeGiveTheSameValue) {
    nal_test::Bytes message(1000);
    for (std::size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    const Digest whole = Hash::Of(message);
    for (const std::size_t chunk : {1U, 31U, 32U, 33U, 64U, 999U}) {
        Hash hash;
        for (std::size_t offset = 0; offset < message.size(); offset += chunk) {
            hash.Update(ByteView(message).subspan(offset, std::min(chunk, message.size() - offset)));
        }
        EXPECT_EQ(whole, hash.Finish()) << chunk;
    }
}

TEST(Hash, ACopyGoesOnIndependently) {
    Hash original;
    original.Update(Text("ab"));
    Hash copy = original;
    copy.Update(Text("c"));
    original.Update(Text("d"));
    EXPECT_EQ(Hash::Of(Text("abc")), copy.Finish());
    EXPECT_EQ(Hash::Of(Text("abd")), original.Finish());

    const Hash finished = copy;
    original = finished;
    EXPECT_THROW(original.Update(Text("d")), CryptoError);
    EXPECT_EQ(Hash::Of(Text("abc")), original.Finish());
}

TEST(Hash, AFinishedHashTakesNoMoreDataAndKeepsItsValue) {
    Hash hash;
    hash.Update(Text("abc"));
    const Digest value = hash.Finish();
    try {
        hash.Update(Text("d"));
        FAIL() << "took more data";
    } catch (const CryptoError& error) {
        EXPECT_EQ(Failure::kBadState, error.Kind());
    }
    EXPECT_EQ(value, hash.Finish());
    EXPECT_TRUE(ConstantTimeEqual(value, hash.FinishSecret()));

    Digest given{};
    given[0] = 1;
    Hash set;
    set.Update(Text("ignored"));
    set.SetValue(given);
    EXPECT_EQ(given, set.Finish());
    EXPECT_EQ(given, Hash(set).Finish());
    EXPECT_THROW(set.Update(Text("d")), CryptoError);
}

}  // namespace
}  // namespace nalhost::crypto
