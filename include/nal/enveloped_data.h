/// Encrypted messages: the model of CMS EnvelopedData and its codec, in memory and over files.
///
///     ContentInfo   ::= SEQUENCE { contentType OBJECT IDENTIFIER, content [0] EXPLICIT EnvelopedData }
///     EnvelopedData ::= SEQUENCE { version INTEGER, originatorInfo [0] IMPLICIT OPTIONAL, recipientInfos SET,
///                                  encryptedContentInfo SEQUENCE { contentType OBJECT IDENTIFIER,
///                                                                  contentEncryptionAlgorithm AlgorithmIdentifier,
///                                                                  encryptedContent [0] IMPLICIT OCTET STRING },
///                                  unprotectedAttrs [1] IMPLICIT SET OPTIONAL }
///
/// Source: RFC 5652 sections 3, 6.1 and 6.2; keys and parameters as RFC 4490 sections 4 and 5 write them.
///
/// Encrypted content that lies in a file is named, not held in memory. docs/encryption.md tells what is read and written, and
/// what protection the encryption gives: it hides content, it does not guard it against changes.
///
/// Functions with `err` store a status there and return 0 or an empty object on failure; with a null `err` they throw
/// XTOOStatus(status, context) instead. Success stores 0. Failures of files carry the statuses of CTOOFile and a text
/// that names the file. All classes are values (deep copies); distinct objects may be used by several threads at once.
#pragma once

#include <cstdint>
#include <list>

#include "nal/algorithm.h"
#include "nal/attributes.h"
#include "nal/export.h"
#include "nal/signed_data.h"
#include "too/file.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

class CNALCertContext;
class CNALCertStorage;
class CNALProvider;
class CNALUser;

inline constexpr char c_NAL_OID_ENVELOPED_DATA[] = "1.2.840.113549.1.7.3";  ///< id-envelopedData, RFC 5652 section 6
inline constexpr char c_NAL_OID_GOST28147[] = "1.2.643.2.2.21";             ///< GOST 28147-89 in CFB mode, RFC 4490 section 5.1

/// Bits of CNALEncryptedContentInfo::contentFlags.
inline constexpr DWORD c_NAL_ENCRYPTED_CONTENT = 1;            ///< there is encrypted content
inline constexpr DWORD c_NAL_ENCRYPTED_CONTENT_IN_PIECES = 2;  ///< it is a run of OCTET STRINGs (constructed encoding)

/// Plaintext bytes of a piece of content that this library writes in pieces; the last piece may be shorter.
inline constexpr DWORD c_NAL_PIECE_SIZE = 4096;

/// Certificates and CRLs that the originator put into the message. This library writes none.
///
///     originatorInfo [0] IMPLICIT SEQUENCE { certs [0] IMPLICIT SET OPTIONAL, crls [1] IMPLICIT SET OPTIONAL }
class NAL_EXPORT CNALOriginatorInfo {
public:
    /// Reads the element [0] at the start of `data`. The lists may also stand as plain SETs, certificates first.
    /// @return 1; 0 on failure, and then this is empty
    /// Status, context "CNALOriginatorInfo::ReadObject": 28 for no data, 206 for a damaged element, 12 for too many elements.
    int ReadObject(const unsigned char* data, unsigned int len, int* err);
    /// The element [0]; empty lists are left out. Status: 36, context "CNALOriginatorInfo::WriteObject", for an element of a list
    /// that is not one DER element.
    IdentObj WriteObject(int* err) const;
    /// The size of what WriteObject writes. @throws as WriteObject
    unsigned int GetObjectSize() const;

    bool IsEmpty() const { return certificates.empty() && crls.empty(); }

    std::list<IdentObj> certificates;  ///< each one complete DER element
    std::list<IdentObj> crls;          ///< likewise
};

/// One recipient whose key takes the session key by key transport.
///
///     KeyTransRecipientInfo ::= SEQUENCE { version INTEGER, rid CHOICE { issuerAndSerialNumber, subjectKeyIdentifier [0] },
///                                          keyEncryptionAlgorithm AlgorithmIdentifier, encryptedKey OCTET STRING }
class NAL_EXPORT CNALTransRecipientInfo {
public:
    CNALTransRecipientInfo() = default;
    /// The recipient that a certificate names, by issuer and serial number and with the algorithm of its key; no key yet.
    /// @throws XTOOStatus(28) for an empty context; XTOOStatus(206) for a certificate that does not decode
    explicit CNALTransRecipientInfo(const CNALCertContext& cert);

    /// Reads the element at the start of `data`, DER throughout.
    /// @return 1; 0 on failure, and then this is as a new object
    /// Status, context "CNALTransRecipientInfo::ReadObject": 28 for no data; 56 for a recipient of another form (key agreement and
    /// those that RFC 5652 section 6.2 adds); 206 for a damaged element.
    int ReadObject(const unsigned char* data, unsigned int len, int* err);
    /// The element; with a key identifier that names the recipient, else issuer and serial number.
    /// Status: 42, context "CNALTransRecipientInfo::WriteObject", when a part is missing or cannot be encoded.
    IdentObj WriteObject(int* err) const;
    /// The size of what WriteObject writes. @throws as WriteObject
    unsigned int GetObjectSize() const;

    /// Whether the recipient is the owner of `cert`, by whichever identifier the message has.
    /// @return false for an empty context and for a certificate that does not decode
    bool IsFor(const CNALCertContext& cert) const;

    std::int32_t version = 0;         ///< written as it stands: 0 with issuer and serial number, 2 with a key identifier
    IdentObj issuer;                  ///< DER of the issuer's name
    IdentObj serialNumber;            ///< content octets of the INTEGER, as DER has them
    IdentObj subjectKeyIdentifier;    ///< not empty: names the recipient in the place of issuer and serial number
    IdentObj keyEncryptionAlgorithm;  ///< DER of the AlgorithmIdentifier: that of the recipient's public key
    IdentObj encryptedKey;            ///< content of the OCTET STRING: DER of GostR3410-KeyTransport (RFC 4490 section 4.2)
};

/// Recipients whose keys agree with one key of the originator. Such messages are read, never written.
///
///     [1] IMPLICIT SEQUENCE { version INTEGER (3), originator [0] EXPLICIT CHOICE { ..., originatorKey [1] },
///                             ukm [1] EXPLICIT OCTET STRING OPTIONAL, keyEncryptionAlgorithm AlgorithmIdentifier,
///                             recipientEncryptedKeys SEQUENCE OF SEQUENCE { rid, encryptedKey OCTET STRING } }
///
/// Source: RFC 5652 section 6.2.2, RFC 4490 section 4.1.
class NAL_EXPORT CNALAgreeRecipientInfo {
public:
    /// One of the recipients; the fields are those of CNALTransRecipientInfo.
    struct NAL_EXPORT Recipient {
        /// As CNALTransRecipientInfo::IsFor.
        bool IsFor(const CNALCertContext& cert) const;

        IdentObj issuer;
        IdentObj serialNumber;
        IdentObj subjectKeyIdentifier;
        IdentObj encryptedKey;  ///< DER of Gost28147-89-EncryptedKey
    };

    /// Reads the element [1] at the start of `data`, DER throughout.
    /// @return 1; 0 on failure, and then this is as a new object
    /// Status, context "CNALAgreeRecipientInfo::ReadObject": 28 for no data; 56 for a recipient of another form and for an
    /// originator that is named instead of giving its key; 206 for a damaged element.
    int ReadObject(const unsigned char* data, unsigned int len, int* err);

    std::int32_t version = 0;
    CNALCertPublicKeyInfo originatorKey;
    IdentObj ukm;                                    ///< empty when there is none
    CNALAlgorithmIdentifier keyEncryptionAlgorithm;  ///< the agreement; its parameters are the AlgorithmIdentifier of the wrap
    std::list<Recipient> recipients;
};

/// What is encrypted, how, and where it lies.
///
/// The bytes that contentFlags, encryptedLength and the place speak of are those inside the element [0]: the encrypted bytes, or
/// with c_NAL_ENCRYPTED_CONTENT_IN_PIECES the elements that hold them. They are written again as they were read.
class NAL_EXPORT CNALEncryptedContentInfo {
public:
    /// The SEQUENCE. Status, context "CNALEncryptedContentInfo::WriteObject": 28 without content or with content of no bytes;
    /// 36 when a part cannot be encoded; 4, 5 and 37 when the file of the content is gone or too short.
    IdentObj WriteObject(int* err = nullptr) const;
    /// Writes the same bytes at the position of an open file, copying a file's content through a small buffer.
    /// On failure the file is cut back to its length before. @throws XTOOStatus as WriteObject; XTOOFile
    void WriteObject(CTOOFile& file) const;

    /// Reads the SEQUENCE at the start of `data`: DER, and around and in the content also BER.
    /// @return the bytes consumed
    /// @throws XTOOStatus, context "CNALEncryptedContentInfo::ReadObject": 28 for no data; 205 when it is no such SEQUENCE; 206 when
    ///         an element inside is damaged. This is then as a new object
    unsigned int ReadObject(const unsigned char* data, unsigned int len);
    /// Reads it at the position of an open file, which moves behind it. The content stays there. @throws as above; XTOOFile
    void ReadObject(const CTOOFile& file);

    /// The size of what WriteObject writes. @throws as WriteObject
    unsigned int GetObjectSize() const;

    /// How many bytes the content has when decrypted.
    unsigned int GetOpenTextSize() const { return openTextSize; }
    /// How many bytes the encrypted content of a plaintext takes: one for one, and 4 more for each piece of c_NAL_PIECE_SIZE.
    /// @param hKey   the session key; not looked at, since GOST 28147-89 in CFB mode adds nothing; may be 0
    /// @param flags  c_NAL_ENCRYPTED_CONTENT_IN_PIECES or 0
    /// @throws XTOOStatus(12, "CNALEncryptedContentInfo::GetEncryptSize") when that is more than a message can hold
    unsigned int GetEncryptSize(unsigned long hKey, unsigned int openSize, unsigned int flags) const;

    /// Encrypts content and fills every field of this object.
    ///
    /// @param hSessionKey  a GOST 28147-89 key, whose parameter set and initialisation vector are used and recorded. Its parameter
    ///                     101 is set to 1
    /// @param outFile      where the encrypted content goes, at its position; this object then names that place. Null: into
    ///                     `encryptedContent`
    /// @param what         the content: memory, or a region of a file; with c_NAL_CONTENT_IN_PIECES the encrypted content of a file
    ///                     is written in pieces. The region itself is always plain bytes here
    /// @return 1; 0 on failure, and then this object is unchanged and the file has its length before
    /// Status, context "CNALEncryptedContentInfo::Encrypt": 28 for no content, a null pointer, or an output that is the source;
    /// 4, 37 for a file or region that is not there; 12 when it is too large; 14 when the progress handler cancels; the provider's.
    int Encrypt(unsigned long hSessionKey, CTOOFile* outFile, const WhatToSignStruct& what, int* err);
    /// Decrypts the content.
    ///
    /// @param hSessionKey  the key, as GetEncryptionKey gives it
    /// @param outFile      where the content goes, at its position; null: into `content`
    /// @param content      receives the content when `outFile` is null; untouched on failure
    /// @return 1; 0 on failure: part of the content may have been written, and the file is then cut back to its length before
    /// Status, context "CNALEncryptedContentInfo::Decrypt": 28 for a null output; 206 for pieces that are damaged; as Encrypt.
    int Decrypt(unsigned long hSessionKey, CTOOFile* outFile, IdentObj* content, int* err) const;

    CTOOString contentType = c_NAL_OID_DATA;             ///< of the plaintext
    CNALAlgorithmIdentifier contentEncryptionAlgorithm;  ///< 1.2.643.2.2.21 with { iv OCTET STRING, encryptionParamSet OID }
    DWORD contentFlags = 0;                              ///< c_NAL_ENCRYPTED_CONTENT*
    DWORD openTextSize = 0;                              ///< bytes of the plaintext
    DWORD encryptedLength = 0;                           ///< bytes of the content as encoded, headers of pieces included
    CTOOString contentPath;                              ///< the file that holds the content; empty: it is in memory
    IdentObj encryptedContent;                           ///< the content in memory
    DWORD contentOffset = 0;                             ///< where in the file it begins
};

/// A whole message of type envelopedData. Lists keep the order in which their elements were read or added.
class NAL_EXPORT CNALEnvelopedData {
public:
    CNALEnvelopedData();
    CNALEnvelopedData(const CNALEnvelopedData&);
    CNALEnvelopedData(CNALEnvelopedData&&) noexcept;
    CNALEnvelopedData& operator=(const CNALEnvelopedData&);
    CNALEnvelopedData& operator=(CNALEnvelopedData&&) noexcept;
    ~CNALEnvelopedData();

    /// The whole message as DER (its content's pieces as they are).
    ///
    /// Status: as the parts' WriteObject, with their contexts; 36, context "CNALEnvelopedData::WriteObject", for what else cannot be
    /// encoded; 12 when the message would be larger than c_NAL_MAX_MESSAGE_SIZE; 14 when the progress handler cancels.
    IdentObj WriteObject(int* err) const;
    /// Writes the same bytes at the position of an open file, copying a file's content once through a small buffer. Every size is
    /// known and checked before the first byte is written. On failure the file is cut back to its length before.
    /// @param file  open for writing; not the file that holds the content (28)
    /// @return 1; 0 on failure
    int WriteObject(CTOOFile& file, int* err) const;

    /// Replaces this message by the one at the start of `data`, content included. Takes DER; around the content and for it also
    /// indefinite lengths and pieces (BER). Recipients must be DER.
    /// @return 1; 0 on failure, and then this is an empty message
    /// Status, context "CNALEnvelopedData::ReadObject": 28 for no data; 205 when it is no encrypted message; 206 when an element
    /// inside is damaged or of a wrong type; 12 when there are too many elements (docs/encryption.md).
    int ReadObject(const unsigned char* data, unsigned int len, int* err);
    /// Replaces this message by the one at the position of an open file. The content is not loaded: `encryptedContentInfo` names its
    /// place by the path with which the file was opened. Moves the file's position.
    /// @return 1; 0 on failure, and then this is an empty message
    /// Status: as above; 12 also when there are more than 256 MiB beside the content or the content ends behind 4 GiB.
    int ReadObject(const CTOOFile& file, int* err);

    /// Finds the session key: the recipient whose certificate's private key is at hand, and the key that is wrapped for it.
    ///
    /// Certificates that are tried: those bound to the keys of `user`, then those of `storage` that the message names. The private key
    /// is the user's; of a certificate in `storage` that `user` has no key for, or without a user, it is that of the container that the
    /// certificate's property 2 names, when that opens without a password. Nothing of the content is read.
    ///
    /// @param user      whose keys are tried; null for none
    /// @param storage   certificates; null for none
    /// @param provider  receives the provider context that `hKey` belongs to
    /// @param hKey      receives the session key, ready to decrypt (parameter set, initialisation vector and key meshing are set); the
    ///                  caller destroys it. Untouched on failure
    /// @return 1; 0 on failure
    /// Status, context "CNALEnvelopedData::GetEncryptionKey": 28 when both are null; 32 when no recipient is ours; 73 for a content
    /// cipher or a parameter set that is not known; 206 for a wrapped key that is damaged; what the provider says of a wrapped key that
    /// does not fit (0x80090005 as status), of a key on another curve or off its curve, or of a container that wants a password (86).
    /// When several recipients are ours, that of the last one tried.
    int GetEncryptionKey(CNALUser* user, CNALCertStorage* storage, CNALProvider& provider, unsigned long& hKey, int* err) const;

    std::int32_t version = 0;  ///< written as it stands
    CNALOriginatorInfo originatorInfo;
    std::list<CNALTransRecipientInfo> recipientInfos;
    CNALEncryptedContentInfo encryptedContentInfo;
    CNALAttributesList unprotectedAttrs;
    std::list<IdentObj> otherRecipientInfos;  ///< recipients of other forms, each as its DER; written behind `recipientInfos`
};

/// What NALGetFormatFlags finds, as bits.
inline constexpr unsigned c_NAL_FORMAT_CMS = 0x1;                 ///< a CMS message (RFC 5652, PKCS #7); exactly one kind goes with it:
inline constexpr unsigned c_NAL_FORMAT_DATA = 0x10;               ///< id-data, 1.2.840.113549.1.7.1
inline constexpr unsigned c_NAL_FORMAT_SIGNED = 0x20;             ///< signedData, ...1.7.2
inline constexpr unsigned c_NAL_FORMAT_ENVELOPED = 0x40;          ///< envelopedData, ...1.7.3
inline constexpr unsigned c_NAL_FORMAT_SIGNED_ENVELOPED = 0x80;   ///< signedAndEnvelopedData of PKCS #7, ...1.7.4
inline constexpr unsigned c_NAL_FORMAT_DIGESTED = 0x100;          ///< digestedData, ...1.7.5
inline constexpr unsigned c_NAL_FORMAT_ENCRYPTED = 0x200;         ///< encryptedData, ...1.7.6
inline constexpr unsigned c_NAL_FORMAT_OTHER = 0x400;             ///< another type under 1.2.840.113549.1.7
inline constexpr unsigned c_NAL_FORMAT_INDEFINITE = 0x2;          ///< its outer length is indefinite (BER)
inline constexpr unsigned c_NAL_FORMAT_WHOLE = 0x4;               ///< `data` hold the whole of a message of definite length

/// Tells from the start of some bytes whether they are a CMS message, and of which kind. Reads headers only: it does not say that
/// the message is intact. The first 32 bytes of a file are enough.
///
/// @param data     the bytes; null is taken as none
/// @param content  if not null, receives the encoding of what the message holds (SignedData, EnvelopedData, ...) when
///                 c_NAL_FORMAT_WHOLE is set, and is emptied otherwise
/// @return c_NAL_FORMAT_* bits; 0 for anything that is not a CMS message. Never fails. Thread-safe.
NAL_EXPORT unsigned int NALGetFormatFlags(const unsigned char* data, unsigned int len, IdentObj* content);
