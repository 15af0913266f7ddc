// Messages signed here, which OpenSSL with the GOST engine and GnuTLS verify; and theirs, which are read, checked, added to and
// written again.
#include <algorithm>
#include <vector>

#include "interop/tools.h"
#include "nal/certificate.h"
#include "nal/extensions.h"
#include "nal/signature_check.h"
#include "nal/signed_data.h"
#include "win32/certsign/signing_test.h"

namespace {

using Statuses = std::vector<DWORD>;
using testing::HasSubstr;

class SignedMessages : public nal_test::ToolTest<nal_test::SigningTest> {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        if (IsSkipped()) return;
        Put("content", m_content);
        Put("other", MakeBytes(300002));
        Put("root.cer", s_authority->root.GetCertificate());
        Sh("openssl x509 -inform DER -in root.cer -out ours.pem");
    }

    /// Whether OpenSSL accepts the message, with a chain to `root`, as one of these bytes.
    bool OpenSslVerifies(const std::string& message, const std::string& detached, const std::string& root = "ours.pem") const {
        const std::string content = detached.empty() ? "" : " -content " + detached;
        const std::string command = "openssl cms -verify -binary -purpose any -inform DER -out verified -in ";
        return Try(command + message + " -CAfile " + root + content).exitCode == 0 && Get("verified") == Get("content");
    }

    /// GnuTLS sorts the signed attributes before it checks, so it accepts those that stand sorted: NALSignFile's.
    bool GnuTlsVerifies(const std::string& message, const std::string& detached) const {
        const std::string content = detached.empty() ? "" : " --load-data " + detached;
        const nal_test::ProcessResult result =
            Try("certtool --p7-verify --verify-allow-broken --load-ca-certificate ours.pem --inder --infile " + message + content);
        return result.exitCode == 0 && result.output.find("Signature status: ok") != std::string::npos &&
               result.output.find("failed") == std::string::npos;
    }

    /// What NALVerifySignatureOnFile makes of the signatures on a file, which stand in the file if no message is given.
    Statuses VerifyFile(const std::string& name, const IdentObj* message) const {
        std::list<CNALWholeSignatureCheck> records;
        EXPECT_EQ(NALVerifySignatureOnFile(records, Path(name).c_str(), message, nullptr, nullptr), 1);
        Statuses statuses;
        for (const CNALWholeSignatureCheck& record : records) statuses.push_back(record.status);
        return statuses;
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

    static void ExpectFields(const CNALSignData& message, std::size_t signers, bool byKeyId, bool hasAttributes) {
        EXPECT_EQ(message.eContentType.GetID(), c_NAL_OID_DATA);
        ASSERT_EQ(message.digestAlgorithms.size(), 1u);
        EXPECT_EQ(message.digestAlgorithms.front().GetID(), c_NAL_OID_HASH_GOST94);
        ASSERT_EQ(message.certificates.size(), signers);
        ASSERT_EQ(message.signerInfos.size(), signers);
        for (const IdentObj& der : message.signerInfos) {
            CNALMessageSignerInfo info = SignerOf(der);
            EXPECT_EQ(info.version, byKeyId ? 3 : 1);
            EXPECT_EQ(info.digestAlgorithm.GetID(), c_NAL_OID_HASH_GOST94);
            EXPECT_EQ(info.signatureAlgorithm.GetID(), c_NAL_OID_KEY_GOST2001);
            EXPECT_EQ(info.signature.GetSize(), 64u);
            const auto isSigners = [&](const IdentObj& certificate) { return Names(info, certificate); };
            EXPECT_EQ(std::count_if(message.certificates.begin(), message.certificates.end(), isSigners), 1);
            EXPECT_EQ(info.WriteData(nullptr), der);
            if (!hasAttributes) continue;
            const CTOOFileTime now = CTOOFileTime::Now();
            EXPECT_LE(info.GetSigningDate(nullptr), now);
            EXPECT_GT(info.GetSigningDate(nullptr).GetTicks() + CTOOFileTime::c_ticksPerDay, now.GetTicks());
            EXPECT_EQ(info.GetBytesToSign(), info.GetBytesToSign(asnt::Order::Sorted));
        }
    }

    IdentObj m_content = MakeBytes(300001);
};

TEST_F(SignedMessages, OfOursVerifyThere) {
    NEEDS_CERTTOOL();
    const nal_test::Person dora = NewPerson("Dora");
    const nal_test::Person* people[] = {&*s_ann, &*s_bob, &dora};
    for (const std::size_t signers : {1U, 3U}) {
        for (const DWORD form : {DWORD{0}, c_NAL_SIGN_BY_KEY_ID}) {
            for (const bool attached : {false, true}) {
                SCOPED_TRACE(std::to_string(signers) + (form != 0 ? " by key id" : "") + (attached ? " attached" : ""));
                IdentObj message;
                const std::string source = Path("content");
                const WhatToSignStruct what = InFile(source, form | (attached ? c_NAL_SIGN_ATTACHED : 0));
                Put("file.p7s", m_content);
                for (std::size_t i = 0; i < signers; ++i) {
                    NALSignData(people[i]->user, people[i]->cert, what, &message, nullptr, nullptr);
                    NALSignFile(people[i]->user, people[i]->cert, Path("file.p7s").c_str(), nullptr, nullptr,
                                form | (i != 0 ? c_NAL_SIGN_ADD_TO_FILE : 0), nullptr, nullptr);
                }
                Put("message", message);
                EXPECT_TRUE(OpenSslVerifies("message", attached ? "" : "content"));
                EXPECT_TRUE(OpenSslVerifies("file.p7s", ""));
                EXPECT_TRUE(GnuTlsVerifies("file.p7s", ""));
                if (!attached) {
                    EXPECT_FALSE(OpenSslVerifies("message", "other"));
                    EXPECT_FALSE(GnuTlsVerifies("message", "other"));
                    CNALSignData withoutContent = Read(Get("file.p7s"));
                    withoutContent.eContent.Clear();
                    Put("detached", withoutContent.WriteObject(nullptr));
                    EXPECT_TRUE(GnuTlsVerifies("detached", "content"));
                    EXPECT_FALSE(GnuTlsVerifies("detached", "other"));
                }
                EXPECT_THAT(Sh("openssl cms -cmsout -print -inform DER -in message -noout"),
                            HasSubstr(form != 0 ? "d.subjectKeyIdentifier" : "d.issuerAndSerialNumber"));
                Sh("openssl asn1parse -inform DER -in file.p7s");
            }
        }
    }
}

TEST_F(SignedMessages, OfOpenSslAreReadCheckedAndWrittenAgain) {
    Issue("root", "root");
    for (const char* name : {"1", "2", "3"}) Issue(name, "signer", "root");
    const struct {
        const char* options;
        bool attached, inPieces, byKeyId, hasAttributes = true;
    } forms[] = {
        {"", false, false, false},
        {"-keyid", false, false, true},
        {"-nodetach", true, false, false},
        {"-nodetach -keyid", true, false, true},
        {"-nodetach -noattr", true, false, false, false},
        {"-nodetach -stream", true, true, false},
        {"-nodetach -stream -keyid", true, true, true},
    };
    for (const auto& form : forms) {
        for (const std::size_t signers : {1U, 3U}) {
            SCOPED_TRACE(std::to_string(signers) + form.options);
            std::string command = "openssl cms -sign -binary -md md_gost94 -in content -outform DER -out message ";
            command += form.options;
            for (std::size_t i = 1; i <= signers; ++i) {
                command += " -signer " + std::to_string(i) + ".pem -inkey " + std::to_string(i) + ".key";
            }
            Sh(command);
            const IdentObj original = Get("message");
            const std::string detached = form.attached ? "" : "content";

            const CNALSignData inMemory = Read(original);
            CNALSignData inFile;
            ASSERT_TRUE(inFile.ReadObject(CTOOFile(Path("message"), "rbc"), 0, nullptr));
            ExpectFields(inMemory, signers, form.byKeyId, form.hasAttributes);
            ExpectFields(inFile, signers, form.byKeyId, form.hasAttributes);
            EXPECT_EQ(inMemory.IsAttached(), form.attached);
            EXPECT_EQ(inFile.dataSource.flags, form.attached ? (form.inPieces ? 3u : 1u) : 0u);
            EXPECT_EQ(inMemory.eContent, form.attached ? Get("content") : IdentObj());

            // Of every form but the streamed one the encoding is DER.
            const IdentObj written = CNALSignData(inMemory).WriteObject(nullptr);
            EXPECT_EQ(written == original, !form.inPieces);
            EXPECT_EQ(inFile.WriteObject(nullptr), written);
            CTOOFile again(Path("again"), "wbc");
            inFile.WriteObject(again, 0xFFFFFFFF);
            again.Close();
            EXPECT_EQ(Get("again"), written);
            EXPECT_TRUE(OpenSslVerifies("again", detached, "root.pem"));
            const std::string printed = Sh("openssl cms -cmsout -print -inform DER -in again");
            EXPECT_THAT(printed, HasSubstr("contentType: pkcs7-signedData"));
            EXPECT_EQ(printed.find("eContent: <ABSENT>") == std::string::npos, form.attached);
            Sh("openssl asn1parse -inform DER -in again -noout");

            // The content moves out and in.
            const std::string taken = Path(form.attached ? "taken" : "content");
            WhatToSignStruct what = InFile(taken);
            ASSERT_TRUE(form.attached ? inFile.DetachData(what, nullptr) : inFile.AttachData(what, nullptr));
            EXPECT_EQ(Get(form.attached ? "taken" : "content"), Get("content"));
            CTOOFile moved(Path("moved"), "wbc");
            inFile.WriteObject(moved, 0);
            moved.Close();
            EXPECT_TRUE(OpenSslVerifies("moved", form.attached ? "taken" : "", "root.pem"));

            EXPECT_EQ(Check(inMemory, m_content), Statuses(signers, 0));
            EXPECT_EQ(VerifyFile(form.attached ? "message" : "content", form.attached ? nullptr : &original), Statuses(signers, 0));
            EXPECT_EQ(VerifyFile("content", &original), Statuses(signers, 0));
            EXPECT_EQ(VerifyFile("other", &original), Statuses(signers, c_NAL_SIGNATURE_INVALID));
            if (form.attached) {
                EXPECT_EQ(NALRemoveSignaturesFromFile(Path("message").c_str(), Path("taken").c_str(), nullptr, nullptr), 1);
                EXPECT_EQ(Get("taken"), Get("content"));
            }

            // One of ours beside theirs.
            IdentObj both = original;
            NALSignData(s_ann->user, s_ann->cert, InMemory(m_content), &both, nullptr, nullptr);
            EXPECT_EQ(Check(Read(both), m_content), Statuses(signers + 1, 0));
        }
    }
}

TEST_F(SignedMessages, OfGnuTlsAreCheckedAndWrittenAgain) {
    NEEDS_CERTTOOL();
    Issue("root", "root");
    Issue("1", "signer", "root");
    for (const char* attributes : {"", " --p7-time"}) {
        for (const char* form : {"--p7-sign", "--p7-detached-sign"}) {
            SCOPED_TRACE(std::string(form) + attributes);
            Sh("certtool --hash GOSTR341194 --load-privkey 1.key --load-certificate 1.pem --infile content --outder --outfile message " +
               std::string(form) + attributes);
            const CNALSignData message = Read(Get("message"));
            EXPECT_EQ(std::string(form) == "--p7-sign", message.IsAttached());
            EXPECT_EQ(Statuses{0}, Check(message, m_content));
            EXPECT_EQ(Get("message"), CNALSignData(message).WriteObject(nullptr));
        }
    }
}

}  // namespace
