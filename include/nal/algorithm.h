/// Algorithm identifiers, public keys, and which algorithms the library knows.
///
/// OIDs travel as dotted text. What an OID means to the provider, its algorithm number (ALG_ID) and its display name, comes from
/// the provider's registry (`orkcspex::FindOIDInfo`). All classes are values; distinct objects may be used by several threads at
/// once, and every function here may be called from any thread. Sources: RFC 5280 sections 4.1.1.2 and 4.1.2.7, RFC 4491, RFC 4357.
#pragma once

#include <list>

#include "asnt/records.h"
#include "nal/export.h"
#include "nal/wincrypt.h"
#include "too/bit_blob.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

class CNALCertContext;
class CTOOFile;

inline constexpr char c_NAL_OID_SIGN_GOST2001[] = "1.2.643.2.2.3";    ///< GOST R 34.11-94 with GOST R 34.10-2001
inline constexpr char c_NAL_OID_SIGN_GOST94[] = "1.2.643.2.2.4";      ///< GOST R 34.11-94 with GOST R 34.10-94
inline constexpr char c_NAL_OID_HASH_GOST94[] = "1.2.643.2.2.9";      ///< GOST R 34.11-94
inline constexpr char c_NAL_OID_KEY_GOST2001[] = "1.2.643.2.2.19";    ///< GOST R 34.10-2001 public key
inline constexpr char c_NAL_OID_KEY_GOST94[] = "1.2.643.2.2.20";      ///< GOST R 34.10-94 public key
inline constexpr char c_NAL_OID_DH_GOST2001[] = "1.2.643.2.2.98";     ///< GOST R 34.10-2001 Diffie-Hellman key
inline constexpr char c_NAL_OID_DH_GOST94[] = "1.2.643.2.2.99";       ///< GOST R 34.10-94 Diffie-Hellman key
inline constexpr char c_NAL_OID_HASH_PARAMS[] = "1.2.643.2.2.30.1";   ///< parameter set of the hash
/// A GOST R 34.10-94 key of parameter set A, implied by the OID: it never has parameters.
inline constexpr char c_NAL_OID_KEY_PRIVATE[] = "1.3.6.1.4.1.47474.2.1.2.2";
/// The hash that goes with that key.
inline constexpr char c_NAL_OID_HASH_PRIVATE[] = "1.3.6.1.4.1.47474.2.1.1.2";

/// An algorithm and its parameters: the toolkit's identifier record, which reads, writes, sizes and compares it, with what the
/// library asks of GOST keys.
class NAL_EXPORT CNALAlgorithmIdentifier : public CASNTIdData {
public:
    /// No OID, no parameters.
    CNALAlgorithmIdentifier() = default;
    /// Copies the OID's text and the parameters, byte for byte.
    explicit CNALAlgorithmIdentifier(const CRYPT_ALGORITHM_IDENTIFIER& algorithm);
    CNALAlgorithmIdentifier& operator=(const CRYPT_ALGORITHM_IDENTIFIER& algorithm);

    /// Whether the OID is this one.
    bool Is(const char* oid) const { return GetID() == oid; }

    /// Reads the OIDs that describe a GOST key. Null outputs are skipped; an OID that is not there leaves its output empty.
    /// The private key algorithm is given as "1.2.643.2.2.20" with itself as the parameter set.
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALAlgorithmIdentifier::GetParams") for parameters of another form; NULL is none
    void GetParams(CTOOString* algOID, CTOOString* keyParamOID, CTOOString* hashParamOID, CTOOString* encParamOID) const;

    /// Sets the OID and the parameters { keyParamOID, "1.2.643.2.2.30.1" } of a GOST key. When either argument is the private key
    /// algorithm, that becomes the OID and there are no parameters.
    /// @throws XTOOStatus(TOO_E_ENCODE) when `keyParamOID` is no OID; nothing is changed then
    void SetParams(const char* algOID, const char* keyParamOID);
};

/// SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier, subjectPublicKey BIT STRING }.
class NAL_EXPORT CNALCertPublicKeyInfo {
public:
    CNALCertPublicKeyInfo() = default;
    explicit CNALCertPublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info);
    CNALCertPublicKeyInfo& operator=(const CERT_PUBLIC_KEY_INFO& info);
    CNALCertPublicKeyInfo(const CNALCertPublicKeyInfo&) = default;
    CNALCertPublicKeyInfo& operator=(const CNALCertPublicKeyInfo&) = default;
    CNALCertPublicKeyInfo(CNALCertPublicKeyInfo&&) = default;
    CNALCertPublicKeyInfo& operator=(CNALCertPublicKeyInfo&&) = default;
    virtual ~CNALCertPublicKeyInfo();

    /// The first 20 bytes of the BIT STRING's content as they stand; no hash is made. A shorter key is filled with zeros to 20.
    IdentObj GetKeyID() const;
    /// The same as GetKeyID.
    IdentObj GetKeyInfoID() const { return GetKeyID(); }

    /// The key's size in bits: of the first INTEGER of an RSA-style key, else of the content of the one element that the BIT
    /// STRING holds (512 or 1024 for GOST keys), else of the BIT STRING itself.
    unsigned GetKeyLength() const;

    /// Reads the SEQUENCE at the start of `data`.
    /// @return the bytes consumed; 0, with nothing changed, for a null pointer or a size of 0
    /// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, "CNALCertPublicKeyInfo::ReadData"), with nothing changed
    unsigned ReadData(const void* data, unsigned size);
    /// Reads the SEQUENCE at the file's position. @throws XTOOFile too
    unsigned ReadData(const CTOOFile& file);
    /// Reads the next element of `reader`, which throws with its own context. Nothing is changed then.
    void ReadData(asnt::Reader& reader);
    /// The DER. @throws XTOOStatus(TOO_E_NOT_INITIALIZED, "CNALCertPublicKeyInfo") when the key has no bytes
    IdentObj WriteData() const;
    /// Writes that DER to a file. @return the bytes written @throws XTOOFile too
    unsigned WriteData(CTOOFile& file) const;
    void WriteData(asnt::Writer& writer) const;
    /// The length of that DER. @throws as WriteData
    unsigned GetObjectSize() const;

    friend bool operator==(const CNALCertPublicKeyInfo& a, const CNALCertPublicKeyInfo& b) {
        return a.m_algorithm == b.m_algorithm && a.m_publicKey == b.m_publicKey;
    }
    // The negation, < and > hold when they hold for both parts: kept so, though none of them is the opposite of another.
    friend bool operator!=(const CNALCertPublicKeyInfo& a, const CNALCertPublicKeyInfo& b) {
        return a.m_algorithm != b.m_algorithm && a.m_publicKey != b.m_publicKey;
    }
    friend bool operator<(const CNALCertPublicKeyInfo& a, const CNALCertPublicKeyInfo& b) {
        return a.m_algorithm < b.m_algorithm && a.m_publicKey < b.m_publicKey;
    }
    friend bool operator>(const CNALCertPublicKeyInfo& a, const CNALCertPublicKeyInfo& b) {
        return a.m_algorithm > b.m_algorithm && a.m_publicKey > b.m_publicKey;
    }

    CNALAlgorithmIdentifier m_algorithm;
    CTOOCryptBitBlob m_publicKey;
};

/// The algorithm number of an OID.
///
/// @param oid        the dotted text; no terminator is needed
/// @param oidLength  its length in bytes; a text of 4096 bytes or more is not known
/// @param algId      receives the number, of a signature OID the hash's; 0 when the OID is not known
/// @param extra      receives the public key's number for a signature OID; else 0
/// @return whether the OID is known
NAL_EXPORT bool GetAlgIDFromOID(const void* oid, unsigned oidLength, unsigned& algId, unsigned& extra);

/// The OID of an algorithm number, or the signature OID of a pair.
///
/// @param oid          receives the dotted text without terminator; emptied when there is none
/// @param algId        the number; with a `pubKeyAlgId` other than 0xFFFF the hash of the pair
/// @param pubKeyAlgId  0xFFFF, or the public key of the pair
NAL_EXPORT bool GetOIDFromAlgID(IdentObj& oid, unsigned algId, unsigned pubKeyAlgId);

/// The display name of an OID; the OID itself when it has none.
NAL_EXPORT CTOOString NALGetNameForOID(const CTOOString& oid);

/// The key length in bits for the OID of a key algorithm, signature algorithm or parameter set: 512 for those of
/// GOST R 34.10-2001, 1024 for every other text.
NAL_EXPORT unsigned NALGetPKLenghOID(const CTOOString& keyOID);

/// The kinds of keys: signature (2), exchange (1).
NAL_EXPORT std::list<DWORD> NALGetSupportedKeyTypes();

/// Algorithms for new signature keys. The flag is ignored.
NAL_EXPORT std::list<CTOOString> NALGetSupportedSignOIDS(bool flag);

/// Algorithms of Diffie-Hellman keys.
NAL_EXPORT std::list<CTOOString> NALGetSupportedDHOIDS();

/// Parameter sets for new keys of an algorithm. @throws XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, "NALGetSupportedParams")
NAL_EXPORT std::list<CTOOString> NALGetSupportedParams(const CTOOString& keyOID);

/// Hashes usable with a certificate's key; without a certificate, the usual one. Asks the provider about keys that the library
/// does not know; the list is empty when that fails.
NAL_EXPORT std::list<CTOOString> NALGetSupportedHashOIDS(const CNALCertContext* cert);

/// Turns a public key into the blob that the provider's ORKImportKey takes:
///
///   offset  size  field (integers least significant byte first)
///        0     1  0x06, public-key blob
///        1     1  0x10, version
///        2     2  0
///        4     4  algorithm number
///        8     4  "MAG1"
///       12     4  length of the key in bits
///       16     p  the algorithm's parameters, DER as in the certificate (may be none)
///     16+p     n  the key: the content of the OCTET STRING in the BIT STRING, or the BIT STRING's own when there is none
///
/// @throws XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, "NALConvertPublicKeyInfo")
NAL_EXPORT IdentObj NALConvertPublicKeyInfo(const CNALCertPublicKeyInfo& info);

/// Imports a public key into the provider.
///
/// @param hProv  a context of the provider; a verify-only one will do
/// @param info   the key as certificates hold it
/// @param hKey   receives the key's handle, which the caller destroys; untouched on failure
/// @return TRUE; or FALSE with the last error: 87 for a null pointer, 0x80090003 for a key without bytes, else the provider's
NAL_EXPORT int NALIportPKInfo(unsigned long hProv, const CNALCertPublicKeyInfo& info, unsigned long* hKey);

/// Exports the public part of a key, private ones included.
///
/// @param hProv  the context of the key; it must be of "Ormatek Cryptographic Service Provider"
/// @param info   receives the key as certificates hold it; untouched on failure
/// @return TRUE; or FALSE with the last error: 230 for another provider, else the provider's
NAL_EXPORT int NALExportPKInfo(unsigned long hProv, unsigned long hKey, CNALCertPublicKeyInfo& info);
