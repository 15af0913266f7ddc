// From the fields found by stepping to the model.
#pragma once

#include "model/certificate_fields.h"
#include "nal/certificate.h"

namespace nal {

/// Fills `info` as CNALCertInfo::DecodeInfo does. @throws XTOOStatus(TOO_E_BAD_STRUCTURE), with nothing changed
void DecodeTbs(const TbsFields& fields, CNALCertInfo& info);

}  // namespace nal
