// The field of a prime p = 2^256 - c with small c: the high half of a product comes back c-fold, since 2^256 = c mod p.
//
// Elements are below 2^256, not below p: numbers below c have two forms, zero for one is 0 or p. A sum's carry comes
// back as c, and adding that may carry once more; what is left then is so small that adding c again cannot. Differences
// mirror it.
#pragma once

#include "host/provider/crypto/curve/wide.h"

namespace nalhost::crypto::curve {

template <typename ArithmeticType, Limb c>
class FieldBelow {
public:
    using Arithmetic = ArithmeticType;

    static constexpr Number kPrime = {{0 - c, ~Limb{0}, ~Limb{0}, ~Limb{0}}};

    explicit FieldBelow(const Number&) {}

    const Number& Modulus() const { return kPrime; }
    Number One() const { return {{1, 0, 0, 0}}; }

    Number FromPlain(const Number& number) const { return number; }

    Number ToPlain(const Number& a) const {
        Carry borrow = 0;
        const Number reduced = SubtractNumbers<Arithmetic>(a, kPrime, borrow);
        return Select(MaskOfBit(borrow), a, reduced);
    }

    [[gnu::always_inline]] Mask IsZero(const Number& a) const { return IsZeroMask(a) | IsEqualMask(a, kPrime); }

    [[gnu::always_inline]] Number Add(const Number& a, const Number& b) const {
        Carry carry = 0;
        const Number sum = AddNumbers<Arithmetic>(a, b, carry);
        return AddFolded(sum, c & MaskOfBit(carry));
    }

    [[gnu::always_inline]] Number Subtract(const Number& a, const Number& b) const {
        Carry borrow = 0;
        Number difference = SubtractNumbers<Arithmetic>(a, b, borrow);
        const Number first = {{c & MaskOfBit(borrow), 0, 0, 0}};
        borrow = 0;
        difference = SubtractNumbers<Arithmetic>(difference, first, borrow);
        difference.limb[0] -= c & MaskOfBit(borrow);
        return difference;
    }

    [[gnu::always_inline]] Number Half(const Number& a) const { return HalfModulo<Arithmetic>(a, kPrime); }

    [[gnu::always_inline]] Number Multiply(const Number& a, const Number& b) const {
        return Reduce(MultiplyNumbers<Arithmetic>(a, b));
    }

    [[gnu::always_inline]] Number Square(const Number& a) const { return Reduce(SquareNumber<Arithmetic>(a)); }

private:
    using Carry = typename Arithmetic::Carry;

    // a + small, where `small` is far below 2^64 - c.
    [[gnu::always_inline]] static Number AddFolded(const Number& a, Limb small) {
        Carry carry = 0;
        Number sum = AddNumbers<Arithmetic>(a, {{small, 0, 0, 0}}, carry);
        sum.limb[0] += c & MaskOfBit(carry);
        return sum;
    }

    [[gnu::always_inline]] static Number Reduce(const Wide& wide) {
        Number low = {{wide.limb[0], wide.limb[1], wide.limb[2], wide.limb[3]}};
        const Number high = {{wide.limb[4], wide.limb[5], wide.limb[6], wide.limb[7]}};
        const Limb above = AddRow<Arithmetic>(MultiplyRow<Arithmetic>(c, high), low.limb);  // at most c
        return AddFolded(low, above * c);
    }
};

}  // namespace nalhost::crypto::curve
