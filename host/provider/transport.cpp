#include "host/provider/transport.h"

#include <algorithm>

#include "host/provider/blob.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/crypto/random.h"
#include "host/provider/failure.h"
#include "host/provider/one_time_keys.h"

namespace nalhost::provider {

namespace {

constexpr char c_blobPurpose[] = "nal private key blob";
constexpr char c_containerPurpose[] = "nal protection key";

using Ukm = std::array<std::uint8_t, crypto::kUkmSize>;

// The secret behind a key that protects others, for this UKM.
crypto::SecureBytes SecretOf(Key& key, crypto::ByteView ukm) {
    return key.With([&](const KeyState& state) {
        if (const auto* session = std::get_if<SessionKey>(&state)) return crypto::SecureBytes(session->Secret());
        const auto* agreed = std::get_if<AgreedKey>(&state);
        Require(agreed != nullptr, ORK_E_BAD_KEY);
        return agreed->KeyEncryptionKey(ukm);
    });
}

const crypto::CipherParameters& CipherOf(Key& key) {
    return key.With([&](const KeyState& state) -> const crypto::CipherParameters& {
        if (const auto* session = std::get_if<SessionKey>(&state)) return session->Cipher();
        const auto* agreed = std::get_if<AgreedKey>(&state);
        Require(agreed != nullptr, ORK_E_BAD_KEY);
        return *agreed->cipher;
    });
}

crypto::KeyWrap WrapOf(Key& key) {
    return key.With([](const KeyState& state) {
        const auto* agreed = std::get_if<AgreedKey>(&state);
        return agreed != nullptr ? agreed->wrap : crypto::KeyWrap::kCryptoPro;
    });
}

// A key for one purpose, so that no key serves two algorithms.
crypto::SecureBytes Derive(const char* purpose, crypto::ByteView salt, crypto::ByteView secret) {
    crypto::Hash hash;
    hash.Update({reinterpret_cast<const std::uint8_t*>(purpose), std::char_traits<char>::length(purpose) + 1});
    hash.Update(salt);
    hash.Update(secret);
    return hash.FinishSecret();
}

crypto::SecureBytes BlobKey(Key* protection, const Salt& salt) {
    const crypto::SecureBytes secret = protection == nullptr
                                           ? OneTimeKeys::Get().Find(salt)
                                           : SecretOf(*protection, crypto::ByteView(salt).first(crypto::kUkmSize));
    return Derive(c_blobPurpose, salt, secret);
}

}  // namespace

IdentObj ExportSessionKey(const SessionKey& key, Key& under) {
    Require(key.IsExportable(), ORK_E_BAD_KEY_STATE);
    SimpleBlob blob{};
    blob.cipher = &CipherOf(under);
    blob.ukm = NewUkm();
    const crypto::SecureBytes kek = SecretOf(under, blob.ukm);
    blob.key = crypto::WrapKey(WrapOf(under), *blob.cipher, kek, blob.ukm, key.Secret());
    return WriteSimpleBlob(blob);
}

SessionKey ImportSessionKey(asnt::View blob, Key& under, bool isExportable) {
    const SimpleBlob content = ParseSimpleBlob(blob);
    const crypto::SecureBytes kek = SecretOf(under, content.ukm);
    crypto::SecureBytes key = crypto::UnwrapKey(WrapOf(under), *content.cipher, kek, content.ukm, content.key);
    return {std::move(key), *content.cipher, isExportable};
}

IdentObj ExportPrivateKey(const AsymmetricKey& key, Key* protection) {
    Require(key.privateKey.has_value() && IsContainerAlgorithm(key.format.algId), ORK_E_BAD_KEY);
    Salt salt{};
    if (protection == nullptr) {
        OneTimeKeys::Get().Make(salt);
    } else {
        crypto::FillRandom(salt);
        const Ukm ukm = NewUkm();
        std::copy(ukm.begin(), ukm.end(), salt.begin());
    }
    IdentObj blob = WritePrivateBlobHead(key.format, protection == nullptr, salt);
    const auto sealed = crypto::Seal(BlobKey(protection, salt), Bytes(blob), key.privateKey->Secret());
    blob.Append(sealed.data(), static_cast<unsigned>(sealed.size()));
    return blob;
}

ImportedPrivateKey ImportPrivateKey(asnt::View blob, Key* protection) {
    const PrivateBlob content = ParsePrivateBlob(blob);
    Require(content.isOneTime == (protection == nullptr), ORK_E_BAD_KEY);
    const auto secret =
        crypto::Unseal(BlobKey(protection, content.salt), Bytes(content.associated), Bytes(content.sealed));
    Require(secret.has_value(), ORK_E_BAD_DATA);
    return {content.format, crypto::PrivateKey::Import(*content.format.set, *secret)};
}

void FinishImport(asnt::View blob) {
    const PrivateBlob content = ParsePrivateBlob(blob);
    if (content.isOneTime) OneTimeKeys::Get().Forget(content.salt);
}

crypto::SecureBytes ContainerProtection(Key& protection) {
    // The container is opened again and again, so the UKM is always the same.
    constexpr Ukm c_ukm = {1};
    return Derive(c_containerPurpose, c_ukm, SecretOf(protection, c_ukm));
}

}  // namespace nalhost::provider
