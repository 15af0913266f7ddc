/// Signing: messages over memory and files, and the steps that they are made of.
///
/// A signature is CMS SignedData (RFC 5652 section 5) with a GOST signature as RFC 4490 section 3 writes it. Every signer info
/// made here has exactly three signed attributes: content type (id-data; of trust lists their own type), message digest and
/// signing time (the present time; UTCTime, from 2050 on GeneralizedTime). Several signers of one content live in one message:
/// each run reads the message, adds one signer info and writes the whole again. docs/messages.md has the details.
///
/// Everything is done by the provider (ork/provider.h); handles that are passed in stay the caller's. Memory does not grow with
/// a file that is hashed, signed detached, or signed into a file.
///
/// Failures: functions with `err` store a status there (0 for success) and return 0 or false; with a null `err` they throw
/// XTOOStatus(status, text), where the text names the step. A failed call of the provider has the status of its last error. On
/// failure every output is as it was, files too: output files appear whole or not at all. Threads: distinct users and messages
/// may be used at once; one user is for one thread at a time.
#pragma once

#include "nal/export.h"
#include "nal/signed_data.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

class CNALCertContext;
class CNALProvider;
class CNALUser;

/// The extension that hosts give signature files: ".p7s".
extern NAL_EXPORT const char c_NAL_SIGNED_FILE_EXT[];

/// Signing options: WhatToSignStruct::options, and the `flags` of the functions here. Other bits are not looked at.

/// The signer's certificate is not put into the message. NALSignFile and NALCreateFileP7S then set its version to 3.
inline constexpr DWORD c_NAL_SIGN_NO_CERTIFICATE = 0x10000;
/// NALSignData: the message carries the content.
inline constexpr DWORD c_NAL_SIGN_ATTACHED = 0x20000;
/// NALSignFile, NALCreateFileP7S: the source is itself a signature file, to which a signature is added.
inline constexpr DWORD c_NAL_SIGN_ADD_TO_FILE = 0x20000;
/// The signer is named by its key identifier (SignerInfo version 3), not by issuer and serial number.
inline constexpr DWORD c_NAL_SIGN_BY_KEY_ID = 0x40000;
/// A signer whose certificate is in the message already may sign again: the new signature takes the place of the old one.
inline constexpr DWORD c_NAL_SIGN_AGAIN = 0x80000;

/// The content type of a trust list: what NALSignTrustList signs.
inline constexpr char c_NAL_OID_TRUST_LIST[] = "1.3.6.1.4.1.47474.2.3.1";
/// The extended key usage of certificates that sign trust lists.
inline constexpr char c_NAL_OID_TRUST_LIST_SIGNING[] = "1.3.6.1.4.1.311.10.3.1";

/// The size of a signature of any GOST key here, in bytes (RFC 4491 section 2.2).
inline constexpr unsigned c_NAL_SIGNATURE_SIZE = 64;
/// The size of a value of either hash, in bytes.
inline constexpr unsigned c_NAL_HASH_SIZE = 32;

/// What the steps of signing share; the caller fills it and owns the handles.
struct SNALCryptInfo {
    unsigned long hProv = 0;  ///< provider context; 0: a step opens one for verification where that will do
    unsigned long hKey = 0;   ///< key to sign with, given to every hash that is made; 0 for none
    unsigned long hHash = 0;  ///< a running hash; 0: a step makes its own
    DWORD hashAlgId = 0;      ///< ALG_ID of the hash
};

/// Hashes a region of a file, 64 KiB at a time.
///
/// @param path    the file
/// @param start   offset of the first byte; 0xFFFFFFFF means 0
/// @param length  of the region in bytes; 0xFFFFFFFF means up to the end of the file
/// @param flags   c_NAL_CONTENT_IN_PIECES: the region holds encoded pieces and two bytes behind them that do not count
///                (see WhatToSignStruct); other bits are not looked at
/// @param info    with `hHash` that hash goes on, and stays unfinished; else one of `hashAlgId` is made
/// @return the hash's value
/// @throws XTOOStatus: (4, path) when there is no such file; (28, "NALHashFile") for a null path and for a region that
///         ends beyond the file; (206, "NALHashFile") for pieces that are damaged; (14) when the progress handler
///         cancels; the provider's status with "NALHashFile". XTOOFile. After a failure a running hash that was
///         passed in is of no more use.
/// Thread-safe, unless calls share a running hash.
NAL_EXPORT IdentObj NALHashFile(const char* path, unsigned int start, unsigned int length, unsigned int flags,
                                const SNALCryptInfo& info);

/// Makes and signs one signer info. Attributes in the order content type, signing time, message digest.
///
/// The hash is GOST R 34.11-94 over the encoded attributes, made with `info.hKey` and signed. With hash 0x8029 the attributes
/// are hashed into a duplicate of the running hash `info.hHash`, which must hold the content and goes on unchanged; the
/// signature is then stored with its most significant byte first, and the signer is named by the certificate's subject in the
/// place of its issuer: deliberately, readers of such messages expect both.
///
/// @param cert       the signer's certificate; its key provider info tells the type of the key
/// @param info       hProv, hKey (0: the key of the context's current entry), hashAlgId; hHash with 0x8029 only
/// @param hashValue  the content's hash
/// @param out        receives the signer info, as a new object
/// @param flags      c_NAL_SIGN_BY_KEY_ID counts
/// @return 1; 0 on failure
/// Status: 28, context "NALFillMsgSignerInfo", for an empty certificate or hash value, or 0x8029 without a running hash; 73 when
/// the hash has no OID; the provider's, context "ORKCreateHash ()", "ORKHashData ()" or "ORKSignHash ".
NAL_EXPORT int NALFillMsgSignerInfo(const CNALCertContext& cert, const SNALCryptInfo& info, const IdentObj& hashValue,
                                    CNALMessageSignerInfo& out, unsigned int flags, int* err);

/// The same for a key outside the provider, as on a token, in two calls:
///
/// 1. with a null `signature`: `signingTime` receives the present time, `toBeSigned` the encoded attributes. The token signs
///    the hash (`info.hashAlgId`) of these bytes; with 0x8029 that of the content followed by them. `out` receives the signer
///    info without a signature;
/// 2. with the signature and the same other arguments, `signingTime` and `toBeSigned` as they were received: `out` receives
///    the finished signer info. The signature is checked under the certificate's key first.
///
/// @param signature    null, or c_NAL_SIGNATURE_SIZE bytes, least significant byte first as ORKSignHash gives them (the reverse
///                     of RFC 4491 section 2.2)
/// @param info         as NALFillMsgSignerInfo, without a key; hProv 0 will do
/// @param toBeSigned   first call: out. Second: in
/// @param signingTime  likewise
/// @return 1; 0 on failure, and then nothing is changed
/// Status, context "NALFillMsgSignerInfoForToken": 28 as above, and when `toBeSigned` is not what these arguments give; 58 when
/// the signature does not hold; 73; the provider's.
NAL_EXPORT int NALFillMsgSignerInfoForToken(unsigned char* signature, const CNALCertContext& cert, const SNALCryptInfo& info,
                                            const IdentObj& hashValue, CNALMessageSignerInfo& out, unsigned int flags,
                                            IdentObj& toBeSigned, CTOOFileTime& signingTime, int* err);

/// Gets the handle of a certificate's private key from the user's container.
///
/// @param cert  the certificate whose key is sought
/// @param prov  receives the user's provider
/// @param hKey  receives a handle of the caller's own, to be destroyed with ORKDestroyKey; its entry is the current one of the
///              provider. May not be null
/// @return 1
/// @throws XTOOStatus, with nothing changed: (42, "NALGetKeyData::CNALUser") when the user has no open provider or it is another than
///         "Ormatek Cryptographic Service Provider"; (32) when no key of the container belongs to the certificate; (28) for null and
///         an empty certificate; the provider's, such as 86 for a wrong password. Text "NALGetKeyData" where no other is said
NAL_EXPORT int NALGetKeyData(const CNALUser& user, CNALCertContext& cert, CNALProvider& prov, unsigned long* hKey);

/// Signs a memory block or a file region into a message in memory. Attributes in the order content type, message digest,
/// signing time.
///
/// A file region that ends behind c_NAL_MAX_MESSAGE_SIZE, and a message that would be larger than that, are refused before
/// anything is hashed (12). A file that changes while it is signed is refused (5).
///
/// @param user     has the key
/// @param cert     the signer's certificate, which may sign now (NALCanSignByCert)
/// @param what     the content, and c_NAL_SIGN_* in its `options`; c_NAL_SIGN_ATTACHED puts the content into the message
/// @param message  in: empty, or the DER of a message to which the signature is added; its content, where it carries one, must be
///                 this one. Out: the message. A message that was given, and its other signatures, must be about this content
/// @param hashOID  the hash; null for the first of NALGetSupportedHashOIDS
/// @return 1; 0 on failure
/// Status: 4, with the path as text, for a file that is not there; 5, naming the file, for one that changed meanwhile; 28,
/// "WhatToSignStruct ", for a null pointer, a region outside the file, and a content that is not the one that the message carries or
/// that its signers signed; 32, 42 and others as NALGetKeyData; 73, "NALSignData", for an unknown hash; 99, "NALSignData", when the
/// certificate is in the message already, without c_NAL_SIGN_AGAIN; that of the refusal (106, 203, 233), "CNALUser "; 205, 206 and
/// others of CNALSignData for the message; 14; the provider's, "ORKCreateHash ()", "ORKHashData ()", "ORKSignHash ".
NAL_EXPORT int NALSignData(const CNALUser& user, const CNALCertContext& cert, const WhatToSignStruct& what, IdentObj* message,
                           const CTOOString* hashOID, int* err);

/// Signs a file into an attached signature file: a new one, or the source itself.
///
/// The content is read once: what is hashed is what is written. For a detached signature of a file see NALSignData.
///
/// @param srcPath  the content; with c_NAL_SIGN_ADD_TO_FILE a signature file, whose content is signed once more (a source that is
///                 no signature file is then content, too)
/// @param outPath  the signature file, replaced if it is there. Null, or the source's path without regard to case: the source is
///                 replaced by the signature file
/// @param message  receives the signature file's bytes, if not null
/// @param flags    c_NAL_SIGN_*
/// @param hashOID  the hash; null for the first of NALGetSupportedHashOIDS
/// @return true; false on failure
/// Status: 4 with the path as text; 5, naming the file, for a source that changes meanwhile; 12 for a message above
/// c_NAL_MAX_MESSAGE_SIZE, before anything is written; 28, "NALSignFile", for a null source, a message whose content is not plain
/// data, and one whose signers signed another content; 32, "NALGetKeyData", when the user has no such key or no provider; 42,
/// "NALSignFile", for a signature file without content; 73, "NALSignFile", for an unknown hash; 99, "NALSignFile", for a signer who has
/// signed, without c_NAL_SIGN_AGAIN; 106, "NALSignFile", when the certificate may not sign now; 206, "NALSignFile", for a signature file
/// that is to be replaced and has more behind the message, which would be lost; 9 and others of files; 14 when the progress handler
/// cancels; the provider's, "NALSignFile::ORKCreateHash" and as NALFillMsgSignerInfo and NALGetKeyData.
NAL_EXPORT bool NALSignFile(const CNALUser& user, const CNALCertContext& cert, const char* srcPath, const char* outPath,
                            IdentObj* message, unsigned int flags, const CTOOString* hashOID, int* err);

/// NALSignFile for a key outside the provider, as on a token, in two calls:
///
/// 1. with a null `signature`: `contentHash`, `signingTime`, `toBeSigned` and `valueToSign` receive what they are named for;
///    nothing is written;
/// 2. with the signature and the same other arguments, as they were received: the content is read, and checked against
///    `contentHash`, while the signature file is written. It appears only when the signature holds under the certificate's key.
///
/// @param signature    null, or c_NAL_SIGNATURE_SIZE bytes as NALFillMsgSignerInfoForToken takes them
/// @param valueToSign  null, or receives in the first call the c_NAL_HASH_SIZE bytes of the hash that the token signs
/// @param user         not asked for a key; without an open provider one for verification serves
/// @param toBeSigned, signingTime  as NALFillMsgSignerInfoForToken
/// @param contentHash  the content's hash: first call out, second in
/// @return 1; 0 on failure, and then nothing is changed
/// Status, context "NALCreatePSevenS": 58 when the signature does not hold or the content is not the one that was hashed; else as
/// NALSignFile.
NAL_EXPORT int NALCreateFileP7S(unsigned char* signature, unsigned char* valueToSign, const CNALUser& user,
                                const CNALCertContext& cert, const char* srcPath, const char* outPath, IdentObj* message,
                                unsigned int flags, IdentObj& toBeSigned, CTOOFileTime& signingTime, IdentObj& contentHash,
                                CTOOString* hashOID, int* err);

/// The size that a message will have at most once this certificate's key signs: never exceeded, and at most 16 bytes too large.
///
/// @param cert         the signer's certificate, DER; its key tells the hash, as where `hashOID` is null
/// @param flags        c_NAL_SIGN_*: what NALSignData would be called with
/// @param message      the message to which the signature is added; null for a new one. Not changed
/// @param contentSize  of the content in bytes, with c_NAL_SIGN_ATTACHED; not looked at when `message` carries content
/// @param hashOID      the hash; null for the usual one
/// @return the size in bytes; 0 on failure
/// Status, context "NALGetSignaturesSizes": 12 for a message above c_NAL_MAX_MESSAGE_SIZE; 28 for an empty certificate; 73 for an
/// unknown hash; 206 for a certificate that does not decode; those of CNALSignData.
NAL_EXPORT unsigned int NALGetSignaturesSizes(IdentObj& cert, unsigned int flags, CNALSignData* message, unsigned int contentSize,
                                              const char* hashOID, int* err);
NAL_EXPORT unsigned int NALGetSignaturesSizes(CNALCertContext& cert, unsigned int flags, CNALSignData* message,
                                              unsigned int contentSize, const char* hashOID, int* err);

/// Signs a trust list (docs/trust-lists.md): GOST R 34.11-94, attributes in the order content type, message digest, signing time.
///
/// The message gets version 3, the content type c_NAL_OID_TRUST_LIST, this signature as its only one, and the signer's certificate
/// if it is not there. Certificates and CRLs of the message are not covered by the signature, and readers trust its content alone.
///
/// @param prov  the provider, open on the signer's container
/// @param hKey  the signer's key
/// @param cert  its certificate: no CA's, with the extended key usage c_NAL_OID_TRUST_LIST_SIGNING
/// @param list  in: the list's DER as eContent. Unchanged on failure
/// @throws XTOOStatus, text "NALSignTrustList": 28 without provider, key, certificate or content, or when the content lies in a
///         file; 106 when the certificate may not sign trust lists or an extension does not decode; 58 when the signature made does
///         not hold under the certificate; the provider's status
NAL_EXPORT void NALSignTrustList(CNALProvider& prov, unsigned long hKey, const CNALCertContext& cert, CNALSignData& list);
