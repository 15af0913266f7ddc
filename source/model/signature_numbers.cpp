#include "model/signature_numbers.h"

#include "ork/constants.h"

namespace nal {
namespace {

bool IsSignatureKey(DWORD keyAlgId) {
    return keyAlgId == ORK_ALG_GOST2001_SIGN || keyAlgId == ORK_ALG_GOST94_SIGN || keyAlgId == ORK_ALG_PRIVATE_SIGN;
}

}  // namespace

DWORD HashForKey(DWORD keyAlgId) {
    return keyAlgId == ORK_ALG_PRIVATE_SIGN ? ORK_ALG_PRIVATE_HASH : ORK_ALG_GOSTR3411;
}

DWORD SignatureKeyFor(DWORD keyAlgId) {
    if (keyAlgId == ORK_ALG_GOST2001_EXCHANGE) return ORK_ALG_GOST2001_SIGN;
    if (keyAlgId == ORK_ALG_GOST94_EXCHANGE) return ORK_ALG_GOST94_SIGN;
    return keyAlgId;
}

bool FindSignatureNumbers(const CNALAlgorithmIdentifier& algorithm, SignatureNumbers& numbers) {
    unsigned algId = 0;
    unsigned extra = 0;
    const IdentObj& oid = algorithm.m_algorithm;
    if (!GetAlgIDFromOID(oid.GetData(), oid.GetSize(), algId, extra)) return false;
    const DWORD key = SignatureKeyFor(extra != 0 ? extra : algId);  // a signature OID has its key's number as the extra one
    if (!IsSignatureKey(key)) return false;
    numbers = {HashForKey(key), key};
    return true;
}

}  // namespace nal
