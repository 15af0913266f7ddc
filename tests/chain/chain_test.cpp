// Chains. What is expected of each hierarchy was worked out by hand from the rules in docs/chains.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "support/hierarchy.h"
#include "chain/trust_bits.h"
#include "nal/extensions.h"
#include "nal/settings.h"
#include "nal/trust_storages.h"
#include "ork/constants.h"
#include "storage/signature_memo.h"
#include "support/certificate_parts.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

// The bits, short enough for a table.
constexpr DWORD kTime = CERT_TRUST_IS_NOT_TIME_VALID;
constexpr DWORD kRevoked = CERT_TRUST_IS_REVOKED;
constexpr DWORD kSignature = CERT_TRUST_IS_NOT_SIGNATURE_VALID;
constexpr DWORD kUntrusted = CERT_TRUST_IS_UNTRUSTED_ROOT;
constexpr DWORD kUnknown = CERT_TRUST_REVOCATION_STATUS_UNKNOWN;
constexpr DWORD kCyclic = CERT_TRUST_IS_CYCLIC;
constexpr DWORD kConstraints = CERT_TRUST_INVALID_BASIC_CONSTRAINTS;
constexpr DWORD kPartial = CERT_TRUST_IS_PARTIAL_CHAIN;
constexpr DWORD kAllFailed = kTime | kRevoked | kSignature;  // what was asked for of a certificate without issuer

Verdict Verify(Hierarchy& hierarchy, const std::string& subject, const unsigned* flags = nullptr, std::string* path = nullptr) {
    CNALCertificateChain chain;
    unsigned word = flags != nullptr ? *flags : 0;
    EXPECT_TRUE(NALVerifyCertificate(hierarchy.Issue(subject), chain, flags != nullptr ? &word : nullptr, &hierarchy.Extra()));
    EXPECT_EQ(word, flags != nullptr ? *flags : 0) << "the word is not changed";
    EXPECT_EQ(chain.GetCount(), chain.m_elements.size());
    EXPECT_EQ(chain.m_trustStatus.dwInfoStatus, 0U);
    EXPECT_EQ(CTOOFileTime(chain.m_time), CTOOFileTime::Now());
    if (path != nullptr) *path = PathOf(chain);
    return VerdictOf(chain);
}

struct Case {
    const char* name;
    std::function<void(Hierarchy&)> change;
    std::vector<DWORD> elements;  // from the end certificate up
    DWORD chain;
};

void Check(const std::vector<Case>& cases, const std::string& subject = "End") {
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        Hierarchy hierarchy;
        test.change(hierarchy);
        hierarchy.Store();
        EXPECT_EQ(Verify(hierarchy, subject), (Verdict{test.elements, test.chain}));
    }
}

TEST(TrustBits, OfASearchWord) {
    constexpr DWORD ignore = NAL_APP_IGNORE_MISSING_CRL;
    const unsigned cases[][3] = {  // word, flags of the application, bits
        {0, 0, 0},
        {0x1, 0, kSignature},
        {0x2, 0, kTime},
        {0x4, 0, kRevoked},
        {0x20, 0, kUntrusted},
        {0x10004, 0, kUnknown},
        {0x10023, 0, kSignature | kTime | kUntrusted | kUnknown},
        {0x20000, 0, 0},
        {0x10004, ignore, 0},
        {0x10003, ignore, kSignature | kTime},
        {0x4, ignore, kRevoked},
        {0x10000, ~ignore, kUnknown},
    };
    for (const auto& [word, flags, bits] : cases) EXPECT_EQ(nal::TrustBitsOf(word, flags), bits) << std::hex << word;
}

using Change = std::function<void(Hierarchy&)>;

Change Expire(const std::string& subject) {
    return [=](Hierarchy& h) { h.certs[subject].builder.notAfter = At(2026, 3, 1, 11, 59, 59); };
}
Change Early(const std::string& subject) {
    return [=](Hierarchy& h) { h.certs[subject].builder.notBefore = At(2026, 3, 1, 12, 0, 1); };
}
Change Revoke(const std::string& subject) {
    return [=](Hierarchy& h) { h.Revoke(subject); };
}
Change Forge(const std::string& subject) {
    return [=](Hierarchy& h) { h.certs[subject].signer = "Stranger"; };
}
Change NoCrl(const std::string& issuer) {
    return [=](Hierarchy& h) { h.crls.erase(issuer); };
}

TEST(Chain, EachFaultAtEachLevel) {
    std::vector<Case> cases;
    const char* const subjects[] = {"End", "Sub", "CA", "Root"};
    for (std::size_t level = 0; level < std::size(subjects); ++level) {
        const auto add = [&](const char* name, const Change& change, DWORD bits) {
            std::vector<DWORD> elements(4, 0);
            elements[level] = bits;
            cases.push_back({name, change, elements, bits});
        };
        const char* subject = subjects[level];
        add("expired", Expire(subject), kTime);
        add("not yet valid", Early(subject), kTime);
        add("revoked, the root on its own CRL", Revoke(subject), kRevoked);
        add("forged", Forge(subject), kSignature);
        // The root needs no CRL itself.
        if (level < 3) add("no CRL of its issuer", NoCrl(subjects[level + 1]), kUnknown);
    }
    Check(cases);
    Check({
        {"all in order", [](Hierarchy&) {}, {0, 0, 0, 0}, 0},
        {"no root", [](Hierarchy& h) { h.Remove("Root"); }, {0, 0, kAllFailed}, kAllFailed | kPartial},
        {"no CA", [](Hierarchy& h) { h.Remove("CA"); }, {0, kAllFailed}, kAllFailed | kPartial},
        {"nobody", [](Hierarchy& h) { h.Remove("Root"), h.Remove("CA"), h.Remove("Sub"); }, {kAllFailed}, kAllFailed | kPartial},
        {"everything at once",
         [&](Hierarchy& h) {
             for (const auto fault : {&Expire, &Forge, &Revoke}) fault("End")(h);
             for (const auto fault : {&NoCrl, &Forge, &Revoke}) fault("CA")(h);
             Early("Sub")(h);
             h.certs["Root"].place = h.crls["Root"].place = Place::Extra;
         },
         {kTime | kSignature | kRevoked, kTime | kUnknown, kSignature | kRevoked, kUntrusted},
         kTime | kSignature | kRevoked | kUnknown | kUntrusted},
        {"a constraint is not looked at beside another fault",
         [&](Hierarchy& h) { h.certs["CA"].builder.extensions = {BasicConstraints(false)}, Expire("End")(h); },
         {kTime, 0, 0, 0},
         kTime},
    });
}

TEST(Chain, WhichCrlsCount) {
    const auto sub = [](auto&& change) {
        return [=](Hierarchy& h) {
            h.Revoke("End");
            change(h.crls["Sub"]);
        };
    };
    Check({
        {"out of date, listing", sub([](PlannedCrl& crl) { crl.builder.nextUpdate = Date(2026, 2); }), {kRevoked, 0, 0, 0}, kRevoked},
        {"out of date", [](Hierarchy& h) { h.crls["Sub"].builder.nextUpdate = Date(2026, 2); }, {0, 0, 0, 0}, 0},
        {"of the future", sub([](PlannedCrl& crl) { crl.builder.thisUpdate = At(2026, 3, 1, 12, 0, 1); }), {kUnknown, 0, 0, 0}, kUnknown},
        {"of this second", sub([](PlannedCrl& crl) { crl.builder.thisUpdate = At(2026, 3, 1, 12); }), {kRevoked, 0, 0, 0}, kRevoked},
        {"signed by another", sub([](PlannedCrl& crl) { crl.signer = "Stranger"; }), {kUnknown, 0, 0, 0}, kUnknown},
        {"of another issuer", sub([](PlannedCrl& crl) { crl.builder.authorityKeyId = Filled(200); }), {kUnknown, 0, 0, 0}, kUnknown},
        {"kept apart from its issuer", sub([](PlannedCrl& crl) { crl.place = Place::Extra; }), {kUnknown, 0, 0, 0}, kUnknown},
        {"another serial listed", [](Hierarchy& h) { h.crls["Sub"].builder.entries.push_back({Filled(9, 16)}); }, {0, 0, 0, 0}, 0},
    });
    // The element tells which CRL was used, and that it is out of date.
    Hierarchy hierarchy;
    hierarchy.crls["Sub"].builder.nextUpdate = Date(2026, 2);
    hierarchy.crls.erase("CA");
    hierarchy.Store();
    CNALCertificateChain chain;
    ASSERT_TRUE(NALVerifyCertificate(hierarchy.Issue("End"), chain));
    EXPECT_EQ(chain.m_elements.front().m_crl.GetCheckStatus(), 223U);
    EXPECT_FALSE(std::next(chain.m_elements.begin())->m_crl.IsInitialized());
}

TEST(Chain, TheFlagThatIgnoresMissingCrls) {
    Hierarchy hierarchy;
    hierarchy.crls.erase("Sub");
    hierarchy.Revoke("Sub");
    hierarchy.Store();
    NALSetAplicationFlag(NAL_APP_IGNORE_MISSING_CRL);
    EXPECT_EQ(Verify(hierarchy, "End"), (Verdict{{0, kRevoked, 0, 0}, kRevoked}));
}

TEST(Chain, OnlyWhatIsAskedForIsChecked) {
    Hierarchy hierarchy;
    hierarchy.certs["End"].builder.notAfter = Date(2026);
    hierarchy.certs["End"].signer = "Stranger";
    hierarchy.Revoke("End");
    hierarchy.crls.erase("CA");
    hierarchy.Store();
    const struct {
        unsigned flags;
        Verdict verdict;
        Verdict alone;  // of a certificate without issuer
    } cases[] = {
        {0, {{0, 0, 0, 0}, 0}, {{0}, kPartial}},
        {1, {{kSignature, 0, 0, 0}, kSignature}, {{kSignature}, kSignature | kPartial}},
        {2, {{kTime, 0, 0, 0}, kTime}, {{kTime}, kTime | kPartial}},
        {4, {{kRevoked, kUnknown, 0, 0}, kRevoked | kUnknown}, {{kRevoked}, kRevoked | kPartial}},
        {7, {{kAllFailed, kUnknown, 0, 0}, kAllFailed | kUnknown}, {{kAllFailed}, kAllFailed | kPartial}},
    };
    hierarchy.AddEnd("Orphan", "Sub").builder.issuer = "Nobody";
    for (const auto& test : cases) {
        SCOPED_TRACE(test.flags);
        EXPECT_EQ(Verify(hierarchy, "End", &test.flags), test.verdict);
        EXPECT_EQ(Verify(hierarchy, "Orphan", &test.flags), test.alone);
    }
}

TEST(Chain, WhoIsTrusted) {
    const auto rootIn = [](Place place) {
        return [=](Hierarchy& h) { h.certs["Root"].place = h.crls["Root"].place = place; };
    };
    const auto allIn = [](Place place) {
        return [=](Hierarchy& h) {
            for (const char* subject : {"Root", "CA", "Sub"}) h.certs[subject].place = h.crls[subject].place = place;
        };
    };
    Check({
        {"root in the main storage", rootIn(Place::Main), {0, 0, 0, 0}, 0},
        {"root in a trust list", rootIn(Place::TrustList), {0, 0, 0, 0}, 0},
        {"root in an unsigned list", rootIn(Place::UnsignedList), {0, 0, 0, kUntrusted}, kUntrusted},
        {"root in an extra storage", rootIn(Place::Extra), {0, 0, 0, kUntrusted}, kUntrusted},
        {"all in a trust list", allIn(Place::TrustList), {0, 0, 0, 0}, 0},
        {"all in an unsigned list", allIn(Place::UnsignedList), {0, 0, 0, kUntrusted}, kUntrusted},
        {"all in an extra storage", allIn(Place::Extra), {0, 0, 0, kUntrusted}, kUntrusted},
        {"all in one that is vouched for", [&](Hierarchy& h) { allIn(Place::Extra)(h), h.extraUntrusted = 0; }, {0, 0, 0, 0}, 0},
        {"all but the root in one", [&](Hierarchy& h) { allIn(Place::Extra)(h), rootIn(Place::Main)(h); }, {0, 0, 0, 0}, 0},
        {"root nowhere", rootIn(Place::Nowhere), {0, 0, kAllFailed}, kAllFailed | kPartial},
    });
    Check({{"a root alone", [](Hierarchy& h) { h.crls.erase("Root"); }, {0}, 0},
           {"an untrusted root alone", rootIn(Place::Extra), {kUntrusted}, kUntrusted}},
          "Root");
}

TEST(Chain, ShortForm) {
    Hierarchy hierarchy;
    hierarchy.Revoke("End");
    hierarchy.Store();
    CERT_TRUST_STATUS status{7, 7};
    EXPECT_FALSE(NALVerifyCertificate(CNALCertContext(), status));
    EXPECT_EQ(GetLastError(), 87U);
    EXPECT_EQ(status.dwErrorStatus, 7U);
    EXPECT_TRUE(NALVerifyCertificate(hierarchy.Issue("End"), status));
    EXPECT_EQ(status.dwErrorStatus, kRevoked);
    EXPECT_EQ(status.dwInfoStatus, 0U);

    CNALCertificateChain chain;
    ASSERT_TRUE(NALVerifyCertificate(hierarchy.Issue("End"), chain));
    EXPECT_FALSE(NALVerifyCertificate(CNALCertContext(), chain));
    EXPECT_EQ(chain.GetCount(), 0U);
    EXPECT_EQ(chain.GetErrors(), 0U);
}

TEST(Chain, BasicConstraintsInBothForms) {
    const IdentObj ca("\x80", 1);
    const IdentObj caLong("\x80\x00", 2);
    const IdentObj caAndMore("\x80\x01", 2);
    const IdentObj both("\xC0", 1);
    const IdentObj endEntity("\x40", 1);
    const BuiltExtension damaged{"2.5.29.19", true, Filled(0x55, 3)};
    const BuiltExtension oldDamaged{"2.5.29.10", true, Filled(0x55, 3)};
    const struct {
        const char* name;
        std::vector<BuiltExtension> extensions;
        bool overOne;  // of Sub, with End below it
        bool overTwo;  // of CA, with Sub and End below it
    } cases[] = {
        {"neither", {}, true, true},
        {"no CA", {BasicConstraints(false)}, false, false},
        {"no limit", {BasicConstraints(true)}, true, true},
        {"0", {BasicConstraints(true, 0)}, true, false},
        {"1", {BasicConstraints(true, 1)}, true, true},
        {"damaged", {damaged}, false, false},
        {"old, no limit", {OldBasicConstraints(ca)}, true, true},
        {"old, 0", {OldBasicConstraints(ca, 0)}, false, false},
        {"old, 1", {OldBasicConstraints(ca, 1)}, true, false},
        {"old, 2", {OldBasicConstraints(ca, 2)}, true, true},
        {"old, end entity", {OldBasicConstraints(endEntity, 9)}, false, false},
        {"old, both", {OldBasicConstraints(both, 9)}, false, false},
        {"old, two octets", {OldBasicConstraints(caLong, 9)}, true, true},
        {"old, a further bit", {OldBasicConstraints(caAndMore, 9)}, false, false},
        {"old, none", {OldBasicConstraints(IdentObj(), 9)}, false, false},
        {"old, damaged", {oldDamaged}, false, false},
        {"both forms: the newer decides", {OldBasicConstraints(ca, 9), BasicConstraints(true, 0)}, true, false},
        {"both forms, the older bad", {OldBasicConstraints(endEntity), BasicConstraints(true)}, true, true},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        for (const bool two : {false, true}) {
            Hierarchy hierarchy;
            hierarchy.certs[two ? "CA" : "Sub"].builder.extensions = test.extensions;
            hierarchy.Store();
            const DWORD expected = (two ? test.overTwo : test.overOne) ? 0 : kConstraints;
            const std::vector<DWORD> elements = {0, two ? 0 : expected, two ? expected : 0, 0};
            EXPECT_EQ(Verify(hierarchy, "End"), (Verdict{elements, expected})) << two;
        }
    }
    // The end certificate's own constraints are never looked at, and each that fails is marked.
    Hierarchy hierarchy;
    hierarchy.certs["End"].builder.extensions = {damaged};
    hierarchy.certs["Sub"].builder.extensions = {BasicConstraints(false)};
    hierarchy.certs["Root"].builder.extensions = {BasicConstraints(true, 1)};
    hierarchy.Store();
    EXPECT_EQ(Verify(hierarchy, "End"), (Verdict{{0, kConstraints, 0, kConstraints}, kConstraints}));
}

TEST(Chain, LoopsEnd) {
    for (const std::vector<std::string>& loop : {std::vector<std::string>{"A", "B"}, {"A", "B", "C"}}) {
        SCOPED_TRACE(loop.size());
        Hierarchy hierarchy;
        for (std::size_t i = 0; i < loop.size(); ++i) hierarchy.AddCA(loop[i], loop[(i + 1) % loop.size()], Place::Extra);
        for (std::size_t i = 0; i < loop.size(); ++i) {
            CertBuilder& cert = hierarchy.certs[loop[i]].builder;
            cert.authorityKeyId = hierarchy.certs[loop[(i + 1) % loop.size()]].builder.subjectKeyId;
            cert.extensions = {BasicConstraints(false)};  // not looked at, with another fault there
        }
        hierarchy.AddEnd("Below", "A");
        hierarchy.Store();
        // The first certificate that comes again ends the chain, and stands in it twice.
        std::string path;
        EXPECT_EQ(Verify(hierarchy, "A", nullptr, &path), (Verdict{std::vector<DWORD>(loop.size() + 1), kCyclic}));
        EXPECT_EQ(path, loop.size() == 2 ? "A B A" : "A B C A");
        EXPECT_EQ(Verify(hierarchy, "Below", nullptr, &path), (Verdict{std::vector<DWORD>(loop.size() + 2), kCyclic}));
        EXPECT_EQ(path, loop.size() == 2 ? "Below A B A" : "Below A B C A");

        // A signature that was checked is not checked again: one check more would fail.
        const unsigned signatureOnly = 1;
        const too_testing::ScopedCallFailure failure("ORKVerifySignature", ORK_E_BAD_SIGNATURE, static_cast<unsigned>(loop.size()) + 1);
        EXPECT_EQ(Verify(hierarchy, "A", &signatureOnly), (Verdict{std::vector<DWORD>(loop.size() + 1), kCyclic}));
    }
}

TEST(Chain, AThousandAuthorities) {
    Hierarchy hierarchy;
    hierarchy.Store();
    // One key for all, since the certificates are what counts.
    constexpr unsigned count = 1000;
    const auto id = [](unsigned n) {
        IdentObj bytes = Filled(0xEE);
        bytes.GetData()[0] = static_cast<unsigned char>(n >> 8);
        bytes.GetData()[1] = static_cast<unsigned char>(n);
        return bytes;
    };
    const unsigned flags = CERT_STORE_SIGNATURE_FLAG | CERT_STORE_TIME_VALIDITY_FLAG;
    std::list<CNALCertContext> certs;
    for (unsigned n = 0; n < count; ++n) {
        CertBuilder builder;
        builder.subject = "N" + std::to_string(n);
        builder.issuer = n + 1 < count ? "N" + std::to_string(n + 1) : "Root";
        builder.subjectKeyId = id(n);
        builder.authorityKeyId = n + 1 < count ? id(n + 1) : *hierarchy.certs["Root"].builder.subjectKeyId;
        const TestSigner& key = KeyNamed("Many");
        certs.emplace_back((n + 1 < count ? key : KeyNamed("Root")).Issue(builder, key));
    }
    ASSERT_TRUE(hierarchy.Extra().AddCertificateList(certs));
    CNALCertificateChain chain;
    unsigned word = flags;
    ASSERT_TRUE(NALVerifyCertificate(certs.front(), chain, &word, &hierarchy.Extra()));
    EXPECT_EQ(chain.GetCount(), count + 1);
    EXPECT_EQ(chain.GetErrors(), 0U);
}

// --- Choices among authorities ---

TEST(Chain, TwoAuthoritiesOfOneName) {
    Hierarchy hierarchy;
    PlannedCert& twin = hierarchy.AddCA("Twin", "CA");
    twin.builder.subject = "Sub";
    hierarchy.crls["Twin"].builder.issuer = "Sub";
    twin.builder.notAfter = Date(2040);  // the longer life would win, if both signed
    hierarchy.certs["End"].builder.authorityKeyId.reset();
    hierarchy.Store();
    CNALCertificateChain chain;
    ASSERT_TRUE(NALVerifyCertificate(hierarchy.Issue("End"), chain));
    EXPECT_EQ(VerdictOf(chain), (Verdict{{0, 0, 0, 0}, 0}));
    EXPECT_TRUE(std::next(chain.m_elements.begin())->m_cert == hierarchy.Issue("Sub"));
}

TEST(Chain, SelfIssuedIsNotSelfSigned) {
    // A root's new key, certified by its old one: both are called Root.
    for (const bool named : {true, false}) {
        Hierarchy hierarchy;
        PlannedCert& renewed = hierarchy.AddCA("Renewed", "Root", Place::Extra);
        renewed.builder.subject = "Root";
        if (!named) renewed.builder.authorityKeyId.reset();
        hierarchy.Store();
        std::string path;
        EXPECT_EQ(Verify(hierarchy, "Renewed", nullptr, &path), (Verdict{{0, 0}, 0}));
        EXPECT_EQ(path, "Root Root");
    }
    // One that says it is its own issuer but is signed by another key is a root with a bad signature, and untrusted.
    Hierarchy hierarchy;
    PlannedCert& forged = hierarchy.AddCA("Forged", "Forged", Place::Extra);
    forged.signer = "Root";
    hierarchy.Store();
    EXPECT_EQ(Verify(hierarchy, "Forged"), (Verdict{{kSignature | kUntrusted}, kSignature | kUntrusted}));
}

TEST(Chain, CrossSignedAuthorities) {
    // CA has a certificate of Root, in the main storage, and one of Other, with the same key, in another storage.
    const auto cross = [](Hierarchy& h, Place crossPlace, Place otherRoot) {
        h.AddCA("Other", "Other", otherRoot);
        PlannedCert& crossed = h.AddCA("Crossed", "Other", crossPlace);
        crossed.builder.subject = "CA";
        crossed.builder.subjectKeyId = h.certs["CA"].builder.subjectKeyId;
        crossed.key = "CA";
        h.crls["Crossed"] = h.crls["CA"];
        h.crls["Crossed"].place = crossPlace;
    };
    const struct {
        Place place;
        const char* removed;
        Verdict verdict;
        const char* path;
    } cases[] = {
        {Place::Extra, "", {{0, 0, 0, 0}, 0}, "End Sub CA Root"},  // the main storage is asked first
        {Place::TrustList, "CA", {{0, 0, 0, 0}, 0}, "End Sub CA Other"},
        // The first storage with an issuer decides, also when its road leads nowhere: there is no second try.
        {Place::TrustList, "Root", {{0, 0, kAllFailed}, kAllFailed | kPartial}, "End Sub CA"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.path);
        Hierarchy hierarchy;
        cross(hierarchy, test.place, test.place);
        hierarchy.Remove(test.removed);
        hierarchy.Store();
        std::string path;
        EXPECT_EQ(Verify(hierarchy, "End", nullptr, &path), test.verdict);
        EXPECT_EQ(path, test.path);
    }
}

// --- Time ---

TEST(Chain, TimeAtTheBounds) {
    const struct {
        FILETIME notBefore, notAfter, now;
        std::int64_t ticks;  // added to now
        bool valid;
    } cases[] = {
        {At(2026, 3, 1), At(2027, 3, 1), At(2026, 3, 1), 0, true},
        {At(2026, 3, 1), At(2027, 3, 1), At(2026, 3, 1), -1, false},
        {At(2026, 3, 1), At(2027, 3, 1), At(2027, 3, 1), 0, true},
        {At(2026, 3, 1), At(2027, 3, 1), At(2027, 3, 1), 1, false},
        {At(2028, 2, 29), At(2028, 2, 29, 23, 59, 59), At(2028, 2, 29, 23, 59, 59), 0, true},
        {At(2028, 2, 29), At(2028, 2, 29, 23, 59, 59), At(2028, 3, 1), 0, false},
        {At(2049, 12, 31, 23, 59, 59), At(2050, 1, 1), At(2050, 1, 1), 0, true},
        {At(2050, 1, 1), At(2100, 3, 1), At(2100, 2, 28, 23, 59, 59), 0, true},  // 2100 is no leap year
        {At(1950, 1, 1), At(9999, 12, 31, 23, 59, 59), At(9999, 12, 31, 23, 59, 59), 0, true},
    };
    for (const auto& test : cases) {
        Hierarchy hierarchy;
        CertBuilder& root = hierarchy.certs["Root"].builder;
        root.notBefore = test.notBefore;
        root.notAfter = test.notAfter;
        hierarchy.Store();
        too_testing::SetClock(CTOOFileTime(CTOOFileTime(test.now).GetTicks() + static_cast<std::uint64_t>(test.ticks)));
        EXPECT_EQ(Verify(hierarchy, "Root"), (Verdict{{test.valid ? 0 : kTime}, test.valid ? 0 : kTime}))
            << CTOODateTime(CTOOFileTime(test.now)).ToString().c_str() << " " << test.ticks;
    }
}

// --- The checks that are put off ---

// What a search gives with signatures checked afterwards is what it gives with signatures checked at once.
TEST(SignatureMemo, ChangesNoAnswer) {
    for (unsigned seed = 0; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        Hierarchy hierarchy;
        unsigned random = seed * 2654435761U;
        const auto pick = [&](unsigned below) {
            random = random * 1664525U + 1013904223U;
            return (random >> 16) % below;
        };
        for (unsigned n = 0; n < 4; ++n) {
            PlannedCert& twin = hierarchy.AddCA("Twin" + std::to_string(n), "CA");
            twin.builder.subject = "Sub";
            twin.builder.serial = pick(2) != 0 ? hierarchy.certs["Sub"].builder.serial : twin.builder.serial;
            twin.builder.notAfter = Date(2027 + pick(3));
            twin.key = pick(2) != 0 ? "Sub" : "Stranger";
        }
        CertBuilder& end = hierarchy.certs["End"].builder;
        end.authorityKeyId.reset();
        if (pick(2) != 0) {
            // Named by serial: the candidates that have it are tried one by one.
            CNALIssuerPublicKeyID authority;
            authority.m_issuerSerial = hierarchy.certs["Sub"].builder.serial;
            std::reverse(authority.m_issuerSerial.GetData(), authority.m_issuerSerial.GetData() + 16);
            authority.m_issuer.emplace_back(CNALGeneralName::DirectoryName, NameDer("CA"));
            end.extensions.push_back({"2.5.29.35", false, authority.WriteData()});
        }
        hierarchy.certs["End"].signer = pick(4) != 0 ? "Sub" : "Nobody";
        hierarchy.Store();

        const CNALCertContext cert = hierarchy.Issue("End");
        CNALCertContext direct;
        CNALCertContext settled;
        unsigned directFlags = 7;
        unsigned settledFlags = 7;
        ASSERT_TRUE(m_VPN_TrustStorages.FindIssuerCertificate(cert, direct, &directFlags, nullptr));
        nal::SignatureMemo memo;
        do {
            settledFlags = 7;
            ASSERT_TRUE(m_VPN_TrustStorages.FindIssuerCertificate(cert, settled, &settledFlags, nullptr));
        } while (!memo.Settle());
        EXPECT_TRUE(direct == settled);
        EXPECT_EQ(directFlags, settledFlags);
        EXPECT_LE(memo.CountOfChecks(), 2U) << "there are two keys among the candidates";
    }
}

}  // namespace
