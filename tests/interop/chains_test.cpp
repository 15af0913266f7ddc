// A hierarchy issued by OpenSSL with the GOST engine: chains of it are judged here as OpenSSL judges them.
#include <cstdlib>
#include <filesystem>

#include "interop/tools.h"
#include "nal/chain.h"
#include "nal/trust_storages.h"
#include "nal/verify.h"
#include "too/testing.h"
#include "too/time.h"

namespace {

constexpr unsigned kEncoding = 0x10001;

class OpenSslChains : public nal_test::ToolTest<> {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        if (IsSkipped()) return;
        setenv("NAL_HOME", Path("home").c_str(), 1);
        std::filesystem::create_directories(Path("home/trust"));
        m_VPN_TrustStorages.Reset();
        m_VPN_TrustStorages.m_transportFolder = m_folder.Path();
        Put("number", "01\n");
    }
    void TearDown() override {
        m_VPN_TrustStorages.Reset();
        too_testing::ResetClock();
    }

    void IssueCrl(const std::string& issuer, const std::string& revoked) {
        Put("index.txt", revoked);
        Sh("i=" + issuer + "; openssl ca -config openssl.cnf -name crl -gencrl -crldays 365 -keyfile $i.key -cert $i.pem "
           "-out $i.crl.pem && openssl crl -in $i.crl.pem -outform DER -out $i.crl");
    }
};

TEST_F(OpenSslChains, AreJudgedTheSame) {
    Issue("root", "root");
    Issue("ca", "ca", "root");
    Issue("sub", "ca", "ca");
    Issue("end", "signer", "ca");
    Issue("revoked", "signer", "ca", "-set_serial 0x1234");
    Issue("deep", "signer", "sub");
    Issue("stranger", "root");
    Issue("strange", "signer", "stranger");
    IssueCrl("root", "");
    IssueCrl("ca", "R\t301231235959Z\t250101120000Z\t1234\tunknown\t/CN=revoked\n");
    IssueCrl("sub", "");
    Sh("cat ca.pem sub.pem > untrusted.pem && cat root.crl.pem ca.crl.pem sub.crl.pem > crls.pem");

    CNALString mainName(Path("home/trust/trusted.dat").c_str());
    CNALString extraName("extra");
    CNALCertStorage main(mainName, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
    CNALCertStorage extra(extraName, CERT_STORE_PROV_MEMORY, 0, 0, nullptr);
    extra.m_untrusted = 1;
    ASSERT_TRUE(main.AddEncodetCertificate(Get("root"), kEncoding));
    ASSERT_TRUE(main.AddEncodetCRL(Get("root.crl"), kEncoding));
    for (const char* name : {"ca", "sub"}) {
        ASSERT_TRUE(extra.AddEncodetCertificate(Get(name), kEncoding));
        ASSERT_TRUE(extra.AddEncodetCRL(Get(std::string(name) + ".crl"), kEncoding));
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
        {"strange", 0,
         CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_NOT_SIGNATURE_VALID | CERT_TRUST_IS_NOT_TIME_VALID | CERT_TRUST_IS_REVOKED,
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
        ASSERT_TRUE(NALVerifyCertificate(CNALCertContext(Get(test.name)), chain, nullptr, &extra));
        EXPECT_EQ(chain.GetErrors(), test.errors) << std::hex << chain.GetErrors();
        const nal_test::ProcessResult theirs =
            Try("openssl verify -attime " + std::to_string(at.ToUnix()) + " -CAfile root.pem -untrusted untrusted.pem -CRLfile crls.pem " +
                "-crl_check_all " + test.name + ".pem");
        EXPECT_EQ(theirs.exitCode == 0, test.complaint == nullptr) << theirs.output;
        EXPECT_NE(theirs.output.find(test.complaint != nullptr ? test.complaint : ""), std::string::npos) << theirs.output;
    }
    too_testing::ResetClock();
    EXPECT_TRUE(NALCanSignByCert(CNALCertContext(Get("end")), false, CTOOFileTime()));
    EXPECT_FALSE(NALCanSignByCert(CNALCertContext(Get("ca")), false, CTOOFileTime()));
}

}  // namespace
