/// The toolkit's classes and functions: single elements, trees of them, and the records that GOST algorithms are named
/// by. All are thin over asnt/view.h and asnt/writer.h, which new code uses directly.
///
/// A record is an element's content in the form in which it is worked with: an INTEGER's or ENUMERATED's octets least
/// significant first, every octet kept; a UTCTime's or GeneralizedTime's as an 8-byte FILETIME; every other content as
/// it stands.
///
/// Reading functions return the bytes consumed, 0 (with the object unchanged) for input that is not what they read;
/// they copy what they keep. Those that return a value throw: XTOOStatus(TOO_E_BAD_STRUCTURE) for content that its type
/// does not have, TOO_E_ENCODE for a value that cannot be encoded. Objects are values; distinct ones may be used by
/// several threads at once.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "too/export.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

/// Turns content octets into a record.
/// @param tag     the universal tag number that says the type
/// @param record  untouched on failure
/// @return false for an INTEGER that is empty or not in its shortest form and for a damaged time
NAL_HOST_EXPORT bool ASNTLowDecodeData(unsigned tag, const void* data, unsigned size, IdentObj& record);

/// Turns a record into content octets: the reverse.
/// @return false for an empty INTEGER, and for a time that is not 8 bytes or that the type cannot say
NAL_HOST_EXPORT bool ASNTLowEncodeData(unsigned tag, const void* data, unsigned size, IdentObj& content);

/// Reads the header at the start of `data`; the content need not be there.
/// @return the size of the header in bytes, 0 when it is damaged or incomplete
NAL_HOST_EXPORT unsigned ASNTGetAsnInfo(const void* data, unsigned size, asnt::Header& info);

/// Splits the SEQUENCE (or, with tag 17, the SET) at the start of `data` into its items.
/// @param items  receives each item's whole encoding, in order; views into `data`. Untouched on failure
/// @return the bytes that the SEQUENCE takes, 0 when there is none
NAL_HOST_EXPORT unsigned ASNTGetSequence(const void* data, unsigned size, std::vector<asnt::View>& items,
                                         unsigned tag = 16);

/// Joins encoded items under a tag.
/// @param tag  16 for a SEQUENCE, 17 for a SET
NAL_HOST_EXPORT IdentObj ASNTPutSequence(unsigned tag, const std::vector<asnt::View>& items,
                                         asnt::Order order = asnt::Order::AsGiven);

/// One element.
class NAL_HOST_EXPORT CASNTBaseRecord {
public:
    CASNTBaseRecord();
    CASNTBaseRecord(const CASNTBaseRecord&);
    CASNTBaseRecord& operator=(const CASNTBaseRecord&);
    CASNTBaseRecord(CASNTBaseRecord&&) noexcept;
    CASNTBaseRecord& operator=(CASNTBaseRecord&&) noexcept;
    virtual ~CASNTBaseRecord();

    /// Reads the element at the start of `data`. @return the bytes consumed, 0 when there is none
    virtual unsigned ReadData(const void* data, unsigned size);
    /// Reads the header only; the content is empty afterwards. @return the header's size, 0 when there is none
    unsigned ReadASNInfo(const void* data, unsigned size);

    unsigned GetTag() const { return m_tag.number; }
    /// 0x00 universal, 0x40 application, 0x80 context-specific, 0xC0 private.
    unsigned char GetClass() const { return m_tag.Class(); }
    bool GetIsConstraction() const { return m_tag.IsConstructed(); }
    /// The size of the content in bytes, as the header says it.
    unsigned GetEntrySize() const { return m_entrySize; }
    /// The content as a record. Of a class other than universal: as it stands. @throws XTOOStatus(TOO_E_BAD_STRUCTURE)
    IdentObj GetRecord() const;

    /// Names the element to be built.
    void SetTag(unsigned tag, bool constructed = false, unsigned char asnClass = 0);
    /// Sets the content from a record. @throws XTOOStatus(TOO_E_ENCODE), with the object unchanged
    void SetEntry(const IdentObj& record);
    /// The content octets as they stand.
    IdentObj GetEncodedEntry() const;
    void SetEncodedEntry(const IdentObj& content);
    /// The element's DER.
    IdentObj GetEncodedRecord() const;

protected:
    /// The universal tag number whose type the content has; 0 for none.
    virtual unsigned ContentType() const { return m_tag.IsUniversal() ? m_tag.number : 0; }
    void SetContent(std::shared_ptr<const IdentObj> owner, asnt::View content);
    /// Takes an element that lies in `owner`.
    void Adopt(const std::shared_ptr<const IdentObj>& owner, const asnt::Element& element);

    std::shared_ptr<const IdentObj> m_owner;  // of the bytes of m_content; shared by copies, never changed
    asnt::View m_content;
    asnt::Tag m_tag;
    unsigned m_entrySize = 0;
};

/// An element whose tag [number] stands in the place of its type's own.
class NAL_HOST_EXPORT Implicit : public CASNTBaseRecord {
public:
    /// @param number  of the context-specific tag
    /// @param type    the universal tag number that it replaces; 16 and 17 are constructed
    Implicit(unsigned number, unsigned type);

    /// Reads an element that carries exactly that tag.
    unsigned ReadData(const void* data, unsigned size) override;

protected:
    unsigned ContentType() const override { return m_type; }

private:
    unsigned m_type;
};

/// An element and, when it is constructed, those inside it.
///
/// Holds one copy of what it read, which its items share; an item's own items are found when it is asked for.
class NAL_HOST_EXPORT CASNTUnit : public CASNTBaseRecord {
public:
    /// @param rules  what is read; under the BER rules a message may be stored in pieces
    explicit CASNTUnit(asnt::Rules rules = asnt::Rules::Der) : m_rules(rules) {}

    /// Reads the element at the start of `data` and checks everything inside it.
    unsigned ReadData(const void* data, unsigned size) override;

    /// How many elements are directly inside; 0 for a primitive element.
    unsigned GetItemCount() const { return static_cast<unsigned>(m_items.size()); }
    /// @param index  counts from 0 @throws XTOOStatus(TOO_E_RANGE) behind the last
    CASNTUnit GetItem(unsigned index) const;

    /// The content of an OCTET STRING, its pieces joined; of any other element as it stands.
    IdentObj GetOctets() const;
    /// The element's encoding as it was read.
    asnt::View GetWhole() const { return m_whole; }

private:
    void AdoptTree(const std::shared_ptr<const IdentObj>& owner, const asnt::Element& element);

    asnt::Rules m_rules;
    asnt::View m_whole;
    std::vector<std::uint32_t> m_items;  // where in m_content each begins
};

/// An algorithm or another thing that an OID names, and its parameters.
struct NAL_HOST_EXPORT ASNAlgorithmIdentifier {
    IdentObj m_algorithm;   ///< the OID as dotted text, without terminator
    IdentObj m_parameters;  ///< the parameters' DER; empty when absent
};

/// Equality of both; order by the text of the OID, then by the parameters.
inline bool operator==(const ASNAlgorithmIdentifier& a, const ASNAlgorithmIdentifier& b) {
    return a.m_algorithm == b.m_algorithm && a.m_parameters == b.m_parameters;
}
inline bool operator!=(const ASNAlgorithmIdentifier& a, const ASNAlgorithmIdentifier& b) {
    return !(a == b);
}
inline bool operator<(const ASNAlgorithmIdentifier& a, const ASNAlgorithmIdentifier& b) {
    const int order = a.m_algorithm.Compare(b.m_algorithm);
    return order < 0 || (order == 0 && a.m_parameters < b.m_parameters);
}
inline bool operator>(const ASNAlgorithmIdentifier& a, const ASNAlgorithmIdentifier& b) {
    return b < a;
}

/// Reads and writes such a record as AlgorithmIdentifier ::= SEQUENCE { algorithm OBJECT IDENTIFIER, parameters ANY
/// OPTIONAL } (RFC 5280 section 4.1.1.2), or its OID alone.
class NAL_HOST_EXPORT CASNTIdData : public ASNAlgorithmIdentifier {
public:
    CASNTIdData() = default;
    explicit CASNTIdData(const ASNAlgorithmIdentifier& identifier) : ASNAlgorithmIdentifier(identifier) {}
    /// @param dotted  the OID; null is none
    explicit CASNTIdData(const char* dotted, const IdentObj& parameters = IdentObj());

    /// The OID as dotted text.
    CTOOString GetID() const;

    /// Reads the SEQUENCE at the start of `data`. @return the bytes consumed, 0 when there is none
    unsigned ReadData(const void* data, unsigned size);
    /// Reads the next element of `reader`, which throws with its own context; nothing is changed then.
    void ReadData(asnt::Reader& reader);
    /// The SEQUENCE's DER. @throws XTOOStatus(TOO_E_ENCODE) when the OID is none
    IdentObj WriteData() const;
    void WriteData(asnt::Writer& writer) const;
    /// The length of that DER.
    unsigned GetObjectSize() const;

    /// Reads an OBJECT IDENTIFIER alone and empties the parameters. @return the bytes consumed, 0 when there is none
    unsigned ReadID(const void* data, unsigned size);
    /// The OBJECT IDENTIFIER's DER. @throws XTOOStatus(TOO_E_ENCODE) when it is none
    IdentObj WriteID() const;
};

/// The parameters of a GOST key: SEQUENCE { publicKeyParamSet OID, digestParamSet OID, encryptionParamSet OID OPTIONAL
/// } (RFC 4357 section 10.8, RFC 4491 section 2.3).
class NAL_HOST_EXPORT CASNAlgAddInfo {
public:
    CASNAlgAddInfo() = default;
    /// @param encryptOID  null when there is none
    CASNAlgAddInfo(const char* signOID, const char* hashOID, const char* encryptOID = nullptr)
        : m_signOID(signOID), m_hashOID(hashOID), m_encryptOID(encryptOID) {}

    const CTOOString& GetSignOID() const { return m_signOID; }
    const CTOOString& GetHashOID() const { return m_hashOID; }
    /// Empty when there is none.
    const CTOOString& GetEncryptOID() const { return m_encryptOID; }

    /// @return the bytes consumed, 0 when `data` does not start with such parameters
    unsigned ReadData(const void* data, unsigned size);
    /// @throws XTOOStatus(TOO_E_ENCODE) when a text is no OID
    IdentObj WriteData() const;
    unsigned GetObjectSize() const { return WriteData().GetSize(); }

private:
    CTOOString m_signOID;
    CTOOString m_hashOID;
    CTOOString m_encryptOID;
};
