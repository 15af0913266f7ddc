#include "asnt/time.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "support/hex.h"
#include "too/time.h"

namespace {

using asnt::View;
namespace tag = asnt::tag;

constexpr std::uint64_t kTicksPerSecond = 10'000'000;

bool Decode(asnt::Tag type, std::string_view text, FILETIME& time) {
    return asnt::DecodeTime(type, View(text.data(), text.size()), time);
}

// Seconds since 1970 were computed by an independent calendar (`date -u -d ... +%s`).
TEST(Time, ReadsAndWritesTheTable) {
    const struct {
        asnt::Tag type;
        const char* text;
        std::int64_t unixSeconds;
    } cases[] = {
        {tag::UtcTime, "700101000000Z", 0},
        {tag::UtcTime, "500101000000Z", -631152000},
        {tag::UtcTime, "491231235959Z", 2524607999},
        {tag::UtcTime, "991231235959Z", 946684799},
        {tag::UtcTime, "000229120000Z", 951825600},
        {tag::UtcTime, "240229000000Z", 1709164800},
        {tag::GeneralizedTime, "20500101000000Z", 2524608000},
        {tag::GeneralizedTime, "21000228235959Z", 4107542399},
        {tag::GeneralizedTime, "19491231235959Z", -631152001},
        {tag::GeneralizedTime, "16010101000000Z", -11644473600},
        {tag::GeneralizedTime, "99991231235959Z", 253402300799},
    };
    for (const auto& c : cases) {
        FILETIME time{};
        ASSERT_TRUE(Decode(c.type, c.text, time)) << c.text;
        EXPECT_EQ(CTOOFileTime(time).GetTicks(), static_cast<std::uint64_t>(c.unixSeconds + 11644473600) * kTicksPerSecond) << c.text;
        EXPECT_EQ(asnt::TimeTag(time), c.type) << c.text;
        std::string text;
        ASSERT_TRUE(asnt::EncodeTime(c.type, time, text)) << c.text;
        EXPECT_EQ(text, c.text);
    }
}

TEST(Time, RefusesNonsense) {
    const std::pair<asnt::Tag, std::vector<std::string_view>> cases[] = {
        {tag::UtcTime, {"", "Z", "700101000000", "700101000000z", "700101000000+0000", "700101000000Z0", "700101000000.5Z",
                        "20500101000000Z",
                        "7001010000Z",  // no seconds: BER only
                        "700001000000Z", "701301000000Z", "700100000000Z", "700132000000Z", "700431000000Z", "230229000000Z",
                        "700101240000Z", "700101006000Z", "700101000060Z", " 00101000000Z", "-00101000000Z", "7001010000 0Z",
                        std::string_view("70010100\0000Z", 13)}},
        {tag::GeneralizedTime, {"700101000000Z", "21000229000000Z", "16001231235959Z", "00000101000000Z", "20500101000000.Z",
                                "20500101000000.0Z", "20500101000000.50Z", "20500101000000.12345678Z", "20500101000000,5Z"}},
        {tag::OctetString, {"700101000000Z"}},
        {tag::ContextPrimitive(23), {"700101000000Z"}},
    };
    for (const auto& [type, texts] : cases) {
        for (const std::string_view text : texts) {
            FILETIME time{7, 7};
            EXPECT_FALSE(Decode(type, text, time)) << text;
            EXPECT_EQ(time.dwLowDateTime, 7u) << text;
        }
    }
}

TEST(Time, KeepsFractionsOfASecondWhenReading) {
    FILETIME whole{};
    ASSERT_TRUE(Decode(tag::GeneralizedTime, "20500101000000Z", whole));
    const std::pair<const char*, std::uint64_t> cases[] = {
        {"20500101000000.5Z", 5'000'000}, {"20500101000000.0000001Z", 1}, {"20500101000000.9999999Z", 9'999'999}};
    for (const auto& [fraction, ticks] : cases) {
        FILETIME time{};
        ASSERT_TRUE(Decode(tag::GeneralizedTime, fraction, time)) << fraction;
        EXPECT_EQ(CTOOFileTime(time).GetTicks() - CTOOFileTime(whole).GetTicks(), ticks) << fraction;
        std::string text;
        ASSERT_TRUE(asnt::EncodeTime(tag::GeneralizedTime, time, text));
        EXPECT_EQ(text, "20500101000000Z") << fraction;
    }
}

TEST(Time, WritesOnlyYearsThatTheTypeHas) {
    std::string text = "kept";
    for (const std::int64_t seconds : {std::int64_t{-631152001}, std::int64_t{2524608000}}) {
        EXPECT_FALSE(asnt::EncodeTime(tag::UtcTime, CTOOFileTime::FromUnix(seconds), text)) << seconds;
    }
    EXPECT_FALSE(asnt::EncodeTime(tag::GeneralizedTime, CTOOFileTime::FromUnix(253402300800), text));
    EXPECT_FALSE(asnt::EncodeTime(tag::GeneralizedTime, CTOOFileTime(UINT64_MAX), text));
    EXPECT_EQ(text, "kept");
}

}  // namespace
