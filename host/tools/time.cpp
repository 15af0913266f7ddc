#include "too/time.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <ostream>

#include "too/last_error.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

constexpr DWORD c_invalidParameter = 87;
constexpr std::uint64_t c_ticksPerMillisecond = 10000;
constexpr std::uint64_t c_firstRefusedTicks = std::uint64_t{1} << 63;
constexpr unsigned c_firstYear = 1601;
constexpr unsigned c_lastYear = 30827;
// Days from 1601-01-01 to 1970-01-01, the zero of std::chrono::sys_days.
constexpr std::int64_t c_epochDays = 134774;

// The time at which a test stopped the clock, 0 while it runs.
std::atomic<std::uint64_t> g_stoppedAt{0};

std::uint64_t NowTicks() {
    const std::uint64_t stoppedAt = g_stoppedAt.load(std::memory_order_relaxed);
    if (stoppedAt != 0) return stoppedAt;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return CTOOFileTime::FromUnix(now.tv_sec).GetTicks() + static_cast<std::uint64_t>(now.tv_nsec) / 100;
}

BOOL RefuseParameter() {
    SetLastError(c_invalidParameter);
    return FALSE;
}

}  // namespace

void GetSystemTimeAsFileTime(FILETIME* time) {
    *time = CTOOFileTime(NowTicks());
}

void GetSystemTime(SYSTEMTIME* time) {
    const CTOOFileTime now(NowTicks());
    FileTimeToSystemTime(&now, time);
}

BOOL FileTimeToSystemTime(const FILETIME* from, SYSTEMTIME* to) {
    if (!from || !to) return RefuseParameter();
    const std::uint64_t ticks = CTOOFileTime(*from).GetTicks();
    if (ticks >= c_firstRefusedTicks) return RefuseParameter();

    const std::chrono::sys_days day{
        std::chrono::days{static_cast<std::int64_t>(ticks / CTOOFileTime::c_ticksPerDay) - c_epochDays}};
    const std::chrono::year_month_day date{day};
    const auto milliseconds = static_cast<unsigned>(ticks % CTOOFileTime::c_ticksPerDay / c_ticksPerMillisecond);
    to->wYear = static_cast<WORD>(static_cast<int>(date.year()));
    to->wMonth = static_cast<WORD>(static_cast<unsigned>(date.month()));
    to->wDay = static_cast<WORD>(static_cast<unsigned>(date.day()));
    to->wDayOfWeek = static_cast<WORD>(std::chrono::weekday{day}.c_encoding());
    to->wHour = static_cast<WORD>(milliseconds / 3600000);
    to->wMinute = static_cast<WORD>(milliseconds / 60000 % 60);
    to->wSecond = static_cast<WORD>(milliseconds / 1000 % 60);
    to->wMilliseconds = static_cast<WORD>(milliseconds % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* from, FILETIME* to) {
    if (!from || !to) return RefuseParameter();
    const std::chrono::year_month_day date{std::chrono::year{from->wYear}, std::chrono::month{from->wMonth},
                                           std::chrono::day{from->wDay}};
    if (from->wYear < c_firstYear || from->wYear > c_lastYear || !date.ok() || from->wHour > 23 || from->wMinute > 59 ||
        from->wSecond > 59 || from->wMilliseconds > 999) {
        return RefuseParameter();
    }
    const std::int64_t days = std::chrono::sys_days{date}.time_since_epoch().count() + c_epochDays;
    const std::uint64_t seconds = from->wHour * 3600U + from->wMinute * 60U + from->wSecond;
    *to = CTOOFileTime(static_cast<std::uint64_t>(days) * CTOOFileTime::c_ticksPerDay +
                       seconds * CTOOFileTime::c_ticksPerSecond + from->wMilliseconds * c_ticksPerMillisecond);
    return TRUE;
}

CTOODateTime::CTOODateTime(bool now) : CTOODateTime(now ? CTOOFileTime::Now() : CTOOFileTime()) {}

CTOODateTime::CTOODateTime(const CTOOFileTime& time) : m_fields{} {
    if (!FileTimeToSystemTime(&time, &m_fields)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CTOODateTime");
}

CTOODateTime::CTOODateTime(const SYSTEMTIME& fields) : m_fields{} {
    // There and back, so that the day of the week is right whatever the caller gave.
    CTOOFileTime time;
    if (!SystemTimeToFileTime(&fields, &time)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CTOODateTime");
    FileTimeToSystemTime(&time, &m_fields);
}

CTOOFileTime CTOODateTime::GetFileTime() const {
    CTOOFileTime time;
    SystemTimeToFileTime(&m_fields, &time);
    return time;
}

CTOOString CTOODateTime::ToString() const {
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02}", m_fields.wYear, m_fields.wMonth, m_fields.wDay,
                       m_fields.wHour, m_fields.wMinute, m_fields.wSecond);
}

std::ostream& operator<<(std::ostream& out, const CTOOFileTime& time) {
    SYSTEMTIME fields{};
    if (!FileTimeToSystemTime(&time, &fields)) return out << "file time " << time.GetTicks();
    return out << CTOODateTime(fields).ToString()
               << fmt::format(".{:07}", time.GetTicks() % CTOOFileTime::c_ticksPerSecond);
}

namespace too_testing {

void SetClock(const FILETIME& time) {
    g_stoppedAt.store(CTOOFileTime(time).GetTicks(), std::memory_order_relaxed);
}

void AdvanceClock(std::int64_t seconds) {
    g_stoppedAt.store(NowTicks() + static_cast<std::uint64_t>(seconds) * CTOOFileTime::c_ticksPerSecond,
                      std::memory_order_relaxed);
}

void ResetClock() {
    g_stoppedAt.store(0, std::memory_order_relaxed);
}

}  // namespace too_testing
