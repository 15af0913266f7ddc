// No operation may leave a secret behind in memory that can be swapped out, the memory that it has released included.
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "host/provider/crypto/gcrypt_handles.h"
#include "host/provider/crypto/key_scheme.h"
#include "host/provider/crypto/key_wrap.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/crypto/random.h"
#include "support/hex.h"
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

MpiPtr OrderOf(const KeyParameters& set) {
    gcry_ctx_t opened = nullptr;
    CheckGcrypt(gcry_mpi_ec_new(&opened, nullptr, set.oid), "opening a curve");
    return MpiPtr(gcry_mpi_ec_get_mpi("n", ContextPtr(opened).get(), 1));
}

// How often a scalar is found, or what its multiplication makes of it: q - k, which is odd where k is even, and halves.
int ScalarResidue(const MpiPtr& order, ByteView scalar) {
    int count = Residue(scalar);
    for (const bool negated : {false, true}) {
        for (const unsigned shift : {0U, 1U}) {
            SecureBytes form(32);
            WithWipedStack([&] {
                const MpiPtr number = MpiFromLittleEndian(scalar, true);
                if (negated) gcry_mpi_sub(number.get(), order.get(), number.get());
                gcry_mpi_rshift(number.get(), number.get(), shift);
                MpiToLittleEndian(number.get(), form.Span());
            });
            count += Residue(form);
        }
    }
    return count;
}

TEST_F(SecretResidue, OfWhatCurvesAreMultipliedBy) {
    for (const KeyParameters& set : AllKeyParameters()) {
        if (set.algorithm != KeyAlgorithm::kGost2001) continue;
        SCOPED_TRACE(set.oid);
        const MpiPtr order = OrderOf(set);
        const PrivateKey key = PrivateKey::Generate(set);
        const SecureBytes ukm = RandomSecret(kUkmSize);
        OwnStack stack;
        std::optional<PublicKey> publicKey;
        SecureBytes common;
        stack.Run([&] { publicKey = key.DerivePublicKey(); });
        EXPECT_EQ(0, ScalarResidue(order, key.Secret())) << "derivation";
        stack.Run([&] { common = SchemeOf(set).CommonSecret(set, key.Secret(), publicKey->Bytes(), ukm); });
        EXPECT_EQ(0, Residue(common)) << "common point";
        SecureBytes scalar(32);
        WithWipedStack([&] {
            const MpiPtr product = NewMpi(512, true);
            gcry_mpi_mulm(product.get(), MpiFromLittleEndian(key.Secret(), true).get(),
                          MpiFromLittleEndian(ukm, true).get(), order.get());
            MpiToLittleEndian(product.get(), scalar.Span());
        });
        EXPECT_EQ(0, ScalarResidue(order, scalar)) << "UKM times the key";
    }
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
        const MpiPtr order = OrderOf(set);
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
        EXPECT_EQ(0, ScalarResidue(order, bytes));
        // It is the nonce: its public key has r as its x, modulo the order.
        const PublicKey point = PrivateKey::Import(set, bytes).DerivePublicKey();
        const MpiPtr x = MpiFromLittleEndian(point.Bytes().first(32), false);
        gcry_mpi_mod(x.get(), x.get(), order.get());
        EXPECT_EQ(0, gcry_mpi_cmp(x.get(), r.get()));
    }
}

std::vector<Kernel> OwnKernels() {
    std::vector<Kernel> kernels;
    for (const Kernel kernel : AllKernels()) {
        if (kernel >= Kernel::kPortable && kernel <= ProcessorKernel()) kernels.push_back(kernel);
    }
    return kernels;
}

TEST_F(SecretResidue, OfWhatIsHashed) {
    for (const Kernel kernel : OwnKernels()) {
        SCOPED_TRACE(KernelName(kernel));
        const SecureBytes secret = RandomSecret(300);
        OwnStack stack;
        Hash hash(DefaultHashParameters(), kernel);
        SecureBytes value;
        stack.Run([&] { hash.Update(secret); });
        for (std::size_t block = 0; block + 32 <= secret.size(); block += 32)
            EXPECT_EQ(0, Residue(secret.View().subspan(block, 32))) << block;
        stack.Run([&] { value = hash.FinishSecret(); });
        EXPECT_EQ(0, Residue(value)) << "value";
        EXPECT_EQ(0, Residue(secret.View().last(12))) << "what was left of the last block";
    }
}

// The key that follows one by meshing, and the vector. Source: RFC 4357 section 2.3.2.
void Mesh(const CipherParameters& set, SecureBytes& key, SecureBytes& iv) {
    SecureBytes next{ByteView(nal_test::FromHex("6900722264C904238D3ADB9646E92AC418FEAC9400ED0712C086DCC2EF4CA92B"))};
    ProcessEcb(Direction::kDecrypt, set, key, next.Span());
    ProcessEcb(Direction::kEncrypt, set, next, iv.Span());
    key = std::move(next);
}

// How often whole blocks of 8 bytes are found, or only their low or high words, as rounds work on them side by side.
int BlockResidue(ByteView blocks) {
    int count = Residue(blocks);
    for (const std::size_t half : {0, 4}) {
        SecureBytes words(blocks.size() / 2);
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] = blocks[i / 4 * 8 + half + i % 4];
        count += Residue(words);
    }
    return count;
}

TEST_F(SecretResidue, OfMeshedKeysAndGamma) {
    const CipherParameters& set = *FindCipherParameters("1.2.643.2.2.31.1");
    for (const Kernel kernel : OwnKernels()) {
        for (const Direction direction : {Direction::kEncrypt, Direction::kDecrypt}) {
            SCOPED_TRACE(KernelName(kernel) +
                         std::string(direction == Direction::kEncrypt ? " encrypts" : " decrypts"));
            SecureBytes key = RandomSecret(kCipherKeySize);
            SecureBytes iv = RandomSecret(kCipherBlockSize);
            const std::vector<std::uint8_t> in(3000, 0x31);
            std::vector<std::uint8_t> out(in.size());
            OwnStack stack;
            stack.Run(
                [&] { CfbCipher(direction, set, KeyMeshing::kOfParameterSet, key, iv, kernel).Process(in, out); });
            for (std::size_t first = 0; first < in.size(); first += 1024) {
                const std::size_t size = std::min<std::size_t>(1024, in.size() - first);
                EXPECT_EQ(0, BlockResidue(key)) << "key of byte " << first;
                for (std::size_t block = first; block < first + size; block += 256) {
                    SecureBytes gamma(2 * kCipherBlockSize);
                    for (std::size_t i = 0; i < gamma.size(); ++i)
                        gamma[i] = in[block + i] ^ out[block + i];
                    EXPECT_EQ(0, BlockResidue(gamma)) << "gamma of byte " << block;
                }
                // It is the key.
                std::vector<std::uint8_t> same(size);
                CfbCipher(direction, set, KeyMeshing::kNone, key, iv).Process(ByteView(in).subspan(first, size), same);
                EXPECT_TRUE(std::equal(same.begin(), same.end(), out.begin() + static_cast<std::ptrdiff_t>(first)));
                const auto& cipherText = direction == Direction::kEncrypt ? out : in;
                if (size == 1024)
                    std::copy_n(cipherText.begin() + static_cast<std::ptrdiff_t>(first) + 1016, 8, iv.begin());
                Mesh(set, key, iv);
            }
        }
    }
}

#if defined(__x86_64__)
// A later function could save what a computation leaves in a register.
TEST_F(SecretResidue, OfRegisters) {
    for (void (*wipe)() : {WipeStack, WipeShallowStack}) {
        std::uint64_t left[8] = {1, 1, 1, 1, 1, 1, 1, 1};
        std::uint64_t general = 1;
        WithWipedStack([] { asm volatile("pcmpeqb %%xmm9, %%xmm9; movq %%xmm9, %%r10" ::: "xmm9", "r10"); }, wipe);
        asm volatile("movdqu %%xmm9, %0; movq %%r10, %1" : "=m"(left), "=r"(general)::"memory");
        EXPECT_EQ(0U, left[0] | left[1] | general);
        if (__builtin_cpu_supports("avx")) {
            WithWipedStack([] { asm volatile("vcmptrueps %%ymm9, %%ymm9, %%ymm9" ::: "xmm9"); }, wipe);
            asm volatile("vmovdqu %%ymm9, %0" : "=m"(left)::"memory");
            EXPECT_EQ(0U, left[0] | left[1] | left[2] | left[3]);
        }
        if (__builtin_cpu_supports("avx512bw")) {
            std::uint64_t mask = 1;
            WithWipedStack(
                [] { asm volatile("vpternlogd $255, %%zmm25, %%zmm25, %%zmm25; kxnorq %%k3, %%k3, %%k3" ::); }, wipe);
            asm volatile("vmovdqu64 %%zmm25, %0; kmovq %%k3, %1" : "=m"(left), "=r"(mask)::"memory");
            for (const std::uint64_t limb : left)
                EXPECT_EQ(0U, limb | mask);
        }
    }
}
#endif

TEST_F(SecretResidue, OfSessionKeysAndProtection) {
    const CipherParameters& cipher = *FindCipherParameters("1.2.643.2.2.31.1");
    const SecureBytes kek = RandomSecret(kCipherKeySize);
    const SecureBytes session = RandomSecret(kCipherKeySize);
    const SecureBytes iv = RandomSecret(kCipherBlockSize);
    const WrappedKey wrapped = WrapKey(KeyWrap::kCryptoPro, cipher, kek, iv, session);
    const SecureBytes unwrapped = UnwrapKey(KeyWrap::kCryptoPro, cipher, kek, iv, wrapped);
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
