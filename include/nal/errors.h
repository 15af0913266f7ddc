/// English texts for the codes that the library reports.
///
/// None of these functions fails, throws or changes the last error; all may be called from any thread.
#pragma once

#include <list>
#include <string>

#include "nal/export.h"
#include "too/string.h"

/// @param id  a message number, 110 to 148
/// @return its text; "" for the unassigned numbers 118, 119, 127, 145 and for any number outside the table
NAL_EXPORT std::string LoadStringCert(int id);

/// The text for a Windows-style error code, as `GetLastError` or a signature check gives it.
///
/// 0x8009200A gives the text on a missing key property and 0x8009200B the text on a missing decryption certificate, one
/// below the values that the CryptoAPI assigns to those meanings: the library sets these values.
///
/// @param winErr  compared as a whole
/// @return its text; "An unexpected error occurred" for a code that has none of its own
NAL_EXPORT CTOOString NALGetWinErrorExplaination(unsigned int winErr);

/// One text for the error-status bits of a chain or of a chain element (`CERT_TRUST_STATUS::dwErrorStatus`).
///
/// The gravest bit decides: partial chain, signature, untrusted root, time, nesting, revocation. A non-zero value
/// without one of these gives the text on an unknown revocation status; 0 the text on success.
NAL_EXPORT CTOOString NALGetCertTotalBitMaskExplaination(unsigned int trustErrorStatus);

/// The Windows-style error code that describes error-status bits best; 0 for none and for bits without a code.
///
/// The order of gravity differs from that of `NALGetCertTotalBitMaskExplaination` (revocation counts before time).
NAL_EXPORT unsigned int NALCertFlags2WinErr(unsigned int trustErrorStatus);

/// Each error-status bit in words, for people who have to put it right; gravest first. Nothing for 0.
NAL_EXPORT std::list<CTOOString> NALListTrustErrors(unsigned int trustErrorStatus);
