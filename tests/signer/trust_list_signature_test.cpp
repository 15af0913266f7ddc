// Signing trust lists, and the check of their signature.
#include <functional>

#include "signer/signing_test.h"
#include "signer/trust_list_signature.h"
#include "too/testing.h"

namespace {

using nal_test::Signatory;
using nal_test::StatusOf;
using nal_test::FromText;

class TrustListSignature : public nal_test::OneSignatureTest {
protected:
    static CNALSignData Unsigned() {
        CNALSignData list;
        list.eContent = FromText("what the list says");
        return list;
    }

    static CNALProvider ProviderOf(const Signatory& who) {
        CNALProvider provider;
        provider.Init(who.key.GetContainer().c_str(), nullptr, ORK_PROVIDER_TYPE, 0, nullptr);
        return provider;
    }

    static int Sign(const Signatory& who, CNALSignData& list) {
        CNALProvider provider = ProviderOf(who);
        return StatusOf([&] { NALSignTrustList(provider, who.key.GetKey(), who.cert, list); });
    }
};

TEST_F(TrustListSignature, HoldsAndIsTheOnlyOne) {
    const Signatory who = NewSignatory("Lists", ORK_KEY_SIGNATURE, keycentre::TrustListProfile());
    CNALSignData list = Unsigned();
    list.signerInfos = {FromText("\x30\x00")};
    ASSERT_EQ(TOO_OK, Sign(who, list));
    ASSERT_EQ(TOO_OK, Sign(who, list)) << "signing again";
    EXPECT_EQ(3, list.version);
    EXPECT_EQ(1U, list.signerInfos.size());
    EXPECT_EQ(1U, list.certificates.size());
    EXPECT_EQ(1U, list.digestAlgorithms.size());
    EXPECT_EQ(c_NAL_OID_TRUST_LIST, list.eContentType.GetID());
    const nal::SignedTrustList read = nal::CheckTrustListSignature(list.WriteObject(nullptr));
    EXPECT_EQ(list.eContent, read.content);
    EXPECT_TRUE(who.cert == read.signer);
    EXPECT_LE(read.signingTime, CTOOFileTime::Now());

    const struct {
        const char* name;
        std::function<void(CNALSignData&)> change;
        int status;
    } cases[] = {
        {"version", [](auto& message) { message.version = 1; }, TOO_E_BAD_STRUCTURE},
        {"type", [](auto& message) { message.eContentType = CASNTIdData(c_NAL_OID_DATA); }, TOO_E_BAD_STRUCTURE},
        {"no signer", [](auto& message) { message.signerInfos.clear(); }, TOO_E_BAD_STRUCTURE},
        {"two signers", [](auto& message) { message.signerInfos.push_back(message.signerInfos.front()); }, TOO_E_BAD_STRUCTURE},
        {"detached", [](auto& message) { message.eContent.Clear(); }, TOO_E_BAD_STRUCTURE},
        {"other content", [](auto& message) { message.eContent.GetData()[3] ^= 1; }, TOO_E_BAD_SIGNATURE},
        {"no certificate", [](auto& message) { message.certificates.clear(); }, TOO_E_NOT_FOUND},
    };
    for (const auto& test : cases) {
        CNALSignData bad = list;
        test.change(bad);
        const IdentObj der = bad.WriteObject(nullptr);
        EXPECT_EQ(test.status, StatusOf([&] { nal::CheckTrustListSignature(der); })) << test.name;
    }
}

TEST_F(TrustListSignature, OnlyCertificatesForItSign) {
    keycentre::Profile ca = keycentre::TrustListProfile();
    ca.constraints = keycentre::Constraints::New;
    ca.isCa = true;
    keycentre::Profile oldCa = ca;
    oldCa.constraints = keycentre::Constraints::Old;
    keycentre::Profile notCa = ca;
    notCa.isCa = false;
    keycentre::Profile damaged = keycentre::TrustListProfile();
    damaged.extensions.Add(CNALCertExtension("2.5.29.37", false, FromText("\x30\x05")));
    const struct {
        const char* name;
        keycentre::Profile profile;
        int status;
    } cases[] = {{"no usage", keycentre::SignatureProfile(), TOO_E_CERT_REFUSED},
                 {"a CA", ca, TOO_E_CERT_REFUSED},
                 {"a CA by the old extension", oldCa, TOO_E_CERT_REFUSED},
                 {"usage that does not decode", damaged, TOO_E_CERT_REFUSED},
                 {"said to be no CA", notCa, TOO_OK}};
    for (const auto& test : cases) {
        const Signatory who = NewSignatory("Lists", ORK_KEY_SIGNATURE, test.profile);
        CNALSignData list = Unsigned();
        EXPECT_EQ(test.status, Sign(who, list)) << test.name;
        EXPECT_EQ(test.status != TOO_OK, list.signerInfos.empty() && list.version == 1) << test.name;
    }
}

TEST_F(TrustListSignature, RefusesWhatIsMissingOrDoesNotFit) {
    const Signatory who = NewSignatory("Lists", ORK_KEY_SIGNATURE, keycentre::TrustListProfile());
    const Signatory other = NewSignatory("Lists", ORK_KEY_SIGNATURE, keycentre::TrustListProfile());
    CNALProvider provider = ProviderOf(who);
    CNALProvider closed;
    CNALSignData list = Unsigned();
    CNALSignData empty;
    const unsigned long key = who.key.GetKey();
    const auto statusOf = [&](CNALProvider& by, unsigned long with, const CNALCertContext& cert, CNALSignData& what) {
        return StatusOf([&] { NALSignTrustList(by, with, cert, what); });
    };
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, statusOf(closed, key, who.cert, list));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, statusOf(provider, 0, who.cert, list));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, statusOf(provider, key, CNALCertContext(), list));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, statusOf(provider, key, who.cert, empty));
    EXPECT_EQ(TOO_E_BAD_SIGNATURE, statusOf(provider, key, other.cert, list));
    const too_testing::ScopedCallFailure failure("ORKSignHash", ORK_E_NO_MEMORY);
    EXPECT_EQ("1 NALSignTrustList", nal_test::FailureOf([&] { NALSignTrustList(provider, key, who.cert, list); }));
    EXPECT_TRUE(list.signerInfos.empty() && list.certificates.empty());
}

}  // namespace
