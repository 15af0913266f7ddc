/// The thread's last-error slot.
#pragma once

#include "too/export.h"
#include "too/types.h"

/// Sets the calling thread's last-error code; it stays until the thread sets another. Never fails.
NAL_HOST_EXPORT void SetLastError(DWORD code);

/// @return the calling thread's last-error code, 0 in a thread that never set one.
NAL_HOST_EXPORT DWORD GetLastError();
