// Users: opening containers, secrets, assignment, the list of containers.
#include "win32/cnaluser/user_test.h"

#include <sys/file.h>

#include <filesystem>
#include <fstream>

#include "support/status_of.h"
#include "too/file.h"

namespace {

using nal_test::UserTest;

TEST_F(UserTest, SecretsOpenTheKeysTheyProtect) {
    constexpr struct {
        const char *name, *password, *pin, *wrongPassword, *wrongPin;
    } cases[] = {
        {"both", "secret", "1234", "secret", "1235"},
        {"password", "secret", "", "Secret", ""},
        {"pin", "", "1234", "", ""},
        {"none", "", "", nullptr, nullptr},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        CNALUser owner;
        LogIn(owner, test.name, true, test.password, test.pin);
        EXPECT_FALSE(owner.CheckPassword()) << "no key yet";
        EXPECT_TRUE(owner.CreateNewKeys(NAL_NEW_KEY_EXCHANGE, "", nullptr, nullptr));
        EXPECT_TRUE(owner.CheckPassword());

        CNALUser other;
        LogIn(other, test.name, false, test.password, test.pin);
        EXPECT_TRUE(other.CheckPassword());
        if (test.wrongPassword == nullptr) continue;
        LogIn(other, test.name, false, test.wrongPassword, test.wrongPin);
        EXPECT_FALSE(other.CheckPassword());
        CTOOString msg;
        EXPECT_EQ(TOO_E_WRONG_PASSWORD, Status([&](int* s) { return other.GetUserKey(AT_KEYEXCHANGE, nullptr, s, &msg) != 0; }));
        EXPECT_EQ("CNALUser::GetUserKey()", msg);
        EXPECT_EQ(TOO_E_WRONG_PASSWORD, Status([&](int* status) { return other.CreateNewKeys(0, "", status, nullptr); }));
        EXPECT_EQ(TOO_E_KEY_NOT_FOUND, Status([&](int* status) {
                      return other.PutCertificate(Certificate(owner.GetNewPublicKey()), status, &msg);
                  }));
        EXPECT_NE(CTOOString::npos, msg.find("password")) << msg;
        // The secrets can be set afterwards, too.
        EXPECT_EQ(TOO_OK, other.SetPassword(test.password));
        EXPECT_EQ(TOO_OK, other.SetPIN(test.pin));
        EXPECT_TRUE(other.CheckPassword());
    }
}

TEST_F(UserTest, WhatDoesNotOpen) {
    CNALUser user;
    LogIn(user, "there", true);
    const std::string longSecret(1025, 'x');
    std::ofstream(File("other")) << "no container, though a file";
    const struct {
        std::string path, password;
        bool create;
        int status;
    } cases[] = {
        {File("there"), "secret", true, TOO_E_CONTAINER_EXISTS},
        {File("missing"), "secret", false, TOO_E_NO_CONTAINER},
        {File("other"), "", false, TOO_E_NO_CONTAINER},
        {File("no/folder"), "", true, TOO_E_FILE_NOT_FOUND},
        {File("there"), longSecret, false, TOO_E_BAD_LENGTH},
    };
    for (const auto& test : cases)
        EXPECT_EQ(test.status, user.LogInUser(test.path.c_str(), test.password.c_str(), nullptr, test.create)) << test.path;
    EXPECT_EQ(TOO_E_NO_PROVIDER, user.OpenProvider(File("there").c_str(), "Another Provider", 2, 0));

    user.Reset();
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, Status([&](int* s) { return user.GetUserKey(AT_SIGNATURE, nullptr, s, nullptr) != 0; }));
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, Status([&](int* s) { return user.CreateNewKeys(0, "", s, nullptr); }));
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, Status([&](int* s) { return user.DeleteKey(IdentObj(), s, nullptr); }));
    EXPECT_EQ(TOO_E_NOT_INITIALIZED, user.SetDefenceKey(1));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, user.SetDefenceKey(0));
    EXPECT_FALSE(user.CheckPassword());
}

TEST_F(UserTest, OpenProviderTakesThePath) {
    CNALUser user;
    LogIn(user, "container", true, "");
    std::filesystem::create_symlink(File("container"), File("link"));
    EXPECT_EQ(TOO_OK, user.OpenProvider(File("link").c_str(), nullptr, 2, 0));
    EXPECT_EQ(File("link"), user.GetPath().str());
    EXPECT_EQ(TOO_OK, user.OpenProvider(File("link").c_str(), nullptr, 2, ORK_OPEN_NO_PASSWORD));
    EXPECT_EQ(File("container"), user.GetPath().str());
    EXPECT_EQ(TOO_OK, user.OpenProvider(nullptr, nullptr, 2, ORK_OPEN_VERIFY));
    EXPECT_EQ(File("container"), user.GetPath().str()) << "no path given";
}

TEST_F(UserTest, ChangesItsSecrets) {
    CNALUser user;
    LogIn(user, "container", true, "old", "1111");
    ASSERT_TRUE(user.CreateNewKeys(0, "", nullptr, nullptr));
    EXPECT_TRUE(CNALUser::CanChangePassword(File("container").c_str()));
    EXPECT_FALSE(CNALUser::CanChangePassword(File("missing").c_str()));

    CNALUser stranger;
    LogIn(stranger, "container", false, "guess", "1111");
    EXPECT_EQ(TOO_E_WRONG_PASSWORD, Status([&](int* s) { return stranger.ChangePassword("mine", s); }));
    EXPECT_EQ(TOO_E_WRONG_PASSWORD, Status([&](int* s) { return stranger.ChangePIN("0000", s); }));

    EXPECT_EQ(TOO_E_BAD_ARGUMENT, Status([&](int* s) { return user.ChangePIN(nullptr, s); }));
    EXPECT_TRUE(user.ChangePassword("new", nullptr));
    EXPECT_TRUE(user.ChangePIN("2222", nullptr));
    EXPECT_TRUE(user.CheckPassword());
    LogIn(stranger, "container", false, "new", "2222");
    EXPECT_TRUE(stranger.CheckPassword());
}

TEST_F(UserTest, CopiesPathSecretsAndProviderOnly) {
    CNALUser user;
    LogIn(user, "container", true);
    user.SetCertificate(NewKey(user));
    const unsigned long key = user.GetUserKey(AT_SIGNATURE, nullptr, nullptr, nullptr);

    CNALUser copy;
    LogIn(copy, "another", true);
    copy = user;
    EXPECT_EQ(user.GetPath(), copy.GetPath());
    EXPECT_EQ(user.GetProvider().GetProviderHandle(), copy.GetProvider().GetProviderHandle());
    EXPECT_FALSE(copy.GetCertificate().IsInitialized());
    EXPECT_TRUE(copy.GetNewPublicKey().m_publicKey.m_data.IsEmpty());
    EXPECT_NE(key, copy.GetUserKey(AT_SIGNATURE, nullptr, nullptr, nullptr)) << "the copy opens keys of its own";
    copy.Reset();
    EXPECT_EQ(key, user.GetUserKey(AT_SIGNATURE, nullptr, nullptr, nullptr)) << "and closes only them";
    DWORD type = 0;
    EXPECT_TRUE(ORKGetKeyParam(key, ORK_KEY_PARAM_TYPE, type));
    user.Reset();
    EXPECT_FALSE(ORKGetKeyParam(key, ORK_KEY_PARAM_TYPE, type));
    EXPECT_EQ(File("container"), user.GetPath().str());
}

TEST_F(UserTest, MakesContainerNames) {
    EXPECT_EQ("/keys/sgn_cont", CNALUser::MakeContainerName("/keys/", 1));
    EXPECT_EQ("/keys/", CNALUser::MakeContainerName("/keys/", 2));
    for (const char* path : {"/keys/mine", "mine", ""}) EXPECT_EQ(path, CNALUser::MakeContainerName(path, 1));
    EXPECT_EQ("", CNALUser::MakeContainerName(nullptr, 1));
}

/// Whether somebody holds one of a home folder's locks.
bool HoldsALock(const std::string& home) {
    for (const auto& file : std::filesystem::directory_iterator(home + "/locks")) {
        const CTOOFile lock(file.path().string(), "rb");
        if (flock(lock.GetDescriptor(), LOCK_EX | LOCK_NB) != 0) return true;
    }
    return false;
}

TEST_F(UserTest, ListsContainersWithoutTheirSecrets) {
    CNALUser user;
    ASSERT_EQ(TOO_OK, user.LogInUser("bare", "secret", "1234", true));
    const CNALCertContext signature = NewKey(user, c_NAL_OID_KEY_GOST94, "1.2.643.2.2.32.3");
    ASSERT_TRUE(user.PutCertificate(signature, nullptr, nullptr));
    NewKey(user, c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.1");
    NewKey(user, c_NAL_OID_KEY_PRIVATE);
    user.Reset();
    ASSERT_EQ(TOO_OK, user.LogInUser("empty", "", "", true));
    const std::string directory = File("home/csp");
    std::ofstream(directory + "/notes") << "no container";
    std::filesystem::copy_file(directory + "/bare", directory + "/broken");
    std::filesystem::resize_file(directory + "/broken", 100);

    std::list<CNALUserContainerInfo> list;
    ASSERT_TRUE(NALGetContainerList("", list, nullptr, nullptr));
    ASSERT_EQ(3U, list.size());
    const CNALUserContainerInfo& bare = list.front();
    EXPECT_EQ("bare", bare.m_name);
    EXPECT_EQ(directory + "/bare", bare.m_path.str());
    EXPECT_EQ(static_cast<DWORD>(NAL_PROTECTED_PASSWORD | NAL_PROTECTED_PIN), bare.m_protection);
    const struct {
        unsigned type;
        const char *algorithm, *set;
        bool hasCertificate = false;
    } keys[] = {{AT_SIGNATURE, c_NAL_OID_KEY_GOST94, "1.2.643.2.2.32.3", true},
                {AT_KEYEXCHANGE, c_NAL_OID_DH_GOST2001, "1.2.643.2.2.36.1"},
                {AT_SIGNATURE, c_NAL_OID_KEY_PRIVATE, ""}};
    ASSERT_EQ(3U, bare.m_keys.size());
    auto key = bare.m_keys.begin();
    for (const auto& expected : keys) {
        CTOOString algorithm;
        CTOOString set;
        key->GetParams(algorithm, set);
        EXPECT_EQ(expected.type, key->GetKeyType());
        EXPECT_EQ(expected.algorithm, algorithm);
        EXPECT_EQ(expected.set, set);
        EXPECT_EQ(0U, key->GetName().find(directory + "/bare#"));
        EXPECT_FALSE(key->m_created.IsZero());
        CTOOFileTime from;
        CTOOFileTime until;
        EXPECT_EQ(expected.hasCertificate, key->GetValidity(from, until));
        EXPECT_EQ(expected.hasCertificate, from < until);
        ++key;
    }
    EXPECT_TRUE(bare.m_keys.front().m_certificate == signature);
    EXPECT_EQ(0U, bare.m_keys.front().m_certificate.GetProviderInfo()->cProvParam) << "no PIN in a list";
    const CNALUserContainerInfo& broken = *std::next(list.begin());
    EXPECT_EQ("broken", broken.m_name);
    EXPECT_EQ(TOO_E_NO_CONTAINER, broken.m_status);
    EXPECT_EQ("empty", list.back().m_name);
    EXPECT_TRUE(list.back().m_keys.empty());

    ASSERT_TRUE(NALGetContainerList(directory, list, nullptr, nullptr));
    EXPECT_EQ(2U, list.size());
    EXPECT_EQ(directory + "/bare", list.front().m_name.str());
    CTOOString msg;
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, Status([&](int* s) { return NALGetContainerList(File("nowhere"), list, s, &msg); }));
    EXPECT_EQ("NALGetContainerList", msg);

    CNALUserContainerInfo info;
    EXPECT_TRUE(NALGetContainerInfo("bare", info, nullptr, nullptr));
    EXPECT_EQ(3U, info.m_keys.size());
    EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return NALGetContainerInfo("missing", info, s, nullptr); }));
    EXPECT_EQ("missing", info.m_name);
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, Status([&](int* s) { return NALDeleteContainer("", s, nullptr); }));
    EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return NALDeleteContainer("notes", s, nullptr); }));
    bool isLocked = false;
    too_testing::BeforeCall("ORKAcquireContext", 2, [&] { isLocked = HoldsALock(File("home")); });  // the second one deletes
    EXPECT_TRUE(NALDeleteContainer("bare", nullptr, nullptr));
    EXPECT_TRUE(isLocked);
    EXPECT_FALSE(std::filesystem::exists(directory + "/bare"));
    EXPECT_TRUE(std::filesystem::exists(directory + "/notes"));
}

TEST_F(UserTest, SeesWhenItsContainerGoesOrIsReplaced) {
    CNALUser user;
    LogIn(user, "container", true);
    const CNALCertContext cert = NewKey(user);
    ASSERT_NE(0U, user.GetUserKey(AT_SIGNATURE, &cert, nullptr, nullptr));

    CNALUser other;
    LogIn(other, "container");
    const CNALCertContext second = NewKey(other);
    EXPECT_NE(0U, user.GetUserKey(AT_SIGNATURE, &second, nullptr, nullptr)) << "a key that another made is found";
    CNALUserContainerInfo info;
    EXPECT_TRUE(user.GetContainerInfo(info, nullptr, nullptr));
    EXPECT_EQ(2U, info.m_keys.size());
    // A key that another deleted while it was this user's current one does not hide the rest.
    ASSERT_TRUE(other.DeleteKey(other.GetNewPublicKey().WriteData(), nullptr, nullptr));
    CNALUser third(user);
    EXPECT_NE(0U, third.GetUserKey(AT_SIGNATURE, &cert, nullptr, nullptr));

    const auto statuses = [&] {
        CNALUser fresh(user);
        EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return fresh.GetUserKey(AT_SIGNATURE, &cert, s, nullptr) != 0; }));
        EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return fresh.PutCertificate(cert, s, nullptr); }));
        EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return fresh.CreateNewKeys(0, "", s, nullptr); }));
        EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return fresh.GetContainerInfo(info, s, nullptr); }));
        EXPECT_FALSE(fresh.CheckPassword());
    };
    std::filesystem::rename(File("container"), File("away"));
    statuses();
    LogIn(other, "container", true);
    statuses();
    EXPECT_EQ(TOO_E_NO_CONTAINER, Status([&](int* s) { return user.DeleteKey(IdentObj(), s, nullptr); }));
    std::filesystem::rename(File("away"), File("container"));
    EXPECT_TRUE(user.CheckPassword());
}

}  // namespace
