#include "host/provider/crypto/symmetric/cfb_run.h"

#include <algorithm>
#include <limits>

#include "host/provider/crypto/symmetric/key_meshing.h"

namespace nalhost::crypto::symmetric {
namespace {

// A block in vectors is a chain of instructions that each take one cycle on Intel's processors and two on AMD's latest,
// where look-ups in memory are faster.
bool EncryptsFastInVectors() {
#if defined(__x86_64__)
    __builtin_cpu_init();
    return __builtin_cpu_is("intel") != 0;
#else
    return false;
#endif
}

// Goes on with the block that has begun; how many bytes it took.
template <bool Encrypts>
std::size_t GoOnWithBlock(CfbRun& run, ByteView in, ByteSpan out) {
    const std::size_t size = std::min(in.size(), kBlockSize - run.used);
    for (std::size_t i = 0; i < size; ++i) {
        std::uint8_t& feedback = run.feedback[run.used + i];
        const std::uint8_t taken = in[i];
        const auto given = static_cast<std::uint8_t>(taken ^ feedback);
        feedback = Encrypts ? given : taken;
        out[i] = given;
    }
    run.used += size;
    return size;
}

template <bool Encrypts>
void Process(const SboxTables& tables, const CfbKernel& kernel, CfbRun& run, ByteView in, ByteSpan out) {
    const std::size_t begun = GoOnWithBlock<Encrypts>(run, in, out);
    if (begun == in.size()) return;
    WithWipedStack(
        [&] {
            const std::size_t count = (in.size() - begun) / kBlockSize;
            const std::size_t done = begun + count * kBlockSize;
            const CfbBlocks blocks = Encrypts ? kernel.encrypt : kernel.decrypt;
            if (count != 0) blocks(tables, run, in.data() + begun, out.data() + begun, count);
            if (done == in.size()) return;
            // Zeros encrypt to the gamma of the block that begins.
            const std::uint8_t zeros[kBlockSize]{};
            std::uint8_t gamma[kBlockSize];
            kernel.encrypt(tables, run, zeros, gamma, 1);
            run.used = 0;
            GoOnWithBlock<Encrypts>(run, in.subspan(done), out.subspan(done));
        },
        WipeShallowStack);
}

}  // namespace

CfbKernel ChooseCfbKernel(Kernel kernel) {
    CfbKernel chosen = kCfbPortable;
    if (kernel >= Kernel::kAvx2 && kCfbAvx2.decrypt != nullptr) chosen.decrypt = kCfbAvx2.decrypt;
    if (kernel >= Kernel::kAvx512 && kCfbAvx512.decrypt != nullptr) {
        chosen.decrypt = kCfbAvx512.decrypt;
        if (EncryptsFastInVectors()) chosen.encrypt = kCfbAvx512.encrypt;
    }
    return chosen;
}

void StartCfb(CfbRun& run, ByteView key, ByteView iv, bool meshes) {
    for (std::size_t i = 0; i < 8; ++i)
        run.key[i] = Load<std::uint32_t>(key.data() + 4 * i);
    std::copy_n(iv.begin(), kBlockSize, run.feedback);
    run.used = kBlockSize;
    run.blocksLeft = meshes ? kBlocksOfOneKey : std::numeric_limits<std::uint64_t>::max();
}

void EncryptCfb(const SboxTables& tables, const CfbKernel& kernel, CfbRun& run, ByteView in, ByteSpan out) {
    Process<true>(tables, kernel, run, in, out);
}

void DecryptCfb(const SboxTables& tables, const CfbKernel& kernel, CfbRun& run, ByteView in, ByteSpan out) {
    Process<false>(tables, kernel, run, in, out);
}

}  // namespace nalhost::crypto::symmetric
