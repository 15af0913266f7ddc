// The fields below the curves' kernels, each with the arithmetic of each kernel, as plain functions.
#pragma once

#include <vector>

#include "host/provider/crypto/curve/number.h"

namespace nalhost::crypto::curve {

struct FieldFunctions {
    const char* name;
    Number prime;
    Number (*add)(const Number&, const Number&);
    Number (*subtract)(const Number&, const Number&);
    Number (*multiply)(const Number&, const Number&);
    Number (*square)(const Number&);
    Number (*half)(const Number&);
    Number (*fromPlain)(const Number&);
    Number (*toPlain)(const Number&);
    Number (*invertPlain)(const Number&);
    Mask (*isZero)(const Number&);
    bool takesAll;  ///< elements are all numbers of 256 bits, not only those below p
};

inline constexpr std::size_t c_generalFields = 7;

/// @param montgomery  modules for the general field: p of C and of the test set, q of the test set, A, B and C, and 2^256 - 1
std::vector<FieldFunctions> PortableFields(const std::vector<Number>& montgomery);
/// Not to be called unless the processor has what kAvx2 asks for.
std::vector<FieldFunctions> MulxFields(const std::vector<Number>& montgomery);

}  // namespace nalhost::crypto::curve
