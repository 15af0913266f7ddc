// Uses keys of GOST R 34.10-2001 whose secrets are marked as undefined memory: run under valgrind, it shows every
// branch and every address that depends on one (see host/provider/crypto/secret_marks.h). With the argument "leak" it
// branches on a secret, and valgrind must say so.
#include <cstdio>
#include <cstring>

#include "host/provider/crypto/key_scheme.h"
#include "host/provider/crypto/secret_marks.h"

using namespace nalhost::crypto;

int main(int argc, char** argv) {
    const bool leaks = argc > 1 && std::strcmp(argv[1], "leak") == 0;
    const Digest digest = Hash::Of({});
    const std::uint8_t ukm[kUkmSize] = {1, 2, 3};
    std::printf("kernels: %s\n", KernelName(ChosenKernel()));
    for (const char* oid : {"1.2.643.2.2.35.0", "1.2.643.2.2.35.1", "1.2.643.2.2.35.2", "1.2.643.2.2.35.3"}) {
        const KeyParameters& set = *FindKeyParameters(oid);
        const KeyScheme& scheme = SchemeOf(set);
        // What comes of the scheme is a secret still, since the random number was marked as one; what is not must be.
        SecureBytes secret = scheme.GeneratePrivateKey(set);
        MarkSecret(secret.data(), secret.size());
        if (leaks && secret[0] == 0) std::puts("by chance");
        if (!scheme.IsPrivateKey(set, secret)) return 1;
        std::uint8_t key[64];
        scheme.DerivePublicKey(set, secret, key);
        const Signature signature = scheme.Sign(set, secret, digest);
        scheme.CommonSecret(set, secret, key, ukm);
        // Twice, for the table of the key that the second one makes.
        for (int i = 0; i < 2; ++i) {
            if (!scheme.Verify(set, key, digest, signature)) return 1;
        }
    }
    return 0;
}
