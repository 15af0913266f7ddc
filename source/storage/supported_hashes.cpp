// Which hashes go with a certificate's key. Stands here because it asks a certificate context for its provider.
#include <cstring>

#include "nal/algorithm.h"
#include "nal/context.h"
#include "ork/csp.h"
#include "storage/cert_reader.h"

namespace {

struct KnownKey {
    const char* key;
    const char* hash;
};

constexpr KnownKey c_knownKeys[] = {
    {c_NAL_OID_KEY_PRIVATE, c_NAL_OID_HASH_PRIVATE},
    {c_NAL_OID_KEY_GOST94, c_NAL_OID_HASH_GOST94},
    {c_NAL_OID_KEY_GOST2001, c_NAL_OID_HASH_GOST94},
};

// The provider that the certificate's private key is in, or the one that its type stands for.
bool OpenProviderOf(const CNALCertContext& cert, CNALProvider& provider) {
    const CRYPT_KEY_PROV_INFO* info = cert.GetProviderInfo();
    const CTOOString name = cert.GetProviderName();
    unsigned type = info != nullptr ? info->dwProvType : 0;
    if (name.empty() && type == 0) type = 1;
    int error = TOO_OK;
    return provider.Init(nullptr, name.c_str(), type, ORK_OPEN_VERIFY, &error) != FALSE;
}

std::list<CTOOString> HashesOfProvider(const CNALProvider& provider) {
    std::list<CTOOString> hashes;
    IdentObj record;
    DWORD flags = ORK_ENUM_FIRST;
    while (ORKGetProvParam(provider.GetProviderHandle(), ORK_PARAM_ENUM_ALGS, record, flags)) {
        flags = 0;
        DWORD algId = 0;
        if (record.GetSize() < sizeof algId) break;
        std::memcpy(&algId, record.GetData(), sizeof algId);
        if ((algId & ORK_ALG_CLASS_MASK) != ORK_ALG_CLASS_HASH) continue;
        IdentObj oid;
        if (GetOIDFromAlgID(oid, algId, 0xFFFF)) {
            hashes.push_back(CTOOString(std::string(reinterpret_cast<const char*>(oid.GetData()), oid.GetSize())));
        }
    }
    return hashes;
}

}  // namespace

std::list<CTOOString> NALGetSupportedHashOIDS(const CNALCertContext* cert) {
    if (cert == nullptr || !cert->IsInitialized()) return {c_NAL_OID_HASH_GOST94};
    try {
        const CNALCertPublicKeyInfo key = nal::PublicKeyOf(*cert->GetContext());
        for (const KnownKey& known : c_knownKeys) {
            if (key.m_algorithm.Is(known.key)) return {known.hash};
        }
    } catch (const XTOOStatus&) {
        return {};  // a key that does not decode has no hash
    }
    CNALProvider provider;
    return OpenProviderOf(*cert, provider) ? HashesOfProvider(provider) : std::list<CTOOString>();
}
