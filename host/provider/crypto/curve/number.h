// Numbers of 256 bits: coordinates, and scalars below a group's order.
//
// What lies in this folder's headers without being in a class template is always inlined, and the class templates take
// a type that is local to one kernel's file: no code that was compiled for one processor can serve another.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nalhost::crypto::curve {

using Limb = std::uint64_t;

/// All ones for yes, zero for no. What a mask decides takes the same time either way.
using Mask = Limb;

inline constexpr std::size_t kLimbs = 4;
inline constexpr std::size_t kNumberSize = 32;  ///< bytes

/// Least significant limb first.
struct Number {
    Limb limb[kLimbs];
};

/// A point in numbers below p, as keys hold it; never the one at infinity.
struct PlainPoint {
    Number x, y;
};

/// @param bit  0 or 1
[[gnu::always_inline]] inline Mask MaskOfBit(Limb bit) {
    // The compiler must not see that there are two values only, or it may come back to a branch.
    asm("" : "+r"(bit));
    return 0 - bit;
}

[[gnu::always_inline]] inline Mask IsZeroMask(Limb value) {
    return MaskOfBit(((value | (0 - value)) >> 63) ^ 1);
}

[[gnu::always_inline]] inline Mask IsZeroMask(const Number& number) {
    return IsZeroMask(number.limb[0] | number.limb[1] | number.limb[2] | number.limb[3]);
}

[[gnu::always_inline]] inline Mask IsEqualMask(const Number& left, const Number& right) {
    return IsZeroMask((left.limb[0] ^ right.limb[0]) | (left.limb[1] ^ right.limb[1]) | (left.limb[2] ^ right.limb[2]) |
                      (left.limb[3] ^ right.limb[3]));
}

[[gnu::always_inline]] inline Number Select(Mask mask, const Number& yes, const Number& no) {
    Number result;
    for (std::size_t i = 0; i < kLimbs; ++i)
        result.limb[i] = no.limb[i] ^ (mask & (yes.limb[i] ^ no.limb[i]));
    return result;
}

[[gnu::always_inline]] inline Number Masked(Mask mask, const Number& number) {
    return {{number.limb[0] & mask, number.limb[1] & mask, number.limb[2] & mask, number.limb[3] & mask}};
}

/// 1 / odd modulo 2^64.
[[gnu::always_inline]] inline Limb InvertLimb(Limb odd) {
    // Newton's iteration doubles the good bits; an odd number is its own inverse modulo 8.
    Limb inverse = odd;
    for (int bits = 3; bits < 64; bits *= 2)
        inverse *= 2 - odd * inverse;
    return inverse;
}

/// Reads 32 bytes, least significant first.
[[gnu::always_inline]] inline Number LoadNumber(const std::uint8_t* bytes) {
    Number number{};
    for (std::size_t i = 0; i < kNumberSize; ++i)
        number.limb[i / 8] |= static_cast<Limb>(bytes[i]) << (8 * (i % 8));
    return number;
}

[[gnu::always_inline]] inline void StoreNumber(const Number& number, std::uint8_t* bytes) {
    for (std::size_t i = 0; i < kNumberSize; ++i)
        bytes[i] = static_cast<std::uint8_t>(number.limb[i / 8] >> (8 * (i % 8)));
}

}  // namespace nalhost::crypto::curve
