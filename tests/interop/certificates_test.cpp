// Certificates issued by OpenSSL with the GOST engine and by GnuTLS: what the model reads is what those tools print.
#include "interop/tools.h"
#include "model/provider_handles.h"
#include "nal/certificate.h"
#include "nal/context.h"
#include "nal/signed_envelope.h"
#include "ork/provider.h"
#include "too/text.h"
#include "too/time.h"

namespace {

using testing::HasSubstr;

// "A0:5D:..." as both tools print key identifiers, in the case that the caller wants.
std::string Hex(const IdentObj& bytes, const char* separator) {
    const std::string plain = TOOBin2Hex(bytes).str();
    std::string text;
    for (std::size_t i = 0; i < plain.size(); i += 2) {
        if (i != 0) text += separator;
        text += plain.substr(i, 2);
    }
    return text;
}

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string TimeText(const FILETIME& time) {
    return CTOODateTime(CTOOFileTime(time)).ToString().str();
}

std::string TextOf(const CNALGeneralName* name) {
    if (name == nullptr) return "none";
    return {reinterpret_cast<const char*>(name->m_value.GetData()), name->m_value.GetSize()};
}

template <class Value>
Value Read(const CNALCertInfo& info, const char* oid) {
    Value value;
    EXPECT_TRUE(value.ReadFrom(info.m_extensions, oid)) << oid;
    return value;
}

class Certificates : public nal_test::ToolTest<> {
protected:
    CNALX509Certificate ReadCertificate(const std::string& name) const {
        const IdentObj der = Get(name);
        CNALX509Certificate certificate;
        EXPECT_EQ(certificate.ReadEncodetData(der.GetData(), der.GetSize()), der.GetSize());
        return certificate;
    }
    CNALCertContext ContextOf(const std::string& name) const { return CNALCertContext(Get(name)); }

    std::string Print(const std::string& name, const std::string& options) const {
        return Sh("openssl x509 -inform DER -noout -in " + name + " " + options);
    }
};

// Whether the provider verifies the certificate's signature under the issuer's key.
bool Verifies(const CNALX509Certificate& certificate, const CNALCertPublicKeyInfo& issuerKey) {
    nal::ContextHandle provider;
    EXPECT_TRUE(ORKAcquireContext(provider.Receive(), nullptr, nullptr, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY));
    int err = -1;
    const bool verifies = NALCheckSignature(provider.Get(), certificate.m_signedPart, certificate.m_signatureAlgorithm,
                                            certificate.m_signature, issuerKey, &err) != 0;
    EXPECT_EQ(err, verifies ? TOO_OK : TOO_E_BAD_SIGNATURE);
    return verifies;
}

class OpenSslCertificates : public Certificates, public testing::WithParamInterface<const char*> {};

constexpr char c_leaf[] = R"([leaf]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid,issuer:always
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature,keyAgreement,decipherOnly
extendedKeyUsage = clientAuth,1.3.6.1.4.1.311.10.3.1
subjectAltName = email:bender@example.org,DNS:host.example.org,URI:urn:x,IP:10.1.2.3,RID:1.2.3.4,otherName:1.2.3.5;UTF8:other
crlDistributionPoints = point
certificatePolicies = 1.2.643.100.113.1,@policy
[point]
fullname = URI:http://ca.example.org/root.crl
reasons = keyCompromise,CACompromise
[policy]
policyIdentifier = 1.2.3.6
CPS.1 = http://ca.example.org/policy
)";

TEST_P(OpenSslCertificates, FieldsAreWhatItPrints) {
    Put("openssl.cnf", std::string(nal_test::c_openSslConfig) + c_leaf);
    Issue("root", "root", "", "-set_serial 0xF102030405060708090A0B0C0D0E0F10", GetParam(), "/C=RU/O=ОАО «Доверие»/CN=Корень");
    Issue("leaf", "leaf", "root", "-set_serial 0x0102 -days 20000", GetParam(), "/CN=Бендер");

    for (const char* name : {"root", "leaf"}) {
        SCOPED_TRACE(name);
        const CNALX509Certificate certificate = ReadCertificate(name);
        const CNALCertInfo& info = certificate.m_info;
        EXPECT_EQ(info.m_version, DWORD{CERT_V3});
        EXPECT_EQ(certificate.m_signatureAlgorithm.GetID(), c_NAL_OID_SIGN_GOST2001);
        EXPECT_EQ(certificate.m_signature.m_data.GetSize(), 64u);
        EXPECT_EQ(info.m_publicKeyInfo.GetKeyLength(), 512u);

        // A leading zero octet keeps the serial number positive; the tool does not print it.
        std::string serial = Serial2TOOStr(info.m_serialNumber, false).str();
        if (serial.compare(0, 2, "00") == 0) serial.erase(0, 2);
        EXPECT_EQ(Print(name, "-serial"), "serial=" + serial + "\n");
        EXPECT_EQ(Print(name, "-startdate -enddate -dateopt iso_8601"),
                  "notBefore=" + TimeText(info.m_notBefore) + "Z\nnotAfter=" + TimeText(info.m_notAfter) + "Z\n");

        IdentObj key;
        const std::string pem = Print(name, "-pubkey");
        const std::size_t begin = pem.find('\n') + 1;
        const std::size_t end = pem.find("-----END");
        ASSERT_LT(begin, end);
        ASSERT_TRUE(TOO_MIMEBase64Decode(pem.data() + begin, end - begin, key));
        EXPECT_EQ(info.m_publicKeyInfo.WriteData(), key);

        const auto subjectKey = Read<CNALSubjectKeyID>(info, c_NAL_OID_SUBJECT_KEY_ID);
        EXPECT_THAT(Print(name, "-ext subjectKeyIdentifier"), HasSubstr("    " + Hex(subjectKey.m_keyId, ":") + "\n"));

        const CNALCertPublicKeyInfo issuerKey = ReadCertificate("root").m_info.m_publicKeyInfo;
        EXPECT_TRUE(Verifies(certificate, issuerKey));
        CNALX509Certificate changed = certificate;
        changed.m_signedPart.GetData()[20] ^= 1;
        EXPECT_FALSE(Verifies(changed, issuerKey));
        EXPECT_TRUE(ContextOf(name).IsValidSignature(ContextOf("root")));
        EXPECT_FALSE(ContextOf(name).IsValidSignature(ContextOf("leaf")));
    }

    const CNALCertInfo root = ReadCertificate("root").m_info;
    const CNALCertInfo leaf = ReadCertificate("leaf").m_info;
    EXPECT_EQ(root.m_subject, root.m_issuer);
    EXPECT_EQ(leaf.m_issuer, root.m_subject);
    const auto constraints = Read<CNALBasicConstraints>(root, c_NAL_OID_BASIC_CONSTRAINTS);
    EXPECT_TRUE(constraints.m_isCA && constraints.m_hasPathLength && constraints.m_pathLength == 2);
    EXPECT_TRUE(root.m_extensions.FindExtension(c_NAL_OID_BASIC_CONSTRAINTS)->m_critical);
    EXPECT_FALSE(Read<CNALBasicConstraints>(leaf, c_NAL_OID_BASIC_CONSTRAINTS).m_isCA);
    EXPECT_EQ(Read<CNALKeyUsage>(root, c_NAL_OID_KEY_USAGE).GetFlags(), CNALKeyUsage::KeyCertSign | CNALKeyUsage::CrlSign);
    EXPECT_EQ(Read<CNALKeyUsage>(leaf, c_NAL_OID_KEY_USAGE).GetFlags(),
              CNALKeyUsage::DigitalSignature | CNALKeyUsage::KeyAgreement | CNALKeyUsage::DecipherOnly);

    CNALIssuerPublicKeyID authority;
    ASSERT_TRUE(authority.ReadFrom(leaf.m_extensions));
    EXPECT_EQ(authority.GetKeyID(), Read<CNALSubjectKeyID>(root, c_NAL_OID_SUBJECT_KEY_ID).m_keyId);
    EXPECT_EQ(CNALX509Name(authority.GetIssuerName()), root.m_subject);
    EXPECT_EQ(authority.GetIssuerSerial(), root.m_serialNumber);

    EXPECT_THAT(Read<CNALExtendedKeyUsage>(leaf, c_NAL_OID_EXTENDED_KEY_USAGE).m_usages,
                testing::ElementsAre("1.3.6.1.5.5.7.3.2", "1.3.6.1.4.1.311.10.3.1"));
    const auto names = Read<CNALAlternativeNames>(leaf, c_NAL_OID_SUBJECT_ALT_NAME);
    EXPECT_EQ(names.m_names.size(), 6u);
    EXPECT_EQ(TextOf(names.Find(CNALGeneralName::Rfc822Name)), "bender@example.org");
    EXPECT_EQ(TextOf(names.Find(CNALGeneralName::DnsName)), "host.example.org");
    EXPECT_EQ(TextOf(names.Find(CNALGeneralName::Uri)), "urn:x");
    EXPECT_EQ(TextOf(names.Find(CNALGeneralName::IpAddress)), "\x0A\x01\x02\x03");
    EXPECT_NE(names.Find(CNALGeneralName::OtherName), nullptr);
    EXPECT_NE(names.Find(CNALGeneralName::RegisteredId), nullptr);
    const auto points = Read<CNALCRLDistributionPoints>(leaf, c_NAL_OID_CRL_DISTRIBUTION_POINTS);
    ASSERT_EQ(points.m_points.size(), 1u);
    ASSERT_EQ(points.m_points[0].m_fullName.size(), 1u);
    EXPECT_EQ(TextOf(&points.m_points[0].m_fullName[0]), "http://ca.example.org/root.crl");
    EXPECT_TRUE(points.m_points[0].m_hasReasons);
    const auto policies = Read<CNALCertificatePolicies>(leaf, c_NAL_OID_CERTIFICATE_POLICIES);
    ASSERT_EQ(policies.m_policies.size(), 2u);
    EXPECT_EQ(policies.m_policies[0].m_oid, "1.2.643.100.113.1");
    ASSERT_EQ(policies.m_policies[1].m_qualifiers.size(), 1u);
    EXPECT_EQ(policies.m_policies[1].m_qualifiers[0].m_oid, "1.3.6.1.5.5.7.2.1");

    // What our encoders make of every value is what stands in the certificate.
    EXPECT_EQ(names.WriteData(), leaf.m_extensions.FindExtension(c_NAL_OID_SUBJECT_ALT_NAME)->m_value);
    EXPECT_EQ(points.WriteData(), leaf.m_extensions.FindExtension(c_NAL_OID_CRL_DISTRIBUTION_POINTS)->m_value);
    EXPECT_EQ(policies.WriteData(), leaf.m_extensions.FindExtension(c_NAL_OID_CERTIFICATE_POLICIES)->m_value);
    EXPECT_EQ(authority.WriteData(), leaf.m_extensions.FindExtension(c_NAL_OID_AUTHORITY_KEY_ID)->m_value);
}

INSTANTIATE_TEST_SUITE_P(ParameterSets, OpenSslCertificates, testing::Values("A", "B", "C", "XA"));

TEST_F(Certificates, FieldsAreWhatCerttoolPrints) {
    NEEDS_CERTTOOL();
    Put("template", R"(country = RU
organization = "ОАО «Доверие»"
cn = "Корень"
serial = 0x00f1020304050607
activation_date = "1999-12-31 23:59:59"
expiration_date = "2060-01-02 03:04:05"
ca
path_len = 3
cert_signing_key
crl_signing_key
dns_name = "ca.example.org"
email = "ca@example.org"
crl_dist_points = "http://ca.example.org/root.crl"
policy1 = 1.2.643.100.113.1
policy1_url = "http://ca.example.org/policy"
key_purpose_oid = 1.3.6.1.4.1.311.10.3.1
)");
    Sh("certtool --generate-privkey --key-type=ecdsa --outfile key");
    Sh("certtool --generate-self-signed --load-privkey key --template template --outder --outfile root");
    const std::string text = Sh("certtool -i --inder --infile root");

    const CNALCertInfo info = ReadCertificate("root").m_info;
    EXPECT_THAT(text, HasSubstr("Serial Number (hex): " + Lower(Serial2TOOStr(info.m_serialNumber, false).str()) + "\n"));
    EXPECT_EQ(TimeText(info.m_notBefore), "1999-12-31 23:59:59");
    EXPECT_EQ(TimeText(info.m_notAfter), "2060-01-02 03:04:05");
    EXPECT_THAT(text, HasSubstr("Not Before: Fri Dec 31 23:59:59 UTC 1999"));
    EXPECT_THAT(text, HasSubstr("Not After: Fri Jan 02 03:04:05 UTC 2060"));
    CTOOString name;
    ASSERT_TRUE(info.m_subject.GetSimpleRDN("2.5.4.6", name));
    EXPECT_EQ(name, "RU");
    EXPECT_EQ(info.m_issuer, info.m_subject);

    const auto keyId = Read<CNALSubjectKeyID>(info, c_NAL_OID_SUBJECT_KEY_ID);
    EXPECT_THAT(text, HasSubstr("Subject Key Identifier (not critical):\n\t\t\t" + Lower(Hex(keyId.m_keyId, "")) + "\n"));
    const auto constraints = Read<CNALBasicConstraints>(info, c_NAL_OID_BASIC_CONSTRAINTS);
    EXPECT_TRUE(constraints.m_isCA);
    EXPECT_THAT(text, HasSubstr("Path Length Constraint: " + std::to_string(constraints.m_pathLength)));
    EXPECT_TRUE(Read<CNALKeyUsage>(info, c_NAL_OID_KEY_USAGE).HasAny(CNALKeyUsage::KeyCertSign));
    EXPECT_TRUE(Read<CNALExtendedKeyUsage>(info, c_NAL_OID_EXTENDED_KEY_USAGE).Contains("1.3.6.1.4.1.311.10.3.1"));
    const auto names = Read<CNALAlternativeNames>(info, c_NAL_OID_SUBJECT_ALT_NAME);
    EXPECT_THAT(text, HasSubstr("DNSname: " + TextOf(names.Find(CNALGeneralName::DnsName))));
    EXPECT_THAT(text, HasSubstr("RFC822Name: " + TextOf(names.Find(CNALGeneralName::Rfc822Name))));
    const auto points = Read<CNALCRLDistributionPoints>(info, c_NAL_OID_CRL_DISTRIBUTION_POINTS);
    EXPECT_THAT(text, HasSubstr("URI: " + TextOf(&points.m_points.at(0).m_fullName.at(0))));
    EXPECT_THAT(text, HasSubstr(Read<CNALCertificatePolicies>(info, c_NAL_OID_CERTIFICATE_POLICIES).m_policies.at(0).m_oid.str()));
}

}  // namespace
