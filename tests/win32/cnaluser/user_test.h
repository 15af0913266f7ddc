// What the tests of users share: a home folder of their own, and the proof that no handle of the provider is left behind.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "host/provider/objects.h"
#include "keycentre/issuer.h"
#include "nal/user.h"
#include "support/temp_folder.h"
#include "too/testing.h"

namespace nal_test {

/// A base that is destroyed behind all other members of a test: by then every context, key and hash must be gone.
class NoHandlesLeft {
public:
    NoHandlesLeft() = default;
    NoHandlesLeft(const NoHandlesLeft&) = delete;
    NoHandlesLeft& operator=(const NoHandlesLeft&) = delete;
    ~NoHandlesLeft() {
        EXPECT_EQ(0U, nalhost::provider::Contexts().Size());
        EXPECT_EQ(0U, nalhost::provider::Keys().Size());
        EXPECT_EQ(0U, nalhost::provider::Hashes().Size());
    }
};

class UserTest : private NoHandlesLeft, public testing::Test {
public:
    UserTest() {
        setenv("NAL_HOME", folder.File("home").c_str(), 1);
        too_testing::ResetCalls();
    }
    ~UserTest() override {
        too_testing::ResetCalls();
        too_testing::ResetSteps();
    }

protected:
    std::string File(const std::string& name) const { return folder.File(name); }

    /// Opens or makes the container `name`; the password is "secret" unless said otherwise.
    void LogIn(CNALUser& user, const std::string& name, bool create = false, const char* password = "secret", const char* pin = "") const {
        ASSERT_EQ(TOO_OK, user.LogInUser(File(name).c_str(), password, pin, create)) << name;
    }

    /// Makes a key in the user's container and a self-signed certificate for it; the certificate is not bound.
    CNALCertContext NewKey(CNALUser& user, const char* algorithm = c_NAL_OID_KEY_GOST2001, const char* set = "") const {
        EXPECT_TRUE(user.CreateNewKeys(CTOOString(algorithm), CTOOString(set), nullptr, nullptr));
        return Certificate(user.GetNewPublicKey());
    }
    /// A certificate for a key, which a root that is made for it alone issues.
    CNALCertContext Certificate(const CNALCertPublicKeyInfo& key) const {
        const keycentre::Issuer root = keycentre::Issuer::SelfSigned(
            keycentre::KeyPair::Create(File("root" + std::to_string(++roots)), ""), keycentre::Name("CN=Root"), keycentre::RootProfile());
        return CNALCertContext(root.Certify(keycentre::Name("CN=User"), key, keycentre::SignatureProfile()));
    }

    /// The status of a call that takes `err` first.
    template <class Call>
    static int Status(Call&& call) {
        int err = -1;
        const bool done = call(&err);
        EXPECT_EQ(done, err == TOO_OK);
        return err;
    }

    TempFolder folder;
    mutable int roots = 0;
};

}  // namespace nal_test
