/// The byte string of the host interfaces: paths, dotted OIDs, names, message texts.
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>

#include "too/export.h"

/// An owned run of bytes with the ordinary string operations. Says nothing about the character set; zero bytes are
/// kept, and count in every comparison. Not synchronised: one object is for one thread at a time.
class NAL_HOST_EXPORT CTOOString {
public:
    static constexpr std::size_t npos = std::string::npos;

    CTOOString() = default;
    /// A copy of a zero-terminated text; null gives the empty string.
    CTOOString(const char* text) : m_text(text ? text : "") {}
    CTOOString(const char* text, std::size_t length) : m_text(text, text ? length : 0) {}
    CTOOString(std::string text) noexcept : m_text(std::move(text)) {}
    CTOOString(std::string_view text) : m_text(text) {}

    const char* c_str() const noexcept { return m_text.c_str(); }
    const char* data() const noexcept { return m_text.data(); }
    std::size_t length() const noexcept { return m_text.length(); }
    std::size_t size() const noexcept { return m_text.size(); }
    bool empty() const noexcept { return m_text.empty(); }
    void clear() noexcept { m_text.clear(); }

    /// @return the same bytes as a standard string; valid as long as this object stays unchanged
    const std::string& str() const noexcept { return m_text; }
    std::string_view view() const noexcept { return m_text; }

    char operator[](std::size_t index) const { return m_text[index]; }
    char& operator[](std::size_t index) { return m_text[index]; }

    /// @return the part from `from`, at most `count` bytes; empty when `from` lies behind the end
    CTOOString substr(std::size_t from, std::size_t count = npos) const;
    /// @return where `text` first occurs at or behind `from`, npos when it does not
    std::size_t find(std::string_view text, std::size_t from = 0) const noexcept { return m_text.find(text, from); }

    /// Compares with the letters A-Z taken as a-z, every other byte as it stands; independent of the locale.
    /// @return below, equal to or above 0
    int CompareNoCase(const CTOOString& other) const noexcept { return CompareNoCase(other.view()); }
    int CompareNoCase(std::string_view other) const noexcept;
    int CompareNoCase(const std::string& other) const noexcept { return CompareNoCase(std::string_view(other)); }
    int CompareNoCase(const char* other) const noexcept { return CompareNoCase(std::string_view(other ? other : "")); }

    CTOOString& operator+=(const CTOOString& other) {
        m_text += other.m_text;
        return *this;
    }
    CTOOString& operator+=(const char* other) {
        if (other) m_text += other;
        return *this;
    }
    CTOOString& operator+=(char c) {
        m_text += c;
        return *this;
    }

    // Friends, so that they are considered only when one side is a CTOOString: both a std::string_view and a literal
    // would otherwise convert to one, and their own comparison would be ambiguous.
    friend bool operator==(const CTOOString& a, const CTOOString& b) { return a.str() == b.str(); }
    friend bool operator==(const CTOOString& a, const char* b) { return a.view() == std::string_view(b ? b : ""); }
    friend bool operator==(const char* a, const CTOOString& b) { return b == a; }
    friend bool operator!=(const CTOOString& a, const CTOOString& b) { return !(a == b); }
    friend bool operator!=(const CTOOString& a, const char* b) { return !(a == b); }
    friend bool operator!=(const char* a, const CTOOString& b) { return !(b == a); }
    friend bool operator<(const CTOOString& a, const CTOOString& b) { return a.str() < b.str(); }
    friend bool operator>(const CTOOString& a, const CTOOString& b) { return b < a; }

    friend CTOOString operator+(const CTOOString& a, const CTOOString& b) { return {a.str() + b.str()}; }
    friend CTOOString operator+(const CTOOString& a, const char* b) { return {a.str() + (b ? b : "")}; }
    friend CTOOString operator+(const char* a, const CTOOString& b) { return {(a ? a : "") + b.str()}; }

private:
    std::string m_text;
};

NAL_HOST_EXPORT std::ostream& operator<<(std::ostream& out, const CTOOString& text);

/// @cond
template <>
struct std::hash<CTOOString> {
    std::size_t operator()(const CTOOString& text) const noexcept { return std::hash<std::string_view>()(text.view()); }
};
/// @endcond
