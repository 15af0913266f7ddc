// Multiples of points by secret scalars, in constant time: one fixed sequence of additions and doublings, entries taken
// from a table by reading all of it.
//
// An odd scalar k is split into digits that are never zero (OddDigits); for an even one q - k is taken, which is odd,
// and the result is negated. The plain formulas of addition fail for equal and opposite points. Those cannot meet:
//
// By rows of a table, from the lowest digit up: the sum of the digits so far is smaller in size than the next term, and
// both are far below q, until the last addition.
//
// By doublings, from the highest digit down: the sum so far, w times doubled, is larger than the next digit, and their
// sum is below q, until the last addition.
//
// In the last addition the terms may be equal modulo q (for one scalar or a few), so it computes the double as well.
// They are never opposite, since k is not 0 modulo q.
#pragma once

#include "host/provider/crypto/curve/digits.h"
#include "host/provider/crypto/curve/group.h"

namespace nalhost::crypto::curve {

template <typename Group>
class SecretMultiplier {
public:
    using Arithmetic = typename Group::Arithmetic;

    SecretMultiplier(const Group& group, const Number& order) : m_group(group), m_order(order) {}

    /// scalar * generator. @param scalar  1..q-1
    PlainPoint MultiplyGenerator(const GeneratorTable& table, const Number& scalar) const {
        const Mask isEven = MaskOfBit((scalar.limb[0] & 1) ^ 1);
        const Digits digits(MakeOdd(isEven, scalar));
        static_assert(Digits::kCount == GeneratorTable::kRows && Digits::kMultiples == GeneratorTable::kMultiples);
        JacobianPoint sum = m_group.FromAffine(Take(table, digits, 0));
        for (int i = 1; i < Digits::kCount - 1; ++i)
            sum = m_group.AddDistinct(sum, Take(table, digits, i));
        sum = m_group.AddNotOpposite(sum, Take(table, digits, Digits::kCount - 1));
        return Finish(isEven, sum);
    }

    /// scalar * point. @param scalar  1..q-1
    PlainPoint Multiply(const AffinePoint& point, const Number& scalar) const {
        const Mask isEven = MaskOfBit((scalar.limb[0] & 1) ^ 1);
        const PointDigits digits(MakeOdd(isEven, scalar));
        JacobianPoint multiples[PointDigits::kMultiples];
        m_group.OddMultiples(m_group.FromAffine(point), PointDigits::kMultiples, multiples);
        PreparedPoint table[PointDigits::kMultiples];
        for (std::size_t i = 0; i < PointDigits::kMultiples; ++i)
            table[i] = m_group.Prepare(multiples[i]);
        // The highest digit is positive.
        const PreparedPoint highest = Take(table, digits, PointDigits::kCount - 1);
        JacobianPoint sum = {highest.x, highest.y, highest.z};
        for (int i = PointDigits::kCount - 2; i >= 0; --i) {
            for (int doubling = 0; doubling < kPointWidth; ++doubling)
                sum = m_group.Double(sum);
            const PreparedPoint next = Take(table, digits, i);
            sum = i == 0 ? m_group.AddNotOpposite(sum, next) : m_group.AddDistinct(sum, next);
        }
        return Finish(isEven, sum);
    }

private:
    static constexpr int kPointWidth = 5;

    using Digits = OddDigits<Arithmetic, GeneratorTable::kWidth>;
    using PointDigits = OddDigits<Arithmetic, kPointWidth>;

    Number MakeOdd(Mask isEven, const Number& scalar) const {
        typename Arithmetic::Carry borrow = 0;
        return Select(isEven, SubtractNumbers<Arithmetic>(m_order, scalar, borrow), scalar);
    }

    AffinePoint Take(const GeneratorTable& table, const Digits& digits, int i) const {
        return Take(table.row[i], digits, i);
    }

    template <typename Point, typename SomeDigits>
    Point Take(const Point* multiples, const SomeDigits& digits, int i) const {
        Mask isNegative;
        const Limb index = digits.Index(i, isNegative);
        Point point;
        Arithmetic::TakeEntry(multiples, SomeDigits::kMultiples, index, point);
        return m_group.Negate(isNegative, point);
    }

    PlainPoint Finish(Mask isEven, const JacobianPoint& sum) const {
        return m_group.ToPlain(m_group.Negate(isEven, sum));
    }

    const Group& m_group;
    const Number& m_order;
};

}  // namespace nalhost::crypto::curve
