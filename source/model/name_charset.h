// Conversions between character sets that can say that they failed, which the exported ones cannot.
#pragma once

#include <string>
#include <string_view>

#include "asnt/view.h"

namespace nal {

/// White space, the same in every locale: what is trimmed when a name is parsed, and what is quoted at a value's ends.
bool IsSpace(wchar_t c);

/// A dotted OID or a keyword, which are ASCII, to wide text.
inline std::wstring WidenAscii(std::string_view text) {
    return {text.begin(), text.end()};
}
/// The reverse. @return false, `out` untouched, when a character is not ASCII
bool NarrowAscii(std::wstring_view text, std::string& out);

/// Add decoded characters to `out`; false for bytes that are not well-formed, and then `out` holds rubbish behind its
/// old end. UTF-8 is that of RFC 3629: shortest form, no surrogates, nothing above 0x10FFFF. BMP text is UTF-16, most
/// significant byte first, so pairs of surrogates are taken and lone ones are not.
bool AppendUtf8(asnt::View bytes, std::wstring& out);
bool AppendUtf16(asnt::View bytes, std::wstring& out);

/// The reverse; false, `out` untouched, for a character that Unicode does not have.
bool ToUtf8(std::wstring_view text, std::string& out);
bool ToUtf16(std::wstring_view text, std::string& out);

/// From and to the character set of LANG (see UTF8Conversion::iconv_convert). False, `out` untouched, when it cannot be
/// done whole.
bool FromLangSet(std::string_view bytes, std::wstring& out);
bool ToLangSet(std::wstring_view text, std::string& out);

/// To the character set of the process's locale, zeros kept.
/// @param mark   stands for a character that has no place in the set; 0 to fail on one
/// @param limit  no more bytes than this, and whole characters only
/// @return false, `out` untouched, when it failed
bool ToLocaleSet(std::wstring_view text, char mark, std::size_t limit, std::string& out);

}  // namespace nal
