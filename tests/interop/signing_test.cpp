// What is signed here, independent tools verify; and what they sign is checked here.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/process.h"
#include "too/testing.h"
#include "win32/certsign/signing_test.h"

namespace {

using nal_test::RunProcess;
using Statuses = std::vector<DWORD>;
using Command = std::vector<std::string>;


class Tools : public nal_test::SigningTest {
protected:
    void SetUp() override {
        if (RunProcess({"openssl", "engine", "-t", "gost"}).output.find("[ available ]") == std::string::npos) {
            GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
        }
        nal_test::WriteFile(Path("content"), m_content);
        const IdentObj& root = s_authority->root.GetCertificate();
        nal_test::WriteFile(Path("root.cer"), root.GetData(), root.GetSize());
        Run({"openssl", "x509", "-engine", "gost", "-inform", "DER", "-in", Path("root.cer"), "-out", Path("root.pem")});
    }

    std::string Path(const std::string& name) const { return m_folder.File(name); }

    static nal_test::ProcessResult Run(const Command& command, bool mayFail = false) {
        const nal_test::ProcessResult result = RunProcess(command);
        std::string line;
        for (const std::string& word : command) line += word + " ";
        EXPECT_TRUE(mayFail || result.exitCode == 0) << line << "\n" << result.output << result.errors;
        return result;
    }

    /// Whether OpenSSL accepts the message, with its chain, as one of these bytes.
    bool OpenSslVerifies(const std::string& message, const std::string& detached) const {
        Command command = {"openssl", "cms", "-verify", "-engine", "gost", "-binary", "-inform", "DER", "-in", Path(message),
                           "-CAfile", Path("root.pem"), "-purpose", "any", "-out", Path("verified")};
        if (!detached.empty()) command.insert(command.end(), {"-content", Path(detached)});
        const bool accepted = Run(command, true).exitCode == 0;
        return accepted && nal_test::ReadFile(Path("verified")) == nal_test::ReadFile(Path("content"));
    }

    /// GnuTLS sorts the signed attributes before it checks, so it accepts those that stand sorted: NALSignFile's.
    bool GnuTlsVerifies(const std::string& message, const std::string& detached) const {
        Command command = {"certtool", "--p7-verify", "--verify-allow-broken", "--inder", "--infile", Path(message),
                           "--load-ca-certificate", Path("root.pem")};
        if (!detached.empty()) command.insert(command.end(), {"--load-data", Path(detached)});
        const nal_test::ProcessResult result = Run(command, true);
        const std::string text = result.output + result.errors;
        return result.exitCode == 0 && text.find("Signature status: ok") != std::string::npos && text.find("failed") == std::string::npos;
    }

    /// The signature file without its content.
    void DetachFile() const {
        CNALSignData message = Read(Loaded(Path("file.p7s")));
        message.eContent.Clear();
        const IdentObj der = message.WriteObject(nullptr);
        nal_test::WriteFile(Path("detached"), der.GetData(), der.GetSize());
    }

    std::string m_content = MakeBytes(100000);
};

TEST_F(Tools, VerifyWhatIsSignedHere) {
    const nal_test::Person dora = NewPerson("Dora");
    const nal_test::Person* people[] = {&*s_ann, &*s_bob, &dora};
    nal_test::WriteFile(Path("other"), MakeBytes(100001));
    for (const std::size_t signers : {1U, 3U}) {
        for (const DWORD form : {DWORD{0}, c_NAL_SIGN_BY_KEY_ID}) {
            for (const bool attached : {false, true}) {
                IdentObj message;
                const WhatToSignStruct what = File(Path("content"), form | (attached ? c_NAL_SIGN_ATTACHED : 0));
                const std::string source = Path("content");
                nal_test::WriteFile(Path("file.p7s"), m_content);
                for (std::size_t i = 0; i < signers; ++i) {
                    NALSignData(people[i]->user, people[i]->cert, what, &message, nullptr, nullptr);
                    NALSignFile(people[i]->user, people[i]->cert, Path("file.p7s").c_str(), nullptr, nullptr,
                                form | (i != 0 ? c_NAL_SIGN_ADD_TO_FILE : 0), nullptr, nullptr);
                }
                nal_test::WriteFile(Path("message"), message.GetData(), message.GetSize());
                const std::string detached = attached ? "" : "content";
                const std::string name = std::to_string(signers) + (form != 0 ? " by key id" : "") + (attached ? " attached" : "");
                EXPECT_TRUE(OpenSslVerifies("message", detached)) << name;
                EXPECT_TRUE(OpenSslVerifies("file.p7s", "")) << name;
                EXPECT_TRUE(GnuTlsVerifies("file.p7s", "")) << name;
                if (!attached) {
                    EXPECT_FALSE(OpenSslVerifies("message", "other"));
                    EXPECT_FALSE(GnuTlsVerifies("message", "other"));
                    DetachFile();
                    EXPECT_TRUE(GnuTlsVerifies("detached", "content")) << name;
                    EXPECT_FALSE(GnuTlsVerifies("detached", "other")) << name;
                }
                const std::string print =
                    Run({"openssl", "cms", "-cmsout", "-print", "-inform", "DER", "-in", Path("message"), "-noout"}).output;
                EXPECT_NE(std::string::npos, print.find(form != 0 ? "d.subjectKeyIdentifier" : "d.issuerAndSerialNumber"));
                Run({"openssl", "asn1parse", "-inform", "DER", "-in", Path("file.p7s")});
            }
        }
    }
}

TEST_F(Tools, SignWhatIsCheckedHere) {
    nal_test::WriteFile(Path("config"), std::string("[req]\ndistinguished_name = dn\nx509_extensions = signer\n[dn]\n[signer]\n"
                                                    "subjectKeyIdentifier = hash\nkeyUsage = digitalSignature\n"));
    for (const char* name : {"1", "2", "3"}) {
        Run({"openssl", "req", "-engine", "gost", "-x509", "-newkey", "gost2001", "-pkeyopt", "paramset:A", "-nodes", "-md_gost94",
             "-subj", std::string("/CN=") + name, "-days", "20000", "-config", Path("config"), "-keyout", Path(name) + ".key", "-out",
             Path(name) + ".pem"});
    }
    for (const std::size_t signers : {1U, 3U}) {
        for (const bool byKeyId : {false, true}) {
            for (const bool attached : {false, true}) {
                Command command = {"openssl", "cms", "-sign", "-engine", "gost", "-binary", "-md", "md_gost94", "-in", Path("content"),
                                   "-outform", "DER", "-out", Path("message")};
                if (byKeyId) command.emplace_back("-keyid");
                if (attached) command.emplace_back("-nodetach");
                for (std::size_t i = 1; i <= signers; ++i) {
                    const std::string name = Path(std::to_string(i));
                    command.insert(command.end(), {"-signer", name + ".pem", "-inkey", name + ".key"});
                }
                Run(command);
                const CNALSignData message = Read(Loaded(Path("message")));
                EXPECT_EQ(attached, message.IsAttached());
                EXPECT_EQ(Statuses(signers, 0), Check(message, m_content));
                EXPECT_EQ(Statuses(signers, c_NAL_SIGNATURE_INVALID), Check(message, m_content + "."));

                // One of ours beside theirs, and both tools' readers take it.
                IdentObj both = Loaded(Path("message"));
                NALSignData(s_ann->user, s_ann->cert, Memory(m_content, 0), &both, nullptr, nullptr);
                EXPECT_EQ(Statuses(signers + 1, 0), Check(Read(both), m_content));
            }
        }
    }
    // GnuTLS signs with the same key; without and with signed attributes.
    for (const char* options : {"", "--p7-time"}) {
        for (const char* form : {"--p7-sign", "--p7-detached-sign"}) {
            Command command = {"certtool", form, "--hash", "GOSTR341194", "--load-privkey", Path("1.key"), "--load-certificate",
                               Path("1.pem"), "--infile", Path("content"), "--outder", "--outfile", Path("message")};
            if (*options != '\0') command.emplace_back(options);
            Run(command);
            const CNALSignData message = Read(Loaded(Path("message")));
            EXPECT_EQ(std::string(form) == "--p7-sign", message.IsAttached());
            EXPECT_EQ(Statuses{0}, Check(message, m_content)) << form << options;
            EXPECT_EQ(Loaded(Path("message")), CNALSignData(message).WriteObject(nullptr)) << form << options;
        }
    }
}

}  // namespace
