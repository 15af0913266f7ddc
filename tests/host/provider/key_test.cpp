// Keys: generation, parameters, signatures, agreement and the blobs.
#include <cstring>

#include "host/provider/key_format.h"
#include "support/cert_builder.h"
#include "tests/host/provider/provider_fixture.h"

namespace provider_test {
namespace {

class KeysOfProvider : public ProviderTest {
protected:
    static Key Session(unsigned long prov, DWORD flags = ORK_GEN_EXPORTABLE) {
        Key key;
        EXPECT_OK(ORKGenKey(prov, ORK_ALG_GOST28147, flags, key.Take()));
        return key;
    }
    static Key Ephemeral(unsigned long prov, const char* set) {
        Key key;
        EXPECT_OK(ORKGenKey(prov, ORK_ALG_EPHEMERAL, 0x41, key.Take()));
        EXPECT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_HASH_PARAMS, "1.2.643.2.2.30.1"));
        EXPECT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_KEY_PARAMS, set));
        EXPECT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_GENERATE, IdentObj()));
        return key;
    }
    // A blob after a change of one byte.
    static IdentObj Changed(IdentObj blob, unsigned offset, int value) {
        blob.GetData()[offset] = static_cast<unsigned char>(value);
        return blob;
    }
    struct EncodedKey {
        CTOOString algorithm;
        IdentObj parameters, publicKey;
    };
    static EncodedKey Encoded(const IdentObj& blob) {
        EncodedKey key;
        EXPECT_OK(orkcspex::ORKEncodePublicKeyAndParametrs(blob, key.algorithm, key.parameters, key.publicKey));
        return key;
    }
    // Every beginning of a blob is refused, and so is the blob with one byte changed, from an offset on: with the error, when one is given.
    static void ExpectNoDamageIsTaken(unsigned long prov, const IdentObj& blob, unsigned long under, unsigned from, unsigned to,
                                      DWORD wanted = 0) {
        for (unsigned size = 0; size < blob.GetSize(); ++size) {
            EXPECT_NE(ImportError(prov, IdentObj(blob.GetData(), size), under), 0U) << size;
        }
        for (unsigned offset = from; offset < to; ++offset) {
            const DWORD error = ImportError(prov, Changed(blob, offset, blob.GetData()[offset] ^ 0x40), under);
            EXPECT_TRUE(wanted == 0 ? error != 0 : error == wanted) << offset << " " << std::hex << error;
        }
    }
    static IdentObj Encrypt(unsigned long key, const std::string& text) {
        IdentObj out;
        EXPECT_OK(ORKEncrypt(key, 0, 1, text.data(), static_cast<DWORD>(text.size()), out));
        return out;
    }
    static std::string Decrypt(unsigned long key, const IdentObj& data) {
        IdentObj out;
        EXPECT_OK(ORKDecrypt(key, 0, 1, data.GetData(), data.GetSize(), out));
        return {reinterpret_cast<const char*>(out.GetData()), out.GetSize()};
    }
};

TEST_F(KeysOfProvider, AreGeneratedByTypeAndByAlgorithm) {
    const struct {
        DWORD asked;
        const char *signParams, *exchangeParams;
        DWORD algId, type;
        const char* set;
    } cases[] = {
        {2, nullptr, nullptr, 0x2E23, 2, "1.2.643.2.2.35.1"},
        {2, "1.2.643.2.2.35.3", nullptr, 0x2E23, 2, "1.2.643.2.2.35.3"},
        {2, "1.2.643.2.2.32.3", nullptr, 0x2E1E, 2, "1.2.643.2.2.32.3"},
        {2, "1.3.6.1.4.1.47474.2.1.2.2", nullptr, 0x2E29, 2, "1.3.6.1.4.1.47474.2.1.2.2"},
        {1, "1.2.643.2.2.35.1", nullptr, 0xAA24, 1, "1.2.643.2.2.36.0"},
        {1, "1.2.643.2.2.35.2", "1.2.643.2.2.35.2", 0xAA24, 1, "1.2.643.2.2.35.2"},
        {1, "1.2.643.2.2.32.2", "1.2.643.2.2.33.1", 0xAA1E, 1, "1.2.643.2.2.33.1"},
        {0x2E23, "1.2.643.2.2.19", nullptr, 0x2E23, 2, "1.2.643.2.2.35.1"},
        {0x2E1E, "1.2.643.2.2.20", nullptr, 0x2E1E, 2, "1.2.643.2.2.32.2"},
        {0xAA24, "1.2.643.2.2.98", nullptr, 0xAA24, 1, "1.2.643.2.2.36.0"},
        {0xAA24, "1.2.643.2.2.36.1", nullptr, 0xAA24, 1, "1.2.643.2.2.36.1"},
        {0xAA1E, "1.2.643.2.2.99", nullptr, 0xAA1E, 1, "1.2.643.2.2.33.1"},
        {0xAA1E, nullptr, nullptr, 0xAA1E, 1, "1.2.643.2.2.33.1"},
        {0x2E29, nullptr, nullptr, 0x2E29, 2, "1.3.6.1.4.1.47474.2.1.2.2"},
    };
    for (const auto& c : cases) {
        const std::string name = std::to_string(&c - cases);
        const Prov prov = Create(name);
        if (c.exchangeParams != nullptr) {
            ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_EXCHANGE_PARAMS, c.exchangeParams, 0));
        }
        const Key key = Generate(prov, c.asked, c.signParams);
        EXPECT_EQ(KeyParam(key, ORK_KEY_PARAM_ALGID), c.algId);
        EXPECT_EQ(KeyParam(key, ORK_KEY_PARAM_TYPE), c.type);
        EXPECT_EQ(KeyParam<CTOOString>(key, ORK_KEY_PARAM_KEY_PARAMS), c.set);
        const DWORD hashAlg = c.algId == 0x2E29 ? 0x8029 : 0x801E;
        const Key imported = Import(prov, PublicBlob(prov, key));
        EXPECT_TRUE(Matches(prov, key, imported, hashAlg)) << c.set;
        // The same key after the container was opened anew.
        const Key opened = UserKey(Open(name), c.type);
        EXPECT_TRUE(Matches(prov, opened, imported, hashAlg)) << c.set;
    }
}

TEST_F(KeysOfProvider, AreNotGeneratedFromWhatDoesNotFit) {
    const Prov prov = Create("c");
    unsigned long out = 0;
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_SIGN_PARAMS, "1.2.643.2.2.32.2", 0));
    for (const DWORD algId : {0x2E23, 0xAA24, 0, 0x801E}) EXPECT_ERROR(ORKGenKey(prov, algId, 0, &out), ORK_E_BAD_ALGID) << algId;
    for (const DWORD flags : {DWORD{0x100}, ORK_GEN_LATER}) EXPECT_ERROR(ORKGenKey(prov, 2, flags, &out), ORK_E_BAD_FLAGS) << flags;
    EXPECT_ERROR(ORKGenKey(Verify(), 2, 0, &out), ORK_E_BAD_KEYSET);
    EXPECT_ERROR(ORKGenKey(prov, 2, 0, nullptr), ORK_E_INVALID_PARAMETER);
    EXPECT_EQ(Enumerate(prov).size(), 0U);
}

TEST_F(KeysOfProvider, MadeLaterWaitForTheirParameters) {
    const Prov prov = Verify();
    Key key;
    ASSERT_OK(ORKGenKey(prov, ORK_ALG_EPHEMERAL, 0x41, key.Take()));
    IdentObj blob;
    EXPECT_ERROR(ORKExportKey(prov, key, 0, 6, 0, blob), ORK_E_BAD_KEY_STATE);
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_KEY_PARAMS, "1.2.3"), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_HASH_PARAMS, "1.2.643.2.2.35.1"), ORK_E_BAD_ALGID);
    ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_KEY_PARAMS, "1.2.643.2.2.36.1"));
    ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_GENERATE, DWORD{0}));
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_GENERATE, DWORD{0}), ORK_E_BAD_KEY_STATE);
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_KEY_PARAMS, "1.2.643.2.2.35.1"), ORK_E_BAD_KEY_STATE);
    EXPECT_OK(ORKExportKey(prov, key, 0, 6, 0, blob));
    EXPECT_EQ(KeyParam<CTOOString>(key, ORK_KEY_PARAM_KEY_PARAMS), "1.2.643.2.2.36.1");
}

TEST_F(KeysOfProvider, PublicBlobHasItsLayout) {
    const Prov prov = Create("c");
    const Key key = Generate(prov, 2, "1.2.643.2.2.35.1");
    const IdentObj blob = PublicBlob(prov, key);
    // SEQUENCE { 1.2.643.2.2.35.1, 1.2.643.2.2.30.1 } is 20 bytes.
    ASSERT_EQ(blob.GetSize(), 16U + 20U + 64U);
    const unsigned char head[] = {6, 0x10, 0, 0, 0x23, 0x2E, 0, 0, 'M', 'A', 'G', '1', 0, 2, 0, 0, 0x30, 18};
    EXPECT_EQ(IdentObj(blob.GetData(), sizeof head), IdentObj(head, sizeof head));

    const EncodedKey encoded = Encoded(blob);
    EXPECT_EQ(encoded.algorithm, "1.2.643.2.2.19");
    EXPECT_EQ(encoded.parameters, IdentObj(blob.GetData() + 16, 20));
    ASSERT_EQ(encoded.publicKey.GetSize(), 66U);
    EXPECT_EQ(encoded.publicKey.GetData()[0], 4);
    EXPECT_EQ(IdentObj(encoded.publicKey.GetData() + 2, 64), IdentObj(blob.GetData() + 36, 64));
    const struct {
        const char *set, *algorithm;
        unsigned parameters;
    } cases[] = {{"1.2.643.2.2.35.1", "1.2.643.2.2.19", 20},
                 {"1.2.643.2.2.33.2", "1.2.643.2.2.20", 20},
                 {"1.3.6.1.4.1.47474.2.1.2.2", "1.3.6.1.4.1.47474.2.1.2.2", 0}};
    for (const auto& c : cases) {
        const EncodedKey other = Encoded(PublicBlob(prov, Ephemeral(prov, c.set)));
        EXPECT_EQ(other.algorithm, c.algorithm);
        EXPECT_EQ(other.parameters.GetSize(), c.parameters);
    }
}

TEST_F(KeysOfProvider, RefuseDamagedPublicBlobs) {
    const Prov prov = Create("c");
    const IdentObj blob = PublicBlob(prov, Generate(prov, 2, "1.2.643.2.2.35.1"));
    const IdentObj blob94 = PublicBlob(prov, Generate(prov, 2, "1.2.643.2.2.32.2"));
    ExpectNoDamageIsTaken(prov, blob, 0, 0, 0);
    IdentObj longer = blob;
    longer.Append("x", 1);
    EXPECT_NE(ImportError(prov, longer), 0U);
    const struct {
        const IdentObj& blob;
        unsigned offset;
        unsigned char value;
        DWORD error;
    } cases[] = {
        {blob, 0, 5, ORK_E_BAD_TYPE},     {blob, 1, 0x11, ORK_E_BAD_VERSION}, {blob, 2, 1, ORK_E_BAD_VERSION},
        {blob, 4, 0x1E, ORK_E_BAD_ALGID}, {blob, 4, 0x24, ORK_E_BAD_ALGID},   {blob, 8, 'm', ORK_E_BAD_DATA},
        {blob, 12, 1, ORK_E_BAD_DATA},    {blob, 15, 0xFF, ORK_E_BAD_DATA},   {blob, 13, 4, ORK_E_BAD_DATA},
        {blob, 17, 17, ORK_E_BAD_DATA},   {blob94, 4, 0x23, ORK_E_BAD_ALGID},
    };
    for (const auto& c : cases) EXPECT_EQ(ImportError(prov, Changed(c.blob, c.offset, c.value)), c.error) << c.offset;
    // Off the curve, and values of order 1 and 2 or out of range for 34.10-94.
    EXPECT_EQ(ImportError(prov, Changed(blob, 40, blob.GetData()[40] ^ 1)), ORK_E_BAD_PUBLIC_KEY);
    for (const unsigned char fill : {0, 0xFF}) {
        IdentObj bad = blob94;
        std::memset(bad.GetData() + 36, fill, 128);
        EXPECT_EQ(ImportError(prov, bad), ORK_E_BAD_PUBLIC_KEY);
        bad.GetData()[36] = 1;
        EXPECT_EQ(ImportError(prov, bad), ORK_E_BAD_PUBLIC_KEY);
    }
    EXPECT_ERROR(ORKImportKey(prov, nullptr, 10, 0, 0, nullptr), ORK_E_INVALID_PARAMETER);
}

TEST_F(KeysOfProvider, ImportFromCertificates) {
    const Prov prov = Create("c");
    for (const char* set : {"1.2.643.2.2.35.2", "1.2.643.2.2.32.4", "1.3.6.1.4.1.47474.2.1.2.2"}) {
        const Key key = Generate(prov, 2, set);
        const IdentObj record = ProvParam<IdentObj>(prov, ORK_PARAM_ENTRY_INFO);
        ASNContainerInfo info;
        ASSERT_EQ(info.ReadData(record.GetData(), record.GetSize()), record.GetSize());
        const IdentObj spki = info.GetKeyInfo().m_publicKeyInfo;
        Key imported;
        ASSERT_OK(ORKImportPKInfo(prov, spki.GetData(), spki.GetSize(), imported.Take()));
        EXPECT_EQ(PublicBlob(prov, imported), PublicBlob(prov, key)) << set;
        for (unsigned size = 0; size < spki.GetSize(); ++size) {
            EXPECT_ERROR(ORKImportPKInfo(prov, spki.GetData(), size, imported.Take()), ORK_E_BAD_DATA) << size;
        }
    }
    Key out;
    const IdentObj rsa = nal_test::FromHexText("3013 300D 06092A864886F70D010101 0500 03020001");
    EXPECT_ERROR(ORKImportPKInfo(prov, rsa.GetData(), rsa.GetSize(), out.Take()), ORK_E_BAD_ALGID);
}

TEST_F(KeysOfProvider, SignWithTheKeyThatTheHashHasOrTheCurrentOne) {
    const Prov prov = Create("c");
    const Key sign = Generate(prov, ORK_KEY_SIGNATURE);
    const Key exchange = Generate(prov, ORK_KEY_EXCHANGE);
    const auto signedBy = [&](DWORD type, unsigned long hashKey) {
        const Hash hash = HashOf(prov, "m", ORK_ALG_GOSTR3411, hashKey);
        IdentObj signature;
        EXPECT_OK(ORKSignHash(hash, type, 0, signature));
        EXPECT_EQ(signature.GetSize(), 64U);
        if (ORKVerifySignature(HashOf(prov, "m"), signature, sign, 0)) return "sign";
        return ORKVerifySignature(HashOf(prov, "m"), signature, exchange, 0) ? "exchange" : "nobody";
    };
    // The exchange key was made last, so its entry is current, and it has no key of type 2.
    for (const DWORD type : {ORK_KEY_EXCHANGE, ORK_KEY_SIGNATURE, ORK_KEY_ANY, DWORD{0}}) {
        EXPECT_STREQ(signedBy(type, 0), "exchange");
        EXPECT_STREQ(signedBy(type, sign), "sign");
    }
    UserKey(prov, ORK_KEY_SIGNATURE);
    for (const DWORD type : {ORK_KEY_SIGNATURE, ORK_KEY_EXCHANGE}) EXPECT_STREQ(signedBy(type, 0), "sign");
    Key copy;
    ASSERT_OK(ORKDuplicateKey(exchange, nullptr, 0, copy.Take()));
    EXPECT_STREQ(signedBy(ORK_KEY_ANY, 0), "exchange");

    IdentObj signature;
    EXPECT_ERROR(ORKSignHash(HashOf(prov, "m"), 3, 0, signature), ORK_E_INVALID_PARAMETER);
    EXPECT_ERROR(ORKSignHash(HashOf(Verify(), "m"), ORK_KEY_ANY, 0, signature), ORK_E_BAD_KEYSET);
    EXPECT_ERROR(ORKSignHash(HashOf(Create("empty"), "m"), ORK_KEY_ANY, 0, signature), ORK_E_NO_KEY);
    const Key publicKey = Import(prov, PublicBlob(prov, sign));
    unsigned long out = 0;
    EXPECT_ERROR(ORKCreateHash(prov, ORK_ALG_GOSTR3411, publicKey, &out, 0), ORK_E_BAD_KEY);
}

TEST_F(KeysOfProvider, RejectBadSignatures) {
    const Prov prov = Create("c");
    for (const char* set : {"1.2.643.2.2.35.1", "1.2.643.2.2.32.2"}) {
        const Key key = Generate(prov, 2, set);
        IdentObj signature;
        ASSERT_OK(ORKSignHash(HashOf(prov, "m", ORK_ALG_GOSTR3411, key), 0, 0, signature));
        IdentObj second;
        ASSERT_OK(ORKSignHash(HashOf(prov, "m", ORK_ALG_GOSTR3411, key), 0, 0, second));
        EXPECT_NE(signature, second);
        const auto verify = [&](const IdentObj& value, const char* text) {
            return ErrorOf(ORKVerifySignature(HashOf(prov, text), value, key, 0));
        };
        EXPECT_EQ(verify(signature, "m"), 0U);
        EXPECT_EQ(verify(signature, "n"), ORK_E_BAD_SIGNATURE);
        std::vector<IdentObj> bad = {nal_test::Filled(0, 64), nal_test::Filled(0xFF, 64), IdentObj(signature.GetData(), 63), IdentObj()};
        for (unsigned offset : {0U, 31U, 32U, 63U}) bad.push_back(Changed(signature, offset, signature.GetData()[offset] ^ 1));
        for (const IdentObj& value : bad) EXPECT_EQ(verify(value, "m"), ORK_E_BAD_SIGNATURE) << value;
        // The private hash belongs to the private algorithm.
        EXPECT_ERROR(ORKSignHash(HashOf(prov, "m", ORK_ALG_PRIVATE_HASH, key), 0, 0, second), ORK_E_BAD_HASH);
        EXPECT_ERROR(ORKVerifySignature(HashOf(prov, "m", ORK_ALG_PRIVATE_HASH), signature, key, 0), ORK_E_BAD_HASH);
    }
}

TEST_F(KeysOfProvider, HashesKeepTheirState) {
    const Prov prov = Verify();
    for (const DWORD algId : {ORK_ALG_GOSTR3411, ORK_ALG_PRIVATE_HASH}) {
        const Hash hash = HashOf(prov, "ab", algId);
        Hash copy;
        ASSERT_OK(ORKDuplicateHash(hash, nullptr, 0, copy.Take()));
        EXPECT_EQ(Value(copy), Value(HashOf(prov, "ab", algId)));
        ASSERT_OK(ORKHashData(hash, "c", 1, 0));
        const IdentObj value = Value(hash);
        EXPECT_EQ(value, Value(HashOf(prov, "abc", algId)));
        EXPECT_EQ(value, Value(hash));
        EXPECT_ERROR(ORKHashData(hash, "d", 1, 0), ORK_E_BAD_HASH_STATE);
        EXPECT_ERROR(ORKSetHashParam(hash, ORK_HASH_PARAM_VALUE, value), ORK_E_BAD_HASH_STATE);
        Hash fresh;
        ASSERT_OK(ORKCreateHash(prov, algId, 0, fresh.Take(), 0));
        EXPECT_ERROR(ORKSetHashParam(fresh, ORK_HASH_PARAM_VALUE, IdentObj("x", 1)), ORK_E_BAD_LENGTH);
        EXPECT_OK(ORKSetHashParam(fresh, ORK_HASH_PARAM_VALUE, value));
        EXPECT_EQ(Value(fresh), value);
        EXPECT_ERROR(ORKHashData(fresh, "d", 1, 0), ORK_E_BAD_HASH_STATE);
    }
    EXPECT_NE(Value(HashOf(prov, "", ORK_ALG_GOSTR3411)), Value(HashOf(prov, "", ORK_ALG_PRIVATE_HASH)));
    unsigned long out = 0;
    EXPECT_ERROR(ORKCreateHash(prov, 0x8003, 0, &out, 0), ORK_E_BAD_ALGID);
}

TEST_F(KeysOfProvider, SessionKeysStreamInPiecesOfAnySize) {
    const Prov prov = Verify();
    const std::string text(5000, 'a');
    for (const char* set : {"1.2.643.2.2.31.0", "1.2.643.2.2.31.1", "1.2.643.2.2.31.4", "1.2.643.7.1.2.5.1.1"}) {
        for (const DWORD meshing : {0U, 1U}) {
            const Key key = Session(prov);
            ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CIPHER_PARAMS, set));
            ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_MESHING, meshing));
            const IdentObj whole = Encrypt(key, text);
            // In pieces, in place, on a copy of the key: the same bytes.
            Key copy;
            ASSERT_OK(ORKDuplicateKey(key, nullptr, 0, copy.Take()));
            std::string pieces = text;
            DWORD position = 0;
            for (const DWORD size : {1U, 7U, 0U, 1016U, 1024U, 2000U, 952U}) {
                ASSERT_OK(ORKEncrypt(copy, 0, position + size == text.size(), pieces.data() + position, size,
                                     static_cast<void*>(pieces.data() + position)));
                position += size;
            }
            ASSERT_EQ(position, text.size());
            EXPECT_EQ(IdentObj(pieces.data(), position), whole);
            EXPECT_EQ(Decrypt(key, whole), text);
            ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_MESHING, 1 - meshing));
            EXPECT_EQ(Decrypt(key, whole) == text, std::string(set) == "1.2.643.2.2.31.0");
        }
    }
    const Key key = Session(prov);
    const IdentObj iv = KeyParam<IdentObj>(key, ORK_KEY_PARAM_IV);
    const IdentObj first = Encrypt(key, text);
    ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_IV, IdentObj("12345678", 8)));
    EXPECT_NE(Encrypt(key, text), first);
    ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_IV, iv));
    EXPECT_EQ(Encrypt(key, text), first);
    IdentObj out;
    EXPECT_OK(ORKEncrypt(key, 0, 1, nullptr, 0, out));
    EXPECT_TRUE(out.IsEmpty());
    EXPECT_ERROR(ORKEncrypt(key, 0, 1, nullptr, 1, out), ORK_E_INVALID_PARAMETER);
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_IV, IdentObj("1234567", 7)), ORK_E_BAD_LENGTH);
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_MESHING, 2), ORK_E_INVALID_PARAMETER);
    EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_CIPHER_PARAMS, "1.2.643.2.2.30.1"), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKSetKeyParam(key, 9999, 1), ORK_E_BAD_TYPE);
}

TEST_F(KeysOfProvider, DeriveTheSameSessionKeyFromTheSameSecret) {
    const Prov prov = Verify();
    const auto derive = [&](const char* secret) {
        const Hash hash = HashOf(prov, secret);
        Key key;
        EXPECT_OK(ORKDeriveKey(prov, ORK_ALG_GOST28147, hash, 0, key.Take()));
        EXPECT_ERROR(ORKHashData(hash, "x", 1, 0), ORK_E_BAD_HASH_STATE);
        EXPECT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_IV, IdentObj("12345678", 8)));
        return Encrypt(key, "some text");
    };
    EXPECT_EQ(derive("secret"), derive("secret"));
    EXPECT_NE(derive("secret"), derive("Secret"));
    unsigned long out = 0;
    EXPECT_ERROR(ORKDeriveKey(prov, 0x2E23, HashOf(prov, "x"), 0, &out), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKDeriveKey(prov, ORK_ALG_GOST28147, 5, 0, &out), ORK_E_INVALID_HANDLE);
}

// The road of an encrypted message: an ephemeral key on one side, a container's key on the other.
TEST_F(KeysOfProvider, CarrySessionKeysToEveryKindOfRecipient) {
    const std::pair<DWORD, const char*> cases[] = {{0xAA24, "1.2.643.2.2.36.0"},
                                                   {0x2E23, "1.2.643.2.2.35.3"},
                                                   {0x2E1E, "1.2.643.2.2.32.2"},
                                                   {0xAA1E, "1.2.643.2.2.33.3"},
                                                   {0x2E29, "1.3.6.1.4.1.47474.2.1.2.2"}};
    for (const auto& [type, set] : cases) {
        const Prov recipient = Create(std::to_string(type));
        const Key privateKey = Generate(recipient, type, set);
        const Prov sender = Verify();
        const Key session = Session(sender);
        const Key ephemeral = Ephemeral(sender, set);
        const Key agreed = Import(sender, PublicBlob(recipient, privateKey), ephemeral);
        IdentObj wrapped;
        ASSERT_OK(ORKExportKey(sender, session, agreed, ORK_BLOB_SIMPLE, ORK_EXPORT_TRANSPORT, wrapped));
        ASSERT_OK(ORKSetKeyParam(session, ORK_KEY_PARAM_MESHING, 1));
        const IdentObj iv = KeyParam<IdentObj>(session, ORK_KEY_PARAM_IV);
        const IdentObj message = Encrypt(session, "the message");

        const Key agreedThere = Import(recipient, PublicBlob(sender, ephemeral), privateKey);
        const Key received = Import(recipient, wrapped, agreedThere);
        ASSERT_OK(ORKSetKeyParam(received, ORK_KEY_PARAM_IV, iv));
        ASSERT_OK(ORKSetKeyParam(received, ORK_KEY_PARAM_MESHING, 1));
        EXPECT_EQ(Decrypt(received, message), "the message") << set;

        // A second wrap has another UKM; another recipient cannot unwrap; a changed byte is found.
        IdentObj again;
        ASSERT_OK(ORKExportKey(sender, session, agreed, ORK_BLOB_SIMPLE, 0, again));
        EXPECT_NE(again, wrapped);
        const Key other = Import(recipient, PublicBlob(sender, Ephemeral(sender, set)), privateKey);
        EXPECT_EQ(ImportError(recipient, wrapped, other), ORK_E_BAD_DATA);
        ExpectNoDamageIsTaken(recipient, wrapped, agreedThere, 24, 60, ORK_E_BAD_DATA);
        // Imported without ORK_GEN_EXPORTABLE, it goes no further.
        EXPECT_ERROR(ORKExportKey(recipient, received, agreedThere, 1, 0, again), ORK_E_BAD_KEY_STATE);
        EXPECT_EQ(ImportError(recipient, wrapped, 0), ORK_E_BAD_KEY);
        EXPECT_EQ(ImportError(recipient, wrapped, privateKey), ORK_E_BAD_KEY);
    }
}

TEST_F(KeysOfProvider, AgreeOnlyWithinOneParameterSet) {
    const Prov prov = Verify();
    const Key a = Ephemeral(prov, "1.2.643.2.2.35.1");
    const Key b = Ephemeral(prov, "1.2.643.2.2.35.2");
    const Key c = Ephemeral(prov, "1.2.643.2.2.32.2");
    const Key session = Session(prov);
    const Key publicKey = Import(prov, PublicBlob(prov, a));
    for (const Key* other : {&b, &c, &session, &publicKey}) EXPECT_EQ(ImportError(prov, PublicBlob(prov, a), *other), ORK_E_BAD_KEY);
    IdentObj blob;
    const Key agreed = Import(prov, PublicBlob(prov, a), a);
    EXPECT_ERROR(ORKExportKey(prov, Session(prov, 0), agreed, 1, 32, blob), ORK_E_BAD_KEY_STATE);
    EXPECT_ERROR(ORKExportKey(prov, session, a, 1, 32, blob), ORK_E_BAD_KEY);
    EXPECT_ERROR(ORKExportKey(prov, session, 0, 6, 0, blob), ORK_E_BAD_KEY);
    EXPECT_ERROR(ORKExportKey(prov, a, 0, 7, 0, blob), ORK_E_BAD_KEY);
    EXPECT_ERROR(ORKExportKey(prov, a, 0, 9, 0, blob), ORK_E_BAD_TYPE);
    EXPECT_ERROR(ORKExportKey(prov, a, 0, 6, 32, blob), ORK_E_BAD_FLAGS);
}

TEST_F(KeysOfProvider, AgreedKeysWrapWithAndWithoutDiversification) {
    const Prov prov = Verify();
    const Key a = Ephemeral(prov, "1.2.643.2.2.35.1");
    const Key b = Ephemeral(prov, "1.2.643.2.2.35.1");
    const Key mine = Import(prov, PublicBlob(prov, b), a);
    const Key theirs = Import(prov, PublicBlob(prov, a), b);
    const char* const wraps[] = {"1.2.643.2.2.13.1", "1.2.643.2.2.13.0"};
    EXPECT_EQ(KeyParam<CTOOString>(mine, ORK_KEY_PARAM_WRAP), wraps[0]);
    for (const char* exported : wraps) {
        ASSERT_OK(ORKSetKeyParam(mine, ORK_KEY_PARAM_WRAP, exported));
        IdentObj blob;
        ASSERT_OK(ORKExportKey(prov, Session(prov), mine, 1, 32, blob));
        for (const char* imported : wraps) {
            ASSERT_OK(ORKSetKeyParam(theirs, ORK_KEY_PARAM_WRAP, imported));
            EXPECT_EQ(KeyParam<CTOOString>(theirs, ORK_KEY_PARAM_WRAP), imported);
            EXPECT_EQ(ImportError(prov, blob, theirs), exported == imported ? 0 : ORK_E_BAD_DATA);
        }
    }
    EXPECT_ERROR(ORKSetKeyParam(mine, ORK_KEY_PARAM_WRAP, "1.2.643.2.2.13.2"), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKSetKeyParam(a, ORK_KEY_PARAM_WRAP, wraps[0]), ORK_E_BAD_TYPE);
}

TEST_F(KeysOfProvider, MoveBetweenContainers) {
    const Prov source = Create("source", "old");
    const Prov target = Create("target", "new");
    const Key protection = Session(source);
    for (const DWORD algId : {0x2E23U, 0x2E1EU, 0x2E29U, 0xAA24U}) {
        const Key key = Generate(source, algId, algId == 0x2E1E ? "1.2.643.2.2.20" : "1.2.643.2.2.35.1");
        for (const unsigned long under : {0UL, static_cast<unsigned long>(protection)}) {
            IdentObj blob;
            ASSERT_OK(ORKExportKey(source, key, under, ORK_BLOB_PRIVATE, 0, blob));
            EXPECT_EQ(ImportError(Verify(), blob, under), ORK_E_BAD_KEYSET);
            EXPECT_EQ(ImportError(target, blob, under == 0 ? static_cast<unsigned long>(protection) : 0), ORK_E_BAD_KEY);
            EXPECT_TRUE(under == 0 || ImportError(target, blob, Session(source)) == ORK_E_BAD_DATA);
            ExpectNoDamageIsTaken(target, blob, under, 16, blob.GetSize());
            ASSERT_EQ(Enumerate(target).size(), 0U);
            {
                const Key moved = Import(target, blob, under);
                EXPECT_EQ(PublicBlob(target, moved), PublicBlob(source, key));
                EXPECT_TRUE(Matches(target, moved, key, algId == 0x2E29 ? 0x8029 : 0x801E));
            }
            // The key is there already; a one-time key is used up.
            EXPECT_EQ(ImportError(target, blob, under), under == 0 ? ORK_E_BAD_DATA : ORK_E_EXISTS);
            ASSERT_OK(ORKSetProvParam(target, ORK_PARAM_DELETE_ENTRY, "", 0));
        }
    }
}

}  // namespace
}  // namespace provider_test
