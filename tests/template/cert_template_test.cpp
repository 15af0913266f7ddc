// Templates: where their issuers are sought, and what is forgiven.
#include <gtest/gtest.h>

#include "support/hierarchy.h"
#include "nal/cert_template.h"
#include "nal/settings.h"
#include "nal/trust_storages.h"
#include "support/trust_list_builder.h"

namespace {

using namespace nal_test;

constexpr DWORD kConstraints = CERT_TRUST_INVALID_BASIC_CONSTRAINTS;

void Deliver(const Hierarchy& hierarchy, const std::string& name, const CNALCertContext& cert) {
    const IdentObj list = UnsignedList({IdentObj(cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded)});
    WriteFile(hierarchy.Folder() + "/net/d_station/" + name, list.GetData(), list.GetSize());
}

// End's issuer, Sub, is in no trust storage; its CRL is nowhere.
class Template : public testing::Test {
protected:
    Template() {
        hierarchy.certs["Sub"].place = Place::Nowhere;
        hierarchy.crls.erase("Sub");
        NALSetAplicationFlag(NAL_APP_IGNORE_MISSING_CRL);
    }

    Verdict Verify() {
        CNALCertificateChain chain;
        EXPECT_TRUE(NALVerifyCertTemplate(hierarchy.Issue("End"), chain));
        return VerdictOf(chain);
    }

    Hierarchy hierarchy;
    const Verdict good{{0, 0, 0, 0}, 0};
    const Verdict noIssuer{{0xD}, 0x1000D};
};

TEST_F(Template, FindsItsIssuerInTheListOfItsNetwork) {
    hierarchy.Store();
    const CNALCertContext sub = hierarchy.Issue("Sub");
    EXPECT_EQ(Verify(), noIssuer);
    Deliver(hierarchy, "0000_usr.p7b", sub);
    EXPECT_EQ(Verify(), noIssuer) << "it is of network 12ab";
    Deliver(hierarchy, "12ab_usr.p7b", sub);
    EXPECT_EQ(Verify(), good);
}

TEST_F(Template, WithoutANetworkTheCommonListCounts) {
    hierarchy.certs["End"].builder.serial = Filled(1, 3);
    hierarchy.Store();
    Deliver(hierarchy, "0000_usr.p7b", hierarchy.Issue("Sub"));
    EXPECT_EQ(NALGetUsersListName(hierarchy.Issue("End")), "0000_usr.p7b");
    EXPECT_EQ(Verify(), good);
}

TEST_F(Template, ExtendedStoragesAreThoseOfAllNetworks) {
    hierarchy.Store();
    const CNALCertContext sub = hierarchy.Issue("Sub");
    Deliver(hierarchy, "12ab_usr.p7b", sub);
    NALSetAplicationFlag(NAL_APP_EXTENDED_STORAGES | NAL_APP_IGNORE_MISSING_CRL);
    EXPECT_EQ(Verify(), noIssuer) << "users' lists are not among those of the chain-only form";
    Deliver(hierarchy, "77ff.trl", sub);
    EXPECT_EQ(Verify(), good);
}

TEST_F(Template, AnExpiredOneHasNoStorageAmongTheExtendedOnes) {
    hierarchy.certs["End"].builder.notAfter = Date(2026);
    hierarchy.Store();
    Deliver(hierarchy, "77ff.trl", hierarchy.Issue("Sub"));
    NALSetAplicationFlag(NAL_APP_EXTENDED_STORAGES | NAL_APP_IGNORE_MISSING_CRL);
    EXPECT_EQ(Verify(), noIssuer);
}

TEST_F(Template, AnIssuersBasicConstraintsAreForgiven) {
    hierarchy.certs["Sub"].builder.extensions = {BasicConstraints(false)};
    hierarchy.Store();
    Deliver(hierarchy, "12ab_usr.p7b", hierarchy.Issue("Sub"));
    EXPECT_EQ(Verify(), good);
    CNALCertificateChain chain;
    ASSERT_TRUE(NALVerifyCertificate(hierarchy.Issue("Sub"), chain));
    EXPECT_EQ(chain.GetErrors(), 0U) << "Sub itself is no issuer there";
}

TEST_F(Template, OfTheOthersTheyStayInTheirElements) {
    hierarchy.certs["CA"].builder.extensions = {BasicConstraints(false)};
    hierarchy.Store();
    Deliver(hierarchy, "12ab_usr.p7b", hierarchy.Issue("Sub"));
    EXPECT_EQ(Verify(), (Verdict{{0, 0, kConstraints, 0}, 0}));
}

TEST_F(Template, RootsInListsAreNotTrusted) {
    hierarchy.AddCA("Stray", "Stray", Place::Nowhere);
    hierarchy.certs["End"].builder.issuer = "Stray";
    hierarchy.certs["End"].builder.authorityKeyId = hierarchy.certs["Stray"].builder.subjectKeyId;
    hierarchy.certs["End"].signer = "Stray";
    hierarchy.crls.erase("Stray");
    hierarchy.Store();
    Deliver(hierarchy, "12ab_usr.p7b", hierarchy.Issue("Stray"));
    EXPECT_EQ(Verify(), (Verdict{{0, 0x20}, 0x20}));
    CNALCertificateChain chain;
    EXPECT_FALSE(NALVerifyCertTemplate(CNALCertContext(), chain));
    EXPECT_EQ(GetLastError(), 87U);
}

}  // namespace
