// Compiled for processors with AVX2 and BMI2.
#include "curve_fields_of.h"

#if defined(__BMI2__) && defined(__AVX2__)
#include "host/provider/crypto/curve/arithmetic_mulx.h"
#endif

namespace nalhost::crypto::curve {

std::vector<FieldFunctions> MulxFields([[maybe_unused]] const std::vector<Number>& montgomery) {
    std::vector<FieldFunctions> fields;
#if defined(__BMI2__) && defined(__AVX2__)
    MakeFields<Mulx>(montgomery, fields);
#endif
    return fields;
}

}  // namespace nalhost::crypto::curve
