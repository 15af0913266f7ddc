// Sums and doubles of points of a curve y^2 = x^3 + a x + b of odd prime order, in Jacobian coordinates: (X, Y, Z) is
// the point (X / Z^2, Y / Z^3), and any point with Z = 0 is the one at infinity. No coordinate has to be inverted on
// the way. Source: D. Hankerson, A. Menezes, S. Vanstone, Guide to Elliptic Curve Cryptography, 2004, sections 3.1
// and 3.2.
#pragma once

#include "host/provider/crypto/curve/curve_parameters.h"
#include "host/provider/crypto/curve/inverse.h"
#include "host/provider/crypto/curve/point_tables.h"

namespace nalhost::crypto::curve {

struct JacobianPoint {
    Number x, y, z;
};

/// A finite point that is added often, with powers of its Z.
struct PreparedPoint {
    Number x, y, z, zSquare, zCube;
};

/// Everything on a curve over `FieldType`. Immutable.
template <typename FieldType>
class Group {
public:
    using Field = FieldType;
    using Arithmetic = typename Field::Arithmetic;

    explicit Group(const CurveParameters& parameters)
        : m_field(parameters.p),
          m_inverter(parameters.p),
          m_a(m_field.FromPlain(parameters.a)),
          m_b(m_field.FromPlain(parameters.b)) {
        const Number three = m_field.Add(m_field.Add(m_field.One(), m_field.One()), m_field.One());
        m_aIsMinusThree = m_field.IsZero(m_field.Add(m_a, three)) != 0;
    }

    const Field& BaseField() const { return m_field; }

    bool IsOnCurve(const PlainPoint& point) const {
        if (!IsLessMask<Arithmetic>(point.x, m_field.Modulus()) ||
            !IsLessMask<Arithmetic>(point.y, m_field.Modulus())) {
            return false;
        }
        const AffinePoint p = FromPlain(point);
        const Number right = m_field.Multiply(m_field.Add(m_field.Square(p.x), m_a), p.x);
        return m_field.IsZero(m_field.Subtract(m_field.Square(p.y), m_field.Add(right, m_b))) != 0;
    }

    AffinePoint FromPlain(const PlainPoint& point) const {
        return {m_field.FromPlain(point.x), m_field.FromPlain(point.y)};
    }

    JacobianPoint FromAffine(const AffinePoint& point) const { return {point.x, point.y, m_field.One()}; }

    PreparedPoint Prepare(const JacobianPoint& p) const {
        const Number square = m_field.Square(p.z);
        return {p.x, p.y, p.z, square, m_field.Multiply(square, p.z)};
    }

    /// The opposite point where the mask says so; of affine, prepared and Jacobian points.
    template <typename Point>
    [[gnu::always_inline]] Point Negate(Mask mask, const Point& point) const {
        Point result = point;
        result.y = Select(mask, m_field.Subtract(Number{}, point.y), point.y);
        return result;
    }

    /// The coordinates of a finite point, in constant time.
    PlainPoint ToPlain(const JacobianPoint& p) const {
        const Number inverse = InvertElement(p.z);
        const Number square = m_field.Square(inverse);
        return {m_field.ToPlain(m_field.Multiply(p.x, square)),
                m_field.ToPlain(m_field.Multiply(p.y, m_field.Multiply(square, inverse)))};
    }

    bool IsInfinite(const JacobianPoint& p) const { return m_field.IsZero(p.z) != 0; }

    /// 2p, also of the point at infinity: in constant time; no point has order 2.
    JacobianPoint Double(const JacobianPoint& p) const {
        const Field& f = m_field;
        Number slope;  // 3 X^2 + a Z^4
        if (m_aIsMinusThree) {
            const Number square = f.Square(p.z);
            const Number third = f.Multiply(f.Add(p.x, square), f.Subtract(p.x, square));
            slope = f.Add(f.Add(third, third), third);
        } else {
            const Number square = f.Square(p.x);
            slope = f.Add(f.Add(f.Add(square, square), square), f.Multiply(m_a, f.Square(f.Square(p.z))));
        }
        const Number twiceY = f.Add(p.y, p.y);
        const Number square = f.Square(twiceY);
        const Number product = f.Multiply(square, p.x);  // 4 X Y^2
        JacobianPoint result;
        result.z = f.Multiply(twiceY, p.z);
        result.x = f.Subtract(f.Square(slope), f.Add(product, product));
        // 8 Y^4 as half of 16 Y^4: cheaper than doubling up from Y^4.
        result.y = f.Subtract(f.Multiply(slope, f.Subtract(product, result.x)), f.Half(f.Square(square)));
        return result;
    }

    /// p + q for finite p and q that are neither equal nor opposite: in constant time.
    JacobianPoint AddDistinct(const JacobianPoint& p, const AffinePoint& q) const { return Sum(Compare(p, q)); }
    JacobianPoint AddDistinct(const JacobianPoint& p, const PreparedPoint& q) const { return Sum(Compare(p, q)); }

    /// p + q for finite p and q that are not opposite: in constant time.
    template <typename Other>
    JacobianPoint AddNotOpposite(const JacobianPoint& p, const Other& q) const {
        const Difference difference = Compare(p, q);
        const JacobianPoint sum = Sum(difference);
        const JacobianPoint twice = Double(p);
        const Mask isEqual = m_field.IsZero(difference.h);
        return {Select(isEqual, twice.x, sum.x), Select(isEqual, twice.y, sum.y), Select(isEqual, twice.z, sum.z)};
    }

    /// p + q for any p and finite q: for public points, its time tells the special cases.
    JacobianPoint AddPublic(const JacobianPoint& p, const AffinePoint& q) const {
        return IsInfinite(p) ? FromAffine(q) : AddFinitePublic(p, q);
    }
    JacobianPoint AddPublic(const JacobianPoint& p, const PreparedPoint& q) const {
        return IsInfinite(p) ? JacobianPoint{q.x, q.y, q.z} : AddFinitePublic(p, q);
    }

    /// p, 3p, 5p, ...: `count` finite odd multiples of a finite point, when the order is above 2 count.
    void OddMultiples(const JacobianPoint& p, std::size_t count, JacobianPoint* multiples) const {
        const PreparedPoint twice = Prepare(Double(p));
        multiples[0] = p;
        for (std::size_t i = 1; i < count; ++i)
            multiples[i] = AddDistinct(multiples[i - 1], twice);
    }

    /// Makes finite points affine with one inversion. Source: P. L. Montgomery, Speeding the Pollard and elliptic curve
    /// methods of factorization, 1987, section 10.3.1. @param products  room for `count` numbers
    void MakeAffine(const JacobianPoint* points, std::size_t count, Number* products, AffinePoint* results) const {
        products[0] = points[0].z;
        for (std::size_t i = 1; i < count; ++i)
            products[i] = m_field.Multiply(products[i - 1], points[i].z);
        Number rest = InvertElement(products[count - 1]);  // of the product of all up to i
        for (std::size_t i = count; i-- > 0;) {
            const Number inverse = i == 0 ? rest : m_field.Multiply(rest, products[i - 1]);
            rest = m_field.Multiply(rest, points[i].z);
            const Number square = m_field.Square(inverse);
            results[i] = {m_field.Multiply(points[i].x, square),
                          m_field.Multiply(points[i].y, m_field.Multiply(square, inverse))};
        }
    }

private:
    // How far two points are from being equal: h of their x and r of their y, each times powers of both Z.
    struct Difference {
        Number x, y;  // of the first point, over the common denominator
        Number h, r;
        Number z;  // product of both Z
    };

    Number InvertElement(const Number& a) const { return m_field.FromPlain(m_inverter.Invert(m_field.ToPlain(a))); }

    Difference Compare(const JacobianPoint& p, const AffinePoint& q) const {
        const Field& f = m_field;
        const Number square = f.Square(p.z);
        return {p.x, p.y, f.Subtract(f.Multiply(q.x, square), p.x),
                f.Subtract(f.Multiply(q.y, f.Multiply(square, p.z)), p.y), p.z};
    }

    Difference Compare(const JacobianPoint& p, const PreparedPoint& q) const {
        const Field& f = m_field;
        const Number square = f.Square(p.z);
        const Number x = f.Multiply(p.x, q.zSquare);
        const Number y = f.Multiply(p.y, q.zCube);
        return {x, y, f.Subtract(f.Multiply(q.x, square), x), f.Subtract(f.Multiply(q.y, f.Multiply(square, p.z)), y),
                f.Multiply(p.z, q.z)};
    }

    JacobianPoint Sum(const Difference& d) const {
        const Field& f = m_field;
        const Number square = f.Square(d.h);
        const Number cube = f.Multiply(square, d.h);
        const Number product = f.Multiply(square, d.x);
        JacobianPoint sum;
        sum.x = f.Subtract(f.Subtract(f.Square(d.r), cube), f.Add(product, product));
        sum.y = f.Subtract(f.Multiply(d.r, f.Subtract(product, sum.x)), f.Multiply(d.y, cube));
        sum.z = f.Multiply(d.z, d.h);
        return sum;
    }

    template <typename Other>
    JacobianPoint AddFinitePublic(const JacobianPoint& p, const Other& q) const {
        const Difference difference = Compare(p, q);
        if (m_field.IsZero(difference.h) == 0) return Sum(difference);
        if (m_field.IsZero(difference.r) == 0) return {m_field.One(), m_field.One(), Number{}};
        return Double(p);
    }

    Field m_field;
    Inverter<Arithmetic> m_inverter;
    Number m_a;
    Number m_b;
    bool m_aIsMinusThree;
};

}  // namespace nalhost::crypto::curve
