// Recipients and originators on their way into a message.
#pragma once

#include "asnt/writer.h"
#include "nal/enveloped_data.h"

namespace nal {

/// @throws XTOOStatus(42, "CNALTransRecipientInfo::WriteObject")
void DeclareRecipient(const CNALTransRecipientInfo& recipient, asnt::Writer& writer);

/// @throws XTOOStatus(36)
void DeclareOriginator(const CNALOriginatorInfo& originator, asnt::Writer& writer);

}  // namespace nal
