// A user's password and PIN leave no trace in memory once the user is reset.
#include "host/provider/crypto/random.h"
#include "support/secret_residue.h"
#include "win32/cnaluser/user_test.h"

namespace {

using nal_test::UserTest;
using nalhost::crypto::SecureBytes;

/// A secret text of 40 letters with its terminator, in locked memory.
SecureBytes SecretText() {
    SecureBytes text = nalhost::crypto::RandomSecret(41);
    for (auto& byte : text) byte = static_cast<std::uint8_t>('a' + byte % 26);
    text.data()[40] = 0;
    return text;
}
const char* Text(const SecureBytes& secret) {
    return reinterpret_cast<const char*>(secret.data());
}
int Residue(const SecureBytes& secret) {
    return nal_test::Residue({secret.data(), 40});
}

TEST_F(UserTest, LeavesNoSecretBehind) {
    if (const char* reason = nal_test::WhyNoResidueIsSeen()) GTEST_SKIP() << reason;
    const SecureBytes password = SecretText();
    const SecureBytes pin = SecretText();
    const SecureBytes newPassword = SecretText();
    CNALUser user;
    ASSERT_EQ(TOO_OK, user.LogInUser(File("container").c_str(), Text(password), Text(pin), true));
    EXPECT_LT(0, Residue(password)) << "the user has it";
    const CNALCertContext cert = NewKey(user);
    EXPECT_TRUE(user.PutCertificate(cert, nullptr, nullptr));
    EXPECT_TRUE(user.CheckSignKeys(cert, nullptr, nullptr));
    EXPECT_TRUE(user.ChangePassword(Text(newPassword), nullptr));
    EXPECT_EQ(0, Residue(password)) << "the old one is gone";
    {
        const CNALUser copy(user);
        EXPECT_TRUE(copy.CheckPassword());
    }
    EXPECT_EQ(TOO_OK, user.LogInUser(File("container").c_str(), Text(newPassword), Text(pin), false));
    EXPECT_TRUE(user.CheckPassword());
    {
        // The certificates carry the PIN for who signs with them.
        std::list<CNALCertContext> list;
        EXPECT_TRUE(user.GetCertificateList(list, nullptr, nullptr));
        EXPECT_EQ(1U, list.front().GetProviderInfo()->cProvParam);
    }
    user.Reset();
    EXPECT_EQ(0, Residue(newPassword));
    EXPECT_EQ(0, Residue(pin));
}

}  // namespace
