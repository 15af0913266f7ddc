#include "host/provider/key.h"

#include <algorithm>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/random.h"
#include "host/provider/failure.h"

namespace nalhost::provider {

crypto::SecureBytes AgreedKey::KeyEncryptionKey(crypto::ByteView ukm) const {
    return own->privateKey->Agree(peer, ukm, *own->format.hash);
}

SessionKey::SessionKey(crypto::SecureBytes secret, const crypto::CipherParameters& cipher, bool isExportable)
    : m_secret(std::move(secret)), m_cipher(&cipher), m_isExportable(isExportable) {
    Require(m_secret.size() == crypto::kCipherKeySize, ORK_E_BAD_LENGTH);
    crypto::FillRandom(m_iv);
}

SessionKey SessionKey::Clone() const {
    SessionKey copy(m_secret.Clone(), *m_cipher, m_isExportable);
    copy.m_iv = m_iv;
    copy.m_meshes = m_meshes;
    return copy;
}

void SessionKey::Restart() {
    m_encryption.reset();
    m_decryption.reset();
}

void SessionKey::SetIv(crypto::ByteView iv) {
    Require(iv.size() == m_iv.size(), ORK_E_BAD_LENGTH);
    std::copy(iv.begin(), iv.end(), m_iv.begin());
    Restart();
}

void SessionKey::SetCipher(const crypto::CipherParameters& cipher) {
    m_cipher = &cipher;
    Restart();
}

void SessionKey::SetMeshing(bool meshes) {
    m_meshes = meshes;
    Restart();
}

void SessionKey::Process(crypto::Direction direction, bool isFinal, crypto::ByteView in, crypto::ByteSpan out) {
    std::optional<crypto::CfbCipher>& running = direction == crypto::Direction::kEncrypt ? m_encryption : m_decryption;
    if (!running) {
        running.emplace(direction, *m_cipher,
                        m_meshes ? crypto::KeyMeshing::kOfParameterSet : crypto::KeyMeshing::kNone, m_secret, m_iv);
    }
    running->Process(in, out);
    if (isFinal) running.reset();
}

AsymmetricKeyRef Key::Asymmetric() {
    return With([](const KeyState& state) {
        Require(!std::holds_alternative<PendingKey>(state), ORK_E_BAD_KEY_STATE);
        const auto* key = std::get_if<AsymmetricKeyRef>(&state);
        Require(key != nullptr, ORK_E_BAD_KEY);
        return *key;
    });
}

AsymmetricKeyRef Key::Pair() {
    AsymmetricKeyRef key = Asymmetric();
    Require(key->privateKey.has_value(), ORK_E_BAD_KEY);
    return key;
}

KeyState Key::CopyState() {
    return With([](const KeyState& state) -> KeyState {
        if (const auto* session = std::get_if<SessionKey>(&state)) return session->Clone();
        if (const auto* pending = std::get_if<PendingKey>(&state)) return *pending;
        if (const auto* agreed = std::get_if<AgreedKey>(&state)) return *agreed;
        return std::get<AsymmetricKeyRef>(state);
    });
}

AsymmetricKeyRef GeneratePair(const KeyFormat& format) {
    crypto::PrivateKey privateKey = crypto::PrivateKey::Generate(*format.set);
    crypto::PublicKey publicKey = privateKey.DerivePublicKey();
    return MakePair(format, std::move(privateKey), std::move(publicKey), 0, 0);
}

AsymmetricKeyRef MakePublic(const PublicKeyInfo& info) {
    try {
        crypto::PublicKey key = crypto::PublicKey::Import(*info.format.set, Bytes(info.bytes));
        return std::make_shared<const AsymmetricKey>(AsymmetricKey{info.format, std::move(key), std::nullopt});
    } catch (const crypto::CryptoError& error) {
        if (error.Kind() == crypto::Failure::kBadKey) Fail(ORK_E_BAD_PUBLIC_KEY);
        throw;
    }
}

AsymmetricKeyRef MakePair(const KeyFormat& format, crypto::PrivateKey privateKey, crypto::PublicKey publicKey,
                          DWORD keyType, std::uint32_t entry) {
    return std::make_shared<const AsymmetricKey>(
        AsymmetricKey{format, std::move(publicKey), std::move(privateKey), keyType, entry});
}

AgreedKey Agree(AsymmetricKeyRef own, const AsymmetricKey& peer) {
    Require(own->format.set == peer.format.set, ORK_E_BAD_KEY);
    const crypto::CipherParameters* cipher = peer.format.cipher != nullptr ? peer.format.cipher : own->format.cipher;
    if (cipher == nullptr) cipher = crypto::FindCipherParameters(c_defaultCipherSet);
    return {std::move(own), peer.publicKey, cipher};
}

std::array<std::uint8_t, crypto::kUkmSize> NewUkm() {
    std::array<std::uint8_t, crypto::kUkmSize> ukm{};
    do {
        crypto::FillRandom(ukm);
    } while (std::all_of(ukm.begin(), ukm.end(), [](std::uint8_t byte) { return byte == 0; }));
    return ukm;
}

}  // namespace nalhost::provider
