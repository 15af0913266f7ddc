#include "frame/failure.h"

#include <gtest/gtest.h>

#include "frame/progress.h"
#include "nal/progress.h"

namespace {

TEST(Failure, OutcomeReachesTheCallerOneWayOnly) {
    nal::Outcome good;
    int err = 7;
    CTOOString msg("old");
    EXPECT_TRUE(good.Finish(&err, &msg));
    EXPECT_EQ(TOO_OK, err);
    EXPECT_EQ("", msg.str());
    EXPECT_TRUE(good.Finish(nullptr, &msg));

    nal::Outcome bad;
    EXPECT_FALSE(bad.Fail(TOO_E_NOT_INITIALIZED, "CNALUser"));
    msg = CTOOString("old");
    EXPECT_FALSE(bad.Finish(&err, &msg));
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, err);
    EXPECT_EQ("CNALUser", msg.str());
    EXPECT_FALSE(bad.Finish(&err));
    msg = CTOOString("old");
    try {
        bad.Finish(nullptr, &msg);
        FAIL() << "no exception";
    } catch (const XTOOStatus& status) {
        EXPECT_EQ(TOO_E_NOT_INITIALIZED, status.GetCode());
        EXPECT_EQ("CNALUser", status.GetText().str());
    }
    EXPECT_EQ("old", msg.str());
}

TEST(Failure, AFailedProviderCallIsNeverSuccess) {
    nal::Outcome outcome;
    SetLastError(0);
    outcome.FailProvider("ORKSignHash");
    EXPECT_FALSE(outcome.IsOk());
    SetLastError(0x80070057);
    EXPECT_FALSE(nal::Refuse(0x80092004));
    EXPECT_EQ(0x80092004u, GetLastError());
    EXPECT_EQ(nullptr, nal::RefuseNull(230));
    EXPECT_EQ(230u, GetLastError());
}

TEST(Progress, HandlerSeesEveryStepAndMayCancel) {
    struct Seen {
        std::uint64_t done = 0;
        std::uint64_t inAll = 0;
        std::uint64_t stopAt = 100;
    } seen;
    NALSetProgressHandler(
        [](std::uint64_t done, std::uint64_t inAll, void* context) {
            auto& s = *static_cast<Seen*>(context);
            s.done = done;
            s.inAll = inAll;
            return done < s.stopAt;
        },
        &seen);
    nal::Progress progress(150);
    progress.Advance(60);
    EXPECT_EQ(60u, seen.done);
    EXPECT_EQ(150u, seen.inAll);
    EXPECT_THROW(progress.Advance(40), XTOOStatus);
    NALSetProgressHandler(nullptr, nullptr);
    progress.Advance(10);
    EXPECT_EQ(100u, seen.done);
}

}  // namespace
