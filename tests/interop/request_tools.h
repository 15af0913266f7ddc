// What the tests of CRLs and requests against OpenSSL and GnuTLS share: a folder with an authority of OpenSSL's, the programs,
// and a key of our provider.
#pragma once

#include "interop/tools.h"
#include "model/provider_handles.h"
#include "nal/crl.h"
#include "nal/pkcs10.h"
#include "ork/provider.h"
#include "too/status.h"

namespace nal_test {

class RequestTools : public ToolTest<> {
protected:
    void SetUp() override {
        ToolTest::SetUp();
        if (IsSkipped()) return;
        ASSERT_TRUE(ORKAcquireContext(m_verifier.Receive(), nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY));
        Issue("ca", "root", "", "", "A", "/C=RU/O=Орматек/CN=Корень");
    }

    template <class Object>
    Object Read(const std::string& name) const {
        const IdentObj der = Get(name);
        Object object;
        EXPECT_EQ(object.ReadData(der.GetData(), der.GetSize()), der.GetSize());
        return object;
    }

    /// The public key of a certificate or key of the folder; `command` prints it as PEM.
    CNALCertPublicKeyInfo PublicKey(const std::string& command) const {
        Sh(command + " | openssl pkey -pubin -pubout -outform DER -out public.der");
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

    nal::ContextHandle m_verifier;
    nal::ContextHandle m_context;
    nal::KeyHandle m_key;
};

}  // namespace nal_test
