// Cipher feedback in portable code. Each block of gamma is the encryption of the block of cipher text before: when one
// decrypts, all of that is at hand, and four blocks run side by side; when one encrypts, it is a chain.
#include "host/provider/crypto/symmetric/cfb_run.h"
#include "host/provider/crypto/symmetric/key_meshing.h"

namespace nalhost::crypto::symmetric {
namespace {

constexpr std::size_t kLanes = 4;

template <std::size_t Lanes>
[[gnu::always_inline]] inline void Encrypt(const SboxTables& tables, const std::uint32_t (&key)[8],
                                           Blocks<Lanes>& blocks) {
    EncryptBlocks(
        tables, [&key](std::size_t word, std::size_t) { return key[word]; }, blocks);
}

void EncryptRun(const SboxTables& tables, CfbRun& run, const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    Blocks<1> block;
    SetBlock(block, 0, Load<std::uint64_t>(run.feedback));
    ForEachKey(
        run, count,
        [&] {
            MeshKey(tables, run.key);
            Encrypt(tables, run.key, block);
        },
        [&](std::size_t, std::size_t blocks) {
            for (; blocks != 0; --blocks, in += kBlockSize, out += kBlockSize) {
                Encrypt(tables, run.key, block);
                SetBlock(block, 0, GetBlock(block, 0) ^ Load<std::uint64_t>(in));
                Store(GetBlock(block, 0), out);
            }
        });
    Store(GetBlock(block, 0), run.feedback);
}

template <std::size_t Lanes>
void DecryptLanes(const SboxTables& tables, const std::uint32_t (&key)[8], std::uint64_t& feedback,
                  const std::uint8_t* in, std::uint8_t* out) {
    std::uint64_t cipherText[Lanes + 1];
    cipherText[0] = feedback;
    Blocks<Lanes> blocks;
    for (std::size_t i = 0; i < Lanes; ++i) {
        cipherText[i + 1] = Load<std::uint64_t>(in + kBlockSize * i);
        SetBlock(blocks, i, cipherText[i]);
    }
    Encrypt(tables, key, blocks);
    for (std::size_t i = 0; i < Lanes; ++i)
        Store(cipherText[i + 1] ^ GetBlock(blocks, i), out + kBlockSize * i);
    feedback = cipherText[Lanes];
}

void DecryptRun(const SboxTables& tables, CfbRun& run, const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    auto feedback = Load<std::uint64_t>(run.feedback);
    ForEachKey(
        run, count,
        [&] {
            MeshKey(tables, run.key);
            Blocks<1> block;
            SetBlock(block, 0, feedback);
            Encrypt(tables, run.key, block);
            feedback = GetBlock(block, 0);
        },
        [&](std::size_t, std::size_t blocks) {
            for (; blocks >= kLanes; blocks -= kLanes, in += kLanes * kBlockSize, out += kLanes * kBlockSize)
                DecryptLanes<kLanes>(tables, run.key, feedback, in, out);
            for (; blocks != 0; --blocks, in += kBlockSize, out += kBlockSize)
                DecryptLanes<1>(tables, run.key, feedback, in, out);
        });
    Store(feedback, run.feedback);
}

}  // namespace

const CfbKernel kCfbPortable = {EncryptRun, DecryptRun};

}  // namespace nalhost::crypto::symmetric
