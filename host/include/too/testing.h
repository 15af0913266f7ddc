/// What tests use to control the runtime: the clock, failures of file writes, failures of named calls.
///
/// Everything here is process-wide, thread-safe, inherited by a forked child, and off until a test turns it on; off, it
/// costs the runtime one relaxed atomic load per question. Nothing in it is reachable from the environment or a file.
#pragma once

#include <cstdint>

#include "too/export.h"
#include "too/time.h"

namespace too_testing {

/// Stops the clock at `time`; every function of too/time.h gives this time until it is set again.
NAL_HOST_EXPORT void SetClock(const FILETIME& time);

/// Moves a stopped clock; a running one is first stopped at the present time.
NAL_HOST_EXPORT void AdvanceClock(std::int64_t seconds);

/// Lets the clock run again.
NAL_HOST_EXPORT void ResetClock();

/// A stopped clock that runs again at the end of the scope.
class ScopedClock {
public:
    explicit ScopedClock(const FILETIME& time) { SetClock(time); }
    ~ScopedClock() { ResetClock(); }
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;
};

}  // namespace too_testing
