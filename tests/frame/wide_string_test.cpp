#include "nal/wide_string.h"

#include <gtest/gtest.h>

#include <random>

namespace {

TEST(WideString, BytesTravelWithoutLoss) {
    struct {
        std::string bytes;
        std::wstring text;
    } cases[] = {
        {"", L""},
        {"plain", L"plain"},
        {std::string("a\0b", 3), std::wstring(L"a\0b", 3)},
        {"\xD0\x96", L"\x416"},
        {"\xE2\x82\xAC", L"\x20AC"},
        {"\xF0\x9F\x94\x91", L"\x1F511"},
        {"\xF4\x8F\xBF\xBF", L"\x10FFFF"},
        {"\xFF", L"\xDCFF"},
        {"\xC0\xAF", L"\xDCC0\xDCAF"},                    // overlong
        {"\xE0\x80\xAF", L"\xDCE0\xDC80\xDCAF"},          // overlong
        {"\xED\xB2\x80", L"\xDCED\xDCB2\xDC80"},          // a surrogate, encoded
        {"\xF4\x90\x80\x80", L"\xDCF4\xDC90\xDC80\xDC80"},  // above 0x10FFFF
        {"a\xD0", L"a\xDCD0"},                            // cut at the end
        {"\xE2\x82z", L"\xDCE2\xDC82z"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.text, CNALString(CTOOString(c.bytes)).str()) << c.bytes;
        EXPECT_EQ(c.bytes, CNALString(c.text).ToBytes().str()) << c.bytes;
    }
    std::mt19937 random(7);
    for (int i = 0; i < 2000; ++i) {
        std::string bytes(random() % 12, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        EXPECT_EQ(bytes, CNALString(CTOOString(bytes)).ToBytes().str());
    }
}

TEST(WideString, CharactersWithoutBytes) {
    EXPECT_EQ("?", CNALString(std::wstring(1, 0xD800)).ToBytes().str());
    EXPECT_EQ("?", CNALString(std::wstring(1, 0xDC7F)).ToBytes().str());
    EXPECT_EQ("?", CNALString(std::wstring(1, 0x110000)).ToBytes().str());
    EXPECT_TRUE(CNALString(static_cast<const char*>(nullptr)).empty());
    EXPECT_TRUE(CNALString(static_cast<const wchar_t*>(nullptr)).empty());
}

}  // namespace
