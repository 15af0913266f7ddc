// ORK* calls on hashes and signatures.
#include "host/provider/objects.h"
#include "host/provider/value.h"
#include "ork/provider.h"

namespace {

using namespace nalhost::provider;  // NOLINT(google-build-using-namespace)
namespace crypto = nalhost::crypto;

constexpr char c_privateHashSet[] = "1.2.643.2.2.30.0";

const crypto::HashParameters& ParametersOf(DWORD algId) {
    Require(algId == ORK_ALG_GOSTR3411 || algId == ORK_ALG_PRIVATE_HASH, ORK_E_BAD_ALGID);
    return algId == ORK_ALG_GOSTR3411 ? crypto::DefaultHashParameters() : *crypto::FindHashParameters(c_privateHashSet);
}

// The private hash belongs to the private key algorithm alone. That algorithm signs GOST R 34.11 too: it is how a
// container's key is proved to match a certificate.
void RequireFit(const HashObject& hash, const AsymmetricKey& key) {
    Require(hash.algId != ORK_ALG_PRIVATE_HASH || key.format.algId == ORK_ALG_PRIVATE_SIGN, ORK_E_BAD_HASH);
}

crypto::Digest Finish(HashObject& hash) {
    hash.isEmpty = false;
    return hash.hash.Finish();
}

IdentObj ReadParam(HashObject& hash, DWORD param) {
    switch (param) {
        case ORK_HASH_PARAM_ALGID:
            return ValueOfNumber(hash.algId);
        case ORK_HASH_PARAM_SIZE:
            return ValueOfNumber<DWORD>(crypto::kDigestSize);
        case ORK_HASH_PARAM_VALUE:
            return {Finish(hash).data(), crypto::kDigestSize};
        default:
            Fail(ORK_E_BAD_TYPE);
    }
}

}  // namespace

BOOL ORKCreateHash(unsigned long hProv, DWORD algId, unsigned long hKey, unsigned long* hHash, DWORD flags) {
    return Guard("ORKCreateHash", [&] {
        const auto context = Contexts().Get(hProv);
        Require(hHash != nullptr, ORK_E_INVALID_PARAMETER);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        const crypto::HashParameters& parameters = ParametersOf(algId);
        const AsymmetricKeyRef key = hKey == 0 ? nullptr : Keys().Get(hKey)->Pair();
        *hHash = Hashes().Add(std::make_shared<HashObject>(context, algId, parameters, key));
    });
}

BOOL ORKDuplicateHash(unsigned long hHash, const DWORD* reserved, DWORD flags, unsigned long* hCopy) {
    return Guard("ORKDuplicateHash", [&] {
        const auto hash = Hashes().Get(hHash);
        Require(hCopy != nullptr && reserved == nullptr, ORK_E_INVALID_PARAMETER);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        const std::lock_guard lock(hash->mutex);
        *hCopy = Hashes().Add(std::make_shared<HashObject>(*hash));
    });
}

BOOL ORKHashData(unsigned long hHash, const void* data, DWORD length, DWORD flags) {
    return Guard("ORKHashData", [&] {
        const auto hash = Hashes().Get(hHash);
        Require(data != nullptr || length == 0, ORK_E_INVALID_PARAMETER);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        const std::lock_guard lock(hash->mutex);
        hash->hash.Update({static_cast<const std::uint8_t*>(data), length});
        hash->isEmpty = false;
    });
}

BOOL ORKGetHashParam(unsigned long hHash, DWORD param, IdentObj& value) {
    return Guard("ORKGetHashParam", [&] {
        const auto hash = Hashes().Get(hHash);
        const std::lock_guard lock(hash->mutex);
        value = ReadParam(*hash, param);
    });
}

BOOL ORKSetHashParam(unsigned long hHash, DWORD param, const IdentObj& value) {
    return Guard("ORKSetHashParam", [&] {
        const auto hash = Hashes().Get(hHash);
        Require(param == ORK_HASH_PARAM_VALUE, ORK_E_BAD_TYPE);
        Require(value.GetSize() == crypto::kDigestSize, ORK_E_BAD_LENGTH);
        const std::lock_guard lock(hash->mutex);
        Require(hash->isEmpty, ORK_E_BAD_HASH_STATE);
        crypto::Digest digest{};
        std::copy_n(value.GetData(), digest.size(), digest.begin());
        hash->hash.SetValue(digest);
        hash->isEmpty = false;
    });
}

BOOL ORKSignHash(unsigned long hHash, DWORD keyType, DWORD flags, IdentObj& signature) {
    return Guard("ORKSignHash", [&] {
        const auto hash = Hashes().Get(hHash);
        Require(flags == 0, ORK_E_BAD_FLAGS);
        const std::lock_guard lock(hash->mutex);
        const AsymmetricKeyRef key = hash->key ? hash->key : hash->context->SigningKey(keyType);
        RequireFit(*hash, *key);
        const crypto::Signature made = key->privateKey->Sign(Finish(*hash));
        signature.SetData(made.data(), static_cast<unsigned>(made.size()));
    });
}

BOOL ORKVerifySignature(unsigned long hHash, const IdentObj& signature, unsigned long hPubKey, DWORD flags) {
    return Guard("ORKVerifySignature", [&] {
        const auto hash = Hashes().Get(hHash);
        const AsymmetricKeyRef key = Keys().Get(hPubKey)->Asymmetric();
        Require(flags == 0, ORK_E_BAD_FLAGS);
        const std::lock_guard lock(hash->mutex);
        RequireFit(*hash, *key);
        Require(key->publicKey.Verify(Finish(*hash), Bytes(signature)), ORK_E_BAD_SIGNATURE);
    });
}

BOOL ORKDestroyHash(unsigned long hHash) {
    return Guard("ORKDestroyHash", [&] { Hashes().Remove(hHash); });
}
