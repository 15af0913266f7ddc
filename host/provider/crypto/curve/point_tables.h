// Tables of multiples of one point, affine and in the field's own form, which is the same in every kernel.
#pragma once

#include "host/provider/crypto/curve/number.h"

namespace nalhost::crypto::curve {

struct AffinePoint {
    Number x, y;
};

/// Row i holds the odd multiples 1, 3, ... 63 of 2^(6 i) times the generator: 86 KiB.
///
/// Signing takes one entry of each row. Verification takes from every fifth row only: what signed digits of 7 bits at
/// the positions 30 j, 30 j + 1, ... 30 j + 29 pick is multiplied up by 30 doublings for all j together.
struct alignas(64) GeneratorTable {
    static constexpr int kWidth = 6;
    static constexpr int kRows = 43;
    static constexpr int kMultiples = 32;

    AffinePoint row[kRows][kMultiples];
};

/// Distance, in bits, of the rows that verification uses.
inline constexpr int kStride = 30;
inline constexpr int kStrides = 9;  ///< 270 bits, enough for the 257 digits of a scalar

/// Row j holds the odd multiples 1, 3, ... 15 of 2^(30 j) times a public key: 4.5 KiB.
struct alignas(64) KeyTable {
    static constexpr int kWidth = 5;  ///< of digits, sign included
    static constexpr int kMultiples = 8;

    AffinePoint row[kStrides][kMultiples];
};

}  // namespace nalhost::crypto::curve
