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

std::string_view TextOf(const IdentObj& text) {
    return {reinterpret_cast<const char*>(text.GetData()), text.GetSize()};
}

IdentObj ToBytes(std::string_view text) {
    return {text.data(), static_cast<unsigned>(text.size())};
}

const CRYPT_OID_INFO* FindOid(const char* oid) {
    return orkcspex::FindOIDInfo(ORK_OID_KEY_OID, oid, ORK_OID_GROUP_ANY);
}

struct KeyParameters {
    CTOOString publicKeySet, digestSet, encryptionSet;
};

// RFC 4491 section 2.3.1: SEQUENCE { publicKeyParamSet OID, digestParamSet OID, encryptionParamSet OID OPTIONAL }.
KeyParameters ReadKeyParameters(const IdentObj& der) {
    KeyParameters read;
    asnt::Reader reader(der, "CNALAlgorithmIdentifier::GetParams");
    asnt::Element first;
    if (reader.AtEnd() || reader.TryNext(asnt::tag::Null, first)) return read;
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    read.publicKeySet = fields.Oid();
    read.digestSet = fields.Oid();
    if (!fields.AtEnd()) read.encryptionSet = fields.Oid();
    fields.ExpectEnd();
    reader.ExpectEnd();
    return read;
}

}  // namespace

CNALAlgorithmIdentifier::CNALAlgorithmIdentifier(const CRYPT_ALGORITHM_IDENTIFIER& algorithm)
    : m_algorithm(algorithm.pszObjId == nullptr ? IdentObj() : ToBytes(algorithm.pszObjId)),
      m_parameters(asnt::View(algorithm.Parameters.pbData, algorithm.Parameters.cbData).Copy()) {}

CNALAlgorithmIdentifier& CNALAlgorithmIdentifier::operator=(const CRYPT_ALGORITHM_IDENTIFIER& algorithm) {
    return *this = CNALAlgorithmIdentifier(algorithm);
}

CTOOString CNALAlgorithmIdentifier::GetOID() const {
    return {TextOf(m_algorithm)};
}

void CNALAlgorithmIdentifier::GetParams(CTOOString* algOID, CTOOString* keyParamOID, CTOOString* hashParamOID,
                                        CTOOString* encParamOID) const {
    KeyParameters parameters;
    if (keyParamOID != nullptr || hashParamOID != nullptr || encParamOID != nullptr) {
        parameters = ReadKeyParameters(m_parameters);
    }
    const bool isPrivate = Is(c_NAL_OID_KEY_PRIVATE);
    if (algOID != nullptr) *algOID = isPrivate ? CTOOString(c_NAL_OID_KEY_GOST94) : GetOID();
    if (keyParamOID != nullptr) *keyParamOID = isPrivate ? GetOID() : parameters.publicKeySet;
    if (hashParamOID != nullptr) *hashParamOID = parameters.digestSet;
    if (encParamOID != nullptr) *encParamOID = parameters.encryptionSet;
}

void CNALAlgorithmIdentifier::SetParams(const char* algOID, const char* keyParamOID) {
    const CTOOString keyParameters(keyParamOID);
    CTOOString algorithm(algOID);
    IdentObj parameters;
    if (keyParameters == c_NAL_OID_KEY_PRIVATE) algorithm = c_NAL_OID_KEY_PRIVATE;
    if (algorithm != c_NAL_OID_KEY_PRIVATE) {
        asnt::Writer writer;
        writer.Sequence([&] {
            writer.Oid(keyParameters);
            writer.Oid(c_NAL_OID_HASH_PARAMS);
        });
        parameters = writer.Finish();
    }
    m_algorithm = ToBytes(algorithm.view());
    m_parameters = std::move(parameters);
}

unsigned CNALAlgorithmIdentifier::ReadData(const void* data, unsigned size) {
    if (data == nullptr || size == 0) return 0;
    asnt::Reader reader({data, size}, "CNALAlgorithmIdentifier::ReadData");
    ReadData(reader);
    return size - static_cast<unsigned>(reader.Rest().size);
}

void CNALAlgorithmIdentifier::ReadData(asnt::Reader& reader) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    const CTOOString oid = fields.Oid();
    IdentObj parameters;
    if (!fields.AtEnd()) parameters = fields.Next().whole.Copy();
    fields.ExpectEnd();
    m_algorithm = ToBytes(oid.view());
    m_parameters = std::move(parameters);
}

void CNALAlgorithmIdentifier::WriteData(asnt::Writer& writer) const {
    writer.Sequence([&] {
        writer.Oid(TextOf(m_algorithm));
        writer.Raw(m_parameters);
    });
}

IdentObj CNALAlgorithmIdentifier::WriteData() const {
    asnt::Writer writer;
    WriteData(writer);
    return writer.Finish();
}

unsigned CNALAlgorithmIdentifier::GetObjectSize() const {
    asnt::Writer writer;
    WriteData(writer);
    return static_cast<unsigned>(writer.Size());
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
