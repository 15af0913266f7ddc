// What the stores report to the host's log: files that are refused and records that are skipped.
#pragma once

#include <string>

namespace nal {

/// Writes one error record. Never throws, and leaves errno and the last error alone.
void LogStore(const std::string& text) noexcept;

/// Writes the text of a broken invariant to the log and to standard error, then aborts the process, in every build type.
[[noreturn]] void StoreInvariantBroken(const char* text) noexcept;

}  // namespace nal

/// An invariant of the store, checked always. `text` names it as it is reported.
#define NAL_STORE_INVARIANT(condition, text) \
    do {                                     \
        if (!(condition)) ::nal::StoreInvariantBroken(text); \
    } while (false)
