// The owning types for the provider's handles, under the library's own names.
#pragma once

#include "ork/handles.h"

namespace nal {

using ork::ContextHandle;
using ork::HashHandle;
using ork::KeyHandle;

}  // namespace nal
