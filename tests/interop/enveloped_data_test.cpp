// Encrypted messages to and from OpenSSL with the GOST engine, which knows GOST R 34.10-2001 keys. With NAL_TEST_LARGE in the environment
// messages of 100 MiB are among them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "encryption/encryption_fixture.h"
#include "support/process.h"

namespace {

using nal_test::KeyHolder;

std::vector<unsigned> Sizes() {
    std::vector<unsigned> sizes = {1, 4095, 4096, 4097, 65536};
    if (std::getenv("NAL_TEST_LARGE") != nullptr) sizes.push_back(100U << 20);
    return sizes;
}

constexpr const char* c_names[] = {"one", "two", "three"};
constexpr const char* c_sets[] = {"A", "XA", "C"};

class OpenSslEnvelopes : public nal_test::EncryptionTest {
protected:
    void SetUp() override {
        if (nal_test::RunProcess({"openssl", "engine", "-t", "gost"}).output.find("[ available ]") == std::string::npos) {
            GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
        }
    }

    std::string File(const std::string& name) const { return m_folder.File(name); }

    void Run(std::vector<std::string> command) const {
        command.insert(command.begin(), {"openssl"});
        const nal_test::ProcessResult result = nal_test::RunProcess(command);
        ASSERT_EQ(result.exitCode, 0) << command[1] << ": " << result.errors;
    }

    /// A key and certificate of OpenSSL's, as NAME.key and NAME.pem.
    CNALCertContext MakeTheirs(const std::string& name, const std::string& paramSet) const {
        const std::string config = "[req]\ndistinguished_name=dn\nx509_extensions=e\n[dn]\n[e]\nsubjectKeyIdentifier=hash\n";
        nal_test::WriteFile(File("config"), config);
        Run({"req", "-engine", "gost", "-x509", "-newkey", "gost2001", "-pkeyopt", "paramset:" + paramSet, "-nodes", "-md_gost94", "-subj",
             "/CN=" + name, "-days", "20000", "-config", File("config"), "-keyout", File(name + ".key"), "-out", File(name + ".pem")});
        Run({"x509", "-in", File(name + ".pem"), "-outform", "DER", "-out", File(name + ".der")});
        return CNALCertContext(Load(File(name + ".der")));
    }
};

TEST_F(OpenSslEnvelopes, WhatWeEncryptItDecrypts) {
    std::list<CNALCertContext> all;
    for (std::size_t i = 0; i < std::size(c_names); ++i) all.push_back(MakeTheirs(c_names[i], c_sets[i]));
    for (const unsigned size : Sizes()) {
        const IdentObj plain = MakeBytes(size);
        Store(m_source, plain);
        for (const bool inPieces : {false, true}) {
            for (const std::size_t count : {1, 3}) {
                SCOPED_TRACE(std::to_string(size) + (inPieces ? " in pieces, " : " in one piece, ") + std::to_string(count));
                WhatToSignStruct what = InFile(m_source, inPieces);
                const std::list<CNALCertContext> recipients(all.begin(), std::next(all.begin(), static_cast<long>(count)));
                ASSERT_EQ(NALEncryptFile(what, recipients, m_message.c_str(), nullptr), 1);
                for (std::size_t i = 0; i < count; ++i) {
                    const std::string name = c_names[i];
                    Run({"cms", "-decrypt", "-engine", "gost", "-binary", "-inform", "DER", "-in", m_message, "-recip", File(name + ".pem"),
                         "-inkey", File(name + ".key"), "-out", File("plain")});
                    EXPECT_TRUE(Load(File("plain")) == plain);
                }
            }
        }
    }
}

TEST_F(OpenSslEnvelopes, WhatItEncryptsWeDecrypt) {
    std::vector<KeyHolder> people;
    for (const auto& [name, paramOid] : {std::pair("one", "1.2.643.2.2.35.1"), std::pair("two", "1.2.643.2.2.35.2"),
                                         std::pair("three", "1.2.643.2.2.35.3")}) {
        people.push_back(MakePerson(name, ORK_KEY_SIGNATURE, paramOid));
        const PCCERT_CONTEXT cert = people.back().cert.GetContext();
        nal_test::WriteFile(File(std::string(name) + ".der"), cert->pbCertEncoded, cert->cbCertEncoded);
        const std::string file = File(name);
        Run({"x509", "-engine", "gost", "-inform", "DER", "-in", file + ".der", "-out", file + ".pem"});
    }
    std::vector<unsigned> sizes = Sizes();
    sizes.push_back(0);
    for (const unsigned size : sizes) {
        const IdentObj plain = MakeBytes(size);
        Store(m_source, plain);
        for (const char* form : {"", "-stream", "-keyid"}) {
            // Of nothing its streaming makes no message.
            if (size == 0 && std::string(form) == "-stream") continue;
            for (const std::size_t count : {1, 3}) {
                SCOPED_TRACE(std::to_string(size) + form + " " + std::to_string(count));
                std::vector<std::string> command = {"cms", "-encrypt", "-engine", "gost", "-binary", "-gost89", "-in", m_source, "-outform",
                                                    "DER", "-out", m_message};
                if (*form != 0) command.emplace_back(form);
                for (std::size_t i = 0; i < count; ++i) command.push_back(File(std::string(c_names[i]) + ".pem"));
                Run(command);
                for (std::size_t i = 0; i < count; ++i) {
                    WhatToSignStruct what = InFile(m_message);
                    IdentObj content;
                    int err = -1;
                    EXPECT_EQ(NALDecryptMem(what, people[i].user.get(), nullptr, content, &err), 1) << err;
                    EXPECT_TRUE(content == plain);
                    EXPECT_EQ(NALDecryptFile(what, people[i].user.get(), nullptr, m_out.c_str(), &err), 1) << err;
                    EXPECT_TRUE(Load(m_out) == plain);
                }
            }
        }
    }
}

}  // namespace
