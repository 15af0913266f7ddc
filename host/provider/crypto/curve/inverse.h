// Inverses modulo an odd number in constant time, by Bernstein's and Yang's division steps.
//
// A step takes (delta, f, g), f odd, to
//
//   (1 - delta, g, (g - f) / 2)                     when delta > 0 and g is odd
//   (1 + delta, f, (g + f) / 2 or g / 2)            otherwise, so that the division is exact
//
// With delta at first 1/2, f the modulus and g the number, both below 2^256, g is 0 and f is 1 or -1 (their greatest
// common divisor) after 590 steps; what the steps did to f says the inverse. A batch of 62 steps depends on the lowest
// 62 bits of f and g only. It is gathered into a matrix, scaled by 2^62, and applied to the long numbers f, g, and,
// modulo the modulus, to d and e, for which always f = d x and g = e x. Ten batches are 620 steps; further steps change
// nothing once g is 0.
//
// Source: D. J. Bernstein, B.-Y. Yang, Fast constant-time gcd computation and modular inversion, 2019. The start with
// 1/2 and its bound: P. Wuille, G. Maxwell, Bounds on divsteps iterations in safegcd, 2021.
#pragma once

#include "host/provider/crypto/curve/number.h"

namespace nalhost::crypto::curve {

template <typename Arithmetic>
class Inverter {
public:
    /// @param modulus  odd
    explicit Inverter(const Number& modulus)
        : m_modulus(ToLong(modulus)), m_inverse(InvertLimb(modulus.limb[0]) & kDigitMask) {}

    /// 1 / x, or 0 for 0. @param x  below the modulus, and prime to it unless 0
    Number Invert(const Number& x) const {
        Long f = m_modulus;
        Long g = ToLong(x);
        Long d{};
        Long e{{1, 0, 0, 0, 0}};
        Digit twiceDelta = 1;
        for (int batch = 0; batch < kBatches; ++batch) {
            const Matrix steps = Steps(twiceDelta, static_cast<Limb>(f.digit[0]) | static_cast<Limb>(f.digit[1]) << 62,
                                       static_cast<Limb>(g.digit[0]) | static_cast<Limb>(g.digit[1]) << 62);
            ApplyModular(steps, d, e);
            ApplyExact(steps, f, g);
        }
        return Normalise(d, f.digit[kDigits - 1] >> 63);
    }

private:
    using Digit = std::int64_t;
    using Double = __int128;

    static constexpr int kDigits = 5;
    static constexpr int kDigitBits = 62;
    static constexpr Limb kDigitMask = (Limb{1} << kDigitBits) - 1;
    static constexpr int kBatches = 10;

    // A signed number in digits of 62 bits, least significant first; the last one has the sign.
    struct Long {
        Digit digit[kDigits];
    };

    // (f, g) becomes (ff f + fg g, gf f + gg g) / 2^62.
    struct Matrix {
        Digit ff, fg, gf, gg;
    };

    static Long ToLong(const Number& a) {
        const Limb* limb = a.limb;
        return {{static_cast<Digit>(limb[0] & kDigitMask),
                 static_cast<Digit>((limb[0] >> 62 | limb[1] << 2) & kDigitMask),
                 static_cast<Digit>((limb[1] >> 60 | limb[2] << 4) & kDigitMask),
                 static_cast<Digit>((limb[2] >> 58 | limb[3] << 6) & kDigitMask), static_cast<Digit>(limb[3] >> 56)}};
    }

    static Number ToNumber(const Long& a) {
        const auto digit = [&a](int i) { return static_cast<Limb>(a.digit[i]); };
        return {{digit(0) | digit(1) << 62, digit(1) >> 2 | digit(2) << 60, digit(2) >> 4 | digit(3) << 58,
                 digit(3) >> 6 | digit(4) << 56}};
    }

    static Matrix Steps(Digit& twiceDelta, Limb f, Limb g) {
        // Unsigned, since a step may overflow in bits that nobody reads; the entries stay within 2^62 in size.
        Limb ff = 1;
        Limb fg = 0;
        Limb gf = 0;
        Limb gg = 1;
        for (int i = 0; i < kDigitBits; ++i) {
            const Mask isPositive = MaskOfBit(static_cast<Limb>(-twiceDelta) >> 63);
            const Mask isOdd = MaskOfBit(g & 1);
            // f is taken off g when delta is positive, else added: g - f, or g + f.
            g += ((f ^ isPositive) - isPositive) & isOdd;
            gf += ((ff ^ isPositive) - isPositive) & isOdd;
            gg += ((fg ^ isPositive) - isPositive) & isOdd;
            const Mask swaps = isPositive & isOdd;
            twiceDelta = static_cast<Digit>((static_cast<Limb>(twiceDelta) ^ swaps) - swaps) + 2;
            // The old g is the sum of f and what g has become.
            f += g & swaps;
            ff += gf & swaps;
            fg += gg & swaps;
            g >>= 1;
            ff <<= 1;
            fg <<= 1;
        }
        return {static_cast<Digit>(ff), static_cast<Digit>(fg), static_cast<Digit>(gf), static_cast<Digit>(gg)};
    }

    static void ApplyExact(const Matrix& m, Long& f, Long& g) {
        Double sumF = static_cast<Double>(m.ff) * f.digit[0] + static_cast<Double>(m.fg) * g.digit[0];
        Double sumG = static_cast<Double>(m.gf) * f.digit[0] + static_cast<Double>(m.gg) * g.digit[0];
        for (int i = 1; i < kDigits; ++i) {
            sumF =
                (sumF >> kDigitBits) + static_cast<Double>(m.ff) * f.digit[i] + static_cast<Double>(m.fg) * g.digit[i];
            sumG =
                (sumG >> kDigitBits) + static_cast<Double>(m.gf) * f.digit[i] + static_cast<Double>(m.gg) * g.digit[i];
            f.digit[i - 1] = LowDigit(sumF);
            g.digit[i - 1] = LowDigit(sumG);
        }
        f.digit[kDigits - 1] = static_cast<Digit>(sumF >> kDigitBits);
        g.digit[kDigits - 1] = static_cast<Digit>(sumG >> kDigitBits);
    }

    // Keeps d and e between -2m and m, m the modulus: a negative one counts as itself and m, and the multiple of m that
    // makes the sum divisible by 2^62 is taken between -2^62 and 0.
    void ApplyModular(const Matrix& m, Long& d, Long& e) const {
        const Digit signD = d.digit[kDigits - 1] >> 63;
        const Digit signE = e.digit[kDigits - 1] >> 63;
        Double sumD = static_cast<Double>(m.ff) * d.digit[0] + static_cast<Double>(m.fg) * e.digit[0];
        Double sumE = static_cast<Double>(m.gf) * d.digit[0] + static_cast<Double>(m.gg) * e.digit[0];
        const Digit timesD = Multiple((m.ff & signD) + (m.fg & signE), sumD);
        const Digit timesE = Multiple((m.gf & signD) + (m.gg & signE), sumE);
        sumD += static_cast<Double>(m_modulus.digit[0]) * timesD;
        sumE += static_cast<Double>(m_modulus.digit[0]) * timesE;
        for (int i = 1; i < kDigits; ++i) {
            sumD = (sumD >> kDigitBits) + static_cast<Double>(m.ff) * d.digit[i] +
                   static_cast<Double>(m.fg) * e.digit[i] + static_cast<Double>(m_modulus.digit[i]) * timesD;
            sumE = (sumE >> kDigitBits) + static_cast<Double>(m.gf) * d.digit[i] +
                   static_cast<Double>(m.gg) * e.digit[i] + static_cast<Double>(m_modulus.digit[i]) * timesE;
            d.digit[i - 1] = LowDigit(sumD);
            e.digit[i - 1] = LowDigit(sumE);
        }
        d.digit[kDigits - 1] = static_cast<Digit>(sumD >> kDigitBits);
        e.digit[kDigits - 1] = static_cast<Digit>(sumE >> kDigitBits);
    }

    static Digit LowDigit(Double sum) { return static_cast<Digit>(static_cast<Limb>(sum) & kDigitMask); }

    // The multiple of the modulus, down from `start`, that makes `sum` divisible by 2^62.
    Digit Multiple(Digit start, Double sum) const {
        const Limb excess = m_inverse * static_cast<Limb>(sum) + static_cast<Limb>(start);
        return start - static_cast<Digit>(excess & kDigitMask);
    }

    // d between -2m and m, negated when `sign` is -1, as a number from 0 to m - 1.
    Number Normalise(Long d, Digit sign) const {
        AddModulusIf(d.digit[kDigits - 1] >> 63, d);
        for (Digit& digit : d.digit)
            digit = (digit ^ sign) - sign;
        Carry(d);
        AddModulusIf(d.digit[kDigits - 1] >> 63, d);
        return ToNumber(d);
    }

    void AddModulusIf(Digit mask, Long& a) const {
        for (int i = 0; i < kDigits; ++i)
            a.digit[i] += m_modulus.digit[i] & mask;
        Carry(a);
    }

    static void Carry(Long& a) {
        for (int i = 1; i < kDigits; ++i) {
            a.digit[i] += a.digit[i - 1] >> kDigitBits;
            a.digit[i - 1] &= static_cast<Digit>(kDigitMask);
        }
    }

    Long m_modulus;
    Limb m_inverse;  // of the modulus, modulo 2^62
};

}  // namespace nalhost::crypto::curve
