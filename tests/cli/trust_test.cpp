// nal trust, nal crl, nal cert verify.
#include "cli_fixture.h"
#include "nal/fingerprint.h"
#include "support/cert_builder.h"
#include "too/text.h"

namespace nal_test {
namespace {

using keycentre::CrlProfile;
using keycentre::Issuer;
using keycentre::Name;

class CliTrust : public Cli {
protected:
    CliTrust()
        : m_ca(m_authority.root.CertifyIssuer(m_authority.NewKey(), Name("CN=Sub"), keycentre::CaProfile())) {
        Write("root.cer", m_authority.root.GetCertificate());
        Write("root.crl", m_authority.root.MakeCrl({}));
        Write("other.cer", m_other.root.GetCertificate());
        Write("forged.crl", ForgedCrl());
        Write("ca.cer", m_ca.GetCertificate());
        const IdentObj ivan = m_ca.Certify(Name("CN=Ivan"), m_authority.NewKey().GetPublicKey(), keycentre::SignatureProfile());
        Write("ivan.cer", ivan);
        Write("ca.crl", m_ca.MakeCrl({}));
        keycentre::Profile past = keycentre::SignatureProfile();
        past.notBefore = Date(2001);
        past.notAfter = Date(2002);
        CertBuilder builder;
        builder.subjectKeyId.reset();
        Write("nokeyid.cer", builder.Build());
        Write("past.cer", m_ca.Certify(Name("CN=Past"), m_authority.NewKey().GetPublicKey(), past));
        keycentre::Profile narrow = keycentre::CaProfile();
        narrow.pathLength = 0;
        const Issuer upper = m_authority.root.CertifyIssuer(m_authority.NewKey(), Name("CN=Upper"), narrow);
        const Issuer lower = upper.CertifyIssuer(m_authority.NewKey(), Name("CN=Lower"), keycentre::CaProfile());
        Write("upper.cer", upper.GetCertificate());
        Write("lower.cer", lower.GetCertificate());
        Write("below.cer", lower.Certify(Name("CN=Below"), m_authority.NewKey().GetPublicKey(), keycentre::SignatureProfile()));
        CNALX509Certificate decoded;
        decoded.DecodeCert(ivan);
        CrlProfile revoking;
        revoking.counter = 2;
        revoking.revoked.push_back({decoded.m_info.m_serialNumber, {}, 1});
        Write("revoking.crl", m_ca.MakeCrl(revoking));
        CrlProfile old;
        old.thisUpdate = Date(2001);
        old.nextUpdate = Date(2002);
        Write("old.crl", m_authority.root.MakeCrl(old));
    }

    // The root's name and key identifier under another key.
    IdentObj ForgedCrl() const {
        const Issuer forger = Issuer::SelfSigned(const_cast<Authority&>(m_other).NewKey(), m_authority.root.GetName(), keycentre::RootProfile());
        CrlProfile profile;
        profile.authorityKeyId = m_authority.root.GetKeyId();
        return forger.MakeCrl(profile);
    }

    Authority m_authority;
    Authority m_other;
    Issuer m_ca;
};

TEST_F(CliTrust, Roots) {
    RunAll({
        {"nal trust list", 0, "", "nothing is trusted yet"},
        {"nal trust add ca.cer --yes", 3, "ca.cer is not the certificate of a root"},
        {"nal trust add root.crl --yes", 3, "root.crl is a CRL, not a certificate"},
        {"nal trust add root.cer --crl forged.crl --yes", 1, "forged.crl is not a CRL of this root"},
        {"nal trust add root.cer --fingerprint 00", 1, "the fingerprint is not the one you gave"},
        {"exec setsid -w @NAL@ trust add root.cer", 2, "Give --fingerprint HEX (or --yes) to confirm it"},
        {"nal trust list", 0, "", "nothing is trusted yet"},
        {"nal trust add root.cer --crl root.crl --fingerprint \"$(nal cert show root.cer --json | sed -n 's/.*\"fingerprint\": \"\\(.*\\)\".*/\\1/p')\"", 0, "",
         "fingerprint"},
        {"nal trust add other.cer --yes", 0, "", "trusted"},
        {"nal trust remove Root --yes", 3, "2 certificates in"},
        {"nal trust remove Nobody --yes", 3, "no certificate in"},
        {"nal trust lists", 2, "no transport folder is set"},
        {"mkdir -p t/d_station; nal trust lists --transport t", 0, "", "no lists in t/d_station"},
        {"cp ivan.cer t/d_station/0000_trl.p7s; nal trust lists --transport t", 1, "", "refused"},
    });
    EXPECT_TRUE(HasShape(RunJson("nal trust list"), "store:s roots:[ subject:s issuer:s serial:s not_before:s not_after:s key_id:s valid_now:b fingerprint:s "
                                                    "crl_until:s? ]"));
    EXPECT_TRUE(HasShape(RunJson("nal trust lists --transport t", 1), "folder:s lists:[ name:s kind:s delivered:b certificates:n crls:n state:s ]"));
    const std::string print = NALGetFingerprint(m_other.root.GetCertificate()).str();
    RunAll({{"nal trust list", 0, "", print}});
    const std::string id = TOOBin2Hex(m_other.root.GetKeyId()).str();
    RunAll({{"nal trust remove " + id + " --yes", 0, "", "removed"}, {"nal trust remove " + id + " --yes", 3, "no certificate in"}});
}

TEST_F(CliTrust, Crls) {
    RunAll({
        {"nal crl show root.crl", 0, "", "this update"},
        {"nal crl show root.cer", 3, "root.cer is a certificate, not a CRL"},
        {"nal crl show revoking.crl", 0, "", "key compromise"},
        {"nal crl import root.crl", 1, "no certificate here issued this CRL"},
        {"nal crl check root.crl", 1, "", "NOT TO BE TRUSTED"},
        {"nal crl check root.crl --issuer root.cer", 0, "", "good"},
        {"nal crl check forged.crl --issuer root.cer", 1, "", "forged or damaged"},
        {"nal crl check root.crl --issuer other.cer", 1, "", "NOT TO BE TRUSTED"},
        {"nal trust add root.cer --yes", 0, "", "trusted"},
        {"nal crl check root.crl", 0, "", "good"},
        {"nal crl check forged.crl", 1, "", "NOT TO BE TRUSTED"},
        {"nal crl check old.crl", 1, "", "out of date"},
        {"nal crl import forged.crl", 1, "the signature does not hold"},
        {"nal crl import root.crl", 0, "", "trust/trusted.dat"},
        {"nal crl list --trust", 0, "", "ISSUER"},
        {"nal cert import ca.cer", 0, "", "new"},
        {"nal crl check ca.crl", 0, "", "good"},
        {"nal crl check ca.crl --cert ivan.cer", 0, "", "good"},
        {"nal crl check revoking.crl --cert ivan.cer", 1, "", "ivan.cer was revoked"},
        {"nal crl check ca.crl --cert root.cer", 3, "was issued by another than the CRL"},
        {"nal crl import ca.crl", 0, "", "cstore.dat"},
        {"nal crl list", 0, "", "ISSUER"},
    });
    const std::string crl = "issuer:s this_update:s next_update:s? signature_algorithm:s issuer_key_id:s? number:s? revoked_count:n ";
    EXPECT_TRUE(HasShape(RunJson("nal crl show revoking.crl")[0], "file:s " + crl + "revoked:[ serial:s revoked:s reason:s~ ]"));
    EXPECT_TRUE(HasShape(RunJson("nal crl list"), "store:s crls:[ " + crl + "out_of_date:b ]"));
    EXPECT_TRUE(HasShape(RunJson("nal crl check ca.crl --cert ivan.cer"),
                         crl + "signature_holds:b issuer_trusted:b certificates:[ file:s serial:s revoked:b ] faults:[s] good:b verdict:s"));
}

TEST_F(CliTrust, Chains) {
    RunAll({
        {"nal cert verify ivan.cer", 1, "", "the chain is not complete"},
        {"nal cert verify past.cer", 1, "", "the chain is not complete\n   ✗ it has expired, or is not valid yet\n\n"},
        {"nal cert verify ivan.cer --with ca.cer --with root.cer", 1, "", "the root is not trusted"},
        {"nal trust add root.cer --crl root.crl --yes", 0, "", "trusted"},
        // An option takes one word, so what follows it is the certificate.
        {"nal cert verify --with ca.cer ivan.cer --crl ca.crl", 0, "", "good: it leads to a trusted root"},
        {"nal cert verify --with ca.cer ivan.cer", 1, "", "whether it was revoked is not known"},
        {"nal cert verify --with ca.cer ivan.cer --no-crl-needed", 0, "", "└─ cn=Sub"},
        {"nal cert verify --with ca.cer ivan.cer --crl revoking.crl", 1, "", "it was revoked"},
        {"nal cert verify below.cer --with upper.cer --with lower.cer --no-crl-needed", 1, "", "   ✗ it must not issue certificates"},
        {"nal cert verify ivan.cer --with nokeyid.cer", 1, "warning: nokeyid.cer: the certificate of ", "not complete"},
        {"nal cert verify --with nowhere ivan.cer", 3, "cannot read nowhere"},
        {"nal cert verify --with ca.crl ivan.cer", 3, "ca.crl is a CRL, not a certificate"},
        {"nal cert verify nobody", 3, "there is no file 'nobody'"},
        {"nal cert import ca.cer ivan.cer && nal crl import ca.crl && nal cert verify ivan", 0, "", "good"},
        {"nal cert verify ivan --store nowhere", 3, "nowhere"},
    });
    EXPECT_TRUE(HasShape(RunJson("nal cert verify ivan"),
                         "certificate:s verdict:s good:b faults:[s] chain:[ subject:s issuer:s serial:s not_before:s not_after:s key_id:s faults:[s] "
                         "crl:{? this_update:s next_update:s? out_of_date:b } ]"));
}

}  // namespace
}  // namespace nal_test
