// What the kernels of the curves compute. One object does it for one curve; it is immutable, for all threads.
//
// Points from outside are given as numbers; the caller has them checked by IsOnCurve first. Scalars named secret may be
// any in 1..q-1, and neither they nor what comes of them decides a branch, an address or the time of an instruction.
// What is computed of them stays on the stack, below the caller's frame, and is not wiped there.
#pragma once

#include <memory>
#include <mutex>

#include "host/provider/crypto/curve/curve_parameters.h"
#include "host/provider/crypto/curve/point_tables.h"
#include "host/provider/crypto/kernel_choice.h"
#include "host/provider/crypto/parameters.h"

namespace nalhost::crypto::curve {

class CurveKernel {
public:
    explicit CurveKernel(const CurveParameters& parameters) : m_parameters(parameters) {}
    virtual ~CurveKernel();
    CurveKernel(const CurveKernel&) = delete;
    CurveKernel& operator=(const CurveKernel&) = delete;

    const CurveParameters& Parameters() const { return m_parameters; }

    /// Whether both coordinates are below p and the point is on the curve.
    virtual bool IsOnCurve(const PlainPoint& point) const = 0;

    /// Whether 0 < scalar < q, in constant time.
    virtual Mask IsScalar(const Number& secret) const = 0;

    /// secret * generator.
    virtual PlainPoint MultiplyGenerator(const Number& secret) const = 0;

    /// secret * point.
    virtual PlainPoint Multiply(const Number& secret, const PlainPoint& point) const = 0;

    /// a b + c d mod q; all four are below q.
    virtual Number CombineScalars(const Number& a, const Number& b, const Number& c, const Number& d) const = 0;

    /// A number of 256 bits modulo q.
    virtual Number ReduceScalar(const Number& number) const = 0;

    /// low + 2^256 high modulo q.
    virtual Number ReduceWide(const Number& low, const Number& high) const = 0;

    /// Whether (r, s) is the signature of e under the key `point`: public numbers, whose sizes show in the time.
    /// @param e      1..q-1
    /// @param r, s   any
    /// @param table  of the same point, or null
    virtual bool Verify(const PlainPoint& point, const Number& e, const Number& r, const Number& s,
                        const KeyTable* table) const = 0;

    /// Computes the table that makes verifications under one key two to three times faster; it costs about as much
    /// as one without a table.
    virtual void FillTable(const PlainPoint& point, KeyTable& table) const = 0;

protected:
    /// The generator's table, made at the first call. Thread-safe. @throws CryptoError kNoMemory
    const GeneratorTable& Generator() const;

    virtual void FillTable(GeneratorTable& table) const = 0;

private:
    CurveParameters m_parameters;
    mutable std::once_flag m_once;
    mutable std::unique_ptr<GeneratorTable> m_generator;
};

/// A kernel of each kind; null when the processor that it was compiled for has none.
std::unique_ptr<CurveKernel> MakePortableCurveKernel(const CurveParameters& parameters);
std::unique_ptr<CurveKernel> MakeMulxCurveKernel(const CurveParameters& parameters);

/// Whether there are kernels at all: they need products of 64-bit numbers.
bool HasCurveKernels();

/// The kernel of this kind for the curve of a 2001 set, or of the highest kind below for which there is one. Made once
/// for all sets of the curve; lives as long as the process. Thread-safe.
/// @param kernel  kPortable to ProcessorKernel() @throws CryptoError kNoMemory, and as LoadCurveParameters
const CurveKernel* FindCurveKernel(const KeyParameters& parameters, Kernel kernel);

}  // namespace nalhost::crypto::curve
