/// The codec of distinguished names: between DER and text, CryptoAPI records, or lists of attributes; and the
/// conversions between character sets that it needs. docs/names.md describes the text form.
///
/// Every coder function returns false on failure; its output is then not to be used. CNALX509Name turns that into
/// XTOOStatus. A coder object keeps its state in itself: one thread at a time uses one, distinct ones are independent.
#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "nal/export.h"
#include "nal/name.h"
#include "nal/wincrypt.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace asnt {
struct Element;
struct View;
class Writer;
}  // namespace asnt

namespace nal {
class NameCursor;
}

// Forms of text and flags of the coders.
#define CERT_SIMPLE_NAME_STR 1
#define CERT_OID_NAME_STR 2
#define CERT_X500_NAME_STR 3
/// Encoder: only ";" separates elements. Decoder: elements are joined by ";".
#define CERT_NAME_STR_SEMICOLON_FLAG 0x40000000
/// Encoder: only CR and LF separate elements. Decoder: elements are joined by CR LF.
#define CERT_NAME_STR_CRLF_FLAG 0x08000000
/// Encoder: only "," separates elements.
#define CERT_NAME_STR_COMMA_FLAG 0x04000000
/// Encoder: a value that is not printable becomes UTF8String instead of BMPString.
#define CERT_NAME_STR_ENABLE_UTF8_UNICODE_FLAG 0x00040000
/// Encoder, together with the flag above: every value that has no fixed type becomes UTF8String.
#define CERT_NAME_STR_DISABLE_UTF8_DIR_STR_FLAG 0x00100000

/// Conversions between character sets. Sizes are in bytes unless a name says characters.
class NAL_EXPORT UTF8Conversion {
public:
    /// Drops or skips what is malformed instead of ending the conversion.
    static constexpr int kLenient = 1;
    /// Leaves out U+FEFF, the byte-order mark, wherever it stands.
    static constexpr int kDropByteOrderMark = 2;

    /// Converts with the system's iconv, once over the input.
    ///
    /// @param fromCode, toCode  names of character sets as iconv knows them. Null is the default: what follows the
    ///                          last "." of the environment variable LANG, or all of it, and UTF-8 when that names no
    ///                          known set
    /// @return the bytes written. On an error, a full output included, "iconv error" is printed through perror, and
    ///         what was converted until then counts
    static unsigned long iconv_convert(const char* fromCode, const char* toCode, const char* in, unsigned long inBytes,
                                       char* out, unsigned long outBytes);

    /// Decodes UTF-8 of up to six bytes a character (ISO 10646 as it first was).
    ///
    /// Strict: the bytes 0xC0, 0xC1, 0xF5, 0xFE and 0xFF, a truncated sequence, a continuation byte out of place, and a
    /// surrogate end the conversion. kLenient skips such bytes one by one and drops surrogates.
    ///
    /// @param out       receives the characters, without a terminator; null to count them
    /// @param outBytes  room at `out` in bytes
    /// @return the number of characters; 0 on an error, for no input, and when the room does not do
    static unsigned long utf8_to_wchar(const char* in, unsigned long inBytes, wchar_t* out, unsigned long outBytes,
                                       int flags);

    /// Encodes in UTF-8, up to six bytes a character, so up to 0x7FFFFFFF.
    ///
    /// Surrogates and negative values end the conversion, or are skipped with kLenient.
    ///
    /// @param inBytes  size of the input in bytes, four a character
    /// @param out      receives the bytes, without a terminator; null to count them
    /// @return the number of bytes; 0 on an error, for no input, and when the room does not do
    static unsigned long wchar_to_utf8(const wchar_t* in, unsigned long inBytes, char* out, unsigned long outBytes,
                                       int flags);
};

namespace X500NameParser {

/// The place of an attribute type when a name's elements are ordered: 0 for the common name and the pseudonym up to 11,
/// and 99 for any type that has no place of its own.
/// @param oid  dotted text
NAL_EXPORT int GetAttrPriority(const CTOOString& oid);
NAL_EXPORT int GetAttrPriority(const std::wstring& oid);

/// Removes white space at both ends: the same characters in every locale.
NAL_EXPORT void TrimLeftRight(std::wstring& text);

/// Owns a decoded CERT_NAME_INFO and everything that it points to.
class NAL_EXPORT CertNameInfoWrapper {
public:
    /// An empty record.
    CertNameInfoWrapper();
    ~CertNameInfoWrapper();
    CertNameInfoWrapper(const CertNameInfoWrapper&) = delete;
    CertNameInfoWrapper& operator=(const CertNameInfoWrapper&) = delete;

    /// Frees every array, OID and value, and empties the record.
    void Clean();

    /// The record; it stays valid until Clean, the next decoding or the end of this object.
    operator CERT_NAME_INFO*() { return &m_info; }              // NOLINT(google-explicit-constructor)
    operator const CERT_NAME_INFO*() const { return &m_info; }  // NOLINT(google-explicit-constructor)

private:
    friend class X500NameDecoder;
    struct Storage;

    CERT_NAME_INFO m_info{};
    std::unique_ptr<Storage> m_storage;
};

/// Anything to DER.
class NAL_EXPORT X500NameEncoder {
public:
    /// One attribute.
    struct X500NAME_ELEM {
        std::wstring m_type;   ///< the attribute type as it was written
        std::wstring m_oid;    ///< its dotted OID
        std::wstring m_value;  ///< the value as text
        /// CERT_RDN_*: how m_raw is to be written; 0 when the string type of m_value is to be chosen
        DWORD m_valueType = CERT_RDN_ANY_TYPE;
        IdentObj m_raw;            ///< the value of an element that came with a type, as in CNALRDNAttr::m_value
        bool m_joinsLast = false;  ///< belongs to the RDN of the element before it
    };

    /// The 75 characters of a value that is written as PrintableString. They lack "=" and have CR and LF, unlike the
    /// alphabet of that type in ASN.1.
    static const wchar_t PrintableString[75];

    /// Replaces, adds, removes and returns the option word: CERT_NAME_STR_*. The argument of the last is not looked at.
    void SetEncoderOptions(unsigned options) { m_options = options; }
    void AddEncoderOption(unsigned option) { m_options |= option; }
    void RemoveEncoderOption(unsigned option) { m_options &= ~option; }
    unsigned GetEncoderOptions(unsigned = 0) const { return m_options; }

    /// @param der   receives the name
    /// @param sort  order the RDNs by descending priority, those of equal priority as given
    bool Encode(const std::wstring& text, IdentObj& der, bool sort);
    bool Encode(const CERT_NAME_INFO& info, IdentObj& der);
    bool Encode(const std::list<std::list<CNALRDNAttr>>& rdns, IdentObj& der);
    /// One RDN per pair.
    bool Encode(const std::list<CNALSimpleRDN>& pairs, IdentObj& der, bool sort);
    /// Writes the elements collected so far.
    bool Encode(IdentObj& der, bool sort);

    /// What the last call that returned false found, for people: the element and what is wrong with it.
    const CTOOString& GetFailure() const { return m_failure; }

    /// Parses a text into elements, added to those collected.
    bool Parse_NameElems(const std::wstring& text);
    const std::list<X500NAME_ELEM>& GetElements() const { return m_elements; }

    /// Whether a character separates elements, by the options.
    bool IsElementDelimiter(wchar_t c) const;
    /// Chooses the string type of an element's text: CERT_RDN_*. False for an empty value.
    bool DetermineTargetType(const X500NAME_ELEM& elem, unsigned& type) const;

private:
    enum class Token { End, Text, Quoted, Equals, Bad };

    bool GetStrings(const std::wstring& text, std::list<std::wstring>& rdns) const;
    static void DevideIntoElements(const std::wstring& rdn, std::list<std::wstring>& elements);
    static Token GetToken(const std::wstring& text, std::size_t& position, std::wstring& token);
    bool Parse_ElemComponents(const std::wstring& text, X500NAME_ELEM& elem);
    bool Parse_ElemType(X500NAME_ELEM& elem);
    bool Parse_ElemValue(std::wstring&& value, bool quoted, X500NAME_ELEM& elem);
    bool ConvToX500NameElem(const CERT_RDN_ATTR& attr, X500NAME_ELEM& elem);
    bool ConvToX500NameElem(const CNALRDNAttr& attr, X500NAME_ELEM& elem);
    bool ConvRaw(X500NAME_ELEM& elem);
    bool EncodeElem(const X500NAME_ELEM& elem, asnt::Writer& writer);
    bool EncodeElemData(const X500NAME_ELEM& elem, unsigned type, IdentObj& content) const;
    bool Fail(const X500NAME_ELEM& elem, const char* reason);

    unsigned m_options = 0;
    std::list<X500NAME_ELEM> m_elements;
    CTOOString m_failure;
};

/// DER to text or to CERT_NAME_INFO.
///
/// Reads strict DER: SEQUENCE OF SET OF SEQUENCE { type OBJECT IDENTIFIER, value ANY } and nothing behind it. A SET
/// without attributes is taken, and text leaves it out. A text with invalid bytes, an unpaired surrogate or a
/// constructed encoding fails the name; in texts of types 3 to 10 every byte is valid.
class NAL_EXPORT X500NameDecoder {
public:
    /// The characters that force quotes around a printed value, next to the apostrophe and white space at the ends.
    static const wchar_t AuxSymbols[11];

    /// Replaces, adds, removes and returns the option word: CERT_NAME_STR_*. The argument of the last is not looked at.
    void SetDecoderOptions(unsigned options) { m_options = options; }
    void AddDecoderOption(unsigned option) { m_options |= option; }
    void RemoveDecoderOption(unsigned option) { m_options &= ~option; }
    unsigned GetDecoderOptions(unsigned = 0) const { return m_options; }

    /// @param text     receives the text
    /// @param options  count in addition to those that are set
    bool Decode(const IdentObj& der, std::wstring& text, unsigned options) const;
    /// @param out  receives the record; cleaned on failure
    bool Decode(const IdentObj& der, CertNameInfoWrapper& out) const;

    /// The keyword that stands for an attribute type in text: the provider's, then the library's, else the OID itself.
    static std::wstring GetX500KeyFromOid(const CTOOString& oid);
    /// Puts double quotes around a value and doubles those inside.
    static void QuoteAttr(std::wstring& value);
    /// Quotes a value when it would not be read back as it is.
    static void EscapeAttrAuxSym(std::wstring& value);
    /// Adds "#" and the bytes in hexadecimal to `text`.
    static void BlobToString(const IdentObj& blob, std::wstring& text);
    /// Two upper-case hexadecimal digits.
    static std::wstring ToHex(unsigned char byte);

private:
    static bool DecodeElem(nal::NameCursor& rdn, std::wstring& text);
    static bool DecodeElem(nal::NameCursor& rdn, CertNameInfoWrapper::Storage& storage);
    static bool DecodeAttrOid(const asnt::View& oid, std::string& text);
    static bool DecodeAttrData(const asnt::Element& value, unsigned valueType, std::wstring& text);
    static bool RefuseAttrData(unsigned valueType);

    unsigned m_options = 0;
};

}  // namespace X500NameParser
