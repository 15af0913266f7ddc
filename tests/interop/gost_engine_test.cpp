// The primitives against OpenSSL's GOST engine, which runs as a process of its own: random inputs, both directions.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "host/provider/crypto/cipher.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/random.h"
#include "support/hex.h"
#include "support/process.h"
#include "support/temp_folder.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;
using nal_test::ReadFile;
using nal_test::Reversed;
using nal_test::RunProcess;
using nal_test::ToHex;
using nal_test::WriteFile;

Bytes Random(std::size_t size) {
    Bytes bytes(size);
    FillRandom(bytes);
    return bytes;
}

class GostEngine : public testing::Test {
protected:
    void SetUp() override {
        static const bool present =
            RunProcess({"openssl", "engine", "-t", "gost"}).output.find("[ available ]") != std::string::npos;
        if (!present) GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
    }

    // What `openssl` prints, run with the engine; a failure of the program fails the test with its complaint.
    std::string OpenSsl(std::vector<std::string> arguments, const std::vector<std::string>& environment = {}) const {
        arguments.insert(arguments.begin(), "openssl");
        arguments.insert(arguments.begin() + 2, {"-engine", "gost"});
        const nal_test::ProcessResult result = RunProcess(arguments, environment);
        EXPECT_EQ(0, result.exitCode) << arguments[1] << ": " << result.errors << result.output;
        return result.output;
    }

    std::string Stored(const std::string& name, ByteView bytes) const {
        WriteFile(m_folder.File(name), bytes.data(), bytes.size());
        return m_folder.File(name);
    }

    const nal_test::TempFolder m_folder;
};

TEST_F(GostEngine, HashesAlike) {
    for (const std::size_t size : {1U, 31U, 32U, 33U, 64U, 1000U, 65536U, 100003U}) {
        const Bytes message = Random(size);
        const std::string value = OpenSsl({"dgst", "-md_gost94", "-binary", Stored("message", message)});
        EXPECT_EQ(ToHex(value), ToHex(Hash::Of(message))) << size;
    }
}

struct CipherSet {
    const char* oid;
    const char* engineName;
};

const CipherSet kCipherSets[] = {
    {"1.2.643.2.2.31.0", "id-Gost28147-89-TestParamSet"},
    {"1.2.643.2.2.31.1", "id-Gost28147-89-CryptoPro-A-ParamSet"},
    {"1.2.643.2.2.31.2", "id-Gost28147-89-CryptoPro-B-ParamSet"},
    {"1.2.643.2.2.31.3", "id-Gost28147-89-CryptoPro-C-ParamSet"},
    {"1.2.643.2.2.31.4", "id-Gost28147-89-CryptoPro-D-ParamSet"},
    {"1.2.643.7.1.2.5.1.1", "id-tc26-gost-28147-param-Z"},
};

TEST_F(GostEngine, EncryptsAndDecryptsAlikeInEverySet) {
    for (const CipherSet& one : kCipherSets) {
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

            const std::vector<std::string> common = {"-gost89", "-K", ToHex(key), "-iv", ToHex(iv), "-in"};
            const std::vector<std::string> environment = {std::string("CRYPT_PARAMS=") + one.engineName};
            auto run = [&](const char* direction, const Bytes& in) {
                std::vector<std::string> arguments = {"enc", direction};
                arguments.insert(arguments.end(), common.begin(), common.end());
                arguments.push_back(Stored("in", in));
                return ToHex(OpenSsl(arguments, environment));
            };
            EXPECT_EQ(ToHex(encrypted), run("-e", plain));
            EXPECT_EQ(ToHex(plain), run("-d", encrypted));
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
        const std::string printed =
            OpenSsl({"dgst", "-mac", "gost-mac", "-macopt", "hexkey:" + ToHex(key), Stored("message", message)});
        EXPECT_NE(std::string::npos, printed.find("= " + ToHex(code.Finish()))) << printed;
    }
}

struct KeySet {
    const char* oid;
    const char* engineName;
};

class GostEngineKeys : public GostEngine, public testing::WithParamInterface<KeySet> {
protected:
    void SetUp() override {
        GostEngine::SetUp();
        if (IsSkipped()) return;
        m_privateFile = m_folder.File("private.der");
        m_publicFile = m_folder.File("public.der");
        OpenSsl({"genpkey", "-algorithm", "gost2001", "-pkeyopt", std::string("paramset:") + GetParam().engineName,
                 "-outform", "DER", "-out", m_privateFile});
        OpenSsl({"pkey", "-in", m_privateFile, "-inform", "DER", "-pubout", "-outform", "DER", "-out", m_publicFile});
    }

    // Both of the engine's files end with the key, in the order that the primitives take.
    PrivateKey EnginePrivateKey() const {
        return PrivateKey::Import(m_set, ByteView(ReadFile(m_privateFile)).last(kPrivateKeySize));
    }
    PublicKey EnginePublicKey() const {
        return PublicKey::Import(m_set, ByteView(ReadFile(m_publicFile)).last(m_set.publicKeySize));
    }

    // A public-key file of the engine's form for our key.
    std::string StoredPublicKey(const PublicKey& key) const {
        Bytes file = ReadFile(m_publicFile);
        std::copy(key.Bytes().begin(), key.Bytes().end(), file.end() - static_cast<std::ptrdiff_t>(key.Bytes().size()));
        return Stored("ours.der", file);
    }

    const KeyParameters& m_set = *FindKeyParameters(GetParam().oid);
    std::string m_privateFile;
    std::string m_publicFile;
};

INSTANTIATE_TEST_SUITE_P(Sets, GostEngineKeys,
                         testing::Values(KeySet{"1.2.643.2.2.35.0", "0"}, KeySet{"1.2.643.2.2.35.1", "A"},
                                         KeySet{"1.2.643.2.2.35.2", "B"}, KeySet{"1.2.643.2.2.35.3", "C"},
                                         KeySet{"1.2.643.2.2.36.0", "XA"}, KeySet{"1.2.643.2.2.36.1", "XB"}),
                         [](const testing::TestParamInfo<KeySet>& info) {
                             return std::string("Set") + info.param.engineName;
                         });

TEST_P(GostEngineKeys, PublicKeysComeOutAlike) {
    EXPECT_EQ(ToHex(EnginePublicKey().Bytes()), ToHex(EnginePrivateKey().DerivePublicKey().Bytes()));
}

TEST_P(GostEngineKeys, SignaturesVerifyInBothDirections) {
    const Bytes message = Random(500);
    const std::string messageFile = Stored("message", message);
    const Digest digest = Hash::Of(message);

    const std::string theirs =
        OpenSsl({"dgst", "-md_gost94", "-sign", m_privateFile, "-keyform", "DER", "-binary", messageFile});
    EXPECT_TRUE(EnginePublicKey().Verify(digest, Reversed({theirs.begin(), theirs.end()})));

    const PrivateKey key = PrivateKey::Generate(m_set);
    const Signature signature = key.Sign(digest);
    const std::string signatureFile = Stored("signature", Reversed({signature.begin(), signature.end()}));
    EXPECT_NE(std::string::npos, OpenSsl({"dgst", "-md_gost94", "-verify", StoredPublicKey(key.DerivePublicKey()),
                                          "-keyform", "DER", "-signature", signatureFile, messageFile})
                                     .find("Verified OK"));
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
    const std::string made = OpenSsl({"pkeyutl", "-encrypt", "-pubin", "-inkey", m_publicFile, "-keyform", "DER", "-in",
                                      Stored("session", session)});
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
    EXPECT_EQ(ToHex(session), ToHex(OpenSsl({"pkeyutl", "-decrypt", "-inkey", m_privateFile, "-keyform", "DER", "-in",
                                             Stored("transport", transport)})));
}

}  // namespace
}  // namespace nalhost::crypto
