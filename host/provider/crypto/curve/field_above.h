// The field of a prime p = 2^255 + c with small c. Elements are below p.
//
// A product v below p^2, in halves v = high 2^256 + low, is first made
//
//   low - 2c high + K,  K = 4c p = 2c 2^256 + 4c^2
//
// which is v mod p, since 2^256 = -2c, and not negative: K outweighs 2c high. It is below 2^269, so its part above bit
// 255, T, fits into a limb, and 2^255 = -c: the 255 bits below it less c T are the result, with p added when that is
// negative.
#pragma once

#include "host/provider/crypto/curve/wide.h"

namespace nalhost::crypto::curve {

template <typename ArithmeticType, Limb c>
class FieldAbove {
public:
    using Arithmetic = ArithmeticType;

    static constexpr Number kPrime = {{c, 0, 0, Limb{1} << 63}};

    explicit FieldAbove(const Number&) {}

    const Number& Modulus() const { return kPrime; }
    Number One() const { return {{1, 0, 0, 0}}; }

    Number FromPlain(const Number& number) const { return number; }
    Number ToPlain(const Number& a) const { return a; }

    [[gnu::always_inline]] Mask IsZero(const Number& a) const { return IsZeroMask(a); }

    [[gnu::always_inline]] Number Add(const Number& a, const Number& b) const {
        Carry carry = 0;
        const Number sum = AddNumbers<Arithmetic>(a, b, carry);
        Carry borrow = 0;
        const Number reduced = SubtractNumbers<Arithmetic>(sum, kPrime, borrow);
        return AddPrimeIf(borrow & (carry ^ 1), reduced);
    }

    [[gnu::always_inline]] Number Subtract(const Number& a, const Number& b) const {
        Carry borrow = 0;
        return AddPrimeIf(borrow, SubtractNumbers<Arithmetic>(a, b, borrow));
    }

    [[gnu::always_inline]] Number Half(const Number& a) const { return HalfModulo<Arithmetic>(a, kPrime); }

    [[gnu::always_inline]] Number Multiply(const Number& a, const Number& b) const {
        return Reduce(MultiplyNumbers<Arithmetic, 4 * c * c>(a, b));
    }

    [[gnu::always_inline]] Number Square(const Number& a) const {
        return Reduce(SquareNumber<Arithmetic, 4 * c * c>(a));
    }

private:
    using Carry = typename Arithmetic::Carry;

    [[gnu::always_inline]] static Number AddPrimeIf(const Carry& negative, const Number& a) {
        Carry carry = 0;
        return AddNumbers<Arithmetic>(a, Masked(MaskOfBit(negative), kPrime), carry);
    }

    /// @param wide  the product and 4c^2, K's low part
    [[gnu::always_inline]] static Number Reduce(const Wide& wide) {
        const Number low = {{wide.limb[0], wide.limb[1], wide.limb[2], wide.limb[3]}};
        const Number high = {{wide.limb[4], wide.limb[5], wide.limb[6], wide.limb[7]}};
        const Row back = MultiplyRow<Arithmetic>(2 * c, high);
        Carry borrow = 0;
        Number rest =
            SubtractNumbers<Arithmetic>(low, {{back.limb[0], back.limb[1], back.limb[2], back.limb[3]}}, borrow);
        const Limb top = 2 * c - back.limb[4] - borrow;
        const Limb above = top << 1 | rest.limb[3] >> 63;
        rest.limb[3] &= ~(Limb{1} << 63);
        borrow = 0;
        rest = SubtractNumbers<Arithmetic>(rest, {{c * above, 0, 0, 0}}, borrow);
        return AddPrimeIf(borrow, rest);
    }
};

}  // namespace nalhost::crypto::curve
