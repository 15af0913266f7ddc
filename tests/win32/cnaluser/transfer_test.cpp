// Moving keys to another container.
#include <filesystem>

#include "ork/csp.h"
#include "ork/handles.h"
#include "support/child.h"
#include "support/hex.h"
#include "win32/cnaluser/user_test.h"

namespace {

using nal_test::ChildEnd;
using nal_test::UserTest;

class TransferTest : public UserTest {
protected:
    /// A container with three keys, two of which have certificates.
    void Make(const std::string& name) {
        CNALUser user;
        LogIn(user, name, true, "secret", "1234");
        certs = {NewKey(user), NewKey(user, c_NAL_OID_DH_GOST2001), NewKey(user, c_NAL_OID_KEY_PRIVATE)};
        ASSERT_TRUE(user.PutCertificate(certs[0], nullptr, nullptr));
        ASSERT_TRUE(user.PutCertificate(certs[1], nullptr, nullptr));
    }

    /// Whether a container has all keys, with their certificates, under these secrets; opened by a process of its own.
    bool IsWhole(const std::string& name, const char* password, const char* pin) const {
        return nal_test::RunInChild([&] {
                   CNALUser user;
                   if (user.LogInUser(File(name).c_str(), password, pin, false) != TOO_OK) throw std::runtime_error("log in");
                   for (const CNALCertContext& cert : certs) user.CheckSignKeys(cert, nullptr, nullptr);
                   std::list<CNALCertContext> bound;
                   user.GetCertificateList(bound, nullptr, nullptr);
                   if (bound.size() != 2 || bound.front() != certs[0] || bound.back() != certs[1]) throw std::runtime_error("certificates");
               }) == ChildEnd::success;
    }
    bool Exists(const std::string& name) const { return std::filesystem::exists(File(name)); }

    std::vector<CNALCertContext> certs;
};

TEST_F(TransferTest, MovesEverything) {
    Make("old");
    CNALUser user;
    LogIn(user, "old", false, "secret", "1234");
    // The note of a container that had this name before tells nothing of the keys that come.
    nal_test::WriteFile(File("new.newkey"), nal_test::FromHex("3009020101040004003000"));
    ASSERT_TRUE(user.TransferKeys(File("new"), "another", "99", 0, nullptr, nullptr));
    EXPECT_FALSE(Exists("old"));
    EXPECT_EQ(File("new"), user.GetPath().str());
    EXPECT_TRUE(user.CheckSignKeys(certs[2], nullptr, nullptr)) << "the user goes on with the new container";
    EXPECT_TRUE(IsWhole("new", "another", "99"));
    EXPECT_FALSE(IsWhole("new", "secret", "1234"));
    CNALUserContainerInfo info;
    ASSERT_TRUE(NALGetContainerInfo(File("new"), info, nullptr, nullptr));
    EXPECT_EQ(static_cast<DWORD>(NAL_PROTECTED_PASSWORD | NAL_PROTECTED_PIN), info.m_protection);

    // The form without a password takes it away.
    ASSERT_TRUE(user.TransferKeys("bare", "", 0, nullptr));
    EXPECT_FALSE(Exists("new"));
    EXPECT_TRUE(user.CheckPassword());
    ASSERT_TRUE(NALGetContainerInfo("bare", info, nullptr, nullptr));
    EXPECT_EQ(0U, info.m_protection);

    // Under a protection key, which the user has to set in each new context.
    ork::KeyHandle defence;
    ASSERT_TRUE(ORKGenKey(user.GetProvider().GetProviderHandle(), ORK_ALG_GOST28147, ORK_GEN_EXPORTABLE, defence.Receive()));
    ASSERT_TRUE(user.TransferKeys(File("defended"), "1234", defence.Get(), nullptr));
    EXPECT_TRUE(user.CheckSignKeys(certs[0], nullptr, nullptr));
    CNALUser other;
    LogIn(other, "defended", false, "", "1234");
    EXPECT_EQ(TOO_E_ACCESS, Status([&](int* s) { return other.CheckSignKeys(certs[0], s, nullptr); }));
    EXPECT_EQ(TOO_OK, other.SetDefenceKey(defence.Get()));
    EXPECT_TRUE(other.CheckSignKeys(certs[0], nullptr, nullptr));
}

TEST_F(TransferTest, RefusesTargetsThatAreThere) {
    Make("old");
    CNALUser user;
    LogIn(user, "old", false, "secret", "1234");
    CNALUser other;
    LogIn(other, "other", true);
    const CNALCertContext cert = NewKey(other);
    std::filesystem::create_symlink(File("old"), File("link"));
    std::filesystem::create_directory(File("folder"));
    const struct {
        std::string target;
        int status;
    } cases[] = {
        {File("old"), TOO_E_SAME_CONTAINER},        {File("folder/../old"), TOO_E_SAME_CONTAINER}, {File("link"), TOO_E_SAME_CONTAINER},
        {File("other"), TOO_E_CONTAINER_EXISTS},    {File("missing/new"), TOO_E_FILE_NOT_FOUND},   {"", TOO_E_BAD_ARGUMENT},
    };
    for (const auto& test : cases) {
        CTOOString msg;
        EXPECT_EQ(test.status, Status([&](int* s) { return user.TransferKeys(test.target, "a", "", 0, s, &msg); })) << test.target;
        EXPECT_EQ("CNALUser::TransferKeys", msg);
        EXPECT_TRUE(user.CheckSignKeys(certs[0], nullptr, nullptr));
    }
    EXPECT_TRUE(IsWhole("old", "secret", "1234"));
    EXPECT_TRUE(other.CheckSignKeys(cert, nullptr, nullptr)) << "the other container was not touched";
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, Status([&](int* s) { return CNALUser().TransferKeys(File("new"), "", 0, s); }));

    LogIn(user, "old", false, "guess", "1234");
    EXPECT_EQ(TOO_E_WRONG_PASSWORD, Status([&](int* s) { return user.TransferKeys(File("new"), "a", "", 0, s, nullptr); }));
    EXPECT_FALSE(Exists("new"));
}

TEST_F(TransferTest, FailuresLeaveTheOldContainer) {
    Make("old");
    // Every step that changes a file, and every call of the provider, in turn; the last round fails nowhere and moves the keys.
    unsigned steps = 0;
    for (unsigned nth = 1; steps == 0; ++nth) {
        ASSERT_LT(nth, 200U);
        CNALUser user;
        LogIn(user, "old", false, "secret", "1234");
        too_testing::FailStep(nth);
        int err = 0;
        const BOOL done = user.TransferKeys(File("new"), "another", "99", 0, &err, nullptr);
        const unsigned made = too_testing::GetStepCount();
        too_testing::ResetSteps();
        if (done) {
            EXPECT_TRUE(Exists("new") && !Exists("old"));
            EXPECT_TRUE(IsWhole("new", "another", "99"));
            if (made < nth) steps = made;
            if (steps == 0) {
                ASSERT_TRUE(user.TransferKeys(File("old"), "secret", "1234", 0, nullptr, nullptr));
            }
            continue;
        }
        EXPECT_EQ(TOO_E_DISK_FULL, err);
        EXPECT_FALSE(Exists("new")) << "step " << nth;
        ASSERT_TRUE(user.CheckSignKeys(certs[1], nullptr, nullptr));
    }
    EXPECT_GT(steps, 15U);
    CNALUser user;
    LogIn(user, "new", false, "another", "99");
    for (const char* call : {"ORKAcquireContext", "ORKSetProvParam", "ORKGetProvParam", "ORKGetUserKey", "ORKExportKey", "ORKImportKey",
                             "ORKSetKeyParam", "ORKGetKeyParam"}) {
        too_testing::FailCall(call, ORK_E_NO_MEMORY, 2, 1);
        const int status = Status([&](int* s) { return user.TransferKeys(File("target"), "a", "b", 0, s, nullptr); });
        too_testing::ResetCalls();
        EXPECT_EQ(TOO_E_NO_MEMORY, status) << call;
        EXPECT_FALSE(Exists("target")) << call;
    }
    EXPECT_TRUE(IsWhole("new", "another", "99"));
}

TEST_F(TransferTest, KilledAtEachStepOneContainerIsWhole) {
    Make("old");
    std::filesystem::copy_file(File("old"), File("master"));
    bool isOver = false;
    for (unsigned nth = 1; !isOver; ++nth) {
        ASSERT_LT(nth, 200U);
        std::filesystem::copy_file(File("master"), File("old"), std::filesystem::copy_options::overwrite_existing);
        std::filesystem::remove(File("new"));
        const ChildEnd end = nal_test::RunInChild([&] {
            CNALUser user;
            LogIn(user, "old", false, "secret", "1234");
            too_testing::KillAtStep(nth);
            user.TransferKeys(File("new"), "another", "99", 0, nullptr, nullptr);
        });
        isOver = end == ChildEnd::success;
        ASSERT_TRUE(isOver || end == ChildEnd::killed) << nth;
        EXPECT_TRUE(Exists("old") ? IsWhole("old", "secret", "1234") : IsWhole("new", "another", "99")) << "killed at step " << nth;
        if (!Exists("new")) continue;
        // Whatever came into the new container was protected when it came.
        CNALUserContainerInfo info;
        ASSERT_TRUE(NALGetContainerInfo(File("new"), info, nullptr, nullptr));
        EXPECT_TRUE(info.m_keys.empty() || info.m_protection == (NAL_PROTECTED_PASSWORD | NAL_PROTECTED_PIN));
    }
    EXPECT_FALSE(Exists("old"));
}

TEST_F(TransferTest, GoesByWhatHappensToTheSourceMeanwhile) {
    // Another process adds a key, which is moved too; or renews a certificate, and that one is moved.
    Make("old");
    CNALUser user;
    LogIn(user, "old", false, "secret", "1234");
    CNALUser other;
    LogIn(other, "old", false, "secret", "1234");
    too_testing::BeforeCall("ORKImportKey", 2, [&] {
        ork::KeyHandle key;
        EXPECT_TRUE(ORKGenKey(other.GetProvider().GetProviderHandle(), ORK_KEY_SIGNATURE, 0, key.Receive()));
        EXPECT_TRUE(ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_CERTIFICATE, IdentObj("\x05\x00", 2)));
    });
    ASSERT_TRUE(user.TransferKeys(File("new"), "a", "", 0, nullptr, nullptr));
    CNALUserContainerInfo info;
    ASSERT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
    EXPECT_EQ(4U, info.m_keys.size());

    // It removes the source between two keys: what was copied may be all there is, and stays.
    too_testing::BeforeCall("ORKExportKey", 2, [&] { std::filesystem::remove(File("new")); });
    CTOOString msg;
    EXPECT_EQ(TOO_E_TRANSFER, Status([&](int* s) { return user.TransferKeys(File("third"), "a", "", 0, s, &msg); }));
    EXPECT_EQ("CNALUser::TransferKeys", msg);
    ASSERT_TRUE(NALGetContainerInfo(File("third"), info, nullptr, nullptr));
    EXPECT_EQ(2U, info.m_keys.size());

    // Before the first key there is nothing to keep.
    LogIn(user, "third", false, "a");
    too_testing::BeforeCall("ORKExportKey", 1, [&] { std::filesystem::rename(File("third"), File("away")); });
    {
        const too_testing::ScopedCallFailure failure("ORKImportKey", ORK_E_BAD_KEYSET);
        EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return user.TransferKeys(File("fourth"), "a", "", 0, s, nullptr); }));
    }
    EXPECT_FALSE(Exists("fourth"));
}

}  // namespace
