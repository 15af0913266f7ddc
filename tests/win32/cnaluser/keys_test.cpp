// The user's keys and the certificates bound to them.
#include <thread>

#include "ork/csp.h"
#include "win32/cnaluser/user_test.h"

namespace {

using nal_test::UserTest;

TEST_F(UserTest, MakesKeysOfEveryKind) {
    constexpr struct {
        unsigned flags;
        const char* algorithm;  // null: the form with flags
        const char *set, *madeAlgorithm, *madeSet;
        int status;
    } cases[] = {
        {0, nullptr, "", c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.1", 0},
        {0, nullptr, "1.2.643.2.2.32.3", c_NAL_OID_KEY_GOST94, "1.2.643.2.2.32.3", 0},
        {1, nullptr, "", c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.0", 0},
        {1, nullptr, "1.2.643.2.2.35.3", c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.1", 0},
        {1, nullptr, "1.2.643.2.2.32.2", c_NAL_OID_DH_GOST94, "1.2.643.2.2.33.1", 0},
        {1, nullptr, "1.2.643.2.2.32.3", c_NAL_OID_DH_GOST94, "1.2.643.2.2.33.2", 0},
        {1, nullptr, "1.2.643.2.2.35.2", c_NAL_OID_DH_GOST2001, "1.2.643.2.2.35.2", 0},
        {1, nullptr, "1.2.643.2.2.35.1", c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.0", 0},
        {0, nullptr, "1.2.3", nullptr, nullptr, TOO_E_UNKNOWN_ALGORITHM},
        {0, c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.3", c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.3", 0},
        {0, c_NAL_OID_SIGN_GOST2001, "1.2.643.2.2.35.2", c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.35.2", 0},
        {0, c_NAL_OID_KEY_GOST94, "", c_NAL_OID_KEY_GOST94, "1.2.643.2.2.32.2", 0},
        {0, c_NAL_OID_DH_GOST94, "1.2.643.2.2.33.3", c_NAL_OID_DH_GOST94, "1.2.643.2.2.33.3", 0},
        {0, c_NAL_OID_KEY_PRIVATE, "", c_NAL_OID_KEY_PRIVATE, "", 0},
        {0, "1.2.3", "", nullptr, nullptr, TOO_E_UNKNOWN_ALGORITHM},
        {0, c_NAL_OID_HASH_GOST94, "", nullptr, nullptr, TOO_E_UNKNOWN_ALGORITHM},
        {0, c_NAL_OID_KEY_GOST2001, "1.2.643.2.2.32.2", nullptr, nullptr, TOO_E_UNKNOWN_ALGORITHM},
    };
    int number = 0;
    for (const auto& test : cases) {
        SCOPED_TRACE(std::to_string(number) + " " + test.set);
        CNALUser user;
        LogIn(user, "container" + std::to_string(number++), true, "");
        CTOOString msg;
        EXPECT_EQ(test.status, Status([&](int* s) {
                      return test.algorithm == nullptr ? user.CreateNewKeys(test.flags, CTOOString(test.set), s, &msg)
                                                       : user.CreateNewKeys(CTOOString(test.algorithm), CTOOString(test.set), s, &msg);
                  }));
        CNALUserContainerInfo info;
        ASSERT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
        if (test.status != 0) {
            EXPECT_EQ("CNALUser::CreateNewKeys", msg);
            EXPECT_TRUE(info.m_keys.empty());
            continue;
        }
        ASSERT_EQ(1U, info.m_keys.size());
        CTOOString algorithm;
        CTOOString set;
        info.m_keys.front().GetParams(algorithm, set);
        EXPECT_EQ(test.madeAlgorithm, algorithm);
        EXPECT_EQ(test.madeSet, set);
        EXPECT_EQ(info.m_keys.front().m_publicKeyInfo, user.GetNewPublicKey().WriteData());
        // Every key signs and is checked with the hash that goes with it.
        EXPECT_TRUE(user.CheckSignKeys(Certificate(user.GetNewPublicKey()), nullptr, nullptr));
    }
}

TEST_F(UserTest, LeavesNoKeyBehindWhenMakingOneFails) {
    CNALUser user;
    LogIn(user, "container", true, "");
    ASSERT_TRUE(user.CreateNewKeys(0, "", nullptr, nullptr));
    const IdentObj before = user.GetNewPublicKey().WriteData();
    for (const char* call :
         {"ORKSCApi_GetRandomByteOctet", "ORKSetProvParam", "ORKGenKey", "ORKExportKey", "ORKEncodePublicKeyAndParametrs"}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY, 1, 1);
        EXPECT_EQ(TOO_E_NO_MEMORY, Status([&](int* s) { return user.CreateNewKeys(0, "1.2.643.2.2.35.2", s, nullptr); })) << call;
    }
    {
        const too_testing::ScopedStepFailure full(1);
        EXPECT_EQ(TOO_E_DISK_FULL, Status([&](int* s) { return user.CreateNewKeys(0, "", s, nullptr); }));
    }
    CNALUserContainerInfo info;
    ASSERT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
    ASSERT_EQ(1U, info.m_keys.size());
    EXPECT_EQ(before, info.m_keys.front().m_publicKeyInfo);
    EXPECT_EQ(before, user.GetNewPublicKey().WriteData());
}

TEST_F(UserTest, FindsOpenKeysFirstAndOnceRound) {
    CNALUser user;
    LogIn(user, "container", true, "");
    const CNALCertContext first = NewKey(user);
    const CNALCertContext second = NewKey(user);
    const CNALCertContext third = NewKey(user);
    const auto calls = [](const char* name) { return too_testing::GetCallCount(name); };
    const auto keyOf = [&](const CNALCertContext& cert) { return user.GetUserKey(AT_SIGNATURE, &cert, nullptr, nullptr); };

    // Without a certificate and without an open key: one is opened, the last one made, and it stays the current one.
    too_testing::CountCalls();
    const unsigned long any = user.GetUserKey(AT_SIGNATURE, nullptr, nullptr, nullptr);
    EXPECT_NE(0U, any);
    EXPECT_EQ(any, user.GetUserKey(AT_KEYEXCHANGE, nullptr, nullptr, nullptr));
    EXPECT_EQ(any, keyOf(third));
    EXPECT_EQ(1U, calls("ORKGetUserKey"));

    // A key that is not open: the current entry's is tried, then the entries in their order up to the one that matches.
    too_testing::CountCalls();
    const unsigned long ofFirst = keyOf(first);
    EXPECT_EQ(2U, calls("ORKGetUserKey"));
    const unsigned long ofSecond = keyOf(second);
    EXPECT_EQ(5U, calls("ORKGetUserKey"));
    EXPECT_EQ(3U, calls("ORKDestroyKey"));

    // All are open now, whatever order they are asked for in; the last one found is the current one.
    too_testing::CountCalls();
    EXPECT_TRUE(any == keyOf(third) && ofSecond == keyOf(second) && ofFirst == keyOf(first) && any != ofFirst && ofFirst != ofSecond);
    EXPECT_EQ(ofFirst, user.GetUserKey(AT_SIGNATURE, nullptr, nullptr, nullptr));
    EXPECT_EQ(0U, calls("ORKGetUserKey") + calls("ORKExportKey") + calls("ORKGetProvParam"));

    // A certificate for nobody's key closes all that it opened.
    too_testing::CountCalls();
    CNALUser other;
    LogIn(other, "other", true, "");
    const CNALCertContext stranger = NewKey(other);
    int err = 0;
    CTOOString msg;
    const std::size_t before = nalhost::provider::Keys().Size();
    EXPECT_EQ(0U, user.GetUserKey(AT_SIGNATURE, &stranger, &err, &msg));
    EXPECT_EQ(TOO_E_KEY_NOT_FOUND, err);
    EXPECT_EQ("CNALUser::GetUserKey ", msg);
    EXPECT_EQ(before, nalhost::provider::Keys().Size());
    const CNALCertContext empty;
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, Status([&](int* s) { return user.GetUserKey(0, &empty, s, nullptr) != 0; }));
}

TEST_F(UserTest, ChecksKeysByASignature) {
    CNALUser user;
    LogIn(user, "container", true);
    const CNALCertContext cert = NewKey(user);
    EXPECT_TRUE(user.CheckSignKeys(cert, nullptr, nullptr));
    constexpr struct {
        const char* call;
        int status;
        const char* msg;
    } cases[] = {
        {"ORKCreateHash", TOO_E_NO_MEMORY, "ORKCreateHash"},
        {"ORKSignHash", TOO_E_NO_MEMORY, "ORKSignHash"},
        {"ORKImportPKInfo", TOO_E_NO_MEMORY, "NALIportPKInfo"},
        {"ORKVerifySignature", TOO_E_BAD_SIGNATURE, "ORKVerifySignature"},
    };
    const std::size_t hashes = nalhost::provider::Hashes().Size();
    for (const auto& test : cases) {
        const too_testing::ScopedCallFailure failure(test.call, ORK_E_NO_MEMORY);
        CTOOString msg;
        EXPECT_EQ(test.status, Status([&](int* s) { return user.CheckSignKeys(cert, s, &msg); }));
        EXPECT_EQ(test.msg, msg);
        EXPECT_EQ(hashes, nalhost::provider::Hashes().Size());
    }
}

TEST_F(UserTest, BindsCertificatesToTheirKeys) {
    CNALUser user;
    LogIn(user, "container", true, "secret", "1234");
    const CNALCertContext signature = NewKey(user);
    const CNALCertContext exchange = NewKey(user, c_NAL_OID_DH_GOST2001);
    CNALCertContext found;
    EXPECT_FALSE(user.FindCertificate(found));
    EXPECT_TRUE(user.PutCertificate(exchange, nullptr, nullptr));
    EXPECT_TRUE(user.FindCertificate(found));
    EXPECT_TRUE(found == exchange);
    EXPECT_TRUE(user.PutCertificate(signature, nullptr, nullptr));

    // A second process sees both, each with the way to its key.
    CNALUser second;
    LogIn(second, "container", false, "secret", "1234");
    std::list<CNALCertContext> list(1);
    ASSERT_TRUE(second.GetCertificateList(list, nullptr, nullptr));
    ASSERT_EQ(2U, list.size());
    const std::pair<CNALCertContext, DWORD> expected[] = {{signature, AT_SIGNATURE}, {exchange, AT_KEYEXCHANGE}};
    auto next = list.begin();
    for (const auto& [cert, type] : expected) {
        const CNALCertContext& bound = *next++;
        EXPECT_TRUE(bound == cert);
        const CRYPT_KEY_PROV_INFO* info = bound.GetProviderInfo();
        ASSERT_NE(nullptr, info);
        EXPECT_EQ(2U, info->dwProvType);
        EXPECT_EQ(type, info->dwKeySpec);
        EXPECT_EQ(0U, info->dwFlags);
        EXPECT_EQ("Ormatek Cryptographic Service Provider", bound.GetProviderName());
        ASSERT_EQ(1U, info->cProvParam);
        EXPECT_EQ(17U, info->rgProvParam[0].dwParam);
        EXPECT_EQ("1234", std::string(reinterpret_cast<const char*>(info->rgProvParam[0].pbData), info->rgProvParam[0].cbData));
        // The container's name in it opens the entry with its key current.
        CNALUser direct;
        ASSERT_EQ(TOO_OK, direct.LogInUser(bound.GetContainer().c_str(), "secret", "1234", false));
        too_testing::CountCalls();
        EXPECT_NE(0U, direct.GetUserKey(0, &bound, nullptr, nullptr));
        EXPECT_EQ(1U, too_testing::GetCallCount("ORKGetUserKey"));
    }
    // A newer certificate for a key takes the place of the older one; one for another key changes nothing.
    const CNALCertContext renewed = Certificate(user.GetNewPublicKey());
    EXPECT_TRUE(second.PutCertificate(renewed, nullptr, nullptr));
    CNALUser other;
    LogIn(other, "other", true);
    EXPECT_EQ(TOO_E_KEY_NOT_FOUND, Status([&](int* s) { return second.PutCertificate(NewKey(other), s, nullptr); }));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, Status([&](int* s) { return second.PutCertificate(CNALCertContext(), s, nullptr); }));
    {
        const too_testing::ScopedStepFailure full(1);
        EXPECT_EQ(TOO_E_DISK_FULL, Status([&](int* s) { return second.PutCertificate(exchange, s, nullptr); }));
    }
    ASSERT_TRUE(user.GetCertificateList(list, nullptr, nullptr));
    ASSERT_EQ(2U, list.size());
    EXPECT_TRUE(list.front() == signature);
    EXPECT_TRUE(list.back() == renewed);
}

TEST_F(UserTest, OneUserServesSeveralThreads) {
    CNALUser user;
    LogIn(user, "container", true, "");
    const std::vector<CNALCertContext> certs{NewKey(user), NewKey(user), NewKey(user)};
    std::vector<std::thread> threads;
    std::atomic<int> failures{0};
    for (std::size_t start = 0; start < 3; ++start) {
        threads.emplace_back([&, start] {
            for (std::size_t i = 0; i < 12; ++i) {
                int err = 0;
                if (!user.CheckSignKeys(certs[(start + i) % certs.size()], &err, nullptr)) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, failures);
}

}  // namespace
