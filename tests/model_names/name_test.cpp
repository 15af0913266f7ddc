#include "nal/name.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "name_test_support.h"

namespace {

using namespace nal_test;  // NOLINT(google-build-using-namespace)

TEST(Name, EmptyNames) {
    const CNALX509Name empty;
    EXPECT_EQ(Text(empty), L"");
    std::list<CNALSimpleRDN> pairs = {{"a", "b"}};
    empty.GetSimpleRDNList(pairs, true);
    EXPECT_TRUE(pairs.empty());

    CTOOString value = "x";
    std::list<std::list<CNALRDNAttr>> rdns;
    EXPECT_EQ(StatusOf([&] { empty.GetSimpleRDN("2.5.4.3", value); }), TOO_E_NAME_DECODE);
    EXPECT_EQ(value, "");
    EXPECT_EQ(StatusOf([&] { empty.GetNameInfo(rdns); }), TOO_E_NAME_DECODE);
    EXPECT_TRUE(empty == Name({}));
    EXPECT_FALSE(empty == Name({Attr(3, Tlv(19, "a"))}));
    EXPECT_EQ(StatusOf([&] { Text(CNALX509Name(ToBytes("x"))); }), TOO_E_NAME_DECODE);
}

TEST(Name, Equality) {
    const std::string a = Attr(3, Tlv(19, "a"));
    const std::string b = Attr(10, Tlv(19, "b"));
    const struct {
        const char* what;
        CNALX509Name left, right;
        bool equal;
    } rows[] = {
        {"order", Name({a, b}), Name({b, a}), true},
        {"duplicates", Name({a, a}), Name({a}), false},
        {"duplicates of another", Name({a, a, b}), Name({a, b, b}), false},
        {"string type", Name({a}), Name({Attr(3, Tlv(30, Raw("0061")))}), true},
        {"attribute type", Name({a}), Name({Attr(4, Tlv(19, "a"))}), false},
        {"case", Name({a}), Name({Attr(3, Tlv(19, "A"))}), false},
        {"blank", Name({a}), Name({Attr(3, Tlv(19, "a "))}), false},
        {"second attribute", Name({a + b}), Name({a}), true},
        {"first attribute", Name({a + b}), Name({b + a}), false},
        {"RDN without attributes", Name({a, ""}), Name({a}), true},
        {"zero", Name({Attr(3, Tlv(12, std::string("a\0b", 3)))}), Name({a}), false},
        {"behind a zero", Name({Attr(3, Tlv(12, std::string("a\0b", 3)))}),
         Name({Attr(3, Tlv(12, std::string("a\0c", 3)))}), false},
        {"Cyrillic", Name({Attr(3, Tlv(12, "\xD0\x98"))}), Name({Attr(3, Tlv(30, Raw("0418")))}), true},
        {"two letters that no narrow set has", Name({Attr(3, Tlv(30, Raw("4e2d")))}),
         Name({Attr(3, Tlv(30, Raw("4e2e")))}), false},
        {"Teletex as Latin-1", Name({Attr(3, Tlv(20, "\xE9"))}), Name({Attr(3, Tlv(12, "\xC3\xA9"))}), true},
        {"octets", Name({Attr(3, Tlv(4, "a"))}), Name({Attr(3, Tlv(4, "b"))}), false},
        {"octets and text", Name({Attr(3, Tlv(4, "a"))}), Name({a}), false},
        {"octets and universal", Name({Attr(3, Tlv(4, "abcd"))}), Name({Attr(3, Tlv(28, "abcd"))}), false},
        {"structure", Name({Attr(3, Tlv(0x30, Tlv(2, "\1")))}), Name({Attr(3, Tlv(0x30, Tlv(2, "\1")))}), true},
    };
    for (const char* lang : {"C.UTF-8", "ru_RU.KOI8-R", static_cast<const char*>(nullptr)}) {
        const LocaleScope scope(lang, "C");
        for (const auto& row : rows) {
            EXPECT_TRUE(row.left == row.left) << row.what;
            EXPECT_EQ(row.left == row.right, row.equal) << row.what;
            EXPECT_EQ(row.right != row.left, !row.equal) << row.what;
        }
    }
    // A name that does not decode is an error even against itself, wherever the damage is.
    const CNALX509Name damaged = Name({a + Attr(4, Tlv(12, "\xFF"))});
    EXPECT_EQ(StatusOf([&] { return damaged == damaged; }), TOO_E_NAME_DECODE);
}

TEST(Name, WideTextKeepsOneUtf8BitOnly) {
    const CNALX509Name plain(L"CN=a_b", 0, true);
    for (const unsigned flags : {0x40000u | 0x10000000u, 0x140000u, 0x40000u | CERT_NAME_STR_SEMICOLON_FLAG}) {
        EXPECT_EQ(CNALX509Name(L"CN=a_b", flags, true), plain);
        EXPECT_EQ(Hex(CNALX509Name(L"CN=a_b", flags, true)), Hex(plain)) << flags;
    }
    EXPECT_EQ(Text(CNALX509Name(L"CN=a,b", CERT_NAME_STR_SEMICOLON_FLAG, true)), L"cn=\"a,b\"");
    EXPECT_EQ(Text(CNALX509Name(L"CN=a,C=RU", 0, true)), L"c=RU,cn=a");
    EXPECT_EQ(Text(CNALX509Name(L"CN=a,C=RU", 0, false)), L"cn=a,c=RU");
    CNALX509Name name(L"CN=before", 0, true);
    EXPECT_EQ(StatusOf([&] { name.SetBy(L"ST=x", 0, true); }), TOO_E_NAME_ENCODE);
    EXPECT_EQ(Text(name), L"cn=before");
}

TEST(Name, NarrowTextIsNotParsed) {
    EXPECT_TRUE(CNALX509Name("CN=a", 0, true).IsEmpty());
    CNALX509Name name(L"CN=before", 0, true);
    name.SetBy("CN=a", 3, false);
    CTOOString text = "x";
    name.GetX500String(text, 0);
    EXPECT_EQ(text, "x");
    EXPECT_EQ(Text(name), L"cn=before");

    CNALRDNAttr attr;
    EXPECT_EQ(StatusOf([&] { CNALX509Name::MakeRDNAttr("CN", "a", attr); }), TOO_E_ENCODE);
    EXPECT_EQ(StatusOf([&] { CNALRDNAttr("CN", "a"); }), TOO_E_ENCODE);
    EXPECT_EQ(StatusOf([&] { name.SetSimpleRDN("2.5.4.3", "b"); }), TOO_E_ENCODE);
    EXPECT_FALSE(name.SetSimpleRDN(CNALSimpleRDN("2.5.4.4", "b")));
    EXPECT_FALSE(CNALX509Name().SetSimpleRDN("2.5.4.3", "b"));
    EXPECT_FALSE(CNALX509Name(ToBytes("x")).SetSimpleRDN("2.5.4.3", "b"));
    EXPECT_EQ(Text(name), L"cn=before");
}

TEST(Name, PairsInAndOut) {
    const LocaleScope scope("C.UTF-8", "C.UTF-8");
    ASSERT_TRUE(scope.IsSet());
    const std::list<CNALSimpleRDN> pairs = {
        {"CN", "\xD0\x98\xD0\xB2"}, {"2.5.4.6", "RU"}, {"o", "\"a\", +b=#c "}, {"e", "a@b"}};
    const CNALX509Name name(pairs);
    EXPECT_EQ(Text(name), L"c=RU,e=a@b,o=\"\"\"a\"\", +b=#c \",cn=\x0418\x0432");

    std::vector<CNALSimpleRDN> read;
    name.GetSimpleRDNVector(read);
    ASSERT_EQ(read.size(), 4u);
    EXPECT_EQ(read[0].m_key, "2.5.4.6");
    EXPECT_EQ(read[2].m_value, "\"a\", +b=#c ");
    EXPECT_EQ(read[3].m_value, "\xD0\x98\xD0\xB2");
    EXPECT_EQ(CNALX509Name(std::list<CNALSimpleRDN>(read.begin(), read.end())), name);

    std::wstring wide;
    EXPECT_TRUE(name.GetSimpleRDN("2.5.4.3", wide));
    EXPECT_EQ(wide, L"\x0418\x0432");
    EXPECT_FALSE(name.GetSimpleRDN("2.5.4.4", wide));
    EXPECT_EQ(wide, L"");

    CNALX509Name kept = name;
    for (const CNALSimpleRDN& bad : {CNALSimpleRDN("ST", "a"), CNALSimpleRDN("CN", ""), CNALSimpleRDN("CN", "\xFF"),
                                     CNALSimpleRDN("C", "\xD0\xA0")}) {
        EXPECT_EQ(StatusOf([&] { kept.SetBy(std::list<CNALSimpleRDN>{bad}, true, true); }), TOO_E_NAME_DECODE);
    }
    EXPECT_EQ(Hex(kept), Hex(name));
    kept.SetBy(std::list<CNALSimpleRDN>{{"CN", "abc"}}, false, false);
    EXPECT_THAT(Hex(kept), ::testing::EndsWith("1303616263"));
}

TEST(Name, FirstAttributeOfEachRdnOnly) {
    const CNALX509Name name =
        Name({Attr(3, Tlv(19, "a")) + Attr(4, Tlv(19, "b")), "", Attr(3, Tlv(19, "c")), Attr(5, Tlv(4, "d"))});
    std::list<CNALSimpleRDN> pairs;
    name.GetSimpleRDNList(pairs, false);
    ASSERT_EQ(pairs.size(), 3u);
    EXPECT_EQ(pairs.front().m_value, "a");
    EXPECT_EQ(pairs.back().m_key, "2.5.4.5");
    EXPECT_EQ(pairs.back().m_value, "");
    CTOOString value;
    EXPECT_FALSE(name.GetSimpleRDN("2.5.4.4", value));
    EXPECT_TRUE(name.GetSimpleRDN("2.5.4.3", value));
    EXPECT_EQ(value, "a");
    std::list<std::list<CNALRDNAttr>> rdns;
    name.GetNameInfo(rdns);
    ASSERT_EQ(rdns.size(), 4u);
    EXPECT_EQ(rdns.front().size(), 2u);
    EXPECT_TRUE(std::next(rdns.begin())->empty());
    EXPECT_EQ(rdns.front().back().m_oid, "2.5.4.4");
}

TEST(Name, NarrowTextByLangAndLocale) {
    const CNALX509Name name = Name({Attr(3, Tlv(12, "a\xD0\x98"))});
    const CNALX509Name zero = Name({Attr(3, Tlv(12, std::string("a\0b", 3)))});
    const struct {
        const char* lang;
        const char* text;  // null for an error
    } rows[] = {
        {"ru_RU.UTF-8", "cn=a\xD0\x98"}, {"ru_RU.KOI8-R", "cn=a\xE9"}, {"CP1251", "cn=a\xC8"},
        {"en_US.ISO-8859-1", nullptr},   {nullptr, "cn=a\xD0\x98"},    {"", "cn=a\xD0\x98"},
        {"C", "cn=a\xD0\x98"},           {"ru_RU", "cn=a\xD0\x98"},
    };
    for (const auto& row : rows) {
        const LocaleScope scope(row.lang, nullptr);
        std::string text;
        EXPECT_EQ(StatusOf([&] { name.GetX500String(text, 0); }), row.text ? 0 : TOO_E_NAME_DECODE);
        if (row.text) {
            EXPECT_EQ(text, row.text);
            const CNALX509Name read(std::list<CNALSimpleRDN>{{"CN", row.text + 3}});
            EXPECT_EQ(Hex(read), Hex(name)) << row.text;
        }
        zero.GetX500String(text, 0);
        EXPECT_EQ(text, "cn=a");
        // Attribute types and OIDs are the same in every set.
        EXPECT_EQ(Text(CNALX509Name(L"serialNumber=1", 0, true)), L"serialNumber=1");
    }

    CTOOString value = "kept";
    const CNALRDNAttr attr("2.5.4.3", CERT_RDN_UTF8_STRING, WideBytes(L"a\x0418"));
    {
        const LocaleScope scope(nullptr, "C");
        EXPECT_TRUE(name.GetSimpleRDN("2.5.4.3", value));
        EXPECT_EQ(value, "a?");
        value = "kept";
        attr.GetValueString(value);
        EXPECT_EQ(value, "kept");
    }
    const LocaleScope scope(nullptr, "C.UTF-8");
    ASSERT_TRUE(scope.IsSet());
    attr.GetValueString(value);
    EXPECT_EQ(value, "a\xD0\x98");
    EXPECT_TRUE(zero.GetSimpleRDN("2.5.4.3", value));
    EXPECT_EQ(value.str(), std::string("a\0b", 3));
}

TEST(NameValue, Narrow) {
    std::string abc = "ABC";
    CERT_RDN_VALUE_BLOB blob{3, reinterpret_cast<BYTE*>(abc.data())};
    char out[8] = {};
    const struct {
        unsigned type, room, result;
        const char* text;
    } rows[] = {{4, 8, 4, "ABC"}, {4, 3, 3, "AB"}, {4, 1, 1, ""}, {0, 8, 1, ""}, {1, 8, 1, ""},
                {2, 8, 1, ""},    {11, 8, 1, ""},  {14, 8, 1, ""}, {0xFFFFFFFF, 8, 1, ""}};
    for (const auto& row : rows) {
        out[0] = 'x';
        EXPECT_EQ(CertRDNValueToStr(row.type, &blob, out, row.room), row.result) << row.type;
        EXPECT_STREQ(out, row.text) << row.type;
    }
    EXPECT_EQ(CertRDNValueToStr(4, &blob, nullptr, 3), 4u);
    EXPECT_EQ(CertRDNValueToStr(4, &blob, out, 0), 4u);
    EXPECT_EQ(CertRDNValueToStr(4, nullptr, out, 8), 1u);

    const LocaleScope utf8(nullptr, "C.UTF-8");
    ASSERT_TRUE(utf8.IsSet());
    IdentObj wide = WideBytes(L"a\x0418z");
    CERT_RDN_VALUE_BLOB text{wide.GetSize() + 0, wide.GetData()};
    EXPECT_EQ(CertRDNValueToStr(12, &text, nullptr, 0), 5u);
    EXPECT_EQ(CertRDNValueToStr(12, &text, out, 8), 5u);
    EXPECT_STREQ(out, "a\xD0\x98z");
    EXPECT_EQ(CertRDNValueToStr(13, &text, out, 3), 2u);  // half a character is not written
    EXPECT_STREQ(out, "a");
    EXPECT_EQ(CertRDNValueToStr(13, &text, out, 1), 0u);
    text.cbData = 7;  // half a character does not count
    EXPECT_EQ(CertRDNValueToStr(13, &text, nullptr, 0), 2u);
    text.cbData = 0;
    EXPECT_EQ(CertRDNValueToStr(13, &text, nullptr, 0), 1u);
    EXPECT_EQ(CertRDNValueToStr(13, &text, out, 8), 0u);

    const LocaleScope ascii(nullptr, "C");
    text.cbData = wide.GetSize();
    EXPECT_EQ(CertRDNValueToStr(12, &text, nullptr, 0), 0u);
    EXPECT_EQ(CertRDNValueToStr(12, &text, out, 8), 0u);
}

TEST(NameValue, Wide) {
    std::string bytes = "A\xE9";
    CERT_RDN_VALUE_BLOB blob{2, reinterpret_cast<BYTE*>(bytes.data())};
    wchar_t out[5] = {L'x', L'x', L'x', L'x', L'x'};
    EXPECT_EQ(CertRDNValueToStrW(5, &blob, nullptr, 9), 3u);
    EXPECT_EQ(CertRDNValueToStrW(5, &blob, out, 0), 3u);
    EXPECT_EQ(out[0], L'x');
    EXPECT_EQ(CertRDNValueToStrW(5, &blob, out, 1), 2u);
    EXPECT_STREQ(out, L"A");
    EXPECT_EQ(CertRDNValueToStrW(5, &blob, out, 4), 3u);
    EXPECT_STREQ(out, L"A\xE9");
    EXPECT_EQ(out[3], L'x');
    EXPECT_EQ(CertRDNValueToStrW(2, &blob, out, 4), 1u);
    EXPECT_STREQ(out, L"");

    IdentObj wide = WideBytes(L"ab");
    CERT_RDN_VALUE_BLOB text{wide.GetSize(), wide.GetData()};
    EXPECT_EQ(CertRDNValueToStrW(12, &text, out, 4), 3u);
    EXPECT_EQ(std::wstring(out, 5), std::wstring(L"ab\0\0x", 5));
    EXPECT_EQ(CertRDNValueToStrW(13, &text, out, 2), 3u);  // the terminator lies behind the two
    EXPECT_STREQ(out, L"ab");
}

TEST(NamePairs, Merge) {
    using Pairs = std::list<CNALSimpleRDN>;
    const auto merged = [](Pairs target, Pairs source) {
        CNALX509Name::MergeRDNAtributes(target, source, "cn");
        std::string text;
        for (const CNALSimpleRDN& pair : target) text += pair.m_key.str() + "=" + pair.m_value.str() + ";";
        return text;
    };
    EXPECT_EQ(merged({{"O", "o"}}, {{"C", "c"}, {"CN", "a"}, {"CN", "b"}}), "CN=a;O=o;");
    EXPECT_EQ(merged({{"O", "o"}, {"CN", "x"}, {"cn", "y"}}, {{"Cn", "a"}}), "O=o;CN=a;cn=y;");
    EXPECT_EQ(merged({{"O", "o"}, {"CN", "x"}, {"cn", "y"}}, {{"O", "a"}}), "O=o;cn=y;");
    EXPECT_EQ(merged({{"O", "o"}}, {}), "O=o;");
}

TEST(NamePairs, TwoOrders) {
    const CNALSimpleRDN name("2.5.4.3", "a");
    const CNALSimpleRDN country("2.5.4.6", "a");
    EXPECT_TRUE(name < country && country > name && !(name < CNALSimpleRDN("2.5.4.3", "b")));
    const CNALSimpleRDN::CompareSimpleRDN set;
    EXPECT_TRUE(set(name, CNALSimpleRDN("2.5.4.3", "b")) && set(CNALSimpleRDN("2.5.4.10", "z"), name) && !set(name, name));
}

TEST(NameQuotes, InAndOut) {
    for (const auto& [plain, quoted] : {std::pair{"a\"b", "\"a\"\"b\""}, {"a", "\"a\""}, {"\"", "\"\"\"\""}}) {
        CTOOString text;
        CNALX509Name::QuoteString(plain, text);
        EXPECT_EQ(text, quoted);
        CTOOString same = plain;
        CNALX509Name::QuoteString(same);
        EXPECT_EQ(same, quoted);
    }
    for (const auto& [quoted, plain] :
         {std::pair{"\"a\"\"b\"", "a\"b"}, {"\"a", "a"}, {"a\"\"b", "a\"b"}, {"a\"b", "ab"}, {"\"\"", "\""}, {"", ""}}) {
        CTOOString text = quoted;
        CNALX509Name::UnquoteString(text);
        EXPECT_EQ(text, plain) << quoted;
    }
    CTOOString text = "x";
    CNALX509Name::QuoteString(nullptr, text);
    EXPECT_EQ(text, "\"\"");
    CNALX509Name::FormatRDNAttr("CN", "a\"", text);
    EXPECT_EQ(text, "CN=\"a\"\"\"");
}

}  // namespace
