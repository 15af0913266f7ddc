// The two fields that follow whatever is signed: signatureAlgorithm AlgorithmIdentifier, signatureValue BIT STRING.
#pragma once

#include "asnt/view.h"
#include "nal/algorithm.h"
#include "too/bit_blob.h"

namespace nal {

/// Reads both, which must be the last ones.
/// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) with the reader's context
inline void ReadSignatureFields(asnt::Reader fields, CNALAlgorithmIdentifier& algorithm, CTOOCryptBitBlob& signature) {
    algorithm.ReadData(fields);
    const asnt::BitString bits = fields.Bits();
    signature = CTOOCryptBitBlob(bits.bytes.Copy(), bits.unusedBits);
    fields.ExpectEnd();
}

}  // namespace nal
