// Key meshing: after 1024 bytes the old key decrypts a constant, which becomes the new key, and the new key encrypts
// the last block of cipher text, which becomes the feedback. Source: RFC 4357 section 2.3.2.
#pragma once

#include "host/provider/crypto/symmetric/block_lanes.h"
#include "host/provider/crypto/symmetric/cfb_run.h"

namespace nalhost::crypto::symmetric {

inline constexpr std::size_t kBlocksOfOneKey = 1024 / kBlockSize;

/// The constant, as the halves of its four blocks.
inline constexpr Blocks<4> kMeshingConstant = {{0x22720069, 0x96DB3A8D, 0x94ACFE18, 0xC2DC86C0},
                                               {0x2304C964, 0xC42AE946, 0x1207ED00, 0x2BA94CEF}};

/// The new key; the feedback remains to be encrypted.
[[gnu::always_inline]] inline void MeshKey(const SboxTables& tables, std::uint32_t (&key)[8]) {
    Blocks<4> blocks = kMeshingConstant;
    DecryptBlocks(
        tables, [&key](std::size_t word, std::size_t) { return key[word]; }, blocks);
    for (std::size_t i = 0; i < 4; ++i) {
        key[2 * i] = blocks.low[i];
        key[2 * i + 1] = blocks.high[i];
    }
}

/// Calls process(blocks done, blocks to do) for each part of `count` blocks that has one key, and mesh() between them.
template <typename Mesh, typename Process>
[[gnu::always_inline]] inline void ForEachKey(CfbRun& run, std::size_t count, const Mesh& mesh,
                                              const Process& process) {
    for (std::size_t done = 0; done < count;) {
        if (run.blocksLeft == 0) {
            mesh();
            run.blocksLeft = kBlocksOfOneKey;
        }
        const std::size_t rest = count - done;
        const std::size_t size = rest < run.blocksLeft ? rest : static_cast<std::size_t>(run.blocksLeft);
        process(done, size);
        run.blocksLeft -= size;
        done += size;
    }
}

}  // namespace nalhost::crypto::symmetric
