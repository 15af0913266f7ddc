// The program nal-keycentre as an operator uses it, with a user at the other end of the transport folder.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "keycentre_service/centre_test.h"
#include "nal/request_context.h"
#include "support/paths.h"
#include "support/process.h"

namespace {

using nal_test::Holder;
using nal_test::ProcessResult;
using testing::HasSubstr;
using testing::Not;

class Program : public testing::Test {
protected:
    void SetUp() override {
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        std::filesystem::create_directories(m_folder.File("net/d_station/o_users"));
        std::filesystem::create_directories(m_folder.File("net/d_station/e_users"));
        WriteText("pw", "secret\n");
        WriteText("wrong", "other\n");
        Good("init --root 'CN=Root' --issuing 'CN=Issuing' --network 12ab --password-file pw");
    }

    void WriteText(const std::string& name, const std::string& text) const { nal_test::WriteFile(m_folder.File(name), text); }

    /// Runs the program with these arguments, as sh splits them, in the test's folder.
    ProcessResult Run(const std::string& arguments) const {
        return nal_test::RunProcess({"setsid", "-w", "sh", "-c", "cd '" + m_folder.Path() + "' && '" + nal_test::BinaryDir() + "/keycentre/nal-keycentre' " + arguments});
    }
    std::string Good(const std::string& arguments) const {
        const ProcessResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments << "\n" << result.errors;
        return result.output;
    }

    Holder NewHolder(const char* name) { return {keycentre::KeyPair::Create(m_folder.File("key" + std::to_string(++m_keys)), ""), keycentre::Name(name), {}}; }

    /// Writes a request for the transport folder, and a context of it into the user's storage of requests.
    std::string Ask(const Holder& holder, const std::string& file, const Holder* voucher) const {
        IdentObj request = nal_test::Request(holder.key, holder.name, voucher);
        const std::string path = m_folder.File("net/d_station/o_users/" + file);
        nal_test::WriteFile(path, request.GetData(), request.GetSize());
        unsigned long handle = 0;
        NALCertOpenReqStorage(m_folder.File("net/d_station/o_users/2026_ownu.log").c_str(), nullptr, NAL_REQ_STORAGE_CREATE, &handle);
        NAL_REQ_CONTEXT record{};
        record.Request = {request.GetSize(), request.GetData()};
        NALCloseReqContext(CNALReqContextStorage::FromHandle(handle)->AddContext(record));
        NALCertCloseReqStore(handle, 0);
        return path;
    }

    /// Takes the answers in. @return the serial number of the one that is new, as the program prints it; empty for none
    std::string TakeAnswer(Holder& holder) const {
        std::list<CNALAnswerReport> reports;
        int err = -1;
        NALTakeAnswers(m_folder.File("net"), &reports, &err, nullptr);
        EXPECT_EQ(err, 0);
        unsigned long handle = 0;
        NALCertOpenReqStorage(m_folder.File("net/d_station/o_users/2026_ownu.log").c_str(), nullptr, 0, &handle);
        std::string serial;
        CNALCertReqContext request;
        for (request.Attach(NALFindReqContextInStorage(handle, 0, nullptr, nullptr)); request;
             request.Attach(NALFindReqContextInStorage(handle, 0, nullptr, request.Detach()))) {
            CNALCertContext certificate, issuer;
            CNALCRLContext crl;
            if (request->pCertificate == nullptr) continue;
            EXPECT_TRUE(NALGetReqProperties(6, request.Get(), &certificate, nullptr));
            EXPECT_TRUE(NALGetReqProperties(7, request.Get(), &issuer, nullptr));
            EXPECT_TRUE(NALGetReqProperties(8, request.Get(), &crl, nullptr));
            const CNALCertInfo info(*certificate.GetContext());
            if (info.m_publicKeyInfo.m_publicKey != holder.key.GetPublicKey().m_publicKey) continue;
            EXPECT_TRUE(certificate.IsValidSignature(issuer));
            EXPECT_FALSE(certificate.IsRevoced(crl));
            EXPECT_EQ(request->dwStatus, static_cast<DWORD>(NAL_REQ_STATUS_RECEIVED));
            holder.certificate = IdentObj(certificate.GetContext()->pbCertEncoded, certificate.GetContext()->cbCertEncoded);
            serial = keycentre::SerialText(info.m_serialNumber);
        }
        NALCertCloseReqStore(handle, 0);
        return serial;
    }

    static std::string Fingerprint(const Holder& holder) { return NALGetFingerprint(holder.key.GetPublicKey().WriteData()).str(); }

    nal_test::TempFolder m_folder;
    int m_keys = 0;
};

TEST_F(Program, AFirstRequestARenewalAndARevocation) {
    Holder ivan = NewHolder("CN=Ivan, O=Works");
    const std::string path = Ask(ivan, "1_ownu.req", nullptr);
    EXPECT_THAT(Good("serve-folder net --password-file pw"), HasSubstr("waits for the operator: " + Fingerprint(ivan)));
    EXPECT_THAT(Good("list --waiting"), HasSubstr(Fingerprint(ivan)));
    EXPECT_THAT(Good("issue '" + path + "' --fingerprint '" + Fingerprint(ivan) + "' --password-file pw"), HasSubstr("own_input.cer"));
    const std::string first = TakeAnswer(ivan);
    EXPECT_THAT(Good("list Ivan"), HasSubstr(first));
    EXPECT_EQ(Good("list --waiting"), "no requests wait\n");
    Good("export " + first + " ivan.cer");
    const nal_test::Bytes exported = nal_test::ReadFile(m_folder.File("ivan.cer"));
    EXPECT_EQ(IdentObj(exported.data(), static_cast<unsigned>(exported.size())), ivan.certificate);

    Holder next = NewHolder("CN=Ivan, O=Works");
    Ask(next, "2_ownu.req", &ivan);
    EXPECT_THAT(Good("serve-folder net --password-file pw"), HasSubstr("2_ownu.req (o=Works,cn=Ivan): answered: "));
    EXPECT_FALSE(TakeAnswer(next).empty());

    EXPECT_THAT(Good("revoke " + first + " --reason key-compromise --password-file pw"), HasSubstr("key-compromise"));
    EXPECT_THAT(Good("list --json --standing revoked"), HasSubstr(first));
    Holder thief = NewHolder("CN=Ivan, O=Works");
    Ask(thief, "3_ownu.req", &ivan);
    EXPECT_THAT(Good("serve-folder net --password-file pw"), HasSubstr("which is revoked"));
    EXPECT_THAT(Good("publish net --password-file pw"), HasSubstr("12ab_trl.p7s"));

    // The CRL among the answers is that of after the revocation, once there is an answer again.
    Holder last = NewHolder("CN=Ivan, O=Works");
    Ask(last, "4_ownu.req", &next);
    Good("serve-folder net --password-file pw");
    CNALString answers(CTOOString(m_folder.File("net/d_station/tmp/own_input.cer")));
    const CNALCertStorage store(answers, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
    EXPECT_TRUE(CNALCertContext(ivan.certificate).IsRevoced(store.FindCRLInStore(0, nullptr, {})));

    const nal_test::Bytes log = nal_test::ReadFile(m_folder.File("home/keycentre/centre.log"));
    const std::string text(log.begin(), log.end());
    for (const char* event : {"founded", "waiting", "issued", "answered", "revoked", "refused", "crl", "published"})
        EXPECT_THAT(text, HasSubstr("\"event\":\"" + std::string(event) + "\""));
    EXPECT_THAT(text, Not(HasSubstr("secret")));
}

TEST_F(Program, ExitCodesSayWhatKindOfFailure) {
    Holder ivan = NewHolder("CN=Ivan");
    const std::string request = Ask(ivan, "1_ownu.req", nullptr);
    const IdentObj asRoot = nal_test::Request(NewHolder("CN=Root").key, keycentre::Name("CN=Root"), nullptr);
    nal_test::WriteFile(m_folder.File("root.req"), asRoot.GetData(), asRoot.GetSize());
    struct Case {
        std::string arguments;
        int exit;
        const char* errors;
    };
    const std::vector<Case> cases = {
        {"unknown", 2, "unknown"},
        {"init --root 'CN=R' --network xyz --password-file pw --centre other", 2, "--network"},
        {"init --root 'R' --network 12ab --password-file pw --centre other", 2, "--root"},
        {"revoke zz --password-file pw", 2, "no serial number"},
        {"revoke 00 --reason because --password-file pw", 2, "key-compromise"},
        {"issue root.req --password-file pw", 2, "--out"},
        {"init --root 'CN=R' --network 12ab --password-file pw", 3, "already"},
        {"list --centre nowhere", 3, "no key centre"},
        {"issue pw -o x.cer --password-file pw", 3, "pw"},
        {"serve-folder home --password-file pw", 3, "no transport folder"},
        {"crl --password-file wrong", 4, "password"},
        {"crl", 4, "password"},
        {"issue '" + request + "' --fingerprint '00' --password-file pw", 1, "another one"},
        {"issue '" + request + "' --password-file pw", 2, "--fingerprint"},
        {"issue root.req -o x.cer --fingerprint 00 --password-file pw", 1, "own authorities"},
    };
    for (const Case& c : cases) {
        const ProcessResult result = Run(c.arguments);
        EXPECT_EQ(result.exitCode, c.exit) << c.arguments << "\n" << result.errors;
        EXPECT_THAT(result.errors, HasSubstr(c.errors)) << c.arguments;
    }
    EXPECT_FALSE(std::filesystem::exists(m_folder.File("x.cer")));
    for (const char* command : {"init", "issue", "serve-folder", "revoke", "entitle", "list", "export", "crl", "publish"})
        EXPECT_THAT(Good(std::string(command) + " --help"), HasSubstr(std::string("nal-keycentre ") + command)) << command;
}

TEST_F(Program, ARepeatedIssueGivesTheSameCertificate) {
    Holder ivan = NewHolder("CN=Ivan");
    const IdentObj request = nal_test::Request(ivan.key, ivan.name, nullptr);
    nal_test::WriteFile(m_folder.File("ivan.req"), request.GetData(), request.GetSize());
    Good("issue ivan.req -o one.cer --fingerprint '" + Fingerprint(ivan) + "' --password-file pw");
    EXPECT_THAT(Good("issue ivan.req -o two.cer --password-file pw"), HasSubstr("earlier"));
    EXPECT_EQ(nal_test::ReadFile(m_folder.File("one.cer")), nal_test::ReadFile(m_folder.File("two.cer")));
}

TEST_F(Program, HostileNamesReachNoTerminal) {
    const std::string name = "\x1B]0;owned\x07\n_ownu.req";
    nal_test::WriteFile(m_folder.File("net/d_station/o_users/" + name), std::string(50, 'x'));
    nal_test::CentreTest::Age(m_folder.File("net/d_station/o_users/" + name), 3600);
    const ProcessResult result = Run("serve-folder net --password-file pw");
    EXPECT_THAT(result.output, HasSubstr("\\x1B]0;owned\\x07\\x0A_ownu.req: refused"));
    const nal_test::Bytes log = nal_test::ReadFile(m_folder.File("home/keycentre/centre.log"));
    for (const std::string& text : {result.output, result.errors, std::string(log.begin(), log.end())})
        EXPECT_EQ(text.find('\x1B'), std::string::npos);
}

TEST_F(Program, ASecondServiceOnTheFolderIsRefused) {
    const int folder = ::open(m_folder.File("net/d_station").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(folder, LOCK_EX), 0);
    const ProcessResult result = Run("serve-folder net --password-file pw");
    ::close(folder);
    EXPECT_EQ(result.exitCode, 5);
    EXPECT_THAT(result.errors, HasSubstr("another key centre is at work"));
    Good("serve-folder net --password-file pw");
}

}  // namespace
