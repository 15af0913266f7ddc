// Encoded elements in files.
#pragma once

#include "too/file.h"
#include "too/ident_obj.h"

namespace nal {

/// Reads the element at the file's position, which moves behind it.
/// @throws XTOOStatus(TOO_E_BAD_STRUCTURE, context) when there is none or the file ends before it does, with the position as it was;
///         XTOOFile as CTOOFile
IdentObj ReadElement(const CTOOFile& file, const char* context);

}  // namespace nal
