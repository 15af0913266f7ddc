// The field of any odd modulus m above 2^255, by Montgomery's multiplication: an element a is kept as a R mod m with
// R = 2^256, and a product is divided by R, limb by limb, by adding the multiple of m that makes the lowest limb zero.
// Source: P. L. Montgomery, Modular multiplication without trial division, 1985.
//
// Elements are below m; m is not far below 2^256, so every sum is reduced with the carry out of bit 255. Used for
// primes without a special form, and for scalars modulo the order of a group.
#pragma once

#include "host/provider/crypto/curve/wide.h"

namespace nalhost::crypto::curve {

template <typename ArithmeticType>
class FieldMontgomery {
public:
    using Arithmetic = ArithmeticType;

    explicit FieldMontgomery(const Number& modulus) : m_modulus(modulus) {
        m_negativeInverse = 0 - InvertLimb(modulus.limb[0]);
        m_one = {{1, 0, 0, 0}};
        for (int i = 0; i < 256; ++i)
            m_one = Add(m_one, m_one);
        m_square = m_one;
        for (int i = 0; i < 256; ++i)
            m_square = Add(m_square, m_square);
    }

    const Number& Modulus() const { return m_modulus; }
    Number One() const { return m_one; }

    Number FromPlain(const Number& number) const { return Multiply(number, m_square); }
    Number ToPlain(const Number& a) const { return Multiply(a, {{1, 0, 0, 0}}); }

    [[gnu::always_inline]] Mask IsZero(const Number& a) const { return IsZeroMask(a); }

    [[gnu::always_inline]] Number Add(const Number& a, const Number& b) const {
        Carry carry = 0;
        const Number sum = AddNumbers<Arithmetic>(a, b, carry);
        return SubtractModulusOnce(sum, carry);
    }

    [[gnu::always_inline]] Number Subtract(const Number& a, const Number& b) const {
        Carry borrow = 0;
        const Number difference = SubtractNumbers<Arithmetic>(a, b, borrow);
        Carry carry = 0;
        return AddNumbers<Arithmetic>(difference, Masked(MaskOfBit(borrow), m_modulus), carry);
    }

    [[gnu::always_inline]] Number Half(const Number& a) const { return HalfModulo<Arithmetic>(a, m_modulus); }

    [[gnu::always_inline]] Number Multiply(const Number& a, const Number& b) const {
        return Reduce(MultiplyNumbers<Arithmetic>(a, b));
    }

    [[gnu::always_inline]] Number Square(const Number& a) const { return Reduce(SquareNumber<Arithmetic>(a)); }

private:
    using Carry = typename Arithmetic::Carry;

    // sum + carry 2^256, which is below 2m, modulo m.
    [[gnu::always_inline]] Number SubtractModulusOnce(const Number& sum, const Carry& carry) const {
        Carry borrow = 0;
        const Number reduced = SubtractNumbers<Arithmetic>(sum, m_modulus, borrow);
        Carry ignored = 0;
        return AddNumbers<Arithmetic>(reduced, Masked(MaskOfBit(borrow) & ~MaskOfBit(carry), m_modulus), ignored);
    }

    // The low half goes through the four divisions alone; the high half joins it at the end.
    [[gnu::always_inline]] Number Reduce(const Wide& t) const {
        Number low = {{t.limb[0], t.limb[1], t.limb[2], t.limb[3]}};
        low = DivideByLimb(DivideByLimb(DivideByLimb(DivideByLimb(low))));
        Carry carry = 0;
        const Number sum = AddNumbers<Arithmetic>(low, {{t.limb[4], t.limb[5], t.limb[6], t.limb[7]}}, carry);
        return SubtractModulusOnce(sum, carry);
    }

    // (a + the multiple of m that makes the lowest limb zero) / 2^64; at most m when a is.
    [[gnu::always_inline]] Number DivideByLimb(const Number& a) const {
        const Row row = MultiplyRow<Arithmetic>(a.limb[0] * m_negativeInverse, m_modulus);
        Number result;
        Carry carry = 0;
        Arithmetic::Add(a.limb[0], row.limb[0], carry);
        result.limb[0] = Arithmetic::Add(a.limb[1], row.limb[1], carry);
        result.limb[1] = Arithmetic::Add(a.limb[2], row.limb[2], carry);
        result.limb[2] = Arithmetic::Add(a.limb[3], row.limb[3], carry);
        result.limb[3] = Arithmetic::Add(row.limb[4], 0, carry);
        return result;
    }

    Number m_modulus;
    Limb m_negativeInverse;  // -1/m mod 2^64
    Number m_one;            // R mod m
    Number m_square;         // R^2 mod m
};

}  // namespace nalhost::crypto::curve
