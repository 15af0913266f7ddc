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
        {"00", 0},
        {"7F", 0x7F},
        {"C280", 0x80},
        {"DFBF", 0x7FF},
        {"E0A080", 0x800},
        {"EFBFBF", 0xFFFF},
        {"F0908080", 0x10000},
        {"F48FBFBF", 0x10FFFF},
        {"F7BFBFBF", 0x1FFFFF},
        {"F888808080", 0x200000},
        {"FBBFBFBFBF", 0x3FFFFFF},
        {"FC8480808080", 0x4000000},
        {"FDBFBFBFBFBF", 0x7FFFFFFF},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Wide(FromHex(row.hex), 0), std::wstring(1, row.c)) << row.hex;
        EXPECT_EQ(Narrow(std::wstring(1, row.c), 0), FromHex(row.hex)) << row.hex;
    }
}

TEST(Utf8Conversion, StrictAndLenient) {
    const struct {
        const char* hex;
        std::wstring lenient;
    } rows[] = {
        {"61C062", L"ab"},   {"61C162", L"ab"},     {"61F562", L"ab"},     {"61FE62", L"ab"},
        {"61FF62", L"ab"},   {"618062", L"ab"},     {"61D0", L"a"},        {"61D062", L"ab"},
        {"61E09862", L"ab"}, {"61EDA08062", L"ab"}, {"61EDBFBF62", L"ab"}, {"F0908061", L"a"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Wide(FromHex(row.hex), 0), L"") << row.hex;
        EXPECT_EQ(Wide(FromHex(row.hex), kLenient), row.lenient) << row.hex;
    }
    // Longer than needed, but not by its first byte.
    EXPECT_EQ(Wide(FromHex("E08081"), 0), L"\x01");
    EXPECT_EQ(Wide(FromHex("61EFBBBF62"), kDrop), L"ab");
    EXPECT_EQ(Wide(FromHex("61EFBBBF62"), 0),
              L"a\xFEFF"
              L"b");

    const std::wstring surrogate = {L'a', 0xD800, L'b'};
    const std::wstring negative = {L'a', -1, L'b'};
    EXPECT_EQ(Narrow(surrogate, 0), "");
    EXPECT_EQ(Narrow(negative, 0), "");
    EXPECT_EQ(Narrow(surrogate, kLenient), "ab");
    EXPECT_EQ(Narrow(negative, kLenient), "ab");
    EXPECT_EQ(Narrow(L"\xFEFF"
                     L"a",
                     kDrop),
              "a");
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
