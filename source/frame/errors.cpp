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

struct BitsRule {
    unsigned int anyOf;
    unsigned int result;
};

// Gravest first: the first rule one of whose bits is set decides.
constexpr BitsRule kBitsToMessage[] = {
    {0x00010000, 114}, {0x00000008, 111}, {0x00000020, 116}, {0x00000001, 113}, {0x00000002, 112}, {0x00000004, 115},
};

// The order is meant to differ from the one above.
constexpr BitsRule kBitsToWindowsCode[] = {
    {0x00010000 | 0x00000020, 0x800B010A},
    {0x00000008, 0x80096004},
    {0x00000004, 0x800B010C},
    {0x00000001, 0x800B0101},
    {0x00000080, 0x800B010A},
    {0x00000040, 0x800B010E},
    {0x00000002, 0x800B0102},
    {0x00000010, 0x800B0110},
    {0x00040000, 0x80096004},
    {0x00020000, 0x800B0101},
    {0x00080000, 0x800B0110},
    {0x00000200 | 0x00000400 | 0x00000800, 0x80096019},
};

template <std::size_t N>
unsigned int FirstRule(const BitsRule (&rules)[N], unsigned int bits, unsigned int otherwise) {
    for (const BitsRule& rule : rules) {
        if (bits & rule.anyOf) return rule.result;
    }
    return otherwise;
}

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
    return MessageText(static_cast<int>(FirstRule(kBitsToMessage, trustErrorStatus, kRevocationUnknown)));
}

unsigned int NALCertFlags2WinErr(unsigned int trustErrorStatus) {
    return FirstRule(kBitsToWindowsCode, trustErrorStatus, 0);
}
