// Keys behind handles.
#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <variant>

#include "host/provider/crypto/cipher.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/key_format.h"
#include "ork/constants.h"

namespace nalhost::provider {

class Context;

// A public key, or a pair. Immutable, so that handles, hashes and agreed keys share one.
struct AsymmetricKey {
    KeyFormat format;
    crypto::PublicKey publicKey;
    std::optional<crypto::PrivateKey> privateKey;
    DWORD keyType = 0;        // of a container's key
    std::uint32_t entry = 0;  // of a container's key
};

using AsymmetricKeyRef = std::shared_ptr<const AsymmetricKey>;

// A pair that key parameter 14 will generate.
struct PendingKey {
    KeyFormat format;
};

// What two sides agree on; the key-encryption key comes with the UKM of each use.
struct AgreedKey {
    AsymmetricKeyRef own;
    crypto::PublicKey peer;
    const crypto::CipherParameters* cipher;
    crypto::KeyWrap wrap = crypto::KeyWrap::kCryptoPro;

    crypto::SecureBytes KeyEncryptionKey(crypto::ByteView ukm) const;
};

// A GOST 28147-89 key with its running messages, one in each direction.
class SessionKey {
public:
    SessionKey(crypto::SecureBytes secret, const crypto::CipherParameters& cipher, bool isExportable);

    SessionKey Clone() const;
    crypto::ByteView Secret() const { return m_secret; }
    bool IsExportable() const { return m_isExportable; }
    const crypto::CipherParameters& Cipher() const { return *m_cipher; }
    const std::array<std::uint8_t, crypto::kCipherBlockSize>& Iv() const { return m_iv; }
    bool Meshes() const { return m_meshes; }

    // Each of these starts the messages anew.
    void SetIv(crypto::ByteView iv);
    void SetCipher(const crypto::CipherParameters& cipher);
    void SetMeshing(bool meshes);

    void Process(crypto::Direction direction, bool isFinal, crypto::ByteView in, crypto::ByteSpan out);

private:
    void Restart();

    crypto::SecureBytes m_secret;
    std::array<std::uint8_t, crypto::kCipherBlockSize> m_iv{};
    const crypto::CipherParameters* m_cipher;
    bool m_meshes = false;
    bool m_isExportable;
    std::optional<crypto::CfbCipher> m_encryption;
    std::optional<crypto::CfbCipher> m_decryption;
};

using KeyState = std::variant<PendingKey, AsymmetricKeyRef, SessionKey, AgreedKey>;

// What a handle names: the state, and the context that the key belongs to.
class Key {
public:
    Key(std::shared_ptr<Context> context, unsigned long contextHandle, KeyState state)
        : m_context(std::move(context)), m_contextHandle(contextHandle), m_state(std::move(state)) {}

    const std::shared_ptr<Context>& GetContext() const { return m_context; }
    unsigned long ContextHandle() const { return m_contextHandle; }

    // Runs `use` on the state while no other thread does.
    template <class Use>
    decltype(auto) With(Use&& use) {
        const std::lock_guard lock(m_mutex);
        return use(m_state);
    }

    // The key when it is a public key or a pair. @throws ProviderError ORK_E_BAD_KEY_STATE when it is not generated
    // yet, ORK_E_BAD_KEY for another kind
    AsymmetricKeyRef Asymmetric();
    // The same for a pair. @throws ORK_E_BAD_KEY for a public key
    AsymmetricKeyRef Pair();

    KeyState CopyState();

private:
    std::shared_ptr<Context> m_context;
    unsigned long m_contextHandle;
    std::mutex m_mutex;
    KeyState m_state;
};

AsymmetricKeyRef GeneratePair(const KeyFormat& format);
AsymmetricKeyRef MakePublic(const PublicKeyInfo& info);
AsymmetricKeyRef MakePair(const KeyFormat& format, crypto::PrivateKey privateKey, crypto::PublicKey publicKey,
                          DWORD keyType, std::uint32_t entry);

// The key agreed between a pair and a public key. @throws ProviderError ORK_E_BAD_KEY when their sets differ
AgreedKey Agree(AsymmetricKeyRef own, const AsymmetricKey& peer);

// A UKM that the agreement takes: random, not all zero.
std::array<std::uint8_t, crypto::kUkmSize> NewUkm();

inline asnt::View ViewOf(crypto::ByteView bytes) {
    return {bytes.data(), bytes.size()};
}
inline crypto::ByteView Bytes(asnt::View view) {
    return {view.data, view.size};
}

}  // namespace nalhost::provider
