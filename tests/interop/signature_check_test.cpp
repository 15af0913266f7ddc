// Messages signed by OpenSSL with the GOST engine, in every form, verify here, and fail once their content is another.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nal/signature_check.h"
#include "support/process.h"
#include "support/temp_folder.h"

namespace {

using nal_test::RunProcess;

constexpr char c_config[] = R"([req]
distinguished_name = dn
x509_extensions = ca
[dn]
[ca]
subjectKeyIdentifier = hash
basicConstraints = CA:TRUE
[signer]
subjectKeyIdentifier = hash
keyUsage = digitalSignature
)";

struct Form {
    const char* name;
    std::vector<std::string> options;
    std::vector<std::string> signers;
    bool attached;
};

class OpenSslSignatures : public testing::TestWithParam<Form> {
protected:
    void SetUp() override {
        if (RunProcess({"openssl", "engine", "-t", "gost"}).output.find("[ available ]") == std::string::npos) {
            GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
        }
        nal_test::WriteFile(File("config"), std::string(c_config));
        NewKey("root", {"-x509", "-days", "20000", "-out", File("root.pem")});
        for (const std::string& name : GetParam().signers) {
            NewKey(name, {"-out", File(name + ".req")});
            Run({"openssl", "x509", "-req", "-engine", "gost", "-in", File(name + ".req"), "-CA", File("root.pem"), "-CAkey",
                 File("root.key"), "-CAcreateserial", "-days", "20000", "-md_gost94", "-extfile", File("config"), "-extensions", "signer",
                 "-out", File(name + ".pem")});
        }
        std::string content(300001, '\0');
        for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 253);
        nal_test::WriteFile(File("content"), content);
        content.back() ^= 1;
        nal_test::WriteFile(File("other"), content);
    }

    std::string File(const std::string& name) const { return m_folder.File(name); }

    static void Run(const std::vector<std::string>& command) {
        const nal_test::ProcessResult result = RunProcess(command);
        ASSERT_EQ(result.exitCode, 0) << command[0] << " " << command[1] << ": " << result.errors;
    }

    void NewKey(const std::string& name, const std::vector<std::string>& more) const {
        std::vector<std::string> command = {"openssl", "req", "-engine", "gost", "-new", "-newkey", "gost2001", "-pkeyopt", "paramset:A",
                                            "-nodes", "-subj", "/CN=" + name, "-md_gost94", "-config", File("config"), "-keyout",
                                            File(name + ".key")};
        command.insert(command.end(), more.begin(), more.end());
        Run(command);
    }

    void Sign() const {
        std::vector<std::string> command = {"openssl", "cms", "-sign", "-engine", "gost", "-binary", "-md", "md_gost94",
                                            "-in", File("content"), "-outform", "DER", "-out", File("message")};
        command.insert(command.end(), GetParam().options.begin(), GetParam().options.end());
        for (const std::string& name : GetParam().signers) {
            command.insert(command.end(), {"-signer", File(name + ".pem"), "-inkey", File(name + ".key")});
        }
        Run(command);
    }

    std::list<CNALWholeSignatureCheck> Verify(const std::string& content, const IdentObj* message) const {
        std::list<CNALWholeSignatureCheck> records;
        EXPECT_EQ(NALVerifySignatureOnFile(records, File(content).c_str(), message, nullptr, nullptr), 1);
        EXPECT_EQ(records.size(), GetParam().signers.size());
        return records;
    }

    nal_test::TempFolder m_folder;
};

TEST_P(OpenSslSignatures, Verify) {
    Sign();
    const nal_test::Bytes bytes = nal_test::ReadFile(File("message"));
    const IdentObj message(bytes.data(), static_cast<unsigned>(bytes.size()));
    const bool attached = GetParam().attached;
    for (const auto& record : Verify(attached ? "message" : "content", attached ? nullptr : &message)) EXPECT_EQ(record.status, 0u);
    for (const auto& record : Verify("content", &message)) EXPECT_EQ(record.status, 0u);
    for (const auto& record : Verify("other", &message)) EXPECT_EQ(record.status, c_NAL_SIGNATURE_INVALID);
    if (!attached) return;
    EXPECT_EQ(NALRemoveSignaturesFromFile(File("message").c_str(), File("taken").c_str(), nullptr, nullptr), 1);
    EXPECT_TRUE(nal_test::ReadFile(File("taken")) == nal_test::ReadFile(File("content")));
}

INSTANTIATE_TEST_SUITE_P(Forms, OpenSslSignatures,
                         testing::Values(Form{"Attached", {"-nodetach"}, {"one"}, true}, Form{"Detached", {}, {"one"}, false},
                                         Form{"AttachedByKeyId", {"-nodetach", "-keyid"}, {"one"}, true},
                                         Form{"WithoutAttributes", {"-nodetach", "-noattr"}, {"one"}, true},
                                         Form{"StreamedOfThree", {"-nodetach", "-stream"}, {"one", "two", "three"}, true},
                                         Form{"DetachedOfThreeByKeyId", {"-keyid"}, {"one", "two", "three"}, false}),
                         [](const auto& info) { return info.param.name; });

}  // namespace
