// What the tests of names share: bytes from hexadecimal, names from their parts, and a locale and LANG for one scope.
#pragma once

#include <clocale>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>

#include "nal/name.h"
#include "nal/name_codec.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "too/status.h"

namespace nal_test {

inline std::string Raw(std::string_view hex) {
    const Bytes bytes = FromHex(hex);
    return {bytes.begin(), bytes.end()};
}

inline std::string Hex(const IdentObj& bytes) {
    return ToHex(bytes.GetData(), bytes.GetSize());
}

inline IdentObj ToBytes(std::string_view bytes) {
    return {bytes.data(), static_cast<unsigned>(bytes.size())};
}

/// One DER element with definite lengths below 64 KiB.
inline std::string Tlv(int tag, std::string_view content) {
    std::string out(1, static_cast<char>(tag));
    if (content.size() >= 256) {
        out += {static_cast<char>(0x82), static_cast<char>(content.size() >> 8)};
    } else if (content.size() >= 128) {
        out += static_cast<char>(0x81);
    }
    out += static_cast<char>(content.size());
    return out.append(content);
}

/// SEQUENCE { 2.5.4.arc, value }.
inline std::string Attr(int arc, std::string_view value) {
    return Tlv(0x30, Tlv(0x06, std::string("\x55\x04") + static_cast<char>(arc)) + std::string(value));
}

/// A name of one RDN per attribute.
inline CNALX509Name Name(std::initializer_list<std::string> attrs) {
    std::string rdns;
    for (const std::string& attr : attrs)
        rdns += Tlv(0x31, attr);
    return CNALX509Name(ToBytes(Tlv(0x30, rdns)));
}

inline IdentObj WideBytes(std::wstring_view text) {
    return {text.data(), static_cast<unsigned>(text.size() * sizeof(wchar_t))};
}

inline std::wstring Text(const CNALX509Name& name, unsigned flags = 0) {
    std::wstring text;
    name.GetX500String(text, flags);
    return text;
}

/// Sets LANG and the process's locale; null unsets LANG or keeps the locale. The end of the scope puts both back.
class LocaleScope {
public:
    LocaleScope(const char* lang, const char* locale) : m_locale(std::setlocale(LC_ALL, nullptr)) {
        if (const char* old = std::getenv("LANG")) {
            m_lang = old;
            m_hadLang = true;
        }
        lang ? ::setenv("LANG", lang, 1) : ::unsetenv("LANG");
        if (locale) m_set = std::setlocale(LC_ALL, locale) != nullptr;
    }
    ~LocaleScope() {
        m_hadLang ? ::setenv("LANG", m_lang.c_str(), 1) : ::unsetenv("LANG");
        std::setlocale(LC_ALL, m_locale.c_str());
    }
    LocaleScope(const LocaleScope&) = delete;
    LocaleScope& operator=(const LocaleScope&) = delete;

    bool IsSet() const { return m_set; }

private:
    std::string m_locale;
    std::string m_lang;
    bool m_hadLang = false;
    bool m_set = true;
};

}  // namespace nal_test
