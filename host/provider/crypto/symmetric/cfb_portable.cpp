// Cipher feedback in portable code. Each block of gamma is the encryption of the block of cipher text before: when one
// decrypts, all of that is at hand, and four blocks run side by side; when one encrypts, it is a chain.
#include "host/provider/crypto/symmetric/block_lanes.h"
#include "host/provider/crypto/symmetric/cfb_run.h"

namespace nalhost::crypto::symmetric {
namespace {

constexpr std::size_t kLanes = 4;

std::uint64_t ToWord(std::uint32_t low, std::uint32_t high) {
    return std::uint64_t{high} << 32 | low;
}

template <std::size_t Lanes>
void DecryptLanes(const SboxTables& tables, const std::uint32_t (&key)[8], std::uint64_t& feedback,
                  const std::uint8_t* in, std::uint8_t* out) {
    std::uint64_t cipherText[Lanes + 1];
    cipherText[0] = feedback;
    Blocks<Lanes> blocks;
    for (std::size_t i = 0; i < Lanes; ++i) {
        cipherText[i + 1] = Load<std::uint64_t>(in + kBlockSize * i);
        blocks.low[i] = static_cast<std::uint32_t>(cipherText[i]);
        blocks.high[i] = static_cast<std::uint32_t>(cipherText[i] >> 32);
    }
    EncryptBlocks(
        tables, [&key](std::size_t word, std::size_t) { return key[word]; }, blocks);
    for (std::size_t i = 0; i < Lanes; ++i)
        Store(cipherText[i + 1] ^ ToWord(blocks.low[i], blocks.high[i]), out + kBlockSize * i);
    feedback = cipherText[Lanes];
}

}  // namespace

void EncryptCfbPortable(const SboxTables& tables, const std::uint32_t (&key)[8], std::uint8_t (&feedback)[kBlockSize],
                        const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    Blocks<1> block = {{Load<std::uint32_t>(feedback)}, {Load<std::uint32_t>(feedback + 4)}};
    for (; count != 0; --count, in += kBlockSize, out += kBlockSize) {
        EncryptBlocks(
            tables, [&key](std::size_t word, std::size_t) { return key[word]; }, block);
        block.low[0] ^= Load<std::uint32_t>(in);
        block.high[0] ^= Load<std::uint32_t>(in + 4);
        Store(block.low[0], out);
        Store(block.high[0], out + 4);
    }
    Store(block.low[0], feedback);
    Store(block.high[0], feedback + 4);
}

void DecryptCfbPortable(const SboxTables& tables, const std::uint32_t (&key)[8], std::uint8_t (&feedback)[kBlockSize],
                        const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    auto last = Load<std::uint64_t>(feedback);
    for (; count >= kLanes; count -= kLanes, in += kLanes * kBlockSize, out += kLanes * kBlockSize)
        DecryptLanes<kLanes>(tables, key, last, in, out);
    for (; count != 0; --count, in += kBlockSize, out += kBlockSize)
        DecryptLanes<1>(tables, key, last, in, out);
    Store(last, feedback);
}

}  // namespace nalhost::crypto::symmetric
