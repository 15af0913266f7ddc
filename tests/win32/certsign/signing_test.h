// What the tests of signing messages share: users with certificates, contents, and what each signature of a message is worth.
#pragma once

#include <filesystem>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "keycentre/issuer.h"
#include "nal/sign.h"
#include "nal/user.h"
#include "signer/signer_check.h"
#include "signer/signer_match.h"
#include "storage/signature_check.h"
#include "support/authority.h"
#include "support/folder_test.h"
#include "support/status_of.h"

namespace nal_test {

/// Somebody with a container and a certificate.
struct Person {
    CNALUser user;
    CNALCertContext cert;
    std::string container;
};

class SigningTest : public FolderTest {
protected:
    static void SetUpTestSuite() {
        s_authority.emplace();
        s_ann = NewPerson("Ann");
        s_bob = NewPerson("Bob");
    }
    static void TearDownTestSuite() {
        s_ann.reset();
        s_bob.reset();
        s_authority.reset();
    }

    static Person NewPerson(const std::string& name, DWORD algId = ORK_KEY_SIGNATURE,
                            keycentre::Profile profile = keycentre::SignatureProfile()) {
        if (!profile.notBefore) profile.notBefore = CTOOFileTime(CTOOFileTime::Now().GetTicks() - CTOOFileTime::c_ticksPerDay);
        const keycentre::KeyPair key = s_authority->NewKey(algId);
        const IdentObj cert = s_authority->root.Certify(keycentre::Name("CN=" + name), key.GetPublicKey(), profile);
        Person person{CNALUser(), CNALCertContext(cert), key.GetContainer().str()};
        EXPECT_EQ(TOO_OK, person.user.LogInUser(person.container.c_str(), nullptr, nullptr, false));
        return person;
    }

    static CNALSignData Read(const IdentObj& encoded) {
        CNALSignData message;
        EXPECT_EQ(1, message.ReadObject(encoded.GetData(), encoded.GetSize(), nullptr));
        return message;
    }
    static IdentObj EncodingOf(const CNALCertContext& cert) { return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded}; }
    static CNALMessageSignerInfo SignerOf(const IdentObj& info) {
        CNALMessageSignerInfo signer;
        EXPECT_NE(0U, signer.ReadData(info.GetData(), info.GetSize(), nullptr));
        return signer;
    }

    /// What each signature is worth, over the content that the message carries or over `content`.
    static std::vector<DWORD> Check(const CNALSignData& message, const std::optional<IdentObj>& content = std::nullopt,
                                    const std::list<IdentObj>& certs = {}) {
        const nal::ContextHandle provider = nal::OpenVerifyProvider();
        nal::ContentHashes hashes(provider.Get(), "test");
        hashes.Want(ORK_ALG_GOSTR3411);
        hashes.Want(ORK_ALG_PRIVATE_HASH);
        if (content) {
            hashes.Add(asnt::View(*content));
        } else {
            EXPECT_TRUE(message.IsAttached());
            hashes.Add(message);
        }
        hashes.Finish();
        nal::SignerCandidates candidates;
        candidates.AddAll(message.certificates);
        candidates.AddAll(certs);
        std::vector<DWORD> statuses;
        for (const IdentObj& info : message.signerInfos) {
            const CNALMessageSignerInfo signer = SignerOf(info);
            const nal::SignerCheck check(provider.Get(), signer, hashes, message.eContentType.GetID());
            const auto found = candidates.Find(signer);
            statuses.push_back(found.empty() ? 1 : check.CheckWith(found.front()));
        }
        return statuses;
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

    static std::optional<Authority> s_authority;
    static std::optional<Person> s_ann;
    static std::optional<Person> s_bob;
};

inline std::optional<Authority> SigningTest::s_authority;
inline std::optional<Person> SigningTest::s_ann;
inline std::optional<Person> SigningTest::s_bob;

}  // namespace nal_test
