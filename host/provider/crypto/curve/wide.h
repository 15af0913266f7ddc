// Sums and products of four limbs, made of the three operations of `Arithmetic`:
//
//   Limb Add(Limb a, Limb b, Carry& carry)        a + b + carry; carry becomes the carry out
//   Limb Subtract(Limb a, Limb b, Carry& borrow)  a - b - borrow; borrow becomes the borrow out
//   Limb Multiply(Limb a, Limb b, Limb& high)     the low limb of a * b
//
// Everything is written out in single limbs: loops over limbs cost up to twice the time, since compilers then keep
// carries in registers in place of the flag.
#pragma once

#include "host/provider/crypto/curve/number.h"

namespace nalhost::crypto::curve {

/// a + b; the carry out goes to `carry`, which comes in as 0 or 1.
template <typename Arithmetic>
[[gnu::always_inline]] inline Number AddNumbers(const Number& a, const Number& b, typename Arithmetic::Carry& carry) {
    Number sum;
    sum.limb[0] = Arithmetic::Add(a.limb[0], b.limb[0], carry);
    sum.limb[1] = Arithmetic::Add(a.limb[1], b.limb[1], carry);
    sum.limb[2] = Arithmetic::Add(a.limb[2], b.limb[2], carry);
    sum.limb[3] = Arithmetic::Add(a.limb[3], b.limb[3], carry);
    return sum;
}

/// a - b; the borrow out goes to `borrow`, which comes in as 0 or 1.
template <typename Arithmetic>
[[gnu::always_inline]] inline Number SubtractNumbers(const Number& a, const Number& b,
                                                     typename Arithmetic::Carry& borrow) {
    Number difference;
    difference.limb[0] = Arithmetic::Subtract(a.limb[0], b.limb[0], borrow);
    difference.limb[1] = Arithmetic::Subtract(a.limb[1], b.limb[1], borrow);
    difference.limb[2] = Arithmetic::Subtract(a.limb[2], b.limb[2], borrow);
    difference.limb[3] = Arithmetic::Subtract(a.limb[3], b.limb[3], borrow);
    return difference;
}

/// Whether a < b, in constant time.
template <typename Arithmetic>
[[gnu::always_inline]] inline Mask IsLessMask(const Number& a, const Number& b) {
    typename Arithmetic::Carry borrow = 0;
    SubtractNumbers<Arithmetic>(a, b, borrow);
    return MaskOfBit(borrow);
}

/// a / 2, with `top` (0 or 1) as the bit above a.
[[gnu::always_inline]] inline Number ShiftRight(const Number& a, Limb top) {
    return {{a.limb[0] >> 1 | a.limb[1] << 63, a.limb[1] >> 1 | a.limb[2] << 63, a.limb[2] >> 1 | a.limb[3] << 63,
             a.limb[3] >> 1 | top << 63}};
}

/// a / 2 modulo an odd number: of a and a + modulus, the even one is halved.
template <typename Arithmetic>
[[gnu::always_inline]] inline Number HalfModulo(const Number& a, const Number& modulus) {
    typename Arithmetic::Carry carry = 0;
    const Number even = AddNumbers<Arithmetic>(a, Masked(MaskOfBit(a.limb[0] & 1), modulus), carry);
    return ShiftRight(even, carry);
}

/// A limb times a number.
struct Row {
    Limb limb[kLimbs + 1];
};

/// A product of two numbers.
struct Wide {
    Limb limb[2 * kLimbs];
};

template <typename Arithmetic>
[[gnu::always_inline]] inline Row MultiplyRow(Limb a, const Number& b) {
    Row row;
    Limb high0;
    Limb high1;
    Limb high2;
    Limb high3;
    row.limb[0] = Arithmetic::Multiply(b.limb[0], a, high0);
    row.limb[1] = Arithmetic::Multiply(b.limb[1], a, high1);
    row.limb[2] = Arithmetic::Multiply(b.limb[2], a, high2);
    row.limb[3] = Arithmetic::Multiply(b.limb[3], a, high3);
    typename Arithmetic::Carry carry = 0;
    row.limb[1] = Arithmetic::Add(row.limb[1], high0, carry);
    row.limb[2] = Arithmetic::Add(row.limb[2], high1, carry);
    row.limb[3] = Arithmetic::Add(row.limb[3], high2, carry);
    row.limb[4] = Arithmetic::Add(high3, 0, carry);
    return row;
}

/// Adds a row to the four limbs at `at`, and gives the limb that goes to the fifth.
template <typename Arithmetic>
[[gnu::always_inline]] inline Limb AddRow(const Row& row, Limb* at) {
    typename Arithmetic::Carry carry = 0;
    at[0] = Arithmetic::Add(at[0], row.limb[0], carry);
    at[1] = Arithmetic::Add(at[1], row.limb[1], carry);
    at[2] = Arithmetic::Add(at[2], row.limb[2], carry);
    at[3] = Arithmetic::Add(at[3], row.limb[3], carry);
    // A row is at most (2^64 - 1) (2^256 - 1), so its last limb takes the carry.
    return Arithmetic::Add(row.limb[4], 0, carry);
}

/// a * b + start, which must be below 2^512.
template <typename Arithmetic, Limb start = 0>
[[gnu::always_inline]] inline Wide MultiplyNumbers(const Number& a, const Number& b) {
    const Row row = MultiplyRow<Arithmetic>(a.limb[0], b);
    Wide product;
    product.limb[0] = row.limb[0];
    product.limb[1] = row.limb[1];
    product.limb[2] = row.limb[2];
    product.limb[3] = row.limb[3];
    product.limb[4] = row.limb[4];
    if constexpr (start != 0) {
        typename Arithmetic::Carry carry = 0;
        product.limb[0] = Arithmetic::Add(row.limb[0], start, carry);
        product.limb[1] = Arithmetic::Add(row.limb[1], 0, carry);
        product.limb[2] = Arithmetic::Add(row.limb[2], 0, carry);
        product.limb[3] = Arithmetic::Add(row.limb[3], 0, carry);
        product.limb[4] = Arithmetic::Add(row.limb[4], 0, carry);
    }
    product.limb[5] = AddRow<Arithmetic>(MultiplyRow<Arithmetic>(a.limb[1], b), product.limb + 1);
    product.limb[6] = AddRow<Arithmetic>(MultiplyRow<Arithmetic>(a.limb[2], b), product.limb + 2);
    product.limb[7] = AddRow<Arithmetic>(MultiplyRow<Arithmetic>(a.limb[3], b), product.limb + 3);
    return product;
}

/// a * a + start: each product of two different limbs once, doubled, and the squares.
template <typename Arithmetic, Limb start = 0>
[[gnu::always_inline]] inline Wide SquareNumber(const Number& a) {
    const Limb a0 = a.limb[0];
    const Limb a1 = a.limb[1];
    const Limb a2 = a.limb[2];
    const Limb a3 = a.limb[3];
    using Carry = typename Arithmetic::Carry;
    Limb high;
    Limb next;
    Wide t;

    t.limb[1] = Arithmetic::Multiply(a1, a0, high);
    Carry carry = 0;
    t.limb[2] = Arithmetic::Add(Arithmetic::Multiply(a2, a0, next), high, carry);
    t.limb[3] = Arithmetic::Add(Arithmetic::Multiply(a3, a0, high), next, carry);
    t.limb[4] = Arithmetic::Add(high, 0, carry);

    const Limb low12 = Arithmetic::Multiply(a2, a1, high);
    carry = 0;
    const Limb middle = Arithmetic::Add(Arithmetic::Multiply(a3, a1, next), high, carry);
    next = Arithmetic::Add(next, 0, carry);
    carry = 0;
    t.limb[3] = Arithmetic::Add(t.limb[3], low12, carry);
    t.limb[4] = Arithmetic::Add(t.limb[4], middle, carry);
    t.limb[5] = Arithmetic::Add(next, 0, carry);

    carry = 0;
    t.limb[5] = Arithmetic::Add(t.limb[5], Arithmetic::Multiply(a3, a2, high), carry);
    t.limb[6] = Arithmetic::Add(high, 0, carry);

    carry = 0;
    t.limb[1] = Arithmetic::Add(t.limb[1], t.limb[1], carry);
    t.limb[2] = Arithmetic::Add(t.limb[2], t.limb[2], carry);
    t.limb[3] = Arithmetic::Add(t.limb[3], t.limb[3], carry);
    t.limb[4] = Arithmetic::Add(t.limb[4], t.limb[4], carry);
    t.limb[5] = Arithmetic::Add(t.limb[5], t.limb[5], carry);
    t.limb[6] = Arithmetic::Add(t.limb[6], t.limb[6], carry);
    t.limb[7] = carry;

    carry = 0;
    t.limb[0] = Arithmetic::Multiply(a0, a0, high);
    if constexpr (start != 0) t.limb[0] = Arithmetic::Add(t.limb[0], start, carry);
    t.limb[1] = Arithmetic::Add(t.limb[1], high, carry);
    t.limb[2] = Arithmetic::Add(t.limb[2], Arithmetic::Multiply(a1, a1, high), carry);
    t.limb[3] = Arithmetic::Add(t.limb[3], high, carry);
    t.limb[4] = Arithmetic::Add(t.limb[4], Arithmetic::Multiply(a2, a2, high), carry);
    t.limb[5] = Arithmetic::Add(t.limb[5], high, carry);
    t.limb[6] = Arithmetic::Add(t.limb[6], Arithmetic::Multiply(a3, a3, high), carry);
    t.limb[7] = Arithmetic::Add(t.limb[7], high, carry);
    return t;
}

}  // namespace nalhost::crypto::curve
