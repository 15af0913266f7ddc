/// What tests use to control the runtime: the clock, failures of file writes, failures of named calls.
///
/// Everything here is process-wide, thread-safe, inherited by a forked child, and off until a test turns it on; off, it
/// costs the runtime one relaxed atomic load per question. Nothing in it is reachable from the environment or a file.
#pragma once

#include <cerrno>
#include <cstdint>
#include <functional>

#include "too/export.h"
#include "too/time.h"
#include "too/types.h"

namespace too_testing {

// ---- the clock ----

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

// ---- changes of files ----
//
// A step is one change that the runtime asks of the file system: a write, a change of length, a sync, a rename.
// The steps of all files are counted together. Code that changes files by other means (a database) asks NextStepFails.

/// Makes steps fail with `systemError`: the `nth` from now (1 is the next one) and those after it, `count` in all, 0
/// for every one until ResetSteps. A write that fails first writes half of its bytes, as a full disk may.
NAL_HOST_EXPORT void FailStep(unsigned nth, int systemError = ENOSPC, unsigned count = 0);

/// Makes the process kill itself by SIGKILL before its `nth` step from now. A write first writes half of its bytes.
NAL_HOST_EXPORT void KillAtStep(unsigned nth);

/// Turns failures off and sets the count of steps to 0; steps are then counted until the next reset.
NAL_HOST_EXPORT void ResetSteps();

/// @return the steps made since FailStep, KillAtStep or ResetSteps; 0 when none of them was ever called
NAL_HOST_EXPORT unsigned GetStepCount();

/// Asked by the runtime before each step; a process that is to be killed at this step does not return from it.
/// @return 0 when the step is to be made, else the errno with which it fails
NAL_HOST_EXPORT int NextStepFails();

/// @return whether NextStepFails, asked now, would report a failure or kill: a write is then made by half before it
/// asks
NAL_HOST_EXPORT bool NextStepIsBad();

/// Steps that fail from the `nth` on until the end of the scope.
class ScopedStepFailure {
public:
    explicit ScopedStepFailure(unsigned nth, int systemError = ENOSPC, unsigned count = 0) {
        FailStep(nth, systemError, count);
    }
    ~ScopedStepFailure() { ResetSteps(); }
    ScopedStepFailure(const ScopedStepFailure&) = delete;
    ScopedStepFailure& operator=(const ScopedStepFailure&) = delete;
};

// ---- named calls ----

/// Makes a call of the provider fail.
///
/// @param name       the exported name, as in "ORKSignHash"
/// @param lastError  the last-error code that it sets; 0 lets the call work again
/// @param nth        the first call from now that fails (1 is the next one)
/// @param count      how many calls fail from there on; 0 for all
NAL_HOST_EXPORT void FailCall(const char* name, DWORD lastError, unsigned nth = 1, unsigned count = 0);

/// Lets every call work again, and counts none any more; nothing is done before a call either.
NAL_HOST_EXPORT void ResetCalls();

/// Counts every call by its name from now on, from 0.
NAL_HOST_EXPORT void CountCalls();

/// @return how often a call was made since CountCalls, the failing ones included
NAL_HOST_EXPORT unsigned GetCallCount(const char* name);

/// Does something at the start of the `nth` call from now, once: what another process might do just then.
NAL_HOST_EXPORT void BeforeCall(const char* name, unsigned nth, std::function<void()> action);

/// Asked by a provider function at its start: `if (too_testing::CallFails("ORKSignHash")) return FALSE;`
/// @return whether the call is to fail; the last-error code is then set
NAL_HOST_EXPORT bool CallFails(const char* name);

/// A call that fails until the end of the scope.
class ScopedCallFailure {
public:
    explicit ScopedCallFailure(const char* name, DWORD lastError, unsigned nth = 1, unsigned count = 0) {
        FailCall(name, lastError, nth, count);
    }
    ~ScopedCallFailure() { ResetCalls(); }
    ScopedCallFailure(const ScopedCallFailure&) = delete;
    ScopedCallFailure& operator=(const ScopedCallFailure&) = delete;
};

}  // namespace too_testing
