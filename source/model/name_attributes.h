// The tables of a name's attributes: keywords, OIDs, priorities, string types and their tags; and the walk over a Name.
#pragma once

#include <string>
#include <string_view>

#include "asnt/view.h"
#include "nal/wincrypt.h"

namespace nal {

/// The longest attribute type, keyword or dotted, that a name text may have.
inline constexpr std::size_t kMaxTypeLength = 22;

/// @param keyword  upper case, or a dotted OID
/// @return the OID of the encoder's table, or null
const char* FindKeyword(std::string_view keyword);
/// @return the keyword that the decoder's table has for an OID, or null
const char* FindKeywordOf(std::string_view oid);
/// See X500NameParser::GetAttrPriority.
int AttrPriority(std::string_view oid);

/// The value type (CERT_RDN_*) that an element has as an attribute's value: 2 to 13 by its tag, CERT_RDN_ENCODED_BLOB
/// for anything else. A constructed text has the type of its text, so that AppendText refuses it.
unsigned ValueTypeOf(asnt::Tag tag);
/// The reverse, for types 2 to 13. @return false for any other
bool TagOf(unsigned valueType, asnt::Tag& tag);

/// Types 3 to 10, a byte a character.
constexpr bool IsByteText(unsigned valueType) {
    return valueType >= CERT_RDN_NUMERIC_STRING && valueType <= CERT_RDN_GENERAL_STRING;
}
/// Types 12 and 13, which travel as wide characters.
constexpr bool IsWideText(unsigned valueType) {
    return valueType == CERT_RDN_BMP_STRING || valueType == CERT_RDN_UTF8_STRING;
}
constexpr bool IsText(unsigned valueType) {
    return IsByteText(valueType) || IsWideText(valueType);
}

/// Adds the characters of a value of a text type to `out`. @return false for a constructed encoding and for invalid
/// bytes
bool AppendText(const asnt::Element& value, unsigned valueType, std::wstring& out);

/// Steps over a Name: its RDNs, and within one its attributes.
///
///     NameCursor cursor(der);
///     while (cursor.NextRdn()) {
///         while (cursor.NextAttr()) use(cursor.Oid(), cursor.Value());
///     }
///     if (cursor.Failed()) ...
class NameCursor {
public:
    explicit NameCursor(asnt::View der);

    bool NextRdn();
    bool NextAttr();
    /// Whether a step returned false because of damage rather than at the end.
    bool Failed() const { return m_failed; }

    /// The content octets of the attribute's type.
    asnt::View Oid() const { return m_oid; }
    const asnt::Element& Value() const { return m_value; }

private:
    asnt::Reader m_rdns;
    asnt::Reader m_rdn;
    asnt::View m_oid;
    asnt::Element m_value;
    bool m_failed = false;
};

}  // namespace nal
