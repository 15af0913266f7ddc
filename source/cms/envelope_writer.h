// An encrypted message as it is written around its encrypted content.
#pragma once

#include "asnt/writer.h"
#include "nal/enveloped_data.h"

namespace nal {

/// Declares a message, or its EncryptedContentInfo alone, of which `contentFlags` and `encryptedLength` are known; the content
/// itself need not be there. Sizes are in bounds then.
/// @param writer   must be finished before the message changes
/// @param context  text of what is thrown; a literal
/// @throws XTOOStatus as CNALEnvelopedData::WriteObject
void DeclareEnvelope(const CNALEnvelopedData& message, asnt::Writer& writer, const char* context);
void DeclareEncryptedContent(const CNALEncryptedContentInfo& info, asnt::Writer& writer, const char* context);

}  // namespace nal
