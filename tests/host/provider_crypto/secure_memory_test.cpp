#include "host/provider/crypto/secure_memory.h"

#include <gcrypt.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>
#include <vector>

#include "host/provider/crypto/error.h"
#include "host/provider/crypto/key.h"
#include "host/provider/crypto/random.h"
#include "support/sanitized.h"
#include "support/secret_residue.h"

namespace nalhost::crypto {
namespace {

// libgcrypt's own generator would take longer for a nonce than a signature takes. Commands in another order settle on
// it.
TEST(Random, ComesFromTheKernel) {
    StartCrypto();
    int type = 0;
    gcry_control(GCRYCTL_GET_CURRENT_RNG_TYPE, &type);
    EXPECT_EQ(GCRY_RNG_TYPE_SYSTEM, type);
}

TEST(SecureBytes, LivesInTheSecurePoolWhichGrows) {
    ASSERT_NE(SecureMemoryState::kDisabled, GetSecureMemoryState());
    // More than the first pool has.
    std::vector<SecureBytes> blocks;
    for (int i = 0; i < 700; ++i) {
        blocks.push_back(RandomSecret(2048));
        ASSERT_TRUE(gcry_is_secure(blocks.back().data())) << i;
    }
    EXPECT_TRUE(gcry_is_secure(SecureBytes(500 * 1024).data()));
    try {
        const SecureBytes tooLarge(64 * 1024 * 1024);
        FAIL() << "more than a pool in one block";
    } catch (const CryptoError& error) {
        EXPECT_EQ(Failure::kNoMemory, error.Kind());
    }
}

TEST(SecureBytes, AWarningNamesTheRemedyUnlessMemoryIsLocked) {
    EXPECT_STREQ("", SecureMemoryWarning(SecureMemoryState::kLocked));
    EXPECT_NE(std::string::npos, std::string(SecureMemoryWarning(SecureMemoryState::kUnlocked)).find("ulimit"));
    EXPECT_STRNE("", SecureMemoryWarning(SecureMemoryState::kDisabled));
}

TEST(SecureBytes, MovesLeaveNothingBehind) {
    SecureBytes first = RandomSecret(16);
    const SecureBytes copy = first.Clone();
    const std::uint8_t* address = first.data();
    SecureBytes second = std::move(first);
    EXPECT_EQ(address, second.data());
    EXPECT_TRUE(first.empty());  // NOLINT(bugprone-use-after-move): the class promises it
    SecureBytes third(4);
    third = std::move(second);
    EXPECT_TRUE(ConstantTimeEqual(copy, third));
    third.Clear();
    EXPECT_TRUE(third.empty());
    EXPECT_TRUE(SecureBytes(ByteView()).empty());
}

// Another program of the process may use libgcrypt too. Each of these runs in a fresh process.
TEST(StartCryptoDeathTest, KeepsTheSettingsOfAHostThatStartedTheLibrary) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            gcry_check_version(nullptr);
            gcry_control(GCRYCTL_DISABLE_SECMEM);
            gcry_control(GCRYCTL_INITIALIZATION_FINISHED);
            const PrivateKey key = PrivateKey::Generate(AllKeyParameters()[0]);
            const bool works = key.DerivePublicKey().Verify(Digest{}, key.Sign(Digest{}));
            std::_Exit(works && GetSecureMemoryState() == SecureMemoryState::kDisabled ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// As in a container: 64 KiB may be locked, whoever the user is.
bool LocksWithin64KiB() {
    const rlimit limit = {64 << 10, 64 << 10};
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2] = {};
    return setrlimit(RLIMIT_MEMLOCK, &limit) == 0 && syscall(SYS_capset, &header, none) == 0 &&
           GetSecureMemoryState() == SecureMemoryState::kLocked;
}

TEST(StartCryptoDeathTest, LocksWhatMayBeLocked) {
    if (nal_test::kSanitized) GTEST_SKIP() << "a sanitizer locks nothing";
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(std::_Exit(LocksWithin64KiB() ? 0 : 1), testing::ExitedWithCode(0), "");
}

TEST(StartCryptoDeathTest, RefusesFipsModeEveryTime) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            gcry_control(GCRYCTL_FORCE_FIPS_MODE);
            int refusals = 0;
            for (int i = 0; i < 2; ++i) {
                try {
                    Hash::Of({});
                } catch (const CryptoError& error) {
                    refusals += error.Kind() == Failure::kUnavailable;
                }
            }
            std::_Exit(refusals == 2 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ConstantTimeEqual, ComparesSizesAndEveryByte) {
    const std::vector<std::uint8_t> bytes(40, 7);
    EXPECT_TRUE(ConstantTimeEqual(bytes, bytes));
    EXPECT_TRUE(ConstantTimeEqual({}, {}));
    EXPECT_FALSE(ConstantTimeEqual(bytes, ByteView(bytes).first(39)));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::vector<std::uint8_t> other = bytes;
        other[i] ^= 0x80;
        EXPECT_FALSE(ConstantTimeEqual(bytes, other)) << i;
    }
}

TEST(Random, FillsEveryByteAndDiffers) {
    EXPECT_FALSE(ConstantTimeEqual(RandomSecret(32), RandomSecret(32)));
    std::vector<std::uint8_t> seen(33, 0);
    for (int i = 0; i < 20; ++i) {
        std::vector<std::uint8_t> bytes(33, 0);
        FillRandom(bytes);
        for (std::size_t j = 0; j < bytes.size(); ++j)
            seen[j] |= bytes[j];
    }
    for (const std::uint8_t byte : seen)
        EXPECT_NE(0, byte);
    FillRandom({});
}

TEST(Random, AForkedChildGetsOthersThanItsParent) {
    RandomSecret(16);
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    std::uint8_t fromChild[16] = {};
    if (child == 0) {
        FillRandom(fromChild);
        std::_Exit(write(ends[1], fromChild, sizeof fromChild) == sizeof fromChild ? 0 : 1);
    }
    const SecureBytes ours = RandomSecret(16);
    EXPECT_EQ(static_cast<ssize_t>(sizeof fromChild), read(ends[0], fromChild, sizeof fromChild));
    EXPECT_FALSE(ConstantTimeEqual(ours, fromChild));
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
}  // namespace nalhost::crypto
