// Templates: where their issuers are sought, and what is forgiven.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>

#include "nal/cert_template.h"
#include "nal/errors.h"
#include "nal/settings.h"
#include "nal/signature_check.h"
#include "nal/trust_storages.h"
#include "support/certificate_parts.h"
#include "support/hierarchy.h"
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

// --- As a result record ---

class TemplateRecord : public Template {
protected:
    TemplateRecord() {
        hierarchy.AddEnd("Signer", "Sub").builder.extensions = {
            {"2.5.29.15", true, CNALKeyUsage(CNALKeyUsage::DigitalSignature).WriteData()}};
        hierarchy.certs["Signer"].builder.notBefore = Date(2025);
        hierarchy.AddEnd("Orphan", "Sub").builder.issuer = "Nobody";
        hierarchy.Store();
        Deliver(hierarchy, "12ab_usr.p7b", hierarchy.Issue("Sub"));
    }

    // A record of a good signature made at `time`.
    static CNALWholeSignatureCheck RecordOf(const CNALCertContext& signer, const std::optional<FILETIME>& time) {
        CNALWholeSignatureCheck check;
        check.status = 0;
        check.signerCertificate = EncodingOf(signer);
        if (time) check.signerInfo.signedAttrs.Add("1.2.840.113549.1.9.5", Der([&](asnt::Writer& w) { w.Time(*time); }));
        return check;
    }
    static IdentObj EncodingOf(const CNALCertContext& cert) {
        return {cert.GetContext()->pbCertEncoded, cert.GetContext()->cbCertEncoded};
    }
};

TEST_F(TemplateRecord, SaysWhoIssuedItAndWhatIsWrong) {
    CNALWholeSignatureCheck check;
    CNALCertificateChain chain;
    ASSERT_TRUE(NALVerifyCertTemplate(hierarchy.Issue("End"), check, &chain));
    EXPECT_EQ(check.status, 0U);
    EXPECT_EQ(check.statusText, NALGetWinErrorExplaination(0));
    EXPECT_EQ(check.signerCertificate, EncodingOf(hierarchy.Issue("Sub")));
    EXPECT_EQ(VerdictOf(chain), good);

    ASSERT_TRUE(NALVerifyCertTemplate(hierarchy.Issue("Root"), check, nullptr));
    EXPECT_EQ(check.status, 0U);
    EXPECT_EQ(check.signerCertificate, EncodingOf(hierarchy.Issue("Root")));

    NALFreeRootStorage();
    std::filesystem::remove(hierarchy.Folder() + "/net/d_station/12ab_usr.p7b");
    ASSERT_TRUE(NALVerifyCertTemplate(hierarchy.Issue("End"), check, nullptr));
    EXPECT_EQ(check.status, 0x800B010AU);
    EXPECT_EQ(check.statusText, NALGetWinErrorExplaination(0x800B010A));
    EXPECT_TRUE(check.signerCertificate.IsEmpty());
    EXPECT_FALSE(NALVerifyCertTemplate(CNALCertContext(), check, nullptr));
}

TEST_F(TemplateRecord, HoldsTheSignerAgainstTheTimeOfSigning) {
    const CNALCertContext signer = hierarchy.Issue("Signer");
    const CNALCertContext end = hierarchy.Issue("End");
    CNALWholeSignatureCheck unchecked;
    CNALWholeSignatureCheck refused = RecordOf(signer, Date(2026));
    refused.status = c_NAL_SIGNATURE_INVALID;
    CNALWholeSignatureCheck badTime = RecordOf(signer, Date(2026));
    badTime.signerInfo.signedAttrs.Add("1.2.840.113549.1.9.5", Der([](asnt::Writer& w) { w.Time(Date(2026)); }));
    CNALWholeSignatureCheck unnamed = RecordOf(signer, Date(2026));
    unnamed.signerCertificate.Clear();
    const struct {
        const char* name;
        CNALCertContext cert;
        CNALCertContext signer;
        CNALWholeSignatureCheck check;
        DWORD result;
        unsigned status;
    } cases[] = {
        {"good", end, signer, RecordOf(signer, Date(2026)), 0, 0},
        {"good, no time", end, signer, RecordOf(signer, std::nullopt), 0, 0},
        {"good, the record names no certificate", end, signer, unnamed, 0, 0},
        {"never checked", end, signer, unchecked, c_NAL_SIGNER_NOT_FOUND, 0},
        {"bad signature", end, signer, refused, c_NAL_SIGNATURE_INVALID, 0},
        {"the record of another", end, end, RecordOf(signer, Date(2026)), c_NAL_SIGNER_NOT_FOUND, 0},
        {"no signer", end, CNALCertContext(), unnamed, c_NAL_SIGNER_NOT_FOUND, 0},
        {"two times", end, signer, badTime, c_NAL_SIGNATURE_INVALID, 0},
        {"signed too early", end, signer, RecordOf(signer, Date(2024)), c_NAL_SIGNING_TIME_INVALID, 0},
        {"may not sign", end, end, RecordOf(end, Date(2026)), c_NAL_SIGNER_NOT_ALLOWED, 0},
        {"the template's chain", hierarchy.Issue("Orphan"), signer, RecordOf(signer, Date(2026)), 0x800B010A, 0x1000D},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        CNALWholeSignatureCheck check = test.check;
        unsigned status = 7;
        ASSERT_TRUE(NALVerifyCertTemplate(test.cert, test.signer, check, status));
        EXPECT_EQ(check.status, test.result);
        EXPECT_EQ(check.statusText, NALGetWinErrorExplaination(test.result));
        EXPECT_EQ(status, test.status);
    }
}

}  // namespace
