// The kernel of one curve, made of a field and the arithmetic on limbs below it. Included by the kernels' files only.
#pragma once

#include "host/provider/crypto/curve/curve_kernel.h"
#include "host/provider/crypto/curve/field_above.h"
#include "host/provider/crypto/curve/field_below.h"
#include "host/provider/crypto/curve/field_montgomery.h"
#include "host/provider/crypto/curve/public_multiply.h"
#include "host/provider/crypto/curve/scalar_arithmetic.h"
#include "host/provider/crypto/curve/secret_multiply.h"

namespace nalhost::crypto::curve {

template <typename Field>
class CurveOperations final : public CurveKernel {
public:
    using Arithmetic = typename Field::Arithmetic;

    explicit CurveOperations(const CurveParameters& parameters)
        : CurveKernel(parameters), m_group(parameters), m_scalars(parameters.q), m_scalarInverter(parameters.q) {}

    bool IsOnCurve(const PlainPoint& point) const override { return m_group.IsOnCurve(point); }

    Mask IsScalar(const Number& secret) const override { return m_scalars.IsScalar(secret); }

    PlainPoint MultiplyGenerator(const Number& secret) const override {
        return SecretMultiplier(m_group, Parameters().q).MultiplyGenerator(Generator(), secret);
    }

    PlainPoint Multiply(const Number& secret, const PlainPoint& point) const override {
        return SecretMultiplier(m_group, Parameters().q).Multiply(m_group.FromPlain(point), secret);
    }

    Number CombineScalars(const Number& a, const Number& b, const Number& c, const Number& d) const override {
        return m_scalars.Combine(a, b, c, d);
    }

    Number ReduceScalar(const Number& number) const override { return m_scalars.Reduce(number); }

    Number ReduceWide(const Number& low, const Number& high) const override { return m_scalars.ReduceWide(low, high); }

    // Source: RFC 5832 section 6.2. C = s/e G - r/e Q, and the signature holds when x of C is r modulo q.
    bool Verify(const PlainPoint& point, const Number& e, const Number& r, const Number& s,
                const KeyTable* table) const override {
        if (IsScalar(r) == 0 || IsScalar(s) == 0) return false;
        const Number inverse = m_scalarInverter.Invert(e);
        const Number a = m_scalars.Multiply(s, inverse);
        const Number b = m_scalars.Negate(m_scalars.Multiply(r, inverse));
        const PublicMultiplier<Group<Field>> multiplier(m_group);
        const JacobianPoint c = table == nullptr ? multiplier.Combine(Generator(), a, m_group.FromPlain(point), b)
                                                 : multiplier.Combine(Generator(), a, *table, b);
        return !m_group.IsInfinite(c) && HasX(c, r);
    }

    void FillTable(const PlainPoint& point, KeyTable& table) const override {
        constexpr std::size_t count = static_cast<std::size_t>(kStrides) * KeyTable::kMultiples;
        JacobianPoint multiples[count];
        JacobianPoint base = m_group.FromAffine(m_group.FromPlain(point));
        for (int j = 0; j < kStrides; ++j) {
            m_group.OddMultiples(base, KeyTable::kMultiples, multiples + j * KeyTable::kMultiples);
            for (int i = 0; i < kStride; ++i)
                base = m_group.Double(base);
        }
        Number products[count];
        m_group.MakeAffine(multiples, count, products, table.row[0]);
    }

protected:
    void FillTable(GeneratorTable& table) const override {
        JacobianPoint base = m_group.FromAffine(m_group.FromPlain(Parameters().generator));
        for (AffinePoint(&row)[GeneratorTable::kMultiples] : table.row) {
            JacobianPoint multiples[GeneratorTable::kMultiples];
            Number products[GeneratorTable::kMultiples];
            m_group.OddMultiples(base, GeneratorTable::kMultiples, multiples);
            m_group.MakeAffine(multiples, GeneratorTable::kMultiples, products, row);
            for (int i = 0; i < GeneratorTable::kWidth; ++i)
                base = m_group.Double(base);
        }
    }

private:
    // Whether x of a finite point is r modulo q, without making it affine: x is one of r, r + q, ... below p.
    bool HasX(const JacobianPoint& point, Number r) const {
        const Field& field = m_group.BaseField();
        const Number square = field.Square(point.z);
        typename Arithmetic::Carry carry = 0;
        while (carry == 0 && IsLessMask<Arithmetic>(r, field.Modulus()) != 0) {
            const Number x = field.Multiply(field.FromPlain(r), square);
            if (field.IsZero(field.Subtract(x, point.x)) != 0) return true;
            r = AddNumbers<Arithmetic>(r, Parameters().q, carry);
        }
        return false;
    }

    Group<Field> m_group;
    ScalarArithmetic<Arithmetic> m_scalars;
    Inverter<Arithmetic> m_scalarInverter;
};

/// The kernel over the field that suits the prime best.
template <typename Arithmetic>
std::unique_ptr<CurveKernel> MakeCurveOperations(const CurveParameters& parameters) {
    using Below = FieldBelow<Arithmetic, 617>;   // sets 35.1 and 36.0
    using Above = FieldAbove<Arithmetic, 3225>;  // set 35.2
    if (IsEqualMask(parameters.p, Below::kPrime) != 0) return std::make_unique<CurveOperations<Below>>(parameters);
    if (IsEqualMask(parameters.p, Above::kPrime) != 0) return std::make_unique<CurveOperations<Above>>(parameters);
    return std::make_unique<CurveOperations<FieldMontgomery<Arithmetic>>>(parameters);
}

}  // namespace nalhost::crypto::curve
