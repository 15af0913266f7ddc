/// The CryptoAPI-compatible interface to certificates, CRLs and the stores that keep them: records, constants, functions.
///
/// The records have the CryptoAPI's layouts for a 64-bit machine, with two things to know: wide text is the platform's
/// 32-bit `wchar_t`, also inside name values of types 12 and 13, and every integer is held least significant byte first.
/// A record never owns what its pointers name; the context that a record came from does.
///
/// Stores and contexts are reference counted. A context that enumeration, find or add returned belongs to the store it
/// came from and is used while that store is open; freed after the store it does no harm, but operations on it fail.
///
/// Threads: reference counts may change from any thread, and each single step on a store's tree is guarded, but a
/// store's position (see CertEnumCertificatesInStore) is shared by all who use that handle, so walks of one handle are
/// serialised by the caller. Each handle, even of the same file, has a position of its own.
///
/// Last-error codes: 0x80070057 bad argument, 0x80092004 not found, 0x80092005 already present, 230 not supported,
/// an `errno` for the store's file.
#pragma once

#include "nal/export.h"
#include "too/last_error.h"
#include "too/types.h"

// ---------------------------------------------------------------------------------------------------------------------
// Handles and counted bytes

/// An open store; null is no store. Made by CertOpenStore, released by CertCloseStore.
using HCERTSTORE = void*;

/// A context of the cryptographic service provider; 0 is none.
using HCRYPTPROV = unsigned long;

using CRYPT_INTEGER_BLOB = CRYPTOAPI_BLOB;  ///< an integer, least significant byte first, sign octets kept
using CRYPT_UINT_BLOB = CRYPTOAPI_BLOB;
using CRYPT_OBJID_BLOB = CRYPTOAPI_BLOB;     ///< an algorithm's parameters, DER
using CERT_NAME_BLOB = CRYPTOAPI_BLOB;       ///< a distinguished name, DER
using CERT_RDN_VALUE_BLOB = CRYPTOAPI_BLOB;  ///< an attribute's value, by its value type
using CERT_BLOB = CRYPTOAPI_BLOB;
using CRL_BLOB = CRYPTOAPI_BLOB;
using DATA_BLOB = CRYPTOAPI_BLOB;
using CRYPT_DATA_BLOB = CRYPTOAPI_BLOB;  ///< a property's value
using CRYPT_HASH_BLOB = CRYPTOAPI_BLOB;
using CRYPT_DIGEST_BLOB = CRYPTOAPI_BLOB;
using CRYPT_DER_BLOB = CRYPTOAPI_BLOB;
using CRYPT_ATTR_BLOB = CRYPTOAPI_BLOB;

using PCRYPTOAPI_BLOB = CRYPTOAPI_BLOB*;
using PCRYPT_INTEGER_BLOB = CRYPTOAPI_BLOB*;
using PCRYPT_OBJID_BLOB = CRYPTOAPI_BLOB*;
using PCERT_NAME_BLOB = CRYPTOAPI_BLOB*;
using PCERT_RDN_VALUE_BLOB = CRYPTOAPI_BLOB*;
using PCRYPT_DATA_BLOB = CRYPTOAPI_BLOB*;
using PCRYPT_HASH_BLOB = CRYPTOAPI_BLOB*;
using PCRYPT_ATTR_BLOB = CRYPTOAPI_BLOB*;

/// Bits and their count: `cbData` bytes, of whose last one the low `cUnusedBits` bits do not count.
struct CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
};
using PCRYPT_BIT_BLOB = CRYPT_BIT_BLOB*;

// ---------------------------------------------------------------------------------------------------------------------
// Certificates

/// An algorithm (RFC 5280 section 4.1.1.2): a dotted OID and its DER parameters.
struct CRYPT_ALGORITHM_IDENTIFIER {
    LPSTR pszObjId;
    CRYPT_OBJID_BLOB Parameters;
};
using PCRYPT_ALGORITHM_IDENTIFIER = CRYPT_ALGORITHM_IDENTIFIER*;

/// A public key with its algorithm (RFC 5280 section 4.1.2.7).
struct CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
};
using PCERT_PUBLIC_KEY_INFO = CERT_PUBLIC_KEY_INFO*;

/// An extension (RFC 5280 section 4.2): dotted OID, critical flag, the content of its OCTET STRING.
struct CERT_EXTENSION {
    LPSTR pszObjId;
    BOOL fCritical;
    CRYPT_OBJID_BLOB Value;
};
using PCERT_EXTENSION = CERT_EXTENSION*;

/// The signed fields of a certificate (RFC 5280 section 4.1.2).
struct CERT_INFO {
    DWORD dwVersion;                  ///< CERT_V1, CERT_V2 or CERT_V3
    CRYPT_INTEGER_BLOB SerialNumber;  ///< least significant byte first, all content octets
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    CRYPT_BIT_BLOB IssuerUniqueId;
    CRYPT_BIT_BLOB SubjectUniqueId;
    DWORD cExtension;
    PCERT_EXTENSION rgExtension;
};
using PCERT_INFO = CERT_INFO*;

/// A certificate: its encoding and, when it has a key identifier of 20 bytes, its decoded fields (else all zero).
struct CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    PCERT_INFO pCertInfo;
    HCERTSTORE hCertStore;
};
using PCERT_CONTEXT = CERT_CONTEXT*;
using PCCERT_CONTEXT = const CERT_CONTEXT*;

// ---------------------------------------------------------------------------------------------------------------------
// Certificate revocation lists

/// One revoked certificate (RFC 5280 section 5.1.2.6).
struct CRL_ENTRY {
    CRYPT_INTEGER_BLOB SerialNumber;  ///< least significant byte first
    FILETIME RevocationDate;
    DWORD cExtension;
    PCERT_EXTENSION rgExtension;
};
using PCRL_ENTRY = CRL_ENTRY*;

/// The signed fields of a CRL (RFC 5280 section 5.1.2).
struct CRL_INFO {
    DWORD dwVersion;  ///< CRL_V1 or CRL_V2
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME ThisUpdate;
    FILETIME NextUpdate;  ///< zero when the CRL names none
    DWORD cCRLEntry;
    PCRL_ENTRY rgCRLEntry;
    DWORD cExtension;
    PCERT_EXTENSION rgExtension;
};
using PCRL_INFO = CRL_INFO*;

/// A CRL: its encoding, its decoded fields, and the store it came from (null for a free-standing one).
struct CRL_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCrlEncoded;
    DWORD cbCrlEncoded;
    PCRL_INFO pCrlInfo;
    HCERTSTORE hCertStore;
};
using PCRL_CONTEXT = CRL_CONTEXT*;
using PCCRL_CONTEXT = const CRL_CONTEXT*;

// ---------------------------------------------------------------------------------------------------------------------
// Names

/// One attribute of a name: dotted OID, value type (CERT_RDN_*), value.
struct CERT_RDN_ATTR {
    LPSTR pszObjId;
    DWORD dwValueType;
    CERT_RDN_VALUE_BLOB Value;
};
using PCERT_RDN_ATTR = CERT_RDN_ATTR*;

/// A relative distinguished name: its attributes, usually one.
struct CERT_RDN {
    DWORD cRDNAttr;
    PCERT_RDN_ATTR rgRDNAttr;
};
using PCERT_RDN = CERT_RDN*;

/// A distinguished name, in the order of its encoding.
struct CERT_NAME_INFO {
    DWORD cRDN;
    PCERT_RDN rgRDN;
};
using PCERT_NAME_INFO = CERT_NAME_INFO*;

/// A directory string outside a name: value type (CERT_RDN_*) and value.
struct CERT_NAME_VALUE {
    DWORD dwValueType;
    CERT_RDN_VALUE_BLOB Value;
};
using PCERT_NAME_VALUE = CERT_NAME_VALUE*;

// ---------------------------------------------------------------------------------------------------------------------
// Attributes, keys, trust

/// An attribute of a message or a request: dotted OID and its values, DER each.
struct CRYPT_ATTRIBUTE {
    LPSTR pszObjId;
    DWORD cValue;
    PCRYPT_ATTR_BLOB rgValue;
};
using PCRYPT_ATTRIBUTE = CRYPT_ATTRIBUTE*;

struct CRYPT_ATTRIBUTES {
    DWORD cAttr;
    PCRYPT_ATTRIBUTE rgAttr;
};
using PCRYPT_ATTRIBUTES = CRYPT_ATTRIBUTES*;

/// A parameter to set when the container is opened, such as its PIN.
struct CRYPT_KEY_PROV_PARAM {
    DWORD dwParam;
    BYTE* pbData;
    DWORD cbData;
    DWORD dwFlags;
};
using PCRYPT_KEY_PROV_PARAM = CRYPT_KEY_PROV_PARAM*;

/// Where the private key of a certificate lives (property 2): container, provider, and which of its keys.
struct CRYPT_KEY_PROV_INFO {
    LPWSTR pwszContainerName;
    LPWSTR pwszProvName;
    DWORD dwProvType;
    DWORD dwFlags;
    DWORD cProvParam;
    PCRYPT_KEY_PROV_PARAM rgProvParam;
    DWORD dwKeySpec;
};
using PCRYPT_KEY_PROV_INFO = CRYPT_KEY_PROV_INFO*;

// Both lie in store files in these layouts.
static_assert(sizeof(CRYPT_KEY_PROV_INFO) == 48 && sizeof(CRYPT_KEY_PROV_PARAM) == 24, "a 64-bit machine is needed");

/// What a chain or one of its certificates lacks (CERT_TRUST_IS_*, CERT_TRUST_*), and how it was built.
struct CERT_TRUST_STATUS {
    DWORD dwErrorStatus;
    DWORD dwInfoStatus;
};
using PCERT_TRUST_STATUS = CERT_TRUST_STATUS*;

// ---------------------------------------------------------------------------------------------------------------------
// Constants

#define X509_ASN_ENCODING 0x00000001
#define PKCS_7_ASN_ENCODING 0x00010000

// Versions of certificates and CRLs.
#define CERT_V1 0
#define CERT_V2 1
#define CERT_V3 2
#define CRL_V1 0
#define CRL_V2 1

// Store providers of CertOpenStore: numbers in the place of a name.
#define CERT_STORE_PROV_MEMORY (reinterpret_cast<LPCSTR>(2))
#define CERT_STORE_PROV_FILE (reinterpret_cast<LPCSTR>(3))
#define CERT_STORE_PROV_REG (reinterpret_cast<LPCSTR>(4))
#define CERT_STORE_PROV_SERIALIZED (reinterpret_cast<LPCSTR>(6))
#define CERT_STORE_PROV_FILENAME_A (reinterpret_cast<LPCSTR>(7))
#define CERT_STORE_PROV_FILENAME_W (reinterpret_cast<LPCSTR>(8))
#define CERT_STORE_PROV_SYSTEM_A (reinterpret_cast<LPCSTR>(9))
#define CERT_STORE_PROV_SYSTEM_W (reinterpret_cast<LPCSTR>(10))
#define CERT_STORE_PROV_SYSTEM_REGISTRY_A (reinterpret_cast<LPCSTR>(12))
#define CERT_STORE_PROV_SYSTEM_REGISTRY_W (reinterpret_cast<LPCSTR>(13))

// Add dispositions.
#define CERT_STORE_ADD_NEW 1
#define CERT_STORE_ADD_USE_EXISTING 2
#define CERT_STORE_ADD_REPLACE_EXISTING 3
#define CERT_STORE_ADD_ALWAYS 4
#define CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES 5
#define CERT_STORE_ADD_NEWER 6
#define CERT_STORE_ADD_NEWER_INHERIT_PROPERTIES 7

// Find types.
#define CERT_FIND_ANY 0x00000000
#define CERT_FIND_ISSUER_NAME 0x00020004
#define CERT_FIND_SUBJECT_NAME 0x00020007
#define CERT_FIND_PUBLIC_KEY 0x00060000
#define CERT_FIND_SUBJECT_CERT 0x000B0000
#define CERT_FIND_EXISTING 0x000D0000

// Properties of contexts.
#define CERT_KEY_PROV_HANDLE_PROP_ID 1
#define CERT_KEY_PROV_INFO_PROP_ID 2
#define CERT_SHA1_HASH_PROP_ID 3
#define CERT_MD5_HASH_PROP_ID 4
#define CERT_KEY_SPEC_PROP_ID 6
#define CERT_ENHKEY_USAGE_PROP_ID 9
#define CERT_NEXT_UPDATE_LOCATION_PROP_ID 10
#define CERT_FRIENDLY_NAME_PROP_ID 11
#define CERT_PVK_FILE_PROP_ID 12
#define CERT_DESCRIPTION_PROP_ID 13
#define CERT_ACCESS_STATE_PROP_ID 14
#define CERT_SIGNATURE_HASH_PROP_ID 15
#define CERT_KEY_IDENTIFIER_PROP_ID 20

// Parameters of a provider that a key provider info may carry.
#define PP_SIGNATURE_PIN_PARAM 17  ///< never written to a store with a file

// Kinds of keys in a container.
#define AT_KEYEXCHANGE 1
#define AT_SIGNATURE 2

// Value types of name attributes.
#define CERT_RDN_ANY_TYPE 0
#define CERT_RDN_ENCODED_BLOB 1
#define CERT_RDN_OCTET_STRING 2
#define CERT_RDN_NUMERIC_STRING 3
#define CERT_RDN_PRINTABLE_STRING 4
#define CERT_RDN_TELETEX_STRING 5
#define CERT_RDN_T61_STRING 5
#define CERT_RDN_VIDEOTEX_STRING 6
#define CERT_RDN_IA5_STRING 7
#define CERT_RDN_GRAPHIC_STRING 8
#define CERT_RDN_VISIBLE_STRING 9
#define CERT_RDN_ISO646_STRING 9
#define CERT_RDN_GENERAL_STRING 10
#define CERT_RDN_UNIVERSAL_STRING 11
#define CERT_RDN_INT4_STRING 11
#define CERT_RDN_BMP_STRING 12
#define CERT_RDN_UNICODE_STRING 12
#define CERT_RDN_UTF8_STRING 13

// Issuer look-up: checks asked for, checks failed.
#define CERT_STORE_SIGNATURE_FLAG 0x00000001
#define CERT_STORE_TIME_VALIDITY_FLAG 0x00000002
#define CERT_STORE_REVOCATION_FLAG 0x00000004
#define CERT_STORE_NO_CRL_FLAG 0x00010000
#define CERT_STORE_NO_ISSUER_FLAG 0x00020000

// dwErrorStatus of CERT_TRUST_STATUS.
#define CERT_TRUST_NO_ERROR 0x00000000
#define CERT_TRUST_IS_NOT_TIME_VALID 0x00000001
#define CERT_TRUST_IS_NOT_TIME_NESTED 0x00000002
#define CERT_TRUST_IS_REVOKED 0x00000004
#define CERT_TRUST_IS_NOT_SIGNATURE_VALID 0x00000008
#define CERT_TRUST_IS_NOT_VALID_FOR_USAGE 0x00000010
#define CERT_TRUST_IS_UNTRUSTED_ROOT 0x00000020
#define CERT_TRUST_REVOCATION_STATUS_UNKNOWN 0x00000040
#define CERT_TRUST_IS_CYCLIC 0x00000080
#define CERT_TRUST_INVALID_EXTENSION 0x00000100
#define CERT_TRUST_INVALID_POLICY_CONSTRAINTS 0x00000200
#define CERT_TRUST_INVALID_BASIC_CONSTRAINTS 0x00000400
#define CERT_TRUST_INVALID_NAME_CONSTRAINTS 0x00000800
#define CERT_TRUST_IS_PARTIAL_CHAIN 0x00010000
#define CERT_TRUST_CTL_IS_NOT_TIME_VALID 0x00020000
#define CERT_TRUST_CTL_IS_NOT_SIGNATURE_VALID 0x00040000
#define CERT_TRUST_CTL_IS_NOT_VALID_FOR_USAGE 0x00080000

// dwInfoStatus of CERT_TRUST_STATUS.
#define CERT_TRUST_HAS_EXACT_MATCH_ISSUER 0x00000001
#define CERT_TRUST_HAS_KEY_MATCH_ISSUER 0x00000002
#define CERT_TRUST_HAS_NAME_MATCH_ISSUER 0x00000004
#define CERT_TRUST_IS_SELF_SIGNED 0x00000008

// Last-error codes of this interface.
#define NAL_STORE_E_INVALID_ARGUMENT 0x80070057U
#define NAL_STORE_E_NOT_FOUND 0x80092004U
#define NAL_STORE_E_EXISTS 0x80092005U
#define NAL_STORE_E_NOT_SUPPORTED 230U

extern "C" {

// ---------------------------------------------------------------------------------------------------------------------
// Stores

/// Opens a store.
///
/// @param lpszStoreProvider  a number, CERT_STORE_PROV_*: MEMORY, an empty store without a file; FILE, SERIALIZED,
///                           FILENAME_A and FILENAME_W, the file whose narrow path is `pvPara`, made when it is not
///                           there; REG, SYSTEM_* and SYSTEM_REGISTRY_*, the one store file of this user,
///                           `ormatek/storage/cstore.dat` in the provider's directory
/// @param dwEncodingType, hCryptProv, dwFlags  ignored
/// @param pvPara             the narrow path for the file providers, else ignored
/// @return the store with one reference; null for any other provider, without setting an error; null with the last
///         error set to an `errno` when the file cannot be opened or is not a sound store (EINVAL for a null or empty
///         path, EISDIR, EUCLEAN for a file that is damaged or no store). A file that is refused is not changed.
NAL_EXPORT HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType, HCRYPTPROV hCryptProv, DWORD dwFlags,
                                    const void* pvPara);

/// Opens a store whose provider is `szSubsystemProtocol` itself, as CertOpenStore reads it.
///
/// An ordinary name ("Root", "CA") is no provider number, so every ordinary name gives null. Kept deliberately.
NAL_EXPORT HCERTSTORE CertOpenSystemStore(HCRYPTPROV hProv, LPCSTR szSubsystemProtocol);

/// Drops one reference; the last one syncs the tree and closes it. `dwFlags` is ignored.
/// @return FALSE for null, else TRUE. Contexts of a closed store may still be read and freed.
NAL_EXPORT BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags);

/// Adds one reference. @return the same handle; null for null.
NAL_EXPORT HCERTSTORE CertDuplicateStore(HCERTSTORE hCertStore);

// ---------------------------------------------------------------------------------------------------------------------
// Certificates

/// Makes a free-standing context with a private memory store of its own, which holds the certificate.
///
/// @param pbCertEncoded  the DER certificate (RFC 5280 section 4.1); copied
/// @return the context with one reference. Its `pCertInfo` is all zero when the certificate has no subject key
///         identifier of 20 bytes; it is then keyed by 20 zero bytes.
/// @throws std::invalid_argument for null or no bytes; std::logic_error when the private store fails; the decoder's
///         XTOOStatus for bytes that are no certificate. Nothing leaks.
NAL_EXPORT PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType, const BYTE* pbCertEncoded,
                                                       DWORD cbCertEncoded);

/// Adds one reference. @return the same context; null for null.
NAL_EXPORT PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext);

/// Drops one reference; the last one destroys the context. @return FALSE for null, else TRUE.
NAL_EXPORT BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);

/// Reads a property of the certificate from its store.
///
/// @param dwPropId  1 provider handle (8 bytes), 2 key provider info, 6 key spec (4 bytes), 14 access state (4 bytes:
///                  1 for a context of a store), or a stored value: 3, 4, 9 to 13, 15, 16, 20 to 30, 64, 65, 70, 71,
///                  76, 81 to 84
/// @param pvData    receives the value; null asks for the size. Property 2 is one block whose pointers name places
///                  inside it; align the buffer as a CRYPT_KEY_PROV_INFO.
/// @param pcbData   in: size of `pvData`; out: size of the value. For properties 1 and 14 the buffer must be larger
///                  than the value to receive it: 8 or less (1) and 4 or less (14) only report the size. A handle (1)
///                  that is received leaves the size as it was given.
///                  For 2 a short buffer fails; for the others it receives nothing and the size is reported.
/// @return TRUE when the property is there. FALSE for a null context, any other id, a missing property, a stored
///         property 2 that is not well-formed. Sets no last error.
NAL_EXPORT BOOL CertGetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, void* pvData,
                                                  DWORD* pcbData);

/// Stores a property of the certificate in its store, over an earlier one.
///
/// @param dwPropId  as for getting, but 1 and 14, which cannot be set
/// @param dwFlags   ignored
/// @param pvData    a CRYPT_KEY_PROV_INFO for 2, a DWORD for 6, a CRYPT_DATA_BLOB for the others; null fails (there is
///                  no deletion of a property)
/// @return TRUE when stored. Sets no last error. A PIN parameter in property 2 is left out in a store with a file.
NAL_EXPORT BOOL CertSetCertificateContextProperty(PCCERT_CONTEXT pCertContext, DWORD dwPropId, DWORD dwFlags,
                                                  const void* pvData);

/// Walks the certificates of a store in the order of their key identifiers.
///
/// @param pPrevCertContext  null to start, else the context returned last, which is freed whatever the outcome
/// @return the next certificate, to be freed by the caller or passed on, last error 0; null at the end with 0x80092004;
///         null with 0x80070057 for a null store or a previous context of another store; null with an `errno` when the
///         tree fails. A record that does not decode is skipped and logged.
///
/// The position is the store's, not the context's: find and enumeration of one handle move the same one.
NAL_EXPORT PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pPrevCertContext);

/// Adds a certificate from its encoding; the first 20 bytes of its subject key identifier are its key.
///
/// @param dwAddDisposition  1 new: 0x80092005 when one is there; 3 replace it and its properties; 4 put over it;
///                          5 replace it, properties stay; 2 is not supported (230); 0, 6 and above store nothing
///                          and still succeed, kept deliberately
/// @param ppCertContext     when not null, receives a new context of this store
/// @return FALSE with 0x80070057 when the bytes do not decode, have no subject key identifier, or are null, and for a
///         null store; with an `errno` when the tree fails
NAL_EXPORT BOOL CertAddEncodedCertificateToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType,
                                                 const BYTE* pbCertEncoded, DWORD cbCertEncoded, DWORD dwAddDisposition,
                                                 PCCERT_CONTEXT* ppCertContext);

/// Adds the certificate of a context under the context's key.
///
/// @param dwAddDisposition  1 new: 0x80092005 when one is there; 2 put over it; 3 replace it and its properties; 4 put
///                          over it; 5 replace it, properties stay; 6 and 7 only when later in NotBefore than the
///                          one that is there, else 0x80092005; 0, 8 and above fail
/// @param ppStoreContext    when not null, receives the caller's own context with one more reference, whatever the
///                          result, unless it failed with 0x80092005 or for a null argument
/// @return FALSE without a last error for a null context; with 0x80070057 for a null store
NAL_EXPORT BOOL CertAddCertificateContextToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext,
                                                 DWORD dwAddDisposition, PCCERT_CONTEXT* ppStoreContext);

/// Finds the next certificate that fits.
///
/// @param dwCertEncodingType, dwFindFlags  ignored
/// @param dwFindType        CERT_FIND_ANY; CERT_FIND_ISSUER_NAME and CERT_FIND_SUBJECT_NAME (`pvFindPara` a
///                          CERT_NAME_BLOB, equal byte for byte); CERT_FIND_SUBJECT_CERT (a CERT_INFO: serial and
///                          issuer); CERT_FIND_EXISTING (a certificate context of this library: its key; a direct
///                          look-up, so it returns the same certificate each time). Others are not supported (230).
/// @param pPrevCertContext  as for CertEnumCertificatesInStore
/// @return as CertEnumCertificatesInStore; null with 0x80070057 for a null `pvFindPara` where one is needed
NAL_EXPORT PCCERT_CONTEXT CertFindCertificateInStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, DWORD dwFindFlags,
                                                     DWORD dwFindType, const void* pvFindPara,
                                                     PCCERT_CONTEXT pPrevCertContext);

/// Deletes the certificate of the context and all its properties from the context's store, and frees the context.
/// @return TRUE when deleted; FALSE for null, and with an `errno` when the tree fails or its store is closed.
NAL_EXPORT BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext);

/// Not supported: null with last error 230. The library searches issuers itself.
NAL_EXPORT PCCERT_CONTEXT CertGetIssuerCertificateFromStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pSubjectContext,
                                                            PCCERT_CONTEXT pPrevIssuerContext, DWORD* pdwFlags);

/// Not supported: FALSE with last error 230. The library verifies certificates itself.
NAL_EXPORT BOOL CertVerifySubjectCertificateContext(PCCERT_CONTEXT pSubject, PCCERT_CONTEXT pIssuer, DWORD* pdwFlags);

/// @return the first extension whose OID is a prefix of `pszObjId`, or null. Kept deliberately: "2.5.29.14" also finds
///         an entry "2.5.29.1".
NAL_EXPORT PCERT_EXTENSION CertFindExtension(LPCSTR pszObjId, DWORD cExtensions, CERT_EXTENSION rgExtensions[]);

/// @return TRUE exactly when the subject's validity lies strictly inside the issuer's; equal instants give FALSE.
NAL_EXPORT BOOL CertVerifyValidityNesting(PCERT_INFO pSubjectInfo, PCERT_INFO pIssuerInfo);

// ---------------------------------------------------------------------------------------------------------------------
// CRLs. A store keys a CRL by its issuer's key identifier, 20 bytes, and its number as 16 bytes. Other sizes are a
// broken invariant here and abort the process: callers check a CRL from outside before they come here.

/// Makes a free-standing context without a store.
/// @throws std::invalid_argument for null or no bytes; XTOOStatus for bytes that are no CRL, and for a CRL without an
///         authority key identifier
NAL_EXPORT PCCRL_CONTEXT CertCreateCRLContext(DWORD dwCertEncodingType, const BYTE* pbCrlEncoded, DWORD cbCrlEncoded);

/// Adds one reference. @return the same context; null for null.
NAL_EXPORT PCCRL_CONTEXT CertDuplicateCRLContext(PCCRL_CONTEXT pCrlContext);

/// Drops one reference; the last one destroys the context. @return FALSE for null, else TRUE.
NAL_EXPORT BOOL CertFreeCRLContext(PCCRL_CONTEXT pCrlContext);

/// Stores property 3, 4 or 15 (a CRYPT_DATA_BLOB) of the CRL in its store; any other id is not supported (230).
/// @return FALSE for null, a context without store, null `pvData`; the properties that the context was built with stay.
NAL_EXPORT BOOL CertSetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, DWORD dwFlags, const void* pvData);

/// Reads a property of the CRL from its store; a null or short `pvData` receives nothing and the size is reported.
/// @return FALSE for null, a context without store, a missing property
NAL_EXPORT BOOL CertGetCRLContextProperty(PCCRL_CONTEXT pCrlContext, DWORD dwPropId, void* pvData, DWORD* pcbData);

/// Not supported: 0 with last error 230.
NAL_EXPORT DWORD CertEnumCRLContextProperties(PCCRL_CONTEXT pCrlContext, DWORD dwPropId);

/// Walks the CRLs of a store, or those whose issuer's key is the key of `pIssuerContext`.
///
/// @param pPrevCrlContext  null to start, else the context returned last, which is freed whatever the outcome; it is
///                         not checked against the store
/// @param pdwFlags         when not null, set to 0: no check is made here
/// @return the next CRL, last error 0; null with 0x80092004 at the end, 0x80070057 for a null store, an `errno` when
///         the tree fails. A record that does not decode or fit its key is skipped and logged.
NAL_EXPORT PCCRL_CONTEXT CertGetCRLFromStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pIssuerContext,
                                             PCCRL_CONTEXT pPrevCrlContext, DWORD* pdwFlags);

/// Adds a CRL from its encoding.
///
/// @param dwAddDisposition  when one with the same key is there: 1 and 6 fail with 0x80092005 (6 compares no dates
///                          here, kept deliberately); 3 replaces it and its properties; 4 and 7 put over it; 5 replaces
///                          it, properties stay. 0, 2, 8 and above are not supported (230).
/// @param ppCrlContext      when not null, receives a new context of this store
/// @return FALSE with 0x80070057 for null arguments or bytes that do not decode; without a last error when the CRL has
///         no authority key identifier; with an `errno` when the tree fails
NAL_EXPORT BOOL CertAddEncodedCRLToStore(HCERTSTORE hCertStore, DWORD dwCertEncodingType, const BYTE* pbCrlEncoded,
                                         DWORD cbCrlEncoded, DWORD dwAddDisposition, PCCRL_CONTEXT* ppCrlContext);

/// Adds the CRL of a context, with dispositions 3 and 6 also the properties that the context was built with.
///
/// @param dwAddDisposition  as for the encoded form, but 6 replaces a CRL whose ThisUpdate is earlier
/// @param ppStoreContext    on success, when not null, receives a new context of this store
NAL_EXPORT BOOL CertAddCRLContextToStore(HCERTSTORE hCertStore, PCCRL_CONTEXT pCrlContext, DWORD dwAddDisposition,
                                         PCCRL_CONTEXT* ppStoreContext);

/// Deletes the CRL and its properties from the context's store, and frees the context.
/// @return TRUE when deleted; FALSE for null, for a context without store, and with an `errno` when the tree fails
NAL_EXPORT BOOL CertDeleteCRLFromStore(PCCRL_CONTEXT pCrlContext);

/// @return 1 when the time is later than NextUpdate, else -1 when it is earlier than ThisUpdate, else 0. A zero
///         NextUpdate has no special meaning; neither argument may be null.
NAL_EXPORT LONG CertVerifyCRLTimeValidity(const FILETIME* pTimeToVerify, PCRL_INFO pCrlInfo);

/// Looks the certificate's serial up in the CRL.
/// @param ppCrlEntry  receives the entry, owned by the CRL context, or null
/// @return TRUE only when the certificate is listed. Issuers are not compared.
NAL_EXPORT BOOL CertFindCertificateInCRL(PCCERT_CONTEXT pCert, PCCRL_CONTEXT pCrlContext, DWORD dwFlags,
                                         void* pvReserved, PCRL_ENTRY* ppCrlEntry);

}  // extern "C"
