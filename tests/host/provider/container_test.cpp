// Containers: what is on the disk, passwords, damage, full disks, several processes.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "host/provider/container_file.h"
#include "host/provider/container_lock.h"
#include "host/provider/crypto/hash.h"
#include "tests/host/provider/provider_fixture.h"
#include "too/status.h"
#include "too/testing.h"

namespace provider_test {
namespace {

class Containers : public ProviderTest {
protected:
    static BOOL Delete(const char* name) {
        return ORKAcquireContext(nullptr, name, ORK_PROVIDER_NAME, 2, ORK_OPEN_DELETE);
    }
    static DWORD OpenError(const char* name) {
        unsigned long handle = 0;
        const DWORD error = ErrorOf(ORKAcquireContext(&handle, name, nullptr, 2, 0));
        if (error == 0) ORKReleaseContext(handle);
        return error;
    }
    static IdentObj Certificate(unsigned char content) {
        const unsigned char der[] = {0x30, 3, 2, 1, content};
        return {der, sizeof der};
    }
    // The hash at the end made right again, as somebody would who changes a file on purpose.
    static void Rehash(std::string& file) {
        namespace crypto = nalhost::crypto;
        const std::size_t size = file.size() - crypto::kDigestSize;
        const crypto::Digest digest = crypto::Hash::Of({reinterpret_cast<const std::uint8_t*>(file.data()), size});
        std::copy(digest.begin(), digest.end(), file.begin() + static_cast<std::ptrdiff_t>(size));
    }
};

TEST_F(Containers, AreOneFileForTheirOwnerOnly) {
    const Prov prov = Create("c", "password");
    Generate(prov, 2);
    struct stat status {};
    ASSERT_EQ(stat(PathOf("c").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_home + "/csp"), {}), 1);
    EXPECT_EQ(OpenError("c"), 0U);
    unsigned long handle = 0;
    EXPECT_ERROR(ORKAcquireContext(&handle, "c", nullptr, 2, ORK_OPEN_NEW), ORK_E_EXISTS);
    EXPECT_OK(Delete("c"));
    EXPECT_EQ(OpenError("c"), ORK_E_BAD_KEYSET);
    EXPECT_EQ(UserKeyError(prov), ORK_E_BAD_KEYSET);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_home + "/csp"), {}), 0);
}

TEST_F(Containers, AreListedAndOpenedByEveryName) {
    EXPECT_TRUE(Enumerate(Verify()).empty());
    Create("beta");
    Create("alpha");
    std::filesystem::create_directories(m_home + "/csp/ormatek");
    WriteFile(PathOf("notes.txt"), "nothing");
    EXPECT_EQ(Enumerate(Verify()), (std::vector<std::string>{"alpha", "beta"}));

    std::filesystem::create_directories(m_home + "/real");
    std::filesystem::create_directory_symlink(m_home + "/real", m_home + "/link");
    const Prov prov = Create((m_home + "/link/keys").c_str());
    Generate(prov, 2);
    Generate(prov, 1);
    CTOOString unique;
    ASSERT_OK(ORKGetProvParam(prov, ORK_PARAM_UNIQUE_NAME, unique));
    EXPECT_EQ(unique, CTOOString(m_home + "/real/keys"));
    const std::vector<std::string> entries = Enumerate(prov);
    EXPECT_EQ(entries, (std::vector<std::string>{unique.str() + "#1", unique.str() + "#2"}));
    const Prov second = Open(entries[1].c_str());
    Key key;
    ASSERT_OK(ORKGetUserKey(second, ORK_KEY_ANY, key.Take()));
    CTOOString entry;
    EXPECT_OK(ORKGetKeyParam(key, ORK_KEY_PARAM_ENTRY, entry));
    EXPECT_EQ(entry, CTOOString(entries[1]));
    EXPECT_EQ(OpenError((unique.str() + "#3").c_str()), ORK_E_NO_KEY);
    EXPECT_EQ(OpenError(PathOf("notes.txt").c_str()), ORK_E_DAMAGED);
    EXPECT_ERROR(Delete("notes.txt"), ORK_E_DAMAGED);
    EXPECT_EQ(OpenError(PathOf("ormatek").c_str()), ORK_E_BAD_KEYSET);
}

TEST_F(Containers, KeepSeveralKeysAndCertificates) {
    const Prov prov = Create("c");
    const Key first = Generate(prov, 2, "1.2.643.2.2.35.1");
    const Key second = Generate(prov, 2, "1.2.643.2.2.32.2");
    const Key third = Generate(prov, 1);
    EXPECT_ERROR(ORKSetKeyParam(first, ORK_KEY_PARAM_CERTIFICATE, IdentObj("no certificate", 14)), ORK_E_BAD_DATA);
    ASSERT_OK(ORKSetKeyParam(first, ORK_KEY_PARAM_CERTIFICATE, Certificate(1)));
    ASSERT_OK(ORKSetKeyParam(third, ORK_KEY_PARAM_CERTIFICATE, Certificate(3)));
    IdentObj value;
    EXPECT_ERROR(ORKGetKeyParam(second, ORK_KEY_PARAM_CERTIFICATE, value), ORK_E_NOT_FOUND);

    const Prov again = Open("c");
    const struct {
        DWORD error;
        DWORD type;
        DWORD algId;
        const IdentObj blob;
    } expected[] = {{0, 2, 0x2E23, PublicBlob(prov, first)},
                    {ORK_E_NOT_FOUND, 2, 0x2E1E, PublicBlob(prov, second)},
                    {0, 1, 0xAA24, PublicBlob(prov, third)}};
    DWORD flags = ORK_ENUM_FIRST;
    unsigned char content = 1;
    for (const auto& e : expected) {
        CTOOString name;
        ASSERT_OK(ORKGetProvParam(again, ORK_PARAM_ENUM_ENTRIES, name, flags));
        flags = 0;
        EXPECT_ERROR(ORKGetProvParam(again, ORK_PARAM_ENTRY_CERTIFICATE, value), e.error);
        if (e.error == 0) {
            EXPECT_EQ(value, Certificate(content));
        }
        content += 1;
        Key key;
        ASSERT_OK(ORKGetUserKey(again, ORK_KEY_ANY, key.Take()));
        EXPECT_EQ(PublicBlob(again, key), e.blob);
        ASSERT_OK(ORKGetProvParam(again, ORK_PARAM_ENTRY_INFO, value));
        ASNContainerInfo info;
        ASSERT_EQ(info.ReadData(value.GetData(), value.GetSize()), value.GetSize());
        EXPECT_EQ(info.GetKeyInfo().m_name, name);
        EXPECT_EQ(info.GetKeyInfo().m_keyType, e.type);
        EXPECT_EQ(info.GetKeyInfo().m_algId, e.algId);
        EXPECT_EQ(info.WriteData(), value);
        EXPECT_EQ(info.ReadData(nullptr, 5), 0U);
        for (unsigned size = 1; size < value.GetSize(); ++size) {
            EXPECT_THROW(info.ReadData(value.GetData(), size), XTOOStatus) << size;
        }
    }
    // A number is not used again after its entry was taken out.
    ASSERT_OK(ORKSetProvParam(again, ORK_PARAM_DELETE_ENTRY, "", 0));
    EXPECT_EQ(UserKeyError(prov, ORK_KEY_EXCHANGE), ORK_E_NO_KEY);
    EXPECT_ERROR(ORKGetKeyParam(third, ORK_KEY_PARAM_CERTIFICATE, value), ORK_E_NO_KEY);
    Generate(again, 1);
    EXPECT_EQ(Enumerate(prov).back(), PathOf("c") + "#4");
    // An empty certificate takes the stored one away.
    ASSERT_OK(ORKSetKeyParam(first, ORK_KEY_PARAM_CERTIFICATE, IdentObj()));
    EXPECT_ERROR(ORKGetKeyParam(first, ORK_KEY_PARAM_CERTIFICATE, value), ORK_E_NOT_FOUND);
}

TEST_F(Containers, OpenTheirKeysToTheRightSecretsOnly) {
    const struct {
        const char* password;
        const char* pin;
        DWORD bits;
    } made[] = {{"", "", 0}, {"word", "", 1}, {"", "1234", 2}, {"word", "1234", 3}};
    int count = 0;
    for (const auto& m : made) {
        const std::string name = std::to_string(count++);
        {
            const Prov prov = Create(name.c_str(), m.password, m.pin);
            Generate(prov, 2);
        }
        for (const char* password : {"", "word", "Word", "word1"}) {
            for (const char* pin : {"", "1234", "4321"}) {
                const Prov prov = Open(name.c_str(), password, pin);
                DWORD bits = 0;
                EXPECT_OK(ORKGetProvParam(prov, ORK_PARAM_PROTECTION, bits));
                EXPECT_EQ(bits, m.bits);
                const bool right = (*m.password == 0 || std::string(password) == m.password) &&
                                   (*m.pin == 0 || std::string(pin) == m.pin);
                EXPECT_EQ(UserKeyError(prov), right ? 0 : ORK_E_INVALID_PASSWORD) << password << pin;
            }
        }
    }
    // The right one may come after a wrong one, and a wrong one is noticed after the right one.
    const Prov prov = Open("1", "wrong");
    EXPECT_EQ(UserKeyError(prov), ORK_E_INVALID_PASSWORD);
    unsigned long out = 0;
    EXPECT_ERROR(ORKGenKey(prov, 2, 0, &out), ORK_E_INVALID_PASSWORD);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PASSWORD, "word", 0));
    EXPECT_EQ(UserKeyError(prov), 0U);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PASSWORD, "wrong", 0));
    EXPECT_EQ(UserKeyError(prov), ORK_E_INVALID_PASSWORD);
}

TEST_F(Containers, ChangeTheirPasswordAndPin) {
    const Prov prov = Create("c", "old");
    const Key key = Generate(prov, 2);
    const Prov other = Open("c", "old");
    EXPECT_EQ(UserKeyError(other), 0U);
    EXPECT_ERROR(ORKSetProvParam(Open("c", "wrong"), ORK_PARAM_NEW_PASSWORD, "new", 0), ORK_E_INVALID_PASSWORD);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PASSWORD, "new", 0));
    EXPECT_EQ(UserKeyError(prov), 0U);
    EXPECT_EQ(UserKeyError(other), ORK_E_INVALID_PASSWORD);
    EXPECT_EQ(UserKeyError(Open("c", "old")), ORK_E_INVALID_PASSWORD);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PIN, "77", 0));
    EXPECT_EQ(UserKeyError(Open("c", "new")), ORK_E_INVALID_PASSWORD);
    EXPECT_EQ(UserKeyError(Open("c", "new", "77")), 0U);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PIN, "", 0));
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PASSWORD, "", 0));
    const Prov open = Open("c");
    Key same;
    ASSERT_OK(ORKGetUserKey(open, 2, same.Take()));
    EXPECT_EQ(PublicBlob(open, same), PublicBlob(prov, key));
}

// Secrets that the container never asked for are never checked either, so a change does not begin to ask for them.
TEST_F(Containers, AskForNothingNewAfterAChange) {
    Generate(Create("c", "old"), 2);
    const Prov prov = Open("c", "old", "mistyped");
    Key protection;
    ASSERT_OK(ORKGenKey(prov, ORK_ALG_GOST28147, 0, protection.Take()));
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, static_cast<unsigned long>(protection), 0));
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PASSWORD, "new", 0));
    DWORD bits = 0;
    EXPECT_OK(ORKGetProvParam(prov, ORK_PARAM_PROTECTION, bits));
    EXPECT_EQ(bits, ORK_PROTECTED_PASSWORD);
    EXPECT_EQ(UserKeyError(Open("c", "new")), 0U);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PIN, "77", 0));
    EXPECT_EQ(UserKeyError(Open("c", "new", "77")), 0U);
}

TEST_F(Containers, MayNeedAProtectionKey) {
    const auto derive = [](unsigned long prov, const char* secret) {
        Key key;
        EXPECT_OK(ORKDeriveKey(prov, ORK_ALG_GOST28147, HashOf(prov, secret), 0, key.Take()));
        return key;
    };
    {
        const Prov prov = Acquire("c", ORK_OPEN_NEW | ORK_OPEN_SILENT, "", "");
        const Key protection = derive(prov, "secret");
        ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, static_cast<unsigned long>(protection), 0));
        Generate(prov, 2);
    }
    const Prov prov = Open("c");
    EXPECT_EQ(UserKeyError(prov), ORK_E_PERMISSION);
    const unsigned long wrong = derive(prov, "other");
    EXPECT_ERROR(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, wrong, 0), ORK_E_INVALID_HANDLE);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, static_cast<unsigned long>(derive(prov, "other")), 0));
    EXPECT_EQ(UserKeyError(prov), ORK_E_INVALID_PASSWORD);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, static_cast<unsigned long>(derive(prov, "secret")), 0));
    EXPECT_EQ(UserKeyError(prov), 0U);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, 0UL, 0));
    EXPECT_EQ(UserKeyError(prov), ORK_E_PERMISSION);
}

TEST_F(Containers, NoticeDamageOfEveryByte) {
    {
        const Prov prov = Create("c", "word");
        const Key key = Generate(prov, 2);
        ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(7)));
    }
    const std::string good = ReadFile(PathOf("c"));
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ 0x20);
        WriteFile(PathOf("c"), bad);
        EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED) << i;
        WriteFile(PathOf("c"), good.substr(0, i));
        EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED) << i;
    }
    WriteFile(PathOf("c"), good + "x");
    EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED);
    WriteFile(PathOf("c"), good);
    EXPECT_EQ(UserKeyError(Open("c", "word")), 0U);
}

// Changed on purpose, with the hash at the end made right: no key is given out.
TEST_F(Containers, VouchForEveryByteWithTheirPassword) {
    {
        const Prov prov = Create("c", "word");
        const Key key = Generate(prov, 2);
        ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(7)));
    }
    const std::string good = ReadFile(PathOf("c"));
    // Each trial derives a key: all bytes of the head, behind it one in five.
    for (std::size_t i = 0; i + 32 < good.size(); i += i < 100 ? 1 : 5) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ 0x01);
        Rehash(bad);
        WriteFile(PathOf("c"), bad);
        const DWORD error = OpenError("c");
        if (error != 0) {
            EXPECT_TRUE(error == ORK_E_DAMAGED || error == ORK_E_BAD_VERSION) << i << " " << std::hex << error;
            continue;
        }
        const DWORD keyError = UserKeyError(Open("c", "word"));
        EXPECT_TRUE(keyError == ORK_E_DAMAGED || keyError == ORK_E_INVALID_PASSWORD)
            << i << " " << std::hex << keyError;
    }
    std::string newer = good;
    newer[8] = 2;
    Rehash(newer);
    WriteFile(PathOf("c"), newer);
    EXPECT_EQ(OpenError("c"), ORK_E_BAD_VERSION);
    // A cost that would take gigabytes is not tried.
    std::string costly = good;
    costly[43] = 0x40;
    Rehash(costly);
    WriteFile(PathOf("c"), costly);
    EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED);
}

// A number that no entry may have would make the file unreadable as soon as a key has it.
TEST_F(Containers, RefuseAnImpossibleNextNumber) {
    Create("c");
    std::string bad = ReadFile(PathOf("c"));
    bad.replace(100, 4, 4, '\0');
    Rehash(bad);
    WriteFile(PathOf("c"), bad);
    EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED);
}

TEST_F(Containers, KeepTheirOwner) {
    constexpr uid_t c_owner = 12345;
    Generate(Create("c"), 2);
    if (chown(PathOf("c").c_str(), c_owner, c_owner) != 0) GTEST_SKIP() << "only root may give files away";
    Generate(Open("c"), 1);
    struct stat status {};
    ASSERT_EQ(stat(PathOf("c").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, c_owner);
    EXPECT_EQ(status.st_gid, c_owner);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
}

// A child that was forked meanwhile has the lock's descriptor too.
TEST_F(Containers, AreUnlockedAlthoughAChildLives) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pid_t child = 0;
    {
        const nalhost::provider::ContainerLock lock(m_home + "/c");
        child = fork();
        if (child == 0) {
            close(ends[1]);
            char end = 0;
            _exit(read(ends[0], &end, 1) == 0 ? 0 : 1);
        }
    }
    const int folder = open(m_home.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(flock(folder, LOCK_EX | LOCK_NB), 0);
    close(folder);
    close(ends[1]);
    close(ends[0]);
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(Containers, StayAsTheyWereWhenTheDiskIsFull) {
    const Prov prov = Create("c", "word");
    const Key key = Generate(prov, 2);
    const std::string good = ReadFile(PathOf("c"));
    unsigned steps = 0;
    {
        too_testing::ResetSteps();
        ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(1)));
        steps = too_testing::GetStepCount();
        WriteFile(PathOf("c"), good);
    }
    ASSERT_GT(steps, 1U);
    for (const int systemError : {ENOSPC, EIO}) {
        // The last step makes the name durable; until then the old file is in place.
        for (unsigned nth = 1; nth < steps; ++nth) {
            const too_testing::ScopedStepFailure failure(nth, systemError);
            EXPECT_ERROR(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(1)),
                         systemError == ENOSPC ? ORK_E_DISK_FULL : ORK_E_WRITE_FAULT)
                << nth;
            unsigned long out = 0;
            EXPECT_FALSE(ORKGenKey(prov, 1, 0, &out));
            EXPECT_FALSE(ORKSetProvParam(prov, ORK_PARAM_NEW_PASSWORD, "new", 0));
            EXPECT_FALSE(ORKAcquireContext(&out, "new", nullptr, 2, ORK_OPEN_NEW));
            EXPECT_EQ(ReadFile(PathOf("c")), good);
            EXPECT_EQ(std::distance(std::filesystem::directory_iterator(m_home + "/csp"), {}), 1);
        }
    }
    EXPECT_EQ(UserKeyError(prov), 0U);
    ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(2)));
}

TEST_F(Containers, SurviveDeathAtEveryStep) {
    Prov prov = Create("c", "word");
    Key key = Generate(prov, 2);
    too_testing::ResetSteps();
    ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(1)));
    const unsigned steps = too_testing::GetStepCount();
    for (unsigned nth = 1; nth <= steps; ++nth) {
        const pid_t child = fork();
        if (child == 0) {
            too_testing::KillAtStep(nth);
            ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(static_cast<unsigned char>(nth + 1)));
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << nth;
        IdentObj certificate;
        ASSERT_OK(ORKGetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, certificate));
        EXPECT_TRUE(certificate == Certificate(1) || certificate == Certificate(static_cast<unsigned char>(nth + 1)));
        EXPECT_EQ(UserKeyError(prov), 0U);
        ASSERT_OK(ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(1)));
    }
}

TEST_F(Containers, LoseNothingBetweenProcessesAndThreads) {
    Prov prov = Create("c", "word");
    Key key = Generate(prov, 2);
    constexpr int c_processes = 3;
    constexpr int c_keys = 4;
    std::vector<pid_t> children;
    for (int i = 0; i < c_processes; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            bool good = true;
            for (int round = 0; round < c_keys; ++round) {
                unsigned long made = 0;
                good = good && ORKGenKey(prov, 2, 0, &made) && ORKDestroyKey(made);
            }
            _exit(good ? 0 : 1);
        }
        children.push_back(child);
    }
    std::thread thread([&] {
        const Prov own = Open("c", "word");
        for (int round = 0; round < c_keys; ++round)
            Generate(own, 1);
    });
    for (int round = 0; round < c_keys; ++round)
        Generate(prov, 2);
    thread.join();
    for (const pid_t child : children) {
        int status = 1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(Enumerate(prov).size(), 1U + c_keys * (c_processes + 2));
    EXPECT_TRUE(Matches(prov, key, key, ORK_ALG_GOSTR3411));
}

TEST_F(Containers, AreNotTakenForOthersOfTheirName) {
    const Prov prov = Create("c");
    Generate(prov, 2);
    ASSERT_OK(Delete("c"));
    const Prov other = Create("c");
    Generate(other, 2);
    EXPECT_EQ(UserKeyError(prov), ORK_E_BAD_KEYSET);
    EXPECT_EQ(UserKeyError(other), 0U);
}

TEST_F(Containers, TellOtherCodesApart) {
    for (const auto& [winErr, status] :
         std::vector<std::pair<DWORD, int>>{{ORK_E_INVALID_PASSWORD, TOO_E_WRONG_PASSWORD},
                                            {ORK_E_DISK_FULL, TOO_E_DISK_FULL},
                                            {ORK_E_WRITE_FAULT, TOO_E_WRITE},
                                            {ORK_E_READ_FAULT, TOO_E_READ},
                                            {ORK_E_PATH_NOT_FOUND, TOO_E_FILE_NOT_FOUND},
                                            {ORK_E_ACCESS_DENIED, TOO_E_ACCESS},
                                            {ORK_E_LOCKED, TOO_E_LOCK},
                                            {ORK_E_DAMAGED, TOO_E_NO_CONTAINER},
                                            {ORK_E_EXISTS, TOO_E_CONTAINER_EXISTS},
                                            {ORK_E_PROVIDER_NOT_REGISTERED, TOO_E_NO_PROVIDER},
                                            {ORK_E_NO_KEY, TOO_E_KEY_NOT_FOUND}}) {
        EXPECT_EQ(WinErr2ToolsErr(winErr), status) << std::hex << winErr;
    }
}

}  // namespace
}  // namespace provider_test
