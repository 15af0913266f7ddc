#include "nal/algorithm.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "nal/wide_string.h"
#include "ork/oid_info.h"
#include "too/status.h"

namespace {

IdentObj ToBytes(std::string_view text) {
    return {text.data(), static_cast<unsigned>(text.size())};
}

const CRYPT_OID_INFO* FindOid(const char* oid) {
    return orkcspex::FindOIDInfo(ORK_OID_KEY_OID, oid, ORK_OID_GROUP_ANY);
}

CASNAlgAddInfo ReadKeyParameters(const IdentObj& der) {
    CASNAlgAddInfo read;
    asnt::Element null;
    const bool isAbsent = der.IsEmpty() || asnt::Reader(der).TryNext(asnt::tag::Null, null);
    if (!isAbsent && read.ReadData(der.GetData(), der.GetSize()) != der.GetSize()) {
        asnt::ThrowBadStructure("CNALAlgorithmIdentifier::GetParams");
    }
    return read;
}

}  // namespace

CNALAlgorithmIdentifier::CNALAlgorithmIdentifier(const CRYPT_ALGORITHM_IDENTIFIER& algorithm)
    : CASNTIdData(algorithm.pszObjId, asnt::View(algorithm.Parameters.pbData, algorithm.Parameters.cbData).Copy()) {}

CNALAlgorithmIdentifier& CNALAlgorithmIdentifier::operator=(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
    return *this = CNALAlgorithmIdentifier(algorithm);
}

void CNALAlgorithmIdentifier::GetParams(CTOOString* algOID, CTOOString* keyParamOID, CTOOString* hashParamOID,
                                        CTOOString* encParamOID) const {
    CASNAlgAddInfo parameters;
    if (keyParamOID != nullptr || hashParamOID != nullptr || encParamOID != nullptr) {
        parameters = ReadKeyParameters(m_parameters);
    }
    const bool isPrivate = Is(c_NAL_OID_KEY_PRIVATE);
    if (algOID != nullptr) *algOID = isPrivate ? CTOOString(c_NAL_OID_KEY_GOST94) : GetID();
    if (keyParamOID != nullptr) *keyParamOID = isPrivate ? GetID() : parameters.GetSignOID();
    if (hashParamOID != nullptr) *hashParamOID = parameters.GetHashOID();
    if (encParamOID != nullptr) *encParamOID = parameters.GetEncryptOID();
}

void CNALAlgorithmIdentifier::SetParams(const char* algOID, const char* keyParamOID) {
    const CTOOString keyParameters(keyParamOID);
    CTOOString algorithm(algOID);
    IdentObj parameters;
    if (keyParameters == c_NAL_OID_KEY_PRIVATE) algorithm = c_NAL_OID_KEY_PRIVATE;
    if (algorithm != c_NAL_OID_KEY_PRIVATE) {
        parameters = CASNAlgAddInfo(keyParameters.c_str(), c_NAL_OID_HASH_PARAMS).WriteData();
    }
    m_algorithm = ToBytes(algorithm.view());
    m_parameters = std::move(parameters);
}

bool GetAlgIDFromOID(const void* oid, unsigned oidLength, unsigned& algId, unsigned& extra) {
    algId = 0;
    extra = 0;
    std::array<char, 4096> text;
    if (oid == nullptr || oidLength >= text.size()) return false;
    std::memcpy(text.data(), oid, oidLength);
    text[oidLength] = '\0';

    const CRYPT_OID_INFO* info = FindOid(text.data());
    if (info == nullptr) return false;
    algId = info->Algid;
    DWORD word = 0;
    if (info->ExtraInfo.cbData >= sizeof(word)) std::memcpy(&word, info->ExtraInfo.pbData, sizeof(word));
    extra = word;
    return true;
}

bool GetOIDFromAlgID(IdentObj& oid, unsigned algId, unsigned pubKeyAlgId) {
    const DWORD pair[] = {algId, pubKeyAlgId};
    const DWORD keyType = pubKeyAlgId == 0xFFFF ? ORK_OID_KEY_ALGID : ORK_OID_KEY_SIGN;
    const CRYPT_OID_INFO* info = orkcspex::FindOIDInfo(keyType, pair, ORK_OID_GROUP_ANY);
    oid.Clear();
    if (info == nullptr) return false;
    oid = ToBytes(info->pszObjId);
    return true;
}

CTOOString NALGetNameForOID(const CTOOString& oid) {
    const CRYPT_OID_INFO* info = FindOid(oid.c_str());
    if (info == nullptr || info->pwszName == nullptr) return oid;
    return CNALString(info->pwszName).ToBytes();
}

unsigned NALGetPKLenghOID(const CTOOString& keyOID) {
    static constexpr const char* c_short[] = {
        c_NAL_OID_KEY_GOST2001, c_NAL_OID_SIGN_GOST2001, c_NAL_OID_DH_GOST2001, "1.2.643.2.2.35.1", "1.2.643.2.2.35.2",
        "1.2.643.2.2.35.3",     "1.2.643.2.2.36.0",      "1.2.643.2.2.36.1"};
    const bool isShort =
        std::any_of(std::begin(c_short), std::end(c_short), [&](const char* known) { return keyOID == known; });
    return isShort ? 512 : 1024;
}

std::list<DWORD> NALGetSupportedKeyTypes() {
    return {AT_SIGNATURE, AT_KEYEXCHANGE};
}

std::list<CTOOString> NALGetSupportedSignOIDS(bool /*flag*/) {
    return {c_NAL_OID_KEY_GOST2001};
}

std::list<CTOOString> NALGetSupportedDHOIDS() {
    return {c_NAL_OID_DH_GOST2001, c_NAL_OID_DH_GOST94};
}

std::list<CTOOString> NALGetSupportedParams(const CTOOString& keyOID) {
    if (keyOID == c_NAL_OID_KEY_GOST94 || keyOID == c_NAL_OID_SIGN_GOST94) {
        return {"1.2.643.2.2.32.2", "1.2.643.2.2.32.3", "1.2.643.2.2.32.4"};
    }
    // Set B is known but deliberately not offered for new keys.
    if (keyOID == c_NAL_OID_KEY_GOST2001 || keyOID == c_NAL_OID_SIGN_GOST2001) {
        return {"1.2.643.2.2.35.1", "1.2.643.2.2.35.3"};
    }
    if (keyOID == c_NAL_OID_DH_GOST94) return {"1.2.643.2.2.33.1", "1.2.643.2.2.33.2", "1.2.643.2.2.33.3"};
    if (keyOID == c_NAL_OID_DH_GOST2001) return {"1.2.643.2.2.36.0", "1.2.643.2.2.36.1"};
    if (keyOID == c_NAL_OID_KEY_PRIVATE) return {c_NAL_OID_KEY_PRIVATE};
    throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, "NALGetSupportedParams");
}
