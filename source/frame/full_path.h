// One spelling for a file's path, for locks that are named after it.
#pragma once

#include "too/string.h"

namespace nal {

// The absolute path with the links of its folder resolved; the path itself when its folder cannot be read. The file
// need not be there, and when it is a link itself it is named by the link.
CTOOString FullPath(const CTOOString& path);

}  // namespace nal
