// Hierarchies that the key centre issues, in all the forms of its extensions.
#include <gtest/gtest.h>

#include "nal/trust_storages.h"
#include "nal/verify.h"
#include "ork/constants.h"
#include "support/authority.h"
#include "support/hierarchy.h"

namespace {

using namespace nal_test;
using keycentre::AuthorityKey;
using keycentre::Constraints;

constexpr unsigned kEncoding = 0x10001;

class KeyCentre : public testing::Test {
protected:
    KeyCentre() {
        CNALString name("extra");
        EXPECT_TRUE(extra.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr));
        extra.m_untrusted = 1;
    }

    void StoreRoot(const keycentre::Issuer& root) {
        CNALString name((home.Folder() + "/home/trust/trusted.dat").c_str());
        CNALCertStorage main(name, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
        ASSERT_TRUE(main.AddEncodetCertificate(root.GetCertificate(), kEncoding));
        ASSERT_TRUE(main.AddEncodetCRL(root.MakeCrl({}), kEncoding));
    }
    void StoreExtra(const keycentre::Issuer& issuer, const keycentre::CrlProfile& crl = {}) {
        ASSERT_TRUE(extra.AddEncodetCertificate(issuer.GetCertificate(), kEncoding));
        ASSERT_TRUE(extra.AddEncodetCRL(issuer.MakeCrl(crl), kEncoding));
    }
    Verdict Verify(const IdentObj& cert) {
        CNALCertificateChain chain;
        EXPECT_TRUE(NALVerifyCertificate(CNALCertContext(cert), chain, nullptr, &extra));
        return VerdictOf(chain);
    }

    const Hierarchy home;  // for its folder and clock
    Authority authority;
    CNALCertStorage extra;
    const Verdict good{{0, 0, 0}, 0};
};

TEST_F(KeyCentre, AllFormsVerify) {
    StoreRoot(authority.root);
    const struct {
        Constraints constraints;
        DWORD pathLength;
        AuthorityKey authorityKey;
        DWORD keyType;
        const char* parameters;
        DWORD errors;  // of the authority
    } cases[] = {
        {Constraints::New, 0, AuthorityKey::KeyId, ORK_KEY_SIGNATURE, nullptr, 0},
        {Constraints::New, 0, AuthorityKey::KeyIdAndSerial, ORK_KEY_SIGNATURE, "1.2.643.2.2.35.2", 0},
        {Constraints::Old, 1, AuthorityKey::Old, ORK_ALG_GOST2001_SIGN, "1.2.643.2.2.35.3", 0},
        {Constraints::Old, 0, AuthorityKey::Old, ORK_KEY_SIGNATURE, nullptr, CERT_TRUST_INVALID_BASIC_CONSTRAINTS},
        {Constraints::Both, 1, AuthorityKey::None, ORK_KEY_SIGNATURE, nullptr, 0},
        {Constraints::None, 0, AuthorityKey::KeyId, ORK_ALG_GOST94_SIGN, nullptr, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(&test - cases);
        keycentre::Profile profile = keycentre::CaProfile();
        profile.constraints = test.constraints;
        profile.pathLength = test.pathLength;
        profile.authorityKey = test.authorityKey;
        const keycentre::Issuer ca =
            authority.root.CertifyIssuer(authority.NewKey(test.keyType, test.parameters), keycentre::Name("CN=CA"), profile);
        StoreExtra(ca);
        keycentre::Profile user = keycentre::SignatureProfile();
        user.authorityKey = test.authorityKey;
        const IdentObj cert = ca.Certify(keycentre::Name("CN=User"), authority.NewKey().GetPublicKey(), user);
        EXPECT_EQ(Verify(cert), (Verdict{{0, test.errors, 0}, test.errors}));
        EXPECT_TRUE(NALCanSignByCert(CNALCertContext(cert), false, CTOOFileTime()));
        // An authority that nothing says is one has the usage of a signer, and may sign.
        EXPECT_EQ(NALCanSignByCert(ca.GetContext(), false, CTOOFileTime()) != FALSE, test.constraints == Constraints::None);
    }
}

TEST_F(KeyCentre, ItsCrlsAreFoundByTheirNumbers) {
    StoreRoot(authority.root);
    const keycentre::Issuer ca = authority.root.CertifyIssuer(authority.NewKey(), keycentre::Name("CN=CA"), keycentre::CaProfile());
    const IdentObj cert = ca.Certify(keycentre::Name("CN=User"), authority.NewKey().GetPublicKey(), keycentre::SignatureProfile());
    StoreExtra(ca);
    EXPECT_EQ(Verify(cert), good);

    // The next list revokes; a third one, of the same time and a larger number, has not the number that is the key centre's.
    const CNALCertContext user(cert);
    keycentre::CrlProfile next;
    next.counter = 2;
    next.revoked.push_back({CNALCertInfo(*user.GetContext()).m_serialNumber, {0, 0}, 1U});
    keycentre::CrlProfile foreign;
    foreign.number = Filled(0x7F, 16);
    ASSERT_TRUE(extra.AddEncodetCRL(ca.MakeCrl(next), kEncoding));
    EXPECT_EQ(Verify(cert), (Verdict{{CERT_TRUST_IS_REVOKED, 0, 0}, CERT_TRUST_IS_REVOKED}));
    ASSERT_TRUE(extra.AddEncodetCRL(ca.MakeCrl(foreign), kEncoding));
    EXPECT_EQ(Verify(cert), good) << "a chain goes by time and number alone";
    unsigned flags = 7;
    ASSERT_TRUE(NALVerifySubjectCertificateContext(user, ca.GetContext(), &flags, &extra));
    EXPECT_EQ(flags, static_cast<unsigned>(CERT_STORE_REVOCATION_FLAG));
}

}  // namespace
