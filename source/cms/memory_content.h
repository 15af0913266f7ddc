// The content that a block of memory holds.
#pragma once

#include "asnt/view.h"
#include "nal/signed_data.h"
#include "too/status.h"

namespace nal {

/// The bytes that `what` describes; an empty block may be null, whatever its offsets.
/// @param context  text of what is thrown
/// @throws XTOOStatus: (28) for a null block that is not empty, (37) for one that ends before it starts
inline asnt::View MemoryContent(const WhatToSignStruct& what, const char* context) {
    if (what.start == what.end) return {};
    if (what.data == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    if (what.end < what.start) throw XTOOStatus(TOO_E_RANGE, context);
    return {static_cast<const unsigned char*>(what.data) + what.start, what.end - what.start};
}

}  // namespace nal
