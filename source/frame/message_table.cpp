#include "frame/message_table.h"

#include <array>

namespace nal {
namespace {

// By number, from 110. The blanks and full stops are part of the texts.
constexpr std::array<const char*, kLastMessage - kFirstMessage + 1> kTexts = {
    /* 110 */ "The operation completed successfully",
    /* 111 */ "The trust certificate signature is invalid",
    /* 112 */ "The certificate validity period is not nested into a trust certificate validity period",
    /* 113 */ "One or more certificates in the chain are out of the validity period",
    /* 114 */ "The trust certificate chain is partial",
    /* 115 */ "One or more certificates in the chain are revoked",
    /* 116 */ "The trust certificate is untrusted root",
    /* 117 */
    "The revocation status of the certificate or one of the certificates in the certificate chain is unknown",
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

}  // namespace

const char* MessageText(int number) {
    if (number < kFirstMessage || number > kLastMessage) return "";
    return kTexts[number - kFirstMessage];
}

}  // namespace nal
