// What the tests of signing messages share: users with certificates, and what each signature of a message is worth.
#pragma once

#include <filesystem>
#include <optional>

#include "nal/user.h"
#include "signer/signer_match.h"
#include "win32/certsign/message_maker.h"

namespace nal_test {

/// Somebody with a container and a certificate.
struct Person {
    CNALUser user;
    CNALCertContext cert;
    std::string container;
};

class SigningTest : public MessageTest {
protected:
    static void SetUpTestSuite() {
        MessageTest::SetUpTestSuite();
        s_ann = NewPerson("Ann");
        s_bob = NewPerson("Bob");
    }
    static void TearDownTestSuite() {
        s_ann.reset();
        s_bob.reset();
        MessageTest::TearDownTestSuite();
    }

    static Person NewPerson(const std::string& name, DWORD algId = ORK_KEY_SIGNATURE,
                            const keycentre::Profile& profile = keycentre::SignatureProfile()) {
        const Signatory made = NewSignatory(name, algId, profile);
        Person person{CNALUser(), made.cert, made.key.GetContainer().str()};
        EXPECT_EQ(TOO_OK, person.user.LogInUser(person.container.c_str(), nullptr, nullptr, false));
        return person;
    }

    static CNALSignData Read(const IdentObj& encoded) {
        CNALSignData message;
        EXPECT_EQ(1, message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr));
        return message;
    }
    static CNALMessageSignerInfo SignerOf(const IdentObj& info) {
        CNALMessageSignerInfo signer;
        EXPECT_NE(0U, signer.ReadData(info.GetData(), info.GetSize(), nullptr));
        return signer;
    }

    /// What each signature is worth, over the content that the message carries or over `content`.
    static std::vector<DWORD> Check(const CNALSignData& message, const std::optional<IdentObj>& content = std::nullopt,
                                    const std::vector<CNALCertContext>& certs = {}) {
        EXPECT_TRUE(content || message.IsAttached());
        const CNALCertStorage storage = StorageOf(certs);
        return StatusesOf(RecordsOf(Encoded(message), content ? InMemory(*content) : WhatToSignStruct(), &storage));
    }

    /// The names in the test's folder, with the size of each file.
    std::vector<std::string> Listing() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path())) {
            names.push_back(entry.path().filename().string() + ":" + std::to_string(entry.file_size()));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static std::optional<Person> s_ann;
    static std::optional<Person> s_bob;
};

inline std::optional<Person> SigningTest::s_ann;
inline std::optional<Person> SigningTest::s_bob;

}  // namespace nal_test
