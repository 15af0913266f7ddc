// Messages signed by OpenSSL with the GOST engine: they read to the fields that it printed, and what is written again it accepts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "nal/certificate.h"
#include "nal/extensions.h"
#include "nal/signed_data.h"
#include "support/process.h"
#include "support/temp_folder.h"
#include "too/file.h"

namespace {

using nal_test::RunProcess;
using testing::HasSubstr;

constexpr char c_config[] = R"([req]
distinguished_name = dn
x509_extensions = signer
[dn]
[signer]
subjectKeyIdentifier = hash
basicConstraints = CA:TRUE
)";

struct Form {
    const char* name;
    std::vector<std::string> options;
    std::vector<std::string> signers;
    bool attached;
    bool inPieces;
    bool isDer;
};

class OpenSslMessages : public testing::TestWithParam<Form> {
protected:
    void SetUp() override {
        const std::string engines = RunProcess({"openssl", "engine", "-t", "gost"}).output;
        if (engines.find("[ available ]") == std::string::npos) {
            GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
        }
        nal_test::WriteFile(File("config"), std::string(c_config));
        for (const std::string& name : GetParam().signers) {
            Run({"openssl", "req", "-engine", "gost", "-x509", "-newkey", "gost2001", "-pkeyopt", "paramset:A", "-nodes",
                 "-md_gost94", "-subj", "/CN=" + name, "-days", "20000", "-config", File("config"), "-keyout",
                 File(name + ".key"), "-out", File(name + ".pem")});
        }
        std::string content(100000, '\0');
        for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 253);
        nal_test::WriteFile(File("content"), content);
    }

    std::string File(const std::string& name) const { return m_folder.File(name); }

    std::string Run(const std::vector<std::string>& command) const {
        const nal_test::ProcessResult result = RunProcess(command);
        EXPECT_EQ(result.exitCode, 0) << command[0] << " " << command[1] << ": " << result.errors;
        return result.output;
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

    /// Has OpenSSL check a message: the content that it found, and that every signature holds.
    void Verify(const std::string& message) const {
        std::vector<std::string> command = {"openssl", "cms", "-verify", "-engine", "gost", "-binary", "-inform", "DER",
                                            "-in", File(message), "-noverify", "-out", File("verified")};
        if (!GetParam().attached) command.insert(command.end(), {"-content", File("content")});
        Run(command);
        EXPECT_TRUE(nal_test::ReadFile(File("verified")) == nal_test::ReadFile(File("content")));
    }

    IdentObj Read(const std::string& name) const {
        const nal_test::Bytes bytes = nal_test::ReadFile(File(name));
        return {bytes.data(), static_cast<unsigned>(bytes.size())};
    }

    void ExpectFields(const CNALSignData& message) const {
        EXPECT_EQ(message.eContentType.GetID(), c_NAL_OID_DATA);
        ASSERT_EQ(message.digestAlgorithms.size(), 1u);
        EXPECT_EQ(message.digestAlgorithms.front().GetID(), c_NAL_OID_HASH_GOST94);
        ASSERT_EQ(message.certificates.size(), GetParam().signers.size());
        ASSERT_EQ(message.signerInfos.size(), GetParam().signers.size());
        for (const IdentObj& der : message.signerInfos) {
            CNALMessageSignerInfo info;
            ASSERT_EQ(info.ReadData(der.GetData(), der.GetSize(), nullptr), der.GetSize());
            EXPECT_EQ(info.digestAlgorithm.GetID(), c_NAL_OID_HASH_GOST94);
            EXPECT_EQ(info.signatureAlgorithm.GetID(), c_NAL_OID_KEY_GOST2001);
            EXPECT_EQ(info.signature.GetSize(), 64u);
            EXPECT_EQ(std::count_if(message.certificates.begin(), message.certificates.end(),
                                    [&](const IdentObj& certificate) { return Names(info, certificate); }),
                      1);
            const CTOOFileTime now = CTOOFileTime::Now();
            EXPECT_LE(info.GetSigningDate(nullptr), now);
            EXPECT_GT(info.GetSigningDate(nullptr).GetTicks() + CTOOFileTime::c_ticksPerDay, now.GetTicks());
            EXPECT_EQ(info.GetBytesToSign(), info.GetBytesToSign(asnt::Order::Sorted));
            EXPECT_EQ(info.WriteData(nullptr), der);
        }
    }

    /// Whether the signer identifier names this certificate.
    static bool Names(const CNALMessageSignerInfo& info, const IdentObj& der) {
        CNALX509Certificate certificate;
        certificate.ReadEncodetData(der.GetData(), der.GetSize());
        CNALSubjectKeyID keyId;
        EXPECT_TRUE(keyId.ReadFrom(certificate.m_info.m_extensions, c_NAL_OID_SUBJECT_KEY_ID));
        if (info.version == 3) return info.subjectKeyIdentifier == keyId.m_keyId;
        IdentObj serial = certificate.m_info.m_serialNumber;
        std::reverse(serial.GetData(), serial.GetData() + serial.GetSize());
        return info.issuer == certificate.m_info.m_issuer && info.serialNumber == serial;
    }

    nal_test::TempFolder m_folder;
};

TEST_P(OpenSslMessages, AreReadAndWrittenAgain) {
    const Form& form = GetParam();
    Sign();
    const IdentObj original = Read("message");
    CNALSignData inMemory;
    ASSERT_TRUE(inMemory.ReadObject(original.GetData(), original.GetSize(), nullptr));
    CNALSignData inFile;
    ASSERT_TRUE(inFile.ReadObject(CTOOFile(File("message"), "rbc"), 0, nullptr));
    ExpectFields(inMemory);
    ExpectFields(inFile);
    EXPECT_EQ(inMemory.IsAttached(), form.attached);
    EXPECT_EQ(inFile.dataSource.flags, form.attached ? (form.inPieces ? 3u : 1u) : 0u);
    EXPECT_EQ(inMemory.eContent, form.attached ? Read("content") : IdentObj());

    const IdentObj written = inMemory.WriteObject(nullptr);
    EXPECT_EQ(written == original, form.isDer);
    EXPECT_EQ(inFile.WriteObject(nullptr), written);
    CTOOFile file(File("again"), "wbc");
    inFile.WriteObject(file, 0xFFFFFFFF);
    file.Close();
    EXPECT_EQ(Read("again"), written);
    Verify("again");
    const std::string printed = Run({"openssl", "cms", "-cmsout", "-print", "-inform", "DER", "-in", File("again")});
    EXPECT_THAT(printed, HasSubstr("contentType: pkcs7-signedData"));
    EXPECT_EQ(printed.find("eContent: <ABSENT>") == std::string::npos, form.attached);
    Run({"openssl", "asn1parse", "-inform", "DER", "-in", File("again"), "-noout"});
}

TEST_P(OpenSslMessages, ContentMovesInAndOut) {
    Sign();
    CNALSignData message;
    ASSERT_TRUE(message.ReadObject(CTOOFile(File("message"), "rbc"), 0, nullptr));
    const std::string taken = File(GetParam().attached ? "taken" : "content");
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE;
    what.data = taken.c_str();
    what.end = c_NAL_TO_END_OF_FILE;
    if (GetParam().attached) {
        ASSERT_TRUE(message.DetachData(what, nullptr));
        EXPECT_EQ(Read("taken"), Read("content"));
    } else {
        ASSERT_TRUE(message.AttachData(what, nullptr));
    }
    CTOOFile file(File("again"), "wbc");
    message.WriteObject(file, 0);
    file.Close();
    const std::vector<std::string> command = {"openssl", "cms", "-verify", "-engine", "gost", "-binary", "-inform", "DER",
                                              "-in", File("again"), "-noverify", "-out", File("verified"), "-content", taken};
    Run(GetParam().attached ? command : std::vector<std::string>(command.begin(), command.end() - 2));
    EXPECT_EQ(Read("verified"), Read("content"));
}

INSTANTIATE_TEST_SUITE_P(
    Forms, OpenSslMessages,
    testing::Values(Form{"Attached", {"-nodetach"}, {"one"}, true, false, true},
                    Form{"Detached", {}, {"one"}, false, false, true},
                    Form{"AttachedByKeyId", {"-nodetach", "-keyid"}, {"one"}, true, false, true},
                    Form{"Streamed", {"-nodetach", "-stream"}, {"one"}, true, true, false},
                    Form{"StreamedOfThreeByKeyId", {"-nodetach", "-stream", "-keyid"}, {"one", "two", "three"}, true, true, false},
                    Form{"DetachedOfThree", {}, {"one", "two", "three"}, false, false, true}),
    [](const auto& info) { return info.param.name; });

}  // namespace
