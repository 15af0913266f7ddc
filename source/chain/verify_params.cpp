#include "nal/algorithm.h"
#include "nal/verify.h"
#include "frame/failure.h"
#include "ork/provider.h"

namespace {

constexpr char c_defaultHash[] = "1.2.643.2.2.9";
constexpr unsigned c_otherProviderType = 1;

DWORD AlgIdOf(const CTOOString& oid) {
    unsigned algId = 0;
    unsigned extra = 0;
    const bool known = GetAlgIDFromOID(oid.c_str(), static_cast<unsigned>(oid.length()), algId, extra);
    return known ? algId : 0;
}

}  // namespace

CNALVerifyParams::CNALVerifyParams(const char* hashOID)
    : m_hashOID(hashOID != nullptr && *hashOID != '\0' ? hashOID : c_defaultHash), m_hashAlgId(AlgIdOf(m_hashOID)) {
    const bool isGost = m_hashAlgId == ORK_ALG_GOSTR3411 || m_hashAlgId == ORK_ALG_PRIVATE_HASH;
    int status = TOO_OK;
    if (!m_provider.Init(nullptr, nullptr, isGost ? ORK_PROVIDER_TYPE : c_otherProviderType, ORK_OPEN_VERIFY, &status)) {
        throw XTOOStatus(status, "CNALProvider::Init");
    }
    if (!ORKCreateHash(m_provider.GetProviderHandle(), m_hashAlgId, 0, &m_hash, 0)) {
        throw XTOOStatus(nal::LastErrorStatus(), "ORKCreateHash");
    }
}

CNALVerifyParams::CNALVerifyParams(const CNALVerifyParams& other)
    : m_hashOID(other.m_hashOID), m_hashAlgId(other.m_hashAlgId), m_provider(other.m_provider) {}

CNALVerifyParams& CNALVerifyParams::operator=(const CNALVerifyParams& other) {
    if (this == &other) return *this;
    DestroyHash();  // it belongs to the provider that goes
    m_hashOID = other.m_hashOID;
    m_hashAlgId = other.m_hashAlgId;
    m_provider = other.m_provider;
    return *this;
}

CNALVerifyParams::~CNALVerifyParams() { DestroyHash(); }

void CNALVerifyParams::DestroyHash() {
    if (m_hash != 0) ORKDestroyHash(m_hash);
    m_hash = 0;
}
