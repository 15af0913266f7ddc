#include <gtest/gtest.h>

#include "name_test_support.h"

namespace {

using namespace nal_test;  // NOLINT(google-build-using-namespace)

constexpr int kLenient = UTF8Conversion::kLenient;
constexpr int kDrop = UTF8Conversion::kDropByteOrderMark;

std::wstring Wide(const std::string& bytes, int flags) {
    wchar_t out[16];
    const unsigned long count = UTF8Conversion::utf8_to_wchar(bytes.data(), bytes.size(), out, sizeof out, flags);
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar(bytes.data(), bytes.size(), nullptr, 0, flags), count);
    return {out, count};
}

std::string Narrow(const std::wstring& text, int flags) {
    char out[32];
    const unsigned long bytes = text.size() * sizeof(wchar_t);
    const unsigned long count = UTF8Conversion::wchar_to_utf8(text.data(), bytes, out, sizeof out, flags);
    EXPECT_EQ(UTF8Conversion::wchar_to_utf8(text.data(), bytes, nullptr, 0, flags), count);
    return {out, count};
}

TEST(Utf8Conversion, EveryLength) {
    const struct {
        const char* hex;
        wchar_t c;
    } rows[] = {
        {"00", 0}, {"7F", 0x7F}, {"c280", 0x80}, {"dfbf", 0x7FF}, {"e0a080", 0x800}, {"efbfbf", 0xFFFF},
        {"f0908080", 0x10000}, {"f48fbfbf", 0x10FFFF}, {"f7bfbfbf", 0x1FFFFF}, {"f888808080", 0x200000},
        {"fbbfbfbfbf", 0x3FFFFFF}, {"fc8480808080", 0x4000000}, {"fdbfbfbfbfbf", 0x7FFFFFFF},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Wide(Raw(row.hex), 0), std::wstring(1, row.c)) << row.hex;
        EXPECT_EQ(Narrow(std::wstring(1, row.c), 0), Raw(row.hex)) << row.hex;
    }
}

TEST(Utf8Conversion, StrictAndLenient) {
    const struct {
        const char* hex;
        std::wstring lenient;
    } rows[] = {
        {"61c062", L"ab"},   {"61c162", L"ab"},     {"61f562", L"ab"},     {"61fe62", L"ab"},
        {"61ff62", L"ab"},   {"618062", L"ab"},     {"61d0", L"a"},        {"61d062", L"ab"},
        {"61e09862", L"ab"}, {"61eda08062", L"ab"}, {"61edbfbf62", L"ab"}, {"f0908061", L"a"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Wide(Raw(row.hex), 0), L"") << row.hex;
        EXPECT_EQ(Wide(Raw(row.hex), kLenient), row.lenient) << row.hex;
    }
    // Longer than needed, but not by its first byte.
    EXPECT_EQ(Wide(Raw("e08081"), 0), L"\x01");
    EXPECT_EQ(Wide(Raw("61efbbbf62"), kDrop), L"ab");
    EXPECT_EQ(Wide(Raw("61efbbbf62"), 0), (std::wstring{L'a', 0xFEFF, L'b'}));

    const std::wstring surrogate = {L'a', 0xD800, L'b'};
    const std::wstring negative = {L'a', -1, L'b'};
    for (const std::wstring& text : {surrogate, negative}) {
        EXPECT_EQ(Narrow(text, 0), "");
        EXPECT_EQ(Narrow(text, kLenient), "ab");
    }
    EXPECT_EQ(Narrow({0xFEFF, L'a'}, kDrop), "a");
    EXPECT_EQ(Narrow(L"\xFEFF", 0), "\xEF\xBB\xBF");
}

TEST(Utf8Conversion, Room) {
    wchar_t wide[2];
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar("abc", 3, wide, sizeof wide, 0), 0u);
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar("ab", 2, wide, sizeof wide, 0), 2u);
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar("ab", 2, wide, sizeof wide - 1, 0), 0u);
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar("ab", 2, wide, 0, 0), 0u);
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar("", 0, wide, sizeof wide, 0), 0u);
    EXPECT_EQ(UTF8Conversion::utf8_to_wchar(nullptr, 2, wide, sizeof wide, 0), 0u);
    char narrow[3];
    EXPECT_EQ(UTF8Conversion::wchar_to_utf8(L"\x0418\x0418", 8, narrow, 3, 0), 0u);
    EXPECT_EQ(UTF8Conversion::wchar_to_utf8(L"\x0418z", 8, narrow, 3, 0), 3u);
    EXPECT_EQ(UTF8Conversion::wchar_to_utf8(L"ab", 8, narrow, 0, 0), 0u);
    EXPECT_EQ(UTF8Conversion::wchar_to_utf8(nullptr, 8, narrow, 3, 0), 0u);
}

TEST(Utf8Conversion, Iconv) {
    char out[8] = {};
    EXPECT_EQ(UTF8Conversion::iconv_convert("UTF-8", "KOI8-R", "a\xD0\x98", 3, out, sizeof out), 2u);
    EXPECT_EQ(std::string(out, 2), "a\xE9");
    // What was converted before an error counts.
    EXPECT_EQ(UTF8Conversion::iconv_convert("UTF-8", "ASCII", "ab\xD0\x98", 4, out, sizeof out), 2u);
    EXPECT_EQ(UTF8Conversion::iconv_convert("UTF-8", "KOI8-R", "abc", 3, out, 2), 2u);
    EXPECT_EQ(UTF8Conversion::iconv_convert("no such set", "UTF-8", "abc", 3, out, sizeof out), 0u);
    const LocaleScope scope("ru_RU.KOI8-R", nullptr);
    EXPECT_EQ(UTF8Conversion::iconv_convert(nullptr, "UTF-8", "\xE9", 1, out, sizeof out), 2u);
    EXPECT_EQ(std::string(out, 2), "\xD0\x98");
}

}  // namespace
