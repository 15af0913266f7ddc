// Requests under failure and sudden death: no key without its request, no request without its key.
#include "ork/csp.h"
#include "ork/handles.h"
#include "support/child.h"
#include "win32/cnaluser/request_test.h"

namespace {

using nal_test::ChildEnd;
using nal_test::RequestTest;

class RequestCrashTest : public RequestTest {
protected:
    /// One of the two ways to make a request for a new key in `user`'s container.
    bool MakeRequest(CNALUser& user, bool isRenewal, int* err) {
        const NAL_REQ_CONTEXT* made = nullptr;
        const BOOL done = isRenewal ? user.UpdateKey("", "", CTOOFileTime(), CTOOFileTime(), cert, &made, err, nullptr)
                                    : user.CreateNewRequest(user, &cert, Ivan(), &made, err, nullptr);
        NALCloseReqContext(made);
        return done != FALSE;
    }

    CNALCertContext cert;
};

TEST_F(RequestCrashTest, KilledAtEachStepKeyAndRequestBelongTogether) {
    CNALUser owner;
    cert = Enrol(owner, "olga");
    NALGetCurrentCertNumber();
    for (const bool isRenewal : {true, false}) {
        std::size_t killed = 0;
        std::size_t finished = 0;
        bool isOver = false;
        std::size_t requests = ExpectWhole("olga", 1);
        for (unsigned nth = 1; !isOver; ++nth) {
            ASSERT_LT(nth, 200U);
            const ChildEnd end = nal_test::RunInChild([&] {
                CNALUser user;
                user.LogInUser(File("olga").c_str(), "", "", false);
                too_testing::KillAtStep(nth);
                MakeRequest(user, isRenewal, nullptr);
            });
            isOver = end == ChildEnd::success;
            ASSERT_TRUE(isOver || end == ChildEnd::killed) << nth;
            if (!isOver) ++killed;
            // The next one that opens the container puts right what is left.
            CNALUser next;
            LogIn(next, "olga", false, "");
            SCOPED_TRACE("killed at step " + std::to_string(nth));
            const std::size_t now = ExpectWhole("olga", 1);
            EXPECT_TRUE(now == requests || now == requests + 1);
            if (now > requests && !isOver) ++finished;
            requests = now;
            ASSERT_FALSE(HasFailure());
        }
        EXPECT_GT(killed, 12U);
        EXPECT_GT(finished, 0U) << "a request whose entry is on the disk is finished, not undone";
    }
}

TEST_F(RequestCrashTest, AFullDiskLeavesNothingOrAllOfIt) {
    CNALUser owner;
    cert = Enrol(owner, "olga");
    for (const unsigned count : {1U, 0U}) {  // one step fails, or all from there on
        bool isOver = false;
        for (unsigned nth = 1; !isOver; ++nth) {
            ASSERT_LT(nth, 200U);
            SCOPED_TRACE("step " + std::to_string(nth) + (count == 0 ? " and all behind it" : ""));
            const std::size_t before = ExpectWhole("olga", 1);
            CNALUser user;
            LogIn(user, "olga", false, "");
            too_testing::FailStep(nth, ENOSPC, count);
            int err = 0;
            const bool done = MakeRequest(user, true, &err);
            isOver = too_testing::GetStepCount() < nth;
            too_testing::ResetSteps();
            if (!done) {
                EXPECT_EQ(TOO_E_DISK_FULL, err);
            }
            if (count == 1) {
                EXPECT_EQ(before + (done ? 1 : 0), ExpectWhole("olga", 1)) << "undone at once";
            }
            CNALUser next;
            LogIn(next, "olga", false, "");
            ExpectWhole("olga", 1);
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST_F(RequestCrashTest, FailingCallsLeaveNothing) {
    CNALUser user;
    cert = Enrol(user, "olga");
    constexpr struct {
        const char* call;
        unsigned upTo;  // which of its calls fails, in turn
    } cases[] = {
        {"ORKGenKey", 1},   {"ORKGetUserKey", 2}, {"ORKExportKey", 2}, {"ORKCreateHash", 2},
        {"ORKSignHash", 2}, {"ORKSCApi_GetRandomByteOctet", 2}, {"ORKGetKeyParam", 1},
    };
    for (const auto& test : cases) {
        for (unsigned nth = 1; nth <= test.upTo; ++nth) {
            CNALUser fresh(user);
            too_testing::FailCall(test.call, ORK_E_NO_MEMORY, nth, 1);
            EXPECT_NE(TOO_OK, Status([&](int* s) { return MakeRequest(fresh, true, s); })) << test.call << " " << nth;
            too_testing::ResetCalls();
            EXPECT_EQ(0U, ExpectWhole("olga", 1)) << test.call << " " << nth;
        }
    }
    // What cannot be undone is remembered: the container's new key cannot be removed now, but is when the container is opened next.
    too_testing::FailCall("ORKSignHash", ORK_E_NO_MEMORY);
    too_testing::BeforeCall("ORKSignHash", 1, [] { too_testing::FailCall("ORKSetProvParam", ORK_E_WRITE_FAULT); });
    EXPECT_NE(TOO_OK, Status([&](int* s) { return MakeRequest(user, true, s); }));
    too_testing::ResetCalls();
    EXPECT_TRUE(std::filesystem::exists(File("olga.newkey")));
    CNALUser stranger;
    ASSERT_EQ(TOO_OK, stranger.LogInUser(File("olga").c_str(), "", "", false));
    EXPECT_EQ(0U, ExpectWhole("olga", 1));
}

TEST_F(RequestCrashTest, NotesThatDoNotFit) {
    CNALUser user;
    cert = Enrol(user, "olga");
    // A damaged note hinders no change of the container but the making of requests, which would write over it, and of keys, which the
    // next repair would take for its request's.
    nal_test::WriteFile(File("olga.newkey"), nal_test::FromHex("3003020101"));
    LogIn(user, "olga", false, "");
    EXPECT_TRUE(user.PutCertificate(cert, nullptr, nullptr));
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, Status([&](int* s) { return MakeRequest(user, true, s); }));
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, Status([&](int* s) { return user.CreateNewKeys(0, "", s, nullptr); }));
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, Status([&](int* s) { return user.CreateNewKeys(c_NAL_OID_KEY_GOST2001, "", s, nullptr); }));
    std::filesystem::remove(File("olga.newkey"));
    EXPECT_TRUE(MakeRequest(user, true, nullptr));

    // Keys that somebody else made meanwhile are not deleted for having no request.
    too_testing::BeforeCall("ORKExportKey", 1, [&] {
        CNALProvider foreign;
        foreign.Init(File("olga").c_str(), nullptr, 0, 0, nullptr);
        ork::KeyHandle key;
        EXPECT_TRUE(ORKGenKey(foreign.GetProviderHandle(), ORK_KEY_SIGNATURE, 0, key.Receive()));
        too_testing::FailCall("ORKCreateHash", ORK_E_NO_MEMORY);
        too_testing::FailCall("ORKSetProvParam", ORK_E_WRITE_FAULT);
    });
    CNALUser fresh(user);
    EXPECT_NE(TOO_OK, Status([&](int* s) { return MakeRequest(fresh, false, s); }));
    too_testing::ResetCalls();
    LogIn(user, "olga", false, "");
    CNALUserContainerInfo info;
    ASSERT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
    EXPECT_GE(info.m_keys.size(), 3U);

    // A note beside a new container is that of an earlier one, unless there are keys already: then somebody made one in it, and died.
    for (const bool hasKey : {false, true}) {
        std::filesystem::remove(File("fresh"));
        nal_test::WriteFile(File("fresh.newkey"), nal_test::FromHex("3009020101040004003000"));
        if (hasKey) {
            too_testing::BeforeCall("ORKGetProvParam", 1, [&] {
                CNALProvider other;
                other.Init(File("fresh").c_str(), nullptr, 0, 0, nullptr);
                ork::KeyHandle key;
                EXPECT_TRUE(ORKGenKey(other.GetProviderHandle(), ORK_KEY_SIGNATURE, 0, key.Receive()));
            });
        }
        LogIn(user, "fresh", true, "");
        too_testing::ResetCalls();
        EXPECT_FALSE(std::filesystem::exists(File("fresh.newkey"))) << hasKey;
        ASSERT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
        EXPECT_EQ(0U, info.m_keys.size()) << hasKey;
    }
}

}  // namespace
