/// The provider's OID registry and its public-key encoder.
#pragma once

#include "too/export.h"
#include "too/types.h"

class CTOOString;
class IdentObj;

/// One registered OID. The layout and meaning of the fields are those of the CryptoAPI record.
struct CRYPT_OID_INFO {
    DWORD cbSize;              ///< size of this record in bytes
    LPCSTR pszObjId;           ///< dotted OID
    LPCWSTR pwszName;          ///< display name; in group 5 the keyword
    DWORD dwGroupId;           ///< ORK_OID_GROUP_*
    DWORD Algid;               ///< ALG_ID, 0 when the OID has none; of a signature OID the hash's
    CRYPTOAPI_BLOB ExtraInfo;  ///< of a signature OID: one 32-bit word, the public key's ALG_ID; else empty
};
using PCCRYPT_OID_INFO = const CRYPT_OID_INFO*;

inline constexpr DWORD ORK_OID_KEY_OID = 1;   ///< key: const char*, the dotted OID
inline constexpr DWORD ORK_OID_KEY_NAME = 2;  ///< key: const wchar_t*, the name; ASCII letters of either case are equal
inline constexpr DWORD ORK_OID_KEY_ALGID = 3;  ///< key: const DWORD*, one ALG_ID; never finds a signature OID
inline constexpr DWORD ORK_OID_KEY_SIGN = 4;   ///< key: const DWORD[2], the hash's ALG_ID and the public key's

inline constexpr DWORD ORK_OID_GROUP_ANY = 0;
inline constexpr DWORD ORK_OID_GROUP_HASH = 1;
inline constexpr DWORD ORK_OID_GROUP_ENCRYPTION = 2;
inline constexpr DWORD ORK_OID_GROUP_PUBLIC_KEY = 3;
inline constexpr DWORD ORK_OID_GROUP_SIGNATURE = 4;
inline constexpr DWORD ORK_OID_GROUP_NAME_ATTRIBUTE = 5;
inline constexpr DWORD ORK_OID_GROUP_EXTENSION = 6;
inline constexpr DWORD ORK_OID_GROUP_USAGE = 7;
inline constexpr DWORD ORK_OID_GROUP_PARAMETERS = 16;  ///< parameter sets; their Algid is 0

namespace orkcspex {

/// Looks an OID up.
///
/// @param keyType  ORK_OID_KEY_*
/// @param key      what to look for, of the type that `keyType` says; null finds nothing
/// @param group    a group, or ORK_OID_GROUP_ANY; the high 16 bits are not looked at
/// @return the record, which lives as long as the process, or null. The last error is not touched.
/// Thread-safe: the registry is constant.
NAL_HOST_EXPORT const CRYPT_OID_INFO* FindOIDInfo(DWORD keyType, const void* key, DWORD group);

/// Turns a public-key blob into the parts of a SubjectPublicKeyInfo (RFC 4491 section 2.3).
///
/// @param blob          a blob of type 6, as ORKExportKey writes it
/// @param algorithm     receives the dotted OID of the key's algorithm. An ephemeral key has that of the signature key
///                      of its standard, as RFC 4490 section 4.1 writes it
/// @param parameters    receives the DER parameters field, empty when the algorithm carries none
/// @param publicKey     receives the content of the BIT STRING: the DER OCTET STRING around the key's bytes
/// @return TRUE; or FALSE with ORK_E_BAD_DATA, ORK_E_BAD_ALGID or ORK_E_BAD_VERSION, outputs untouched
NAL_HOST_EXPORT BOOL ORKEncodePublicKeyAndParametrs(const IdentObj& blob, CTOOString& algorithm, IdentObj& parameters,
                                                    IdentObj& publicKey);

}  // namespace orkcspex
