/// Signed messages: the model of CMS SignedData and its codec, in memory and over files.
///
///     ContentInfo ::= SEQUENCE { contentType OBJECT IDENTIFIER, content [0] EXPLICIT SignedData }
///     SignedData  ::= SEQUENCE { version INTEGER, digestAlgorithms SET OF AlgorithmIdentifier,
///                                encapContentInfo SEQUENCE { eContentType OBJECT IDENTIFIER,
///                                                            eContent [0] EXPLICIT OCTET STRING OPTIONAL },
///                                certificates [0] IMPLICIT SET OPTIONAL, crls [1] IMPLICIT SET OPTIONAL,
///                                signerInfos SET OF SignerInfo }
///
/// Source: RFC 5652 sections 3, 5.1 to 5.3; the value of a GOST signature as RFC 4490 section 3 writes it.
///
/// The content may be carried in the message (attached) or kept elsewhere (detached); attached content that is a region
/// of a file is streamed and never held in memory. docs/messages.md tells what is read, what is written and the limits.
/// Nothing here makes or checks a signature.
///
/// Functions with `err` store a status there and return 0 or an empty object on failure; with a null `err` they throw
/// XTOOStatus(status, context) instead. Success stores 0. Failures of files carry the statuses of CTOOFile and a text
/// that names the file. All classes are values (deep copies); distinct objects may be used by several threads at once.
#pragma once

#include <cstdint>
#include <list>
#include <memory>

#include "asnt/records.h"
#include "nal/algorithm.h"
#include "nal/attributes.h"
#include "nal/export.h"
#include "nal/name.h"
#include "too/bit_blob.h"
#include "too/file.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

inline constexpr char c_NAL_OID_DATA[] = "1.2.840.113549.1.7.1";         ///< id-data, RFC 5652 section 4
inline constexpr char c_NAL_OID_SIGNED_DATA[] = "1.2.840.113549.1.7.2";  ///< id-signedData, RFC 5652 section 5.1

/// The largest message as a whole, in bytes.
inline constexpr DWORD c_NAL_MAX_MESSAGE_SIZE = 0xFFFFFFFE;

/// Bits of WhatToSignStruct::flags.
inline constexpr DWORD c_NAL_CONTENT_IN_FILE = 1;    ///< `data` is the path of a file
inline constexpr DWORD c_NAL_CONTENT_IN_PIECES = 2;  ///< of a file: the region is a run of encoded pieces, see below

/// `end` of a file region that goes to the end of the file.
inline constexpr DWORD c_NAL_TO_END_OF_FILE = 0xFFFFFFFF;

/// Where content lies: a part of a memory block or a region of a file. The caller owns what it points to.
///
/// With c_NAL_CONTENT_IN_PIECES the region of the file is not the content itself: it holds elements whose contents,
/// joined, are the content, and behind them two bytes that do not count (the end-of-contents marker that closes an
/// OCTET STRING of indefinite length).
struct WhatToSignStruct {
    DWORD flags = 0;              ///< c_NAL_CONTENT_*
    DWORD options = 0;            ///< how to sign; not looked at here
    const void* data = nullptr;   ///< the bytes, or the zero-terminated path
    DWORD start = 0;              ///< offset of the first byte
    DWORD end = 0;                ///< offset behind the last byte
    std::uint64_t parameter = 0;  ///< the caller's own; copied and never looked at
};

/// A WhatToSignStruct that owns its path when it names a file; of a memory block it owns nothing.
class NAL_EXPORT CNALContentSource : public WhatToSignStruct {
public:
    CNALContentSource() = default;
    CNALContentSource(const WhatToSignStruct& what) { Assign(what); }  // NOLINT(google-explicit-constructor)
    CNALContentSource(const CNALContentSource& other) : WhatToSignStruct(other) { Assign(other); }
    CNALContentSource& operator=(const CNALContentSource& other) {
        Assign(other);
        return *this;
    }
    ~CNALContentSource() = default;

    /// True when a file region is named.
    bool IsFile() const { return (flags & c_NAL_CONTENT_IN_FILE) != 0; }
    /// The path of the file; empty when there is none.
    CTOOString GetPath() const { return IsFile() ? CTOOString(static_cast<const char*>(data)) : CTOOString(); }

private:
    void Assign(const WhatToSignStruct& what);

    CTOOString m_path;
};

/// One signature of a message: who made it, with what, and over which attributes.
///
///     SignerInfo ::= SEQUENCE { version INTEGER, sid CHOICE { issuerAndSerialNumber, subjectKeyIdentifier [0] },
///                               digestAlgorithm, signedAttrs [0] IMPLICIT OPTIONAL, signatureAlgorithm,
///                               signature OCTET STRING, unsignedAttrs [1] IMPLICIT OPTIONAL }
class NAL_EXPORT CNALMessageSignerInfo {
public:
    CNALMessageSignerInfo();
    CNALMessageSignerInfo(const CNALMessageSignerInfo&);
    CNALMessageSignerInfo(CNALMessageSignerInfo&&) noexcept;
    CNALMessageSignerInfo& operator=(const CNALMessageSignerInfo&);
    CNALMessageSignerInfo& operator=(CNALMessageSignerInfo&&) noexcept;
    virtual ~CNALMessageSignerInfo();

    /// Writes the SignerInfo; `version` is set to what the signer identifier asks for.
    /// Status: 36, context "CNALMessageSignerInfo::WriteData", when a part is missing or cannot be encoded.
    IdentObj WriteData(int* err);

    /// Reads the SignerInfo at the start of `data`, which must be DER throughout. The attributes' bytes are kept as
    /// they are.
    /// @return the bytes consumed; 0 on failure, and then the object is as a new one
    /// Status: 206, context "MessageSignerInfo", which is also logged. Refused too: attributes that are present but
    /// none, and an empty key identifier, since they would be lost when written again.
    unsigned ReadData(const void* data, unsigned len, int* err);

    /// The bytes whose hash the signature covers: the signed attributes as they stand, under the tag of a SET OF.
    /// @param order  AsGiven: as received. Sorted: as DER orders them, for signers that sorted before they signed and
    ///               not when they wrote
    /// @return the encoding, first octet 0x31; empty when there are no signed attributes (the signature is then over
    ///         the content's hash). RFC 5652 section 5.4
    IdentObj GetBytesToSign(asnt::Order order = asnt::Order::AsGiven) const;

    /// The time of the signing-time attribute.
    /// @return the time; zero on failure
    /// Status, context "CNALMessageSignerInfo::GetSigningDate": 194 when there is none, 206 when it is repeated, does
    /// not have one value, or that is no time.
    CTOOFileTime GetSigningDate(int* err) const;

    CTOOCryptBitBlob signerUniqueID;  ///< not part of the encoding; the caller's
    std::int32_t version = 1;         ///< as read; written as 1, or as 3 with a key identifier
    CNALX509Name issuer;              ///< DER of the issuer's name; empty with a key identifier
    IdentObj serialNumber;            ///< content octets of the INTEGER, as DER has them
    IdentObj subjectKeyIdentifier;    ///< not empty: names the signer in the place of issuer and serial number
    CNALAlgorithmIdentifier digestAlgorithm;
    CNALAlgorithmIdentifier signatureAlgorithm;
    /// In the provider's order, least significant byte first: the reverse of the encoding, which is turned in
    /// WriteData and ReadData and nowhere else.
    IdentObj signature;
    CNALAttributesList signedAttrs;    ///< empty: not written
    CNALAttributesList unsignedAttrs;  ///< likewise
};

/// Compare what identifies the signer, byte by byte: key identifier, issuer, serial number.
NAL_EXPORT bool operator==(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b);
NAL_EXPORT bool operator<(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b);
inline bool operator!=(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b) {
    return !(a == b);
}
inline bool operator>(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b) {
    return b < a;
}

/// One signature as verification and editing see it. Compares as its signer info.
class NAL_EXPORT CNALWholeSignature {
public:
    CNALWholeSignature();
    CNALWholeSignature(const CNALWholeSignature&);
    CNALWholeSignature(CNALWholeSignature&&) noexcept;
    CNALWholeSignature& operator=(const CNALWholeSignature&);
    CNALWholeSignature& operator=(CNALWholeSignature&&) noexcept;
    virtual ~CNALWholeSignature();

    CTOOCryptBitBlob GetSignerUniqueID() const { return signerInfo.signerUniqueID; }

    IdentObj encoded;                  ///< the DER of the signer info as the message holds it
    CNALMessageSignerInfo signerInfo;  ///< the same, decoded
    DWORD index = 0;                   ///< its place among the message's signer infos, counted from 0
};

inline bool operator==(const CNALWholeSignature& a, const CNALWholeSignature& b) {
    return a.signerInfo == b.signerInfo;
}
inline bool operator!=(const CNALWholeSignature& a, const CNALWholeSignature& b) {
    return !(a == b);
}
inline bool operator<(const CNALWholeSignature& a, const CNALWholeSignature& b) {
    return a.signerInfo < b.signerInfo;
}
inline bool operator>(const CNALWholeSignature& a, const CNALWholeSignature& b) {
    return b < a;
}

/// A whole message of type signedData. Lists keep the order in which their elements were read or added.
class NAL_EXPORT CNALSignData {
public:
    /// A detached message of version 1 without anything in it.
    CNALSignData();

    /// Makes `what` the content of this message and id-data its type. A file is only named, not read; bytes are copied.
    /// @return 1; 0 on failure, with the message unchanged
    /// Status, context "CNALSignData::AttachData": 28 for a null pointer (fine for no bytes); 37 when a memory block's
    /// end lies before its start; 4, with the path as context, when there is no such file.
    int AttachData(const WhatToSignStruct& what, int* err);

    /// Hands the content over and leaves the message detached.
    ///
    /// @param what  says where to: with c_NAL_CONTENT_IN_FILE `data` is the path of a file, which appears whole or not
    ///              at all and replaces one of that name. Otherwise `data` is set to bytes that stay this message's:
    ///              they are valid until it is read, attached, detached, assigned to or destroyed. On success `start`
    ///              becomes 0, `end` the length and c_NAL_CONTENT_IN_PIECES is cleared
    /// @return 1; 0 on failure, with message, `what` and file unchanged
    /// Status, context "CNALSignData::DetachData": 28 for a null path; 42 when the message has no content; 4, 5 and 37
    /// as WriteObject, 14 when the progress handler cancels, and those of files.
    int DetachData(WhatToSignStruct& what, int* err);

    /// The whole message as DER, content in one piece. An open end of a file region is set to the file's length.
    ///
    /// Status, context "CNALSignData::WriteObject": 4, with the path as context, when the content's file is not there;
    /// 37 when the region lies beyond its end; 5 when the file ends before the region does; 206 for pieces that are
    /// damaged; 12 when the message would be larger than c_NAL_MAX_MESSAGE_SIZE; 36 for everything that cannot be
    /// encoded, lists' elements that are not one DER element included; 14 when the progress handler cancels.
    IdentObj WriteObject(int* err);

    /// Writes the same bytes at the position of an open file, copying a file's content once through a small buffer.
    ///
    /// Every size is known and checked before the first byte is written. When writing fails the file is cut back to
    /// its length before; output that must appear whole or not at all is written to a CTOOWholeFile.
    ///
    /// @param file   open for writing; not the file that holds the content (28)
    /// @param flags  reserved: not looked at
    /// @return 1
    /// @throws XTOOStatus as WriteObject, with context "CNALSignData::WriteData"; XTOOFile
    int WriteObject(CTOOFile& file, unsigned int flags);

    /// Replaces this message by the one at the start of `data`, content included. Takes DER; around the content and for
    /// it also indefinite lengths and pieces (BER), which are joined.
    /// @return 1; 0 on failure, and then this is an empty message
    /// Status, context "CNALSignData::ReadObject": 205 when it is no signed message; 194 when it is an empty SEQUENCE;
    /// 206 when an element inside is damaged or of a wrong type; 12 when there are too many elements (docs/messages.md).
    int ReadObject(const unsigned char* data, unsigned int len, int* err);

    /// Replaces this message by the one at `offset` of an open file. Attached content is not loaded: `dataSource` then
    /// names its region of the file (by the path with which the file was opened), with c_NAL_CONTENT_IN_PIECES when it
    /// is stored so. Moves the file's position.
    /// @return 1; 0 on failure, and then this is an empty message
    /// Status: as above; 12 also when there are more than 256 MiB beside the content or the content ends behind 4 GiB.
    int ReadObject(const CTOOFile& file, unsigned int offset, int* err);

    /// Replaces this message by a parsed one. @throws XTOOStatus as ReadObject, with this message then empty
    void FillEntry(const CASNTUnit& unit);

    /// Take one element of SignedData, as its whole encoding: digestAlgorithms, encapContentInfo, certificates, crls.
    /// What it holds replaces what this message has there. @throws XTOOStatus as ReadObject, with nothing changed
    void ReadObject_AlgList(const IdentObj& element);
    void ReadObject_EncapsContentInfo(const IdentObj& element);
    void ReadObject_CertificateSet(const IdentObj& element);
    void ReadObject_CRLList(const IdentObj& element);

    /// The size of what SignedData holds beside the content, in bytes: 12, then digest algorithms, content type, 4 and
    /// certificates, 4 and CRLs, 4 and signer infos. 0xFFFFFFFF when it is more.
    unsigned int GetDataSize() const;
    /// The size of what WriteObject writes, in bytes, content included. @throws XTOOStatus as WriteObject
    unsigned int GetObjectSize() const;

    /// A copy of `signerInfos`. Never fails; stores 0.
    std::list<IdentObj> GetSigersInfo(int* err) const;

    /// Whether content is carried: a file region, or bytes in memory.
    bool IsAttached() const { return dataSource.IsFile() || !eContent.IsEmpty(); }

    std::int32_t version = 1;
    std::list<CNALAlgorithmIdentifier> digestAlgorithms;
    CASNTIdData eContentType;          ///< type of the content; id-data at first
    IdentObj eContent;                 ///< content in memory; empty when detached or in a file
    std::list<IdentObj> certificates;  ///< each one DER element: a certificate, or another form with its tag
    std::list<IdentObj> crls;          ///< likewise
    std::list<IdentObj> signerInfos;   ///< each the DER of a SignerInfo
    IdentObj contentType;              ///< dotted text of the outer type, id-signedData
    CNALContentSource dataSource;      ///< a file region when the content lies in one; else all zero

private:
    std::shared_ptr<const IdentObj> m_detached;  // what DetachData handed out
};
