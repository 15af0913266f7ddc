// Containers: what is on the disk, passwords, damage, full disks, several processes.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <list>
#include <optional>
#include <thread>

#include "host/provider/container_file.h"
#include "host/provider/container_lock.h"
#include "host/provider/crypto/hash.h"
#include "support/child.h"
#include "tests/host/provider/provider_fixture.h"
#include "too/status.h"
#include "too/testing.h"

namespace provider_test {
namespace {

class Containers : public ProviderTest {
protected:
    static BOOL Delete(const char* name) { return ORKAcquireContext(nullptr, name, ORK_PROVIDER_NAME, 2, ORK_OPEN_DELETE); }
    static DWORD OpenError(const std::string& name) {
        Prov prov;
        return ErrorOf(ORKAcquireContext(prov.Take(), name.c_str(), nullptr, 2, 0));
    }
    static IdentObj Certificate(unsigned char content) {
        const unsigned char der[] = {0x30, 3, 2, 1, content};
        return {der, sizeof der};
    }
    // What a container with a password, a key and its certificate is on the disk.
    std::string Made() const {
        const Prov prov = Create("c", "word");
        EXPECT_OK(ORKSetKeyParam(Generate(prov, 2), ORK_KEY_PARAM_CERTIFICATE, Certificate(7)));
        return ReadFile(PathOf("c"));
    }
    std::ptrdiff_t CountFiles() const { return std::distance(std::filesystem::directory_iterator(m_home + "/csp"), {}); }
    static void SetProtectionKey(unsigned long prov, const Key& key) {
        ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, static_cast<unsigned long>(key), 0));
    }
    // The hash at the end made right again, as somebody would who changes a file on purpose.
    static std::string Rehashed(std::string file) {
        namespace crypto = nalhost::crypto;
        const std::size_t size = file.size() - crypto::kDigestSize;
        const crypto::Digest digest = crypto::Hash::Of({reinterpret_cast<const std::uint8_t*>(file.data()), size});
        return file.replace(size, digest.size(), reinterpret_cast<const char*>(digest.data()), digest.size());
    }
};

TEST_F(Containers, AreOneFileForTheirOwnerOnly) {
    const Prov prov = Create("c", "password");
    Generate(prov, 2);
    struct stat status {};
    ASSERT_EQ(stat(PathOf("c").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(CountFiles(), 1);
    EXPECT_EQ(OpenError("c"), 0U);
    unsigned long handle = 0;
    EXPECT_ERROR(ORKAcquireContext(&handle, "c", nullptr, 2, ORK_OPEN_NEW), ORK_E_EXISTS);
    EXPECT_OK(Delete("c"));
    EXPECT_EQ(OpenError("c"), ORK_E_BAD_KEYSET);
    EXPECT_EQ(UserKeyError(prov), ORK_E_BAD_KEYSET);
    EXPECT_EQ(CountFiles(), 0);
}

TEST_F(Containers, AreListedAndOpenedByEveryName) {
    EXPECT_TRUE(Enumerate(Verify()).empty());
    Create("beta");
    Create("alpha");
    std::filesystem::create_directories(m_home + "/csp/ormatek");
    nal_test::WriteFile(PathOf("notes.txt"), std::string("nothing"));
    EXPECT_EQ(Enumerate(Verify()), (std::vector<std::string>{"alpha", "beta"}));

    std::filesystem::create_directories(m_home + "/real");
    std::filesystem::create_directory_symlink(m_home + "/real", m_home + "/link");
    const Prov prov = Create(m_home + "/link/keys");
    Generate(prov, 2);
    Generate(prov, 1);
    const std::string unique = m_home + "/real/keys";
    EXPECT_EQ(ProvParam<CTOOString>(prov, ORK_PARAM_UNIQUE_NAME), CTOOString(unique));
    const std::vector<std::string> entries = Enumerate(prov);
    EXPECT_EQ(entries, (std::vector<std::string>{unique + "#1", unique + "#2"}));
    EXPECT_EQ(KeyParam<CTOOString>(UserKey(Open(entries[1])), ORK_KEY_PARAM_ENTRY), CTOOString(entries[1]));
    EXPECT_EQ(OpenError(unique + "#3"), ORK_E_NO_KEY);
    EXPECT_EQ(OpenError(PathOf("notes.txt")), ORK_E_DAMAGED);
    EXPECT_ERROR(Delete("notes.txt"), ORK_E_DAMAGED);
    EXPECT_EQ(OpenError(PathOf("ormatek")), ORK_E_BAD_KEYSET);
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
        DWORD error, type, algId;
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
        EXPECT_TRUE(e.error != 0 || value == Certificate(content));
        content += 1;
        EXPECT_EQ(PublicBlob(again, UserKey(again)), e.blob);
        value = ProvParam<IdentObj>(again, ORK_PARAM_ENTRY_INFO);
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
        const char *password, *pin;
        DWORD bits;
    } made[] = {{"", "", 0}, {"word", "", 1}, {"", "1234", 2}, {"word", "1234", 3}};
    int count = 0;
    for (const auto& m : made) {
        const std::string name = std::to_string(count++);
        Generate(Create(name, m.password, m.pin), 2);
        for (const char* password : {"", "word", "Word", "word1"}) {
            for (const char* pin : {"", "1234", "4321"}) {
                const Prov prov = Open(name, password, pin);
                EXPECT_EQ(ProvParam(prov, ORK_PARAM_PROTECTION), m.bits);
                const bool right = (*m.password == 0 || std::string(password) == m.password) && (*m.pin == 0 || std::string(pin) == m.pin);
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
    EXPECT_EQ(PublicBlob(open, UserKey(open, 2)), PublicBlob(prov, key));
}

// Secrets that the container never asked for are never checked either, so a change does not begin to ask for them.
TEST_F(Containers, AskForNothingNewAfterAChange) {
    Generate(Create("c", "old"), 2);
    const Prov prov = Open("c", "old", "mistyped");
    Key protection;
    ASSERT_OK(ORKGenKey(prov, ORK_ALG_GOST28147, 0, protection.Take()));
    SetProtectionKey(prov, protection);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_NEW_PASSWORD, "new", 0));
    EXPECT_EQ(ProvParam(prov, ORK_PARAM_PROTECTION), ORK_PROTECTED_PASSWORD);
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
        SetProtectionKey(prov, derive(prov, "secret"));
        Generate(prov, 2);
    }
    const Prov prov = Open("c");
    EXPECT_EQ(UserKeyError(prov), ORK_E_PERMISSION);
    const unsigned long wrong = derive(prov, "other");
    EXPECT_ERROR(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, wrong, 0), ORK_E_INVALID_HANDLE);
    SetProtectionKey(prov, derive(prov, "other"));
    EXPECT_EQ(UserKeyError(prov), ORK_E_INVALID_PASSWORD);
    SetProtectionKey(prov, derive(prov, "secret"));
    EXPECT_EQ(UserKeyError(prov), 0U);
    ASSERT_OK(ORKSetProvParam(prov, ORK_PARAM_PROTECTION_KEY, 0UL, 0));
    EXPECT_EQ(UserKeyError(prov), ORK_E_PERMISSION);
}

TEST_F(Containers, NoticeDamageOfEveryByte) {
    const std::string good = Made();
    for (std::size_t i = 0; i < good.size(); ++i) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ 0x20);
        nal_test::WriteFile(PathOf("c"), bad);
        EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED) << i;
        nal_test::WriteFile(PathOf("c"), good.substr(0, i));
        EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED) << i;
    }
    nal_test::WriteFile(PathOf("c"), good + "x");
    EXPECT_EQ(OpenError("c"), ORK_E_DAMAGED);
    nal_test::WriteFile(PathOf("c"), good);
    EXPECT_EQ(UserKeyError(Open("c", "word")), 0U);
}

// Changed on purpose, with the hash at the end made right: no key is given out.
TEST_F(Containers, VouchForEveryByteWithTheirPassword) {
    const std::string good = Made();
    // Each trial derives a key: all bytes of the head, behind it one in five.
    for (std::size_t i = 0; i + 32 < good.size(); i += i < 100 ? 1 : 5) {
        std::string bad = good;
        bad[i] = static_cast<char>(bad[i] ^ 0x01);
        nal_test::WriteFile(PathOf("c"), Rehashed(bad));
        const DWORD error = OpenError("c");
        if (error != 0) {
            EXPECT_TRUE(error == ORK_E_DAMAGED || error == ORK_E_BAD_VERSION) << i << " " << std::hex << error;
            continue;
        }
        const DWORD keyError = UserKeyError(Open("c", "word"));
        EXPECT_TRUE(keyError == ORK_E_DAMAGED || keyError == ORK_E_INVALID_PASSWORD) << i << " " << std::hex << keyError;
    }
    Create("empty");
    const struct {
        std::string file;
        std::size_t offset;
        std::string bytes;
        DWORD error;
    } impossible[] = {
        {good, 8, "\2", ORK_E_BAD_VERSION},
        {good, 43, "\x40", ORK_E_DAMAGED},  // a cost that would take gigabytes is not tried
        {ReadFile(PathOf("empty")), 100, std::string(4, '\0'), ORK_E_DAMAGED},  // as the next number: unreadable once a key has it
    };
    for (const auto& c : impossible) {
        nal_test::WriteFile(PathOf("c"), Rehashed(std::string(c.file).replace(c.offset, c.bytes.size(), c.bytes)));
        EXPECT_EQ(OpenError("c"), c.error) << c.offset;
    }
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
    nal_test::Pipe end;
    std::optional<nal_test::Child> child;
    {
        const nalhost::provider::ContainerLock lock(m_home + "/c");
        child.emplace([&] {
            end.CloseSending();
            end.Receive();
        });
    }
    const int folder = open(m_home.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(flock(folder, LOCK_EX | LOCK_NB), 0);
    close(folder);
    end.CloseSending();
    EXPECT_EQ(child->Wait(), nal_test::ChildEnd::success);
}

TEST_F(Containers, HoldTheOldOrTheNewWhereverAChangeStops) {
    const Prov prov = Create("c", "word");
    const Key key = Generate(prov, 2);
    const std::string good = ReadFile(PathOf("c"));
    const auto change = [&] { return ORKSetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, Certificate(1)); };
    too_testing::ResetSteps();
    ASSERT_OK(change());
    const unsigned steps = too_testing::GetStepCount();
    ASSERT_GT(steps, 1U);
    for (unsigned nth = 1; nth <= steps; ++nth) {
        SCOPED_TRACE(nth);
        nal_test::WriteFile(PathOf("c"), good);
        const std::ptrdiff_t files = CountFiles();
        // The last step makes the name durable; until then the old file is in place.
        for (const auto& [systemError, error] : {std::pair{ENOSPC, ORK_E_DISK_FULL}, {EIO, ORK_E_WRITE_FAULT}}) {
            if (nth == steps) break;
            const too_testing::ScopedStepFailure failure(nth, systemError);
            EXPECT_ERROR(change(), error);
            unsigned long out = 0;
            EXPECT_FALSE(ORKGenKey(prov, 1, 0, &out));
            EXPECT_FALSE(ORKSetProvParam(prov, ORK_PARAM_NEW_PASSWORD, "new", 0));
            EXPECT_FALSE(ORKAcquireContext(&out, "new", nullptr, 2, ORK_OPEN_NEW));
            EXPECT_EQ(ReadFile(PathOf("c")), good);
            EXPECT_EQ(CountFiles(), files);
        }
        EXPECT_EQ(nal_test::ChildEnd::killed, nal_test::RunInChild([&] {
                      too_testing::KillAtStep(nth);
                      change();
                  }));
        IdentObj certificate;
        const DWORD error = ErrorOf(ORKGetKeyParam(key, ORK_KEY_PARAM_CERTIFICATE, certificate));
        EXPECT_TRUE(error == ORK_E_NOT_FOUND || certificate == Certificate(1)) << std::hex << error;
        EXPECT_EQ(UserKeyError(prov), 0U);
        EXPECT_OK(change());
    }
}

TEST_F(Containers, LoseNothingBetweenProcessesAndThreads) {
    Prov prov = Create("c", "word");
    Key key = Generate(prov, 2);
    constexpr int c_processes = 3;
    constexpr int c_keys = 4;
    const auto make = [&](unsigned long in, DWORD type) {
        for (int round = 0; round < c_keys; ++round) {
            unsigned long made = 0;
            if (!ORKGenKey(in, type, 0, &made) || !ORKDestroyKey(made)) throw XTOOStatus(TOO_E_INTERNAL);
        }
    };
    std::list<nal_test::Child> children;
    for (int i = 0; i < c_processes; ++i) children.emplace_back([&] { make(prov, 2); });
    std::thread thread([&] { EXPECT_NO_THROW(make(Open("c", "word"), 1)); });
    make(prov, 2);
    thread.join();
    for (nal_test::Child& child : children) EXPECT_EQ(child.Wait(), nal_test::ChildEnd::success);
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

}  // namespace
}  // namespace provider_test
