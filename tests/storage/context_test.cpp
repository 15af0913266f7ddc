// Context wrappers: what they own, and what they say of a certificate or a CRL.
#include "nal/context.h"

#include <gmock/gmock.h>

#include <functional>
#include <utility>

#include "certstorage/store_test.h"
#include "nal/certificate.h"
#include "ork/csp.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "support/test_signer.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

IdentObj Named(const std::string& subject) {
    CertBuilder builder;
    builder.subject = subject;
    return builder.Build();
}

TEST(CertContextWrapper, OrdersByLengthThenBytes) {
    const CNALCertContext none;
    const CNALCertContext first(Named("Alice"));
    const CNALCertContext twin(Named("Alice"));
    const CNALCertContext second(Named("Bobby"));
    const CNALCertContext longer(Named("Al the long one"));
    // In order; the first two of equal encoding.
    const std::vector<std::pair<const CNALCertContext*, int>> ranks = {{&none, 0}, {&first, 1}, {&twin, 1}, {&second, 2}, {&longer, 3}};
    for (const auto& [a, rankA] : ranks) {
        for (const auto& [b, rankB] : ranks) {
            EXPECT_EQ(*a == *b, rankA == rankB);
            EXPECT_EQ(*a < *b, rankA < rankB);
            EXPECT_EQ(*a > *b, rankA > rankB);
        }
    }
}

TEST(CertContextWrapper, OwnsOneReferenceWhateverIsDoneWithIt) {
    CNALCertContext cert(Named("A"));
    cert.m_status = 7;
    cert.m_storageType = 3;
    CNALCertContext copy(cert);
    EXPECT_EQ(copy.GetContext(), cert.GetContext());
    EXPECT_EQ(copy.m_status, 7);
    EXPECT_EQ(NALGetStorageType(copy), 3U);

    CNALCertContext moved(std::move(copy));
    EXPECT_FALSE(copy.IsInitialized());  // NOLINT(bugprone-use-after-move): empty is what it promises
    moved = moved.GetContext();
    EXPECT_EQ(moved.m_status, 7) << "the same pointer changes nothing";
    const CNALCertContext other(Named("B"));
    moved = other.GetContext();
    EXPECT_EQ(moved.m_status, -1);
    moved = std::as_const(moved);
    EXPECT_TRUE(moved == other);

    EXPECT_FALSE(moved.CreateContext(IdentObj()));
    EXPECT_FALSE(moved.IsInitialized());
    EXPECT_EQ(StatusOf([&] { moved.CreateContext(Filled(0x30, 10)); }), TOO_E_BAD_STRUCTURE);
    EXPECT_FALSE(moved.IsInitialized());
}

TEST(CertContextWrapper, EmptyAnswersEverythingWithAbsence) {
    CNALCertContext none;
    EXPECT_EQ(none.GetProviderInfo(), nullptr);
    EXPECT_EQ(none.GetPrivateKeyType(), NAL_UNKNOWN);
    EXPECT_EQ(none.GetProviderType(), NAL_UNKNOWN);
    EXPECT_EQ(none.GetCertificateType(), NAL_UNKNOWN);
    EXPECT_EQ(none.GetContainer(), "");
    EXPECT_FALSE(none.IsValidTime());
    EXPECT_TRUE(none.GetSubjectKeyId().IsEmpty());
    EXPECT_FALSE(none.IsValidSignature(none));
    EXPECT_FALSE(none.IsRevoced(CNALCRLContext()));
    EXPECT_FALSE(none.SetContainer("x"));
    EXPECT_EQ(CNALCRLContext().GetCheckStatus(), 42U);
}

TEST(CertContextWrapper, KeepsProviderInfoUntilItIsSet) {
    CNALCertContext cert(Named("A"));
    EXPECT_TRUE(cert.SetPrivateKeyType(AT_SIGNATURE));
    EXPECT_EQ(cert.GetPrivateKeyType(), static_cast<unsigned>(AT_SIGNATURE));
    EXPECT_EQ(cert.GetContainer(), "");
    EXPECT_EQ(cert.GetProviderInfo(), cert.GetProviderInfo());

    CNALCertContext copy(cert);
    EXPECT_TRUE(cert.SetContainer("/keys/ключ"));
    EXPECT_EQ(cert.GetContainer(), "/keys/ключ");
    EXPECT_EQ(cert.GetPrivateKeyType(), static_cast<unsigned>(AT_SIGNATURE)) << "the other fields stay";
    EXPECT_EQ(copy.GetContainer(), "") << "a copy holds what it read";
    copy = cert;
    EXPECT_EQ(copy.GetContainer(), "") << "assignment of the same context keeps what it read";
    EXPECT_EQ(CNALCertContext(cert).GetContainer(), "/keys/ключ");
}

TEST(CertContextWrapper, ValidAtBothEnds) {
    CertBuilder builder;
    const std::uint64_t begin = CTOOFileTime(builder.notBefore).GetTicks();
    const std::uint64_t end = CTOOFileTime(builder.notAfter).GetTicks();
    for (const unsigned keyIdSize : {20U, 8U}) {  // a store leaves the CERT_INFO of the second one empty
        builder.subjectKeyId = Filled(1, keyIdSize);
        const CNALCertContext cert(builder.Build());
        for (const auto& [ticks, valid] : {std::pair{begin - 1, false}, {begin, true}, {end, true}, {end + 1, false}}) {
            const CTOOFileTime time(ticks);
            EXPECT_EQ(cert.IsValidTime(&time), valid) << time;
            const too_testing::ScopedClock clock(time);
            EXPECT_EQ(cert.IsValidTime(), valid) << time;
        }
    }
}

TEST(CertContextWrapper, TypeIsByConstraintsThenNames) {
    const BuiltExtension ca{"2.5.29.19", true, FromHexText("30030101FF")};
    const BuiltExtension notCa{"2.5.29.19", true, FromHexText("3000")};
    const BuiltExtension oldCa{"2.5.29.10", true, FromHexText("300403020780")};
    const BuiltExtension damaged{"2.5.29.19", true, FromHexText("0500")};
    const struct {
        std::vector<BuiltExtension> extensions;
        bool selfIssued;
        unsigned type;
    } cases[] = {{{}, true, 1},      {{ca}, true, 3},     {{ca}, false, 2},        {{notCa}, true, 1},
                 {{oldCa}, true, 3}, {{oldCa}, false, 2}, {{notCa, oldCa}, true, 1}, {{damaged, oldCa}, true, 1}};
    for (const auto& each : cases) {
        CertBuilder builder;
        builder.extensions = each.extensions;
        if (each.selfIssued) builder.subject = builder.issuer;
        EXPECT_EQ(CNALCertContext(builder.Build()).GetCertificateType(), each.type) << &each - cases;
    }
}

TEST(CertContextWrapper, SubjectKeyIdIsTheExtensionOrComputed) {
    CertBuilder builder;
    builder.subjectKeyId = Filled(9, 25);
    EXPECT_EQ(CNALCertContext(builder.Build()).GetSubjectKeyId(), Filled(9, 25));
    for (const auto& id : {std::optional<IdentObj>(), std::optional<IdentObj>(IdentObj())}) {
        builder.subjectKeyId = id;
        IdentObj computed = FromHexText("0440");
        computed.Append(Filled(0x5A, 18).GetData(), 18);
        EXPECT_EQ(CNALCertContext(builder.Build()).GetSubjectKeyId(), computed);
    }
}

TEST(CertContextWrapper, SignatureHoldsUnderTheIssuersKeyAlone) {
    const TestSigner root;
    const TestSigner stranger;
    CertBuilder builder;
    builder.subject = builder.issuer;
    const CNALCertContext rootCert(root.Issue(builder, root));
    const CNALCertContext strangeCert(stranger.Issue(builder, stranger));
    builder.subject = "Leaf";
    const IdentObj leaf = root.Issue(builder, stranger);
    EXPECT_TRUE(CNALCertContext(leaf).IsValidSignature(rootCert));
    EXPECT_TRUE(rootCert.IsValidSignature(rootCert));
    EXPECT_FALSE(CNALCertContext(leaf).IsValidSignature(strangeCert));
    EXPECT_FALSE(CNALCertContext(leaf).IsValidSignature(CNALCertContext()));

    // No bit of it may change: each change is no certificate, or one whose signature does not hold.
    for (unsigned place = 0; place < leaf.GetSize(); place += 5) {
        IdentObj changed = leaf;
        changed.GetData()[place] ^= 0x10;
        bool holds = false;
        StatusOf([&] { holds = CNALCertContext(changed).IsValidSignature(rootCert) != FALSE; });
        EXPECT_FALSE(holds) << place;
    }
}

TEST(CertContextWrapper, OtherAlgorithmsAreNotSupported) {
    const std::string gost = TextOf(FromHexText("06062A8503020203"));
    std::string changed = TextOf(CertBuilder().Build());
    for (auto i = changed.find(gost); i != std::string::npos; i = changed.find(gost)) changed[i + 7] = 0x63;  // no algorithm
    const CNALCertContext cert(FromText(changed));
    EXPECT_EQ(ErrorOf([&] { return cert.IsValidSignature(cert); }), kNotSupported);
}

TEST(CertContextWrapper, ListedSerialIsRevoked) {
    CertBuilder builder;
    builder.serial = FromHexText("01020304");
    const CNALCertContext cert(builder.Build());
    const struct {
        std::vector<const char*> listed;
        bool revoked;
    } cases[] = {{{}, false}, {{"01020304"}, true}, {{"04030201"}, false}, {{"020304", "0102030405"}, false}, {{"05", "01020304"}, true}};
    for (const auto& each : cases) {
        CrlBuilder crl;
        for (const char* serial : each.listed) crl.entries.push_back({FromHexText(serial)});
        EXPECT_EQ(cert.IsRevoced(CNALCRLContext(crl.Build())), each.revoked) << &each - cases;
    }
}

TEST(CrlContextWrapper, ExpiresOnceAndForAll) {
    const CNALCRLContext crl(CrlBuilder().Build());
    {
        const too_testing::ScopedClock clock(Date(2031));
        EXPECT_EQ(crl.GetCheckStatus(), 0U) << "NextUpdate itself is in time";
        too_testing::AdvanceClock(1);
        EXPECT_EQ(crl.GetCheckStatus(), 223U);
    }
    const too_testing::ScopedClock clock(Date(2022));
    CNALCRLContext again(crl);
    EXPECT_EQ(again.GetCheckStatus(), 223U);
    again = crl.GetContext();
    EXPECT_EQ(again.GetCheckStatus(), 0U) << "a context taken up anew is not judged yet";
}

TEST(CrlContextWrapper, RefusesWhatNoStoreCanKey) {
    CrlBuilder bad[4];
    bad[0].number = Filled(1, 17);
    bad[1].number.reset();
    bad[2].authorityKeyId.reset();
    bad[3].authorityKeyId = Filled(1, 19);
    for (const CrlBuilder& builder : bad) EXPECT_NE(StatusOf([&] { const CNALCRLContext crl(builder.Build()); }), TOO_OK);
    CrlBuilder good;
    good.number = FromHexText("0102");
    IdentObj serial = Filled(0, 16);
    serial.GetData()[0] = 2;
    serial.GetData()[1] = 1;
    CNALCRLContext crl(good.Build());
    EXPECT_EQ(crl.GetSerialNumber(), serial);
    crl.m_name = "name";
    crl.m_data = serial;
    const CNALCRLContext copy = crl;
    EXPECT_TRUE(copy == crl && copy == CNALCRLContext(good.Build()) && copy != CNALCRLContext());
    EXPECT_EQ(copy.m_name, "name");
    EXPECT_EQ(copy.m_data, serial);
}

TEST(Provider, OpensSharesAndGivesUp) {
    CNALProvider provider;
    EXPECT_EQ(provider.GetProviderHandle(), 0U);
    int error = -1;
    EXPECT_TRUE(provider.Init(nullptr, nullptr, 0, ORK_OPEN_VERIFY, &error));
    EXPECT_EQ(error, 0);
    EXPECT_FALSE(provider.CanChangePassword()) << "no container, no password";
    CNALProvider copy(provider);
    const unsigned long handle = provider.GetProviderHandle();
    provider.Reset();
    unsigned char byte = 0;
    EXPECT_TRUE(ORKGenRandom(copy.GetProviderHandle(), 1, &byte)) << "still held by the copy";
    EXPECT_EQ(copy.GetProviderHandle(), handle);
    copy = provider;
    EXPECT_FALSE(ORKGenRandom(handle, 1, &byte));

    EXPECT_FALSE(provider.Init(nullptr, "Another Provider", 0, ORK_OPEN_VERIFY, &error));
    EXPECT_EQ(error, TOO_E_NO_PROVIDER);
    EXPECT_EQ(StatusOf([&] { provider.Init("none", nullptr, 77, 0, nullptr); }), TOO_E_NO_PROVIDER);
}

// What a password protects is the provider's to test.
TEST(Provider, ChangesThePasswordOfAContainer) {
    const TempFolder folder;
    int error = 0;
    CNALProvider provider;
    ASSERT_TRUE(provider.Init(folder.File("keys").c_str(), nullptr, 0, ORK_OPEN_NEW, &error));
    ASSERT_TRUE(provider.SetPassword("first"));
    nal::KeyHandle key;
    ASSERT_TRUE(ORKGenKey(provider.GetProviderHandle(), ORK_KEY_SIGNATURE, 0, key.Receive()));
    EXPECT_TRUE(provider.CanChangePassword());
    const struct {
        const char *password, *next;
        int error;
    } cases[] = {{"wrong", "second", TOO_E_WRONG_PASSWORD}, {"first", nullptr, TOO_E_BAD_ARGUMENT}, {"first", "second", 0},
                 {"first", "third", TOO_E_WRONG_PASSWORD},  {"second", "third", 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        provider.SetPassword(c.password);
        EXPECT_EQ(provider.ChangePassword(c.next, &error) != FALSE, c.error == 0);
        EXPECT_EQ(error, c.error);
    }
    EXPECT_EQ(StatusOf([] { CNALProvider().ChangePassword("x", nullptr); }), TOO_E_NOT_INITIALIZED);
}

TEST(SupportedHashes, FollowTheKey) {
    const std::list<CTOOString> usual = {c_NAL_OID_HASH_GOST94};
    EXPECT_EQ(NALGetSupportedHashOIDS(nullptr), usual);
    const CNALCertContext none;
    EXPECT_EQ(NALGetSupportedHashOIDS(&none), usual);

    const auto withKey = [](const char* oid) {
        CertBuilder builder;
        CNALCertPublicKeyInfo key;
        key.m_algorithm.m_algorithm = IdentObj(oid, static_cast<unsigned>(std::strlen(oid)));
        key.m_publicKey.m_data = Filled(1, 64);
        builder.publicKeyInfo = key.WriteData();
        return CNALCertContext(builder.Build());
    };
    for (const auto& [key, hash] : {std::pair{c_NAL_OID_KEY_GOST94, c_NAL_OID_HASH_GOST94},
                                    {c_NAL_OID_KEY_GOST2001, c_NAL_OID_HASH_GOST94},
                                    {c_NAL_OID_KEY_PRIVATE, c_NAL_OID_HASH_PRIVATE}}) {
        const CNALCertContext cert = withKey(key);
        EXPECT_EQ(NALGetSupportedHashOIDS(&cert), std::list<CTOOString>{hash}) << key;
    }
    // Any other key: what its provider offers. Type 1 is nobody's, so without provider info there is nothing.
    CNALCertContext other = withKey(c_NAL_OID_DH_GOST2001);
    EXPECT_TRUE(NALGetSupportedHashOIDS(&other).empty());
    CRYPT_KEY_PROV_INFO info{};
    info.dwProvType = ORK_PROVIDER_TYPE;
    ASSERT_TRUE(other.CNALSetContextProperty(CERT_KEY_PROV_INFO_PROP_ID, 0, &info));
    EXPECT_THAT(NALGetSupportedHashOIDS(&other), testing::UnorderedElementsAre(c_NAL_OID_HASH_GOST94, c_NAL_OID_HASH_PRIVATE));
}

}  // namespace
