#include "host/provider/crypto/protection.h"

#include <bit>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/random.h"

namespace nalhost::crypto {
namespace {

CipherPtr OpenSealCipher(ByteView key, ByteView nonce, ByteView associated) {
    StartCrypto();
    RequireSize(key, kProtectionKeySize, "The protection key");
    gcry_cipher_hd_t opened = nullptr;
    CheckGcrypt(gcry_cipher_open(&opened, GCRY_CIPHER_AES256, GCRY_CIPHER_MODE_GCM, GCRY_CIPHER_SECURE),
                "opening AES-GCM");
    CipherPtr handle(opened);
    CheckGcrypt(gcry_cipher_setkey(opened, key.data(), key.size()), "setting the protection key");
    CheckGcrypt(gcry_cipher_setiv(opened, nonce.data(), nonce.size()), "setting the nonce");
    CheckGcrypt(gcry_cipher_authenticate(opened, associated.data(), associated.size()), "authenticating");
    return handle;
}

}  // namespace

bool ScryptCost::IsAcceptable() const {
    return std::has_single_bit(n) && n >= 1024 && n <= 65536 && p >= 1 && p <= 4;
}

SecureBytes DeriveProtectionKey(ByteView password, ByteView salt, const ScryptCost& cost) {
    StartCrypto();
    if (!cost.IsAcceptable())
        throw CryptoError(Failure::kBadData, "The cost of the password derivation is out of range");
    if (salt.size() < kMinSaltSize) throw CryptoError(Failure::kBadLength, "The salt is too short");
    SecureBytes key(kProtectionKeySize);
    // libgcrypt wants an address even for an empty password.
    const void* secret = password.empty() ? "" : static_cast<const void*>(password.data());
    CheckGcrypt(gcry_kdf_derive(secret, password.size(), GCRY_KDF_SCRYPT, static_cast<int>(cost.n), salt.data(),
                                salt.size(), cost.p, key.size(), key.data()),
                "deriving a key from a password");
    return key;
}

std::vector<std::uint8_t> Seal(ByteView key, ByteView associated, ByteView plain) {
    std::vector<std::uint8_t> sealed(kSealOverhead + plain.size());
    const ByteSpan nonce = ByteSpan(sealed).first(kSealNonceSize);
    FillRandom(nonce);
    const CipherPtr handle = OpenSealCipher(key, nonce, associated);
    if (!plain.empty()) {
        CheckGcrypt(
            gcry_cipher_encrypt(handle.get(), sealed.data() + kSealNonceSize, plain.size(), plain.data(), plain.size()),
            "sealing");
    }
    CheckGcrypt(gcry_cipher_gettag(handle.get(), sealed.data() + kSealNonceSize + plain.size(), kSealTagSize),
                "sealing");
    return sealed;
}

std::optional<SecureBytes> Unseal(ByteView key, ByteView associated, ByteView sealed) {
    if (sealed.size() < kSealOverhead) {
        RequireSize(key, kProtectionKeySize, "The protection key");
        return std::nullopt;
    }
    const CipherPtr handle = OpenSealCipher(key, sealed.first(kSealNonceSize), associated);
    const ByteView encrypted = sealed.subspan(kSealNonceSize, sealed.size() - kSealOverhead);
    SecureBytes plain(encrypted.size());
    if (!encrypted.empty()) {
        CheckGcrypt(gcry_cipher_decrypt(handle.get(), plain.data(), plain.size(), encrypted.data(), encrypted.size()),
                    "unsealing");
    }
    const ByteView tag = sealed.last(kSealTagSize);
    // Compared by libgcrypt in constant time.
    const gcry_error_t result = gcry_cipher_checktag(handle.get(), tag.data(), tag.size());
    if (gcry_err_code(result) == GPG_ERR_CHECKSUM) return std::nullopt;
    CheckGcrypt(result, "unsealing");
    return plain;
}

}  // namespace nalhost::crypto
