/// The calls of the cryptographic service provider.
///
/// Conventions that hold for every call, and are not repeated on each:
///
/// - The result is TRUE, or FALSE with the reason in the thread's last error (`GetLastError`, codes in
///   ork/constants.h). Outputs are written on success only; a failed call leaves no handle, no half-written file and
///   no secret behind.
/// - Handles are numbers that are valid everywhere in the process. 0 is never one. A handle that was released, that
///   never was, or that names another kind of object is `ORK_E_INVALID_HANDLE`; numbers are not used again.
/// - Every handle that a call gives out belongs to the caller: `ORKReleaseContext`, `ORKDestroyKey`, `ORKDestroyHash`.
///   A key and a hash keep what they need of their context, so the order of release is free.
/// - All calls may be made from any thread. Calls on one and the same handle are done one after the other.
/// - Whole numbers in values and blobs have their least significant byte first. Signatures and public keys do too: a
///   signature is r then s read as one big number from its end, that is, the reverse of the octets of RFC 4491.
/// - Secrets stay in locked memory and are wiped when their handle goes.
#pragma once

#include "ork/constants.h"
#include "too/export.h"
#include "too/types.h"

class CTOOString;
class IdentObj;

/// What provider parameter 1 gives for each algorithm.
struct ORKAlgInfo {
    DWORD aiAlgid;    ///< the ALG_ID
    DWORD dwBitLen;   ///< length of the key, or of the hash value, in bits
    DWORD dwNameLen;  ///< length of the name with its terminator
    char szName[20];  ///< short name
};

// --- Contexts ---

/// Opens the provider, with a key container unless `flags` has ORK_OPEN_VERIFY.
///
/// A container's name is a file path; a bare name lies in the provider's directory (`GetTarnCSPPath`). Either may be
/// followed by "#" and the number of an entry, which then is current. With a null or empty name and no ORK_OPEN_VERIFY
/// the container is "default".
///
/// @param hProv      receives the context; with ORK_OPEN_DELETE it may be null and receives 0
/// @param container  the container's name, null with ORK_OPEN_VERIFY
/// @param provider   null or ORK_PROVIDER_NAME; another name: ORK_E_PROVIDER_NOT_REGISTERED
/// @param type       ORK_PROVIDER_TYPE, or 0 together with the name; else ORK_E_TYPE_NOT_REGISTERED
/// @param flags      ORK_OPEN_* bits; ORK_OPEN_NEW makes the file at once and is ORK_E_EXISTS when there is one
NAL_HOST_EXPORT BOOL ORKAcquireContext(unsigned long* hProv, const char* container, const char* provider, DWORD type,
                                       DWORD flags);

/// Closes a context. Keys and hashes made from it stay usable until they are destroyed. `flags` is 0.
NAL_HOST_EXPORT BOOL ORKReleaseContext(unsigned long hProv, DWORD flags = 0);

/// Reads a provider parameter, ORK_PARAM_* with the mark "get". Texts come without terminator, numbers as 4 bytes.
///
/// Parameter 2 makes each entry that it returns current: `ORKGetUserKey` opens its key, 101 and 102 describe it. The
/// end is ORK_E_NO_MORE_ITEMS. An entry's name opens the container with that entry current.
NAL_HOST_EXPORT BOOL ORKGetProvParam(unsigned long hProv, DWORD param, IdentObj& value, DWORD flags = 0);
NAL_HOST_EXPORT BOOL ORKGetProvParam(unsigned long hProv, DWORD param, CTOOString& text, DWORD flags = 0);
NAL_HOST_EXPORT BOOL ORKGetProvParam(unsigned long hProv, DWORD param, DWORD& number, DWORD flags = 0);

/// Sets a provider parameter, ORK_PARAM_* with the mark "set". Each parameter takes the one form that suits it.
///
/// 32 and 33 record PIN and password: they are checked at the first use of a key (wrong: 86), and they set the
/// protection of a container that holds no key yet. 94 and 95 take a parameter set's OID, or an algorithm's for its
/// default set. 99 takes a session or agreed key, whose handle may be destroyed afterwards.
NAL_HOST_EXPORT BOOL ORKSetProvParam(unsigned long hProv, DWORD param, const char* text, DWORD flags);
NAL_HOST_EXPORT BOOL ORKSetProvParam(unsigned long hProv, DWORD param, const IdentObj& value, DWORD flags);
NAL_HOST_EXPORT BOOL ORKSetProvParam(unsigned long hProv, DWORD param, unsigned long key, DWORD flags);

/// Fills `buffer` with `length` random bytes from the system's seeded generator.
NAL_HOST_EXPORT BOOL ORKGenRandom(unsigned long hProv, DWORD length, void* buffer);

namespace ORKSCApi {
/// Makes the random generator ready and draws from it.
///
/// @param buffer    receives the bytes
/// @param count     how many
/// @param reserved  null
/// @return 0, or the error code; the thread's last error is set to it too
NAL_HOST_EXPORT DWORD GetRandomByteOctet(void* buffer, DWORD count, void* reserved);
}  // namespace ORKSCApi

/// ORKSCApi::GetRandomByteOctet under its plain name.
NAL_HOST_EXPORT DWORD ORKSCApi_GetRandomByteOctet(void* buffer, DWORD count, void* reserved);

// --- Keys ---

/// Opens the private key of the context's current entry, or, when that has none of the type, of the first entry that
/// has; the entry becomes current.
///
/// @param keyType  ORK_KEY_EXCHANGE, ORK_KEY_SIGNATURE; ORK_KEY_ANY or 0 for whichever the current entry holds
/// Fails with ORK_E_NO_KEY, 86 (wrong password or PIN), ORK_E_DAMAGED, ORK_E_PERMISSION (protection key).
NAL_HOST_EXPORT BOOL ORKGetUserKey(unsigned long hProv, DWORD keyType, unsigned long* hKey);

/// Makes a key.
///
/// @param algId  a key type or the ALG_ID of a signature or exchange key: a pair, kept in the container as a new entry,
///               with the parameter set of provider parameter 94 or 95; ORK_ALG_EPHEMERAL: a pair that is kept nowhere;
///               ORK_ALG_GOST28147: a random session key with a random initialisation vector
/// @param flags  ORK_GEN_*; a session key without ORK_GEN_EXPORTABLE cannot be exported
NAL_HOST_EXPORT BOOL ORKGenKey(unsigned long hProv, DWORD algId, DWORD flags, unsigned long* hKey);

/// Makes a session key from a hash: the key is the hash's value, the hash is finished by it.
///
/// @param algId      ORK_ALG_GOST28147
/// @param hBaseData  a hash, into which a password or other secret was hashed
NAL_HOST_EXPORT BOOL ORKDeriveKey(unsigned long hProv, DWORD algId, unsigned long hBaseData, DWORD flags,
                                  unsigned long* hKey);

/// Makes an independent copy of a key with its parameters; a session key's copy stands at its initialisation vector.
/// The copy of a container's key makes its entry current.
/// @param reserved  null
NAL_HOST_EXPORT BOOL ORKDuplicateKey(unsigned long hKey, const DWORD* reserved, DWORD flags, unsigned long* hCopy);

/// Releases a key. A container's key stays in the container.
NAL_HOST_EXPORT BOOL ORKDestroyKey(unsigned long hKey);

/// Exports a key as a blob. A public key's layout is drawn at NALConvertPublicKeyInfo (nal/algorithm.h); a private key's is the
/// provider's own business; a simple blob has these fields, integers least significant byte first:
///
///   offset  size  field
///        0     1  ORK_BLOB_SIMPLE
///        1     1  version, 0x10
///        2     2  0
///        4     4  ORK_ALG_GOST28147
///        8     4  "MAG1"
///       12     4  length of the wrapped key in bits, 256
///       16     8  UKM
///       24    32  encrypted key
///       56     4  MAC
///       60     p  OID of the wrap's cipher parameter set, DER
///
/// @param hExpKey   blob 1: the agreed key; blob 7: the protection key, 0 for a one-time key of this process, good for
///                  one import; blob 6: 0
/// @param blobType  ORK_BLOB_*
/// @param flags     0, or ORK_EXPORT_TRANSPORT with blob 1
NAL_HOST_EXPORT BOOL ORKExportKey(unsigned long hProv, unsigned long hKey, unsigned long hExpKey, DWORD blobType,
                                  DWORD flags, IdentObj& blob);

/// Imports a blob of any of the three types.
///
/// A public key with `hKey` = 0 becomes a public key; with `hKey` an ephemeral or private key of the same parameter set
/// it becomes the key agreed between the two. A simple blob needs the agreed key, a private-key blob the protection key
/// that it was made with (or 0): the private key becomes a new entry of the context's container.
NAL_HOST_EXPORT BOOL ORKImportKey(unsigned long hProv, const void* blob, DWORD length, unsigned long hKey, DWORD flags,
                                  unsigned long* hImported);

/// Imports the public key of a certificate.
///
/// @param info    a DER SubjectPublicKeyInfo (RFC 5280 section 4.1.2.7; RFC 4491 section 2.3)
/// @param length  its size in bytes; octets behind the record are an error
NAL_HOST_EXPORT BOOL ORKImportPKInfo(unsigned long hProv, const void* info, DWORD length, unsigned long* hKey);

/// Reads a key parameter, ORK_KEY_PARAM_* with the mark "get". Texts come without terminator, numbers as 4 bytes.
NAL_HOST_EXPORT BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, IdentObj& value);
NAL_HOST_EXPORT BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, CTOOString& text);
NAL_HOST_EXPORT BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, DWORD& number);
NAL_HOST_EXPORT BOOL ORKGetKeyParam(unsigned long hKey, DWORD param, unsigned long& handle);

/// Sets a key parameter, ORK_KEY_PARAM_* with the mark "set". OIDs may come as text or as the bytes of the text,
/// numbers as a number or as 4 bytes.
NAL_HOST_EXPORT BOOL ORKSetKeyParam(unsigned long hKey, DWORD param, const IdentObj& value);
NAL_HOST_EXPORT BOOL ORKSetKeyParam(unsigned long hKey, DWORD param, const char* text);
NAL_HOST_EXPORT BOOL ORKSetKeyParam(unsigned long hKey, DWORD param, DWORD number);

// --- Hashes and signatures ---

/// Makes a hash.
///
/// @param algId  ORK_ALG_GOSTR3411 or ORK_ALG_PRIVATE_HASH
/// @param hKey   0, or the private key that `ORKSignHash` is to sign with
NAL_HOST_EXPORT BOOL ORKCreateHash(unsigned long hProv, DWORD algId, unsigned long hKey, unsigned long* hHash,
                                   DWORD flags);

/// Makes an independent copy of a hash in its present state. @param reserved  null
NAL_HOST_EXPORT BOOL ORKDuplicateHash(unsigned long hHash, const DWORD* reserved, DWORD flags, unsigned long* hCopy);

/// Adds bytes to a hash. A finished hash is ORK_E_BAD_HASH_STATE.
NAL_HOST_EXPORT BOOL ORKHashData(unsigned long hHash, const void* data, DWORD length, DWORD flags);

/// Reads ORK_HASH_PARAM_*. Reading the value finishes the hash: to go on, read it from a duplicate.
NAL_HOST_EXPORT BOOL ORKGetHashParam(unsigned long hHash, DWORD param, IdentObj& value);

/// Sets the value (ORK_HASH_PARAM_VALUE, 32 bytes) of a hash into which nothing was hashed; it is finished then.
NAL_HOST_EXPORT BOOL ORKSetHashParam(unsigned long hHash, DWORD param, const IdentObj& value);

/// Signs a hash, which is finished by it.
///
/// The key is the one that the hash was made with; else the current entry's of type `keyType`; else, for types 0 and
/// ORK_KEY_ANY or when that entry has none of the type, the key that it has.
/// @param signature  receives 64 bytes, least significant byte first (the reverse of RFC 4491 section 2.2)
NAL_HOST_EXPORT BOOL ORKSignHash(unsigned long hHash, DWORD keyType, DWORD flags, IdentObj& signature);

/// Checks a signature over a hash, which is finished by it.
/// @param hPubKey  a public key, or a private key whose public half is used
/// Fails with ORK_E_BAD_SIGNATURE when it does not hold, ORK_E_BAD_HASH when hash and key do not go together.
NAL_HOST_EXPORT BOOL ORKVerifySignature(unsigned long hHash, const IdentObj& signature, unsigned long hPubKey,
                                        DWORD flags);

NAL_HOST_EXPORT BOOL ORKDestroyHash(unsigned long hHash);

// --- Encryption ---

/// Encrypts with a session key in cipher feedback mode; successive calls go on where the last one ended, in pieces of
/// any size, until `final` is not 0, after which the key stands at its initialisation vector again.
///
/// @param hHash   0
/// @param out     receives `length` bytes; may not be the buffer that `data` points into
NAL_HOST_EXPORT BOOL ORKEncrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length,
                                IdentObj& out);
/// The same into memory of the caller, `length` bytes, which may be `data` itself but not overlap it otherwise.
NAL_HOST_EXPORT BOOL ORKEncrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length,
                                void* out);

/// Decrypts; everything else as in ORKEncrypt.
NAL_HOST_EXPORT BOOL ORKDecrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length,
                                IdentObj& out);
NAL_HOST_EXPORT BOOL ORKDecrypt(unsigned long hKey, unsigned long hHash, BOOL final, const void* data, DWORD length,
                                void* out);
