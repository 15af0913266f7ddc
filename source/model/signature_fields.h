// The two fields that follow whatever is signed: signatureAlgorithm AlgorithmIdentifier, signatureValue BIT STRING.
#pragma once

#include "asnt/view.h"
#include "asnt/writer.h"
#include "model/bit_string.h"
#include "nal/algorithm.h"
#include "too/bit_blob.h"

namespace nal {

/// Reads both, which must be the last ones.
/// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) with the reader's context
inline void ReadSignatureFields(asnt::Reader fields, CNALAlgorithmIdentifier& algorithm, CTOOCryptBitBlob& signature) {
    algorithm.ReadData(fields);
    signature = ToBitBlob(fields.Bits());
    fields.ExpectEnd();
}

/// Writes both.
inline void WriteSignatureFields(asnt::Writer& writer, const CNALAlgorithmIdentifier& algorithm,
                                 const CTOOCryptBitBlob& signature) {
    algorithm.WriteData(writer);
    writer.BitString(signature.m_data, signature.m_unusedBits);
}

}  // namespace nal
