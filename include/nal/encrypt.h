/// Encrypting for the owners of certificates, and decrypting with a user's key.
///
/// The content is encrypted once, with a fresh GOST 28147-89 key in CFB mode with key meshing; that key is wrapped for each recipient
/// under a key agreed between the recipient's public key and an ephemeral one (RFC 4490 sections 4.2 and 5.1; RFC 4357).
///
/// The mode detects no change of the content: whoever can change the message can change, bit by bit, what it decrypts to. Content that
/// must not be changed is signed before it is encrypted. A wrapped key that was changed is detected. See docs/encryption.md.
///
/// Functions with `err` store a status there and return 0 on failure; with a null `err` they throw XTOOStatus(status, context) instead.
/// Success stores 0 and returns 1. Provider keys and contexts that a call makes for itself are released before it returns. Calls are
/// thread-safe; one user object is for one thread at a time.
#pragma once

#include <list>

#include "nal/context.h"
#include "nal/enveloped_data.h"
#include "nal/export.h"
#include "nal/signed_data.h"
#include "too/ident_obj.h"

class CNALCertStorage;
class CNALUser;

/// Encrypts into a message in memory.
///
/// Whether the recipients' certificates are valid and trusted is not looked at: see NALVerifyCertificate. A certificate that is given
/// twice gets one recipient info.
///
/// @param what        the content: memory from `start` to `end`, which is encrypted in one piece, or a region of a file, which with
///                    c_NAL_CONTENT_IN_PIECES is written as pieces of c_NAL_PIECE_SIZE. At least one byte
/// @param recipients  certificates with GOST R 34.10-2001 or 34.10-94 keys, exchange keys included; at least one
/// @param message     receives the DER message; untouched on failure
/// Status: 28, context "NALEncryptMem", for no recipient or an empty one; 28, context "CNALEncryptedContentInfo::Encrypt", for no
/// content; 73 and others, context "NALExportEncryptKey", for a recipient's key that cannot be used; 12 for a message above
/// c_NAL_MAX_MESSAGE_SIZE; 14 when the progress handler cancels; those of files and of the provider.
NAL_EXPORT int NALEncryptMem(const WhatToSignStruct& what, const std::list<CNALCertContext>& recipients, IdentObj& message, int* err);

/// Encrypts into a file. As NALEncryptMem, with memory that does not grow with the content.
///
/// @param what     as there; an open end (c_NAL_TO_END_OF_FILE) is set to the file's length on success
/// @param outPath  the message: it appears whole or not at all and replaces a file of that name. Not the source (28)
NAL_EXPORT int NALEncryptFile(WhatToSignStruct& what, const std::list<CNALCertContext>& recipients, const char* outPath, int* err);

/// Decrypts a message into memory.
///
/// @param what     the message: memory from `start` to `end`, or a region of a file; what follows it there is not looked at. An open
///                 end is set to the file's length on success
/// @param user     whose keys are tried; may be null when `storage` knows containers: see CNALEnvelopedData::GetEncryptionKey
/// @param storage  certificates to find the recipient by; null for those that are bound to the user's keys
/// @param content  receives the content; untouched on failure
/// Status: 28, context "NALDecryptMem", for no message; 205 when it is no encrypted message, 206 when it is damaged; as
/// CNALEnvelopedData::GetEncryptionKey, with that context, when no key is found; 14 when the progress handler cancels.
NAL_EXPORT int NALDecryptMem(WhatToSignStruct& what, CNALUser* user, CNALCertStorage* storage, IdentObj& content, int* err);

/// Decrypts a message into a file. As NALDecryptMem, with context "NALDecryptFile" and memory that does not grow with the content.
///
/// The plaintext is written to a file without a name, which gets its name when all is decrypted: a failure leaves none, and neither does
/// the death of the process. (Where the file system knows no such files it is a file beside the target, removed on failure.)
///
/// @param outPath  appears whole or not at all and replaces a file of that name. Not the message (28)
NAL_EXPORT int NALDecryptFile(WhatToSignStruct& what, CNALUser* user, CNALCertStorage* storage, const char* outPath, int* err);

/// Wraps a session key for one recipient, under a key agreed with a fresh ephemeral key of the recipient's parameter sets.
///
/// @param hSessionKey  an exportable GOST 28147-89 key of the provider
/// @param recipient    in: the recipient's public key, as its certificate holds it. Out: `m_publicKey` holds the DER of
///                     GostR3410-KeyTransport { wrapped key, its MAC, ephemeral public key, UKM } (RFC 4490 section 4.2.1), which goes
///                     into a message as encryptedKey; `m_algorithm` stays and goes with it. Untouched on failure
/// @return TRUE; or FALSE with the last error, the provider's: 0x80090008 for a key of an unknown algorithm or parameter set
NAL_EXPORT int NALExportEncryptKey(unsigned long hSessionKey, CNALCertPublicKeyInfo& recipient);
