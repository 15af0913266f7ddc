// The user's keys: finding, making, checking, deleting them.
#include <iterator>
#include <utility>

#include "frame/failure.h"
#include "model/provider_handles.h"
#include "nal/user.h"
#include "ork/csp.h"
#include "storage/cert_reader.h"
#include "win32/cnaluser/container_change.h"
#include "win32/cnaluser/container_entries.h"

namespace {

constexpr char c_getContext[] = "CNALUser::GetUserKey()";
constexpr char c_noMatch[] = "CNALUser::GetUserKey ";
constexpr char c_createContext[] = "CNALUser::CreateNewKeys";
constexpr char c_checkContext[] = "CNALUser";
constexpr char c_deleteContext[] = "CNALUser::DeleteKey";

/// Which parameter set of an exchange key goes with a signature key's.
struct ExchangeSet {
    const char* signature;
    const char* exchange;
};
constexpr ExchangeSet c_exchangeSets[] = {
    {"1.2.643.2.2.35.3", "1.2.643.2.2.36.1"},
    {"1.2.643.2.2.32.2", "1.2.643.2.2.33.1"},
    {"1.2.643.2.2.32.3", "1.2.643.2.2.33.2"},
    {"1.2.643.2.2.35.2", "1.2.643.2.2.35.2"},
};
constexpr char c_otherExchangeSet[] = "1.2.643.2.2.36.0";

const char* ExchangeSetFor(const CTOOString& signatureSet) {
    for (const ExchangeSet& pair : c_exchangeSets) {
        if (signatureSet == pair.signature) return pair.exchange;
    }
    return c_otherExchangeSet;
}

void RequireProvider(const CNALProvider& provider, const char* text) {
    if (provider.GetProviderHandle() == 0) throw XTOOStatus(TOO_E_NOT_INITIALIZED, text);
}

void SetSignatureSet(const CNALProvider& provider, const CTOOString& oid) {
    nal::RequireDone(ORKSetProvParam(provider.GetProviderHandle(), ORK_PARAM_SIGN_PARAMS, oid.c_str(), 0), c_createContext);
}

/// The number of a key's algorithm; of a signature OID that of the key in it.
DWORD KeyAlgorithm(const CTOOString& oid) {
    unsigned algId = 0;
    unsigned keyAlgId = 0;
    if (!GetAlgIDFromOID(oid.data(), static_cast<unsigned>(oid.length()), algId, keyAlgId)) {
        throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, c_createContext);
    }
    return keyAlgId != 0 ? keyAlgId : algId;
}

/// The hash that a key signs: the private algorithm's goes with no other, and no other with it.
DWORD HashFor(unsigned long hKey) {
    DWORD algId = 0;
    ORKGetKeyParam(hKey, ORK_KEY_PARAM_ALGID, algId);
    return algId == ORK_ALG_PRIVATE_SIGN ? ORK_ALG_PRIVATE_HASH : ORK_ALG_GOSTR3411;
}

/// A hash with this value.
nal::HashHandle HashOf(unsigned long hProv, unsigned long hKey, DWORD algId, const IdentObj& value) {
    nal::HashHandle hash;
    nal::RequireDone(ORKCreateHash(hProv, algId, hKey, hash.Receive(), 0), "ORKCreateHash");
    nal::RequireDone(ORKSetHashParam(hash.Get(), ORK_HASH_PARAM_VALUE, value), "ORKSetHashParam");
    return hash;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------------------------
// Finding

unsigned long CNALUser::Keep(unsigned long handle, IdentObj publicKey) const {
    m_keys.push_front({handle, std::move(publicKey)});
    m_currentKey = m_keys.begin();
    return handle;
}

// Once round from the current key, so that the certificate that was used last costs one comparison.
unsigned long CNALUser::FindOpenKey(const IdentObj& publicKey) const {
    auto key = m_currentKey;
    for (std::size_t count = m_keys.size(); count > 0; --count, ++key) {
        if (key == m_keys.end()) key = m_keys.begin();
        if (key->publicKey.IsEmpty()) key->publicKey = nal::PublicBitsOf(m_provider.GetProviderHandle(), key->handle, c_getContext);
        if (key->publicKey != publicKey) continue;
        m_currentKey = key;
        return key->handle;
    }
    return 0;
}

unsigned long CNALUser::FindKeyOf(const CNALCertContext& cert) const {
    const IdentObj publicKey = nal::PublicKeyOf(*cert.GetContext()).m_publicKey.m_data;
    if (const unsigned long open = FindOpenKey(publicKey); open != 0) return open;

    const unsigned long provider = m_provider.GetProviderHandle();
    const unsigned type = cert.GetPrivateKeyType();
    nal::KeyHandle key;
    if (ORKGetUserKey(provider, type == 0 ? ORK_KEY_ANY : type, key.Receive())) {
        CTOOString name;
        if (ORKGetProvParam(provider, ORK_PARAM_NAME, name) && name != ORK_PROVIDER_NAME) return Keep(key.Release(), {});
        if (nal::PublicBitsOf(provider, key.Get(), c_getContext) == publicKey) return Keep(key.Release(), publicKey);
    } else {
        // The current entry may be gone, or of another type than the certificate says: the others are still asked.
        nal::RequireDone(GetLastError() == ORK_E_NO_KEY, c_getContext);
        key.Release();
    }
    nal::EntryWalk walk(provider, c_getContext);
    while (walk.Next()) {
        key = walk.OpenKey();
        if (key && nal::PublicBitsOf(provider, key.Get(), c_getContext) == publicKey) return Keep(key.Release(), publicKey);
    }
    throw XTOOStatus(TOO_E_KEY_NOT_FOUND, c_noMatch);
}

unsigned long CNALUser::GetUserKey(unsigned keyType, const CNALCertContext* cert, int* err, CTOOString* msg) const {
    unsigned long handle = 0;
    nal::Report(err, msg, [&] {
        RequireProvider(m_provider, c_getContext);
        if (cert != nullptr && !cert->IsInitialized()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_getContext);
        const auto lock = m_provider.Lock();
        if (cert != nullptr) {
            handle = FindKeyOf(*cert);
        } else if (!m_keys.empty()) {
            if (m_currentKey == m_keys.end()) m_currentKey = m_keys.begin();
            handle = m_currentKey->handle;
        } else {
            nal::KeyHandle key;
            nal::RequireDone(ORKGetUserKey(m_provider.GetProviderHandle(), keyType, key.Receive()), c_getContext);
            handle = Keep(key.Release(), {});
        }
    });
    return handle;
}

// ---------------------------------------------------------------------------------------------------------------------
// Making

void CNALUser::MakeKeyPair(DWORD algId) {
    const unsigned long provider = m_provider.GetProviderHandle();
    // Makes the random generator ready, or tells now that it is not.
    unsigned char random[8];
    const DWORD reason = ORKSCApi_GetRandomByteOctet(random, 1, nullptr);
    if (reason != 0) throw XTOOStatus(WinErr2ToolsErr(reason), c_createContext);

    nal::KeyHandle key;
    nal::RequireDone(ORKGenKey(provider, algId, 0, key.Receive()), c_createContext, TOO_E_ENCODE);
    CNALCertPublicKeyInfo publicKey;
    if (!NALExportPKInfo(provider, key.Get(), publicKey)) {
        const int status = nal::LastErrorStatus();
        nal::DeleteCurrentEntry(m_provider, c_createContext);  // the pair that was just made
        throw XTOOStatus(status, c_createContext);
    }
    m_newPublicKey = std::move(publicKey);
}

BOOL CNALUser::CreateNewKeys(unsigned flags, const CTOOString& paramOID, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        RequireProvider(m_provider, c_createContext);
        const auto lock = m_provider.Lock();
        const nal::ContainerChange change(m_provider, true);
        if (!paramOID.empty()) SetSignatureSet(m_provider, paramOID);
        const bool isExchange = (flags & NAL_NEW_KEY_EXCHANGE) != 0;
        if (isExchange) {
            nal::RequireDone(
                ORKSetProvParam(m_provider.GetProviderHandle(), ORK_PARAM_EXCHANGE_PARAMS, ExchangeSetFor(paramOID), 0),
                c_createContext);
        }
        MakeKeyPair(isExchange ? ORK_KEY_EXCHANGE : ORK_KEY_SIGNATURE);
    });
}

BOOL CNALUser::CreateNewKeys(const CTOOString& signAlgOID, const CTOOString& paramOID, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        RequireProvider(m_provider, c_createContext);
        const auto lock = m_provider.Lock();
        const nal::ContainerChange change(m_provider, true);
        MakeKeysFor(signAlgOID, paramOID);
    });
}

void CNALUser::MakeKeysFor(const CTOOString& algOID, const CTOOString& paramOID) {
    const DWORD algId = KeyAlgorithm(algOID);
    SetSignatureSet(m_provider, paramOID.empty() ? algOID : paramOID);
    MakeKeyPair(algId);
}

// ---------------------------------------------------------------------------------------------------------------------
// Checking and deleting

BOOL CNALUser::CheckSignKeys(const CNALCertContext& cert, int* err, CTOOString* msg) const {
    return nal::Report(err, msg, [&] {
        constexpr DWORD hashSize = 32;
        RequireProvider(m_provider, c_checkContext);
        const auto lock = m_provider.Lock();
        const unsigned long provider = m_provider.GetProviderHandle();
        const unsigned long key = GetUserKey(cert.GetPrivateKeyType(), &cert, nullptr, nullptr);
        IdentObj value;
        value.SetSize(hashSize);
        nal::RequireDone(ORKGenRandom(provider, hashSize, value.GetData()), "ORKGenRandom");

        const DWORD algId = HashFor(key);
        const nal::HashHandle toSign = HashOf(provider, key, algId, value);
        IdentObj signature;
        nal::RequireDone(ORKSignHash(toSign.Get(), cert.GetPrivateKeyType(), 0, signature), "ORKSignHash");

        nal::KeyHandle publicKey;
        nal::RequireDone(NALIportPKInfo(provider, nal::PublicKeyOf(*cert.GetContext()), publicKey.Receive()), "NALIportPKInfo");
        const nal::HashHandle toVerify = HashOf(provider, 0, algId, value);
        if (!ORKVerifySignature(toVerify.Get(), signature, publicKey.Get(), 0)) {
            throw XTOOStatus(TOO_E_BAD_SIGNATURE, "ORKVerifySignature");
        }
    });
}

BOOL CNALUser::DeleteKey(const IdentObj& publicKeyInfo, int* err, CTOOString* msg) {
    return nal::Report(err, msg, [&] {
        RequireProvider(m_provider, c_deleteContext);
        const auto lock = m_provider.Lock();
        const nal::ContainerChange change(m_provider);
        if (!nal::GoToKey(m_provider, publicKeyInfo, c_deleteContext)) throw XTOOStatus(TOO_E_KEY_NOT_FOUND, c_deleteContext);
        nal::DeleteCurrentEntry(m_provider, c_deleteContext);
    });
}
