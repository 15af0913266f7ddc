#include "nal/wide_string.h"

#include <string_view>

namespace {

constexpr wchar_t kStrayByteBase = 0xDC00;

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

/// @return the length of the well-formed UTF-8 sequence at the start of `bytes` (RFC 3629 section 4), 0 if there is none.
std::size_t SequenceLength(std::string_view bytes, wchar_t& character) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) {
        character = lead;
        return 1;
    }
    std::size_t length = lead >= 0xC2 && lead <= 0xDF ? 2 : (lead & 0xF0) == 0xE0 ? 3 : lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
    if (length == 0 || bytes.size() < length) return 0;
    wchar_t value = lead & (0x7F >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (!IsContinuation(at(i))) return 0;
        value = value << 6 | (at(i) & 0x3F);
    }
    const bool overlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
    if (overlong || surrogate || value > 0x10FFFF) return 0;
    character = value;
    return length;
}

std::wstring FromBytes(std::string_view bytes) {
    std::wstring text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        wchar_t character = 0;
        std::size_t length = SequenceLength(bytes, character);
        if (length == 0) {
            character = kStrayByteBase + static_cast<unsigned char>(bytes[0]);
            length = 1;
        }
        text.push_back(character);
        bytes.remove_prefix(length);
    }
    return text;
}

void AppendUtf8(std::string& out, wchar_t character) {
    const auto value = static_cast<char32_t>(character);
    const auto put = [&](char32_t byte) { out.push_back(static_cast<char>(byte)); };
    if (value >= kStrayByteBase + 0x80 && value <= kStrayByteBase + 0xFF) {
        put(value - kStrayByteBase);
    } else if (value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        put('?');
    } else if (value < 0x80) {
        put(value);
    } else if (value < 0x800) {
        put(0xC0 | value >> 6);
        put(0x80 | (value & 0x3F));
    } else if (value < 0x10000) {
        put(0xE0 | value >> 12);
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    } else {
        put(0xF0 | value >> 18);
        put(0x80 | (value >> 12 & 0x3F));
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    }
}

}  // namespace

CNALString::CNALString(const char* text) : m_text(FromBytes(text ? text : "")) {}

CNALString::CNALString(const CTOOString& text) : m_text(FromBytes(text.str())) {}

CTOOString CNALString::ToBytes() const {
    std::string bytes;
    bytes.reserve(m_text.size());
    for (wchar_t character : m_text) AppendUtf8(bytes, character);
    return CTOOString(bytes);
}
