// Encrypted messages to and from OpenSSL with the GOST engine, which knows GOST R 34.10-2001 keys. With NAL_TEST_LARGE in the environment
// messages of 100 MiB are among them.
#include <cstdlib>
#include <string>
#include <vector>

#include "encryption/encryption_fixture.h"
#include "interop/tools.h"

namespace {

using nal_test::KeyHolder;

std::vector<unsigned> Sizes() {
    std::vector<unsigned> sizes = {1, 4095, 4096, 4097, 65536};
    if (std::getenv("NAL_TEST_LARGE") != nullptr) sizes.push_back(100U << 20);
    return sizes;
}

constexpr const char* c_names[] = {"one", "two", "three"};
constexpr const char* c_sets[] = {"A", "XA", "C"};

using OpenSslEnvelopes = nal_test::ToolTest<nal_test::EncryptionTest>;

TEST_F(OpenSslEnvelopes, WhatWeEncryptItDecrypts) {
    std::list<CNALCertContext> all;
    for (std::size_t i = 0; i < std::size(c_names); ++i) {
        Issue(c_names[i], "signer", "", "", c_sets[i]);
        all.push_back(CNALCertContext(Get(c_names[i])));
    }
    for (const unsigned size : Sizes()) {
        const IdentObj plain = MakeBytes(size);
        Store("source", plain);
        for (const bool inPieces : {false, true}) {
            for (const std::size_t count : {1, 3}) {
                SCOPED_TRACE(std::to_string(size) + (inPieces ? " in pieces, " : " in one piece, ") + std::to_string(count));
                WhatToSignStruct what = inPieces ? InPieces(m_source) : InFile(m_source);
                const std::list<CNALCertContext> recipients(all.begin(), std::next(all.begin(), static_cast<long>(count)));
                ASSERT_EQ(NALEncryptFile(what, recipients, m_message.c_str(), nullptr), 1);
                for (std::size_t i = 0; i < count; ++i) {
                    const std::string name = c_names[i];
                    Sh("openssl cms -decrypt -binary -inform DER -in message -recip " + name + ".pem -inkey " + name + ".key -out plain");
                    EXPECT_TRUE(Get("plain") == plain);
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
        Put(name, IdentObj(cert->pbCertEncoded, cert->cbCertEncoded));
        Sh(std::string("openssl x509 -inform DER -in ") + name + " -out " + name + ".pem");
    }
    std::vector<unsigned> sizes = Sizes();
    sizes.push_back(0);
    for (const unsigned size : sizes) {
        const IdentObj plain = MakeBytes(size);
        Store("source", plain);
        for (const char* form : {"", "-stream", "-keyid"}) {
            // Of nothing its streaming makes no message.
            if (size == 0 && std::string(form) == "-stream") continue;
            for (const std::size_t count : {1, 3}) {
                SCOPED_TRACE(std::to_string(size) + form + " " + std::to_string(count));
                std::string command = std::string("openssl cms -encrypt -binary -gost89 -in source -outform DER -out message ") + form;
                for (std::size_t i = 0; i < count; ++i) command += std::string(" ") + c_names[i] + ".pem";
                Sh(command);
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
