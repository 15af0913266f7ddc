// What the tests of single signatures share: keys of every kind with certificates, and the steps of signing and checking.
#pragma once

#include <optional>
#include <string>

#include "keycentre/issuer.h"
#include "nal/sign.h"
#include "signer/signer_check.h"
#include "signer/signer_match.h"
#include "storage/signature_check.h"
#include "support/authority.h"
#include "support/folder_test.h"
#include "support/hex.h"
#include "support/status_of.h"

namespace nal_test {

/// A key pair and its certificate.
struct Signatory {
    keycentre::KeyPair key;
    CNALCertContext cert;
};

class OneSignatureTest : public FolderTest {
protected:
    static void SetUpTestSuite() { s_authority.emplace(); }
    static void TearDownTestSuite() { s_authority.reset(); }

    static Signatory NewSignatory(const std::string& name, DWORD algId = ORK_KEY_SIGNATURE,
                                  keycentre::Profile profile = keycentre::SignatureProfile()) {
        if (!profile.notBefore) profile.notBefore = CTOOFileTime(CTOOFileTime::Now().GetTicks() - CTOOFileTime::c_ticksPerDay);
        keycentre::KeyPair key = s_authority->NewKey(algId);
        const IdentObj cert = s_authority->root.Certify(keycentre::Name("CN=" + name), key.GetPublicKey(), profile);
        return {std::move(key), CNALCertContext(cert)};
    }

    nal::ContentHashes Hashes(const IdentObj& content) const {
        nal::ContentHashes hashes(m_provider.Get(), "test");
        EXPECT_TRUE(hashes.Want(ORK_ALG_GOSTR3411) && hashes.Want(ORK_ALG_PRIVATE_HASH) && !hashes.Want(0x8003));
        hashes.Add(asnt::View(content));
        hashes.Finish();
        return hashes;
    }

    static CNALMessageSignerInfo Sign(const Signatory& who, const nal::ContentHashes& hashes, DWORD hashAlgId = ORK_ALG_GOSTR3411,
                                      DWORD flags = 0) {
        const nal::ContentHash& hash = *hashes.Find(hashAlgId);
        const SNALCryptInfo info{who.key.GetProvider(), who.key.GetKey(), hash.running.Get(), hashAlgId};
        CNALMessageSignerInfo signer;
        EXPECT_EQ(1, NALFillMsgSignerInfo(who.cert, info, hash.value, signer, flags, nullptr));
        return signer;
    }

    /// The signature over the signer's attributes as they are now.
    static void SignAgain(const Signatory& who, CNALMessageSignerInfo& signer, const IdentObj& bytes) {
        ork::HashHandle hash;
        ASSERT_TRUE(ORKCreateHash(who.key.GetProvider(), ORK_ALG_GOSTR3411, who.key.GetKey(), hash.Receive(), 0));
        ASSERT_TRUE(ORKHashData(hash.Get(), bytes.GetData(), bytes.GetSize(), 0));
        ASSERT_TRUE(ORKSignHash(hash.Get(), 2, 0, signer.signature));
    }

    DWORD Check(const CNALMessageSignerInfo& signer, const nal::ContentHashes& hashes, const CNALCertContext& cert,
                const char* contentType = c_NAL_OID_DATA) const {
        return nal::SignerCheck(m_provider.Get(), signer, hashes, contentType).CheckWith(cert);
    }

    static std::optional<Authority> s_authority;
    nal::ContextHandle m_provider = nal::OpenVerifyProvider();
};

inline std::optional<Authority> OneSignatureTest::s_authority;

}  // namespace nal_test
