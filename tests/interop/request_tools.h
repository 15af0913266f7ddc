// What the tests of CRLs and requests against OpenSSL and GnuTLS share: a folder with an authority of OpenSSL's, the programs,
// and a key of our provider.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "model/provider_handles.h"
#include "nal/crl.h"
#include "nal/pkcs10.h"
#include "ork/provider.h"
#include "support/process.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace nal_test {

class RequestTools : public testing::Test {
protected:
    void SetUp() override {
        if (RunProcess({"openssl", "engine", "-t", "gost"}).output.find("[ available ]") == std::string::npos) {
            GTEST_SKIP() << "openssl has no gost engine (package libengine-gost-openssl)";
        }
        ASSERT_TRUE(ORKAcquireContext(m_verifier.Receive(), nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY));
        Write("ca.cnf",
              "[req]\ndistinguished_name=dn\nx509_extensions=ca\nprompt=no\n"
              "[dn]\nC=RU\nO=Орматек\nCN=Корень\n"
              "[ca]\nbasicConstraints=critical,CA:TRUE\nkeyUsage=critical,keyCertSign,cRLSign\nsubjectKeyIdentifier=hash\n"
              "[usage]\nkeyUsage=critical,digitalSignature\n"
              "[crl]\ndatabase=index.txt\ncrlnumber=number\ndefault_md=md_gost94\ndefault_crl_days=30\ncrl_extensions=crlext\n"
              "[crlext]\nauthorityKeyIdentifier=keyid:always\n");
        Sh("openssl genpkey -engine gost -algorithm gost2001 -pkeyopt paramset:A -out ca.key");
        Sh("openssl req -engine gost -utf8 -new -x509 -md_gost94 -key ca.key -config ca.cnf -days 100 -out ca.pem");
    }

    /// What a shell command prints in the folder, errors included; a failure of it fails the test.
    std::string Sh(const std::string& command) const {
        const ProcessResult result = RunProcess({"sh", "-c", "cd '" + m_folder.Path() + "' && { " + command + "; } 2>&1"});
        EXPECT_EQ(result.exitCode, 0) << command << ": " << result.output;
        return result.output;
    }

    void Write(const std::string& name, const std::string& text) const { WriteFile(m_folder.File(name), text); }
    void Write(const std::string& name, const IdentObj& bytes) const {
        WriteFile(m_folder.File(name), bytes.GetData(), bytes.GetSize());
    }

    template <class Object>
    Object Read(const std::string& name) const {
        const Bytes der = ReadFile(m_folder.File(name));
        Object object;
        EXPECT_EQ(object.ReadData(der.data(), static_cast<unsigned>(der.size())), der.size());
        return object;
    }

    /// The public key of a certificate or key of the folder; `command` prints it as PEM.
    CNALCertPublicKeyInfo PublicKey(const std::string& command) const {
        Sh(command + " | openssl pkey -engine gost -pubin -pubout -outform DER -out public.der");
        return Read<CNALCertPublicKeyInfo>("public.der");
    }

    unsigned long Verifier() const { return m_verifier.Get(); }

    /// Makes a key of ours.
    void MakeKey(DWORD algId) {
        const std::string container = m_folder.File("container");
        ASSERT_TRUE(ORKAcquireContext(m_context.Receive(), container.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE,
                                      ORK_OPEN_NEW | ORK_OPEN_SILENT));
        ASSERT_TRUE(ORKGenKey(m_context.Get(), algId, 0, m_key.Receive()));
    }

    /// A request for that key, with a Cyrillic name and a key usage.
    CNALPKCS10Request MakeRequest() const {
        CNALPKCS10Data data;
        data.m_subject = std::list<CNALSimpleRDN>{{"CN", "Узел 0001"}, {"C", "RU"}};
        EXPECT_TRUE(NALExportPKInfo(m_context.Get(), m_key.Get(), data.m_publicKey));
        CNALCertExtensionList extensions;
        extensions.Add(CNALKeyUsage(CNALKeyUsage::DigitalSignature).ToExtension(c_NAL_OID_KEY_USAGE, true));
        data.SetExtensions(extensions);
        CNALPKCS10Request request;
        EXPECT_EQ(request.SignData(data, m_context.Get(), m_key.Get(), nullptr), 1);
        return request;
    }

    TempFolder m_folder;
    nal::ContextHandle m_verifier;
    nal::ContextHandle m_context;
    nal::KeyHandle m_key;
};

}  // namespace nal_test
