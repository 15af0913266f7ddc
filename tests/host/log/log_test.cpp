#include "host/log/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "orklog/orklog.h"
#include "too/last_error.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

// Captures standard error while the facility is at a level.
class LogTest : public testing::Test {
protected:
    ~LogTest() override { nalhost::ConfigureLog({}); }

    template <class Action>
    std::string Logged(int level, Action&& action) {
        nalhost::ConfigureLog({level, false});
        testing::internal::CaptureStderr();
        action();
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(LogTest, SettingsFromTheEnvironment) {
    const struct {
        const char* value;
        int level;
        bool toSyslog;
    } cases[] = {{nullptr, 0, false},    {"", 0, false},        {"0", 0, false},           {"2", 2, false},
                 {"3:stderr", 3, false}, {"1:syslog", 1, true}, {"1:file", 0, false},      {"-1", 0, false},
                 {"x", 0, false},        {"1 ", 0, false},      {"99999999999", 0, false}, {":syslog", 0, false}};
    for (const auto& c : cases) {
        const nalhost::LogSettings settings = nalhost::ParseLogSettings(c.value);
        EXPECT_EQ(settings.level, c.level) << (c.value ? c.value : "null");
        EXPECT_EQ(settings.toSyslog, c.toSyslog) << (c.value ? c.value : "null");
    }
}

TEST_F(LogTest, ARecordIsOneLineWithPlaceAndFields) {
    const std::string out = Logged(1, [] {
        OkrLogHelper record(OrkLog_GetProps_cl_module(0), 1, "CNALUser::Check", "source/win32/cnaluser", 120);
        record << "Error: " << "a\nb\x1B[31m\\ \xD1\x84 \xC2\x9B" << " Error Code: " << 206 << " " << -2146885628;
        record.SetAlternate(true);
        record << "say \"x\"";
    });
    EXPECT_THAT(out, MatchesRegex("[-0-9]+T[0-9:.]+Z [0-9]+ error CNALUser::Check source/win32/cnaluser:120 Error: [^\n]*\n"));
    EXPECT_THAT(out, HasSubstr("a\\nb\\x1B[31m\\\\ \xD1\x84 \\xC2\\x9B Error Code: 206 0x80092004\"say \"\"x\"\"\"\n"));
}

TEST_F(LogTest, OnlyRecordsWithinTheLevelAreWritten) {
    const auto write = [] {
        for (int level = 1; level <= 4; ++level) {
            OkrLogHelper(OrkLog_GetProps_cl_module(0), level, "F", "s", level) << "x";
        }
    };
    EXPECT_EQ(Logged(0, write), "");
    EXPECT_THAT(Logged(1, write), EndsWith("error F s:1 x\n"));
    EXPECT_THAT(Logged(4, write), MatchesRegex(".* error F s:1 x\n.* warning F s:2 x\n.* info F s:3 x\n.* debug F s:4 x\n"));
}

TEST_F(LogTest, LeavesErrorsAloneAndCutsAHugeField) {
    const std::string huge(1 << 20, 'x');
    SetLastError(0x80092004);
    errno = EBADF;
    const std::string out = Logged(1, [&] { OkrLogHelper(OrkLog_GetProps_cl_module(0), 1, "F", "s", 1) << huge.c_str() << "tail"; });
    EXPECT_EQ(GetLastError(), 0x80092004);
    EXPECT_LT(out.size(), 10000u);
    EXPECT_THAT(out, EndsWith("x [cut]\n"));
}

// A host's facility may lack writers, and the helper must choose among those that there are.
TEST(LogHelper, ChoosesTheWriter) {
    static std::string written;
    const auto open = [](int, const char*, const char*, int) { return reinterpret_cast<OrkLogRecord*>(&written); };
    const auto plain = [](OrkLogRecord*, const char* text) { written += std::string("p:") + text; };
    const auto alternate = [](OrkLogRecord*, const char* text) { written += std::string("a:") + text; };
    const struct {
        bool hasPlain, hasAlternate, flag;
        const char* expected;
    } cases[] = {{true, true, false, "p:x"}, {true, true, true, "a:x"}, {true, false, true, "p:x"},
                 {false, true, true, "a:x"}, {false, true, false, ""},  {false, false, true, ""}};
    for (const auto& c : cases) {
        OrkLogProps props{1, open, nullptr, nullptr, nullptr, nullptr};
        if (c.hasPlain) props.writeText = plain;
        if (c.hasAlternate) props.writeTextAlternate = alternate;
        written.clear();
        OkrLogHelper(&props, 1, "F", "s", 1, c.flag) << "x" << 5;
        EXPECT_EQ(written, c.expected);
    }
}

TEST(LogNames, AreQualifiedByTheClass) {
    const struct {
        const char *pretty, *brief, *expected;
    } cases[] = {
        {"DWORD CNALMessageSignerInfo::ReadData(void*, DWORD, int*)", "ReadData", "CNALMessageSignerInfo::ReadData"},
        {"std::list<IdentObj> CNALSignData::GetSigersInfo(int*)", "GetSigersInfo", "CNALSignData::GetSigersInfo"},
        {"void Box<std::pair<int, long> >::Put(int) [with T = int]", "Put", "Box<std::pair<int, long> >::Put"},
        {"const char* Name(int)", "Name", "Name"}, {"int main()", "other", "other"}, {nullptr, "F", "F"}, {"void F()", nullptr, ""}};
    for (const auto& c : cases) EXPECT_EQ(ClUnilogFname(c.pretty, c.brief), c.expected);
}

}  // namespace
