/// Certificates, read from their DER. RFC 5280 section 4.1.
///
/// The model reads and converts certificates; it makes no DER for them: a certificate is written as the bytes it was read from.
///
/// Bytes that are no certificate are refused with XTOOStatus(TOO_E_BAD_STRUCTURE), and the object stays as it was: the text is
/// empty, or names the class whose part is damaged (CNALCertPublicKeyInfo, CNALCertExtension). All classes are values; distinct
/// objects may be used by several threads at once.
#pragma once

#include "nal/algorithm.h"
#include "nal/export.h"
#include "nal/extensions.h"
#include "nal/name.h"
#include "nal/wide_string.h"
#include "nal/wincrypt.h"
#include "too/bit_blob.h"
#include "too/file.h"
#include "too/ident_obj.h"
#include "too/status.h"
#include "too/string.h"
#include "too/types.h"

class CNALPKCS10Data;

/// The signed fields of a certificate (TBSCertificate), also by themselves: as a template, or taken from CryptoAPI records.
class NAL_EXPORT CNALCertInfo {
public:
    CNALCertInfo() = default;
    explicit CNALCertInfo(const CERT_INFO& info);
    /// From the context's decoded fields; from its encoding when it has none (a context without a key identifier of 20 bytes).
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when that encoding is damaged or missing too
    explicit CNALCertInfo(const CERT_CONTEXT& context);
    CNALCertInfo(const CNALCertInfo&) = default;
    CNALCertInfo(CNALCertInfo&&) = default;
    CNALCertInfo& operator=(const CNALCertInfo&) = default;
    CNALCertInfo& operator=(CNALCertInfo&&) = default;
    virtual ~CNALCertInfo();

    /// Replaces what the record describes: all fields but m_friendlyName and m_privateKeyType; m_encodedCertificate becomes empty.
    CNALCertInfo& operator=(const CERT_INFO& info);
    CNALCertInfo& operator=(const CERT_CONTEXT& context);
    /// Takes subject, public key and requested extensions from a certification request; the other fields become empty.
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when the requested extensions are damaged, with nothing changed
    CNALCertInfo& operator=(const CNALPKCS10Data& request);

    /// Fills the record from a TBSCertificate, as operator= does, but leaves the state words.
    ///
    /// A TBSCertificate of six elements, that is a version 1 certificate without a version field, is refused deliberately.
    /// @return true @throws XTOOStatus(TOO_E_BAD_STRUCTURE), with nothing changed
    bool DecodeInfo(const IdentObj& der);

    /// The length of m_encodedCertificate, the only encoding that there is.
    unsigned GetObjectSize() const { return m_encodedCertificate.GetSize(); }

    /// What kind of key the certificate has.
    /// @param keySpec       receives 1 (exchange) when the key usage has key or data encipherment, else 2 (signature)
    /// @param keyParamOID   receives the public key's parameter set; empty when the key has no parameters, as the next two
    /// @param hashParamOID  receives the hash's parameter set
    /// @param encParamOID   receives the cipher's parameter set
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when the parameters are not those of a GOST key
    void GetKeyParam(unsigned& keySpec, CTOOString& keyParamOID, CTOOString& hashParamOID, CTOOString& encParamOID) const;

    unsigned GetPrivateKeyType() const { return m_privateKeyType; }
    void SetPrivateKeyType(unsigned type) { m_privateKeyType = type; }

    /// Not available on this platform. @throws XTOOStatus(TOO_E_UNSUPPORTED) always, both
    IdentObj GetEncodetInfo() const;
    void CreateCertReq(CNALX509Name& subject, CNALAlgorithmIdentifier& algorithm, unsigned keyType, unsigned short months,
                       unsigned flags, CNALCertPublicKeyInfo& key, const char* container, IdentObj& request,
                       CNALX509Name& issuer, unsigned char usage, XTOOStatus* status);

    /// Not available on this platform. @return false always, and nothing is done
    static bool AddCRLPoint(CNALCertInfo& info, const CTOOString& point);
    static bool AddCRLPoints(CNALCertInfo& info, int count, const CNALString** points);
    static bool AddAiaPoints(CNALCertInfo& info, int ocspCount, const CNALString** ocsp, int issuerCount,
                             const CNALString** issuers);
    static bool AddUsageToReq(CNALCertInfo& info, unsigned usage, unsigned extendedUsage, bool critical);

    /// All fields but the state words, m_encodedCertificate and m_friendlyName; names as CNALX509Name compares them.
    bool operator==(const CNALCertInfo& other) const;
    bool operator!=(const CNALCertInfo& other) const { return !(*this == other); }
    /// The same fields, names by their DER: each compares less (greater). A conjunction on purpose, not an order.
    bool operator<(const CNALCertInfo& other) const;
    bool operator>(const CNALCertInfo& other) const { return other < *this; }

    DWORD m_state = 3;                       ///< 3, or 1 when filled from a CryptoAPI record
    DWORD m_stateDetail = 0;                 ///< 0, or 1 likewise
    IdentObj m_encodedCertificate;           ///< the whole certificate that this came from; empty when from a record
    DWORD m_version = 0;                     ///< CERT_V1, CERT_V2, CERT_V3
    IdentObj m_serialNumber;                 ///< the INTEGER's content octets, least significant first, all of them
    CNALAlgorithmIdentifier m_signatureAlgorithm;
    CNALX509Name m_issuer;
    FILETIME m_notBefore{0, 0};              ///< 0 when unset
    FILETIME m_notAfter{0, 0};               ///< 0 when unset
    CNALX509Name m_subject;
    CNALCertPublicKeyInfo m_publicKeyInfo;
    CTOOCryptBitBlob m_issuerUniqueId;
    CTOOCryptBitBlob m_subjectUniqueId;
    CNALCertExtensionList m_extensions;
    CNALString m_friendlyName;
    DWORD m_privateKeyType = 0xFFFFFFFF;     ///< AT_SIGNATURE, AT_KEYEXCHANGE, or 0xFFFFFFFF for not known
};

/// A certificate.
class NAL_EXPORT CNALX509Certificate {
public:
    CNALX509Certificate() = default;
    CNALX509Certificate(const CNALX509Certificate&) = default;
    CNALX509Certificate(CNALX509Certificate&&) = default;
    CNALX509Certificate& operator=(const CNALX509Certificate&) = default;
    CNALX509Certificate& operator=(CNALX509Certificate&&) = default;
    virtual ~CNALX509Certificate();

    /// Decodes a certificate, with nothing behind it.
    /// @return true @throws XTOOStatus(TOO_E_BAD_STRUCTURE), with nothing changed
    bool DecodeCert(const IdentObj& der);

    /// Reads a certificate from the start of `data`: its DER, or that in the serialized form of IdentObj. WriteEncodetData writes
    /// the same form.
    /// @return the bytes consumed; 0, with nothing changed, when there is neither form
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE), with nothing changed
    unsigned ReadEncodetData(const void* data, unsigned size);
    /// The same from a file's position, at most `size` bytes; the position moves by what was consumed. @throws XTOOFile too
    unsigned ReadEncodetData(const CTOOFile& file, unsigned size);
    /// Writes the bytes as they were read.
    /// @param size  the room at `out`
    /// @return the bytes written; 0, with nothing written, when there are none or `size` does not hold them
    unsigned WriteEncodetData(void* out, unsigned size) const;
    /// The same at a file's position. @throws XTOOFile too
    unsigned WriteEncodetData(CTOOFile& file, unsigned size) const;
    /// Makes no DER on this platform. @return an empty buffer
    IdentObj GetEncodetCert() const;

    // Each operator holds when it holds for all three parts, the negation too: kept so, though none is the opposite of another.
    friend bool operator==(const CNALX509Certificate& a, const CNALX509Certificate& b) {
        return a.m_info == b.m_info && a.m_signatureAlgorithm == b.m_signatureAlgorithm && a.m_signature == b.m_signature;
    }
    friend bool operator!=(const CNALX509Certificate& a, const CNALX509Certificate& b) {
        return a.m_info != b.m_info && a.m_signatureAlgorithm != b.m_signatureAlgorithm && a.m_signature != b.m_signature;
    }
    friend bool operator<(const CNALX509Certificate& a, const CNALX509Certificate& b) {
        return a.m_info < b.m_info && a.m_signatureAlgorithm < b.m_signatureAlgorithm && a.m_signature < b.m_signature;
    }
    friend bool operator>(const CNALX509Certificate& a, const CNALX509Certificate& b) { return b < a; }

    CNALCertInfo m_info;
    CNALAlgorithmIdentifier m_signatureAlgorithm;
    CTOOCryptBitBlob m_signature;   ///< as encoded; the provider takes it in another order
    IdentObj m_encodedCertificate;  ///< the DER as read
    IdentObj m_signedPart;          ///< the DER of the TBSCertificate: the bytes that the signature covers

private:
    void Decode(IdentObj der);
    unsigned SizeToWrite(unsigned room) const;

    bool m_isSerialized = false;  // read in the serialized form of IdentObj
};

/// What the check of one certificate in a chain gave.
class NAL_EXPORT CNALX509CheckSignResult {
public:
    CNALX509CheckSignResult() = default;
    explicit CNALX509CheckSignResult(const CNALCertInfo& info, DWORD result = 0) : m_info(info), m_result(result) {}
    CNALX509CheckSignResult(const CNALX509CheckSignResult&) = default;
    CNALX509CheckSignResult(CNALX509CheckSignResult&&) = default;
    CNALX509CheckSignResult& operator=(const CNALX509CheckSignResult&) = default;
    CNALX509CheckSignResult& operator=(CNALX509CheckSignResult&&) = default;
    virtual ~CNALX509CheckSignResult();

    CNALCertInfo m_info;
    DWORD m_result = 0;  ///< 0, or a Windows-style error code
};

/// A serial number as upper-case hexadecimal, most significant byte first.
/// @param serial  least significant byte first, as the model holds it
/// @param spaced  whether a blank stands between two bytes
NAL_EXPORT CTOOString Serial2TOOStr(const IdentObj& serial, bool spaced);

/// The reverse: reads pairs of hexadecimal digits up to the first character that is none, blanks between them allowed.
/// @param serial  receives the bytes, least significant first; untouched when there are none
/// @return whether at least one byte was read
NAL_EXPORT bool TOOStr2Serial(const CTOOString& hex, IdentObj& serial);

/// Adds months to a date. A day beyond the new month's end becomes its last one, and February has 28 days in every year:
/// deliberately, 31 January and one month is 28 February in leap years too.
/// @param time  must not be null; its month is 1 to 12
NAL_EXPORT void AddMonthToTime(SYSTEMTIME* time, unsigned short months);
