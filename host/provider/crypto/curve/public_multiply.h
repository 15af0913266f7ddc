// Sums a G + b Q for verification, of public scalars: the digits of both are walked together, and a doubling serves
// both. Source: Hankerson, Menezes, Vanstone, section 3.3.3 (interleaving).
//
// With a table of the key, a scalar is cut at every thirtieth digit: the rows of the tables hold multiples of 2^(30 j)
// times the points, the digits at equal places of all cuts are added one after the other, and 30 doublings do for 256.
#pragma once

#include "host/provider/crypto/curve/digits.h"
#include "host/provider/crypto/curve/group.h"

namespace nalhost::crypto::curve {

template <typename Group>
class PublicMultiplier {
public:
    using Arithmetic = typename Group::Arithmetic;

    explicit PublicMultiplier(const Group& group) : m_group(group) {}

    /// a * generator + b * point.
    JacobianPoint Combine(const GeneratorTable& generator, const Number& a, const AffinePoint& point,
                          const Number& b) const {
        const SparseDigits<Arithmetic> digitsA(a, GeneratorTable::kWidth + 1);
        const SparseDigits<Arithmetic> digitsB(b, KeyTable::kWidth);
        JacobianPoint multiples[KeyTable::kMultiples];
        m_group.OddMultiples(m_group.FromAffine(point), KeyTable::kMultiples, multiples);
        PreparedPoint table[KeyTable::kMultiples];
        for (int i = 0; i < KeyTable::kMultiples; ++i)
            table[i] = m_group.Prepare(multiples[i]);
        JacobianPoint sum{};
        for (int i = SparseDigits<Arithmetic>::kCount - 1; i >= 0; --i) {
            sum = m_group.Double(sum);
            AddDigit(digitsA[i], generator.row[0], sum);
            AddDigit(digitsB[i], table, sum);
        }
        return sum;
    }

    /// The same by the point's table.
    JacobianPoint Combine(const GeneratorTable& generator, const Number& a, const KeyTable& table,
                          const Number& b) const {
        constexpr int rowsPerStride = kStride / GeneratorTable::kWidth;
        static_assert(kStride % GeneratorTable::kWidth == 0 && (kStrides - 1) * rowsPerStride < GeneratorTable::kRows);
        const SparseDigits<Arithmetic> digitsA(a, GeneratorTable::kWidth + 1);
        const SparseDigits<Arithmetic> digitsB(b, KeyTable::kWidth);
        JacobianPoint sum{};
        for (int i = kStride - 1; i >= 0; --i) {
            sum = m_group.Double(sum);
            for (int j = 0; j < kStrides; ++j) {
                AddDigit(digitsA[j * kStride + i], generator.row[j * rowsPerStride], sum);
                AddDigit(digitsB[j * kStride + i], table.row[j], sum);
            }
        }
        return sum;
    }

private:
    template <typename Point>
    void AddDigit(int digit, const Point* table, JacobianPoint& sum) const {
        if (digit == 0) return;
        sum = m_group.AddPublic(sum, m_group.Negate(MaskOfBit(digit < 0), table[(digit < 0 ? -digit : digit) / 2]));
    }

    const Group& m_group;
};

}  // namespace nalhost::crypto::curve
