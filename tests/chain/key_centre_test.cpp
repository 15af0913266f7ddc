// Chains of what the key centre issues.
#include <gtest/gtest.h>

#include "nal/trust_storages.h"
#include "nal/verify.h"
#include "ork/constants.h"
#include "support/authority.h"
#include "support/hierarchy.h"

namespace {

using namespace nal_test;

constexpr unsigned kEncoding = 0x10001;

TEST(KeyCentre, ItsCrlsAreFoundByTheirNumbers) {
    const Hierarchy home;  // for its folder and clock
    Authority authority;
    CNALString mainName((home.Folder() + "/home/trust/trusted.dat").c_str());
    CNALString extraName("extra");
    CNALCertStorage main(mainName, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
    CNALCertStorage extra(extraName, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
    extra.m_untrusted = 1;
    const auto store = [](CNALCertStorage& storage, const keycentre::Issuer& issuer) {
        EXPECT_TRUE(storage.AddEncodetCertificate(issuer.GetCertificate(), kEncoding));
        EXPECT_TRUE(storage.AddEncodetCRL(issuer.MakeCrl({}), kEncoding));
    };
    const keycentre::Issuer ca = authority.root.CertifyIssuer(authority.NewKey(), keycentre::Name("CN=CA"), keycentre::CaProfile());
    const IdentObj cert = ca.Certify(keycentre::Name("CN=User"), authority.NewKey().GetPublicKey(), keycentre::SignatureProfile());
    store(main, authority.root);
    main.CloseStorage();
    store(extra, ca);
    const CNALCertContext user(cert);
    const auto verify = [&] {
        CNALCertificateChain chain;
        EXPECT_TRUE(NALVerifyCertificate(user, chain, nullptr, &extra));
        return VerdictOf(chain);
    };
    const Verdict good{{0, 0, 0}, 0};
    EXPECT_EQ(verify(), good);
    EXPECT_TRUE(NALCanSignByCert(user, false, CTOOFileTime()));
    EXPECT_FALSE(NALCanSignByCert(ca.GetContext(), false, CTOOFileTime()));

    // The next list revokes; a third one, of the same time and a larger number, has not the number that is the key centre's.
    keycentre::CrlProfile next;
    next.counter = 2;
    next.revoked.push_back({CNALCertInfo(*user.GetContext()).m_serialNumber, {0, 0}, 1U});
    keycentre::CrlProfile foreign;
    foreign.number = Filled(0x7F, 16);
    ASSERT_TRUE(extra.AddEncodetCRL(ca.MakeCrl(next), kEncoding));
    EXPECT_EQ(verify(), (Verdict{{CERT_TRUST_IS_REVOKED, 0, 0}, CERT_TRUST_IS_REVOKED}));
    ASSERT_TRUE(extra.AddEncodetCRL(ca.MakeCrl(foreign), kEncoding));
    EXPECT_EQ(verify(), good) << "a chain goes by time and number alone";
    unsigned flags = 7;
    ASSERT_TRUE(NALVerifySubjectCertificateContext(user, ca.GetContext(), &flags, &extra));
    EXPECT_EQ(flags, static_cast<unsigned>(CERT_STORE_REVOCATION_FLAG));
}

}  // namespace
