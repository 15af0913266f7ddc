/// Distinguished names (RFC 5280 section 4.1.2.4) in the one form in which they are held, their DER encoding, and the
/// single attributes that they are made of. docs/names.md tells how names look as text and what a round trip keeps.
///
/// Narrow text and character sets: attribute types and OIDs are plain ASCII everywhere. Values that come in as narrow
/// text are read in the character set that the environment variable LANG names (UTF-8 when it names none that the
/// system knows); single values go out in the character set of the process's locale, as CertRDNValueToStr says; whole
/// names go out in the set of LANG.
///
/// Threads: values without shared state; distinct objects may be used on distinct threads.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "nal/export.h"
#include "nal/wincrypt.h"
#include "too/ident_obj.h"
#include "too/string.h"

/// One attribute of a name, as CERT_RDN_ATTR has it, owning its parts.
class NAL_EXPORT CNALRDNAttr {
public:
    /// No OID, type 0, no value.
    CNALRDNAttr() = default;
    explicit CNALRDNAttr(const CERT_RDN_ATTR& attr) { SetBy(attr); }
    /// @param oid    dotted attribute type, for example "2.5.4.3"
    /// @param type   CERT_RDN_*
    /// @param value  see m_value
    CNALRDNAttr(const char* oid, unsigned type, const IdentObj& value)
        : m_oid(oid), m_valueType(type), m_value(value) {}
    /// As CNALX509Name::MakeRDNAttr, which always throws on this platform.
    CNALRDNAttr(const char* key, const char* value) { SetBy(key, value); }

    CNALRDNAttr& operator=(const CERT_RDN_ATTR& attr) {
        SetBy(attr);
        return *this;
    }

    /// Copies OID, type and value out of a record.
    void SetBy(const CERT_RDN_ATTR& attr);
    /// As CNALX509Name::MakeRDNAttr, which always throws on this platform.
    void SetBy(const char* key, const char* value);

    /// The value as narrow text; see CNALX509Name::GetRDNAttrValueString.
    void GetValueString(CTOOString& out) const;

    CTOOString m_oid;
    /// CERT_RDN_*
    DWORD m_valueType = 0;
    /// Types 3 to 10: the characters as they stand. Types 12 and 13, and 0 for encoding: `wchar_t` characters, four
    /// bytes each. Type 1: a complete DER element. Types 2 and 11: the content octets.
    IdentObj m_value;
};

/// One attribute as a pair of texts.
class NAL_EXPORT CNALSimpleRDN {
public:
    /// Orders by key, then by value, byte by byte: for comparing names as sets.
    struct CompareSimpleRDN {
        bool operator()(const CNALSimpleRDN& left, const CNALSimpleRDN& right) const {
            if (left.m_key != right.m_key) return left.m_key < right.m_key;
            return left.m_value < right.m_value;
        }
    };

    CNALSimpleRDN() = default;
    CNALSimpleRDN(const char* key, const char* value) : m_key(key), m_value(value) {}

    /// Priority only (X500NameParser::GetAttrPriority of the keys): the order for printing, never an equality.
    bool operator<(const CNALSimpleRDN& other) const;
    bool operator>(const CNALSimpleRDN& other) const;

    /// A dotted OID, or a keyword as the text form has it ("CN").
    CTOOString m_key;
    /// The value, taken as it is: no quotes, no escapes.
    CTOOString m_value;
};

/// A name: the bytes of its DER encoding. An empty buffer is the empty name.
///
/// Building replaces the content when the new one is complete; a call that throws leaves the name as it was.
/// Bytes taken from an IdentObj are not checked until they are first read.
class NAL_EXPORT CNALX509Name : public IdentObj {
public:
    CNALX509Name() = default;
    explicit CNALX509Name(const IdentObj& der) : IdentObj(der) {}
    explicit CNALX509Name(IdentObj&& der) noexcept : IdentObj(static_cast<IdentObj&&>(der)) {}
    /// The constructors below are SetBy with the same arguments; utf8 and b are true where they do not appear.
    explicit CNALX509Name(const CERT_NAME_INFO& info) { SetBy(info, true); }
    explicit CNALX509Name(const std::list<std::list<CNALRDNAttr>>& rdns) { SetBy(rdns, true); }
    explicit CNALX509Name(const std::list<CNALSimpleRDN>& pairs) { SetBy(pairs, true, true); }
    CNALX509Name(const std::wstring& text, unsigned flags, bool b) { SetBy(text, flags, b); }
    CNALX509Name(const char* text, unsigned flags, bool b) { SetBy(text, flags, b); }

    CNALX509Name(const CNALX509Name&) = default;
    CNALX509Name(CNALX509Name&&) noexcept = default;
    CNALX509Name& operator=(const CNALX509Name&) = default;
    CNALX509Name& operator=(CNALX509Name&&) noexcept = default;
    virtual ~CNALX509Name();

    CNALX509Name& operator=(const IdentObj& der);
    CNALX509Name& operator=(const CERT_NAME_INFO& info);
    CNALX509Name& operator=(const std::list<std::list<CNALRDNAttr>>& rdns);
    CNALX509Name& operator=(const std::list<CNALSimpleRDN>& pairs);

    /// Writes the given RDNs in their order. An attribute with a value type keeps it; for one of type 0 the string type
    /// is chosen, UTF8String wherever the attribute has no fixed type when `utf8`, else PrintableString or BMPString.
    /// @throws XTOOStatus(TOO_E_NAME_ENCODE) for an invalid OID or type, an empty value, or a value that its type
    /// cannot hold
    void SetBy(const CERT_NAME_INFO& info, bool utf8);
    void SetBy(const std::list<std::list<CNALRDNAttr>>& rdns, bool utf8);

    /// Parses a text such as `CN=Ivan, O="Horns, hooves"`.
    /// @param flags  CERT_NAME_STR_* for the encoder. When CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG is among them, only
    ///               CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG is passed on, and every other bit, that one included, is
    ///               dropped
    /// @param b      whether to order the RDNs by priority, country first and common name last
    /// @throws XTOOStatus(TOO_E_NAME_ENCODE); its text names the element that was refused
    void SetBy(const std::wstring& text, unsigned flags, bool b);

    /// One RDN per pair, in the list's order or, with `b`, by priority; string types as in the first form.
    /// @throws XTOOStatus(TOO_E_NAME_DECODE) when a key is not known, or a value is empty or cannot be encoded
    void SetBy(const std::list<CNALSimpleRDN>& pairs, bool utf8, bool b);

    /// Does nothing: names are parsed from wide text only.
    void SetBy(const char* text, unsigned flags, bool b);

    /// The name as text, RDNs in the order of the encoding; empty for an empty name. See docs/names.md for the form.
    /// @param flags  CERT_NAME_STR_CRLF_FLAG or CERT_NAME_STR_SEMICOLON_FLAG choose the separator, else it is ","
    /// @throws XTOOStatus(TOO_E_NAME_DECODE) for an encoding that is damaged
    void GetX500String(std::wstring& out, unsigned flags) const;
    /// The same in the character set of LANG, cut at the first zero character.
    /// @throws XTOOStatus(TOO_E_NAME_DECODE) also when a character has no place in that set
    void GetX500String(std::string& out, unsigned flags) const;
    /// Does nothing; `out` stays as it is.
    void GetX500String(CTOOString& out, unsigned flags) const;

    /// Every RDN with every attribute, in the order of the encoding.
    /// @throws XTOOStatus(TOO_E_NAME_DECODE), for an empty name too
    void GetNameInfo(std::list<std::list<CNALRDNAttr>>& out) const;

    /// Finds the first RDN whose first attribute has this type.
    /// @param oid  dotted, compared as text
    /// @param out  receives the value as text: narrow in the locale's character set, with "?" for a character that has
    ///             no place in it; empty when the value has no text form or nothing was found
    /// @return whether it was found
    /// @throws XTOOStatus(TOO_E_NAME_DECODE) for a damaged encoding and for an empty name
    bool GetSimpleRDN(const char* oid, CTOOString& out) const;
    bool GetSimpleRDN(const char* oid, std::wstring& out) const;

    /// One pair (OID, value as GetSimpleRDN gives it) for each RDN's first attribute; nothing for an empty name.
    /// The flag is not looked at. @throws XTOOStatus(TOO_E_NAME_DECODE)
    void GetSimpleRDNList(std::list<CNALSimpleRDN>& out, bool flag) const;
    void GetSimpleRDNVector(std::vector<CNALSimpleRDN>& out) const;

    /// Replaces the value of the first RDN whose first attribute has this type.
    /// @return false for an empty name, one that does not decode, or one without such an RDN
    /// @throws XTOOStatus as MakeRDNAttr does, so always when there is such an RDN
    bool SetSimpleRDN(const char* oid, const char* value);
    bool SetSimpleRDN(const CNALSimpleRDN& pair);

    /// Names are equal when the first attributes of their RDNs are the same set, duplicates counted: same OID and same
    /// text, character by character, or for values without text the same encoding. The order of RDNs, the string types,
    /// and further attributes of multi-valued RDNs do not count. Never depends on the locale.
    /// @throws XTOOStatus(TOO_E_NAME_DECODE) when either does not decode
    bool operator==(const CNALX509Name& other) const;
    bool operator!=(const CNALX509Name& other) const { return !(*this == other); }

    /// Makes an attribute from a narrow text. Narrow text is not parsed on this platform, so this always throws.
    /// @throws XTOOStatus(TOO_E_ENCODE)
    static void MakeRDNAttr(const char* key, const char* value, CNALRDNAttr& out);

    /// Takes the pair of one key, letters of either case being equal, over from `source`: added at the front of
    /// `target` when it is not there, overwritten when it is, removed from `target` when `source` has none. Only the
    /// first pair of that key in each list counts. `source` is not changed.
    static void MergeRDNAtributes(std::list<CNALSimpleRDN>& target, std::list<CNALSimpleRDN>& source, const char* key);

    /// Puts double quotes around a text and doubles those inside. Null is the empty text.
    static void QuoteString(const char* in, CTOOString& out);
    static void QuoteString(CTOOString& text);
    /// Removes every lone double quote and replaces two adjacent ones by one, wherever they stand.
    static void UnquoteString(const char* in, CTOOString& out);
    static void UnquoteString(CTOOString& text);
    /// `out` becomes key="value", the value quoted.
    static void FormatRDNAttr(const char* key, const char* value, CTOOString& out);

    /// An attribute's value as text, by CertRDNValueToStr or CertRDNValueToStrW. `out` stays as it is when that fails:
    /// for the narrow forms when a character has no place in the locale's character set.
    static void GetRDNAttrValueString(const CERT_RDN_ATTR& attr, CTOOString& out);
    static void GetRDNAttrValueString(const CERT_RDN_ATTR& attr, std::wstring& out);
    static void GetRDNAttrValueString(const CNALRDNAttr& attr, CTOOString& out);
};

/// Turns an attribute's value into narrow text.
///
/// Types 3 to 10: the bytes as they stand. Types 12 and 13: the wide characters in the character set of the process's
/// locale. Every other type: the empty text.
///
/// @param valueType  CERT_RDN_*
/// @param value      the value in the convention of CNALRDNAttr::m_value; null is an empty one
/// @param out        receives at most outSize - 1 bytes, whole characters only, and a terminating zero; null to ask for
///                   the size
/// @param outSize    room at `out` in bytes; 0 asks for the size as a null `out` does
/// @return the bytes written, or the bytes needed, terminator included. 0 for types 12 and 13 when a character has no
///         place in the character set, or no character was written. A zero character becomes a zero byte and counts.
/// Reads the process's locale. The contract is CryptoAPI's.
NAL_EXPORT unsigned long CertRDNValueToStr(unsigned valueType, CERT_RDN_VALUE_BLOB* value, char* out,
                                           unsigned long outSize);

/// Turns an attribute's value into wide text: types 3 to 10 byte by byte, types 12 and 13 as they stand, else empty.
///
/// @param out      receives at most outSize characters and, after the last, a terminator: it has room for outSize + 1.
///                 For types 12 and 13 the first outSize are zeroed before
/// @return the characters written, or with `out` null or outSize 0 those needed, terminator included; at least 1
NAL_EXPORT unsigned long CertRDNValueToStrW(unsigned valueType, CERT_RDN_VALUE_BLOB* value, wchar_t* out,
                                            unsigned long outSize);
