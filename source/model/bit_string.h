// Bit strings, which the model owns, out of what points to them.
#pragma once

#include "asnt/view.h"
#include "nal/wincrypt.h"
#include "too/bit_blob.h"

namespace nal {

inline CTOOCryptBitBlob ToBitBlob(const asnt::BitString& bits) {
    return CTOOCryptBitBlob(bits.bytes.Copy(), bits.unusedBits);
}

inline CTOOCryptBitBlob ToBitBlob(const CRYPT_BIT_BLOB& bits) {
    return CTOOCryptBitBlob(asnt::View(bits.pbData, bits.cbData).Copy(), bits.cUnusedBits);
}

}  // namespace nal
