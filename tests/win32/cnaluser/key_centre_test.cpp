// A first request, a renewal and a request for another user, each through the key centre's program and back.
#include <utime.h>

#include "nal/fingerprint.h"
#include "nal/trust_storages.h"
#include "support/paths.h"
#include "support/process.h"
#include "too/file.h"
#include "win32/cnaluser/request_test.h"

namespace {

class KeyCentreTest : public nal_test::RequestTest {
protected:
    KeyCentreTest() {
        nal_test::WriteFile(File("password"), nal_test::Text("centre\n"));
        Run({"init", "--root", "CN=Root of the network", "--issuing", "CN=Issuing", "--network", "12ab"});
        std::filesystem::create_directories(Station("o_users"));
        std::filesystem::create_directories(Station("e_users"));
        Run({"publish", File("transport")});
        // The host trusts the centre's root; all else comes by the trust list.
        std::filesystem::remove(File("home/trust/trusted.dat"));
        CNALString name(File("home/trust/trusted.dat").c_str());
        CNALCertStorage trusted(name, CERT_STORE_PROV_FILENAME_A, 0x12000, 0, nullptr);
        EXPECT_TRUE(trusted.AddEncodetCertificate(CTOOFile::ReadWhole(File("centre/root.cer")), 0x10001));
        EXPECT_TRUE(trusted.AddEncodetCRL(CTOOFile::ReadWhole(File("centre/crl/root.crl")), 0x10001));
        NALFreeRootStorage();
    }

    void Run(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), nal_test::BinaryDir() + "/keycentre/nal-keycentre");
        arguments.insert(arguments.end(), {"--centre", File("centre"), "--password-file", File("password")});
        const nal_test::ProcessResult result = nal_test::RunProcess(arguments);
        EXPECT_EQ(0, result.exitCode) << result.output << result.errors;
    }

    std::string RequestFile(const char* folder) const {
        const std::vector<std::string> files = FilesIn(folder, ".req");
        EXPECT_EQ(1U, files.size());
        return files.empty() ? std::string() : Station(folder + ("/" + files.front()));
    }
    /// Goes over the folder; a request file counts as complete when it has not changed for a while.
    void Serve(const char* folder) const {
        const utimbuf longAgo{1000000000, 1000000000};
        utime(RequestFile(folder).c_str(), &longAgo);
        Run({"serve-folder", File("transport")});
    }

    /// Takes the answer in and installs it. @return the certificate
    CNALCertContext Install(CNALUser& user, const NAL_REQ_CONTEXT* made) const {
        CNALCertReqContext request = Received(*made);
        if (request->dwStatus != NAL_REQ_STATUS_RECEIVED) {
            ADD_FAILURE() << "not answered";
            return {};
        }
        const CNALCertContext cert(request->pCertificate);
        const NAL_REQ_CONTEXT* context = request.Detach();
        CTOOString msg;
        int err = 0;
        EXPECT_TRUE(user.PutCertificate(&context, &err, &msg)) << msg;
        request.Attach(context);
        EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_INSTALLED), request->dwStatus);
        EXPECT_TRUE(user.CheckSignKeys(cert, nullptr, nullptr));
        return cert;
    }
};

TEST_F(KeyCentreTest, AnswersAllKindsOfRequests) {
    // The folder service never answers a first request: the operator releases it by the key's fingerprint.
    CNALUser user;
    LogIn(user, "ivan", true);
    const NAL_REQ_CONTEXT* made = nullptr;
    ASSERT_TRUE(user.CreateNewRequest(CNALUser(), nullptr, Ivan(), &made, nullptr, nullptr));
    const CNALCertReqContext first(made);
    Serve("o_users");
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_MADE), Received(*first)->dwStatus);
    const std::string fingerprint = NALGetFingerprint(user.GetNewPublicKey().WriteData()).str();
    Run({"issue", RequestFile("o_users"), "--fingerprint", fingerprint, "--entitled"});
    const CNALCertContext cert = Install(user, first.Get());
    ASSERT_TRUE(cert.IsInitialized());
    EXPECT_EQ("12ab", NALGetNetworkIdentifier(cert));

    // A renewal is answered at once, into the network that the certificate is of.
    ASSERT_TRUE(user.UpdateKey("", "", CTOOFileTime(), CTOOFileTime(), cert, &made, nullptr, nullptr));
    const CNALCertReqContext renewal(made);
    EXPECT_EQ(0U, std::filesystem::path(RequestFile("o_users")).filename().string().find("12ab"));
    Serve("o_users");
    const CNALCertContext renewed = Install(user, renewal.Get());
    ASSERT_TRUE(renewed.IsInitialized());
    EXPECT_EQ(CNALCertInfo(*cert.GetContext()).m_subject, CNALCertInfo(*renewed.GetContext()).m_subject);
    std::list<CNALCertContext> list;
    ASSERT_TRUE(user.GetCertificateList(list, nullptr, nullptr));
    EXPECT_EQ(2U, list.size());

    // So is what an entitled user asks for another one.
    CNALUser other;
    LogIn(other, "petr", true);
    CNALCertInfo petr = Ivan();
    petr.m_subject = keycentre::Name("CN=Petr");
    CTOOString msg;
    int err = 0;
    ASSERT_TRUE(other.CreateNewRequest(user, &cert, petr, &made, &err, &msg)) << msg;
    const CNALCertReqContext external(made);
    Serve("e_users");
    ASSERT_TRUE(Install(other, external.Get()).IsInitialized());
    EXPECT_EQ(3U, Requests().size());
    EXPECT_TRUE(FilesIn("o_users", ".req").empty() && FilesIn("e_users", ".req").empty());
}

}  // namespace
