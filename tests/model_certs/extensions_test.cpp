// Extensions, lists of them, and the values that have a class.
#include "nal/extensions.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/certificate_parts.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "too/time.h"

namespace {

using nal_test::Der;
using nal_test::FromHexText;
using nal_test::StatusOf;

// The Name CN=CA, in hexadecimal.
const std::string c_name = "300d310b300906035504030c024341";

struct Sample {
    const char* type;
    std::function<std::unique_ptr<CNALExtensionValue>()> make;
    std::string hex;
};

template <class Value>
Sample SampleOf(const char* type, const std::string& hex) {
    return {type, [] { return std::make_unique<Value>(); }, hex};
}

// Values as RFC 5280 and its older relatives lay them out, put together by hand.
const Sample c_samples[] = {
    SampleOf<CNALSubjectKeyID>("subject key identifier", "040401020304"),
    SampleOf<CNALIssuerPublicKeyID>("authority key identifier", "301d 8003010203 a111a40f" + c_name + "820300f102"),
    SampleOf<CNALIssuerPublicKeyID>("older authority key identifier", "301a 8003010203 a10f" + c_name + "82021102"),
    SampleOf<CNALBasicConstraints>("basic constraints", "30060101ff020103"),
    SampleOf<CNALOldBasicConstraints>("older basic constraints", "3018 03020780 020102 a00f" + c_name),
    SampleOf<CNALKeyUsage>("key usage", "030205e0"),
    SampleOf<CNALExtendedKeyUsage>("extended key usage", "301606082b06010505070302060a2b0601040182370a0301"),
    SampleOf<CKeyUsagePeriod>("usage period", "3022 800f32303236303130313030303030305a 810f32303237303130313030303030305a"),
    SampleOf<CNALAlternativeNames>("alternative names", "3032 a00906022a03a0030c0178 8103614062 820168 a40f" + c_name +
                                                            "8602753a 87047f000001 88022a03"),
    SampleOf<CNALCRLNumber>("CRL number", "020400f10203"),
    SampleOf<CNALReasonCode>("reason code", "0a0101"),
    SampleOf<CNALCRLDistributionPoints>("distribution points", "3038 3025 a00ca00a8608687474703a2f2f63 81020106 a211a40f" + c_name +
                                                                   "300fa00da10b300906035504030c024341"),
    SampleOf<CNALCertificatePolicies>("policies", "301f 300406022a03 301706022a04301130 0f06082b060105050702011603637073"),
};

template <class Value>
Value Decoded(const std::string& hex) {
    Value value;
    value.Read(CNALCertExtension("1.2.3", false, FromHexText(hex)));
    return value;
}

}  // namespace

TEST(ExtensionValues, RoundTrip) {
    for (const auto& sample : c_samples) {
        SCOPED_TRACE(sample.type);
        const IdentObj der = FromHexText(sample.hex);
        auto value = sample.make();
        EXPECT_EQ(value->ReadData(der.GetData(), der.GetSize()), der.GetSize());
        EXPECT_EQ(value->WriteData(), der);
        EXPECT_EQ(value->GetObjectSize(), der.GetSize());
        EXPECT_EQ(value->ReadData(nullptr, 4), 0u);
        EXPECT_EQ(value->ReadData(der.GetData(), 0), 0u);
    }
}

// Cut anywhere, with a byte too many, and as the value of every other extension: refused, and the object stays as it was.
TEST(ExtensionValues, WhatIsNotTheirsIsRefused) {
    for (const auto& sample : c_samples) {
        SCOPED_TRACE(sample.type);
        const IdentObj der = FromHexText(sample.hex);
        auto value = sample.make();
        value->ReadData(der.GetData(), der.GetSize());
        auto refuses = [&](const IdentObj& bytes) { return !value->TryRead(CNALCertExtension("1.2.3", false, bytes)); };

        for (unsigned size = 0; size < der.GetSize(); ++size) EXPECT_TRUE(refuses(IdentObj(der.GetData(), size))) << size;
        IdentObj longer = der;
        longer.Append("", 1);
        EXPECT_TRUE(refuses(longer));
        for (const auto& other : c_samples) {
            if (typeid(*other.make()) == typeid(*value)) continue;
            EXPECT_TRUE(refuses(FromHexText(other.hex))) << other.type;
        }
        EXPECT_EQ(value->WriteData(), der);
        EXPECT_EQ(StatusOf([&] { value->Read(CNALCertExtension("1.2.3", false, longer)); }), TOO_E_BAD_STRUCTURE);
    }
}

TEST(ExtensionValues, AuthorityKeyIdentifier) {
    const auto both = Decoded<CNALIssuerPublicKeyID>("301d8003010203a111a40f" + c_name + "820300f102");
    EXPECT_EQ(both.GetKeyID(), FromHexText("010203"));
    EXPECT_EQ(both.GetIssuerSerial(), FromHexText("02f100"));  // least significant first, the sign octet kept
    EXPECT_EQ(both.GetIssuerName(), FromHexText(c_name));
    EXPECT_FALSE(both.m_oldForm);

    // The older form's Name, under an EXPLICIT tag and with the tag in the place of its own.
    for (const std::string& hex : {"3011a10f" + c_name, "300fa10d" + c_name.substr(4)}) {
        const auto old = Decoded<CNALIssuerPublicKeyID>(hex);
        EXPECT_EQ(old.GetIssuerName(), FromHexText(c_name));
        EXPECT_TRUE(old.m_oldForm);
        EXPECT_EQ(old.WriteData(), FromHexText("3011a10f" + c_name));
        EXPECT_TRUE(old.GetKeyID().IsEmpty());
        EXPECT_TRUE(old.GetIssuerSerial().IsEmpty());
    }
    EXPECT_TRUE(Decoded<CNALIssuerPublicKeyID>("3006a1048602753a").GetIssuerName().IsEmpty());

    CNALCertExtensionList list;
    CNALIssuerPublicKeyID found;
    EXPECT_FALSE(found.ReadFrom(list));
    list.Add(CNALIssuerPublicKeyID(FromHexText("35")).ToExtension("2.5.29.35", false));
    EXPECT_TRUE(found.ReadFrom(list));
    EXPECT_EQ(found.GetKeyID(), FromHexText("35"));
    list.Add(CNALIssuerPublicKeyID(FromHexText("01")).ToExtension("2.5.29.1", false));
    EXPECT_TRUE(found.ReadFrom(list));
    EXPECT_EQ(found.GetKeyID(), FromHexText("01"));
}

TEST(ExtensionValues, Constraints) {
    struct {
        const char* hex;
        bool isCA, hasLength;
        DWORD length;
    } const cases[] = {
        {"3000", false, false, 0},
        {"30030101ff", true, false, 0},
        {"3003010100", false, false, 0},
        {"3003020100", false, true, 0},
        {"300a0101ff020500ffffff7f", true, true, 0xFFFFFF7F},
        {"300e0101ff020900ffffffffffffffff", true, true, 0xFFFFFFFF},
        {"300f0101ff020a00ffffffffffffffffff", true, true, 0xFFFFFFFF},
    };
    for (const auto& c : cases) {
        const auto read = Decoded<CNALBasicConstraints>(c.hex);
        EXPECT_TRUE(read.m_isCA == c.isCA && read.m_hasPathLength == c.hasLength && read.m_pathLength == c.length) << c.hex;
    }
    EXPECT_EQ(StatusOf([] { Decoded<CNALBasicConstraints>("30060101ff0201ff"); }), TOO_E_BAD_STRUCTURE);  // -1

    const auto old = Decoded<CNALOldBasicConstraints>("300703020780020102");
    EXPECT_TRUE(old.IsCA() && old.m_hasPathLength && old.m_pathLength == 2);
    EXPECT_FALSE(Decoded<CNALOldBasicConstraints>("300403020640").IsCA() || Decoded<CNALOldBasicConstraints>("3003030100").IsCA());
}

TEST(ExtensionValues, UsagesPeriodsAndReasons) {
    struct {
        unsigned flags;
        const char* hex;
    } const usages[] = {{0, "030100"},
                        {CNALKeyUsage::DigitalSignature, "03020780"},
                        {CNALKeyUsage::KeyCertSign | CNALKeyUsage::CrlSign, "03020106"},
                        {CNALKeyUsage::KeyAgreement | CNALKeyUsage::DecipherOnly, "0303070880"}};
    for (const auto& c : usages) {
        EXPECT_EQ(CNALKeyUsage(c.flags).WriteData(), FromHexText(c.hex));
        EXPECT_EQ(Decoded<CNALKeyUsage>(c.hex).GetFlags(), c.flags);
    }
    EXPECT_TRUE(CNALKeyUsage(0x81).HasAny(0x80));
    EXPECT_FALSE(CNALKeyUsage(0x81).HasAny(0x30));

    CNALExtendedKeyUsage extended;
    extended.m_usages = {"1.3.6.1.5.5.7.3.2"};
    EXPECT_TRUE(extended.Contains("1.3.6.1.5.5.7.3.2"));
    EXPECT_FALSE(extended.Contains("1.3.6.1.5.5.7.3.22"));

    const auto open = Decoded<CKeyUsagePeriod>("3011810f32303237303130313030303030305a");
    EXPECT_FALSE(open.m_hasNotBefore);
    EXPECT_TRUE(CTOOFileTime(open.m_notBefore).IsZero());
    ASSERT_TRUE(open.m_hasNotAfter);
    EXPECT_EQ(CTOODateTime(CTOOFileTime(open.m_notAfter)).ToString(), "2027-01-01 00:00:00");
    // A UTCTime's content under the tag, and no date of this calendar.
    for (const char* hex : {"300f800d3237303130313030303030305a", "3011800f32303237303233303030303030305a"}) {
        EXPECT_EQ(StatusOf([&] { Decoded<CKeyUsagePeriod>(hex); }), TOO_E_BAD_STRUCTURE) << hex;
    }

    EXPECT_EQ(Decoded<CNALReasonCode>("0a010a").m_reason, 10u);
    for (const char* hex : {"0a0107", "0a010b", "0a01ff", "0a0300ffff"}) {
        EXPECT_EQ(StatusOf([&] { Decoded<CNALReasonCode>(hex); }), TOO_E_BAD_STRUCTURE) << hex;
    }
    EXPECT_EQ(Decoded<CNALCRLNumber>("020400f10203").m_number, FromHexText("0302f100"));
}

TEST(ExtensionValues, EmptyListsAreRefused) {
    EXPECT_EQ(StatusOf([] { Decoded<CNALAlternativeNames>("3000"); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(StatusOf([] { Decoded<CNALExtendedKeyUsage>("3000"); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(StatusOf([] { Decoded<CNALCRLDistributionPoints>("3000"); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(StatusOf([] { Decoded<CNALCertificatePolicies>("3000"); }), TOO_E_BAD_STRUCTURE);
}

TEST(Extension, ReadsAndWrites) {
    struct {
        const char* hex;
        bool critical;
        const char* written;
    } const cases[] = {{"300b0603551d0e040401020304", false, "300b0603551d0e040401020304"},
                       {"300e0603551d0e0101ff040401020304", true, "300e0603551d0e0101ff040401020304"},
                       {"300e0603551d0e010100040401020304", false, "300b0603551d0e040401020304"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.hex);
        CNALCertExtension extension;
        const IdentObj der = FromHexText(c.hex);
        EXPECT_EQ(extension.ReadData(der.GetData(), der.GetSize()), der.GetSize());
        EXPECT_EQ(extension.m_oid, "2.5.29.14");
        EXPECT_EQ(extension.m_critical, c.critical);
        EXPECT_EQ(extension.m_value, FromHexText("01020304"));
        EXPECT_EQ(extension.WriteData(), FromHexText(c.written));
        EXPECT_EQ(extension.GetObjectSize(), extension.WriteData().GetSize());
    }
    // No value, a value of another type, something behind it, an OID that breaks off.
    for (const char* hex : {"30050603551d0e", "300b0603551d0e030401020304", "300d0603551d0e0404010203040500", "30080602558104020102"}) {
        CNALCertExtension extension("1.2.3", true, {});
        const IdentObj der = FromHexText(hex);
        EXPECT_EQ(StatusOf([&] { extension.ReadData(der.GetData(), der.GetSize()); }), TOO_E_BAD_STRUCTURE) << hex;
        EXPECT_EQ(extension, CNALCertExtension("1.2.3", true, {}));
    }
}

TEST(ExtensionList, FindsWholeOidsOnly) {
    CNALCertExtensionList list;
    list.Add({"2.5.29.1", false, FromHexText("01")});
    list.Add({"2.5.29.14", false, FromHexText("0e")});
    list.Add({"2.5.29.14", true, FromHexText("ff")});
    CNALCertExtension found;
    EXPECT_TRUE(list.FindExtension("2.5.29.14", found));
    EXPECT_EQ(found.m_value, FromHexText("0e"));
    EXPECT_FALSE(list.FindExtension("2.5.29", found));
    EXPECT_FALSE(list.FindExtension("2.5.29.140", found));
    EXPECT_EQ(found.m_value, FromHexText("0e"));

    list.Replace({"2.5.29.14", false, FromHexText("aa")});
    list.Replace({"2.5.29.15", false, FromHexText("bb")});
    ASSERT_EQ(list.size(), 4u);
    EXPECT_EQ(list[1].m_value, FromHexText("aa"));
    EXPECT_EQ(list[2].m_value, FromHexText("ff"));
    EXPECT_EQ(list[3].m_oid, "2.5.29.15");

    const IdentObj der = list.WriteData();
    CNALCertExtensionList read;
    EXPECT_EQ(read.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    EXPECT_EQ(read, list);
    EXPECT_EQ(list.GetObjectSize(), der.GetSize());
    EXPECT_FALSE(read < list);
    EXPECT_TRUE(CNALCertExtensionList() == CNALCertExtensionList());
}

TEST(ExtensionList, DamagedOnesAddNothing) {
    CNALCertExtensionList list;
    list.Add({"2.5.29.1", false, FromHexText("01")});
    const IdentObj der = FromHexText("3011300b0603551d0e0404010203043002020100");
    EXPECT_EQ(StatusOf([&] { list.ReadData(der.GetData(), der.GetSize()); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(list.size(), 1u);
}
