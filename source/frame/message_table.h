// The English texts that the library gives to codes, by message number.
#pragma once

namespace nal {

inline constexpr int kFirstMessage = 110;
inline constexpr int kLastMessage = 148;

enum Message : int {
    kMsgSuccess = 110,
    kMsgTrustSignatureInvalid = 111,
    kMsgTrustNotNested = 112,
    kMsgTrustNotTimeValid = 113,
    kMsgTrustPartialChain = 114,
    kMsgTrustRevoked = 115,
    kMsgTrustUntrustedRoot = 116,
    kMsgTrustRevocationUnknown = 117,
    kMsgUnexpected = 139,
};

/// @return the text of a message number; "" for an unassigned one and for any number outside the table.
const char* MessageText(int number);

}  // namespace nal
