#include "host/provider/crypto/random.h"

#include <gcrypt.h>

namespace nalhost::crypto {

void FillRandom(ByteSpan out) {
    StartCrypto();
    if (out.empty()) return;
    // libgcrypt fetches from the kernel into a buffer on the stack, and leaves it there.
    WithWipedStack([&] { gcry_randomize(out.data(), out.size(), GCRY_STRONG_RANDOM); });
}

SecureBytes RandomSecret(std::size_t size) {
    SecureBytes secret(size);
    FillRandom(secret.Span());
    return secret;
}

}  // namespace nalhost::crypto
