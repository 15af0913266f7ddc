// No operation may leave a secret behind in memory that can be swapped out, the memory that it has released included.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/crypto/random.h"
#include "support/secret_residue.h"

namespace nalhost::crypto {
namespace {

using nal_test::Residue;

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
        if (const char* reason = nal_test::WhyNoResidueIsSeen()) GTEST_SKIP() << reason;
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

// A message of one block is its own checksum, too.
TEST_F(SecretResidue, OfHashes) {
    const SecureBytes message = RandomSecret(32);
    for (const Kernel kernel : AllKernels()) {
        if (kernel > ProcessorKernel()) continue;
        OwnStack stack;
        SecureBytes value;
        stack.Run([&] {
            Hash hash(DefaultHashParameters(), kernel);
            hash.Update(ByteView(message).first(5));
            hash.Update(ByteView(message).subspan(5));
            value = hash.FinishSecret();
        });
        EXPECT_EQ(0, Residue(message)) << KernelName(kernel);
        EXPECT_EQ(0, Residue(value)) << KernelName(kernel);
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
