// The OID registry: one constant table, searched from its head.
//
// The order matters where an OID or a number occurs twice: the first record is the one that a look-up gives.
#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <iterator>

#include "ork/constants.h"
#include "ork/oid_info.h"

namespace {

// The public-key algorithms that signature OIDs carry as extra information. The record's blob is not const in the
// CryptoAPI layout; nobody writes to it.
DWORD g_sign2001 = ORK_ALG_GOST2001_SIGN;
DWORD g_sign94 = ORK_ALG_GOST94_SIGN;

CRYPT_OID_INFO Record(LPCSTR oid, LPCWSTR name, DWORD group, DWORD algId = 0) {
    return {sizeof(CRYPT_OID_INFO), oid, name, group, algId, {0, nullptr}};
}

CRYPT_OID_INFO SignatureRecord(LPCSTR oid, LPCWSTR name, DWORD hashAlgId, DWORD& keyAlgId) {
    return {sizeof(CRYPT_OID_INFO),  oid,       name,
            ORK_OID_GROUP_SIGNATURE, hashAlgId, {sizeof keyAlgId, reinterpret_cast<BYTE*>(&keyAlgId)}};
}

const auto& Records() {
    static const CRYPT_OID_INFO records[] = {
        Record("1.2.643.2.2.9", L"GOST R 34.11-94", ORK_OID_GROUP_HASH, ORK_ALG_GOSTR3411),
        Record("1.3.6.1.4.1.47474.2.1.1.2", L"Ormatek hash", ORK_OID_GROUP_HASH, ORK_ALG_PRIVATE_HASH),
        Record("1.2.643.2.2.21", L"GOST 28147-89", ORK_OID_GROUP_ENCRYPTION, ORK_ALG_GOST28147),
        Record("1.2.643.2.2.19", L"GOST R 34.10-2001", ORK_OID_GROUP_PUBLIC_KEY, ORK_ALG_GOST2001_SIGN),
        Record("1.2.643.2.2.20", L"GOST R 34.10-94", ORK_OID_GROUP_PUBLIC_KEY, ORK_ALG_GOST94_SIGN),
        Record("1.2.643.2.2.98", L"GOST R 34.10-2001 DH", ORK_OID_GROUP_PUBLIC_KEY, ORK_ALG_GOST2001_EXCHANGE),
        Record("1.2.643.2.2.99", L"GOST R 34.10-94 DH", ORK_OID_GROUP_PUBLIC_KEY, ORK_ALG_GOST94_EXCHANGE),
        // Key algorithm and signature algorithm in one: found as a key by OID and by number, and by the pair of the
        // private hash and key.
        Record("1.3.6.1.4.1.47474.2.1.2.2", L"Ormatek signature", ORK_OID_GROUP_PUBLIC_KEY, ORK_ALG_PRIVATE_SIGN),
        SignatureRecord("1.2.643.2.2.3", L"GOST R 34.11-94 with GOST R 34.10-2001", ORK_ALG_GOSTR3411, g_sign2001),
        SignatureRecord("1.2.643.2.2.4", L"GOST R 34.11-94 with GOST R 34.10-94", ORK_ALG_GOSTR3411, g_sign94),

        Record("1.2.643.2.2.30.0", L"GOST R 34.11-94 test parameters", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.30.1", L"GOST R 34.11-94 parameters", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.31.0", L"GOST 28147-89 test parameters", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.31.1", L"GOST 28147-89 parameters A", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.31.2", L"GOST 28147-89 parameters B", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.31.3", L"GOST 28147-89 parameters C", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.31.4", L"GOST 28147-89 parameters D", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.7.1.2.5.1.1", L"GOST 28147-89 parameters Z", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.32.2", L"GOST R 34.10-94 parameters A", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.32.3", L"GOST R 34.10-94 parameters B", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.32.4", L"GOST R 34.10-94 parameters C", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.32.5", L"GOST R 34.10-94 parameters D", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.33.1", L"GOST R 34.10-94 exchange parameters A", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.33.2", L"GOST R 34.10-94 exchange parameters B", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.33.3", L"GOST R 34.10-94 exchange parameters C", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.35.0", L"GOST R 34.10-2001 test parameters", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.35.1", L"GOST R 34.10-2001 parameters A", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.35.2", L"GOST R 34.10-2001 parameters B", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.35.3", L"GOST R 34.10-2001 parameters C", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.36.0", L"GOST R 34.10-2001 exchange parameters A", ORK_OID_GROUP_PARAMETERS),
        Record("1.2.643.2.2.36.1", L"GOST R 34.10-2001 exchange parameters B", ORK_OID_GROUP_PARAMETERS),

        // Only attributes that have no keyword in the library's own tables: a record here takes precedence there.
        Record("2.5.4.4", L"sn", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.9", L"street", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.13", L"description", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.15", L"businessCategory", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.17", L"postalCode", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.20", L"telephoneNumber", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.42", L"givenName", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.42", L"gn", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.43", L"initials", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.44", L"generationQualifier", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.46", L"dnQualifier", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("2.5.4.97", L"organizationIdentifier", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("1.2.643.3.131.1.1", L"inn", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("1.2.643.100.1", L"ogrn", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("1.2.643.100.3", L"snils", ORK_OID_GROUP_NAME_ATTRIBUTE),
        Record("1.2.643.100.5", L"ogrnip", ORK_OID_GROUP_NAME_ATTRIBUTE),

        Record("1.3.6.1.5.5.7.3.1", L"Server authentication", ORK_OID_GROUP_USAGE),
        Record("1.3.6.1.5.5.7.3.2", L"Client authentication", ORK_OID_GROUP_USAGE),
        Record("1.3.6.1.5.5.7.3.3", L"Code signing", ORK_OID_GROUP_USAGE),
        Record("1.3.6.1.5.5.7.3.4", L"Secure e-mail", ORK_OID_GROUP_USAGE),
        Record("1.3.6.1.5.5.7.3.8", L"Time stamping", ORK_OID_GROUP_USAGE),
        Record("1.3.6.1.5.5.7.3.9", L"OCSP signing", ORK_OID_GROUP_USAGE),
        Record("1.3.6.1.4.1.311.10.3.1", L"Trust list signing", ORK_OID_GROUP_USAGE),
    };
    return records;
}

// ASCII only, so that the answer never depends on the locale.
wchar_t LowerAscii(wchar_t c) {
    return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c - L'A' + L'a') : c;
}

bool EqualNames(const wchar_t* left, const wchar_t* right) {
    for (; *left != 0 && LowerAscii(*left) == LowerAscii(*right); ++left, ++right) {
    }
    return LowerAscii(*left) == LowerAscii(*right);
}

bool Matches(const CRYPT_OID_INFO& record, DWORD keyType, const void* key) {
    const bool isSignature = record.dwGroupId == ORK_OID_GROUP_SIGNATURE;
    switch (keyType) {
        case ORK_OID_KEY_OID:
            return std::strcmp(record.pszObjId, static_cast<const char*>(key)) == 0;
        case ORK_OID_KEY_NAME:
            return EqualNames(record.pwszName, static_cast<const wchar_t*>(key));
        case ORK_OID_KEY_ALGID: {
            DWORD algId = 0;
            std::memcpy(&algId, key, sizeof algId);
            return algId != 0 && !isSignature && record.Algid == algId;
        }
        case ORK_OID_KEY_SIGN: {
            DWORD pair[2];
            std::memcpy(pair, key, sizeof pair);
            if (pair[0] == ORK_ALG_PRIVATE_HASH) {
                return pair[1] == ORK_ALG_PRIVATE_SIGN && record.Algid == ORK_ALG_PRIVATE_SIGN;
            }
            return isSignature && record.Algid == pair[0] &&
                   std::memcmp(record.ExtraInfo.pbData, &pair[1], sizeof pair[1]) == 0;
        }
        default:
            return false;
    }
}

}  // namespace

const CRYPT_OID_INFO* orkcspex::FindOIDInfo(DWORD keyType, const void* key, DWORD group) {
    if (key == nullptr) return nullptr;
    group &= 0xFFFF;
    const auto& records = Records();
    const auto found = std::find_if(std::begin(records), std::end(records), [&](const CRYPT_OID_INFO& record) {
        return (group == ORK_OID_GROUP_ANY || group == record.dwGroupId) && Matches(record, keyType, key);
    });
    return found == std::end(records) ? nullptr : found;
}
