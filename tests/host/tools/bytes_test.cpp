// IdentObj, CTOOString, CTOOCryptBitBlob, CTOOReference, and bytes as text.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <string>
#include <utility>

#include "support/hex.h"
#include "too/bit_blob.h"
#include "too/ident_obj.h"
#include "too/reference.h"
#include "too/status.h"
#include "too/string.h"
#include "too/text.h"

namespace {

using nal_test::FromText;

TEST(IdentObj, SerializedFormRoundTripsAndTakesNothingOnAMismatch) {
    for (const std::string& content : {std::string(), std::string("\0", 1), std::string("abc"), std::string(70000, 'x')}) {
        const IdentObj original = FromText(content);
        std::string form(original.GetObjectSize() + 3, '#');
        ASSERT_EQ(content.size() + 4, original.WriteData(form.data(), static_cast<unsigned>(form.size())));
        EXPECT_EQ("###", form.substr(form.size() - 3));

        IdentObj read = FromText("before");
        EXPECT_EQ(content.size() + 4, read.ReadData(form.data(), static_cast<unsigned>(form.size())));
        EXPECT_EQ(original, read);

        const unsigned tooShort = original.GetObjectSize() - 1;
        EXPECT_EQ(0U, original.WriteData(form.data(), tooShort));
        EXPECT_EQ(0U, read.ReadData(form.data(), tooShort));
        EXPECT_EQ(original, read);
    }
    IdentObj untouched = FromText("before");
    EXPECT_EQ(0U, untouched.ReadData("\xFF\xFF\xFF\xFFzzz", 7));
    EXPECT_EQ(0U, untouched.ReadData(nullptr, 100));
    EXPECT_EQ(0U, untouched.WriteData(nullptr, 100));
    EXPECT_EQ(FromText("before"), untouched);
}

TEST(IdentObj, OrdersByBytesThenLength) {
    const char* ascending[] = {"", "a", "ab", "abc", "b", "\x80", "\xFF"};
    for (std::size_t i = 0; i < std::size(ascending); ++i) {
        for (std::size_t j = 0; j < std::size(ascending); ++j) {
            const IdentObj a = FromText(ascending[i]);
            const IdentObj b = FromText(ascending[j]);
            EXPECT_EQ(i < j, a < b) << a << " " << b;
            EXPECT_EQ(i > j, a > b) << a << " " << b;
            EXPECT_EQ(i == j, a == b) << a << " " << b;
        }
    }
}

TEST(IdentObj, ItsOwnBytesMayBeTheSource) {
    IdentObj bytes = FromText("0123456789");
    bytes.SetData(bytes.GetData() + 2, 5);
    EXPECT_EQ(FromText("23456"), bytes);
    for (int i = 0; i < 6; ++i) bytes.Append(bytes.GetData() + 1, 2);
    EXPECT_EQ(FromText("23456343434343434"), bytes);
    bytes.SetData(nullptr, 3);
    EXPECT_EQ(FromText(std::string(3, '\0')), bytes);
}

TEST(BitBlob, UnusedBitsTakePart) {
    const CTOOCryptBitBlob a(FromText("a"), 0);
    const CTOOCryptBitBlob b(FromText("a"), 3);
    const CTOOCryptBitBlob c(FromText("b"), 0);
    EXPECT_TRUE(a < b && b < c && c > a && a != b && a == a);
    EXPECT_FALSE(b < a || a > b || a < a);
}

TEST(String, ComparesWithoutCaseInAsciiOnly) {
    const CTOOString text("CertSend.DAT");
    EXPECT_EQ(0, text.CompareNoCase("CERTSEND.dat"));
    EXPECT_NE(0, text.CompareNoCase("CERTSEND.da"));
    EXPECT_LT(CTOOString("a_").CompareNoCase("AB"), 0);  // '_' lies between the two cases
    EXPECT_NE(0, CTOOString("\xC0").CompareNoCase("\xE0"));
    EXPECT_NE(0, CTOOString("a\0b", 3).CompareNoCase(CTOOString("a\0c", 3)));
    EXPECT_LT(CTOOString("~").CompareNoCase("\x80"), 0);
}

TEST(String, NullAndZeroBytes) {
    EXPECT_TRUE(CTOOString(static_cast<const char*>(nullptr)).empty());
    EXPECT_TRUE(CTOOString("") == static_cast<const char*>(nullptr));
    EXPECT_NE(CTOOString("a"), CTOOString("a\0", 2));
    EXPECT_EQ("ab" + CTOOString("c") + "d" + CTOOString("e"), "abcde");
    EXPECT_EQ("", CTOOString("abc").substr(7));
}

class Counted : public CTOOReference {
public:
    explicit Counted(int& alive) : m_alive(alive) { ++m_alive; }

private:
    ~Counted() override { --m_alive; }
    int& m_alive;
};

TEST(Reference, GoesWithItsLastUser) {
    int alive = 0;
    auto* object = new Counted(alive);  // given up by Release
    EXPECT_EQ(2, object->AddRef());
    EXPECT_EQ(1, object->Release());
    EXPECT_EQ(1, alive);
    EXPECT_EQ(0, object->Release());
    EXPECT_EQ(0, alive);
}

TEST(Hex, WritesAndReads) {
    const IdentObj bytes = FromText(std::string("\x00\x1A\xFF", 3));
    EXPECT_EQ("001AFF", TOOBin2Hex(bytes));
    EXPECT_EQ("00 1A FF", TOOBin2Hex(bytes, true));
    EXPECT_EQ("", TOOBin2Hex(IdentObj(), true));

    char room[9];
    EXPECT_EQ(8U, TOOBin2Hex(bytes.GetData(), 3, room, 9, true));
    EXPECT_EQ(0U, TOOBin2Hex(bytes.GetData(), 3, room, 8, true));
    EXPECT_STREQ("", room);
    EXPECT_EQ(0U, TOOBin2Hex(bytes.GetData(), 3, room, 6));
    EXPECT_EQ(6U, TOOBin2Hex(bytes.GetData(), 3, room, 7));

    unsigned char out[4] = {};
    struct {
        const char* text;
        unsigned room, count;
        const char* bytes;
    } const cases[] = {
        {"001aFF", 4, 3, "\x00\x1A\xFF"}, {"00 1A FF", 4, 3, "\x00\x1A\xFF"}, {"0102030405", 4, 4, "\x01\x02\x03\x04"},
        {"01 2", 4, 1, "\x01"},          {"01zz02", 4, 1, "\x01"},           {"0 1", 4, 0, ""},
        {"", 4, 0, ""},                 {"01", 0, 0, ""},
    };
    for (const auto& test : cases) {
        ASSERT_EQ(test.count, TOOHex2Bin(test.text, out, test.room)) << test.text;
        EXPECT_EQ(0, std::memcmp(test.bytes, out, test.count)) << test.text;
    }
    IdentObj whole;
    EXPECT_TRUE(TOOHex2Bin(CTOOString(" 00 1a ff\r\n"), whole));
    EXPECT_EQ(bytes, whole);
    for (const CTOOString& bad : {CTOOString("0"), CTOOString("0g"), CTOOString("00 1"), CTOOString("00,11"), CTOOString("00\000011", 5)}) {
        EXPECT_FALSE(TOOHex2Bin(bad, whole)) << bad;
    }
    EXPECT_EQ(bytes, whole);
}

TEST(Base64, EncodesTheVectorsOfRfc4648AndDecodesThem) {
    const char* pairs[][2] = {{"", ""},          {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}, {"\xFF\xEF\xBE", "/+++"}};
    for (const auto& [text, encoded] : pairs) {
        EXPECT_EQ(encoded, TOO_MIMEBase64Encode(text, static_cast<unsigned>(std::strlen(text))));
        IdentObj decoded = FromText("before");
        ASSERT_TRUE(TOO_MIMEBase64Decode(encoded, std::strlen(encoded), decoded)) << encoded;
        EXPECT_EQ(FromText(text), decoded);
    }
    const IdentObj bytes = FromText(std::string(100, 'x'));
    const CTOOString lines = TOO_MIMEBase64Encode(bytes.GetData(), bytes.GetSize(), 64);
    EXPECT_EQ('\n', lines[64]);
    EXPECT_EQ('\n', lines[lines.length() - 1]);
    IdentObj decoded;
    EXPECT_TRUE(TOO_MIMEBase64Decode(lines.data(), lines.length(), decoded));
    EXPECT_EQ(bytes, decoded);
    EXPECT_THROW(TOO_MIMEBase64Encode("a", 1, 80), XTOOStatus);
}

TEST(Base64, RefusesWhatIsNone) {
    for (const char* bad : {"Z", "Zg", "Zg=", "Zg===", "Zm8", "Zm9v=", "Zh==", "Zm9=", "Zg==Zg==", "Zm*v", "=", "====", "Zm-_"}) {
        IdentObj out = FromText("before");
        EXPECT_FALSE(TOO_MIMEBase64Decode(bad, std::strlen(bad), out)) << bad;
        EXPECT_EQ(FromText("before"), out) << bad;
    }
}

}  // namespace
