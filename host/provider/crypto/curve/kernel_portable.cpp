// The curves' kernel for every processor of 64 bits.
#include "host/provider/crypto/curve/curve_kernel.h"

#if defined(__SIZEOF_INT128__)

#include "host/provider/crypto/curve/arithmetic_portable.h"
#include "host/provider/crypto/curve/curve_operations.h"

namespace nalhost::crypto::curve {

std::unique_ptr<CurveKernel> MakePortableCurveKernel(const CurveParameters& parameters) {
    return MakeCurveOperations<Portable>(parameters);
}

}  // namespace nalhost::crypto::curve

#else

std::unique_ptr<nalhost::crypto::curve::CurveKernel> nalhost::crypto::curve::MakePortableCurveKernel(
    const CurveParameters&) {
    return nullptr;
}

#endif
