// The store's always-on assertions, and the path under which it logs.
#pragma once

#include "frame/log.h"

namespace nal {

/// The source path that records of the store show.
inline constexpr char kStoreSource[] = "source/certstorage";

/// Writes the text of a broken invariant to the log and to standard error, then aborts the process, in every build type.
[[noreturn]] void StoreInvariantBroken(const LogPlace& place, const char* text) noexcept;

}  // namespace nal

/// An invariant of the store, checked in every build type. `text` names it as it is reported.
#define NAL_STORE_INVARIANT(condition, text)                                                           \
    do {                                                                                               \
        if (!(condition)) ::nal::StoreInvariantBroken(NAL_HERE(::nal::kStoreSource), text);            \
    } while (false)
