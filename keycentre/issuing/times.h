// Times as certificates need them.
#pragma once

#include <optional>

#include "nal/certificate.h"
#include "too/status.h"
#include "too/time.h"
#include "too/types.h"

namespace keycentre {

inline FILETIME Now() {
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return now;
}

inline FILETIME AddMonths(const FILETIME& time, unsigned short months) {
    SYSTEMTIME fields{};
    FILETIME later{};
    const bool read = FileTimeToSystemTime(&time, &fields) != FALSE;
    if (read) AddMonthToTime(&fields, months);
    if (!read || SystemTimeToFileTime(&fields, &later) == FALSE) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "a time beyond the calendar");
    return later;
}

inline FILETIME AddDays(const FILETIME& time, unsigned days) {
    return CTOOFileTime(CTOOFileTime(time).GetTicks() + days * CTOOFileTime::c_ticksPerDay);
}

}  // namespace keycentre
