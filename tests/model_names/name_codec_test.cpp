#include "nal/name_codec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "name_test_support.h"

namespace {

using namespace nal_test;  // NOLINT(google-build-using-namespace)
using X500NameParser::CertNameInfoWrapper;
using X500NameParser::X500NameDecoder;
using X500NameParser::X500NameEncoder;

constexpr unsigned kUtf8 = CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG;
constexpr unsigned kAllUtf8 = kUtf8 | CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG;

// The DER of a text in hexadecimal; "-" when the encoder refuses it.
std::string Encoded(const std::wstring& text, unsigned options = 0, bool sort = false) {
    X500NameEncoder encoder;
    encoder.SetEncoderOptions(options);
    IdentObj der;
    return encoder.Encode(text, der, sort) ? Hex(der) : "-";
}

std::wstring Decoded(const IdentObj& der, unsigned options = 0) {
    std::wstring text;
    return X500NameDecoder().Decode(der, text, options) ? text : L"-";
}

TEST(NameEncoder, ChoosesTheStringType) {
    const struct {
        const wchar_t* text;
        unsigned options;
        const char* value;  // tag, length, content
    } rows[] = {
        {L"CN=abc", 0, "1303616263"}, {L"CN=\"()+,-./:? '\"", 0, "130b28292b2c2d2e2f3a3f2027"},
        {L"CN=\"a\r\nb\"", 0, "1304610d0a62"}, {L"CN=\"a=b\"", 0, "1e060061003d0062"},
        {L"CN=a_b", 0, "1e060061005f0062"}, {L"CN=a_b", kUtf8, "0c03615f62"}, {L"CN=abc", kUtf8, "1303616263"},
        {L"CN=abc", kAllUtf8, "0c03616263"}, {L"CN=abc", CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG, "1303616263"},
        {L"CN=\x0418\x0432", 0, "1e0404180432"}, {L"CN=\x0418\x0432", kUtf8, "0c04d098d0b2"},
        {L"CN=\x1F600", 0, "1e04d83dde00"}, {L"CN=\x1F600", kUtf8, "0c04f09f9880"}, {L"C=RU", kAllUtf8, "13025255"},
        {L"SERIALNUMBER=a_1", kAllUtf8, "1303615f31"}, {L"E=a@b.c", kAllUtf8, "16056140622e63"},
    };
    for (const auto& row : rows) {
        EXPECT_THAT(Encoded(row.text, row.options), ::testing::EndsWith(row.value)) << row.text << row.options;
    }
}

TEST(NameEncoder, KnowsItsKeywordsAndOids) {
    const struct {
        const wchar_t* type;
        const char* oid;  // null when refused
    } rows[] = {
        {L"C", "0603550406"}, {L"cn", "0603550403"}, {L"e", "06092a864886f70d010901"},
        {L"EMail", "06092a864886f70d010901"}, {L"L", "0603550407"}, {L"O", "060355040a"}, {L"S", "0603550408"},
        {L"ST", nullptr}, {L"T", "060355040c"}, {L"title", "060355040c"}, {L"OU", "060355040b"},
        {L"pseudonym", "0603550441"}, {L"department", "060a2a864886f7140102810d"}, {L"serialNumber", "0603550405"},
        {L"postalAddress", "0603550410"}, {L"2.5.4.3", "0603550403"}, {L" 2.5.4.3 ", "0603550403"},
        {L"1.2.840.113549.1.9.2", "06092a864886f70d010902"}, {L"1.2.840.113556.1.2.141", "060a2a864886f7140102810d"},
        {L"1.2.3.4.5.6.7.8.9.1234", "060a2a030405060708098952"},  // 22 characters, unknown
        {L"1.2.3.4.5.6.7.8.9.12345", nullptr}, {L"OID.", nullptr}, {L"OID.2.5.4.3", nullptr},
        {L"nosuchkeyword", nullptr},
        {L"street", "0603550409"},  // the provider's
        {L"3.5.4", nullptr}, {L"1.40", nullptr}, {L"2.5.04", nullptr}, {L"\x0421N", nullptr}, {L"", nullptr},
    };
    for (const auto& row : rows) {
        const std::string der = Encoded(std::wstring(row.type) + L"=a");
        EXPECT_THAT(der, ::testing::HasSubstr(row.oid != nullptr ? row.oid : "-")) << row.type;
    }
    // A zero does not end a type early.
    EXPECT_EQ(Encoded(std::wstring(L"street\0x=a", 10)), "-");
}

TEST(NameEncoder, ReadsTheGrammar) {
    // Texts on the left mean what those on the right mean.
    const struct {
        std::wstring text, same;
        unsigned options = 0;
    } rows[] = {
        {L" CN = a b ", L"CN=\"a b\""}, {L"CN=a,O=b", L"CN=a;O=b"}, {L"CN=a\r\nO=b\r\n", L"CN=a,O=b"},
        {L",;CN=a,,", L"CN=a"},
        {L"CN=a;b", L"CN=\"a;b\"", CERT_NAME_STR_COMMA_FLAG},
        {L"CN=a,b", L"CN=\"a,b\"", CERT_NAME_STR_SEMICOLON_FLAG},
        {L"CN=a,b;c\nO=d", L"CN=\"a,b;c\"\nO=d", CERT_NAME_STR_CRLF_FLAG},
        {L"CN=a;b", L"CN=\"a;b\"", CERT_NAME_STR_COMMA_FLAG | CERT_NAME_STR_SEMICOLON_FLAG},
        {L"CN=\"a\"\"b\"", L"2.5.4.3=\"a\"\"b\""}, {L"CN=\" a\" ,O=b", L"CN=\" a\",O=b"}, {L"CN=C++", L"CN=\"C++\""},
        {L"CN=a+b", L"CN=\"a+b\""}, {L"CN=+7 495", L"CN=\"+7 495\""}, {L"CN=a + O=b", L"CN=a+O=b"},
        {L"CN=a++O=b", L"CN=\"a+\"+O=b"},
        {L"O=b+CN=a", L"CN=a+O=b"},  // a SET OF has one order
        {L"CN=\"a+O=b\"", L"CN=\"a+O=b\""}, {L"CN=#1303616263", L"CN=abc"},
        {L"CN=\"#1303616263\"", L"CN=\"#1303616263\""}, {L"CN=a#b\\<c>", L"CN=\"a#b\\<c>\""},
    };
    for (const auto& row : rows) {
        const std::string der = Encoded(row.text, row.options);
        EXPECT_NE(der, "-") << row.text;
        EXPECT_EQ(der, Encoded(row.same, row.options)) << row.text;
    }
}

TEST(NameEncoder, RefusesWhatItCannotWrite) {
    const std::wstring texts[] = {
        L"CN", L"CN=", L"CN=\"\"", L"=a", L"a", L"CN a", L"CN=a=b", L"CN=\"a", L"CN=a\"b\"", L"CN=\"a\"b",
        L"CN=\"a\"\"", L"\"CN\"=a", L"CN==a", L"CN=a+O=", L"CN=#", L"CN=#1", L"CN=#12 firm", L"CN=#130361",
        L"CN=#130161FF", L"CN=#0C01FF", L"CN=#1E0100", L"CN=#1E02D800", L"CN=#3303616263", L"CN=#3080", L"CN=#0C00",
        L"C=\x0420\x0424", L"E=\x00E9@b.c", L"CN=\xD800", std::wstring(L"CN=a\x110000", 5),
    };
    for (const std::wstring& text : texts) EXPECT_EQ(Encoded(text), "-") << testing::PrintToString(text);
    // What is no separator belongs to the value, where "=" needs quotes.
    EXPECT_EQ(Encoded(L"CN=a;O=b", CERT_NAME_STR_CRLF_FLAG), "-");
    EXPECT_EQ(Encoded(L"CN=a,O=b", CERT_NAME_STR_SEMICOLON_FLAG), "-");

    X500NameEncoder encoder;
    IdentObj der;
    EXPECT_FALSE(encoder.Encode(L"CN=a, ST=b", der, true));
    EXPECT_THAT(encoder.GetFailure().str(), ::testing::HasSubstr("ST"));
    EXPECT_EQ(Encoded(L""), "3000");
}

TEST(NameEncoder, OrdersByPriority) {
    EXPECT_EQ(Encoded(L"CN=a,C=RU,O=b", 0, true), Encoded(L"C=RU,O=b,CN=a"));
    EXPECT_EQ(Encoded(L"CN=a,T=t,OU=u,O=o,E=e,department=d,serialNumber=1,postalAddress=p,S=s,L=l,C=RU,"
                      L"1.2.840.113549.1.9.2=n,2.5.4.4=x,pseudonym=y,2.5.4.42=z",
                      0, true),
              Encoded(L"2.5.4.4=x,2.5.4.42=z,1.2.840.113549.1.9.2=n,C=RU,L=l,S=s,postalAddress=p,serialNumber=1,"
                      L"department=d,E=e,O=o,OU=u,T=t,CN=a,pseudonym=y"));
    // A joined RDN goes by its most significant attribute, whichever is written first.
    EXPECT_EQ(Encoded(L"serialNumber=1+CN=a,O=o,CN=b+O=c,C=RU", 0, true),
              Encoded(L"C=RU,O=o,CN=a+serialNumber=1,O=c+CN=b"));

    const std::list<CNALSimpleRDN> pairs = {{"CN", "a"}, {"C", "RU"}, {"O", "b"}};
    X500NameEncoder encoder;
    IdentObj der;
    ASSERT_TRUE(encoder.Encode(pairs, der, true));
    EXPECT_EQ(Decoded(der), L"c=RU,o=b,cn=a");
    ASSERT_TRUE(encoder.Encode(pairs, der, false));
    EXPECT_EQ(Decoded(der), L"cn=a,c=RU,o=b");
}

TEST(NameEncoder, PriorityIsByOidOnly) {
    EXPECT_EQ(X500NameParser::GetAttrPriority(CTOOString("2.5.4.6")), 10);
    EXPECT_EQ(X500NameParser::GetAttrPriority(std::wstring(L"1.2.840.113549.1.9.2")), 11);
    EXPECT_EQ(X500NameParser::GetAttrPriority(CTOOString("CN")), 99);
    EXPECT_EQ(X500NameParser::GetAttrPriority(std::wstring(L"2.5.4.\x0663")), 99);
}

TEST(NameDecoder, PrintsAndQuotes) {
    const struct {
        std::string value;
        std::wstring text;
    } rows[] = {
        {Tlv(19, "abc"), L"cn=abc"}, {Tlv(12, ""), L"cn=\"\""}, {Tlv(12, " a"), L"cn=\" a\""},
        {Tlv(12, "a\t"), L"cn=\"a\t\""}, {Tlv(12, "\xE3\x80\x80"), L"cn=\"\x3000\""}, {Tlv(12, "a b"), L"cn=a b"},
        {Tlv(12, "a,b"), L"cn=\"a,b\""}, {Tlv(12, "a'b"), L"cn=\"a'b\""}, {Tlv(12, "a\"b"), L"cn=\"a\"\"b\""},
        {Tlv(12, "\\"), L"cn=\"\\\""}, {Tlv(12, "\xD0\x98"), L"cn=\x0418"},
        {Tlv(12, std::string("a\0b", 3)), std::wstring(L"cn=a\0b", 6)},
        {Tlv(30, Raw("0418d83dde00")), L"cn=\x0418\x1F600"}, {Tlv(20, "\xE9"), L"cn=\xE9"},
        {Tlv(22, "\xE9"), L"cn=\xE9"}, {Tlv(18, "1 2"), L"cn=1 2"}, {Tlv(27, "g"), L"cn=g"},
        {Tlv(28, Raw("00000041")), L"cn=#1C0400000041"}, {Tlv(4, "\x01\xAB"), L"cn=#040201AB"},
        {Tlv(2, "\x05"), L"cn=#020105"}, {Tlv(0x30, Tlv(5, "")), L"cn=#30020500"},
    };
    for (const auto& row : rows) EXPECT_EQ(Decoded(Name({Attr(3, row.value)})), row.text) << row.text;

    const CNALX509Name two = Name({Attr(6, Tlv(19, "RU")), Attr(8, Tlv(19, "x")) + Attr(7, Tlv(19, "y"))});
    EXPECT_EQ(Decoded(two), L"c=RU,st=x+l=y");
    EXPECT_EQ(Decoded(two, CERT_NAME_STR_SEMICOLON_FLAG), L"c=RU;st=x+l=y");
    EXPECT_EQ(Decoded(two, CERT_NAME_STR_SEMICOLON_FLAG | CERT_NAME_STR_CRLF_FLAG), L"c=RU\r\nst=x+l=y");
    EXPECT_EQ(Decoded(Name({"", Attr(6, Tlv(19, "RU")), ""})), L"c=RU");
}

TEST(NameDecoder, RefusesDamage) {
    const std::string good = Tlv(0x31, Attr(3, Tlv(19, "a")));
    const std::string oid = Raw("0603550403");
    const auto attr = [](const std::string& content) { return Tlv(0x30, Tlv(0x31, Tlv(0x30, content))); };
    const std::string ders[] = {
        "", Raw("30"), Raw("3080"), Raw("30803100"), Tlv(0x31, good), Tlv(0x30, good) + std::string(1, '\0'), Tlv(0x30, good + "x"),
        Tlv(0x30, Tlv(0x31, good)),                   // an RDN in an RDN
        Tlv(0x30, Tlv(0x30, Attr(3, Tlv(19, "a")))),  // a SEQUENCE for the SET
        attr(oid),                                    // no value
        attr(oid + Tlv(19, "a") + Tlv(19, "b")), attr(Tlv(19, "a") + oid), attr(Tlv(6, "") + Tlv(19, "a")),
        attr(Tlv(6, "\x55\x84") + Tlv(19, "a")),               // truncated arc
        attr(Tlv(6, "\x55\x80\x04") + Tlv(19, "a")),           // padded arc
        Raw("30818c") + Tlv(0x31, Attr(3, Tlv(19, "a"))),       // longer than what is there
        Raw("308110") + Tlv(0x31, Attr(3, Tlv(19, "abcdef"))),  // a length in a longer form
    };
    for (const std::string& der : ders) {
        CertNameInfoWrapper info;
        EXPECT_EQ(Decoded(ToBytes(der)), L"-") << Hex(ToBytes(der));
        EXPECT_FALSE(X500NameDecoder().Decode(ToBytes(der), info)) << Hex(ToBytes(der));
    }

    const CNALX509Name whole(L"C=RU,CN=\x0418\x0432+serialNumber=12,2.5.4.4=x", 0, false);
    for (unsigned size = 0; size < whole.GetSize(); ++size) EXPECT_EQ(Decoded(IdentObj(whole.GetData(), size)), L"-") << size;

    const std::string values[] = {
        Tlv(12, "\xFF"), Tlv(12, "\xC0\x80"), Tlv(12, "\xD0"), Tlv(12, "\xED\xA0\x80"), Tlv(12, "\xE0\x80\x80"),
        Tlv(12, "\xF4\x90\x80\x80"), Tlv(12, "\xF8\x88\x80\x80\x80"), Tlv(30, "\xD8\x3D"), Tlv(30, "\xDE\x3D"),
        Tlv(30, "a"), Tlv(30, "\xD8\x3D\xD8\x3D"), Tlv(0x33, Tlv(19, "a")), Tlv(0x2C, Tlv(12, "a")),
    };
    for (const std::string& value : values) {
        const CNALX509Name name = Name({Attr(3, value)});
        CertNameInfoWrapper info;
        EXPECT_EQ(Decoded(name), L"-") << Hex(name);
        EXPECT_FALSE(X500NameDecoder().Decode(name, info)) << Hex(name);
        EXPECT_EQ(StatusOf([&] { return name == Name({}); }), TOO_E_NAME_DECODE) << Hex(name);
    }
}

TEST(NameDecoder, GivesRecords) {
    const CNALX509Name name =
        Name({Attr(6, Tlv(19, "RU")), Attr(3, Tlv(30, Raw("0418"))) + Attr(5, Tlv(2, "\x07")), ""});
    CertNameInfoWrapper info;
    ASSERT_TRUE(X500NameDecoder().Decode(name, info));
    const CERT_NAME_INFO& record = *static_cast<CERT_NAME_INFO*>(info);
    ASSERT_EQ(record.cRDN, 3u);
    EXPECT_EQ(record.rgRDN[2].cRDNAttr, 0u);
    ASSERT_EQ(record.rgRDN[1].cRDNAttr, 2u);
    EXPECT_STREQ(record.rgRDN[0].rgRDNAttr[0].pszObjId, "2.5.4.6");
    const CERT_RDN_ATTR& wide = record.rgRDN[1].rgRDNAttr[0];
    EXPECT_EQ(wide.dwValueType, static_cast<DWORD>(CERT_RDN_BMP_STRING));
    EXPECT_EQ(IdentObj(wide.Value.pbData, wide.Value.cbData), WideBytes(L"\x0418"));
    const CERT_RDN_ATTR& blob = record.rgRDN[1].rgRDNAttr[1];
    EXPECT_EQ(blob.dwValueType, static_cast<DWORD>(CERT_RDN_ENCODED_BLOB));
    EXPECT_EQ(Hex(IdentObj(blob.Value.pbData, blob.Value.cbData)), "020107");

    EXPECT_FALSE(X500NameDecoder().Decode(ToBytes("x"), info));
    EXPECT_EQ(record.cRDN, 0u);
    EXPECT_EQ(record.rgRDN, nullptr);
}

// Encodes with every combination of options and order; the printed text gives the same DER again.
void ExpectStable(const std::wstring& text) {
    for (const unsigned options : {0u, kUtf8, kAllUtf8}) {
        for (const bool sort : {false, true}) {
            const std::string der = Encoded(text, options, sort);
            if (der == "-") continue;
            for (const unsigned separator : {0, CERT_NAME_STR_SEMICOLON_FLAG, CERT_NAME_STR_CRLF_FLAG}) {
                const std::wstring printed = Decoded(ToBytes(Raw(der)), separator);
                EXPECT_EQ(Encoded(printed, options | separator, sort), der) << testing::PrintToString(printed);
            }
        }
    }
}

TEST(NameRoundTrip, HardNames) {
    const std::wstring values[] = {
        L"a", L"\"", L"\"\"\"\"", L"a\"b", L",", L";", L"+", L"C++", L"a+O=b", L"=", L"#", L"#1303616263", L"'",
        L"\\", L"<>", L" ", L"  a  ", L"\t", L"a\r\nb", L"\r\n", L"\x3000", L"a\x3000", L"\x0418\x0432\x0430\x043D",
        L"\x1F600", L"\x10FFFF",
        L"\xFEFF"
        L"a", L"\xFFFE", std::wstring(L"a\0b", 3), std::wstring(1, L'\0'), L"\x7F", L"OID.", L"CN=a,O=b", L"\x0085",
        std::wstring(5000, L'\x042F'), L"(),-./:?",
    };
    unsigned encodable = 0;
    for (std::wstring value : values) {
        X500NameDecoder::QuoteAttr(value);
        for (const wchar_t* type : {L"CN", L"E", L"C", L"2.5.4.4", L"1.2.840.113549.1.9.2", L"1.2.3"}) {
            const std::wstring element = std::wstring(type) + L"=" + value;
            encodable += Encoded(element) != "-";
            ExpectStable(element);
            ExpectStable(L"O=x," + element + L"+OU=y, C=RU+" + element);
        }
    }
    EXPECT_GT(encodable, 150u);
    ExpectStable(L"CN=#020105,C=#30020500+O=#1C0400000041,L=#0101FF");
}

TEST(NameRoundTrip, RandomNames) {
    std::mt19937 random(20260722);
    const auto pick = [&random](std::size_t count) { return random() % count; };
    const std::wstring types[] = {L"CN", L"c", L"Ou", L"o", L"E", L"t", L"serialNumber", L"2.5.4.4", L"1.2.643.100.1"};
    const std::wstring alphabet = L"ab,;+\"\\=<>#'\r\n \t.@_\x0416\x0437\x4E2D\x1F600\x3000";
    unsigned encodable = 0;
    for (int round = 0; round < 3000; ++round) {
        std::wstring text;
        const std::size_t count = 1 + pick(6);
        for (std::size_t i = 0; i < count; ++i) {
            std::wstring value;
            for (std::size_t length = 1 + pick(8); length > 0; --length) value += alphabet[pick(alphabet.size())];
            // Mostly quoted; a bare value is often refused, and what is not refused is stable as well.
            if (pick(4) != 0) X500NameDecoder::QuoteAttr(value);
            if (i > 0) text += pick(3) == 0 ? L'+' : L',';
            text += types[pick(std::size(types))] + L"=" + value;
        }
        encodable += Encoded(text, kAllUtf8) != "-";
        ExpectStable(text);
    }
    EXPECT_GT(encodable, 300u);
}

// Names that the encoder would not have made: each row says what reading the printed text gives.
TEST(NameRoundTrip, OtherNames) {
    enum class Result { SameDer, EqualName, Refused };
    using enum Result;
    const std::string ogrn = Tlv(0x30, Tlv(6, Raw("2a85036401")) + Tlv(18, "1027700132195"));
    const std::string domain = Tlv(0x30, Tlv(6, Raw("0992268993f22c640119")) + Tlv(22, "example"));
    const struct {
        const char* what;
        CNALX509Name name;
        Result result;
    } rows[] = {
        {"state", Name({Attr(8, Tlv(19, "Moscow"))}), Refused},
        {"dotted type of 26 characters", Name({domain}), Refused},
        {"empty value", Name({Attr(3, Tlv(12, ""))}), Refused},
        {"country beyond ASCII", Name({Attr(6, Tlv(12, "\xD0\xA0\xD0\xA4"))}), Refused},
        {"e-mail beyond ASCII", Name({Tlv(0x30, Raw("06092a864886f70d010901") + Tlv(22, "\xE9"))}), Refused},
        {"short dotted type, NumericString", Name({ogrn}), EqualName},
        {"TeletexString", Name({Attr(3, Tlv(20, "Andr\xE9"))}), EqualName},
        {"VisibleString", Name({Attr(3, Tlv(26, "abc"))}), EqualName},
        {"UTF8String of printable text", Name({Attr(3, Tlv(12, "abc"))}), EqualName},
        {"country in UTF8String", Name({Attr(6, Tlv(12, "RU"))}), EqualName},
        {"RDN without attributes", Name({"", Attr(3, Tlv(19, "abc"))}), EqualName},
        {"UniversalString", Name({Attr(3, Tlv(28, Raw("00000041")))}), SameDer},
        {"OCTET STRING", Name({Attr(3, Tlv(4, "a"))}), SameDer},
        {"structure", Name({Attr(3, Tlv(0x30, Tlv(2, "\x01")))}), SameDer},
        {"BMPString", Name({Attr(3, Tlv(30, Raw("0418")))}), SameDer},
    };
    for (const auto& row : rows) {
        const std::string der = Encoded(Decoded(row.name));
        EXPECT_EQ(der == "-", row.result == Refused) << row.what;
        if (der == "-") continue;
        EXPECT_EQ(der == Hex(row.name), row.result == SameDer) << row.what;
        EXPECT_TRUE(CNALX509Name(ToBytes(Raw(der))) == row.name) << row.what;
    }
}

TEST(NameRoundTrip, RecordsKeepTheirTypes) {
    const CNALX509Name names[] = {
        Name({Attr(8, Tlv(19, "Moscow")), Attr(3, Tlv(20, "\xE9")), Attr(6, Tlv(12, "RU"))}),
        Name({Attr(3, Tlv(30, Raw("d83dde00"))) + Attr(5, Tlv(28, "\1\2\3\4"))}),
        Name({Attr(3, Tlv(0x30, Tlv(2, "\x01"))), Attr(3, Tlv(4, "a")), Attr(3, Tlv(18, "1"))}),
        Name({Tlv(0x30, Tlv(6, Raw("0992268993f22c640119")) + Tlv(22, "example"))}),
        Name({}),
    };
    for (const CNALX509Name& name : names) {
        std::list<std::list<CNALRDNAttr>> rdns;
        name.GetNameInfo(rdns);
        CertNameInfoWrapper info;
        ASSERT_TRUE(X500NameDecoder().Decode(name, info));
        for (const bool utf8 : {false, true}) {
            CNALX509Name again;
            again.SetBy(rdns, utf8);
            EXPECT_EQ(Hex(again), Hex(name));
            again.SetBy(*static_cast<CERT_NAME_INFO*>(info), utf8);
            EXPECT_EQ(Hex(again), Hex(name));
        }
    }
}

TEST(NameEncoder, AttributesMustFitTheirTypes) {
    const struct {
        const char* oid;
        unsigned type;
        IdentObj value;
        const char* der;  // the end of the encoding; null when refused
    } rows[] = {
        {"2.5.4.3", CERT_RDN_ANY_TYPE, WideBytes(L"ab"), "0c026162"},
        {"2.5.4.6", CERT_RDN_ANY_TYPE, WideBytes(L"RU"), "13025255"},
        {"2.5.4.3", CERT_RDN_ENCODED_BLOB, ToBytes("\x02\x01\x05"), "020105"},
        {"2.5.4.3", CERT_RDN_ENCODED_BLOB, ToBytes("\x02\x01\x05\x05"), nullptr},
        {"2.5.4.3", CERT_RDN_IA5_STRING, ToBytes("\xE9"), "1601e9"},
        {"2.5.4.3", CERT_RDN_UTF8_STRING, ToBytes("abc"), nullptr},
        {"2.5.4.3", CERT_RDN_UTF8_STRING, WideBytes(L"\xD800"), nullptr},
        {"2.5.4.3", CERT_RDN_PRINTABLE_STRING, IdentObj(), nullptr}, {"2.5.4.3", 14, ToBytes("a"), nullptr},
        {"CN", CERT_RDN_PRINTABLE_STRING, ToBytes("a"), nullptr},
        {"", CERT_RDN_PRINTABLE_STRING, ToBytes("a"), nullptr},
    };
    for (const auto& row : rows) {
        const std::list<std::list<CNALRDNAttr>> rdns = {{CNALRDNAttr(row.oid, row.type, row.value)}};
        CNALX509Name name(L"CN=before", 0, true);
        const int status = StatusOf([&] { name.SetBy(rdns, true); });
        if (row.der) {
            EXPECT_EQ(status, 0) << row.type;
            EXPECT_THAT(Hex(name), ::testing::EndsWith(row.der));
        } else {
            EXPECT_EQ(status, TOO_E_NAME_ENCODE) << row.type;
            EXPECT_EQ(Text(name), L"cn=before");
        }
    }
    CERT_NAME_INFO nothing{1, nullptr};
    EXPECT_EQ(StatusOf([&] { CNALX509Name{nothing}; }), TOO_E_NAME_ENCODE);
}

}  // namespace
