// No operation may leave a secret behind in memory that can be swapped out, the memory that it has released included.
#include <gcrypt.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/crypto/random.h"

// Sanitizers keep released memory for themselves and forbid looking at it.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define NAL_TEST_SANITIZED
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NAL_TEST_SANITIZED
#endif

namespace nalhost::crypto {
namespace {

struct Range {
    const std::uint8_t* first;
    const std::uint8_t* last;
};

// The process's heap, stack and other memory that it writes to.
std::vector<Range> WritableMemory() {
    constexpr std::uintptr_t c_most = 256U << 20;
    std::vector<Range> ranges;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0;
        std::uintptr_t last = 0;
        char mode[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &first, &last, mode) != 3) continue;
        if (mode[0] != 'r' || mode[1] != 'w' || line.find("[v") != std::string::npos || last - first > c_most) continue;
        ranges.push_back({reinterpret_cast<const std::uint8_t*>(first), reinterpret_cast<const std::uint8_t*>(last)});
    }
    return ranges;
}

// How often the bytes occur outside the secure pool, in which `needle` itself must be.
int CountOutside(const SecureBytes& needle) {
    int count = 0;
    for (const Range& range : WritableMemory()) {
        for (const std::uint8_t* at = range.first;; ++at) {
            const auto left = static_cast<std::size_t>(range.last - at);
            at = static_cast<const std::uint8_t*>(memmem(at, left, needle.data(), needle.size()));
            if (at == nullptr) break;
            count += gcry_is_secure(at) == 0;
        }
    }
    return count;
}

// Either half of the secret in both byte orders, since the heap writes to the ends of what it has released.
int Residue(ByteView secret) {
    int count = 0;
    for (const ByteView half : {secret.first(secret.size() / 2), secret.last(secret.size() / 2)}) {
        SecureBytes part(half);
        count += CountOutside(part);
        std::reverse(part.begin(), part.end());
        count += CountOutside(part);
    }
    return count;
}

// Runs an action on a stack that nothing is called on afterwards, so that what it leaves there is not overwritten by
// chance.
class OwnStack {
public:
    template <typename Action>
    void Run(Action action) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        ASSERT_EQ(0, pthread_attr_setstack(&attributes, m_memory.get(), c_size));
        pthread_t thread;
        auto call = [](void* called) -> void* {
            (*static_cast<Action*>(called))();
            return nullptr;
        };
        ASSERT_EQ(0, pthread_create(&thread, &attributes, call, &action));
        pthread_join(thread, nullptr);
        pthread_attr_destroy(&attributes);
    }

private:
    static constexpr std::size_t c_size = 512 << 10;
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };
    std::unique_ptr<void, Free> m_memory{std::aligned_alloc(4096, c_size)};
};

class SecretResidue : public testing::Test {
protected:
    void SetUp() override {
#ifdef NAL_TEST_SANITIZED
        GTEST_SKIP() << "a sanitizer is at work";
#endif
        if (GetSecureMemoryState() == SecureMemoryState::kDisabled) GTEST_SKIP() << "no secure memory";
        // The first search binds the calls that it makes in other libraries, which leaves registers on the stack.
        Residue(RandomSecret(32));
    }
};

TEST_F(SecretResidue, IsSeenWhenThereIsSome) {
    const SecureBytes secret = RandomSecret(32);
    const std::vector<std::uint8_t> spilt(secret.begin(), secret.end());
    EXPECT_LE(2, Residue(secret));
}

TEST_F(SecretResidue, OfRandomNumbers) {
    OwnStack stack;
    SecureBytes secret;
    stack.Run([&] { secret = RandomSecret(32); });
    EXPECT_EQ(0, Residue(secret));
}

TEST_F(SecretResidue, OfKeyPairs) {
    for (const KeyParameters& set : AllKeyParameters()) {
        SCOPED_TRACE(set.oid);
        OwnStack stack;
        std::optional<PrivateKey> key;
        std::optional<PublicKey> publicKey;
        SecureBytes kek;
        stack.Run([&] { key = PrivateKey::Generate(set); });
        EXPECT_EQ(0, Residue(key->Secret())) << "generation";
        stack.Run([&] { publicKey = key->DerivePublicKey(); });
        EXPECT_EQ(0, Residue(key->Secret())) << "derivation";
        stack.Run([&] { key->Sign(Digest{}); });
        EXPECT_EQ(0, Residue(key->Secret())) << "signature";
        stack.Run([&] { kek = key->Agree(*publicKey, RandomSecret(kUkmSize)); });
        EXPECT_EQ(0, Residue(key->Secret())) << "agreement";
        EXPECT_EQ(0, Residue(kek)) << "agreed key";
    }
}

// The nonce of a signature tells the private key; it is k = (s - d r) / e modulo q.
TEST_F(SecretResidue, OfNonces) {
    for (const KeyParameters& set : AllKeyParameters()) {
        if (set.algorithm != KeyAlgorithm::kGost2001) continue;
        SCOPED_TRACE(set.oid);
        const PrivateKey key = PrivateKey::Generate(set);
        Digest digest{};
        digest[0] = 7;
        OwnStack stack;
        Signature signature;
        stack.Run([&] { signature = key.Sign(digest); });
        gcry_ctx_t opened = nullptr;
        ASSERT_EQ(0U, gcry_mpi_ec_new(&opened, nullptr, set.oid));
        const ContextPtr context(opened);
        const MpiPtr order(gcry_mpi_ec_get_mpi("n", context.get(), 1));
        const MpiPtr r = MpiFromLittleEndian(ByteView(signature).first(32), false);
        const MpiPtr s = MpiFromLittleEndian(ByteView(signature).last(32), false);
        const MpiPtr inverse = NewMpi(256, false);
        gcry_mpi_invm(inverse.get(), MpiFromLittleEndian(digest, false).get(), order.get());
        SecureBytes bytes(32);
        WithWipedStack([&] {
            const MpiPtr nonce = NewMpi(512, true);
            gcry_mpi_mulm(nonce.get(), MpiFromLittleEndian(key.Secret(), true).get(), r.get(), order.get());
            gcry_mpi_subm(nonce.get(), s.get(), nonce.get(), order.get());
            gcry_mpi_mulm(nonce.get(), nonce.get(), inverse.get(), order.get());
            MpiToLittleEndian(nonce.get(), bytes.Span());
        });
        EXPECT_EQ(0, Residue(bytes));
        // It is the nonce: its public key has r as its x, modulo the order.
        const PublicKey point = PrivateKey::Import(set, bytes).DerivePublicKey();
        const MpiPtr x = MpiFromLittleEndian(point.Bytes().first(32), false);
        gcry_mpi_mod(x.get(), x.get(), order.get());
        EXPECT_EQ(0, gcry_mpi_cmp(x.get(), r.get()));
    }
}

TEST_F(SecretResidue, OfSessionKeysAndProtection) {
    const CipherParameters& cipher = *FindCipherParameters("1.2.643.2.2.31.1");
    const SecureBytes kek = RandomSecret(kCipherKeySize);
    const SecureBytes session = RandomSecret(kCipherKeySize);
    const SecureBytes iv = RandomSecret(kCipherBlockSize);
    const WrappedKey wrapped = WrapKey(KeyWrap::kCryptoPro, cipher, kek, iv, session);
    const SecureBytes unwrapped = UnwrapKey(KeyWrap::kCryptoPro, cipher, kek, iv, wrapped);
    std::vector<std::uint8_t> message(3000, 1);
    CfbCipher(Direction::kEncrypt, cipher, KeyMeshing::kOfParameterSet, session, iv).Process(message, message);
    EXPECT_EQ(0, Residue(session));
    EXPECT_EQ(0, Residue(kek));

    const SecureBytes password = RandomSecret(20);
    const SecureBytes key = DeriveProtectionKey(password, iv, ScryptCost());
    const auto opened = Unseal(key, {}, Seal(key, {}, session));
    EXPECT_EQ(0, Residue(password));
    EXPECT_EQ(0, Residue(key));
    EXPECT_EQ(0, Residue(session));
}

}  // namespace
}  // namespace nalhost::crypto
