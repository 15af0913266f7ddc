#include <gtest/gtest.h>

#include "cms/message_test.h"
#include "nal/signed_data.h"
#include "orklog/orklog.h"
#include "too/status.h"

namespace {

using nal_test::Hex;
using nal_test::SignerByIssuer;
using nal_test::SignerByKeyId;

// CN=a; serial number 0x0080; no attributes unless they are written between the two algorithms.
constexpr char c_sid[] = "30 12 30 0C 31 0A 30 08 06 03 550403 0C 01 61 02 02 0080";
constexpr char c_digest[] = "30 08 06 06 2A8503020209";
constexpr char c_signAlgorithm[] = "30 08 06 06 2A8503020213";
constexpr char c_signature[] = "04 03 030201";

IdentObj Wrap(const std::string& parts) {
    const IdentObj elements = Hex(parts);
    return nal_test::Der([&](asnt::Writer& writer) { writer.Sequence([&] { writer.Raw(elements); }); });
}

IdentObj WithAttributes(const std::string& attributes, const std::string& unsignedAttributes = "") {
    return Wrap(std::string("020101") + c_sid + c_digest + attributes + c_signAlgorithm + c_signature + unsignedAttributes);
}

int ReadStatus(const IdentObj& der, CNALMessageSignerInfo& info) {
    int err = -1;
    info.ReadData(der.GetData(), der.GetSize(), &err);
    return err;
}

bool IsNew(const CNALMessageSignerInfo& info) {
    return info == CNALMessageSignerInfo() && info.version == 1 && info.digestAlgorithm.m_algorithm.IsEmpty() &&
           info.signature.IsEmpty() && info.signedAttrs.empty() && info.unsignedAttrs.empty();
}

TEST(SignerInfo, IsWrittenByteForByte) {
    CNALMessageSignerInfo info;
    info.version = 77;  // not trusted
    info.issuer = Hex("30 0C 31 0A 30 08 06 03 550403 0C 01 61");
    info.serialNumber = Hex("0080");
    info.digestAlgorithm = nal_test::Algorithm(c_NAL_OID_HASH_GOST94);
    info.signatureAlgorithm = nal_test::Algorithm(c_NAL_OID_KEY_GOST2001);
    info.signature = Hex("010203");
    EXPECT_EQ(info.WriteData(nullptr), WithAttributes(""));
    EXPECT_EQ(info.version, 1);
    EXPECT_TRUE(info.GetBytesToSign().IsEmpty());

    info.signedAttrs.Add("1.2.3", Hex("0500"));
    info.unsignedAttrs.Add("1.2.4", Hex("0500"));
    EXPECT_EQ(info.WriteData(nullptr), WithAttributes("A0 0A 30 08 06 02 2A03 31 02 0500", "A1 0A 30 08 06 02 2A04 31 02 0500"));
    EXPECT_EQ(info.GetBytesToSign(), Hex("31 0A 30 08 06 02 2A03 31 02 0500"));

    info.signedAttrs.Clear();
    info.unsignedAttrs.Clear();
    info.subjectKeyIdentifier = Hex("ABCD");
    EXPECT_EQ(info.WriteData(nullptr), Wrap(std::string("020103 80 02 ABCD") + c_digest + c_signAlgorithm + c_signature));
    EXPECT_EQ(info.version, 3);
}

TEST(SignerInfo, ComesBackAsItWas) {
    for (CNALMessageSignerInfo info : {SignerByIssuer(), SignerByKeyId()}) {
        IdentObj der = info.WriteData(nullptr);
        const unsigned size = der.GetSize();
        der.Append("more", 4);  // is left alone
        CNALMessageSignerInfo read;
        int err = -1;
        ASSERT_EQ(read.ReadData(der.GetData(), der.GetSize(), &err), size);
        EXPECT_EQ(err, 0);
        EXPECT_TRUE(read == info && read.version == info.version && read.signature == info.signature);
        EXPECT_TRUE(read.signedAttrs == info.signedAttrs && read.unsignedAttrs == info.unsignedAttrs);
        EXPECT_EQ(read.GetSigningDate(nullptr), CTOOFileTime::FromUnix(1795341600));
        der.SetSize(size);
        EXPECT_EQ(read.WriteData(nullptr), der);
    }
}

TEST(SignerInfo, GivesTheBytesToSignInBothOrders) {
    const IdentObj der = SignerByIssuer().WriteData(nullptr);
    CNALMessageSignerInfo info;
    info.ReadData(der.GetData(), der.GetSize(), nullptr);
    const IdentObj received = info.GetBytesToSign();
    const IdentObj sorted = info.GetBytesToSign(asnt::Order::Sorted);
    ASSERT_EQ(received.GetData()[0], 0x31);
    EXPECT_NE(received, sorted);
    EXPECT_EQ(received.GetSize(), sorted.GetSize());
    // But for the first octet the received bytes stand in the message.
    const std::string whole(reinterpret_cast<const char*>(der.GetData()), der.GetSize());
    EXPECT_NE(whole.find(std::string(reinterpret_cast<const char*>(received.GetData()) + 1, received.GetSize() - 1)),
              std::string::npos);
    EXPECT_EQ(info.WriteData(nullptr), der) << "asking for the bytes changed the list";
}

TEST(SignerInfo, RefusesDamageEverywhere) {
    for (CNALMessageSignerInfo original : {SignerByIssuer(), SignerByKeyId()}) {
        for (const IdentObj& der : nal_test::Damaged(original.WriteData(nullptr))) {
            CNALMessageSignerInfo info = original;
            EXPECT_EQ(ReadStatus(der, info), TOO_E_BAD_STRUCTURE) << der;
            EXPECT_TRUE(IsNew(info)) << der;
        }
    }
}

TEST(SignerInfo, RefusesWrongShapes) {
    const std::string rest = std::string(c_digest) + c_signAlgorithm + c_signature;
    const struct {
        const char* what;
        IdentObj der;
    } cases[] = {
        {"no integer", Wrap(std::string("040101") + c_sid + rest)},
        {"version beyond 32 bits", Wrap(std::string("0205 0100000000") + c_sid + rest)},
        {"no identifier", Wrap("020101" + rest)},
        {"one element in the identifier", Wrap("020101 30 0E 30 0C 31 0A 30 08 06 03 550403 0C 01 61" + rest)},
        {"three", Wrap("020101 30 15 30 0C 31 0A 30 08 06 03 550403 0C 01 61 02 02 0080 020101" + rest)},
        {"serial number with a needless octet", Wrap("020101 30 12 30 0C 31 0A 30 08 06 03 550403 0C 01 61 02 02 0001" + rest)},
        {"explicit key identifier", Wrap("020103 A0 04 04 02 ABCD" + rest)},
        {"empty key identifier", Wrap("020103 80 00" + rest)},
        {"[1] for a key identifier", Wrap("020103 81 02 ABCD" + rest)},
        {"signature in pieces", Wrap(std::string("020101") + c_sid + c_digest + c_signAlgorithm + "24 05 04 03 030201")},
        {"signature as bits", Wrap(std::string("020101") + c_sid + c_digest + c_signAlgorithm + "03 02 00 01")},
        {"no signed attribute in the list", WithAttributes("A0 00")},
        {"no unsigned attribute in the list", WithAttributes("", "A1 00")},
        {"unsigned attributes in the signed ones' place", WithAttributes("A1 0A 30 08 06 02 2A03 31 02 0500")},
        {"signed attributes at the end", WithAttributes("", "A0 0A 30 08 06 02 2A03 31 02 0500")},
        {"unsigned attributes twice", WithAttributes("", "A1 0A 30 08 06 02 2A03 31 02 0500 A1 0A 30 08 06 02 2A03 31 02 0500")},
        {"an attribute without values", WithAttributes("A0 06 30 04 06 02 2A03")},
        {"longer length octets than needed", WithAttributes("A0 81 0A 30 08 06 02 2A03 31 02 0500")},
        {"no SEQUENCE", Hex("31 03 020101")},
    };
    for (const auto& test : cases) {
        CNALMessageSignerInfo info = SignerByKeyId();
        EXPECT_EQ(ReadStatus(test.der, info), TOO_E_BAD_STRUCTURE) << test.what;
        EXPECT_TRUE(IsNew(info)) << test.what;
    }
    EXPECT_EQ(nal_test::FailureOf([] { CNALMessageSignerInfo().ReadData(nullptr, 5, nullptr); }), "206 MessageSignerInfo");
}

TEST(SignerInfo, CannotBeWrittenWithoutItsParts) {
    const struct {
        const char* what;
        void (*spoil)(CNALMessageSignerInfo&);
    } cases[] = {
        {"issuer", [](CNALMessageSignerInfo& info) { info.issuer = CNALX509Name(); }},
        {"issuer's form", [](CNALMessageSignerInfo& info) { info.issuer = Hex("3000 3000"); }},
        {"serial number", [](CNALMessageSignerInfo& info) { info.serialNumber.Clear(); }},
        {"digest algorithm", [](CNALMessageSignerInfo& info) { info.digestAlgorithm.m_algorithm.Clear(); }},
        {"signature algorithm", [](CNALMessageSignerInfo& info) { info.signatureAlgorithm.m_algorithm.Clear(); }},
    };
    for (const auto& test : cases) {
        CNALMessageSignerInfo info = SignerByIssuer();
        test.spoil(info);
        EXPECT_EQ(nal_test::StatusOf([&] { info.WriteData(nullptr); }), TOO_E_ENCODE) << test.what;
    }
}

TEST(SignerInfo, SigningDateIsOneTime) {
    const CTOOFileTime time = CTOOFileTime::FromUnix(1795341600);
    const IdentObj utc = Hex("17 0D 3236313132323130303030305A");
    const struct {
        const char* what;
        std::vector<IdentObj> attributes;  // each one value
        int status;
    } cases[] = {
        {"UTCTime", {utc}, 0},
        {"GeneralizedTime", {Hex("18 0F 32303236313132323130303030305A")}, 0},
        {"none", {}, TOO_E_NOT_FOUND},
        {"repeated", {utc, utc}, TOO_E_BAD_STRUCTURE},
        {"no time", {Hex("04 08 0102030405060708")}, TOO_E_BAD_STRUCTURE},
        {"no date", {Hex("17 0D 3236313333323130303030305A")}, TOO_E_BAD_STRUCTURE},
        {"without seconds", {Hex("17 0B 323631313232313030305A")}, TOO_E_BAD_STRUCTURE},
    };
    for (const auto& test : cases) {
        CNALMessageSignerInfo info;
        for (const IdentObj& value : test.attributes) info.signedAttrs.Add(c_NAL_OID_SIGNING_TIME, value);
        int err = -1;
        EXPECT_EQ(info.GetSigningDate(&err), test.status == 0 ? time : CTOOFileTime()) << test.what;
        EXPECT_EQ(err, test.status) << test.what;
    }
    CNALMessageSignerInfo info;
    CNALAttributesSet twoValues(c_NAL_OID_SIGNING_TIME, utc);
    twoValues.AddValue(utc);
    info.signedAttrs.Add(twoValues);
    EXPECT_EQ(nal_test::StatusOf([&] { info.GetSigningDate(nullptr); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(nal_test::FailureOf([] { CNALMessageSignerInfo().GetSigningDate(nullptr); }),
              std::to_string(TOO_E_NOT_FOUND) + " CNALMessageSignerInfo::GetSigningDate");
}

TEST(SignerInfo, ComparesWhatIdentifiesTheSigner) {
    CNALMessageSignerInfo other = SignerByIssuer();
    other.signature = Hex("FF");
    other.signedAttrs.Clear();
    EXPECT_TRUE(other == SignerByIssuer() && !(other < SignerByIssuer()) && !(other > SignerByIssuer()));
    other.serialNumber = Hex("00F103");
    EXPECT_TRUE(other != SignerByIssuer() && other > SignerByIssuer() && SignerByIssuer() < other);
    EXPECT_TRUE(SignerByKeyId() != SignerByIssuer() && SignerByIssuer() < SignerByKeyId());

}

}  // namespace
