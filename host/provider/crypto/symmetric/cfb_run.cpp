#include "host/provider/crypto/symmetric/cfb_run.h"

#include <algorithm>
#include <limits>

#include "host/provider/crypto/symmetric/block_lanes.h"

namespace nalhost::crypto::symmetric {
namespace {

constexpr std::size_t kBlocksOfOneKey = 1024 / kBlockSize;

// What the old key decrypts to become the new one. Source: RFC 4357 section 2.3.2.
constexpr std::uint8_t kMeshingConstant[32] = {0x69, 0x00, 0x72, 0x22, 0x64, 0xC9, 0x04, 0x23, 0x8D, 0x3A, 0xDB,
                                               0x96, 0x46, 0xE9, 0x2A, 0xC4, 0x18, 0xFE, 0xAC, 0x94, 0x00, 0xED,
                                               0x07, 0x12, 0xC0, 0x86, 0xDC, 0xC2, 0xEF, 0x4C, 0xA9, 0x2B};

void EncryptBlock(const SboxTables& tables, const std::uint32_t (&key)[8], const std::uint8_t* in, std::uint8_t* out) {
    Blocks<1> block = {{Load<std::uint32_t>(in)}, {Load<std::uint32_t>(in + 4)}};
    EncryptBlocks(
        tables, [&key](std::size_t word, std::size_t) { return key[word]; }, block);
    Store(block.low[0], out);
    Store(block.high[0], out + 4);
}

void MeshKey(const SboxTables& tables, CfbRun& run) {
    Blocks<4> blocks;
    for (std::size_t i = 0; i < 4; ++i) {
        blocks.low[i] = Load<std::uint32_t>(kMeshingConstant + 8 * i);
        blocks.high[i] = Load<std::uint32_t>(kMeshingConstant + 8 * i + 4);
    }
    DecryptBlocks(
        tables, [&run](std::size_t word, std::size_t) { return run.key[word]; }, blocks);
    for (std::size_t i = 0; i < 4; ++i) {
        run.key[2 * i] = blocks.low[i];
        run.key[2 * i + 1] = blocks.high[i];
    }
    EncryptBlock(tables, run.key, run.feedback, run.feedback);
    run.blocksLeft = kBlocksOfOneKey;
}

// Goes on with the block that has begun; how many bytes it took.
template <bool Encrypts>
std::size_t GoOnWithBlock(CfbRun& run, ByteView in, ByteSpan out) {
    const std::size_t size = std::min(in.size(), kBlockSize - run.used);
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t taken = in[i];
        const auto given = static_cast<std::uint8_t>(taken ^ run.gamma[run.used + i]);
        run.feedback[run.used + i] = Encrypts ? given : taken;
        out[i] = given;
    }
    run.used += size;
    return size;
}

template <bool Encrypts>
void Process(const SboxTables& tables, CfbBlocks kernel, CfbRun& run, ByteView in, ByteSpan out) {
    std::size_t done = GoOnWithBlock<Encrypts>(run, in, out);
    if (done == in.size()) return;
    WithWipedStack(
        [&] {
            while (done < in.size()) {
                if (run.blocksLeft == 0) MeshKey(tables, run);
                const std::size_t count = std::min((in.size() - done) / kBlockSize, run.blocksLeft);
                if (count != 0) {
                    kernel(tables, run.key, run.feedback, in.data() + done, out.data() + done, count);
                    if (run.meshes) run.blocksLeft -= count;
                    done += count * kBlockSize;
                } else {
                    EncryptBlock(tables, run.key, run.feedback, run.gamma);
                    if (run.meshes) --run.blocksLeft;
                    run.used = 0;
                    done += GoOnWithBlock<Encrypts>(run, in.subspan(done), out.subspan(done));
                }
            }
        },
        WipeShallowStack);
}

}  // namespace

void StartCfb(CfbRun& run, ByteView key, ByteView iv, bool meshes) {
    for (std::size_t i = 0; i < 8; ++i)
        run.key[i] = Load<std::uint32_t>(key.data() + 4 * i);
    std::copy_n(iv.begin(), kBlockSize, run.feedback);
    run.used = kBlockSize;
    run.meshes = meshes;
    run.blocksLeft = meshes ? kBlocksOfOneKey : std::numeric_limits<std::size_t>::max();
}

void EncryptCfb(const SboxTables& tables, CfbBlocks kernel, CfbRun& run, ByteView in, ByteSpan out) {
    Process<true>(tables, kernel, run, in, out);
}

void DecryptCfb(const SboxTables& tables, CfbBlocks kernel, CfbRun& run, ByteView in, ByteSpan out) {
    Process<false>(tables, kernel, run, in, out);
}

}  // namespace nalhost::crypto::symmetric
