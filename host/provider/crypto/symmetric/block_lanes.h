// GOST 28147-89 on several blocks side by side: a block is a chain of 32 rounds, each waiting for its table look-ups,
// so one block alone leaves most of the processor idle. Source: RFC 5830 section 5.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "host/provider/crypto/symmetric/sbox_tables.h"

namespace nalhost::crypto::symmetric {

/// A number of the standard's byte order, least significant byte first.
template <typename Word>
[[gnu::always_inline]] inline Word Load(const std::uint8_t* bytes) {
    Word word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big) {
        word = sizeof word == 8 ? static_cast<Word>(__builtin_bswap64(word))
                                : static_cast<Word>(__builtin_bswap32(static_cast<std::uint32_t>(word)));
    }
    return word;
}

template <typename Word>
[[gnu::always_inline]] inline void Store(Word word, std::uint8_t* bytes) {
    if constexpr (std::endian::native == std::endian::big) {
        word = Load<Word>(reinterpret_cast<const std::uint8_t*>(&word));
    }
    std::memcpy(bytes, &word, sizeof word);
}

/// The halves of some blocks.
template <std::size_t Lanes>
struct Blocks {
    std::uint32_t low[Lanes];
    std::uint32_t high[Lanes];
};

/// A block as one number, its low half the first four bytes.
template <std::size_t Lanes>
[[gnu::always_inline]] inline void SetBlock(Blocks<Lanes>& blocks, std::size_t lane, std::uint64_t block) {
    blocks.low[lane] = static_cast<std::uint32_t>(block);
    blocks.high[lane] = static_cast<std::uint32_t>(block >> 32);
}

template <std::size_t Lanes>
[[gnu::always_inline]] inline std::uint64_t GetBlock(const Blocks<Lanes>& blocks, std::size_t lane) {
    return std::uint64_t{blocks.high[lane]} << 32 | blocks.low[lane];
}

/// Two rounds of every lane. @param key  key(word, lane) is the lane's key word
template <std::size_t Lanes, typename Key>
[[gnu::always_inline]] inline void TwoRounds(const SboxTables& tables, const Key& key, std::size_t first,
                                             std::size_t second, Blocks<Lanes>& blocks) {
    // Else g++ makes it a function, and keeps the blocks in memory for it.
    [&]<std::size_t... Lane>(std::index_sequence<Lane...>) __attribute__((always_inline)) {
        ((blocks.high[Lane] ^= tables.Substitute(blocks.low[Lane] + key(first, Lane))), ...);
        ((blocks.low[Lane] ^= tables.Substitute(blocks.high[Lane] + key(second, Lane))), ...);
    }
    (std::make_index_sequence<Lanes>());
}

template <std::size_t Lanes, typename Key>
[[gnu::always_inline]] inline void PassUp(const SboxTables& tables, const Key& key, Blocks<Lanes>& blocks) {
    TwoRounds(tables, key, 0, 1, blocks);
    TwoRounds(tables, key, 2, 3, blocks);
    TwoRounds(tables, key, 4, 5, blocks);
    TwoRounds(tables, key, 6, 7, blocks);
}

template <std::size_t Lanes, typename Key>
[[gnu::always_inline]] inline void PassDown(const SboxTables& tables, const Key& key, Blocks<Lanes>& blocks) {
    TwoRounds(tables, key, 7, 6, blocks);
    TwoRounds(tables, key, 5, 4, blocks);
    TwoRounds(tables, key, 3, 2, blocks);
    TwoRounds(tables, key, 1, 0, blocks);
}

template <std::size_t Lanes, typename Key>
[[gnu::always_inline]] inline void EncryptBlocks(const SboxTables& tables, const Key& key, Blocks<Lanes>& blocks) {
    for (int pass = 0; pass < 3; ++pass)
        PassUp(tables, key, blocks);
    PassDown(tables, key, blocks);
    std::swap(blocks.low, blocks.high);
}

template <std::size_t Lanes, typename Key>
[[gnu::always_inline]] inline void DecryptBlocks(const SboxTables& tables, const Key& key, Blocks<Lanes>& blocks) {
    PassUp(tables, key, blocks);
    for (int pass = 0; pass < 3; ++pass)
        PassDown(tables, key, blocks);
    std::swap(blocks.low, blocks.high);
}

}  // namespace nalhost::crypto::symmetric
