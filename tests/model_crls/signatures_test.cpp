// Signing and checking of envelopes, CRLs and requests with keys of the provider.
#include <string>
#include <vector>

#include "model/provider_handles.h"
#include "model_crls/model_test.h"
#include "nal/pkcs10.h"
#include "ork/provider.h"
#include "support/temp_folder.h"

namespace {

using nal_test::FromHexText;
using nal_test::kAlgorithm;
using nal_test::kName;
using nal_test::kUpdate;
using nal_test::StatusOf;
using nal_test::Wrap;

/// Containers of a test: a context with one key each.
struct Signer {
    nal::ContextHandle context;
    nal::KeyHandle key;
    CNALCertPublicKeyInfo publicKey;
};

class Signatures : public testing::Test {
protected:
    Signer MakeSigner(DWORD algId = ORK_ALG_GOST2001_SIGN) {
        Signer signer;
        const std::string container = m_folder.File("key" + std::to_string(m_count++));
        EXPECT_TRUE(ORKAcquireContext(signer.context.Receive(), container.c_str(), ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE,
                                      ORK_OPEN_NEW | ORK_OPEN_SILENT));
        EXPECT_TRUE(ORKGenKey(signer.context.Get(), algId, 0, signer.key.Receive())) << std::hex << GetLastError();
        EXPECT_TRUE(NALExportPKInfo(signer.context.Get(), signer.key.Get(), signer.publicKey)) << std::hex << GetLastError();
        return signer;
    }

    void SetUp() override {
        ASSERT_TRUE(ORKAcquireContext(m_verifier.Receive(), nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY));
    }

    unsigned long Verifier() const { return m_verifier.Get(); }

    /// The status of a check of an envelope, a CRL or a request.
    template <class Signed, class... Key>
    int Check(const Signed& what, const Key&... key) const {
        int err = -1;
        const bool holds = what.CheckSignature(Verifier(), key..., &err) == 1;
        EXPECT_EQ(holds, err == TOO_OK);
        return err;
    }
    int CheckSecond(const CNALPKCS10Data& what, const CNALCertPublicKeyInfo& key) const {
        int err = -1;
        const bool holds = what.CheckSecondSignature(Verifier(), key, &err) == 1;
        EXPECT_EQ(holds, err == TOO_OK);
        return err;
    }

private:
    nal_test::TempFolder m_folder;
    nal::ContextHandle m_verifier;
    int m_count = 0;
};

CNALPKCS10Data MakeContent(const Signer& signer) {
    CNALPKCS10Data data;
    data.m_subject = FromHexText(kName);
    data.m_publicKey = signer.publicKey;
    return data;
}

TEST_F(Signatures, HoldForEveryKindOfKeyAndForNothingElse) {
    const struct {
        DWORD algId;
        const char* oid;
    } cases[] = {
        {ORK_ALG_GOST2001_SIGN, "1.2.643.2.2.3"},     {ORK_ALG_GOST2001_EXCHANGE, "1.2.643.2.2.3"},
        {ORK_ALG_GOST94_SIGN, "1.2.643.2.2.4"},       {ORK_ALG_GOST94_EXCHANGE, "1.2.643.2.2.4"},
        {ORK_ALG_PRIVATE_SIGN, c_NAL_OID_KEY_PRIVATE},
    };
    const Signer other = MakeSigner();
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.algId);
        const Signer signer = MakeSigner(c.algId);
        CNALSignedData envelope;
        envelope.m_data = FromHexText("3003 020101");
        int err = -1;
        ASSERT_EQ(envelope.SignData(signer.context.Get(), signer.key.Get(), &err), 1);
        EXPECT_EQ(err, TOO_OK);
        EXPECT_EQ(envelope.m_algorithm.GetID(), c.oid);
        EXPECT_TRUE(envelope.m_algorithm.m_parameters.IsEmpty());
        EXPECT_EQ(envelope.m_algorithm, CNALSignedData::GetSignatureAlgorithm(signer.key.Get()));
        EXPECT_EQ(envelope.m_signature.m_data.GetSize(), 64u);
        EXPECT_EQ(Check(envelope, signer.publicKey), TOO_OK);

        EXPECT_EQ(Check(envelope, other.publicKey), c.oid == std::string("1.2.643.2.2.3") ? TOO_E_BAD_SIGNATURE : TOO_E_UNKNOWN_ALGORITHM);
        CNALSignedData changed = envelope;
        changed.m_data.GetData()[4] ^= 1;
        EXPECT_EQ(Check(changed, signer.publicKey), TOO_E_BAD_SIGNATURE);
        for (const unsigned at : {0u, 31u, 32u, 63u}) {
            changed = envelope;
            changed.m_signature.m_data.GetData()[at] ^= 1;
            EXPECT_EQ(Check(changed, signer.publicKey), TOO_E_BAD_SIGNATURE) << at;
        }
    }
}

TEST_F(Signatures, OfAWrongShapeDoNotHold) {
    const Signer signer = MakeSigner();
    CNALSignedData envelope;
    envelope.m_data = FromHexText("3003 020101");
    ASSERT_EQ(envelope.SignData(signer.context.Get(), signer.key.Get(), nullptr), 1);
    for (const unsigned size : {0u, 1u, 63u, 65u, 128u}) {
        CNALSignedData changed = envelope;
        changed.m_signature.m_data.SetSize(size);
        EXPECT_EQ(Check(changed, signer.publicKey), TOO_E_BAD_SIGNATURE) << size;
    }
    CNALSignedData changed = envelope;
    changed.m_signature.m_unusedBits = 1;
    EXPECT_EQ(Check(changed, signer.publicKey), TOO_E_BAD_SIGNATURE);
    for (const char* oid : {"", "1.2.840.113549.1.1.11", "1.2.643.2.2.9", "1.2.643.2.2.4"}) {
        changed = envelope;
        changed.m_algorithm = CNALAlgorithmIdentifier();
        changed.m_algorithm.m_algorithm.SetData(oid, static_cast<unsigned>(std::string(oid).size()));
        EXPECT_EQ(Check(changed, signer.publicKey), TOO_E_UNKNOWN_ALGORITHM) << oid;
    }
    EXPECT_EQ(StatusOf([&] { envelope.CheckSignature(0, signer.publicKey, nullptr); }), TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(Check(envelope, CNALCertPublicKeyInfo()), TOO_E_UNKNOWN_ALGORITHM);
    CNALCertPublicKeyInfo damaged = signer.publicKey;
    damaged.m_publicKey.m_data.GetData()[10] ^= 1;
    EXPECT_NE(Check(envelope, damaged), TOO_OK);
}

TEST_F(Signatures, ReportBadHandlesUnderTheirText) {
    const Signer signer = MakeSigner();
    const struct {
        unsigned long context;
        unsigned long key;
        int status;
    } cases[] = {{0, signer.key.Get(), TOO_E_BAD_ARGUMENT},
                 {signer.context.Get(), 0, TOO_E_BAD_ARGUMENT},
                 {signer.context.Get(), signer.context.Get(), TOO_E_UNKNOWN_ALGORITHM},
                 {signer.key.Get(), signer.key.Get(), TOO_E_UNKNOWN_ALGORITHM}};
    for (const auto& c : cases) {
        CNALSignedData envelope;
        envelope.m_data = FromHexText("3000");
        EXPECT_EQ(nal_test::FailureOf([&] { envelope.SignData(c.context, c.key, nullptr); }),
                  std::to_string(c.status) + " CNALSignedData::ReadObject");
        EXPECT_TRUE(envelope.m_signature.m_data.IsEmpty());
    }
    EXPECT_EQ(StatusOf([] { CNALSignedData::GetSignatureAlgorithm(0); }), TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(StatusOf([&] { CNALSignedData::GetSignatureAlgorithm(signer.context.Get()); }), TOO_E_UNKNOWN_ALGORITHM);
}

TEST_F(Signatures, OfACrlCoverItsAlgorithmToo) {
    const Signer signer = MakeSigner();
    CNAL_CRL_Info info;
    info.m_issuer = FromHexText(kName);
    info.m_thisUpdate = {0, 0x01DC5B00};
    info.m_signatureAlgorithm = CNALSignedData::GetSignatureAlgorithm(signer.key.Get());
    CNALSignedData envelope;
    envelope.m_data = info.WriteData();
    ASSERT_EQ(envelope.SignData(signer.context.Get(), signer.key.Get(), nullptr), 1);
    const IdentObj der = envelope.WriteData(nullptr);

    CNAL_CRL_List crl;
    ASSERT_EQ(crl.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    EXPECT_EQ(Check(crl, signer.publicKey), TOO_OK);
    EXPECT_EQ(Check(crl, MakeSigner().publicKey), TOO_E_BAD_SIGNATURE);

    // Signed as it should be, but it names another algorithm inside.
    info.m_signatureAlgorithm.m_algorithm.SetData("1.2.643.2.2.4", 13);
    envelope.m_data = info.WriteData();
    ASSERT_EQ(envelope.SignData(signer.context.Get(), signer.key.Get(), nullptr), 1);
    const IdentObj other = envelope.WriteData(nullptr);
    crl.ReadData(other.GetData(), other.GetSize());
    EXPECT_EQ(Check(crl, signer.publicKey), TOO_E_BAD_STRUCTURE);
}

TEST_F(Signatures, OfARequestProvePossessionOfItsKey) {
    const Signer signer = MakeSigner();
    CNALPKCS10Request request;
    int err = -1;
    ASSERT_EQ(request.SignData(MakeContent(signer), signer.context.Get(), signer.key.Get(), &err), 1) << err;
    const IdentObj der = request.WriteData();
    CNALPKCS10Request read;
    ASSERT_EQ(read.ReadData(der.GetData(), der.GetSize()), der.GetSize());
    EXPECT_EQ(Check(read), TOO_OK);

    const Signer other = MakeSigner();
    ASSERT_EQ(request.SignData(MakeContent(signer), other.context.Get(), other.key.Get(), &err), 1);
    EXPECT_EQ(Check(request), TOO_E_BAD_SIGNATURE);

    const IdentObj before = request.WriteData();
    EXPECT_EQ(request.SignData(CNALPKCS10Data(), signer.context.Get(), signer.key.Get(), &err), 0);
    EXPECT_EQ(err, TOO_E_NOT_INITIALIZED);
    EXPECT_EQ(request.SignData(MakeContent(signer), 0, signer.key.Get(), &err), 0);
    EXPECT_EQ(err, TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(request.WriteData(), before);
}

TEST_F(Signatures, OfAnOldKeyVouchForTheContentAlone) {
    const Signer fresh = MakeSigner();
    const Signer old = MakeSigner(ORK_ALG_GOST94_SIGN);
    CNALPKCS10Data content = MakeContent(fresh);
    content.m_attributes.Add("1.2.3", FromHexText("0500"));
    const IdentObj without = content.WriteData();

    CNALSecondSignature second;
    int err = -1;
    EXPECT_EQ(content.AddSecondSignature(second, old.context.Get(), old.key.Get(), &err), 0);
    EXPECT_EQ(err, TOO_E_NOT_INITIALIZED);
    second.m_issuer = FromHexText(kName);
    second.m_serialNumber = FromHexText("0201");
    second.m_keyIdentifier = old.publicKey.GetKeyID();
    EXPECT_EQ(content.AddSecondSignature(second, old.context.Get(), 0, &err), 0);
    EXPECT_EQ(err, TOO_E_BAD_ARGUMENT);
    EXPECT_EQ(content.WriteData(), without);
    EXPECT_EQ(CheckSecond(content, old.publicKey), TOO_E_NOT_FOUND);
    ASSERT_EQ(content.AddSecondSignature(second, old.context.Get(), old.key.Get(), &err), 1) << err;
    ASSERT_EQ(content.AddSecondSignature(second, old.context.Get(), old.key.Get(), &err), 1) << "again, in its place";
    EXPECT_EQ(content.m_attributes.Count(c_NAL_OID_SECOND_SIGNATURE), 1u);

    CNALPKCS10Request request;
    ASSERT_EQ(request.SignData(content, fresh.context.Get(), fresh.key.Get(), &err), 1);
    const IdentObj der = request.WriteData();
    CNALPKCS10Request read;
    read.ReadData(der.GetData(), der.GetSize());
    EXPECT_EQ(Check(read), TOO_OK);
    EXPECT_EQ(CheckSecond(read.GetData(), old.publicKey), TOO_OK);
    EXPECT_NE(CheckSecond(read.GetData(), fresh.publicKey), TOO_OK);

    // As a key centre does it: take the attribute out, encode, check over that.
    CNALPKCS10Data received = read.GetData();
    CNALSecondSignature taken;
    ASSERT_TRUE(received.TakeSecondSignature(taken));
    EXPECT_EQ(received.WriteData(), without);
    EXPECT_EQ(taken.m_keyIdentifier, second.m_keyIdentifier);
    EXPECT_EQ(NALCheckSignature(Verifier(), received.WriteData(), taken.m_algorithm, taken.m_signature, old.publicKey, &err), 1);

    CNALPKCS10Data changed = read.GetData();
    changed.m_attributes.Remove("1.2.3");
    EXPECT_EQ(CheckSecond(changed, old.publicKey), TOO_E_BAD_SIGNATURE);
    changed.m_attributes.Add(c_NAL_OID_SECOND_SIGNATURE, taken.WriteData());
    EXPECT_EQ(CheckSecond(changed, old.publicKey), TOO_E_BAD_STRUCTURE);
}

}  // namespace
