// Uses keys of GOST R 34.10-2001 whose secrets are marked as undefined memory: run under valgrind, it shows every
// branch and every address that depends on one (see host/provider/crypto/secret_marks.h).
//
//   constant_time KERNEL clean|leak
//
// With "leak" it branches on a secret, and valgrind must say so. It returns 77, "skipped", when KERNEL is not the one
// that is at work: processor and valgrind must both have what it takes, and NAL_KERNELS must ask for it.
#include <cstdio>
#include <cstring>

#include "host/provider/crypto/key_scheme.h"
#include "host/provider/crypto/secret_marks.h"

using namespace nalhost::crypto;

int main(int argc, char** argv) {
    if (argc != 3) return 1;
    const bool leaks = std::strcmp(argv[2], "leak") == 0;
    const Digest digest = Hash::Of({});
    const std::uint8_t ukm[kUkmSize] = {1, 2, 3};
    if (std::strcmp(argv[1], KernelName(ChosenKernel())) != 0) {
        std::printf("the kernels at work are %s, not %s\n", KernelName(ChosenKernel()), argv[1]);
        return 77;
    }
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
        // Three times: the second one makes the table of the key, which the third one takes.
        for (int i = 0; i < 3; ++i) {
            if (!scheme.Verify(set, key, digest, signature)) return 1;
        }
    }
    return 0;
}
