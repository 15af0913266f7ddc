// The curves' kernel for x86-64 with BMI2 and AVX2; the build compiles this file alone for such processors.
#include "host/provider/crypto/curve/curve_kernel.h"

#if defined(__x86_64__) && defined(__BMI2__) && defined(__AVX2__)

#include "host/provider/crypto/curve/arithmetic_mulx.h"
#include "host/provider/crypto/curve/curve_operations.h"

namespace nalhost::crypto::curve {

std::unique_ptr<CurveKernel> MakeMulxCurveKernel(const CurveParameters& parameters) {
    return MakeCurveOperations<Mulx>(parameters);
}

}  // namespace nalhost::crypto::curve

#else

std::unique_ptr<nalhost::crypto::curve::CurveKernel> nalhost::crypto::curve::MakeMulxCurveKernel(
    const CurveParameters&) {
    return nullptr;
}

#endif
