// From what a search for an issuer found to what is wrong with a certificate.
#pragma once

#include "too/types.h"

namespace nal {

/// Turns the word that a search left into trust error bits. Pure: nothing else is looked at.
///
/// @param searchWord        CERT_STORE_* bits of the checks that failed, and CERT_TRUST_IS_UNTRUSTED_ROOT
/// @param applicationFlags  NAL_APP_IGNORE_MISSING_CRL counts
DWORD TrustBitsOf(unsigned searchWord, DWORD applicationFlags);

}  // namespace nal
