// What is refused before it is signed.
#include "signer/signing_test.h"
#include "too/testing.h"

namespace {

using nal_test::FailureOf;
using nal_test::FromText;
using nal_test::Signatory;

using FillSignerInfo = nal_test::OneSignatureTest;

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
    }
    for (const auto& [call, text] :
         {std::pair{"ORKCreateHash", "1 ORKCreateHash ()"}, {"ORKHashData", "1 ORKHashData ()"}, {"ORKSignHash", "1 ORKSignHash "}}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
        CNALMessageSignerInfo out;
        EXPECT_EQ(text, FailureOf([&] { NALFillMsgSignerInfo(who.cert, good, hash.value, out, 0, nullptr); }));
    }
}

}  // namespace
