// The primitives against OpenSSL's GOST engine, which runs as a process of its own: random inputs, both directions.
#include <algorithm>
#include <array>

#include "host/provider/crypto/cipher.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/random.h"
#include "interop/tools.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::ReadFile;
using nal_test::Reversed;
using nal_test::ToHex;

Bytes Random(std::size_t size) {
    Bytes bytes(size);
    FillRandom(bytes);
    return bytes;
}

class GostEngine : public nal_test::ToolTest<> {
protected:
    void Put(const std::string& name, ByteView bytes) const { nal_test::WriteFile(Path(name), bytes.data(), bytes.size()); }
};

TEST_F(GostEngine, HashesAlike) {
    for (const std::size_t size : {1U, 31U, 32U, 33U, 64U, 1000U, 65536U, 100003U}) {
        const Bytes message = Random(size);
        Put("message", message);
        EXPECT_EQ(ToHex(Sh("openssl dgst -md_gost94 -binary message")), ToHex(Hash::Of(message))) << size;
    }
}

struct Set {
    const char* oid;
    const char* engineName;
};

const Set kCipherSets[] = {
    {"1.2.643.2.2.31.0", "id-Gost28147-89-TestParamSet"},
    {"1.2.643.2.2.31.1", "id-Gost28147-89-CryptoPro-A-ParamSet"},
    {"1.2.643.2.2.31.2", "id-Gost28147-89-CryptoPro-B-ParamSet"},
    {"1.2.643.2.2.31.3", "id-Gost28147-89-CryptoPro-C-ParamSet"},
    {"1.2.643.2.2.31.4", "id-Gost28147-89-CryptoPro-D-ParamSet"},
    {"1.2.643.7.1.2.5.1.1", "id-tc26-gost-28147-param-Z"},
};

TEST_F(GostEngine, EncryptsAndDecryptsAlikeInEverySet) {
    for (const Set& one : kCipherSets) {
        const CipherParameters& set = *FindCipherParameters(one.oid);
        for (const std::size_t size : {1U, 8U, 1023U, 1024U, 1025U, 4100U}) {
            // The engine meshes keys in the test set too, for which RFC 4357 section 11.1 has no meshing.
            if (size > 1024 && !set.meshes) continue;
            const Bytes key = Random(32);
            const Bytes iv = Random(8);
            const Bytes plain = Random(size);
            SCOPED_TRACE(std::string(one.engineName) + " " + std::to_string(size) + " key " + ToHex(key));
            Bytes encrypted(size);
            CfbCipher(Direction::kEncrypt, set, KeyMeshing::kOfParameterSet, key, iv).Process(plain, encrypted);

            Put("plain", plain);
            Put("encrypted", encrypted);
            const std::string command =
                std::string("CRYPT_PARAMS=") + one.engineName + " openssl enc -gost89 -K " + ToHex(key) + " -iv " + ToHex(iv);
            EXPECT_EQ(ToHex(encrypted), ToHex(Sh(command + " -e -in plain")));
            EXPECT_EQ(ToHex(plain), ToHex(Sh(command + " -d -in encrypted")));
        }
    }
}

// The engine's program computes codes in set A whatever it is asked for, and meshes the key beyond 1024 bytes.
TEST_F(GostEngine, AuthenticatesAlike) {
    for (const std::size_t size : {8U, 15U, 16U, 1000U, 1024U}) {
        const Bytes key = Random(32);
        const Bytes message = Random(size);
        SCOPED_TRACE(std::to_string(size) + " key " + ToHex(key));
        MacCode code(*FindCipherParameters("1.2.643.2.2.31.1"), key, Bytes(8));
        code.Update(message);
        Put("message", message);
        EXPECT_THAT(Sh("openssl dgst -mac gost-mac -macopt hexkey:" + ToHex(key) + " message"),
                    testing::HasSubstr("= " + ToHex(code.Finish())));
    }
}

class GostEngineKeys : public GostEngine, public testing::WithParamInterface<Set> {
protected:
    void SetUp() override {
        GostEngine::SetUp();
        if (IsSkipped()) return;
        Sh(std::string("openssl genpkey -algorithm gost2001 -pkeyopt paramset:") + GetParam().engineName + " -outform DER -out private");
        Sh("openssl pkey -in private -inform DER -pubout -outform DER -out public");
    }

    // Both of the engine's files end with the key, in the order that the primitives take.
    PrivateKey EnginePrivateKey() const { return PrivateKey::Import(m_set, ByteView(ReadFile(Path("private"))).last(kPrivateKeySize)); }
    PublicKey EnginePublicKey() const { return PublicKey::Import(m_set, ByteView(ReadFile(Path("public"))).last(m_set.publicKeySize)); }

    // A public-key file of the engine's form for our key.
    void PutPublicKey(const std::string& name, const PublicKey& key) const {
        Bytes file = ReadFile(Path("public"));
        std::copy(key.Bytes().begin(), key.Bytes().end(), file.end() - static_cast<std::ptrdiff_t>(key.Bytes().size()));
        Put(name, file);
    }

    const KeyParameters& m_set = *FindKeyParameters(GetParam().oid);
};

INSTANTIATE_TEST_SUITE_P(Sets, GostEngineKeys,
                         testing::Values(Set{"1.2.643.2.2.35.0", "0"}, Set{"1.2.643.2.2.35.1", "A"}, Set{"1.2.643.2.2.35.2", "B"},
                                         Set{"1.2.643.2.2.35.3", "C"}, Set{"1.2.643.2.2.36.0", "XA"}, Set{"1.2.643.2.2.36.1", "XB"}),
                         [](const auto& info) { return std::string("Set") + info.param.engineName; });

TEST_P(GostEngineKeys, PublicKeysComeOutAlike) {
    EXPECT_EQ(ToHex(EnginePublicKey().Bytes()), ToHex(EnginePrivateKey().DerivePublicKey().Bytes()));
}

TEST_P(GostEngineKeys, SignaturesVerifyInBothDirections) {
    const Bytes message = Random(500);
    Put("message", message);
    const Digest digest = Hash::Of(message);
    const std::string theirs = Sh("openssl dgst -md_gost94 -sign private -keyform DER -binary message");
    EXPECT_TRUE(EnginePublicKey().Verify(digest, Reversed({theirs.begin(), theirs.end()})));

    const PrivateKey key = PrivateKey::Generate(m_set);
    const Signature signature = key.Sign(digest);
    Put("signature", Reversed({signature.begin(), signature.end()}));
    PutPublicKey("ours", key.DerivePublicKey());
    EXPECT_THAT(Sh("openssl dgst -md_gost94 -verify ours -keyform DER -signature signature message"), testing::HasSubstr("Verified OK"));
}

// Where the parts of GostR3410-KeyTransport lie in the engine's encoding, which has one length for every set.
constexpr std::size_t kTransportSize = 167;
constexpr std::size_t kEncryptedOffset = 7;
constexpr std::size_t kMacOffset = 41;
constexpr std::size_t kEphemeralOffset = 93;
constexpr std::size_t kUkmOffset = 159;

TEST_P(GostEngineKeys, WrappedKeysOpenInBothDirections) {
    const CipherParameters& cipher = *FindCipherParameters("1.2.643.2.2.31.1");
    const Bytes session = Random(32);
    Put("session", session);
    const std::string made = Sh("openssl pkeyutl -encrypt -pubin -inkey public -keyform DER -in session");
    Bytes transport(made.begin(), made.end());
    ASSERT_EQ(kTransportSize, transport.size());
    const ByteView parts(transport);
    WrappedKey wrapped;
    std::copy_n(parts.begin() + kEncryptedOffset, wrapped.encrypted.size(), wrapped.encrypted.begin());
    std::copy_n(parts.begin() + kMacOffset, wrapped.mac.size(), wrapped.mac.begin());
    const ByteView ukm = parts.subspan(kUkmOffset, kUkmSize);
    const SecureBytes kek =
        EnginePrivateKey().Agree(PublicKey::Import(m_set, parts.subspan(kEphemeralOffset, m_set.publicKeySize)), ukm);
    EXPECT_TRUE(ConstantTimeEqual(session, UnwrapKey(KeyWrap::kCryptoPro, cipher, kek, ukm, wrapped)));

    const PrivateKey ephemeral = PrivateKey::Generate(m_set);
    const PublicKey ephemeralPublic = ephemeral.DerivePublicKey();
    const Bytes ourUkm = Random(kUkmSize);
    const WrappedKey ours =
        WrapKey(KeyWrap::kCryptoPro, cipher, ephemeral.Agree(EnginePublicKey(), ourUkm), ourUkm, session);
    std::copy(ours.encrypted.begin(), ours.encrypted.end(), transport.begin() + kEncryptedOffset);
    std::copy(ours.mac.begin(), ours.mac.end(), transport.begin() + kMacOffset);
    std::copy(ephemeralPublic.Bytes().begin(), ephemeralPublic.Bytes().end(), transport.begin() + kEphemeralOffset);
    std::copy(ourUkm.begin(), ourUkm.end(), transport.begin() + kUkmOffset);
    Put("transport", transport);
    EXPECT_EQ(ToHex(session), ToHex(Sh("openssl pkeyutl -decrypt -inkey private -keyform DER -in transport")));
}

}  // namespace
}  // namespace nalhost::crypto
