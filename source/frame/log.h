// Failures go to the host's logging facility. Logging never changes a result.
#pragma once

#include "too/string.h"

namespace nal {

/// Where a failure was found. Some records keep a function text and a line of their own, fixed for those who read logs.
struct LogPlace {
    const char* prettyFunction;  ///< as __PRETTY_FUNCTION__ gives it
    const char* shortFunction;   ///< as __func__ gives it
    const char* sourcePath;      ///< the path that the record shows, as "source/win32/cnaluser"
    int line;
};

/// This place, shown under `sourcePath`.
#define NAL_HERE(sourcePath) \
    (::nal::LogPlace { __PRETTY_FUNCTION__, static_cast<const char*>(__func__), sourcePath, __LINE__ })

/// Writes a record of level 1: "Error: " and the text.
void LogError(const LogPlace& place, const CTOOString& text);

/// Writes a record of level 1: the label and the status.
void LogErrorCode(const LogPlace& place, int status, const char* label = "Error Code: ");

}  // namespace nal
