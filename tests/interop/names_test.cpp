// Names of certificates that OpenSSL (with its GOST engine) and GnuTLS issue: every tool prints the same fields.
#include <string_view>

#include "asnt/view.h"
#include "asnt/writer.h"
#include "interop/tools.h"
#include "model/name_charset.h"
#include "nal/name.h"

namespace {

constexpr std::string_view kCyrillicName = "Иван Ломоносов";
constexpr std::string_view kCyrillicOrg = "ООО \"Рога, копыта + сыновья\"";

// Subject of a version 3 certificate: RFC 5280 section 4.1.
CNALX509Name Subject(const nal_test::Bytes& certificate) {
    asnt::Reader file(asnt::View(certificate.data(), certificate.size()), "certificate");
    asnt::Reader tbs = file.Enter(asnt::tag::Sequence).Enter(asnt::tag::Sequence);
    for (int skipped = 0; skipped < 5; ++skipped) tbs.Skip();
    return CNALX509Name(tbs.Next(asnt::tag::Sequence).whole.Copy());
}

std::wstring Wide(std::string_view utf8) {
    std::wstring text;
    EXPECT_TRUE(nal::AppendUtf8(asnt::View(utf8.data(), utf8.size()), text));
    return text;
}

std::wstring Value(const CNALX509Name& name, const char* oid) {
    std::wstring value;
    EXPECT_TRUE(name.GetSimpleRDN(oid, value)) << oid;
    return value;
}

DWORD ValueType(const CNALX509Name& name, const char* oid) {
    std::list<std::list<CNALRDNAttr>> rdns;
    name.GetNameInfo(rdns);
    for (const auto& rdn : rdns) {
        if (rdn.front().m_oid == oid) return rdn.front().m_valueType;
    }
    return CERT_RDN_ANY_TYPE;
}

class NameInterop : public nal_test::ToolTest<> {
protected:
    // One line per RDN, "OID=value" in UTF-8, as OpenSSL prints a certificate's subject.
    std::string OpenSslSubject(const std::string& file) const {
        return Sh("openssl x509 -inform DER -in " + file + " -noout -subject -nameopt sep_multiline,oid,utf8");
    }

    // A self-signed certificate for the lines of a [dn] section, values in the string types of a mask.
    nal_test::Bytes SelfSigned(const std::string& stringMask, const std::string& dn) const {
        Put("req.cnf", "[req]\nprompt=no\nutf8=yes\ndistinguished_name=dn\nstring_mask=" + stringMask + "\n[dn]\n" + dn);
        Sh("openssl req -x509 -newkey gost2001 -pkeyopt paramset:A -nodes -addext basicConstraints=CA:TRUE -keyout key.pem "
           "-config req.cnf -outform DER -out certificate");
        return nal_test::ReadFile(Path("certificate"));
    }
};

// What OpenSSL prints with dotted types, from our pairs: the values as they are.
std::string AsOpenSslPrints(const CNALX509Name& name) {
    std::list<std::list<CNALRDNAttr>> rdns;
    name.GetNameInfo(rdns);
    std::string text;
    for (const auto& rdn : rdns) {
        const char* lead = "    ";
        for (const CNALRDNAttr& attr : rdn) {
            CERT_RDN_ATTR record{};
            record.dwValueType = attr.m_valueType;
            record.Value = {attr.m_value.GetSize(), const_cast<BYTE*>(attr.m_value.GetData())};
            std::wstring wide;
            std::string value;
            CNALX509Name::GetRDNAttrValueString(record, wide);
            EXPECT_TRUE(nal::ToUtf8(wide, value));
            text += lead + attr.m_oid.str() + "=" + value;
            lead = " + ";
        }
        text += "\n";
    }
    return text;
}

TEST_F(NameInterop, OpenSslWithTheGostEngine) {
    const struct {
        const char* stringMask;
        unsigned type;  // of a Cyrillic value
    } rows[] = {{"utf8only", CERT_RDN_UTF8_STRING}, {"pkix", CERT_RDN_BMP_STRING}};
    for (const auto& row : rows) {
        const CNALX509Name name = Subject(SelfSigned(row.stringMask,
                                                     "C=RU\nST=Moscow\nO=ООО \\\"Рога, копыта + сыновья\\\"\n"
                                                     "emailAddress=ivan@example.com\nserialNumber=77-1\n+GN=Ivan\nCN=" +
                                                         std::string(kCyrillicName) + "\n"));
        EXPECT_EQ(Value(name, "2.5.4.3"), Wide(kCyrillicName));
        EXPECT_EQ(Value(name, "2.5.4.10"), Wide(kCyrillicOrg));
        EXPECT_EQ(Value(name, "2.5.4.6"), L"RU");
        EXPECT_EQ(Value(name, "2.5.4.8"), L"Moscow");
        EXPECT_EQ(Value(name, "1.2.840.113549.1.9.1"), L"ivan@example.com");
        EXPECT_EQ(ValueType(name, "2.5.4.3"), row.type) << row.stringMask;
        EXPECT_EQ("subject=\n" + AsOpenSslPrints(name), OpenSslSubject("certificate"));
        std::wstring printed;
        name.GetX500String(printed, 0);
        EXPECT_EQ(printed, L"c=RU,st=Moscow,o=\"" + Wide("ООО \"\"Рога, копыта + сыновья\"\"") +
                               L"\",e=ivan@example.com,serialNumber=77-1+givenName=Ivan,cn=" + Wide(kCyrillicName));
    }
}

TEST_F(NameInterop, GnuTlsCertificates) {
    NEEDS_CERTTOOL();
    Put("template", "dn = \"CN=" + std::string(kCyrillicName) + ",OU=Отдел,O=Рога и копыта,C=RU\"\nexpiration_days = 30\nca\n");
    Sh("certtool --generate-privkey --key-type=ecdsa --curve=secp256r1 --outfile key");
    Sh("certtool --generate-self-signed --load-privkey key --template template --outder --outfile certificate");

    const CNALX509Name name = Subject(nal_test::ReadFile(Path("certificate")));
    EXPECT_EQ(Value(name, "2.5.4.3"), Wide(kCyrillicName));
    EXPECT_EQ(Value(name, "2.5.4.11"), Wide("Отдел"));
    EXPECT_EQ(Value(name, "2.5.4.6"), L"RU");
    EXPECT_EQ(ValueType(name, "2.5.4.3"), static_cast<DWORD>(CERT_RDN_UTF8_STRING));

    // certtool prints the elements in the opposite order.
    EXPECT_THAT(Sh("certtool --certificate-info --inder --infile certificate"),
                testing::HasSubstr("Subject: CN=" + std::string(kCyrillicName) + ",OU=Отдел,O=Рога и копыта,C=RU"));
    EXPECT_EQ(name, CNALX509Name(L"CN=" + Wide(kCyrillicName) + Wide(",OU=Отдел,O=Рога и копыта,C=RU"), 0, true));
}

// The certificate with another subject; its signature no longer fits, which printing does not look at.
IdentObj WithSubject(const nal_test::Bytes& certificate, const CNALX509Name& subject) {
    asnt::Reader file(asnt::View(certificate.data(), certificate.size()), "certificate");
    asnt::Reader outer = file.Enter(asnt::tag::Sequence);
    asnt::Reader tbs = outer.Enter(asnt::tag::Sequence);
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Sequence([&] {
            for (int field = 0; !tbs.AtEnd(); ++field) {
                const asnt::View whole = tbs.Next().whole;
                writer.Raw(field == 5 ? asnt::View(subject) : whole);
            }
        });
        writer.Raw(outer.Rest());
    });
    return writer.Finish();
}

TEST_F(NameInterop, OpenSslReadsWhatWeEncode) {
    const nal_test::Bytes issued = SelfSigned("utf8only", "CN=x\n");
    const std::wstring cyrillic = L"CN=" + Wide(kCyrillicName) + L"+serialNumber=1,O=\"" +
                                  Wide("\"\"Рога\"\", копыта") +
                                  L"\",E=a@b.c,1.2.643.100.1=1027700132195,S=\x0416,OU=plain,C=RU";
    const CNALX509Name bmp(cyrillic, 0, true);
    std::list<std::list<CNALRDNAttr>> rdns;
    bmp.GetNameInfo(rdns);
    for (auto& rdn : rdns) {
        for (CNALRDNAttr& attr : rdn) {
            if (attr.m_valueType == CERT_RDN_BMP_STRING) attr.m_valueType = CERT_RDN_UTF8_STRING;
        }
    }
    for (const CNALX509Name& name : {bmp, CNALX509Name(rdns)}) {
        Put("ours", WithSubject(issued, name));
        EXPECT_EQ("subject=\n" + AsOpenSslPrints(name), OpenSslSubject("ours"));
    }
}

}  // namespace
