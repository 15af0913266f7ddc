/// Every number of the provider's interface: algorithms, parameters, flags, blob types and error codes.
///
/// Where a number has a counterpart in the CryptoAPI it has the CryptoAPI's value and meaning. docs/provider.md tells
/// how the calls use them.
#pragma once

#include "too/types.h"

/// The name under which the provider registers itself, and its type.
inline constexpr char ORK_PROVIDER_NAME[] = "Ormatek Cryptographic Service Provider";
inline constexpr DWORD ORK_PROVIDER_TYPE = 2;

// --- Algorithms (ALG_ID) ---

inline constexpr DWORD ORK_ALG_GOSTR3411 =
    0x801E;  ///< hash GOST R 34.11-94, CryptoPro parameter set (RFC 5831, RFC 4357)
inline constexpr DWORD ORK_ALG_PRIVATE_HASH = 0x8029;   ///< hash GOST R 34.11-94, test parameter set 1.2.643.2.2.30.0
inline constexpr DWORD ORK_ALG_GOST2001_SIGN = 0x2E23;  ///< key GOST R 34.10-2001
inline constexpr DWORD ORK_ALG_GOST94_SIGN = 0x2E1E;    ///< key GOST R 34.10-94
inline constexpr DWORD ORK_ALG_PRIVATE_SIGN = 0x2E29;   ///< key GOST R 34.10-94, parameter set A implied
inline constexpr DWORD ORK_ALG_GOST2001_EXCHANGE = 0xAA24;  ///< exchange key GOST R 34.10-2001; it may sign too
inline constexpr DWORD ORK_ALG_GOST94_EXCHANGE = 0xAA1E;    ///< exchange key GOST R 34.10-94; it may sign too
inline constexpr DWORD ORK_ALG_EPHEMERAL = 0xAA25;          ///< ephemeral exchange key, 94 or 2001 by key parameter 106
inline constexpr DWORD ORK_ALG_GOST28147 = 0x661E;          ///< session key GOST 28147-89, 256 bits

inline constexpr DWORD ORK_ALG_CLASS_MASK = 0xE000;  ///< the class bits of an ALG_ID
inline constexpr DWORD ORK_ALG_CLASS_HASH = 0x8000;

// --- Key types ---

inline constexpr DWORD ORK_KEY_EXCHANGE = 1;
inline constexpr DWORD ORK_KEY_SIGNATURE = 2;
inline constexpr DWORD ORK_KEY_ANY = 0xFFFFFFFF;  ///< whichever key the current entry holds; 0 means the same

// --- Flags of ORKAcquireContext ---

inline constexpr DWORD ORK_OPEN_VERIFY =
    0xF0000000;                                 ///< no container: public keys, hashes, session and ephemeral keys only
inline constexpr DWORD ORK_OPEN_NEW = 0x8;      ///< makes a container that does not exist yet
inline constexpr DWORD ORK_OPEN_DELETE = 0x10;  ///< deletes the container; no handle results
inline constexpr DWORD ORK_OPEN_SILENT = 0x40;  ///< never ask the user; this provider never does
inline constexpr DWORD ORK_OPEN_NO_PASSWORD = 0x200;  ///< without asking for a password: for containers that need none

// --- Flags of the other calls ---

inline constexpr DWORD ORK_GEN_EXPORTABLE = 0x1;  ///< ORKGenKey, ORKDeriveKey, ORKImportKey: the secret may be exported
inline constexpr DWORD ORK_GEN_LATER = 0x40;      ///< ORKGenKey: key parameter 14 generates, after 103 and 106 are set
inline constexpr DWORD ORK_EXPORT_TRANSPORT =
    32;                                     ///< ORKExportKey, blob 1: the form for key transport; the only one there is
inline constexpr DWORD ORK_ENUM_FIRST = 1;  ///< ORKGetProvParam 1, 2: start over; 0 goes on

// --- Blob types of ORKExportKey and ORKImportKey ---

inline constexpr DWORD ORK_BLOB_SIMPLE = 1;   ///< a session key wrapped under an agreed key
inline constexpr DWORD ORK_BLOB_PUBLIC = 6;   ///< a public key
inline constexpr DWORD ORK_BLOB_PRIVATE = 7;  ///< a private key wrapped under a protection key

// --- Provider parameters ---

inline constexpr DWORD ORK_PARAM_ENUM_ALGS = 1;      ///< get: the next algorithm, an ORKAlgInfo
inline constexpr DWORD ORK_PARAM_ENUM_ENTRIES = 2;   ///< get: the next entry (verify-only context: container), its name
inline constexpr DWORD ORK_PARAM_NAME = 4;           ///< get: the provider's name
inline constexpr DWORD ORK_PARAM_VERSION = 5;        ///< get: DWORD, major version << 8 | minor
inline constexpr DWORD ORK_PARAM_CONTAINER = 6;      ///< get: the container's name as it was given
inline constexpr DWORD ORK_PARAM_TYPE = 16;          ///< get: DWORD, the provider's type
inline constexpr DWORD ORK_PARAM_PIN = 32;           ///< set: the PIN
inline constexpr DWORD ORK_PARAM_PASSWORD = 33;      ///< set: the password
inline constexpr DWORD ORK_PARAM_NEW_PASSWORD = 34;  ///< set: change the container's password to this one, at once
inline constexpr DWORD ORK_PARAM_NEW_PIN = 35;       ///< set: change the container's PIN to this one, at once
inline constexpr DWORD ORK_PARAM_UNIQUE_NAME =
    36;  ///< get: the container's unique full name, a path that opens it anywhere
inline constexpr DWORD ORK_PARAM_PROTECTION = 37;     ///< get: DWORD, ORK_PROTECTED_* bits of the container
inline constexpr DWORD ORK_PARAM_HASH_PARAMS = 92;    ///< get, set: OID of the hash parameter set that new keys name
inline constexpr DWORD ORK_PARAM_CIPHER_PARAMS = 93;  ///< get, set: OID of the cipher parameter set of new session keys
inline constexpr DWORD ORK_PARAM_SIGN_PARAMS =
    94;  ///< get, set: OID of the parameter set of the signature key to be made
inline constexpr DWORD ORK_PARAM_EXCHANGE_PARAMS =
    95;  ///< get, set: OID of the parameter set of the exchange key to be made
inline constexpr DWORD ORK_PARAM_PROTECTION_KEY =
    99;  ///< set: key handle, the protection key of the container; 0 takes it away
inline constexpr DWORD ORK_PARAM_ENTRY_CERTIFICATE = 101;  ///< get: the encoded certificate of the current entry
inline constexpr DWORD ORK_PARAM_ENTRY_INFO = 102;         ///< get: the container-info record of the current entry, DER
inline constexpr DWORD ORK_PARAM_DELETE_ENTRY =
    103;  ///< set: takes the current entry with its key out of the container

inline constexpr DWORD ORK_PROTECTED_PASSWORD = 1;
inline constexpr DWORD ORK_PROTECTED_PIN = 2;
inline constexpr DWORD ORK_PROTECTED_KEY = 4;

// --- Key parameters ---

inline constexpr DWORD ORK_KEY_PARAM_IV = 1;     ///< get, set: 8 bytes, the initialisation vector of a session key
inline constexpr DWORD ORK_KEY_PARAM_ALGID = 7;  ///< get: DWORD, the key's ALG_ID
inline constexpr DWORD ORK_KEY_PARAM_BLOCK_LENGTH = 8;  ///< get: DWORD, block length of a session key in bits
inline constexpr DWORD ORK_KEY_PARAM_LENGTH = 9;        ///< get: DWORD, key length in bits
inline constexpr DWORD ORK_KEY_PARAM_GENERATE =
    14;  ///< set: generates a key made with ORK_GEN_LATER; the value is not read
inline constexpr DWORD ORK_KEY_PARAM_CERTIFICATE =
    26;  ///< get, set: the encoded certificate bound to a container's key
inline constexpr DWORD ORK_KEY_PARAM_MESHING =
    101;  ///< get, set: DWORD, 1 = CFB with the parameter set's key meshing, 0 = plain CFB
inline constexpr DWORD ORK_KEY_PARAM_HASH_PARAMS = 103;    ///< get, set: OID of the hash parameter set
inline constexpr DWORD ORK_KEY_PARAM_CIPHER_PARAMS = 104;  ///< get, set: OID of the cipher parameter set
inline constexpr DWORD ORK_KEY_PARAM_KEY_PARAMS = 106;     ///< get, set: OID of the public-key parameter set
inline constexpr DWORD ORK_KEY_PARAM_CONTEXT =
    120;  ///< get: the handle of the context that the key belongs to, 64 bits
inline constexpr DWORD ORK_KEY_PARAM_TYPE =
    121;  ///< get: DWORD, ORK_KEY_EXCHANGE or ORK_KEY_SIGNATURE; 0 for other keys
inline constexpr DWORD ORK_KEY_PARAM_ENTRY = 122;  ///< get: the name of the container entry that the key comes from
inline constexpr DWORD ORK_KEY_PARAM_WRAP =
    123;  ///< get, set: OID of an agreed key's wrap: 1.2.643.2.2.13.1 (at first) or 1.2.643.2.2.13.0, without diversification

// --- Hash parameters ---

inline constexpr DWORD ORK_HASH_PARAM_ALGID = 1;  ///< get: DWORD, the hash's ALG_ID
inline constexpr DWORD ORK_HASH_PARAM_VALUE =
    2;  ///< get: finishes the hash, its 32 bytes; set: the value to be signed or verified
inline constexpr DWORD ORK_HASH_PARAM_SIZE = 4;  ///< get: DWORD, the size of the value in bytes

// --- Last errors ---

inline constexpr DWORD ORK_E_INVALID_HANDLE = 6;      ///< stale, invented, or of another kind
inline constexpr DWORD ORK_E_INVALID_PASSWORD = 86;   ///< wrong password or PIN, or one is needed and was not given
inline constexpr DWORD ORK_E_INVALID_PARAMETER = 87;  ///< null or impossible argument
inline constexpr DWORD ORK_E_DISK_FULL = 112;         ///< no room for the container's file; it is as before
inline constexpr DWORD ORK_E_NO_MORE_ITEMS = 259;     ///< the end of an enumeration
inline constexpr DWORD ORK_E_PATH_NOT_FOUND = 0x80070003;  ///< the folder of a new container does not exist
inline constexpr DWORD ORK_E_ACCESS_DENIED = 0x80070005;   ///< the system refuses access to the container's file
inline constexpr DWORD ORK_E_WRITE_FAULT = 0x8007001D;  ///< the container's file could not be written; it is as before
inline constexpr DWORD ORK_E_READ_FAULT = 0x8007001E;   ///< the container's file could not be read
inline constexpr DWORD ORK_E_LOCKED = 0x80070020;       ///< the container's lock could not be taken
inline constexpr DWORD ORK_E_BAD_HASH = 0x80090002;     ///< the hash's algorithm does not go with the key's
inline constexpr DWORD ORK_E_BAD_KEY = 0x80090003;      ///< the key cannot do this, or fails its checks
inline constexpr DWORD ORK_E_BAD_LENGTH = 0x80090004;   ///< a value of the wrong size
inline constexpr DWORD ORK_E_BAD_DATA = 0x80090005;     ///< a blob or record that cannot be read, or does not unwrap
inline constexpr DWORD ORK_E_BAD_SIGNATURE = 0x80090006;  ///< the signature does not hold
inline constexpr DWORD ORK_E_BAD_VERSION = 0x80090007;    ///< a blob or container of a version that is not known
inline constexpr DWORD ORK_E_BAD_ALGID = 0x80090008;  ///< unknown algorithm or parameter set, or not one for this use
inline constexpr DWORD ORK_E_BAD_FLAGS = 0x80090009;  ///< unknown flags, or flags that exclude one another
inline constexpr DWORD ORK_E_BAD_TYPE = 0x8009000A;   ///< a parameter or blob type that this object does not have
inline constexpr DWORD ORK_E_BAD_KEY_STATE = 0x8009000B;   ///< not generated yet, generated already, or not exportable
inline constexpr DWORD ORK_E_BAD_HASH_STATE = 0x8009000C;  ///< the hash is finished, or data went into it already
inline constexpr DWORD ORK_E_NO_KEY = 0x8009000D;          ///< the container has no such key
inline constexpr DWORD ORK_E_NO_MEMORY = 0x8009000E;       ///< memory, or the pool of locked memory, is used up
inline constexpr DWORD ORK_E_EXISTS = 0x8009000F;          ///< a container of this name, or this key, is there already
inline constexpr DWORD ORK_E_PERMISSION = 0x80090010;      ///< the container needs its protection key (parameter 99)
inline constexpr DWORD ORK_E_NOT_FOUND = 0x80090011;       ///< no such value: an entry without certificate, no entry
inline constexpr DWORD ORK_E_BAD_PUBLIC_KEY = 0x80090015;  ///< not a point of the curve, of small order, out of range
inline constexpr DWORD ORK_E_BAD_KEYSET = 0x80090016;      ///< the container does not exist, or the context has none
inline constexpr DWORD ORK_E_TYPE_NOT_REGISTERED = 0x80090017;      ///< no provider of this type is registered
inline constexpr DWORD ORK_E_PROVIDER_NOT_REGISTERED = 0x80090019;  ///< no provider of this name is registered
inline constexpr DWORD ORK_E_DAMAGED = 0x8009001A;          ///< the container's file is damaged, or is no container
inline constexpr DWORD ORK_E_BAD_KEYSET_NAME = 0x8009001F;  ///< a name that no container can have
inline constexpr DWORD ORK_E_FAIL = 0x80090020;             ///< the cryptographic library failed where it should not
