/// Attributes of signed messages and certification requests.
///
///     Attribute ::= SEQUENCE { attrType OBJECT IDENTIFIER, attrValues SET OF AttributeValue }
///
/// Source: RFC 5652 section 5.3, RFC 2986 section 4.1.
///
/// What was read is written back byte for byte, the order of attributes and values included: a signature may cover it, and
/// not every signer sorts a SET OF. What DER would make of the order is asked for with WriteSorted.
///
/// All classes are values; distinct objects may be used by several threads at once. Readers throw
/// XTOOStatus(TOO_E_BAD_STRUCTURE, class name + "::ReadData") and leave the object as it was.
#pragma once

#include <cstddef>
#include <vector>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "nal/export.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

/// Attribute types. RFC 2985 sections 5.3, 5.4; the last two are this system's own (see nal/pkcs10.h).
inline constexpr char c_NAL_OID_CONTENT_TYPE[] = "1.2.840.113549.1.9.3";
inline constexpr char c_NAL_OID_MESSAGE_DIGEST[] = "1.2.840.113549.1.9.4";
inline constexpr char c_NAL_OID_SIGNING_TIME[] = "1.2.840.113549.1.9.5";
inline constexpr char c_NAL_OID_EXTENSION_REQUEST[] = "1.2.840.113549.1.9.14";
inline constexpr char c_NAL_OID_SECOND_SIGNATURE[] = "1.3.6.1.4.1.47474.2.1.4.2";
inline constexpr char c_NAL_OID_REQUEST_IDENTITY[] = "1.3.6.1.4.1.47474.2.1.2.1";

/// An attribute of one value.
struct NAL_EXPORT CNALAttribute {
    CTOOString m_oid;  ///< the type, dotted text
    IdentObj m_value;  ///< the value, one complete DER element
};

/// One attribute: a type and its values, held as their encoding.
class NAL_EXPORT CNALAttributesSet {
public:
    /// No attribute; writes nothing.
    CNALAttributesSet() = default;
    /// @param oid    dotted text
    /// @param value  one complete DER element
    /// @throws XTOOStatus(TOO_E_ENCODE) when the OID is none or the value is not one element
    CNALAttributesSet(const CTOOString& oid, const IdentObj& value);
    explicit CNALAttributesSet(const CNALAttribute& attribute) : CNALAttributesSet(attribute.m_oid, attribute.m_value) {}

    /// The type as dotted text; empty for no attribute.
    CTOOString GetOID() const;
    /// Whether the type is `oid`, compared without making a text.
    bool HasOID(const char* oid) const;

    std::size_t GetValueCount() const;
    /// The values in order, each a complete element; valid until this object changes.
    std::vector<asnt::View> GetValues() const;
    /// The value of an attribute that has exactly one. @return false, with `value` untouched, for none and for several
    bool GetSingleValue(asnt::View& value) const;
    /// Adds a value behind the others. @throws XTOOStatus(TOO_E_ENCODE) when it is not one element, or no type is set
    void AddValue(const IdentObj& value);

    /// Reads one attribute from the start of `data`. An empty set of values is accepted.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    unsigned ReadData(const void* data, unsigned size);
    /// The attribute's DER, as received when it was read; empty for no attribute.
    const IdentObj& WriteData() const { return m_encoded; }
    unsigned GetObjectSize() const { return m_encoded.GetSize(); }

    friend bool operator==(const CNALAttributesSet& a, const CNALAttributesSet& b) { return a.m_encoded == b.m_encoded; }
    friend bool operator!=(const CNALAttributesSet& a, const CNALAttributesSet& b) { return !(a == b); }

private:
    friend class CNALAttributesList;

    void Adopt(const asnt::Element& attribute, const char* context);
    asnt::Reader Body() const;
    asnt::Reader ValueReader() const;

    IdentObj m_encoded;
};

/// Attributes in the order in which they were added or stand in the encoding, with the tag under which they are written.
///
/// The tag is a number and a flag: with the flag the universal class is meant (17, true: SET OF, first octet 0x31), without
/// it the context-specific one (0, false: [0] IMPLICIT, first octet 0xA0).
class NAL_EXPORT CNALAttributesList {
public:
    using const_iterator = std::vector<CNALAttributesSet>::const_iterator;

    /// An empty SET OF.
    CNALAttributesList() = default;
    CNALAttributesList(DWORD tagNumber, bool universal) : m_tagNumber(tagNumber), m_universal(universal) {}

    void SetTag(DWORD number, bool universal) {
        m_tagNumber = number;
        m_universal = universal;
    }
    DWORD GetTagNumber() const { return m_tagNumber; }
    bool IsUniversal() const { return m_universal; }

    /// Adds an attribute behind the others; types may repeat.
    void Add(CNALAttributesSet attribute) { m_items.push_back(static_cast<CNALAttributesSet&&>(attribute)); }
    void Add(const CTOOString& oid, const IdentObj& value) { m_items.emplace_back(oid, value); }
    /// Takes out every attribute of this type. @return how many there were
    std::size_t Remove(const char* oid);
    void Clear() { m_items.clear(); }

    /// The first attribute of this type; null when there is none. Valid until the list changes.
    const CNALAttributesSet* Find(const char* oid) const;
    /// How many attributes have this type.
    std::size_t Count(const char* oid) const;
    /// The one value of the one attribute of this type.
    /// @param value  receives a view into this list, valid until it changes; untouched when the result is false
    /// @return false when there is no attribute of this type
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALAttributesList") when it is repeated or has not exactly one value
    bool GetSingleValue(const char* oid, asnt::View& value) const;

    std::size_t size() const { return m_items.size(); }
    bool empty() const { return m_items.empty(); }
    const CNALAttributesSet& operator[](std::size_t index) const { return m_items[index]; }
    const_iterator begin() const { return m_items.begin(); }
    const_iterator end() const { return m_items.end(); }

    /// Replaces the list by the one at the start of `data`, whose tag is taken over: a SET, or any constructed
    /// context-specific tag.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    unsigned ReadData(const void* data, unsigned size);
    /// The list under its tag, in its order.
    IdentObj WriteData() const;
    /// The same into `writer`, which must be finished before this list changes.
    void WriteData(asnt::Writer& writer) const;
    unsigned GetObjectSize() const;

    /// The list under its tag as DER orders it: attributes by their encodings, and the values in each likewise.
    IdentObj WriteSorted() const;
    /// Whether WriteData and WriteSorted write the same.
    bool IsSorted() const { return WriteData() == WriteSorted(); }

    /// Same attributes in the same order; the tag does not count.
    friend bool operator==(const CNALAttributesList& a, const CNALAttributesList& b) { return a.m_items == b.m_items; }
    friend bool operator!=(const CNALAttributesList& a, const CNALAttributesList& b) { return !(a == b); }

private:
    asnt::Tag Tag() const;

    std::vector<CNALAttributesSet> m_items;
    DWORD m_tagNumber = 17;
    bool m_universal = true;
};

using CNALAttributes = CNALAttributesList;
