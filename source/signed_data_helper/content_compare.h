// Whether two contents are equal byte for byte, wherever they lie.
#pragma once

#include "asnt/view.h"
#include "nal/signed_data.h"

namespace nal {

/// @param context  text of what is thrown; a literal
/// @throws XTOOStatus, XTOOFile: see FileContent
bool AreEqual(const WhatToSignStruct& file, asnt::View bytes, const char* context);
bool AreEqual(const WhatToSignStruct& file1, const WhatToSignStruct& file2, const char* context);

}  // namespace nal
