#include "nal/errors.h"

#include <array>

namespace {

constexpr int kFirstMessage = 110;
constexpr int kSuccess = 110;
constexpr int kRevocationUnknown = 117;
constexpr int kUnexpected = 139;

// By number, from 110. Every blank and full stop is part of its text.
constexpr std::array kMessages = {
    /* 110 */ "The operation completed successfully",
    /* 111 */ "The trust certificate signature is invalid",
    /* 112 */ "The certificate validity period is not nested into a trust certificate validity period",
    /* 113 */ "One or more certificates in the chain are out of the validity period",
    /* 114 */ "The trust certificate chain is partial",
    /* 115 */ "One or more certificates in the chain are revoked",
    /* 116 */ "The trust certificate is untrusted root",
    /* 117 */ "The revocation status of the certificate or one of the certificates in the certificate chain is unknown",
    /* 118 */ "",
    /* 119 */ "",
    /* 120 */ "Cannot find the certificate and private key for decryption",
    /* 121 */ "The signed cryptographic message does not have a signer for the specified signer index",
    /* 122 */ "The certificate does not have a property that references a private key",
    /* 123 */ "One or more arguments are invalid",
    /* 124 */ "The handle is invalid",
    /* 125 */ "The parameter is incorrect",
    /* 126 */ "More data is available",
    /* 127 */ "",
    /* 128 */ "Invalid algorithm specified",
    /* 129 */ "Invalid flags specified",
    /* 130 */ "Bad Hash",
    /* 131 */ "Hash not valid for use in specified state",
    /* 132 */ "Bad Key",
    /* 133 */ "Bad Length",
    /* 134 */ "Invalid Signature",
    /* 135 */ "Bad UID",
    /* 136 */ "An internal error occurred",
    /* 137 */ "Key does not exist",
    /* 138 */ "Insufficient memory available for the operation",
    /* 139 */ "An unexpected error occurred",
    /* 140 */ "Not enough information to verify this certificate.",
    /* 141 */
    "The integrity of this certificate cannot be guaranteed.  The certificate may be corrupted or may have been "
    "altered.",
    /* 142 */ "This certificate was revoked by its certification authority.",
    /* 143 */ "This certificate has expired or is not yet valid.",
    /* 144 */
    "This certificate cannot be verified because a valid certificate revocation list from one or more of the "
    "certification authorities in the certification path has not been found.",
    /* 145 */ "",
    /* 146 */ "The certificate for the signer of the message is invalid or not found.",
    /* 147 */ "The timestamp signature and/or certificate could not be verified or is malformed.",
    /* 148 */ "Certificate is not valid by usage",
};
static_assert(kMessages.size() == 148 - kFirstMessage + 1);

struct CodeToMessage {
    unsigned int code;
    int message;
};

constexpr CodeToMessage kWindowsCodes[] = {
    {0, kSuccess},      {6, 124},           {87, 125},          {234, 126},         {0x80070057, 123}, {0x80090001, 135},
    {0x80090002, 130},  {0x80090003, 132},  {0x80090004, 133},  {0x80090006, 134},  {0x80090008, 128}, {0x80090009, 129},
    {0x8009000C, 131},  {0x8009000D, 137},  {0x8009000E, 138},  {0x80090020, 136},
    {0x8009200A, 122},  // Kept one below the CryptoAPI's value: the library's own callers set it with this meaning.
    {0x8009200B, 120},  // Likewise.
    {0x8009200E, 121},  {0x80096002, 146},  {0x80096004, 141},  {0x80096005, 147},  {0x800B0101, 143}, {0x800B010A, 140},
    {0x800B010C, 142},  {0x800B010E, 144},  {0x800B0110, 148},
};

/// A trust error bit in all its forms.
struct TrustBit {
    unsigned int bit;
    unsigned int winErr;  // 0: none
    int gravity;          // among the bits with a message of their own, 1 the gravest; 0 for the others
    int message;
    const char* words;
};

// Gravest first as the codes go; the messages go by their own order, which is meant to differ.
constexpr TrustBit kTrustBits[] = {
    {0x00010000, 0x800B010A, 1, 114, "no issuer was found, so the chain does not reach a root"},
    {0x00000020, 0x800B010A, 3, 116, "the root is not trusted"},
    {0x00000008, 0x80096004, 2, 111, "the signature does not hold"},
    {0x00000004, 0x800B010C, 6, 115, "the certificate is revoked"},
    {0x00000001, 0x800B0101, 4, 113, "the certificate has expired or is not yet valid"},
    {0x00000080, 0x800B010A, 0, kRevocationUnknown, "the issuers go in a circle"},
    {0x00000040, 0x800B010E, 0, kRevocationUnknown, "the issuer's revocation list is missing, so nobody knows whether the certificate is revoked"},
    {0x00000002, 0x800B0102, 5, 112, "the validity is not nested in the issuer's"},
    {0x00000010, 0x800B0110, 0, kRevocationUnknown, "the certificate is not valid for this use"},
    {0x00040000, 0x80096004, 0, kRevocationUnknown, "the signature of the trust list does not hold"},
    {0x00020000, 0x800B0101, 0, kRevocationUnknown, "the trust list is out of date"},
    {0x00080000, 0x800B0110, 0, kRevocationUnknown, "the trust list is not valid for this use"},
    {0x00000200, 0x80096019, 0, kRevocationUnknown, "the policy constraints of an authority forbid the chain"},
    {0x00000400, 0x80096019, 0, kRevocationUnknown, "the basic constraints of an authority forbid the chain"},
    {0x00000800, 0x80096019, 0, kRevocationUnknown, "the name constraints of an authority forbid the chain"},
    {0x00000100, 0, 0, kRevocationUnknown, "an extension is invalid"},
};

const char* MessageText(int id) {
    if (id < kFirstMessage) return "";
    const auto index = static_cast<std::size_t>(id - kFirstMessage);
    return index < kMessages.size() ? kMessages[index] : "";
}

}  // namespace

std::string LoadStringCert(int id) { return MessageText(id); }

CTOOString NALGetWinErrorExplaination(unsigned int winErr) {
    for (const CodeToMessage& entry : kWindowsCodes) {
        if (entry.code == winErr) return MessageText(entry.message);
    }
    return MessageText(kUnexpected);
}

CTOOString NALGetCertTotalBitMaskExplaination(unsigned int trustErrorStatus) {
    if (trustErrorStatus == 0) return MessageText(kSuccess);
    const TrustBit* gravest = nullptr;
    for (const TrustBit& known : kTrustBits) {
        if ((trustErrorStatus & known.bit) == 0 || known.gravity == 0) continue;
        if (gravest == nullptr || known.gravity < gravest->gravity) gravest = &known;
    }
    return MessageText(gravest != nullptr ? gravest->message : kRevocationUnknown);
}

unsigned int NALCertFlags2WinErr(unsigned int trustErrorStatus) {
    for (const TrustBit& known : kTrustBits) {
        if ((trustErrorStatus & known.bit) != 0) return known.winErr;
    }
    return 0;
}

std::list<CTOOString> NALListTrustErrors(unsigned int trustErrorStatus) {
    std::list<CTOOString> words;
    for (const TrustBit& known : kTrustBits) {
        if ((trustErrorStatus & known.bit) != 0) words.emplace_back(known.words);
        trustErrorStatus &= ~known.bit;
    }
    if (trustErrorStatus != 0) words.emplace_back("an unknown fault");
    return words;
}
