/// Extensions of certificates, CRLs and requests, and the values that this library knows.
///
/// `CNALCertExtensionList` holds extensions as they were read, without looking into their values. A value is decoded when it
/// is asked for, by the class that fits the extension's OID:
///
///     CNALBasicConstraints constraints;
///     if (constraints.ReadFrom(info.m_extensions, c_NAL_OID_BASIC_CONSTRAINTS) && constraints.m_isCA) ...
///
/// Values come from outside and need not be what their OID says: every decoder throws XTOOStatus(TOO_E_BAD_STRUCTURE) with the
/// class name for a value of another form, and leaves the object as it was. All classes are values; distinct objects may be
/// used by several threads at once.
#pragma once

#include <cstddef>
#include <list>
#include <utility>
#include <vector>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "nal/export.h"
#include "nal/wincrypt.h"
#include "too/bit_blob.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

/// Extension identifiers. RFC 5280 section 4.2 and 5.2, but for the four older ones.
inline constexpr char c_NAL_OID_OLD_AUTHORITY_KEY_ID[] = "2.5.29.1";
inline constexpr char c_NAL_OID_OLD_SUBJECT_ALT_NAME[] = "2.5.29.7";
inline constexpr char c_NAL_OID_OLD_ISSUER_ALT_NAME[] = "2.5.29.8";
inline constexpr char c_NAL_OID_OLD_BASIC_CONSTRAINTS[] = "2.5.29.10";
inline constexpr char c_NAL_OID_SUBJECT_KEY_ID[] = "2.5.29.14";
inline constexpr char c_NAL_OID_KEY_USAGE[] = "2.5.29.15";
inline constexpr char c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD[] = "2.5.29.16";
inline constexpr char c_NAL_OID_SUBJECT_ALT_NAME[] = "2.5.29.17";
inline constexpr char c_NAL_OID_ISSUER_ALT_NAME[] = "2.5.29.18";
inline constexpr char c_NAL_OID_BASIC_CONSTRAINTS[] = "2.5.29.19";
inline constexpr char c_NAL_OID_CRL_NUMBER[] = "2.5.29.20";
inline constexpr char c_NAL_OID_REASON_CODE[] = "2.5.29.21";
inline constexpr char c_NAL_OID_CRL_DISTRIBUTION_POINTS[] = "2.5.29.31";
inline constexpr char c_NAL_OID_CERTIFICATE_POLICIES[] = "2.5.29.32";
inline constexpr char c_NAL_OID_AUTHORITY_KEY_ID[] = "2.5.29.35";
inline constexpr char c_NAL_OID_EXTENDED_KEY_USAGE[] = "2.5.29.37";

/// One extension: SEQUENCE { extnID OID, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }. RFC 5280 section 4.1.
class NAL_EXPORT CNALCertExtension {
public:
    CNALCertExtension() = default;
    /// @param value  the DER of the value, that is, the content of extnValue
    CNALCertExtension(const CTOOString& oid, bool critical, IdentObj value);
    explicit CNALCertExtension(const CERT_EXTENSION& extension);

    /// Reads one extension from the start of `data`.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALCertExtension::ReadData")
    unsigned ReadData(const void* data, unsigned size);
    /// The extension's DER; `critical` is left out when false.
    IdentObj WriteData() const;
    void WriteData(asnt::Writer& writer) const;
    /// The length of that DER.
    unsigned GetObjectSize() const;

    friend bool operator==(const CNALCertExtension& a, const CNALCertExtension& b) {
        return a.m_oid == b.m_oid && a.m_critical == b.m_critical && a.m_value == b.m_value;
    }
    friend bool operator!=(const CNALCertExtension& a, const CNALCertExtension& b) { return !(a == b); }
    /// Each field compares less (greater): a conjunction as everywhere in the model, not an order.
    friend bool operator<(const CNALCertExtension& a, const CNALCertExtension& b) {
        return a.m_oid < b.m_oid && a.m_critical < b.m_critical && a.m_value < b.m_value;
    }
    friend bool operator>(const CNALCertExtension& a, const CNALCertExtension& b) { return b < a; }

    CTOOString m_oid;         ///< dotted text
    bool m_critical = false;
    IdentObj m_value;         ///< the content of extnValue
};

/// Extensions in the order in which they stand.
class NAL_EXPORT CNALCertExtensionList {
public:
    using const_iterator = std::vector<CNALCertExtension>::const_iterator;

    /// Finds the first extension with this OID, compared in full.
    /// @param out  receives a copy; untouched when there is none
    bool FindExtension(const CTOOString& oid, CNALCertExtension& out) const;
    /// The same without a copy: null when there is none. Valid until the list changes.
    const CNALCertExtension* FindExtension(const char* oid) const;

    void Add(CNALCertExtension extension) { m_items.push_back(std::move(extension)); }
    /// Puts `extension` in the place of the first one with its OID, or at the end.
    void Replace(CNALCertExtension extension);
    void Clear() { m_items.clear(); }

    std::size_t size() const { return m_items.size(); }
    bool empty() const { return m_items.empty(); }
    const CNALCertExtension& operator[](std::size_t index) const { return m_items[index]; }
    const_iterator begin() const { return m_items.begin(); }
    const_iterator end() const { return m_items.end(); }

    /// Appends the extensions of an Extensions SEQUENCE. Nothing is appended when one of them is damaged.
    /// @return the bytes consumed; 0 for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALCertExtension::ReadData")
    unsigned ReadData(const void* data, unsigned size);
    /// The Extensions SEQUENCE, in order.
    IdentObj WriteData() const;
    void WriteData(asnt::Writer& writer) const;
    unsigned GetObjectSize() const;

    friend bool operator==(const CNALCertExtensionList& a, const CNALCertExtensionList& b) { return a.m_items == b.m_items; }
    friend bool operator!=(const CNALCertExtensionList& a, const CNALCertExtensionList& b) { return !(a == b); }
    /// As many extensions in both, and each pair in order compares less (greater).
    bool operator<(const CNALCertExtensionList& other) const;
    bool operator>(const CNALCertExtensionList& other) const { return other < *this; }

private:
    std::vector<CNALCertExtension> m_items;
};

/// What the classes of extension values have in common.
class NAL_EXPORT CNALExtensionValue {
public:
    virtual ~CNALExtensionValue() = default;

    /// Decodes the value at the start of `data`.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, class name) for a value of another form
    unsigned ReadData(const void* data, unsigned size);
    /// Decodes an extension's value, whatever its OID; it must hold nothing else. @throws as ReadData
    void Read(const CNALCertExtension& extension);
    /// As Read. @return false, with nothing changed, when the value does not decode
    bool TryRead(const CNALCertExtension& extension);
    /// Decodes the first extension with this OID.
    /// @return false, with nothing changed, when the list has none @throws as ReadData
    bool ReadFrom(const CNALCertExtensionList& list, const char* oid);

    /// The value's DER.
    IdentObj WriteData() const;
    /// The value as an extension.
    CNALCertExtension ToExtension(const char* oid, bool critical) const;
    /// The length of the value's DER.
    unsigned GetObjectSize() const;

protected:
    CNALExtensionValue() = default;
    CNALExtensionValue(const CNALExtensionValue&) = default;
    CNALExtensionValue(CNALExtensionValue&&) = default;
    CNALExtensionValue& operator=(const CNALExtensionValue&) = default;
    CNALExtensionValue& operator=(CNALExtensionValue&&) = default;

private:
    virtual const char* Name() const = 0;
    /// Reads one element; throws through `reader`, and changes the object only when all of it was read.
    virtual void Decode(asnt::Reader& reader) = 0;
    virtual void Encode(asnt::Writer& writer) const = 0;
};

/// Subject key identifier "2.5.29.14": an OCTET STRING. RFC 5280 section 4.2.1.2.
class NAL_EXPORT CNALSubjectKeyID final : public CNALExtensionValue {
public:
    CNALSubjectKeyID() = default;
    explicit CNALSubjectKeyID(IdentObj keyId) : m_keyId(std::move(keyId)) {}

    IdentObj m_keyId;

private:
    const char* Name() const override { return "CNALSubjectKeyID"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// A GeneralName. RFC 5280 section 4.2.1.6.
class NAL_EXPORT CNALGeneralName {
public:
    /// The number of the choice's tag.
    enum Kind : unsigned {
        OtherName = 0,
        Rfc822Name = 1,
        DnsName = 2,
        X400Address = 3,
        DirectoryName = 4,
        EdiPartyName = 5,
        Uri = 6,
        IpAddress = 7,
        RegisteredId = 8
    };

    CNALGeneralName() = default;
    CNALGeneralName(Kind kind, IdentObj value) : m_kind(kind), m_value(std::move(value)) {}

    friend bool operator==(const CNALGeneralName& a, const CNALGeneralName& b) {
        return a.m_kind == b.m_kind && a.m_value == b.m_value;
    }
    friend bool operator!=(const CNALGeneralName& a, const CNALGeneralName& b) { return !(a == b); }

    Kind m_kind = DirectoryName;
    /// Kinds 1, 2 and 6: the characters. Kind 4: the Name's DER. Kind 7: the address, with its mask if it has one.
    /// Kind 8: the OID's content octets. Kinds 0, 3 and 5: the content of the tagged SEQUENCE.
    IdentObj m_value;
};

/// GeneralNames, at least one: subject and issuer alternative names "2.5.29.17", "2.5.29.18" and, in the same form, the older
/// "2.5.29.7" and "2.5.29.8". RFC 5280 section 4.2.1.6.
class NAL_EXPORT CNALAlternativeNames final : public CNALExtensionValue {
public:
    /// The first name of this kind, or null.
    const CNALGeneralName* Find(CNALGeneralName::Kind kind) const;

    std::vector<CNALGeneralName> m_names;

private:
    const char* Name() const override { return "CNALAlternativeNames"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Authority key identifier: "2.5.29.35" (RFC 5280 section 4.2.1.1) and the older "2.5.29.1", in which the issuer is one Name
/// instead of GeneralNames. Both are read whatever the OID.
class NAL_EXPORT CNALIssuerPublicKeyID final : public CNALExtensionValue {
public:
    CNALIssuerPublicKeyID() = default;
    explicit CNALIssuerPublicKeyID(IdentObj keyId) : m_keyId(std::move(keyId)) {}

    /// Decodes "2.5.29.1" when present, else "2.5.29.35".
    /// @return false, with nothing changed, when the list has neither @throws as ReadData
    bool ReadFrom(const CNALCertExtensionList& list);
    using CNALExtensionValue::ReadFrom;

    /// The issuer's key identifier; empty when absent.
    const IdentObj& GetKeyID() const { return m_keyId; }
    /// The serial number of the issuer's own certificate, least significant byte first; empty when absent.
    const IdentObj& GetIssuerSerial() const { return m_issuerSerial; }
    /// The DER of the first directory name in the issuer field; empty when there is none.
    IdentObj GetIssuerName() const;

    IdentObj m_keyId;
    std::vector<CNALGeneralName> m_issuer;
    IdentObj m_issuerSerial;
    bool m_oldForm = false;  ///< write the issuer as "2.5.29.1" has it: its first directory name alone

private:
    const char* Name() const override { return "CNALIssuerPublicKeyID"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Basic constraints "2.5.29.19". RFC 5280 section 4.2.1.9.
class NAL_EXPORT CNALBasicConstraints final : public CNALExtensionValue {
public:
    bool m_isCA = false;
    bool m_hasPathLength = false;
    DWORD m_pathLength = 0;  ///< how many CA certificates may follow; larger values than fit are read as 0xFFFFFFFF

private:
    const char* Name() const override { return "CNALBasicConstraints"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// The older basic constraints "2.5.29.10":
/// SEQUENCE { subjectType BIT STRING { cA(0), endEntity(1) }, pathLenConstraint INTEGER OPTIONAL,
/// subtreesConstraint [0] SEQUENCE OF Name OPTIONAL }.
class NAL_EXPORT CNALOldBasicConstraints final : public CNALExtensionValue {
public:
    /// The first bit of the subject type.
    bool IsCA() const { return m_subjectType.m_data.GetSize() != 0 && (m_subjectType.m_data.GetData()[0] & 0x80) != 0; }

    CTOOCryptBitBlob m_subjectType;
    bool m_hasPathLength = false;
    DWORD m_pathLength = 0;            ///< as in CNALBasicConstraints
    std::vector<IdentObj> m_subtrees;  ///< the DER of each Name

private:
    const char* Name() const override { return "CNALOldBasicConstraints"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Key usage "2.5.29.15". RFC 5280 section 4.2.1.3.
class NAL_EXPORT CNALKeyUsage final : public CNALExtensionValue {
public:
    /// Bits of GetFlags: the first octet of the bit string in the low byte, the second one above it, as CryptoAPI counts them.
    enum Flag : unsigned {
        EncipherOnly = 0x01,
        CrlSign = 0x02,
        KeyCertSign = 0x04,
        KeyAgreement = 0x08,
        DataEncipherment = 0x10,
        KeyEncipherment = 0x20,
        NonRepudiation = 0x40,
        DigitalSignature = 0x80,
        DecipherOnly = 0x8000
    };

    CNALKeyUsage() = default;
    /// @param flags  bits of Flag; trailing zero bits are left out as DER asks of named bit lists (X.690 section 11.2.2)
    explicit CNALKeyUsage(unsigned flags);

    unsigned GetFlags() const;
    /// Whether any of these bits is set.
    bool HasAny(unsigned flags) const { return (GetFlags() & flags) != 0; }

    CTOOCryptBitBlob m_bits;

private:
    const char* Name() const override { return "CNALKeyUsage"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Extended key usage "2.5.29.37": OIDs, at least one. RFC 5280 section 4.2.1.12.
class NAL_EXPORT CNALExtendedKeyUsage final : public CNALExtensionValue {
public:
    bool Contains(const CTOOString& oid) const;

    std::list<CTOOString> m_usages;

private:
    const char* Name() const override { return "CNALExtendedKeyUsage"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Private-key usage period "2.5.29.16": SEQUENCE { notBefore [0], notAfter [1] GeneralizedTime, both OPTIONAL }.
/// RFC 3280 section 4.2.1.4.
class NAL_EXPORT CKeyUsagePeriod final : public CNALExtensionValue {
public:
    bool m_hasNotBefore = false;
    bool m_hasNotAfter = false;
    FILETIME m_notBefore{0, 0};  ///< 0 when absent
    FILETIME m_notAfter{0, 0};   ///< 0 when absent

private:
    const char* Name() const override { return "CKeyUsagePeriod"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// CRL number "2.5.29.20". RFC 5280 section 5.2.3.
class NAL_EXPORT CNALCRLNumber final : public CNALExtensionValue {
public:
    CNALCRLNumber() = default;
    explicit CNALCRLNumber(IdentObj number) : m_number(std::move(number)) {}

    /// The INTEGER's content octets, least significant first, every octet kept. Written as it stands: a caller that sets it
    /// keeps the top bit of the last byte clear. A negative number is read like any other.
    IdentObj m_number;

private:
    const char* Name() const override { return "CNALCRLNumber"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Reason code "2.5.29.21" of a CRL entry: 0 to 10 without 7. RFC 5280 section 5.3.1.
class NAL_EXPORT CNALReasonCode final : public CNALExtensionValue {
public:
    CNALReasonCode() = default;
    explicit CNALReasonCode(unsigned reason) : m_reason(reason) {}

    unsigned m_reason = 0;

private:
    const char* Name() const override { return "CNALReasonCode"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// Where a CRL is found. RFC 5280 section 4.2.1.13.
struct NAL_EXPORT CNALCRLDistributionPoint {
    std::vector<CNALGeneralName> m_fullName;   ///< empty when absent
    IdentObj m_nameRelativeToIssuer;           ///< the content of the RelativeDistinguishedName SET; empty when absent
    bool m_hasReasons = false;
    CTOOCryptBitBlob m_reasons;                ///< ReasonFlags, when present
    std::vector<CNALGeneralName> m_crlIssuer;  ///< empty when absent
};

/// CRL distribution points "2.5.29.31", at least one. RFC 5280 section 4.2.1.13.
class NAL_EXPORT CNALCRLDistributionPoints final : public CNALExtensionValue {
public:
    std::vector<CNALCRLDistributionPoint> m_points;

private:
    const char* Name() const override { return "CNALCRLDistributionPoints"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};

/// A qualifier of a policy: its OID, and the DER of its value (empty when absent).
struct NAL_EXPORT CNALPolicyQualifier {
    CTOOString m_oid;
    IdentObj m_value;
};

/// One policy. RFC 5280 section 4.2.1.4.
struct NAL_EXPORT CNALPolicyInformation {
    CTOOString m_oid;
    std::vector<CNALPolicyQualifier> m_qualifiers;
};

/// Certificate policies "2.5.29.32", at least one. RFC 5280 section 4.2.1.4.
class NAL_EXPORT CNALCertificatePolicies final : public CNALExtensionValue {
public:
    std::vector<CNALPolicyInformation> m_policies;

private:
    const char* Name() const override { return "CNALCertificatePolicies"; }
    void Decode(asnt::Reader& reader) override;
    void Encode(asnt::Writer& writer) const override;
};
