// libgcrypt's numbers and points as an oracle for tests.
#pragma once

#include <gcrypt.h>

#include <random>

#include "host/provider/crypto/curve/curve_parameters.h"
#include "host/provider/crypto/gcrypt_handles.h"
#include "support/case_count.h"

namespace nal_test {

using nalhost::crypto::ContextPtr;
using nalhost::crypto::MpiPtr;
using nalhost::crypto::PointPtr;
using nalhost::crypto::curve::Number;
using nalhost::crypto::curve::PlainPoint;

inline MpiPtr ToMpi(const Number& number) {
    std::uint8_t bytes[32];
    nalhost::crypto::curve::StoreNumber(number, bytes);
    return nalhost::crypto::MpiFromLittleEndian(bytes, false);
}

inline Number FromMpi(const MpiPtr& mpi) {
    std::uint8_t bytes[32];
    nalhost::crypto::MpiToLittleEndian(mpi.get(), bytes);
    return nalhost::crypto::curve::LoadNumber(bytes);
}

/// A function of numbers modulo one, such as gcry_mpi_mulm.
template <typename Function>
Number Modular(Function function, const Number& a, const Number& b, const Number& modulus) {
    MpiPtr result = nalhost::crypto::NewMpi(512, false);
    function(result.get(), ToMpi(a).get(), ToMpi(b).get(), ToMpi(modulus).get());
    return FromMpi(result);
}

inline Number MultiplyModulo(const Number& a, const Number& b, const Number& modulus) {
    return Modular(gcry_mpi_mulm, a, b, modulus);
}

inline Number Remainder(const Number& a, const Number& modulus) {
    return MultiplyModulo(a, {{1, 0, 0, 0}}, modulus);
}

inline Number InvertModulo(const Number& a, const Number& modulus) {
    MpiPtr result = nalhost::crypto::NewMpi(256, false);
    gcry_mpi_invm(result.get(), ToMpi(a).get(), ToMpi(modulus).get());
    return FromMpi(result);
}

/// Random numbers, half of them with long runs of ones and zeros: where carries go far.
class NumberSource {
public:
    Number Next() {
        Number number{{m_random(), m_random(), m_random(), m_random()}};
        if (m_random() % 2 == 0) return number;
        bool bit = false;
        for (int position = 0; position < 256;) {
            for (auto run = static_cast<int>(m_random() % 100); run >= 0 && position < 256; --run, ++position) {
                const std::uint64_t mask = std::uint64_t{1} << (position % 64);
                number.limb[position / 64] = (number.limb[position / 64] & ~mask) | (bit ? mask : 0);
            }
            bit = !bit;
        }
        return number;
    }

private:
    std::mt19937_64 m_random{20011994};
};

inline bool operator==(const Number& a, const Number& b) {
    return nalhost::crypto::curve::IsEqualMask(a, b) != 0;
}

/// a + small modulo 2^256; `small` may be negative.
inline Number Near(const Number& a, int small) {
    Number result = a;
    unsigned __int128 carry = 0;
    for (int i = 0; i < 4; ++i) {
        carry += static_cast<unsigned __int128>(a.limb[i]) +
                 (i == 0 ? static_cast<std::uint64_t>(small) : static_cast<std::uint64_t>(small < 0 ? -1 : 0));
        result.limb[i] = static_cast<std::uint64_t>(carry);
        carry >>= 64;
    }
    return result;
}

/// A curve of libgcrypt's.
class CurveOracle {
public:
    explicit CurveOracle(const char* oid) : m_parameters(nalhost::crypto::curve::LoadCurveParameters(oid)) {
        gcry_ctx_t context = nullptr;
        nalhost::crypto::CheckGcrypt(gcry_mpi_ec_new(&context, nullptr, oid), "opening a curve");
        m_context.reset(context);
    }

    const nalhost::crypto::curve::CurveParameters& Parameters() const { return m_parameters; }

    /// a * p + b * r; false for the point at infinity.
    bool Combine(const Number& a, const PlainPoint& p, const Number& b, const PlainPoint& r, PlainPoint& result) const {
        const PointPtr first(gcry_mpi_point_new(0));
        const PointPtr second(gcry_mpi_point_new(0));
        const PointPtr sum(gcry_mpi_point_new(0));
        gcry_mpi_ec_mul(first.get(), ToMpi(a).get(), ToPoint(p).get(), m_context.get());
        gcry_mpi_ec_mul(second.get(), ToMpi(b).get(), ToPoint(r).get(), m_context.get());
        gcry_mpi_ec_add(sum.get(), first.get(), second.get(), m_context.get());
        return FromPoint(sum, result);
    }

    PlainPoint Multiply(const Number& a, const PlainPoint& p) const {
        const PointPtr product(gcry_mpi_point_new(0));
        gcry_mpi_ec_mul(product.get(), ToMpi(a).get(), ToPoint(p).get(), m_context.get());
        PlainPoint result{};
        FromPoint(product, result);
        return result;
    }

private:
    static PointPtr ToPoint(const PlainPoint& p) {
        PointPtr point(gcry_mpi_point_new(0));
        gcry_mpi_point_set(point.get(), ToMpi(p.x).get(), ToMpi(p.y).get(), MpiPtr(gcry_mpi_set_ui(nullptr, 1)).get());
        return point;
    }

    bool FromPoint(const PointPtr& point, PlainPoint& result) const {
        const MpiPtr x = nalhost::crypto::NewMpi(256, false);
        const MpiPtr y = nalhost::crypto::NewMpi(256, false);
        if (gcry_mpi_ec_get_affine(x.get(), y.get(), point.get(), m_context.get()) != 0) return false;
        result = {FromMpi(x), FromMpi(y)};
        return true;
    }

    nalhost::crypto::curve::CurveParameters m_parameters;
    ContextPtr m_context;
};

}  // namespace nal_test
