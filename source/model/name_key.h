// A name as one text that two names share exactly when CNALX509Name calls them equal: for looking names up.
#pragma once

#include <string>

#include "nal/name.h"

namespace nal {

/// @throws XTOOStatus as the comparison of names, for one that does not decode
std::string NameKey(const CNALX509Name& name);

}  // namespace nal
