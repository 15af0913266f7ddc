// Keys: generation, parameters, signatures, agreement and the blobs.
#include <cstring>

#include "host/provider/key_format.h"
#include "tests/host/provider/provider_fixture.h"

namespace provider_test {
namespace {

class KeysOfProvider : public ProviderTest {
protected:
    static DWORD Number(unsigned long key, DWORD param) {
        DWORD number = 0;
        EXPECT_OK(ORKGetKeyParam(key, param, number));
        return number;
    }
    static std::string Text(unsigned long key, DWORD param) {
        CTOOString text;
        EXPECT_OK(ORKGetKeyParam(key, param, text));
        return text.str();
    }
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
        const char* signParams;
        const char* exchangeParams;
        DWORD algId;
        DWORD type;
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
    int count = 0;
    for (const auto& c : cases) {
        const std::string name = std::to_string(count++);
        const Prov prov = Create(name.c_str());
        if (c.exchangeParams != nullptr) {
            ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_EXCHANGE_PARAMS, c.exchangeParams, 0));
        }
        const Key key = Generate(prov, c.asked, c.signParams);
        EXPECT_EQ(Number(key, ORK_KEY_PARAM_ALGID), c.algId);
        EXPECT_EQ(Number(key, ORK_KEY_PARAM_TYPE), c.type);
        EXPECT_EQ(Text(key, ORK_KEY_PARAM_KEY_PARAMS), c.set);
        const DWORD hashAlg = c.algId == 0x2E29 ? 0x8029 : 0x801E;
        const Key imported = Import(prov, PublicBlob(prov, key));
        EXPECT_TRUE(Matches(prov, key, imported, hashAlg)) << c.set;
        // The same key after the container was opened anew.
        const Key opened = [&] {
            const Prov again = Open(name.c_str());
            Key result;
            EXPECT_OK(ORKGetUserKey(again, c.type, result.Take()));
            return result;
        }();
        EXPECT_TRUE(Matches(prov, opened, imported, hashAlg)) << c.set;
    }
}

TEST_F(KeysOfProvider, AreNotGeneratedFromWhatDoesNotFit) {
    const Prov prov = Create("c");
    const Prov verify = Verify();
    unsigned long out = 0;
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_SIGN_PARAMS, "1.2.643.2.2.32.2", 0));
    EXPECT_ERROR(ORKGenKey(prov, 0x2E23, 0, &out), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKGenKey(prov, 0xAA24, 0, &out), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKGenKey(prov, 0, 0, &out), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKGenKey(prov, 0x801E, 0, &out), ORK_E_BAD_ALGID);
    EXPECT_ERROR(ORKGenKey(prov, 2, 0x100, &out), ORK_E_BAD_FLAGS);
    EXPECT_ERROR(ORKGenKey(prov, 2, ORK_GEN_LATER, &out), ORK_E_BAD_FLAGS);
    EXPECT_ERROR(ORKGenKey(verify, 2, 0, &out), ORK_E_BAD_KEYSET);
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
    EXPECT_EQ(Text(key, ORK_KEY_PARAM_KEY_PARAMS), "1.2.643.2.2.36.1");
}

TEST_F(KeysOfProvider, PublicBlobHasItsLayout) {
    const Prov prov = Create("c");
    const Key key = Generate(prov, 2, "1.2.643.2.2.35.1");
    const IdentObj blob = PublicBlob(prov, key);
    // SEQUENCE { 1.2.643.2.2.35.1, 1.2.643.2.2.30.1 } is 20 bytes.
    ASSERT_EQ(blob.GetSize(), 16U + 20U + 64U);
    const unsigned char head[] = {6, 0x10, 0, 0, 0x23, 0x2E, 0, 0, 'M', 'A', 'G', '1', 0, 2, 0, 0, 0x30, 18};
    EXPECT_EQ(IdentObj(blob.GetData(), sizeof head), IdentObj(head, sizeof head));

    CTOOString algorithm;
    IdentObj parameters;
    IdentObj publicKey;
    ASSERT_OK(orkcspex::ORKEncodePublicKeyAndParametrs(blob, algorithm, parameters, publicKey));
    EXPECT_EQ(algorithm, "1.2.643.2.2.19");
    EXPECT_EQ(parameters, IdentObj(blob.GetData() + 16, 20));
    ASSERT_EQ(publicKey.GetSize(), 66U);
    EXPECT_EQ(publicKey.GetData()[0], 4);
    EXPECT_EQ(IdentObj(publicKey.GetData() + 2, 64), IdentObj(blob.GetData() + 36, 64));
}

TEST_F(KeysOfProvider, EncodeWithTheRightAlgorithm) {
    const Prov prov = Create("c");
    const struct {
        const char* set;
        const char* algorithm;
        unsigned parameters;
    } cases[] = {{"1.2.643.2.2.35.1", "1.2.643.2.2.19", 20},
                 {"1.2.643.2.2.33.2", "1.2.643.2.2.20", 20},
                 {"1.3.6.1.4.1.47474.2.1.2.2", "1.3.6.1.4.1.47474.2.1.2.2", 0}};
    for (const auto& c : cases) {
        const Key key = Ephemeral(prov, c.set);
        CTOOString algorithm;
        IdentObj parameters;
        IdentObj publicKey;
        ASSERT_OK(orkcspex::ORKEncodePublicKeyAndParametrs(PublicBlob(prov, key), algorithm, parameters, publicKey));
        EXPECT_EQ(algorithm, c.algorithm);
        EXPECT_EQ(parameters.GetSize(), c.parameters);
    }
}

// A blob after a change of one byte.
IdentObj Changed(const IdentObj& blob, unsigned offset, unsigned char value) {
    IdentObj changed = blob;
    changed.GetData()[offset] = value;
    return changed;
}

TEST_F(KeysOfProvider, RefuseDamagedPublicBlobs) {
    const Prov prov = Create("c");
    const IdentObj blob = PublicBlob(prov, Generate(prov, 2, "1.2.643.2.2.35.1"));
    const IdentObj blob94 = PublicBlob(prov, Generate(prov, 2, "1.2.643.2.2.32.2"));
    for (unsigned size = 0; size < blob.GetSize(); ++size) {
        EXPECT_NE(ImportError(prov, IdentObj(blob.GetData(), size)), 0U) << size;
    }
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
    for (const auto& c : cases)
        EXPECT_EQ(ImportError(prov, Changed(c.blob, c.offset, c.value)), c.error) << c.offset;
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
        IdentObj record;
        ASSERT_OK(ORKGetProvParam(prov, ORK_PARAM_ENTRY_INFO, record));
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
    const unsigned char rsa[] = {0x30, 0x13, 0x30, 0x0D, 6, 9, 0x2A, 0x86, 0x48, 0x86, 0xF7,
                                 0x0D, 1,    1,    1,    5, 0, 3,    2,    0,    1};
    EXPECT_ERROR(ORKImportPKInfo(prov, rsa, sizeof rsa, out.Take()), ORK_E_BAD_ALGID);
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
        const Hash first = HashOf(prov, "m");
        if (ORKVerifySignature(first, signature, sign, 0)) return std::string("sign");
        const Hash second = HashOf(prov, "m");
        return std::string(ORKVerifySignature(second, signature, exchange, 0) ? "exchange" : "nobody");
    };
    // The exchange key was made last, so its entry is current, and it has no key of type 2.
    for (const DWORD type : {ORK_KEY_EXCHANGE, ORK_KEY_SIGNATURE, ORK_KEY_ANY, DWORD{0}}) {
        EXPECT_EQ(signedBy(type, 0), "exchange");
        EXPECT_EQ(signedBy(type, sign), "sign");
    }
    Key opened;
    ASSERT_OK(ORKGetUserKey(prov, ORK_KEY_SIGNATURE, opened.Take()));
    EXPECT_EQ(signedBy(ORK_KEY_SIGNATURE, 0), "sign");
    EXPECT_EQ(signedBy(ORK_KEY_EXCHANGE, 0), "sign");
    Key copy;
    ASSERT_OK(ORKDuplicateKey(exchange, nullptr, 0, copy.Take()));
    EXPECT_EQ(signedBy(ORK_KEY_ANY, 0), "exchange");

    const Hash hash = HashOf(prov, "m");
    IdentObj signature;
    EXPECT_ERROR(ORKSignHash(hash, 3, 0, signature), ORK_E_INVALID_PARAMETER);
    const Hash lonely = HashOf(Verify(), "m");
    EXPECT_ERROR(ORKSignHash(lonely, ORK_KEY_ANY, 0, signature), ORK_E_BAD_KEYSET);
    const Hash empty = HashOf(Create("empty"), "m");
    EXPECT_ERROR(ORKSignHash(empty, ORK_KEY_ANY, 0, signature), ORK_E_NO_KEY);
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
        for (unsigned offset : {0U, 31U, 32U, 63U}) {
            EXPECT_EQ(verify(Changed(signature, offset, signature.GetData()[offset] ^ 1), "m"), ORK_E_BAD_SIGNATURE);
        }
        IdentObj zero;
        zero.SetSize(64);
        EXPECT_EQ(verify(zero, "m"), ORK_E_BAD_SIGNATURE);
        std::memset(zero.GetData(), 0xFF, 64);
        EXPECT_EQ(verify(zero, "m"), ORK_E_BAD_SIGNATURE);
        EXPECT_EQ(verify(IdentObj(signature.GetData(), 63), "m"), ORK_E_BAD_SIGNATURE);
        EXPECT_EQ(verify(IdentObj(), "m"), ORK_E_BAD_SIGNATURE);
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
    IdentObj iv;
    ASSERT_OK(ORKGetKeyParam(key, ORK_KEY_PARAM_IV, iv));
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
    const struct {
        DWORD type;
        const char* set;
        const char* ephemeralSet;
    } cases[] = {{0xAA24, "1.2.643.2.2.36.0", "1.2.643.2.2.36.0"},
                 {0x2E23, "1.2.643.2.2.35.3", "1.2.643.2.2.35.3"},
                 {0x2E1E, "1.2.643.2.2.32.2", "1.2.643.2.2.32.2"},
                 {0xAA1E, "1.2.643.2.2.33.3", "1.2.643.2.2.33.3"},
                 {0x2E29, "1.3.6.1.4.1.47474.2.1.2.2", "1.3.6.1.4.1.47474.2.1.2.2"}};
    int count = 0;
    for (const auto& c : cases) {
        const Prov recipient = Create(std::to_string(count++).c_str());
        const Key privateKey = Generate(recipient, c.type, c.set);
        const Prov sender = Verify();
        const Key session = Session(sender);
        const Key ephemeral = Ephemeral(sender, c.ephemeralSet);
        const Key agreed = Import(sender, PublicBlob(recipient, privateKey), ephemeral);
        IdentObj wrapped;
        ASSERT_OK(ORKExportKey(sender, session, agreed, ORK_BLOB_SIMPLE, ORK_EXPORT_TRANSPORT, wrapped));
        ASSERT_OK(ORKSetKeyParam(session, ORK_KEY_PARAM_MESHING, 1));
        IdentObj iv;
        ASSERT_OK(ORKGetKeyParam(session, ORK_KEY_PARAM_IV, iv));
        const IdentObj message = Encrypt(session, "the message");

        const Key agreedThere = Import(recipient, PublicBlob(sender, ephemeral), privateKey);
        const Key received = Import(recipient, wrapped, agreedThere);
        ASSERT_OK(ORKSetKeyParam(received, ORK_KEY_PARAM_IV, iv));
        ASSERT_OK(ORKSetKeyParam(received, ORK_KEY_PARAM_MESHING, 1));
        EXPECT_EQ(Decrypt(received, message), "the message") << c.set;

        // A second wrap has another UKM; another recipient cannot unwrap; a changed byte is found.
        IdentObj again;
        ASSERT_OK(ORKExportKey(sender, session, agreed, ORK_BLOB_SIMPLE, 0, again));
        EXPECT_NE(again, wrapped);
        const Key other = Import(recipient, PublicBlob(sender, Ephemeral(sender, c.ephemeralSet)), privateKey);
        EXPECT_EQ(ImportError(recipient, wrapped, other), ORK_E_BAD_DATA);
        for (unsigned offset = 24; offset < 60; ++offset) {
            EXPECT_EQ(ImportError(recipient, Changed(wrapped, offset, wrapped.GetData()[offset] ^ 0x40), agreedThere),
                      ORK_E_BAD_DATA);
        }
        for (unsigned size = 0; size < wrapped.GetSize(); ++size) {
            EXPECT_NE(ImportError(recipient, IdentObj(wrapped.GetData(), size), agreedThere), 0U);
        }
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
    EXPECT_EQ(ImportError(prov, PublicBlob(prov, a), b), ORK_E_BAD_KEY);
    EXPECT_EQ(ImportError(prov, PublicBlob(prov, a), c), ORK_E_BAD_KEY);
    EXPECT_EQ(ImportError(prov, PublicBlob(prov, a), Session(prov)), ORK_E_BAD_KEY);
    EXPECT_EQ(ImportError(prov, PublicBlob(prov, a), Import(prov, PublicBlob(prov, a))), ORK_E_BAD_KEY);
    IdentObj blob;
    EXPECT_ERROR(ORKExportKey(prov, Session(prov, 0), Import(prov, PublicBlob(prov, a), a), 1, 32, blob),
                 ORK_E_BAD_KEY_STATE);
    EXPECT_ERROR(ORKExportKey(prov, Session(prov), a, 1, 32, blob), ORK_E_BAD_KEY);
    EXPECT_ERROR(ORKExportKey(prov, Session(prov), 0, 6, 0, blob), ORK_E_BAD_KEY);
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
    CTOOString wrap;
    ASSERT_OK(ORKGetKeyParam(mine, ORK_KEY_PARAM_WRAP, wrap));
    EXPECT_EQ(wrap, wraps[0]);
    for (const char* exported : wraps) {
        ASSERT_OK(ORKSetKeyParam(mine, ORK_KEY_PARAM_WRAP, exported));
        IdentObj blob;
        ASSERT_OK(ORKExportKey(prov, Session(prov), mine, 1, 32, blob));
        for (const char* imported : wraps) {
            ASSERT_OK(ORKSetKeyParam(theirs, ORK_KEY_PARAM_WRAP, imported));
            ASSERT_OK(ORKGetKeyParam(theirs, ORK_KEY_PARAM_WRAP, wrap));
            EXPECT_EQ(wrap, imported);
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
        const Key key = [&] {
            EXPECT_OK(ORKSetProvParam(source, ORK_PARAM_SIGN_PARAMS,
                                      algId == 0x2E1E ? "1.2.643.2.2.20" : "1.2.643.2.2.35.1", 0));
            Key made;
            EXPECT_OK(ORKGenKey(source, algId, 0, made.Take()));
            return made;
        }();
        for (const unsigned long under : {0UL, static_cast<unsigned long>(protection)}) {
            IdentObj blob;
            ASSERT_OK(ORKExportKey(source, key, under, ORK_BLOB_PRIVATE, 0, blob));
            EXPECT_EQ(ImportError(Verify(), blob, under), ORK_E_BAD_KEYSET);
            EXPECT_EQ(ImportError(target, blob, under == 0 ? static_cast<unsigned long>(protection) : 0),
                      ORK_E_BAD_KEY);
            if (under != 0) {
                EXPECT_EQ(ImportError(target, blob, Session(source)), ORK_E_BAD_DATA);
            }
            for (unsigned offset = 16; offset < blob.GetSize(); ++offset) {
                EXPECT_NE(ImportError(target, Changed(blob, offset, blob.GetData()[offset] ^ 1), under), 0U) << offset;
            }
            for (unsigned size = 0; size < blob.GetSize(); ++size) {
                EXPECT_NE(ImportError(target, IdentObj(blob.GetData(), size), under), 0U) << size;
            }
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
