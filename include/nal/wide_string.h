/// `CNALString`, the library's wide-character string.
#pragma once

#include <string>
#include <utility>

#include "nal/export.h"
#include "too/string.h"

/// An owned string of 32-bit wide characters.
///
/// It converts to and from bytes as UTF-8, whatever the locale, and without loss: a byte b that is not part of
/// well-formed UTF-8 travels as the character 0xDC00+b and comes back as the same byte. So a file name is bytes all the
/// way. Zeros inside a text are kept.
///
/// A value type: copies are deep, distinct objects may be used on distinct threads.
class NAL_EXPORT CNALString {
public:
    CNALString() = default;
    /// @param text  zero-terminated; null gives the empty string
    CNALString(const wchar_t* text) : m_text(text ? text : L"") {}
    CNALString(std::wstring text) : m_text(std::move(text)) {}
    /// From bytes, as described above. @param text  zero-terminated; null gives the empty string
    CNALString(const char* text);
    CNALString(const CTOOString& text);

    const wchar_t* c_str() const { return m_text.c_str(); }
    /// @return the number of characters, terminator not counted
    std::size_t length() const { return m_text.length(); }
    bool empty() const { return m_text.empty(); }
    void clear() { m_text.clear(); }
    const std::wstring& str() const { return m_text; }

    /// To bytes, as described above. A character that no byte sequence stands for (a surrogate outside 0xDC80..0xDCFF,
    /// a value above 0x10FFFF) becomes "?". A text that came from bytes gives exactly those bytes.
    CTOOString ToBytes() const;

    CNALString& operator+=(const CNALString& other) {
        m_text += other.m_text;
        return *this;
    }
    friend CNALString operator+(CNALString left, const CNALString& right) { return std::move(left += right); }
    friend bool operator==(const CNALString& left, const CNALString& right) { return left.m_text == right.m_text; }
    friend bool operator!=(const CNALString& left, const CNALString& right) { return left.m_text != right.m_text; }
    friend bool operator<(const CNALString& left, const CNALString& right) { return left.m_text < right.m_text; }

private:
    std::wstring m_text;
};
