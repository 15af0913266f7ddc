// The substitution of GOST 28147-89 as four tables of 256 words: a table takes one byte of the sum of half a block and
// a key word through two S-boxes, and through the rotation by 11 bits that follows. Indexed by secrets, so the cache
// sees them, as it does in libgcrypt. For kernels that look up in registers there are the S-boxes themselves, too.
// Computed by the compiler from the parameter sets.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace nalhost::crypto {

struct SboxTables {
    std::uint32_t entry[4][256];

    /// [0]: of the low half of byte b of the sum, at 16 b + half; [1]: of the high half, in the upper four bits.
    alignas(64) std::uint8_t nibble[2][64];

    /// The round function: of half a block plus a key word. The entries have no bits in common, so that a sum is as
    /// good as XOR; it keeps the compiler from making a longer chain of it. Byte 2 is there last.
    std::uint32_t Substitute(std::uint32_t sum) const {
        return (entry[0][sum & 0xFF] + entry[1][sum >> 8 & 0xFF]) ^ entry[3][sum >> 24] ^ entry[2][sum >> 16 & 0xFF];
    }
};

/// @param digits  128 hexadecimal digits as RFC 4357 section 11.1 prints a set: for each value of half a byte, what the
///                eight S-boxes make of it, that of the lowest bits first
consteval SboxTables MakeSboxTables(const char* digits) {
    const auto substitute = [digits](std::size_t box, std::size_t value) {
        const char digit = digits[8 * value + box];
        return static_cast<std::uint32_t>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
    };
    SboxTables tables{};
    for (std::size_t byte = 0; byte < 4; ++byte) {
        for (std::size_t value = 0; value < 256; ++value) {
            const std::uint32_t pair = substitute(2 * byte, value % 16) | substitute(2 * byte + 1, value / 16) << 4;
            tables.entry[byte][value] = std::rotl(pair, static_cast<int>(8 * byte + 11));
        }
        for (std::size_t value = 0; value < 16; ++value) {
            tables.nibble[0][16 * byte + value] = static_cast<std::uint8_t>(substitute(2 * byte, value));
            tables.nibble[1][16 * byte + value] = static_cast<std::uint8_t>(substitute(2 * byte + 1, value) << 4);
        }
    }
    return tables;
}

}  // namespace nalhost::crypto
