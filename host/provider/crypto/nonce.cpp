#include "host/provider/crypto/nonce.h"

#include <algorithm>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/random.h"
#include "host/provider/crypto/secret_marks.h"

namespace nalhost::crypto {

SecureBytes MakeNonceSeed(const curve::Number& q, ByteView secret, const curve::Number& e) {
    SecureBytes random = RandomSecret(32);
    MarkSecret(random.data(), random.size());
    return MakeNonceSeed(random, q, secret, e);
}

SecureBytes MakeNonceSeed(ByteView random, const curve::Number& q, ByteView secret, const curve::Number& e) {
    gcry_md_hd_t opened = nullptr;
    CheckGcrypt(gcry_md_open(&opened, GCRY_MD_SHA512, GCRY_MD_FLAG_SECURE | GCRY_MD_FLAG_HMAC), "opening a hash");
    const HashPtr handle(opened);
    SecureBytes seed(kNonceSeedSize);
    // The stack has intermediate values, and those of the transforms that libgcrypt picks for this processor.
    WithWipedStack([&] {
        CheckGcrypt(gcry_md_setkey(opened, secret.data(), secret.size()), "setting a hash's key");
        std::uint8_t numbers[2 * curve::kNumberSize];
        curve::StoreNumber(e, numbers);
        curve::StoreNumber(q, numbers + curve::kNumberSize);
        gcry_md_write(opened, random.data(), random.size());
        gcry_md_write(opened, numbers, sizeof numbers);
        const unsigned char* value = gcry_md_read(opened, 0);
        if (value == nullptr) throw CryptoError(Failure::kInternal, "reading a hash value");
        std::copy_n(value, seed.size(), seed.begin());
    });
    return seed;
}

}  // namespace nalhost::crypto
