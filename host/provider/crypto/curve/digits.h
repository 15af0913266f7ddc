// Scalars in digits, for multiplication of points by adding prepared multiples.
#pragma once

#include "host/provider/crypto/curve/number.h"

namespace nalhost::crypto::curve {

/// An odd scalar k below 2^256 in digits that are all odd, from -(2^w - 1) to 2^w - 1: each digit costs one addition,
/// and none shows in the time, since none is zero. With n digits, w n > 256,
///
///   k = sum of (2 c_i + 1 - 2^w) 2^(w i),  where the c_i are the w-bit digits of (k + 2^(w n) - 1) / 2
///
/// as summing up the geometric series shows. Source: M. Joye, M. Tunstall, Exponent recoding and regular exponentiation
/// algorithms, 2009, section 3.2.
template <typename Arithmetic, int width>
class OddDigits {
public:
    static constexpr int kCount = 256 / width + 1;
    static constexpr std::size_t kMultiples = std::size_t{1} << (width - 1);  ///< 1, 3, ... 2^width - 1

    explicit OddDigits(const Number& k) {
        constexpr int top = width * kCount - 1;
        static_assert(top > 255 && top < 64 * kLimbsUsed);
        for (std::size_t i = 0; i < kLimbs; ++i)
            m_limb[i] = k.limb[i] >> 1 | (i + 1 < kLimbs ? k.limb[i + 1] << 63 : 0);
        m_limb[kLimbs] = Limb{1} << (top - 256);
    }

    /// Number `i` of the table 1, 3, 5, ... has the digit's size. @param isNegative  its sign
    Limb Index(int i, Mask& isNegative) const {
        const int position = width * i;
        const int limb = position / 64;
        const int offset = position % 64;
        Limb chunk = m_limb[limb] >> offset;
        if (offset > 64 - width && limb + 1 < kLimbsUsed) chunk |= m_limb[limb + 1] << (64 - offset);
        isNegative = MaskOfBit((chunk >> (width - 1) & 1) ^ 1);
        return (chunk ^ isNegative) & (kMultiples - 1);
    }

private:
    static constexpr int kLimbsUsed = kLimbs + 1;

    Limb m_limb[kLimbsUsed];
};

/// A public scalar below 2^256 in its non-adjacent form of a width w: digits odd or zero, below 2^(w-1) in size, and of
/// any w neighbours at most one not zero. Source: Hankerson, Menezes, Vanstone, section 3.3.
template <typename Arithmetic>
class SparseDigits {
public:
    static constexpr int kCount = 257;

    SparseDigits(const Number& k, int width) : m_digit{} {
        Limb carry = 0;
        for (int i = 0; i < kCount;) {
            if (Bits(k, i, 1) == carry) {
                ++i;
                continue;
            }
            const auto word = static_cast<int>(Bits(k, i, width) + carry);
            carry = static_cast<Limb>(word) >> (width - 1);
            m_digit[i] = static_cast<std::int8_t>(word - (static_cast<int>(carry) << width));
            i += width;
        }
    }

    /// @param i  any position; the digits above are zero
    int operator[](int i) const { return i < kCount ? m_digit[i] : 0; }

private:
    static Limb Bits(const Number& k, int position, int count) {
        const int limb = position / 64;
        const int offset = position % 64;
        if (limb >= static_cast<int>(kLimbs)) return 0;
        Limb bits = k.limb[limb] >> offset;
        if (offset != 0 && limb + 1 < static_cast<int>(kLimbs)) bits |= k.limb[limb + 1] << (64 - offset);
        return bits & ((Limb{1} << count) - 1);
    }

    std::int8_t m_digit[kCount];
};

}  // namespace nalhost::crypto::curve
