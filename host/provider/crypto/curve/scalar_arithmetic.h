// Scalars: numbers modulo the order q of a group, above 2^255, in constant time.
#pragma once

#include "host/provider/crypto/curve/field_montgomery.h"

namespace nalhost::crypto::curve {

template <typename Arithmetic>
class ScalarArithmetic {
public:
    explicit ScalarArithmetic(const Number& q) : m_field(q) {}

    const Number& Order() const { return m_field.Modulus(); }

    /// Whether 0 < number < q.
    Mask IsScalar(const Number& number) const { return IsLessMask<Arithmetic>(number, Order()) & ~IsZeroMask(number); }

    /// A number of 256 bits modulo q.
    Number Reduce(const Number& number) const {
        // q is above 2^255, so it goes in once at most.
        typename Arithmetic::Carry borrow = 0;
        const Number reduced = SubtractNumbers<Arithmetic>(number, Order(), borrow);
        return Select(MaskOfBit(borrow), number, reduced);
    }

    /// low + 2^256 high modulo q.
    Number ReduceWide(const Number& low, const Number& high) const {
        // To Montgomery's form is times 2^256.
        return m_field.Add(Reduce(low), m_field.FromPlain(Reduce(high)));
    }

    /// a b; both are below q.
    Number Multiply(const Number& a, const Number& b) const { return m_field.Multiply(m_field.FromPlain(a), b); }

    /// -a; a is below q.
    Number Negate(const Number& a) const { return m_field.Subtract(Number{}, a); }

    /// a b + c d; all four are below q.
    Number Combine(const Number& a, const Number& b, const Number& c, const Number& d) const {
        return m_field.Add(Multiply(a, b), Multiply(c, d));
    }

private:
    FieldMontgomery<Arithmetic> m_field;
};

}  // namespace nalhost::crypto::curve
