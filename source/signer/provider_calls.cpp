#include "signer/provider_calls.h"

#include "ork/provider.h"

namespace nal {
namespace {

constexpr char c_createContext[] = "ORKCreateHash ()";
constexpr char c_hashContext[] = "ORKHashData ()";

// The provider's own trouble; everything else is a key, hash or signature that is not good.
bool IsProvidersTrouble(DWORD error) {
    return error == ORK_E_NO_MEMORY || error == ORK_E_FAIL || error == ORK_E_INVALID_HANDLE;
}

bool IsGood(BOOL done, const char* context) {
    if (!done && IsProvidersTrouble(GetLastError())) ThrowProvider(context);
    return done != FALSE;
}

HashHandle CreateHash(const SNALCryptInfo& info) {
    HashHandle hash;
    if (!ORKCreateHash(info.hProv, info.hashAlgId, info.hKey, hash.Receive(), 0)) ThrowProvider(c_createContext);
    return hash;
}

void AddTo(const HashHandle& hash, asnt::View bytes) {
    if (!ORKHashData(hash.Get(), bytes.data, static_cast<DWORD>(bytes.size), 0)) ThrowProvider(c_hashContext);
}

HashHandle Duplicate(unsigned long hHash) {
    HashHandle copy;
    if (!ORKDuplicateHash(hHash, nullptr, 0, copy.Receive())) ThrowProvider(c_createContext);
    return copy;
}

}  // namespace

HashHandle HashOfAttributes(const SNALCryptInfo& info, asnt::View attributes) {
    HashHandle hash = CreateHash(info);
    if (info.hashAlgId != ORK_ALG_PRIVATE_HASH && !attributes.empty()) {
        AddTo(hash, attributes);
        return hash;
    }
    // A running hash has no key to sign with; its value is carried over into one that has.
    const HashHandle running = Duplicate(info.hHash);
    AddTo(running, attributes);
    IdentObj value;
    if (!ORKGetHashParam(running.Get(), ORK_HASH_PARAM_VALUE, value) || !ORKSetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value)) {
        ThrowProvider(c_hashContext);
    }
    return hash;
}

bool VerifyHash(const HashHandle& hash, const IdentObj& signature, const KeyHandle& key, const char* context) {
    return IsGood(ORKVerifySignature(hash.Get(), signature, key.Get(), 0), context);
}

KeyHandle ImportPublicKey(unsigned long hProv, const CNALCertPublicKeyInfo& info, const char* context) {
    KeyHandle key;
    if (!IsGood(NALIportPKInfo(hProv, info, key.Receive()), context)) key.Release();
    return key;
}

}  // namespace nal
