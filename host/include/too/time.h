/// Times. The functions here are the only source of the present time for the runtime and the library; tests set it
/// (too/testing.h). Everything is UTC.
#pragma once

#include <cstdint>
#include <ctime>
#include <iosfwd>

#include "too/export.h"
#include "too/string.h"
#include "too/types.h"

/// Gives the present time as calendar fields, to the millisecond. `time` must not be null. Thread-safe.
NAL_HOST_EXPORT void GetSystemTime(SYSTEMTIME* time);

/// Gives the present time as a file time. `time` must not be null. Thread-safe.
NAL_HOST_EXPORT void GetSystemTimeAsFileTime(FILETIME* time);

/// Turns a file time into calendar fields; what is below a millisecond is cut off.
///
/// @return TRUE; FALSE with last error 87 when an argument is null or the time is 2^63 or above (year 30828),
///         and then `to` is unchanged. Thread-safe.
NAL_HOST_EXPORT BOOL FileTimeToSystemTime(const FILETIME* from, SYSTEMTIME* to);

/// Turns calendar fields into a file time. The day of the week is ignored.
///
/// @return TRUE; FALSE with last error 87 when an argument is null or the fields are no date and time of the years
///         1601 to 30827, and then `to` is unchanged. Thread-safe.
NAL_HOST_EXPORT BOOL SystemTimeToFileTime(const SYSTEMTIME* from, FILETIME* to);

/// A time in 100-nanosecond units since 1601-01-01 00:00 UTC. Eight bytes in memory, the layout of FILETIME.
/// Zero stands for "no time".
class CTOOFileTime : public FILETIME {
public:
    CTOOFileTime() : CTOOFileTime(std::uint64_t{0}) {}
    CTOOFileTime(const FILETIME& time) : FILETIME(time) {}
    explicit CTOOFileTime(std::uint64_t ticks) : FILETIME{0, 0} {
        dwLowDateTime = static_cast<DWORD>(ticks);
        dwHighDateTime = static_cast<DWORD>(ticks >> 32);
    }

    /// @return the present time
    static CTOOFileTime Now() {
        CTOOFileTime now;
        GetSystemTimeAsFileTime(&now);
        return now;
    }
    /// @return the time `seconds` after 1970-01-01 00:00 UTC; zero for what lies before 1601
    static CTOOFileTime FromUnix(std::int64_t seconds) {
        return CTOOFileTime(seconds < -c_unixEpochSeconds
                                ? 0
                                : static_cast<std::uint64_t>(seconds + c_unixEpochSeconds) * c_ticksPerSecond);
    }

    std::uint64_t GetTicks() const { return static_cast<std::uint64_t>(dwHighDateTime) << 32 | dwLowDateTime; }
    /// @return whole seconds since 1970-01-01 00:00 UTC, rounded down
    std::int64_t ToUnix() const {
        return static_cast<std::int64_t>(GetTicks() / c_ticksPerSecond) - c_unixEpochSeconds;
    }
    bool IsZero() const { return GetTicks() == 0; }

    static constexpr std::uint64_t c_ticksPerSecond = 10000000;
    static constexpr std::uint64_t c_ticksPerDay = 86400 * c_ticksPerSecond;
    /// Seconds from 1601-01-01 to 1970-01-01.
    static constexpr std::int64_t c_unixEpochSeconds = 11644473600;
};

static_assert(sizeof(CTOOFileTime) == 8, "a file time is stored as it is in memory");

inline bool operator==(const CTOOFileTime& a, const CTOOFileTime& b) {
    return a.GetTicks() == b.GetTicks();
}
inline bool operator!=(const CTOOFileTime& a, const CTOOFileTime& b) {
    return a.GetTicks() != b.GetTicks();
}
inline bool operator<(const CTOOFileTime& a, const CTOOFileTime& b) {
    return a.GetTicks() < b.GetTicks();
}
inline bool operator>(const CTOOFileTime& a, const CTOOFileTime& b) {
    return a.GetTicks() > b.GetTicks();
}
inline bool operator<=(const CTOOFileTime& a, const CTOOFileTime& b) {
    return a.GetTicks() <= b.GetTicks();
}
inline bool operator>=(const CTOOFileTime& a, const CTOOFileTime& b) {
    return a.GetTicks() >= b.GetTicks();
}

/// A time as calendar fields, UTC, to the millisecond.
class NAL_HOST_EXPORT CTOODateTime {
public:
    /// The present time when `now`, else 1601-01-01 00:00, which is the file time zero.
    explicit CTOODateTime(bool now = false);
    /// @throws XTOOStatus 28 for a time of the year 30828 or later
    CTOODateTime(const CTOOFileTime& time);
    /// @throws XTOOStatus 28 when the fields are no date and time of the years 1601 to 30827
    explicit CTOODateTime(const SYSTEMTIME& fields);

    const SYSTEMTIME& GetFields() const noexcept { return m_fields; }
    CTOOFileTime GetFileTime() const;
    operator CTOOFileTime() const { return GetFileTime(); }

    /// @return "2026-03-01 09:05:00", without the milliseconds
    CTOOString ToString() const;

private:
    SYSTEMTIME m_fields;
};

inline bool operator==(const CTOODateTime& a, const CTOODateTime& b) {
    return a.GetFileTime() == b.GetFileTime();
}
inline bool operator!=(const CTOODateTime& a, const CTOODateTime& b) {
    return !(a == b);
}
inline bool operator<(const CTOODateTime& a, const CTOODateTime& b) {
    return a.GetFileTime() < b.GetFileTime();
}
inline bool operator>(const CTOODateTime& a, const CTOODateTime& b) {
    return b < a;
}

/// Writes the calendar form, for messages of tests and logs.
NAL_HOST_EXPORT std::ostream& operator<<(std::ostream& out, const CTOOFileTime& time);
