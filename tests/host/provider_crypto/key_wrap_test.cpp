#include "host/provider/crypto/key_wrap.h"

#include <gtest/gtest.h>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/random.h"
#include "support/hex.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::FromHex;
using nal_test::Reversed;

const CipherParameters& SetA() {
    return *FindCipherParameters("1.2.643.2.2.31.1");
}

WrappedKey Wrapped(const char* encrypted, const char* mac) {
    WrappedKey wrapped;
    const Bytes key = FromHex(encrypted);
    const Bytes code = FromHex(mac);
    std::copy(key.begin(), key.end(), wrapped.encrypted.begin());
    std::copy(code.begin(), code.end(), wrapped.mac.begin());
    return wrapped;
}

// The two enveloped messages of RFC 4490 section 9, to the key of RFC 4491 section 4.2.
struct Envelope {
    const char* what;
    KeyWrap wrap;
    const char* ephemeralKey;
    const char* ukm;
    const char* encryptedKey;
    const char* mac;
    const char* iv;
    const char* content;
};

const Envelope kEnvelopes[] = {
    {"key transport", KeyWrap::kCryptoPro,
     "4d2b2f3390e6dca3dd552acddfe0effb31f7737e4effbf78898a2bc3cd319404"
     "4b0e6048961fdbc75d126fdab2408a77b5bdeaf2ec34cb239f9b8bdd9e12c0f6",
     "9795e32c2bad2b0c", "6a2fa8210695689f9fe447aa9ecb61152b7e4160bc5d8dfbf53d281b189af975", "366d98b7",
     "bc108b1f0bff3429", "aa8e721dee4fb32ee30fa137"},
    {"key agreement", KeyWrap::kPlain,
     "b35539f46781972ba5c4d9841f27fb81ed0832e69ad4f20078b8ff8364ead21d"
     "b0783c7dfe03c1f406e43bcc16b9c5f6f619371c17b8a0aac7d1a194b3a53620",
     "2ff0f6d1864b328a", "16a31ce7ce4ee90df1ec746904681ec79f3aedb83b1f1d4a7ef9a5d9cb19d5e8", "93fd867e",
     "b735e17a0735a21d", "39b18af4bfa9e26525b655c9"},
};

TEST(KeyWrap, OpensThePublishedMessages) {
    const KeyParameters& set = *FindKeyParameters("1.2.643.2.2.36.0");
    const PrivateKey recipient =
        PrivateKey::Import(set, Reversed(FromHex("0B293BE050D0082BDAE785631A6BAB68F35B42786D6DDA56AFAF169891040F77")));
    for (const Envelope& envelope : kEnvelopes) {
        SCOPED_TRACE(envelope.what);
        const Bytes ukm = FromHex(envelope.ukm);
        const SecureBytes kek = recipient.Agree(PublicKey::Import(set, FromHex(envelope.ephemeralKey)), ukm);
        const SecureBytes key =
            UnwrapKey(envelope.wrap, SetA(), kek, ukm, Wrapped(envelope.encryptedKey, envelope.mac));
        Bytes content = FromHex(envelope.content);
        CfbCipher(Direction::kDecrypt, SetA(), KeyMeshing::kOfParameterSet, key, FromHex(envelope.iv))
            .Process(content, content);
        EXPECT_EQ("sample text\n", std::string(content.begin(), content.end()));
    }
}

TEST(KeyWrap, EveryChangeIsNoticed) {
    for (const KeyWrap wrap : {KeyWrap::kCryptoPro, KeyWrap::kPlain}) {
        for (const CipherParameters& set : AllCipherParameters()) {
            SCOPED_TRACE(set.oid);
            const SecureBytes kek = RandomSecret(32);
            const SecureBytes key = RandomSecret(32);
            const SecureBytes ukm = RandomSecret(8);
            const WrappedKey wrapped = WrapKey(wrap, set, kek, ukm, key);
            EXPECT_TRUE(ConstantTimeEqual(key, UnwrapKey(wrap, set, kek, ukm, wrapped)));

            auto refused = [&](ByteView otherKek, ByteView otherUkm, const WrappedKey& other) {
                try {
                    UnwrapKey(wrap, set, otherKek, otherUkm, other);
                } catch (const CryptoError& error) {
                    return error.Kind() == Failure::kBadData;
                }
                return false;
            };
            WrappedKey changed = wrapped;
            changed.encrypted[31] ^= 1;
            EXPECT_TRUE(refused(kek, ukm, changed));
            changed = wrapped;
            changed.mac[0] ^= 0x80;
            EXPECT_TRUE(refused(kek, ukm, changed));
            EXPECT_TRUE(refused(RandomSecret(32), ukm, wrapped));
            EXPECT_TRUE(refused(kek, RandomSecret(8), wrapped));
        }
    }
}

TEST(KeyWrap, RefusesWrongSizes) {
    const SecureBytes good = RandomSecret(32);
    const SecureBytes ukm = RandomSecret(8);
    const SecureBytes bad = RandomSecret(16);
    EXPECT_THROW(WrapKey(KeyWrap::kPlain, SetA(), bad, ukm, good), CryptoError);
    EXPECT_THROW(WrapKey(KeyWrap::kPlain, SetA(), good, bad, good), CryptoError);
    EXPECT_THROW(WrapKey(KeyWrap::kPlain, SetA(), good, ukm, bad), CryptoError);
    EXPECT_THROW(DiversifyKey(SetA(), good, bad), CryptoError);
}

}  // namespace
}  // namespace nalhost::crypto
