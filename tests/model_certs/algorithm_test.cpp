// Algorithm identifiers, public keys and the tables of algorithms.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nal/algorithm.h"
#include "support/certificate_parts.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/file.h"

namespace {

using nal_test::Der;
using nal_test::FromHexText;
using nal_test::FromText;
using nal_test::StatusOf;

std::vector<std::string> Texts(const std::list<CTOOString>& list) {
    std::vector<std::string> texts;
    for (const auto& text : list) texts.push_back(text.str());
    return texts;
}

CNALCertPublicKeyInfo KeyOf(const std::string& bits) {
    CNALCertPublicKeyInfo key;
    key.m_algorithm.SetParams("1.2.643.2.2.19", "1.2.643.2.2.35.1");
    key.m_publicKey.m_data = FromHexText(bits);
    return key;
}

std::string Repeat(const std::string& text, unsigned count) {
    std::string result;
    while (count-- > 0) result += text;
    return result;
}

}  // namespace

TEST(AlgorithmIdentifier, SetParamsAndGetParams) {
    struct {
        const char *algorithm, *keyParameters;
        const char *oid, *parameters;
        const char *algOID, *keyOID, *hashOID;
    } const cases[] = {
        {"1.2.643.2.2.19", "1.2.643.2.2.35.1", "1.2.643.2.2.19", "301206072a85030202230106072a850302021e01",
         "1.2.643.2.2.19", "1.2.643.2.2.35.1", "1.2.643.2.2.30.1"},
        {"1.2.643.2.2.20", "1.3.6.1.4.1.47474.2.1.2.2", "1.3.6.1.4.1.47474.2.1.2.2", "", "1.2.643.2.2.20",
         "1.3.6.1.4.1.47474.2.1.2.2", ""},
        {"1.3.6.1.4.1.47474.2.1.2.2", "1.2.643.2.2.32.2", "1.3.6.1.4.1.47474.2.1.2.2", "", "1.2.643.2.2.20",
         "1.3.6.1.4.1.47474.2.1.2.2", ""},
        // One character more than the private algorithm is another algorithm.
        {"1.2.643.2.2.20", "1.3.6.1.4.1.47474.2.1.2.22", "1.2.643.2.2.20",
         "3017060c2b0601040182f2720201021606072a850302021e01", "1.2.643.2.2.20", "1.3.6.1.4.1.47474.2.1.2.22",
         "1.2.643.2.2.30.1"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.keyParameters);
        CNALAlgorithmIdentifier algorithm;
        algorithm.m_parameters = FromText("old");
        algorithm.SetParams(c.algorithm, c.keyParameters);
        EXPECT_EQ(algorithm.GetID(), c.oid);
        EXPECT_EQ(algorithm.m_parameters, FromHexText(c.parameters));

        CTOOString algOID, keyOID, hashOID, encOID("old");
        algorithm.GetParams(&algOID, &keyOID, &hashOID, &encOID);
        EXPECT_EQ(algOID, c.algOID);
        EXPECT_EQ(keyOID, c.keyOID);
        EXPECT_EQ(hashOID, c.hashOID);
        EXPECT_EQ(encOID, "");
    }
}

TEST(AlgorithmIdentifier, ParametersOfOtherForms) {
    CNALAlgorithmIdentifier algorithm;
    algorithm.m_algorithm = FromText("1.2.643.2.2.19");
    CTOOString keyOID, encOID;

    algorithm.m_parameters = FromHexText("0500");
    algorithm.GetParams(nullptr, &keyOID, nullptr, nullptr);
    EXPECT_EQ(keyOID, "");

    algorithm.m_parameters = FromHexText("301b06072a85030202230106072a850302021e0106072a850302021f01");
    algorithm.GetParams(nullptr, &keyOID, nullptr, &encOID);
    EXPECT_EQ(keyOID, "1.2.643.2.2.35.1");
    EXPECT_EQ(encOID, "1.2.643.2.2.31.1");

    for (const char* damaged : {"06072a850302022301", "3000", "301206072a85030202230106072a850302021e0100", "30"}) {
        algorithm.m_parameters = FromHexText(damaged);
        EXPECT_EQ(StatusOf([&] { algorithm.GetParams(nullptr, &keyOID, nullptr, nullptr); }), TOO_E_BAD_STRUCTURE) << damaged;
        algorithm.GetParams(&keyOID, nullptr, nullptr, nullptr);
        EXPECT_EQ(keyOID, "1.2.643.2.2.19");
    }
    const CNALAlgorithmIdentifier before = algorithm;
    EXPECT_EQ(StatusOf([&] { algorithm.SetParams("1.2.643.2.2.20", "no OID"); }), TOO_E_ENCODE);
    EXPECT_EQ(algorithm, before);
}

TEST(PublicKey, ReadsWhatItWrites) {
    const IdentObj der = nal_test::CertificateParts().publicKeyInfo;
    CNALCertPublicKeyInfo key;
    ASSERT_EQ(key.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    EXPECT_EQ(key.m_algorithm.GetID(), "1.2.643.2.2.19");
    EXPECT_EQ(key.m_publicKey.m_data.GetSize(), 66u);
    EXPECT_EQ(key.WriteData(), der);
    EXPECT_EQ(key.GetObjectSize(), der.GetSize());

    const nal_test::TempFolder folder;
    CTOOFile file(folder.File("key"), "wb+");
    file.Write("head", 4);
    EXPECT_EQ(key.WriteData(file), der.GetSize());
    file.Write("tail", 4);
    file.Seek(4);
    CNALCertPublicKeyInfo read;
    EXPECT_EQ(read.ReadData(file), der.GetSize());
    EXPECT_EQ(read, key);
    EXPECT_EQ(file.Tell(), 4u + der.GetSize());
    EXPECT_EQ(StatusOf([&] { read.ReadData(file); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(read, key);
}

TEST(PublicKey, RefusesWhatIsNone) {
    const IdentObj der = nal_test::CertificateParts().publicKeyInfo;
    CNALCertPublicKeyInfo key;
    key.ReadData(der.GetData(), der.GetSize());
    const CNALCertPublicKeyInfo before = key;
    EXPECT_EQ(key.ReadData(nullptr, 5), 0u);
    EXPECT_EQ(key.ReadData(der.GetData(), 0), 0u);
    for (unsigned size = 1; size < der.GetSize(); ++size) {
        ASSERT_EQ(StatusOf([&] { key.ReadData(der.GetData(), size); }), TOO_E_BAD_STRUCTURE) << size;
    }
    // One item, three items, no bit string, a bit string without its first octet, nine unused bits.
    for (const char* damaged : {"3008300606042a850302", "300c300606042a850302030100 0500", "300b300606042a850302040100",
                                "300a300606042a8503020300", "300c300606042a85030203020900"}) {
        const IdentObj bytes = FromHexText(damaged);
        EXPECT_EQ(StatusOf([&] { key.ReadData(bytes.GetData(), bytes.GetSize()); }), TOO_E_BAD_STRUCTURE) << damaged;
    }
    EXPECT_EQ(key, before);
    EXPECT_EQ(StatusOf([] { CNALCertPublicKeyInfo().WriteData(); }), TOO_E_NOT_INITIALIZED);
}

TEST(PublicKey, KeyLengthAndIdentifier) {
    struct {
        const char* what;
        std::string bits;
        unsigned length;
    } const cases[] = {
        {"no key", "", 0},
        {"GOST 2001", "0440" + Repeat("AB", 64), 512},
        {"GOST 94", "048180" + Repeat("AB", 128), 1024},
        {"two INTEGERs, leading zeros of the first left out", "300c0206000080010203" "02020101", 32},
        {"raw bytes", Repeat("AB", 66), 528},
        {"bytes behind the element", "0440" + Repeat("AB", 65), 536},
        {"damaged item inside", "3003020501", 40},
        {"empty SEQUENCE", "3000", 0},
    };
    for (const auto& c : cases) EXPECT_EQ(KeyOf(c.bits).GetKeyLength(), c.length) << c.what;

    EXPECT_EQ(KeyOf("0440" + Repeat("AB", 64)).GetKeyID(), FromHexText("0440" + Repeat("AB", 18)));
    EXPECT_EQ(KeyOf("0102").GetKeyInfoID(), FromHexText("0102" + Repeat("00", 18)));
}

TEST(PublicKey, ComparisonsAreConjunctions) {
    const CNALCertPublicKeyInfo low = KeyOf("01");
    const CNALCertPublicKeyInfo high = KeyOf("02");
    // The algorithms are equal, so neither "less" nor "greater" nor "unequal" holds.
    EXPECT_FALSE(low == high || low != high || low < high || high > low);
    CNALCertPublicKeyInfo other = high;
    other.m_algorithm.m_algorithm = FromText("1.2.643.2.2.20");
    EXPECT_TRUE(low != other && low < other && other > low);
}

TEST(PublicKey, ProviderBlob) {
    const std::string head = "06100000" "232e0000" "4d414731";
    const std::string parameters = "301206072a85030202230106072a850302021e01";
    struct {
        const char* what;
        std::string bits, tail;
    } const cases[] = {
        {"OCTET STRING of 64 bytes", "0440" + Repeat("AB", 64), "00020000" + parameters + Repeat("AB", 64)},
        {"header of three bytes", "048180" + Repeat("AB", 128), "00040000" + parameters + Repeat("AB", 128)},
        {"raw bytes", Repeat("AB", 66), "10020000" + parameters + Repeat("AB", 66)},
        {"shorter than its header says", "0441" + Repeat("AB", 64), "10020000" + parameters + "0441" + Repeat("AB", 64)},
        {"one byte behind", "0440" + Repeat("AB", 65), "00020000" + parameters + Repeat("AB", 64)},
        {"two bytes behind", "0440" + Repeat("AB", 66), "20020000" + parameters + "0440" + Repeat("AB", 66)},
        {"header of four bytes", "04820100" + Repeat("AB", 256), "20080000" + parameters + "04820100" + Repeat("AB", 256)},
        {"constructed", "24050403010203", "38000000" + parameters + "24050403010203"},
    };
    for (const auto& c : cases) EXPECT_EQ(NALConvertPublicKeyInfo(KeyOf(c.bits)), FromHexText(head + c.tail)) << c.what;

    CNALCertPublicKeyInfo unknown = KeyOf("0400");
    unknown.m_algorithm.m_algorithm = FromText("1.2.3");
    EXPECT_EQ(StatusOf([&] { NALConvertPublicKeyInfo(unknown); }), TOO_E_UNKNOWN_ALGORITHM);
}

TEST(Algorithms, NumbersOfOids) {
    struct {
        const char* oid;
        unsigned algId, extra;
    } const cases[] = {
        {"1.2.643.2.2.9", 0x801E, 0},      {"1.2.643.2.2.19", 0x2E23, 0},     {"1.2.643.2.2.20", 0x2E1E, 0},
        {"1.2.643.2.2.3", 0x801E, 0x2E23}, {"1.2.643.2.2.4", 0x801E, 0x2E1E}, {"1.2.643.2.2.98", 0xAA24, 0},
        {"1.2.643.2.2.21", 0x661E, 0},     {"1.3.6.1.4.1.47474.2.1.1.2", 0x8029, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.oid);
        // No terminator stands behind the text.
        const std::string text = std::string(c.oid) + "9";
        unsigned algId = 1, extra = 1;
        EXPECT_TRUE(GetAlgIDFromOID(text.data(), static_cast<unsigned>(text.size() - 1), algId, extra));
        EXPECT_EQ(algId, c.algId);
        EXPECT_EQ(extra, c.extra);
        IdentObj oid;
        EXPECT_TRUE(GetOIDFromAlgID(oid, algId, extra == 0 ? 0xFFFF : extra));
        EXPECT_EQ(oid, FromText(c.oid));
    }
    const std::string endless(5000, '1');
    for (const std::string& text : {std::string("1.2.3"), std::string(), endless}) {
        unsigned algId = 1, extra = 1;
        EXPECT_FALSE(GetAlgIDFromOID(text.data(), static_cast<unsigned>(text.size()), algId, extra));
        EXPECT_EQ(algId, 0u);
        EXPECT_EQ(extra, 0u);
    }
    IdentObj oid = FromText("old");
    EXPECT_FALSE(GetOIDFromAlgID(oid, 0x1234, 0xFFFF));
    EXPECT_TRUE(oid.IsEmpty());
    EXPECT_FALSE(GetOIDFromAlgID(oid, 0x801E, 0x801E));
}

TEST(Algorithms, Tables) {
    using List = std::vector<std::string>;
    for (const bool flag : {false, true}) EXPECT_EQ(Texts(NALGetSupportedSignOIDS(flag)), List{"1.2.643.2.2.19"});
    EXPECT_EQ(Texts(NALGetSupportedDHOIDS()), (List{"1.2.643.2.2.98", "1.2.643.2.2.99"}));
    EXPECT_EQ(NALGetSupportedKeyTypes(), (std::list<DWORD>{2, 1}));

    const List sets94{"1.2.643.2.2.32.2", "1.2.643.2.2.32.3", "1.2.643.2.2.32.4"};
    const List sets2001{"1.2.643.2.2.35.1", "1.2.643.2.2.35.3"};
    const std::pair<const char*, List> sets[] = {
        {"1.2.643.2.2.20", sets94},
        {"1.2.643.2.2.4", sets94},
        {"1.2.643.2.2.19", sets2001},
        {"1.2.643.2.2.3", sets2001},
        {"1.2.643.2.2.99", {"1.2.643.2.2.33.1", "1.2.643.2.2.33.2", "1.2.643.2.2.33.3"}},
        {"1.2.643.2.2.98", {"1.2.643.2.2.36.0", "1.2.643.2.2.36.1"}},
        {"1.3.6.1.4.1.47474.2.1.2.2", {"1.3.6.1.4.1.47474.2.1.2.2"}},
    };
    for (const auto& [oid, expected] : sets) EXPECT_EQ(Texts(NALGetSupportedParams(oid)), expected) << oid;
    EXPECT_EQ(StatusOf([] { NALGetSupportedParams("1.2.643.2.2.9"); }), TOO_E_UNKNOWN_ALGORITHM);

    for (const char* oid : {"1.2.643.2.2.19", "1.2.643.2.2.3", "1.2.643.2.2.98", "1.2.643.2.2.35.2", "1.2.643.2.2.36.1"}) {
        EXPECT_EQ(NALGetPKLenghOID(oid), 512u) << oid;
    }
    for (const char* oid : {"1.2.643.2.2.20", "1.2.643.2.2.35.0", ""}) EXPECT_EQ(NALGetPKLenghOID(oid), 1024u) << oid;
    EXPECT_EQ(NALGetNameForOID("1.2.3"), "1.2.3");
    EXPECT_NE(NALGetNameForOID("1.2.643.2.2.9"), "1.2.643.2.2.9");
}
