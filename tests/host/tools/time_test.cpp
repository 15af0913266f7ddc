#include "too/time.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "too/last_error.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

// The ticks come from an independent calendar.
TEST(Time, KnownTimesConvertBothWays) {
    struct {
        std::uint64_t ticks;
        SYSTEMTIME fields;
    } const cases[] = {
        {0, {1601, 1, 1, 1, 0, 0, 0, 0}},
        {116444736000000000, {1970, 1, 4, 1, 0, 0, 0, 0}},
        {125963423990000000, {2000, 2, 2, 29, 23, 59, 59, 0}},
        {94682159999990000, {1901, 1, 1, 14, 19, 59, 59, 999}},
        {134168295000070000, {2026, 3, 0, 1, 9, 5, 0, 7}},
        {157783680010000000, {2100, 12, 5, 31, 0, 0, 1, 0}},
        {2650467743999990000, {9999, 12, 5, 31, 23, 59, 59, 999}},
    };
    for (const auto& test : cases) {
        const CTOOFileTime time(test.ticks);
        SYSTEMTIME fields{};
        ASSERT_TRUE(FileTimeToSystemTime(&time, &fields)) << time;
        EXPECT_EQ(0, std::memcmp(&test.fields, &fields, sizeof fields)) << time;
        CTOOFileTime back;
        ASSERT_TRUE(SystemTimeToFileTime(&test.fields, &back));
        EXPECT_EQ(time, back);
    }
    const CTOOFileTime tooLate(std::uint64_t{1} << 63);
    SYSTEMTIME fields{};
    EXPECT_FALSE(FileTimeToSystemTime(&tooLate, &fields));
    EXPECT_THROW(CTOODateTime{tooLate}, XTOOStatus);
}

TEST(Time, EveryDayOfFourCenturiesRoundTrips) {
    for (std::uint64_t day = 0; day < 146097; ++day) {
        const CTOOFileTime time(day * CTOOFileTime::c_ticksPerDay);
        ASSERT_EQ(time, CTOODateTime(time).GetFileTime()) << time;
        ASSERT_EQ((day + 1) % 7, CTOODateTime(time).GetFields().wDayOfWeek) << time;
    }
}

TEST(Time, UnixSecondsConvertBothWays) {
    for (const std::int64_t seconds : {0LL, -1LL, 1772355900LL, -11644473600LL}) {
        EXPECT_EQ(seconds, CTOOFileTime::FromUnix(seconds).ToUnix());
    }
    EXPECT_TRUE(CTOOFileTime::FromUnix(-11644473601).IsZero());
}

TEST(Time, TheClockGoesWithTheSystemsUnlessATestStopsIt) {
    EXPECT_NEAR(static_cast<double>(CTOOFileTime::Now().ToUnix()), static_cast<double>(std::time(nullptr)), 5);
    const too_testing::ScopedClock clock(CTOOFileTime::FromUnix(1772355900));
    EXPECT_EQ("2026-03-01 09:05:00", CTOODateTime(true).ToString());
    EXPECT_EQ("1601-01-01 00:00:00", CTOODateTime().ToString());
}

TEST(Time, RefusesNonsense) {
    const SYSTEMTIME bad[] = {
        {1600, 12, 0, 31, 23, 59, 59, 0}, {30828, 1, 0, 1, 0, 0, 0, 0}, {2023, 2, 0, 29, 0, 0, 0, 0},
        {1900, 2, 0, 29, 0, 0, 0, 0},     {2024, 13, 0, 1, 0, 0, 0, 0}, {2024, 0, 0, 1, 0, 0, 0, 0},
        {2024, 1, 0, 0, 0, 0, 0, 0},      {2024, 4, 0, 31, 0, 0, 0, 0}, {2024, 1, 0, 1, 24, 0, 0, 0},
        {2024, 1, 0, 1, 0, 60, 0, 0},     {2024, 1, 0, 1, 0, 0, 60, 0}, {2024, 1, 0, 1, 0, 0, 0, 1000},
    };
    for (const SYSTEMTIME& fields : bad) {
        CTOOFileTime time(7);
        SetLastError(0);
        EXPECT_FALSE(SystemTimeToFileTime(&fields, &time)) << fields.wYear << "-" << fields.wMonth << "-" << fields.wDay;
        EXPECT_EQ(87U, GetLastError());
        EXPECT_EQ(CTOOFileTime(7), time);
        EXPECT_THROW(CTOODateTime{fields}, XTOOStatus);
    }
}

}  // namespace
