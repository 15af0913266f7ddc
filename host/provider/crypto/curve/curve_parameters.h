// The parameters of a curve y^2 = x^3 + a x + b modulo p, with a generator of prime order q.
#pragma once

#include "host/provider/crypto/curve/number.h"

namespace nalhost::crypto::curve {

struct CurveParameters {
    Number p, a, b, q;
    PlainPoint generator;
};

/// The parameters of the set with this dotted identifier, from libgcrypt. p and q are above 2^255 and have 256 bits.
/// @throws CryptoError kInternal when libgcrypt does not know the curve, or it has another size
CurveParameters LoadCurveParameters(const char* oid);

}  // namespace nalhost::crypto::curve
