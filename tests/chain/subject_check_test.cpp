// One certificate against one issuer, and the walk through the system stores.
#include <gtest/gtest.h>

#include "support/hierarchy.h"
#include "nal/settings.h"
#include "nal/signed_envelope.h"
#include "nal/verify.h"
#include "support/certificate_parts.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

constexpr unsigned kEncoding = 0x10001;
constexpr DWORD kNoCrl = CERT_STORE_NO_CRL_FLAG;

// CA issues; End is checked. CRLs are in a storage of their own.
class SubjectCheck : public testing::Test {
protected:
    SubjectCheck() : clock(At(2026, 3, 1, 12)) {
        ca.subject = "CA";
        ca.subjectKeyId = Filled(1);
        ca.serial = Filled(0x31, 16);
        ca.notAfter = Date(2027);
        end.issuer = "CA";
        end.subject = "End";
        end.subjectKeyId = Filled(2);
        end.serial = Filled(5, 3);
        end.notBefore = Date(2026);
        end.notAfter = Date(2028);
        CNALString name("CRLs");
        EXPECT_TRUE(crls.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr));
    }

    void AddCrl(std::vector<IdentObj> listed, const FILETIME& thisUpdate, const IdentObj& number, const char* signer = "CA") {
        CrlBuilder crl;
        crl.issuer = "CA";
        crl.thisUpdate = thisUpdate;
        crl.number = number;
        for (const IdentObj& serial : listed) crl.entries.push_back({serial});
        ASSERT_TRUE(crls.AddEncodetCRL(KeyNamed(signer).Sign(crl.Build()), kEncoding));
    }

    // The flags that are left, or the last error as a negative number.
    std::int64_t Verify(unsigned flags, const char* signer = "CA", CNALCRLContext* crl = nullptr) {
        const CNALCertContext subject(KeyNamed(signer).Issue(end, KeyNamed("End")));
        const CNALCertContext issuer(KeyNamed("Root").Issue(ca, KeyNamed("CA")));
        unsigned word = flags;
        if (!NALVerifySubjectCertificateContext(subject, issuer, &word, &crls, crl)) return -static_cast<std::int64_t>(GetLastError());
        return word;
    }

    const too_testing::ScopedClock clock;
    CertBuilder ca;
    CertBuilder end;
    CNALCertStorage crls;
};

TEST_F(SubjectCheck, SignatureAndWhatIsAsked) {
    EXPECT_EQ(Verify(7), kNoCrl);
    EXPECT_EQ(Verify(3), 0);
    EXPECT_EQ(Verify(0), 0);
    EXPECT_EQ(Verify(7, "Stranger"), kNoCrl | 1);
    EXPECT_EQ(Verify(6, "Stranger"), kNoCrl);
    const too_testing::ScopedCallFailure failure("ORKAcquireContext", 0x8009001D);
    EXPECT_EQ(Verify(1), 1) << "a provider that refuses proves nothing";
}

TEST_F(SubjectCheck, TimeHasBoundsOfItsOwn) {
    const struct {
        FILETIME notBefore, notAfter, issuerEnd;
        bool valid;
    } cases[] = {
        {Date(2026), Date(2028), Date(2027), true},
        {At(2026, 3, 1, 12), Date(2028), Date(2027), true},             // begins now
        {At(2026, 3, 1, 12, 0, 1), Date(2028), Date(2027), false},
        {Date(2026), At(2026, 3, 1, 12), Date(2027), false},            // ends now: no longer valid
        {Date(2026), At(2026, 3, 1, 12, 0, 1), Date(2027), true},
        {Date(2026), Date(2028), Date(2026), false},                    // begins as the issuer ends
        {Date(2026), Date(2028), At(2026, 1, 1, 0, 0, 1), true},        // the issuer's own end is not looked at beyond that
    };
    for (const auto& test : cases) {
        end.notBefore = test.notBefore;
        end.notAfter = test.notAfter;
        ca.notAfter = test.issuerEnd;
        EXPECT_EQ(Verify(3), test.valid ? 0 : 2);
    }
}

TEST_F(SubjectCheck, TheCrlThatCounts) {
    // Numbers as written, most significant byte first. That of the issuer's own ends with the first four stored bytes of its serial.
    const IdentObj low = Filled(1, 4);
    const IdentObj high = Filled(2, 16);
    IdentObj own = Filled(1, 5);
    for (unsigned i = 1; i < 5; ++i) own.GetData()[i] = 0x31;
    const IdentObj shortOwn = Filled(0x31, 4);

    CNALCRLContext crl;
    AddCrl({}, Date(2025), low);
    EXPECT_EQ(Verify(7, "CA", &crl), 0);
    EXPECT_TRUE(crl.IsInitialized());
    AddCrl({Filled(5, 3)}, Date(2025, 2), high);
    EXPECT_EQ(Verify(7), 4) << "the later one lists it";
    AddCrl({}, Date(2025, 3), low, "Stranger");
    EXPECT_EQ(Verify(7), 4) << "one that another key signed does not count";
    AddCrl({}, Date(2027), Filled(3, 16));
    EXPECT_EQ(Verify(7), 4) << "nor one of the future";
    AddCrl({}, Date(2024), shortOwn);
    EXPECT_EQ(Verify(7), 4) << "four bytes are not longer than four";
    AddCrl({}, Date(2024), own);
    EXPECT_EQ(Verify(7, "CA", &crl), 0) << "one that is numbered after the issuer goes first";
    EXPECT_EQ(crl.GetSerialNumber().GetData()[4], 1);
    EXPECT_EQ(Verify(3, "CA", &crl), 0);
    EXPECT_FALSE(crl.IsInitialized()) << "emptied when no CRL is asked for";
}

TEST_F(SubjectCheck, LooksIntoTheIssuersOwnStore) {
    const IdentObj issuerDer = KeyNamed("CA").Issue(ca, KeyNamed("CA"));
    ASSERT_TRUE(crls.AddEncodetCertificate(issuerDer, kEncoding));
    AddCrl({Filled(5, 3)}, Date(2025), Filled(1, 4));
    std::list<CNALCertContext> stored;
    ASSERT_TRUE(crls.FindCertList(stored, CERT_FIND_ANY, nullptr));
    const CNALCertContext subject(KeyNamed("CA").Issue(end, KeyNamed("End")));
    CNALCertStorage closed;
    for (CNALCertStorage* storage : {static_cast<CNALCertStorage*>(nullptr), &closed}) {
        unsigned flags = 7;
        EXPECT_TRUE(NALVerifySubjectCertificateContext(subject, stored.front(), &flags, storage));
        EXPECT_EQ(flags, 4U);
    }
    unsigned flags = 7;
    EXPECT_TRUE(NALVerifySubjectCertificateContext(subject, CNALCertContext(issuerDer), &flags));
    EXPECT_EQ(flags, kNoCrl) << "a free-standing issuer has a store with itself alone";
    crls.CloseStorage();
    flags = 7;
    EXPECT_TRUE(NALVerifySubjectCertificateContext(subject, stored.front(), &flags));
    EXPECT_EQ(flags, kNoCrl) << "the issuer has outlived its store";
}

TEST_F(SubjectCheck, RefusesWhatItCannotCheck) {
    const CNALCertContext cert(KeyNamed("CA").Issue(end, KeyNamed("End")));
    unsigned flags = 7;
    EXPECT_FALSE(NALVerifySubjectCertificateContext(CNALCertContext(), cert, &flags));
    EXPECT_FALSE(NALVerifySubjectCertificateContext(cert, CNALCertContext(), &flags));
    EXPECT_FALSE(NALVerifySubjectCertificateContext(cert, cert, nullptr));
    EXPECT_EQ(GetLastError(), 87U);

    CertificateParts parts;
    parts.innerAlgorithm = parts.outerAlgorithm = Der([](asnt::Writer& w) { w.Sequence([&] { w.Oid("1.2.840.113549.1.1.11"); }); });
    const CNALCertContext foreign(parts.Encode());
    EXPECT_FALSE(NALVerifySubjectCertificateContext(foreign, cert, &flags));
    EXPECT_EQ(GetLastError(), 230U);
    EXPECT_EQ(flags, 7U);

    // The algorithm beside the signature is not covered by it: another one inside is a forgery.
    CNALSignedData envelope;
    const CERT_CONTEXT& good = *cert.GetContext();
    envelope.ReadData(good.pbCertEncoded, good.cbCertEncoded, nullptr);
    envelope.m_algorithm.m_algorithm = IdentObj("1.2.643.2.2.4", 13);
    const CNALCertContext mixed(envelope.WriteData(nullptr));
    flags = 1;
    EXPECT_TRUE(NALVerifySubjectCertificateContext(mixed, CNALCertContext(KeyNamed("Root").Issue(ca, KeyNamed("CA"))), &flags));
    EXPECT_EQ(flags, 1U);
}

// --- System stores ---

TEST(SystemStores, NameNoIssuerHereAndOpenWithTheirMarks) {
    Hierarchy hierarchy;
    const CNALCertContext cert = hierarchy.Issue("End");
    CNALCertChain chain;
    std::list<CNALX509CheckSignResult> links(3);
    chain.LoadVerifyChain(cert.GetContext(), links);
    ASSERT_EQ(links.size(), 1U);
    EXPECT_EQ(links.front().m_result, 0x800B0107U);
    EXPECT_TRUE(links.front().m_info == CNALCertInfo(*cert.GetContext()));
    EXPECT_FALSE(chain.IsComplete());
    CNALX509CheckSignResult result;
    EXPECT_EQ(chain.FindNextInStore(nullptr, result), 230);
    for (const unsigned flag : {0, NAL_APP_UNTRUSTED_SYSTEM_STORES}) {
        NALSetAplicationFlag(flag);
        CNALChainEngine engine;
        ASSERT_TRUE(engine.OpenMSStorages());
        const unsigned untrusted = flag != 0 ? 32 : 0;
        EXPECT_TRUE(engine.GetRootStorage().m_storageType == 0x10000001U && engine.GetRootStorage().m_untrusted == untrusted);
        EXPECT_TRUE(engine.GetCAStorage().m_storageType == 0x10000002U && engine.GetCAStorage().m_untrusted == untrusted);
    }
}

}  // namespace
