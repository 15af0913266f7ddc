// What the issuing library makes, checked by OpenSSL with the GOST engine: a chain, its CRLs, and what they say of a revoked certificate.
#include "interop/request_tools.h"
#include "keycentre/lists.h"
#include "nal/certificate.h"
#include "support/authority.h"

namespace {

using testing::HasSubstr;

class KeyCentre : public nal_test::RequestTools {
protected:
    void SetUp() override {
        RequestTools::SetUp();
        if (IsSkipped()) return;
        Put("root.cer", m_authority.root.GetCertificate());
        Put("ca.cer", m_ca.GetCertificate());
        Sh("openssl x509 -inform DER -in root.cer -out root.pem && openssl x509 -inform DER -in ca.cer -out ca2.pem");
    }

    /// What OpenSSL says of a certificate under both CRLs.
    std::string Verify(const IdentObj& certificate, const std::vector<keycentre::Revoked>& revoked) const {
        keycentre::CrlProfile profile;
        profile.revoked = revoked;
        Put("user.cer", certificate);
        Put("root.crl", m_authority.root.MakeCrl({}));
        Put("ca.crl", m_ca.MakeCrl(profile));
        return Sh("openssl x509 -inform DER -in user.cer -out user.pem; "
                  "for c in root ca; do openssl crl -inform DER -in $c.crl; done > crls.pem; "
                  "openssl verify -x509_strict -crl_check_all -CRLfile crls.pem -CAfile root.pem -untrusted ca2.pem user.pem || true");
    }

    static IdentObj SerialOf(const IdentObj& certificate) {
        CNALX509Certificate decoded;
        decoded.DecodeCert(certificate);
        return decoded.m_info.m_serialNumber;
    }

    nal_test::Authority m_authority;
    keycentre::Issuer m_ca =
        m_authority.root.CertifyIssuer(m_authority.NewKey(), keycentre::Name("C=RU, O=Орматек, CN=Пользователи"), keycentre::CaProfile());
};

TEST_F(KeyCentre, OpenSslAcceptsItsChainsAndCrls) {
    const IdentObj user = m_ca.Certify(keycentre::Name("CN=Иван"), m_authority.NewKey().GetPublicKey(), keycentre::SignatureProfile());
    EXPECT_THAT(Verify(user, {}), HasSubstr("user.pem: OK"));
    EXPECT_THAT(Verify(user, {{SerialOf(user), {}, 1}}), HasSubstr("certificate revoked"));

    keycentre::Profile expired = keycentre::SignatureProfile();
    expired.notBefore = CTOOFileTime::FromUnix(1600000000);
    expired.months = 1;
    expired.privateKeyMonths = 0;
    EXPECT_THAT(Verify(m_ca.Certify(keycentre::Name("CN=Old"), m_authority.NewKey().GetPublicKey(), expired), {}),
                HasSubstr("certificate has expired"));
}

TEST_F(KeyCentre, ARequestOfOpenSslIsCertified) {
    Sh("openssl genpkey -algorithm gost2001 -pkeyopt paramset:B -out u.key");
    Sh("openssl req -utf8 -new -md_gost94 -key u.key -subj '/CN=Пётр' -outform DER -out u.req");
    const auto request = Read<CNALPKCS10Request>("u.req");
    EXPECT_EQ(request.CheckSignature(Verifier(), nullptr), 1);
    EXPECT_THAT(Verify(m_ca.Certify(request, keycentre::SignatureProfile()), {}), HasSubstr("user.pem: OK"));
    EXPECT_EQ(Sh("openssl x509 -in user.pem -noout -pubkey"), Sh("openssl pkey -in u.key -pubout"));
}

TEST_F(KeyCentre, OpenSslReadsItsUsersLists) {
    Put("users.p7b", keycentre::EncodeUsersList({m_authority.root.GetCertificate(), m_ca.GetCertificate()}, {m_ca.MakeCrl({})}));
    const std::string text = Sh("openssl pkcs7 -inform DER -in users.p7b -print_certs -noout");
    EXPECT_THAT(text, HasSubstr("CN = Root"));
}

}  // namespace
