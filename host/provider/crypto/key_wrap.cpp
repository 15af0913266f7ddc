#include "host/provider/crypto/key_wrap.h"

#include <algorithm>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/symmetric/block_lanes.h"

namespace nalhost::crypto {
namespace {

constexpr std::size_t kWords = kCipherKeySize / 4;

SecureBytes WrappingKey(KeyWrap wrap, const CipherParameters& parameters, ByteView kek, ByteView ukm) {
    if (wrap == KeyWrap::kCryptoPro) return DiversifyKey(parameters, kek, ukm);
    RequireSize(kek, kCipherKeySize, "The key-encryption key");
    return SecureBytes(kek);
}

Mac CodeOf(const CipherParameters& parameters, ByteView kek, ByteView ukm, ByteView key) {
    MacCode code(parameters, kek, ukm);
    code.Update(key);
    return code.Finish();
}

}  // namespace

SecureBytes DiversifyKey(const CipherParameters& parameters, ByteView kek, ByteView ukm) {
    RequireSize(kek, kCipherKeySize, "The key-encryption key");
    RequireSize(ukm, kCipherBlockSize, "The UKM");
    SecureBytes key(kek);
    SecureBytes iv(kCipherBlockSize);
    for (const std::uint8_t selector : ukm) {
        std::uint32_t sums[2] = {0, 0};
        // The UKM is public, so it may choose.
        for (std::size_t word = 0; word < kWords; ++word) {
            sums[(selector >> word & 1) ? 0 : 1] += symmetric::Load<std::uint32_t>(key.data() + 4 * word);
        }
        symmetric::Store(sums[0], iv.data());
        symmetric::Store(sums[1], iv.data() + 4);
        Wipe(sums, sizeof sums);
        CfbCipher cipher(Direction::kEncrypt, parameters, KeyMeshing::kNone, key, iv);
        cipher.Process(key, key.Span());
    }
    return key;
}

WrappedKey WrapKey(KeyWrap wrap, const CipherParameters& parameters, ByteView kek, ByteView ukm, ByteView key) {
    RequireSize(key, kCipherKeySize, "The key to wrap");
    const SecureBytes wrapping = WrappingKey(wrap, parameters, kek, ukm);
    WrappedKey wrapped;
    wrapped.mac = CodeOf(parameters, wrapping, ukm, key);
    SecureBytes encrypted(key);
    ProcessEcb(Direction::kEncrypt, parameters, wrapping, encrypted.Span());
    std::copy(encrypted.begin(), encrypted.end(), wrapped.encrypted.begin());
    return wrapped;
}

SecureBytes UnwrapKey(KeyWrap wrap, const CipherParameters& parameters, ByteView kek, ByteView ukm,
                      const WrappedKey& wrapped) {
    const SecureBytes wrapping = WrappingKey(wrap, parameters, kek, ukm);
    SecureBytes key{ByteView(wrapped.encrypted)};
    ProcessEcb(Direction::kDecrypt, parameters, wrapping, key.Span());
    if (!ConstantTimeEqual(CodeOf(parameters, wrapping, ukm, key), wrapped.mac)) {
        throw CryptoError(Failure::kBadData, "The wrapped key does not fit this key-encryption key, or was changed");
    }
    return key;
}

}  // namespace nalhost::crypto
