// A hierarchy issued by OpenSSL with the GOST engine: chains of it are judged here as OpenSSL judges them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "nal/chain.h"
#include "nal/trust_storages.h"
#include "nal/verify.h"
#include "support/process.h"
#include "support/temp_folder.h"
#include "too/testing.h"
#include "too/time.h"

namespace {

constexpr unsigned kEncoding = 0x10001;

constexpr char c_config[] = R"(openssl_conf = o
[o]
engines = e
[e]
gost = g
[g]
engine_id = gost
default_algorithms = ALL
[req]
distinguished_name = dn
string_mask = utf8only
[dn]
[root]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
[ca]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
basicConstraints = critical,CA:TRUE,pathlen:0
keyUsage = critical,keyCertSign,cRLSign
[end]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
basicConstraints = CA:FALSE
keyUsage = critical,digitalSignature
[crl]
database = index.txt
crlnumber = number
default_md = md_gost94
default_crl_days = 365
crl_extensions = crl_ext
[crl_ext]
authorityKeyIdentifier = keyid
)";

class OpenSslChains : public testing::Test {
protected:
    void SetUp() override {
        const std::string engines = nal_test::RunProcess({"openssl", "engine", "-t", "gost"}).output;
        if (engines.find("[ available ]") == std::string::npos) {
            GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
        }
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        std::filesystem::create_directories(m_folder.File("home/trust"));
        m_VPN_TrustStorages.Reset();
        m_VPN_TrustStorages.m_transportFolder = m_folder.Path();
        Write("config", c_config);
        Write("number", "01\n");
    }
    void TearDown() override {
        m_VPN_TrustStorages.Reset();
        too_testing::ResetClock();
    }

    void Write(const std::string& name, const std::string& text) const { nal_test::WriteFile(m_folder.File(name), text); }

    nal_test::ProcessResult Try(const std::string& command) const {
        return nal_test::RunProcess({"sh", "-c", "cd '" + m_folder.Path() + "' && OPENSSL_CONF=config " + command});
    }
    void Sh(const std::string& command) const {
        const nal_test::ProcessResult result = Try(command);
        ASSERT_EQ(result.exitCode, 0) << command << "\n" << result.errors;
    }

    void Issue(const std::string& name, const std::string& section, const std::string& issuer, unsigned serial) {
        Sh("openssl req -new -newkey gost2001 -pkeyopt paramset:A -nodes -md_gost94 -subj /CN=" + name + " -config config -keyout " + name +
           ".key -out " + name + ".req");
        const std::string by = issuer == name ? "-signkey " + name + ".key" : "-CA " + issuer + ".pem -CAkey " + issuer + ".key";
        Sh("openssl x509 -req -md_gost94 -days 100 -extfile config -extensions " + section + " -in " + name + ".req -out " + name + ".pem " +
           by + " -set_serial " + std::to_string(serial) + " && openssl x509 -in " + name + ".pem -outform DER -out " + name);
    }
    void IssueCrl(const std::string& issuer, const std::string& revoked) {
        Write("index.txt", revoked);
        Sh("openssl ca -config config -name crl -gencrl -keyfile " + issuer + ".key -cert " + issuer + ".pem -out " + issuer +
           ".crl.pem && openssl crl -in " + issuer + ".crl.pem -outform DER -out " + issuer + ".crl");
    }
    IdentObj Read(const std::string& name) const {
        const nal_test::Bytes bytes = nal_test::ReadFile(m_folder.File(name));
        return {bytes.data(), static_cast<unsigned>(bytes.size())};
    }

    nal_test::TempFolder m_folder;
};

TEST_F(OpenSslChains, AreJudgedTheSame) {
    Issue("root", "root", "root", 1);
    Issue("ca", "ca", "root", 2);
    Issue("sub", "ca", "ca", 3);
    Issue("end", "end", "ca", 4);
    Issue("revoked", "end", "ca", 0x1234);
    Issue("deep", "end", "sub", 6);
    Issue("stranger", "root", "stranger", 7);
    Issue("strange", "end", "stranger", 8);
    IssueCrl("root", "");
    IssueCrl("ca", "R\t301231235959Z\t250101120000Z\t1234\tunknown\t/CN=revoked\n");
    IssueCrl("sub", "");
    Sh("cat ca.pem sub.pem > untrusted.pem && cat root.crl.pem ca.crl.pem sub.crl.pem > crls.pem");

    CNALString mainName(m_folder.File("home/trust/trusted.dat").c_str());
    CNALString extraName("extra");
    CNALCertStorage main(mainName, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
    CNALCertStorage extra(extraName, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
    extra.m_untrusted = 1;
    ASSERT_TRUE(main.AddEncodetCertificate(Read("root"), kEncoding));
    ASSERT_TRUE(main.AddEncodetCRL(Read("root.crl"), kEncoding));
    for (const char* name : {"ca", "sub"}) {
        ASSERT_TRUE(extra.AddEncodetCertificate(Read(name), kEncoding));
        ASSERT_TRUE(extra.AddEncodetCRL(Read(std::string(name) + ".crl"), kEncoding));
    }

    const CTOOFileTime now = CTOOFileTime::Now();
    const struct {
        const char* name;
        int daysLater;
        DWORD errors;
        const char* complaint;  // of OpenSSL; null: none
    } cases[] = {
        {"end", 0, 0, nullptr},
        {"root", 0, 0, nullptr},
        {"revoked", 0, CERT_TRUST_IS_REVOKED, "certificate revoked"},
        {"deep", 0, CERT_TRUST_INVALID_BASIC_CONSTRAINTS, "path length constraint exceeded"},
        {"strange", 0, CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_NOT_SIGNATURE_VALID | CERT_TRUST_IS_NOT_TIME_VALID | CERT_TRUST_IS_REVOKED,
         "unable to get local issuer certificate"},
        {"end", 200, CERT_TRUST_IS_NOT_TIME_VALID, "certificate has expired"},
        {"end", -2, CERT_TRUST_IS_NOT_TIME_VALID | CERT_TRUST_REVOCATION_STATUS_UNKNOWN, "certificate is not yet valid"},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const auto shift = static_cast<std::int64_t>(CTOOFileTime::c_ticksPerDay) * test.daysLater;
        const CTOOFileTime at(static_cast<std::uint64_t>(static_cast<std::int64_t>(now.GetTicks()) + shift));
        too_testing::SetClock(at);
        CNALCertificateChain chain;
        ASSERT_TRUE(NALVerifyCertificate(CNALCertContext(Read(test.name)), chain, nullptr, &extra));
        EXPECT_EQ(chain.GetErrors(), test.errors) << std::hex << chain.GetErrors();
        const nal_test::ProcessResult theirs =
            Try("openssl verify -attime " + std::to_string(at.ToUnix()) + " -CAfile root.pem -untrusted untrusted.pem -CRLfile crls.pem " +
                "-crl_check_all " + test.name + ".pem");
        EXPECT_EQ(theirs.exitCode == 0, test.complaint == nullptr) << theirs.output << theirs.errors;
        EXPECT_NE(theirs.errors.find(test.complaint != nullptr ? test.complaint : ""), std::string::npos) << theirs.errors;
    }
    too_testing::ResetClock();
    EXPECT_TRUE(NALCanSignByCert(CNALCertContext(Read("end")), false, CTOOFileTime()));
    EXPECT_FALSE(NALCanSignByCert(CNALCertContext(Read("ca")), false, CTOOFileTime()));
}

}  // namespace
