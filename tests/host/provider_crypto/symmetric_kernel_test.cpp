// The kernels of hash and cipher against libgcrypt, the hash against nettle too: random messages in random pieces at
// every alignment.
#include <gtest/gtest.h>
#include <nettle/gosthash94.h>

#include <algorithm>
#include <random>

#include "host/provider/crypto/cipher.h"
#include "host/provider/crypto/hash.h"
#include "host/provider/crypto/symmetric/cfb_run.h"
#include "host/provider/crypto/symmetric/hash_run.h"
#include "support/case_count.h"
#include "support/hex.h"

namespace nalhost::crypto {
namespace {

using nal_test::Bytes;

class SymmetricKernels : public testing::TestWithParam<Kernel> {
protected:
    void SetUp() override {
        if (GetParam() > ProcessorKernel()) GTEST_SKIP() << "the processor has no such kernel";
    }

    std::size_t Below(std::size_t bound) { return m_random() % bound; }

    // Random bytes, or bytes of mostly one kind, for carries.
    Bytes RandomBytes(std::size_t size) {
        Bytes bytes(size, Below(3) == 0 ? 0xFF : 0);
        if (Below(4) != 0)
            std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<std::uint8_t>(m_random()); });
        return bytes;
    }

    // Short, about the length of a kernel's pass or of a meshing section, or anything.
    std::size_t RandomSize() {
        const std::size_t middles[] = {32, 64, 128, 256, 512, 1024, 2048, 3072};
        switch (Below(4)) {
            case 0:
                return Below(100);
            case 1:
                return middles[Below(8)] + Below(19) - 9;
            default:
                return Below(Below(20) == 0 ? 20000 : 3000);
        }
    }

    // Calls action(offset, size) for pieces of `size`; empty ones are among them.
    template <typename Action>
    void InPieces(std::size_t size, const Action& action) {
        const std::size_t most = Below(3) == 0 ? 20 : 1 + Below(size + 1);
        for (std::size_t offset = 0; offset < size;) {
            const std::size_t piece = std::min(Below(most + 1), size - offset);
            action(offset, piece);
            offset += piece;
        }
    }

    std::mt19937_64 m_random;
};

INSTANTIATE_TEST_SUITE_P(Kernels, SymmetricKernels, testing::Values(Kernel::kPortable, Kernel::kAvx2, Kernel::kAvx512),
                         [](const auto& info) { return std::string(KernelName(info.param)); });

Digest ReferenceHash(ByteView data, const HashParameters& set) {
    Hash hash(set, Kernel::kReference);
    hash.Update(data);
    return hash.Finish();
}

Digest NettleHash(ByteView data, const HashParameters& set) {
    Digest digest;
    gosthash94_ctx context;
    gosthash94_init(&context);  // the same for both sets
    const bool isTestSet = set.oid == std::string("1.2.643.2.2.30.0");
    (isTestSet ? gosthash94_update : gosthash94cp_update)(&context, data.size(), data.data());
    (isTestSet ? gosthash94_digest : gosthash94cp_digest)(&context, digest.size(), digest.data());
    return digest;
}

TEST_P(SymmetricKernels, HashByInstructionsOfTheProcessor) {
    EXPECT_EQ(GetParam() == Kernel::kAvx512, symmetric::HashBlocksOf(GetParam()) != symmetric::HashBlocksPortable);
}

TEST_P(SymmetricKernels, HashLikeTheReferenceAndNettle) {
    for (int i = nal_test::CaseCount(30000); i > 0 && !HasFailure(); --i) {
        const HashParameters& set = AllHashParameters()[Below(2)];
        const std::size_t shift = Below(64);
        const Bytes message = RandomBytes(shift + RandomSize() / 4);
        const ByteView data = ByteView(message).subspan(shift);
        Hash hash(set, GetParam());
        Hash branch(set, GetParam());
        const std::size_t branchAt = Below(data.size() + 1);
        InPieces(branchAt, [&](std::size_t offset, std::size_t size) { hash.Update(data.subspan(offset, size)); });
        branch = hash;
        hash.Update(data.subspan(branchAt));
        EXPECT_EQ(ReferenceHash(data, set), hash.Finish()) << set.oid << " " << data.size();
        EXPECT_EQ(NettleHash(data, set), hash.Finish()) << set.oid << " " << data.size();
        EXPECT_TRUE(ConstantTimeEqual(hash.Finish(), hash.FinishSecret()));
        EXPECT_EQ(ReferenceHash(data.first(branchAt), set), branch.Finish()) << set.oid << " " << branchAt;
    }
}

TEST_P(SymmetricKernels, HashEveryShortSizeAndSplit) {
    const Bytes message = RandomBytes(130);
    for (const HashParameters& set : AllHashParameters()) {
        for (std::size_t size = 0; size <= message.size(); ++size) {
            const Digest expected = ReferenceHash(ByteView(message).first(size), set);
            for (std::size_t split = 0; split <= size; ++split) {
                Hash hash(set, GetParam());
                hash.Update(ByteView(message).first(split));
                hash.Update(ByteView(message).subspan(split, size - split));
                ASSERT_EQ(expected, hash.Finish()) << set.oid << " " << split << " of " << size;
            }
        }
    }
}

// A message under a kernel with all of its own functions, those too that the processor has faster ones for.
class OwnCfb {
public:
    OwnCfb(Direction direction, const CipherParameters& set, bool meshes, ByteView key, ByteView iv, Kernel kernel)
        : m_process(direction == Direction::kEncrypt ? symmetric::EncryptCfb : symmetric::DecryptCfb),
          m_boxes(*set.boxes),
          m_kernel(symmetric::ChooseCfbKernel(kernel)) {
        if (kernel == Kernel::kAvx512 && symmetric::kCfbAvx512.encrypt != nullptr) m_kernel.encrypt = symmetric::kCfbAvx512.encrypt;
        symmetric::StartCfb(m_run, key, iv, meshes && set.meshes);
    }

    void Process(ByteView in, ByteSpan out) { m_process(m_boxes, m_kernel, m_run, in, out); }

private:
    decltype(&symmetric::EncryptCfb) m_process;
    const SboxTables& m_boxes;
    symmetric::CfbKernel m_kernel;
    symmetric::CfbRun m_run{};
};

TEST_P(SymmetricKernels, EncryptAndDecryptLikeTheReference) {
    for (int i = nal_test::CaseCount(10000); i > 0 && !HasFailure(); --i) {
        const CipherParameters& set = AllCipherParameters()[Below(AllCipherParameters().size())];
        const KeyMeshing meshing = Below(4) == 0 ? KeyMeshing::kNone : KeyMeshing::kOfParameterSet;
        const Bytes key = RandomBytes(kCipherKeySize);
        const Bytes iv = RandomBytes(kCipherBlockSize);
        const std::size_t shift = Below(64);
        const Bytes plain = RandomBytes(RandomSize());
        Bytes expected(plain.size());
        CfbCipher(Direction::kEncrypt, set, meshing, key, iv, Kernel::kReference).Process(plain, expected);
        SCOPED_TRACE(set.oid + (" " + std::to_string(plain.size())));
        for (const Direction direction : {Direction::kEncrypt, Direction::kDecrypt}) {
            const Bytes& from = direction == Direction::kEncrypt ? plain : expected;
            const Bytes& to = direction == Direction::kEncrypt ? expected : plain;
            // With guards before and behind; from memory apart, and in place.
            Bytes memory(shift + from.size() + 64, 0xA5);
            const ByteSpan out = ByteSpan(memory).subspan(shift, from.size());
            const bool inPlace = Below(2) == 0;
            if (inPlace) std::copy(from.begin(), from.end(), out.begin());
            const ByteView in = inPlace ? ByteView(out) : ByteView(from);
            CfbCipher cipher(direction, set, meshing, key, iv, GetParam());
            OwnCfb own(direction, set, meshing == KeyMeshing::kOfParameterSet, key, iv, GetParam());
            const bool isOwn = Below(2) == 0;
            InPieces(in.size(), [&](std::size_t offset, std::size_t size) {
                const ByteView from = in.subspan(offset, size);
                const ByteSpan to = out.subspan(offset, size);
                isOwn ? own.Process(from, to) : cipher.Process(from, to);
            });
            EXPECT_TRUE(std::equal(to.begin(), to.end(), out.begin())) << "direction " << static_cast<int>(direction);
            std::fill(out.begin(), out.end(), std::uint8_t{0xA5});
            EXPECT_EQ(Bytes(memory.size(), 0xA5), memory) << "wrote outside";
        }
    }
}

// Every size up to three sections and every split of them. Keys change in the middle of a run of blocks, between bytes,
// and not at all when nothing follows.
TEST_P(SymmetricKernels, EverySizeAndSplitOverTheMeshingBorders) {
    const Bytes key = RandomBytes(kCipherKeySize);
    const Bytes iv = RandomBytes(kCipherBlockSize);
    const Bytes plain = RandomBytes(3 * 1024 + 9);
    for (const CipherParameters& set : AllCipherParameters()) {
        Bytes expected(plain.size());
        CfbCipher(Direction::kEncrypt, set, KeyMeshing::kOfParameterSet, key, iv, Kernel::kReference)
            .Process(plain, expected);
        // Of all sets but one, some splits about the borders.
        const std::size_t step = set.oid == std::string_view("1.2.643.2.2.31.1") ? 1 : 31;
        for (std::size_t split = 0; split <= plain.size(); split += split % 512 < 9 || split % 512 > 502 ? 1 : step) {
            for (const Direction direction : {Direction::kEncrypt, Direction::kDecrypt}) {
                Bytes data = direction == Direction::kEncrypt ? plain : expected;
                OwnCfb cipher(direction, set, true, key, iv, GetParam());
                const ByteSpan first = ByteSpan(data).first(split);
                const ByteSpan rest = ByteSpan(data).subspan(split);
                cipher.Process(first, first);
                cipher.Process(rest, rest);
                ASSERT_EQ(direction == Direction::kEncrypt ? expected : plain, data) << set.oid << " " << split;
            }
        }
    }
}

}  // namespace
}  // namespace nalhost::crypto
