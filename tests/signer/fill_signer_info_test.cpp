// The steps of signing by themselves: what is refused, and signatures that are made outside the provider.
#include "signer/signing_test.h"
#include "support/status_of.h"
#include "too/testing.h"

namespace {

using nal_test::Signatory;
using nal_test::FromText;

class FillSignerInfo : public nal_test::OneSignatureTest {
protected:
    /// What a token does: signs the hash of the bytes that it is given, with the private hash after the content.
    static IdentObj SignOnToken(const Signatory& who, const IdentObj& content, const IdentObj& toBeSigned, DWORD hashAlgId) {
        ork::HashHandle hash;
        IdentObj signature;
        EXPECT_TRUE(ORKCreateHash(who.key.GetProvider(), hashAlgId, who.key.GetKey(), hash.Receive(), 0));
        const DWORD before = hashAlgId == ORK_ALG_PRIVATE_HASH ? content.GetSize() : 0;
        EXPECT_TRUE(ORKHashData(hash.Get(), content.GetData(), before, 0));
        EXPECT_TRUE(ORKHashData(hash.Get(), toBeSigned.GetData(), toBeSigned.GetSize(), 0));
        EXPECT_TRUE(ORKSignHash(hash.Get(), 2, 0, signature));
        return signature;
    }
};

TEST_F(FillSignerInfo, RefusesWhatCannotBeSigned) {
    const Signatory who = NewSignatory("Signer");
    const nal::ContentHashes hashes = Hashes(FromText("content"));
    const nal::ContentHash& hash = *hashes.Find(ORK_ALG_GOSTR3411);
    const SNALCryptInfo good{who.key.GetProvider(), who.key.GetKey(), 0, ORK_ALG_GOSTR3411};
    const auto with = [&](auto&& change) {
        SNALCryptInfo info = good;
        change(info);
        return info;
    };
    const struct {
        const char* name;
        CNALCertContext cert;
        SNALCryptInfo info;
        IdentObj value;
        int status;
    } cases[] = {
        {"no certificate", CNALCertContext(), good, hash.value, TOO_E_BAD_ARGUMENT},
        {"no hash value", who.cert, good, IdentObj(), TOO_E_BAD_ARGUMENT},
        {"no running hash", who.cert, with([](auto& info) { info.hashAlgId = ORK_ALG_PRIVATE_HASH; }), hash.value, TOO_E_BAD_ARGUMENT},
        {"hash without OID", who.cert, with([](auto& info) { info.hashAlgId = 0x8003; }), hash.value, TOO_E_UNKNOWN_ALGORITHM},
        {"no provider", who.cert, with([](auto& info) { info.hProv = 0; }), hash.value, TOO_E_BAD_HANDLE},
        {"no key", who.cert, with([&](auto& info) { info.hProv = m_provider.Get(), info.hKey = 0; }), hash.value,
         WinErr2ToolsErr(ORK_E_BAD_KEYSET)},
    };
    for (const auto& test : cases) {
        CNALMessageSignerInfo out;
        out.version = 77;
        int err = 0;
        EXPECT_EQ(0, NALFillMsgSignerInfo(test.cert, test.info, test.value, out, 0, &err)) << test.name;
        EXPECT_EQ(test.status, err) << test.name;
        EXPECT_EQ(77, out.version) << test.name;
        EXPECT_EQ(test.status,
                  nal_test::StatusOf([&] { NALFillMsgSignerInfo(test.cert, test.info, test.value, out, 0, nullptr); }));
    }
    for (const auto& [call, text] :
         {std::pair{"ORKCreateHash", "ORKCreateHash ()"}, {"ORKHashData", "ORKHashData ()"}, {"ORKSignHash", "ORKSignHash "}}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
        CNALMessageSignerInfo out;
        try {
            NALFillMsgSignerInfo(who.cert, good, hash.value, out, 0, nullptr);
            ADD_FAILURE() << call;
        } catch (const XTOOStatus& status) {
            EXPECT_EQ(text, status.GetText());
        }
    }
}

TEST_F(FillSignerInfo, TakesTheSignatureOfATokenInASecondCall) {
    const IdentObj content = FromText("content");
    const nal::ContentHashes hashes = Hashes(content);
    for (const DWORD hashAlgId : {ORK_ALG_GOSTR3411, ORK_ALG_PRIVATE_HASH}) {
        const Signatory who = NewSignatory("Signer", hashAlgId == ORK_ALG_GOSTR3411 ? ORK_ALG_GOST2001_SIGN : ORK_ALG_PRIVATE_SIGN);
        const nal::ContentHash& hash = *hashes.Find(hashAlgId);
        const SNALCryptInfo info{0, 0, hash.running.Get(), hashAlgId};
        CNALMessageSignerInfo out;
        IdentObj toBeSigned;
        CTOOFileTime time;
        const auto call = [&](unsigned char* signature) {
            int err = 0;
            NALFillMsgSignerInfoForToken(signature, who.cert, info, hash.value, out, c_NAL_SIGN_BY_KEY_ID, toBeSigned, time, &err);
            return err;
        };
        ASSERT_EQ(TOO_OK, call(nullptr));
        EXPECT_TRUE(out.signature.IsEmpty());
        EXPECT_EQ(0x31, toBeSigned.GetData()[0]);
        IdentObj signature = SignOnToken(who, content, toBeSigned, hashAlgId);
        ASSERT_EQ(c_NAL_SIGNATURE_SIZE, signature.GetSize());

        too_testing::AdvanceClock(3600);  // a token may take its time
        ASSERT_EQ(TOO_OK, call(signature.GetData()));
        too_testing::ResetClock();
        EXPECT_EQ(c_NAL_SIGNATURE_VALID, Check(out, hashes, who.cert));
        EXPECT_EQ(toBeSigned, out.GetBytesToSign());

        signature.GetData()[5] ^= 1;
        EXPECT_EQ(TOO_E_BAD_SIGNATURE, call(signature.GetData()));
        signature.GetData()[5] ^= 1;
        time = CTOOFileTime(time.GetTicks() + CTOOFileTime::c_ticksPerSecond);
        EXPECT_EQ(TOO_E_BAD_ARGUMENT, call(signature.GetData()));
    }
}

}  // namespace
