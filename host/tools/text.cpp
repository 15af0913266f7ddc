#include "too/text.h"

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "too/status.h"

namespace {

constexpr char c_hexDigits[] = "0123456789ABCDEF";
constexpr char c_base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr signed char c_noDigit = -1;
constexpr unsigned c_longestLine = 76;

constexpr std::array<signed char, 256> MakeBase64Values() {
    std::array<signed char, 256> values{};
    for (signed char& value : values)
        value = c_noDigit;
    for (signed char i = 0; i < 64; ++i)
        values[static_cast<unsigned char>(c_base64Digits[i])] = i;
    return values;
}
constexpr std::array<signed char, 256> c_base64Values = MakeBase64Values();

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c_noDigit;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Reads bytes of hexadecimal from [text, end); returns how many, and leaves `text` where it stopped.
unsigned ReadHex(const char*& text, const char* end, unsigned char* out, unsigned room) {
    unsigned count = 0;
    while (count < room) {
        while (text < end && IsBlank(*text))
            ++text;
        if (end - text < 2) break;
        const int high = HexValue(text[0]);
        const int low = HexValue(text[1]);
        if (high < 0 || low < 0) break;
        out[count++] = static_cast<unsigned char>(high << 4 | low);
        text += 2;
    }
    return count;
}

}  // namespace

unsigned TOOBin2Hex(const void* bytes, unsigned count, char* out, unsigned outSize, bool spaced) {
    if (!out || outSize == 0) return 0;
    const std::uint64_t length = spaced && count != 0 ? std::uint64_t{count} * 3 - 1 : std::uint64_t{count} * 2;
    *out = '\0';
    if (length + 1 > outSize) return 0;
    const auto* from = static_cast<const unsigned char*>(bytes);
    for (unsigned i = 0; i < count; ++i) {
        if (spaced && i != 0) *out++ = ' ';
        *out++ = c_hexDigits[from[i] >> 4];
        *out++ = c_hexDigits[from[i] & 15];
    }
    *out = '\0';
    return static_cast<unsigned>(length);
}

CTOOString TOOBin2Hex(const IdentObj& bytes, bool spaced) {
    std::string text(std::size_t{bytes.GetSize()} * 3 + 1, '\0');
    text.resize(TOOBin2Hex(bytes.GetData(), bytes.GetSize(), text.data(), static_cast<unsigned>(text.size()), spaced));
    return text;
}

unsigned TOOHex2Bin(const char* text, void* out, unsigned count) {
    if (!text || !out) return 0;
    const char* end = text + std::char_traits<char>::length(text);
    return ReadHex(text, end, static_cast<unsigned char*>(out), count);
}

bool TOOHex2Bin(const CTOOString& text, IdentObj& out) {
    IdentObj bytes;
    bytes.SetSize(static_cast<unsigned>(text.length() / 2));
    const char* from = text.data();
    const char* end = from + text.length();
    bytes.SetSize(ReadHex(from, end, bytes.GetData(), bytes.GetSize()));
    while (from < end && IsBlank(*from))
        ++from;
    if (from != end) return false;
    out = std::move(bytes);
    return true;
}

bool TOO_MIMEBase64Decode(const char* text, std::size_t length, IdentObj& out) {
    if (!text && length != 0) return false;
    if (length / 4 * 3 > 0xFFFFFFFFU - 3) return false;
    IdentObj bytes;
    bytes.SetSize(static_cast<unsigned>(length / 4 * 3 + 3));
    unsigned char* to = bytes.GetData();
    std::uint32_t group = 0;
    unsigned digits = 0;
    unsigned padding = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (IsBlank(text[i])) continue;
        if (text[i] == '=') {
            ++padding;
            continue;
        }
        const signed char value = c_base64Values[static_cast<unsigned char>(text[i])];
        if (value == c_noDigit || padding != 0) return false;
        group = group << 6 | static_cast<std::uint32_t>(value);
        if (++digits == 4) {
            *to++ = static_cast<unsigned char>(group >> 16);
            *to++ = static_cast<unsigned char>(group >> 8);
            *to++ = static_cast<unsigned char>(group);
            group = 0;
            digits = 0;
        }
    }
    // 2 digits hold one byte and 4 bits of nothing, 3 hold two bytes and 2 bits of nothing.
    const bool complete = digits == 0 ? padding == 0 : digits > 1 && padding == 4 - digits;
    const std::uint32_t rest = digits == 2 ? group & 0xF : digits == 3 ? group & 0x3 : 0;
    if (!complete || rest != 0) return false;
    if (digits == 2) *to++ = static_cast<unsigned char>(group >> 4);
    if (digits == 3) {
        *to++ = static_cast<unsigned char>(group >> 10);
        *to++ = static_cast<unsigned char>(group >> 2);
    }
    bytes.SetSize(static_cast<unsigned>(to - bytes.GetData()));
    out = std::move(bytes);
    return true;
}

CTOOString TOO_MIMEBase64Encode(const void* bytes, unsigned count, unsigned lineLength) {
    if (lineLength % 4 != 0 || lineLength > c_longestLine) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "TOO_MIMEBase64Encode");
    const auto* from = static_cast<const unsigned char*>(bytes);
    const std::size_t digits = (std::size_t{count} + 2) / 3 * 4;
    std::string text;
    text.reserve(digits + (lineLength ? digits / lineLength + 1 : 0));
    std::size_t onLine = 0;
    for (unsigned i = 0; i < count; i += 3) {
        const unsigned left = count - i;
        const std::uint32_t group = static_cast<std::uint32_t>(from[i]) << 16 | (left > 1 ? from[i + 1] << 8 : 0) |
                                    (left > 2 ? from[i + 2] : 0);
        text += c_base64Digits[group >> 18];
        text += c_base64Digits[group >> 12 & 63];
        text += left > 1 ? c_base64Digits[group >> 6 & 63] : '=';
        text += left > 2 ? c_base64Digits[group & 63] : '=';
        onLine += 4;
        if (lineLength != 0 && onLine == lineLength) {
            text += '\n';
            onLine = 0;
        }
        if (left <= 3) break;
    }
    if (lineLength != 0 && onLine != 0) text += '\n';
    return text;
}
