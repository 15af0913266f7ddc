/// Checking the signatures of messages, and taking signed content out of its message.
///
/// What a result says. A status of 0 means: the content and the signed attributes are, byte for byte, what the holder of the
/// certificate's key signed; the certificate was valid at the time that the signer named, and may sign. It does not mean that
/// anybody vouches for the certificate: status 0 alone is not trust. A program that asks "is this from whom it says?" uses the
/// overloads that also give each signer's chain status, and accepts a signature when both are 0. docs/verification.md says more.
///
/// A status is never 0 by default; it becomes 0 when every check passed.
///
/// What is not signed proves nothing: a message's certificates and CRLs, its unsigned attributes, the signer identifier. The
/// signing time is what the signer says it was.
///
/// Functions with `err` store a status there and return 0 on failure; with a null `err` they throw XTOOStatus(status, context).
/// Success stores 0. All functions may be called from any thread, and hold no lock but those of the storages' searches. With the
/// thread's progress handler (nal/progress.h) the content's bytes are counted.
///
/// Source: RFC 5652 sections 5.4, 5.6 and 11; RFC 4490 section 3.
#pragma once

#include <list>

#include "nal/certificate.h"
#include "nal/export.h"
#include "nal/signed_data.h"
#include "nal/storage.h"
#include "nal/wincrypt.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

/// What a check found about one signature (CNALWholeSignatureCheck::status). No other values occur.
inline constexpr DWORD c_NAL_SIGNATURE_VALID = 0;
/// No certificate of the signer was found, or the signer info cannot be read.
inline constexpr DWORD c_NAL_SIGNER_NOT_FOUND = 0x80096002;
/// The signing time lies outside the validity of every certificate of the signer.
inline constexpr DWORD c_NAL_SIGNING_TIME_INVALID = 0x80096005;
/// The content is not the one that was signed, the signature does not hold under the signer's key, or the signed attributes are
/// not such that it could: no message digest, or one of the three known attributes repeated or without exactly one value.
inline constexpr DWORD c_NAL_SIGNATURE_INVALID = 0x80090006;
/// The content is said to be of another type than was signed.
inline constexpr DWORD c_NAL_CONTENT_TYPE_INVALID = 0x80090005;
/// The signature holds, but the certificate may not sign: its key usage, its private-key usage period, that it is a CA's, or that
/// it expired since.
inline constexpr DWORD c_NAL_SIGNER_NOT_ALLOWED = 0x800B0110;

/// One signature and what the check of it found. Compares as its signer info.
class NAL_EXPORT CNALWholeSignatureCheck : public CNALWholeSignature {
public:
    CNALWholeSignatureCheck();
    /// The signature, not yet checked: status c_NAL_SIGNER_NOT_FOUND.
    explicit CNALWholeSignatureCheck(const CNALWholeSignature& signature);
    explicit CNALWholeSignatureCheck(CNALWholeSignature&& signature) noexcept;
    CNALWholeSignatureCheck(const CNALWholeSignatureCheck&);
    CNALWholeSignatureCheck(CNALWholeSignatureCheck&&) noexcept;
    CNALWholeSignatureCheck& operator=(const CNALWholeSignatureCheck&);
    CNALWholeSignatureCheck& operator=(CNALWholeSignatureCheck&&) noexcept;
    ~CNALWholeSignatureCheck() override;

    bool IsValid() const { return status == c_NAL_SIGNATURE_VALID; }

    /// DER of the certificate that the status speaks of; empty when no certificate of the signer was found. With a status that is
    /// found before a certificate is needed, the one that the signer info names.
    IdentObj signerCertificate;
    DWORD status = c_NAL_SIGNER_NOT_FOUND;
    CTOOString statusText;  ///< NALGetWinErrorExplaination of the status, set by the functions below
};

/// The same with the certificate decoded, for programs that show it. Compares as its signer info.
class NAL_EXPORT CNALSignerInfoCheck {
public:
    CNALSignerInfoCheck();
    /// @throws as CNALX509Certificate::ReadEncodetData for a certificate that does not decode
    explicit CNALSignerInfoCheck(const CNALWholeSignatureCheck& check);
    CNALSignerInfoCheck(const CNALSignerInfoCheck&);
    CNALSignerInfoCheck(CNALSignerInfoCheck&&) noexcept;
    CNALSignerInfoCheck& operator=(const CNALSignerInfoCheck&);
    CNALSignerInfoCheck& operator=(CNALSignerInfoCheck&&) noexcept;
    virtual ~CNALSignerInfoCheck();

    CNALMessageSignerInfo signerInfo;
    CNALX509Certificate certificate;  ///< as a new object when no certificate was found
    IdentObj encoded;                 ///< the DER of the signer info
    DWORD status = 0;                 ///< as CNALWholeSignatureCheck::status; meaningless in a new object
    CTOOString statusText;
};

inline bool operator==(const CNALSignerInfoCheck& a, const CNALSignerInfoCheck& b) {
    return a.signerInfo == b.signerInfo;
}
inline bool operator!=(const CNALSignerInfoCheck& a, const CNALSignerInfoCheck& b) {
    return !(a == b);
}
inline bool operator<(const CNALSignerInfoCheck& a, const CNALSignerInfoCheck& b) {
    return a.signerInfo < b.signerInfo;
}
inline bool operator>(const CNALSignerInfoCheck& a, const CNALSignerInfoCheck& b) {
    return b < a;
}

/// Checks every signature of a signed file.
///
/// The content is read once, however many signers there are, and never held in memory.
///
/// @param results  cleared; receives a record per signer info, in the message's order. Empty on failure
/// @param path     the file that is the message (attached); with `message`, the file that was signed
/// @param message  the message when it lies beside its content (detached); null when the file is the message. When it carries
///                 content all the same, that must be the file's, else every status is c_NAL_SIGNATURE_INVALID
/// @param storage  where certificates of signers are looked for before those in the message, or null. Of several certificates that
///                 a signer info names the first under which the signature is valid counts
/// @return 1 when the check was carried out, whatever it found: whether a signature is valid is in its record alone
/// Status: 28 for a null path and 4 when there is no such file, context "NALVerifySignatureOnFile"; 140 for a message without
/// signers, context the path; 42 for a file that is a message without its content, context the path; 14 when the progress handler
/// cancels; those of CTOOFile with a text that names the file; 131 for everything else that keeps the check from being carried out,
/// a file that is no message or a damaged one included, or the provider's status: context begins with
/// "NALVerifySignatureOnFile" and goes on with the reason.
NAL_EXPORT int NALVerifySignatureOnFile(std::list<CNALWholeSignatureCheck>& results, const char* path, const IdentObj* message,
                                        const CNALCertStorage* storage, int* err);

/// The same, and whether each signer's certificate can be trusted.
///
/// @param chains  cleared; receives for each record the status of its certificate's chain at this moment, as NALVerifyCertificate
///                gives it. CERT_TRUST_IS_PARTIAL_CHAIN when no certificate was found. Certificates and CRLs of the message, and those
///                of `storage`, help to find a way to a trusted root; they are never trusted themselves. Empty on failure
/// The records are those of the function above: a chain changes no status.
NAL_EXPORT int NALVerifySignatureOnFile(std::list<CNALWholeSignatureCheck>& results, std::list<CERT_TRUST_STATUS>& chains,
                                        const char* path, const IdentObj* message, const CNALCertStorage* storage, int* err);

/// Checks every signature of a message in memory.
///
/// @param results  as above; may be null
/// @param what     the content: bytes in memory or a region of a file. Nothing (no file, no pointer, no bytes): the content that the
///                 message carries, or none. When both are there and differ, every status is c_NAL_SIGNATURE_INVALID.
///                 `options` is not looked at
/// @param message  the message
/// @param storage  as above
/// @return as above
/// Status: 140 for a message without signers, context "NALVerifySignedData"; 28 for a null path or pointer, 37 for a region beyond its
/// end, and 206 for damaged pieces, context "WhatToSignStruct "; 4 when there is no such file, context the path; the rest as above with
/// context "NALVerifySignedData", "ORKHashData" or "ORKGetHashParam"
NAL_EXPORT int NALVerifySignedData(std::list<CNALWholeSignatureCheck>* results, const WhatToSignStruct& what, const IdentObj& message,
                                   const CNALCertStorage* storage, int* err);

/// The same, and whether each signer's certificate can be trusted: see above.
NAL_EXPORT int NALVerifySignedData(std::list<CNALWholeSignatureCheck>& results, std::list<CERT_TRUST_STATUS>& chains,
                                   const WhatToSignStruct& what, const IdentObj& message, const CNALCertStorage* storage, int* err);

/// Takes the content out of a signed file. No signature is checked.
///
/// @param srcPath  a file that holds a message with its content
/// @param outPath  receives the content: appears whole or not at all, and may be the source. Null: the content is not written
/// @param message  receives the whole message as DER, when not null; it is as large as the file
/// @return 1; 0 on failure, with all three as they were
/// Status, context "NALRemoveSignaturesFromFile": 28 for a null `srcPath` or two null outputs; 4, with the path as context, when there is
/// no such file; 42 for a message without content; 205, 206, 194 and 12 as CNALSignData::ReadObject; 14 when the progress handler
/// cancels; those of CTOOFile with a text that names the file
NAL_EXPORT int NALRemoveSignaturesFromFile(const char* srcPath, const char* outPath, IdentObj* message, int* err);
