// What the issuing library makes is what a profile asks for, and verifies.
#include <gtest/gtest.h>

#include <functional>
#include <set>
#include <string>

#include "keycentre/issuer.h"
#include "keycentre/lists.h"
#include "nal/crl.h"
#include "nal/sign.h"
#include "nal/signed_data.h"
#include "nal/storage.h"
#include "support/authority.h"
#include "support/cert_builder.h"
#include "support/status_of.h"
#include "too/testing.h"

namespace {

using keycentre::AuthorityKey;
using keycentre::Constraints;
using keycentre::Issuer;
using keycentre::Profile;
using nal_test::Date;
using nal_test::Filled;

CNALCertInfo Decode(const IdentObj& der) {
    CNALX509Certificate certificate;
    certificate.DecodeCert(der);
    return certificate.m_info;
}

class Issuing : public testing::Test {
protected:
    Issuing() : m_clock(Date(2026, 3, 15)) {}

    CNALCertInfo Certified(const Profile& profile) { return Decode(m_authority.root.Certify(keycentre::Name("CN=U"), Key(), profile)); }
    const CNALCertPublicKeyInfo& Key() const { return m_key.GetPublicKey(); }

    too_testing::ScopedClock m_clock;
    nal_test::Authority m_authority;
    keycentre::KeyPair m_key = m_authority.NewKey();
};

TEST_F(Issuing, AChainVerifiesWithItsCrls) {
    const Issuer ca = m_authority.root.CertifyIssuer(m_authority.NewKey(), keycentre::Name("CN=CA, C=RU"), keycentre::CaProfile());
    const CNALCertContext root = m_authority.root.GetContext();
    const CNALCertContext user(ca.Certify(keycentre::Name("CN=Иван"), Key(), keycentre::SignatureProfile()));
    const CNALCertContext revoked(ca.Certify(keycentre::Name("CN=Пётр"), m_authority.NewKey().GetPublicKey(), keycentre::ExchangeProfile()));
    EXPECT_TRUE(root.IsValidSignature(root));
    EXPECT_TRUE(ca.GetContext().IsValidSignature(root));
    EXPECT_TRUE(user.IsValidSignature(ca.GetContext()));
    EXPECT_FALSE(user.IsValidSignature(root));
    EXPECT_EQ(root.GetCertificateType(), static_cast<unsigned>(NAL_CERT_TYPE_ROOT));
    EXPECT_EQ(ca.GetContext().GetCertificateType(), static_cast<unsigned>(NAL_CERT_TYPE_CA));
    EXPECT_EQ(user.GetCertificateType(), static_cast<unsigned>(NAL_CERT_TYPE_END));

    keycentre::CrlProfile crl;
    crl.revoked = {{CNALCertInfo(*revoked.GetContext()).m_serialNumber, Date(2026, 3, 1), 1}};
    CNALCertStorage storage;
    CNALString memory("memory");
    ASSERT_TRUE(storage.OpenStorage(memory, reinterpret_cast<const char*>(2), 0, 0, nullptr));
    ASSERT_TRUE(storage.AddCertificate(ca.GetContext()));
    ASSERT_TRUE(storage.AddEncodetCRL(ca.MakeCrl(crl), 1));
    for (const bool isRevoked : {false, true}) {
        CNALCertContext issuer;
        CNALCRLContext found;
        ASSERT_TRUE(storage.FindIssuerCertificate(isRevoked ? revoked : user, issuer, nullptr, &found));
        EXPECT_EQ(issuer, ca.GetContext());
        ASSERT_TRUE(found.IsInitialized());
        EXPECT_EQ((isRevoked ? revoked : user).IsRevoced(found), isRevoked);
    }
}

TEST_F(Issuing, ExtensionsSayWhatTheProfileSays) {
    struct Case {
        const char* name;
        std::function<void(Profile&)> set;
        std::function<bool(const CNALCertInfo&, const Issuer&)> holds;
    };
    const auto has = [](const CNALCertInfo& info, const char* oid) { return info.m_extensions.FindExtension(oid) != nullptr; };
    const std::vector<Case> cases = {
        {"new constraints", [](Profile& p) { p.constraints = Constraints::New; p.isCa = true; p.pathLength = 3; },
         [](const CNALCertInfo& info, const Issuer&) {
             CNALBasicConstraints value;
             return value.ReadFrom(info.m_extensions, c_NAL_OID_BASIC_CONSTRAINTS) && value.m_isCA && value.m_pathLength == 3;
         }},
        {"old constraints", [](Profile& p) { p.constraints = Constraints::Old; p.isCa = true; },
         [](const CNALCertInfo& info, const Issuer&) {
             CNALOldBasicConstraints value;
             return value.ReadFrom(info.m_extensions, c_NAL_OID_OLD_BASIC_CONSTRAINTS) && value.IsCA() && !value.m_hasPathLength;
         }},
        {"both, of no CA", [](Profile& p) { p.constraints = Constraints::Both; },
         [](const CNALCertInfo& info, const Issuer&) {
             CNALBasicConstraints value;
             CNALOldBasicConstraints old;
             return value.ReadFrom(info.m_extensions, c_NAL_OID_BASIC_CONSTRAINTS) && !value.m_isCA &&
                    old.ReadFrom(info.m_extensions, c_NAL_OID_OLD_BASIC_CONSTRAINTS) && !old.IsCA();
         }},
        {"a long key identifier", [](Profile& p) { p.subjectKeyId = Filled(7, 32); },
         [](const CNALCertInfo& info, const Issuer&) {
             CNALSubjectKeyID value;
             return value.ReadFrom(info.m_extensions, c_NAL_OID_SUBJECT_KEY_ID) && value.m_keyId == Filled(7, 32);
         }},
        {"no key identifiers", [](Profile& p) { p.omitSubjectKeyId = true; p.authorityKey = AuthorityKey::None; },
         [&](const CNALCertInfo& info, const Issuer&) {
             return !has(info, c_NAL_OID_SUBJECT_KEY_ID) && !has(info, c_NAL_OID_AUTHORITY_KEY_ID);
         }},
        {"the old authority key identifier", [](Profile& p) { p.authorityKey = AuthorityKey::Old; },
         [](const CNALCertInfo& info, const Issuer& root) {
             CNALIssuerPublicKeyID value;
             return value.ReadFrom(info.m_extensions) && value.GetKeyID() == root.GetKeyId() && value.m_oldForm &&
                    value.GetIssuerName() == root.GetName() && value.GetIssuerSerial() == root.GetInfo().m_serialNumber;
         }},
        {"usages", [](Profile& p) { p.keyUsage = CNALKeyUsage::KeyEncipherment; p.extendedUsage = {c_NAL_OID_TRUST_LIST_SIGNING}; },
         [](const CNALCertInfo& info, const Issuer&) {
             CNALKeyUsage usage;
             CNALExtendedKeyUsage extended;
             return usage.ReadFrom(info.m_extensions, c_NAL_OID_KEY_USAGE) && usage.GetFlags() == CNALKeyUsage::KeyEncipherment &&
                    extended.ReadFrom(info.m_extensions, c_NAL_OID_EXTENDED_KEY_USAGE) && extended.Contains(c_NAL_OID_TRUST_LIST_SIGNING);
         }},
        {"the private key's period", [](Profile& p) { p.privateKeyUsage = keycentre::Period{std::nullopt, Date(2026, 5)}; },
         [](const CNALCertInfo& info, const Issuer&) {
             CKeyUsagePeriod value;
             return value.ReadFrom(info.m_extensions, c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD) && !value.m_hasNotBefore &&
                    CTOOFileTime(value.m_notAfter) == Date(2026, 5);
         }},
        {"old alternative names",
         [](Profile& p) { p.oldAltNames = true; p.subjectAltNames = {CNALGeneralName(CNALGeneralName::DnsName, Filled('a', 3))}; },
         [](const CNALCertInfo& info, const Issuer&) {
             CNALAlternativeNames value;
             return value.ReadFrom(info.m_extensions, c_NAL_OID_OLD_SUBJECT_ALT_NAME) && value.m_names.size() == 1;
         }},
        {"CRL point and policy", [](Profile& p) { p.crlUris = {"http://x/r.crl"}; p.policies = {"1.2.3"}; },
         [&](const CNALCertInfo& info, const Issuer&) {
             CNALCRLDistributionPoints points;
             return points.ReadFrom(info.m_extensions, c_NAL_OID_CRL_DISTRIBUTION_POINTS) && has(info, c_NAL_OID_CERTIFICATE_POLICIES);
         }},
        {"an extension of its own", [](Profile& p) { p.keyUsage = 4; p.extensions.Add({c_NAL_OID_KEY_USAGE, false, Filled(0, 2)}); },
         [](const CNALCertInfo& info, const Issuer&) {
             const CNALCertExtension* usage = info.m_extensions.FindExtension(c_NAL_OID_KEY_USAGE);
             return usage != nullptr && usage->m_value == Filled(0, 2) && info.m_extensions.size() == 3;
         }},
    };
    for (const Case& c : cases) {
        Profile profile;
        c.set(profile);
        EXPECT_TRUE(c.holds(Certified(profile), m_authority.root)) << c.name;
    }
}

TEST_F(Issuing, ValidityAndSerialAreTheProfiles) {
    Profile profile;
    profile.notBefore = Date(2025, 1, 31);
    profile.months = 1;
    CNALCertInfo info = Certified(profile);
    EXPECT_EQ(CTOOFileTime(info.m_notBefore), Date(2025, 1, 31));
    EXPECT_EQ(CTOOFileTime(info.m_notAfter), Date(2025, 2, 28));
    profile.notBefore.reset();
    profile.notAfter = Date(2060);
    profile.serial = Filled(5, 9);
    info = Certified(profile);
    EXPECT_EQ(CTOOFileTime(info.m_notBefore), Date(2026, 3, 15));
    EXPECT_EQ(CTOOFileTime(info.m_notAfter), Date(2060));
    EXPECT_EQ(info.m_serialNumber, Filled(5, 9));

    std::set<std::string> serials;
    for (int i = 0; i < 300; ++i) {
        const IdentObj serial = keycentre::MakeSerial(0x12ab, 7);
        ASSERT_EQ(serial.GetSize(), 16U);
        const unsigned char* bytes = serial.GetData();
        EXPECT_TRUE(bytes[2] == 0xab && bytes[3] == 0x12 && bytes[4] == 7 && bytes[15] >= 1 && bytes[15] <= 0x7F);
        serials.emplace(reinterpret_cast<const char*>(bytes), 16);
    }
    EXPECT_EQ(serials.size(), 300U);
}

TEST_F(Issuing, CrlNumbersRiseAndKeepSixteenOctets) {
    const auto& serial = m_authority.root.GetInfo().m_serialNumber;
    IdentObj last;
    for (const std::uint64_t counter : {std::uint64_t{0}, std::uint64_t{1}, std::uint64_t{255}, std::uint64_t{256}, ~std::uint64_t{0}}) {
        keycentre::CrlProfile profile;
        profile.counter = counter;
        const IdentObj der = m_authority.root.MakeCrl(profile);
        CNAL_CRL_List crl;
        ASSERT_EQ(crl.ReadData(der.GetData(), der.GetSize()), der.GetSize());
        const IdentObj number = NALCheckCRLKey(crl.m_info).m_crlSerial;
        EXPECT_EQ(std::memcmp(number.GetData(), serial.GetData(), 4), 0);
        const IdentObj reversed = [&] {
            IdentObj turned(nullptr, 16);
            for (unsigned i = 0; i < 16; ++i)
                turned.GetData()[i] = number.GetData()[15 - i];
            return turned;
        }();
        EXPECT_TRUE(last < reversed) << counter;
        last = reversed;
    }
    keycentre::CrlProfile bare;
    bare.omitNumber = bare.omitAuthorityKeyId = true;
    bare.days = 0;
    const IdentObj der = m_authority.root.MakeCrl(bare);
    CNAL_CRL_List crl;
    crl.ReadData(der.GetData(), der.GetSize());
    EXPECT_TRUE(crl.m_info.m_extensions.empty());
    EXPECT_TRUE(CTOOFileTime(crl.m_info.m_nextUpdate).IsZero());
}

TEST_F(Issuing, EveryKindOfKeyCertifiesAndIsCertified) {
    for (const DWORD algId : {ORK_ALG_GOST2001_SIGN, ORK_ALG_GOST94_SIGN, ORK_ALG_GOST2001_EXCHANGE}) {
        const Issuer issuer = Issuer::SelfSigned(m_authority.NewKey(algId), keycentre::Name("CN=R"), keycentre::RootProfile());
        EXPECT_TRUE(issuer.GetContext().IsValidSignature(issuer.GetContext())) << algId;
        const IdentObj request = keycentre::MakeRequest(issuer.GetKeyPair(), keycentre::Name("CN=R"));
        CNALPKCS10Request read;
        ASSERT_EQ(read.ReadData(request.GetData(), request.GetSize()), request.GetSize());
        EXPECT_EQ(read.CheckSignature(issuer.GetKeyPair().GetProvider(), nullptr), 1) << algId;
        EXPECT_TRUE(CNALCertContext(m_authority.root.Certify(read, {})).IsValidSignature(m_authority.root.GetContext())) << algId;
    }
}

TEST_F(Issuing, AKeyIsReopenedWithItsPasswordOnly) {
    const std::string file = m_authority.Folder().File("locked");
    const IdentObj certificate = [&] {
        const Issuer issuer = Issuer::SelfSigned(keycentre::KeyPair::Create(file, "secret"), keycentre::Name("CN=L"), keycentre::RootProfile());
        return issuer.GetCertificate();
    }();
    EXPECT_EQ(Issuer(keycentre::KeyPair::Open(file, "secret"), certificate).GetCertificate(), certificate);
    EXPECT_EQ(nal_test::StatusOf([&] { keycentre::KeyPair::Open(file, "Secret"); }), TOO_E_WRONG_PASSWORD);
    EXPECT_EQ(nal_test::StatusOf([&] { keycentre::KeyPair::Open(file, ""); }), TOO_E_WRONG_PASSWORD);
    EXPECT_EQ(nal_test::StatusOf([&] { keycentre::KeyPair::Create(file, ""); }), TOO_E_CONTAINER_EXISTS);
    EXPECT_EQ(nal_test::StatusOf([&] { Issuer(m_authority.NewKey(), certificate); }), TOO_E_CERT_REFUSED);
    EXPECT_EQ(nal_test::StatusOf([] { keycentre::Name("CN=,O"); }), TOO_E_NAME_ENCODE);
}

}  // namespace
