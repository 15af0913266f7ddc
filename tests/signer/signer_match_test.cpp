// Which certificate a signer info names.
#include "model/name_key.h"
#include "signer/signing_test.h"
#include "support/cert_builder.h"
#include "support/certificate_parts.h"

namespace {

using nal_test::CertBuilder;
using nal_test::Filled;

CNALMessageSignerInfo Named(const IdentObj& name, const IdentObj& serial, const char* hash = c_NAL_OID_HASH_GOST94) {
    CNALMessageSignerInfo signer;
    signer.issuer = CNALX509Name(name);
    signer.serialNumber = serial;
    signer.digestAlgorithm.m_algorithm = nal_test::FromText(hash);
    return signer;
}

CNALMessageSignerInfo WithKeyId(const IdentObj& keyId) {
    CNALMessageSignerInfo signer;
    signer.subjectKeyIdentifier = keyId;
    return signer;
}

/// A common name of six letters as PrintableString.
IdentObj PrintableName(const std::string& text) {
    return nal_test::FromHexText("3011 310F 300D 0603550403 1306" + nal_test::ToHex(text));
}

TEST(SignerMatch, OneRuleForEveryForm) {
    CertBuilder builder;
    builder.serial = Filled(0x21, 3);
    builder.serial.GetData()[0] = 0x01;
    builder.issuer = "Issuer";
    builder.subject = "Subject";
    builder.subjectKeyId = Filled(5);
    const CNALCertContext cert(builder.Build());
    CertBuilder odd = builder;
    odd.subjectKeyId = Filled(5, 7);  // no store can key it, so its context has no decoded fields
    const CNALCertContext oddCert(odd.Build());
    const IdentObj issuer = nal_test::NameDer("Issuer");
    const IdentObj subject = nal_test::NameDer("Subject");
    const IdentObj damaged = nal_test::FromText("\x30\x02\x31\x05");
    const struct {
        const char* name;
        CNALMessageSignerInfo signer;
        bool fits;
    } cases[] = {
        {"issuer and serial", Named(issuer, builder.serial), true},
        {"name in another string type", Named(PrintableName("Issuer"), builder.serial), true},
        {"serial turned", Named(issuer, Filled(0x21, 3)), false},
        {"longer serial", Named(issuer, Filled(0x21, 4)), false},
        {"another issuer", Named(PrintableName("issuer"), builder.serial), false},
        {"subject", Named(subject, builder.serial), false},
        {"subject with the private hash", Named(subject, builder.serial, c_NAL_OID_HASH_PRIVATE), true},
        {"issuer with the private hash", Named(issuer, builder.serial, c_NAL_OID_HASH_PRIVATE), true},
        {"damaged name", Named(damaged, builder.serial), false},
        {"nothing", CNALMessageSignerInfo(), false},
        {"another key identifier", WithKeyId(Filled(6)), false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(test.fits, nal::IsSignerOf(cert, test.signer)) << test.name;
        EXPECT_EQ(test.fits, nal::IsSignerOf(oddCert, test.signer)) << test.name;
        nal::SignerCandidates candidates;
        candidates.Add(cert);
        EXPECT_EQ(test.fits ? 1U : 0U, candidates.Find(test.signer).size()) << test.name;
    }
    EXPECT_TRUE(nal::IsSignerOf(cert, WithKeyId(Filled(5))));
    EXPECT_FALSE(nal::IsSignerOf(oddCert, WithKeyId(Filled(5))));
    EXPECT_TRUE(nal::IsSignerOf(oddCert, WithKeyId(Filled(5, 7))));
    EXPECT_FALSE(nal::IsSignerOf(CNALCertContext(), cases[0].signer));
}

TEST(SignerMatch, CandidatesComeInTheirOrderAndOnce) {
    nal::SignerCandidates candidates;
    std::list<IdentObj> certs;
    for (unsigned char i = 1; i < 100; ++i) {
        CertBuilder builder;
        builder.serial = Filled(static_cast<unsigned char>(i / 2), 1);  // two by two of one issuer and serial number
        builder.subjectKeyId = Filled(i);
        certs.push_back(builder.Build());
    }
    certs.push_back(certs.front());
    certs.push_back(nal_test::FromText("no certificate"));
    candidates.AddAll(certs);
    const auto found = candidates.Find(Named(nal_test::NameDer("Issuer"), Filled(7, 1)));
    ASSERT_EQ(2U, found.size());
    EXPECT_EQ(Filled(14), found[0].GetSubjectKeyId());
    EXPECT_EQ(Filled(15), found[1].GetSubjectKeyId());
    EXPECT_EQ(1U, candidates.Find(WithKeyId(Filled(1))).size());
}

}  // namespace
