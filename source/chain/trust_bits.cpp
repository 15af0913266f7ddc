#include "chain/trust_bits.h"

#include "nal/settings.h"
#include "nal/wincrypt.h"

namespace nal {
namespace {

struct Rule {
    unsigned searchBit;
    DWORD trustBit;
};

constexpr Rule kRules[] = {
    {CERT_STORE_SIGNATURE_FLAG, CERT_TRUST_IS_NOT_SIGNATURE_VALID},
    {CERT_STORE_TIME_VALIDITY_FLAG, CERT_TRUST_IS_NOT_TIME_VALID},
    {CERT_TRUST_IS_UNTRUSTED_ROOT, CERT_TRUST_IS_UNTRUSTED_ROOT},
};

// Without a CRL nothing is known, so nothing is said of revocation beside that.
DWORD RevocationBitsOf(unsigned searchWord, DWORD applicationFlags) {
    if ((searchWord & CERT_STORE_NO_CRL_FLAG) != 0) {
        return (applicationFlags & NAL_APP_IGNORE_MISSING_CRL) != 0 ? 0 : CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
    }
    return (searchWord & CERT_STORE_REVOCATION_FLAG) != 0 ? CERT_TRUST_IS_REVOKED : 0;
}

}  // namespace

DWORD TrustBitsOf(unsigned searchWord, DWORD applicationFlags) {
    DWORD bits = RevocationBitsOf(searchWord, applicationFlags);
    for (const Rule& rule : kRules) {
        if ((searchWord & rule.searchBit) != 0) bits |= rule.trustBit;
    }
    return bits;
}

}  // namespace nal
