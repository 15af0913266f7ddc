// One signature: what holds, and that nothing else does.
#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "model/integer_order.h"
#include "signer/signing_test.h"
#include "support/cert_builder.h"
#include "support/certificate_parts.h"
#include "support/paths.h"
#include "too/testing.h"

namespace {

using nal_test::Der;
using nal_test::Signatory;
using nal_test::FromText;

using OneSignature = nal_test::OneSignatureTest;

std::vector<CTOOString> TypesOf(const CNALMessageSignerInfo& signer) {
    std::vector<CTOOString> types;
    for (const CNALAttributesSet& attribute : signer.signedAttrs) types.push_back(attribute.GetOID());
    return types;
}

TEST_F(OneSignature, EveryKeyWithItsHashSigns) {
    const struct {
        DWORD key;
        DWORD hash = ORK_ALG_GOSTR3411;
    } cases[] = {
        {ORK_ALG_GOST2001_SIGN}, {ORK_ALG_GOST2001_EXCHANGE}, {ORK_ALG_GOST94_SIGN}, {ORK_ALG_PRIVATE_SIGN},
        {ORK_ALG_PRIVATE_SIGN, ORK_ALG_PRIVATE_HASH}};
    const nal::ContentHashes hashes = Hashes(FromText("content"));
    const nal::ContentHashes others = Hashes(FromText("contents"));
    for (const auto& test : cases) {
        const Signatory who = NewSignatory("Signer", test.key);
        const CNALCertInfo info(*who.cert.GetContext());
        const bool isPrivate = test.hash == ORK_ALG_PRIVATE_HASH;
        for (const DWORD flags : {DWORD{0}, c_NAL_SIGN_BY_KEY_ID}) {
            CNALMessageSignerInfo made = Sign(who, hashes, test.hash, flags);
            const IdentObj der = made.WriteData(nullptr);
            CNALMessageSignerInfo signer;
            ASSERT_EQ(der.GetSize(), signer.ReadData(der.GetData(), der.GetSize(), nullptr));
            EXPECT_EQ(c_NAL_SIGNATURE_VALID, Check(signer, hashes, who.cert)) << test.key;
            EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(signer, others, who.cert)) << test.key;
            EXPECT_TRUE(nal::IsSignerOf(who.cert, signer));
            EXPECT_EQ(flags != 0 ? 3 : 1, signer.version);
            EXPECT_EQ(flags != 0 ? who.cert.GetSubjectKeyId() : IdentObj(), signer.subjectKeyIdentifier);
            EXPECT_EQ(flags != 0 ? CNALX509Name() : isPrivate ? info.m_subject : info.m_issuer, signer.issuer);
            EXPECT_EQ(flags != 0 ? IdentObj() : nal::Reversed(info.m_serialNumber), signer.serialNumber);
            EXPECT_EQ(TypesOf(signer),
                      (std::vector<CTOOString>{c_NAL_OID_CONTENT_TYPE, c_NAL_OID_SIGNING_TIME, c_NAL_OID_MESSAGE_DIGEST}));
            EXPECT_TRUE(signer.signatureAlgorithm.m_algorithm == info.m_publicKeyInfo.m_algorithm.m_algorithm);
            EXPECT_TRUE(signer.digestAlgorithm.Is(isPrivate ? c_NAL_OID_HASH_PRIVATE : c_NAL_OID_HASH_GOST94));
        }
    }
}

TEST_F(OneSignature, AttributesAreJudged) {
    const nal::ContentHashes hashes = Hashes(FromText("content"));
    const Signatory who = NewSignatory("Signer");
    const IdentObj digest = Der([&](asnt::Writer& w) { w.OctetString(asnt::View(hashes.Find(ORK_ALG_GOSTR3411)->value)); });
    const IdentObj dataType = Der([](asnt::Writer& w) { w.Oid(c_NAL_OID_DATA); });
    const IdentObj otherType = Der([](asnt::Writer& w) { w.Oid(c_NAL_OID_SIGNED_DATA); });
    const IdentObj now = Der([](asnt::Writer& w) { w.Time(CTOOFileTime::Now()); });
    const IdentObj null = Der([](asnt::Writer& w) { w.Null(); });
    const auto two = [](const char* oid, const IdentObj& value) {
        CNALAttributesSet attribute(oid, value);
        attribute.AddValue(value);
        return attribute;
    };
    const auto all = [&](CNALAttributesList& list) {
        list.Add(c_NAL_OID_CONTENT_TYPE, dataType);
        list.Add(c_NAL_OID_MESSAGE_DIGEST, digest);
        list.Add(c_NAL_OID_SIGNING_TIME, now);
    };
    const struct {
        const char* name;
        std::function<void(CNALAttributesList&)> fill;
        DWORD status;
    } cases[] = {
        {"all three", all, 0},
        {"digest alone", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest); }, 0},
        {"a further one", [&](auto& list) { all(list), list.Add("1.2.3", null), list.Add("1.2.3", null); }, 0},
        {"no digest", [&](auto& list) { list.Add(c_NAL_OID_CONTENT_TYPE, dataType); }, c_NAL_SIGNATURE_INVALID},
        {"digest twice", [&](auto& list) { all(list), list.Add(c_NAL_OID_MESSAGE_DIGEST, digest); }, c_NAL_SIGNATURE_INVALID},
        {"type twice", [&](auto& list) { all(list), list.Add(c_NAL_OID_CONTENT_TYPE, dataType); }, c_NAL_SIGNATURE_INVALID},
        {"time twice", [&](auto& list) { all(list), list.Add(c_NAL_OID_SIGNING_TIME, now); }, c_NAL_SIGNATURE_INVALID},
        {"two times", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest), list.Add(two(c_NAL_OID_SIGNING_TIME, now)); },
         c_NAL_SIGNATURE_INVALID},
        {"two digests", [&](auto& list) { list.Add(two(c_NAL_OID_MESSAGE_DIGEST, digest)); }, c_NAL_SIGNATURE_INVALID},
        {"digest of another type", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, null); }, c_NAL_SIGNATURE_INVALID},
        {"time of another type",
         [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest), list.Add(c_NAL_OID_SIGNING_TIME, null); }, c_NAL_SIGNATURE_INVALID},
        {"two types", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest), list.Add(two(c_NAL_OID_CONTENT_TYPE, dataType)); },
         c_NAL_SIGNATURE_INVALID},
        {"another type", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest), list.Add(c_NAL_OID_CONTENT_TYPE, otherType); },
         c_NAL_CONTENT_TYPE_INVALID},
    };
    for (const auto& test : cases) {
        CNALMessageSignerInfo signer = Sign(who, hashes);
        signer.signedAttrs.Clear();
        test.fill(signer.signedAttrs);
        SignAgain(who, signer, signer.GetBytesToSign());
        EXPECT_EQ(test.status, Check(signer, hashes, who.cert)) << test.name;
    }
    // Signed sorted, written otherwise; and signed as written, where sorting would change it.
    CNALMessageSignerInfo signer = Sign(who, hashes);
    signer.signedAttrs.Clear();
    all(signer.signedAttrs);
    ASSERT_FALSE(signer.signedAttrs.IsSorted());
    for (const asnt::Order order : {asnt::Order::Sorted, asnt::Order::AsGiven}) {
        SignAgain(who, signer, signer.GetBytesToSign(order));
        EXPECT_EQ(c_NAL_SIGNATURE_VALID, Check(signer, hashes, who.cert));
    }
    EXPECT_EQ(c_NAL_CONTENT_TYPE_INVALID, Check(signer, hashes, who.cert, c_NAL_OID_TRUST_LIST));
}

TEST_F(OneSignature, WithoutAttributesItIsOverPlainContentOnly) {
    const Signatory who = NewSignatory("Signer");
    const Signatory other = NewSignatory("Other", ORK_ALG_PRIVATE_SIGN);
    const IdentObj content = FromText("content");
    const nal::ContentHashes hashes = Hashes(content);
    CNALMessageSignerInfo bare = Sign(who, hashes);
    const IdentObj attributes = bare.GetBytesToSign();
    const CNALMessageSignerInfo full = bare;
    bare.signedAttrs.Clear();
    SignAgain(who, bare, content);
    EXPECT_EQ(c_NAL_SIGNATURE_VALID, Check(bare, hashes, who.cert));
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(bare, hashes, who.cert, c_NAL_OID_TRUST_LIST));
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(bare, Hashes(FromText("kontent")), who.cert));

    // The attributes of a message, put forward as the content of another.
    CNALMessageSignerInfo stripped = full;
    stripped.signedAttrs.Clear();
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(stripped, Hashes(attributes), who.cert));
    // With the private hash content and attributes are one run of bytes, which could be cut elsewhere.
    CNALMessageSignerInfo joined = Sign(other, hashes, ORK_ALG_PRIVATE_HASH);
    IdentObj longer = content;
    const IdentObj tail = joined.GetBytesToSign();
    longer.Append(tail.GetData(), tail.GetSize());
    joined.signedAttrs.Clear();
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(joined, Hashes(longer), other.cert));
}

TEST_F(OneSignature, OthersCertificatesAndAlgorithmsDoNotFit) {
    const nal::ContentHashes hashes = Hashes(FromText("content"));
    const Signatory who = NewSignatory("Signer");
    const CNALMessageSignerInfo good = Sign(who, hashes);
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, nal::SignerCheck(m_provider.Get(), good, hashes, c_NAL_OID_DATA).CheckSignature(CNALCertContext()));
    for (const CNALCertContext& cert : {NewSignatory("Signer").cert, NewSignatory("Signer", ORK_ALG_GOST94_SIGN).cert,
                                        CNALCertContext(nal_test::CertBuilder().Build())}) {
        EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(good, hashes, cert));
    }
    const auto expectInvalid = [&](const std::string& what, auto&& change) {
        CNALMessageSignerInfo bad = good;
        change(bad);
        EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(bad, hashes, who.cert)) << what;
    };
    for (const char* oid : {c_NAL_OID_KEY_GOST94, c_NAL_OID_HASH_GOST94, "1.2.840.113549.1.1.1", "1.2.643.2.2.4"}) {
        expectInvalid(oid, [&](auto& bad) { bad.signatureAlgorithm.m_algorithm = FromText(oid); });
    }
    for (const char* oid : {c_NAL_OID_HASH_PRIVATE, c_NAL_OID_KEY_GOST2001, c_NAL_OID_SIGN_GOST2001, "1.3.14.3.2.26"}) {
        expectInvalid(oid, [&](auto& bad) { bad.digestAlgorithm.m_algorithm = FromText(oid); });
    }
    for (const unsigned size : {0U, 63U, 65U, 5000U}) expectInvalid(std::to_string(size), [&](auto& bad) { bad.signature.SetSize(size); });
    CNALMessageSignerInfo named = good;
    named.signatureAlgorithm.m_algorithm = FromText(c_NAL_OID_SIGN_GOST2001);
    EXPECT_EQ(c_NAL_SIGNATURE_VALID, Check(named, hashes, who.cert));
    // A provider in trouble is no verdict.
    for (const char* call : {"ORKCreateHash", "ORKHashData", "ORKVerifySignature", "ORKImportPKInfo"}) {
        const too_testing::ScopedCallFailure failure(call, ORK_E_NO_MEMORY);
        EXPECT_EQ(WinErr2ToolsErr(ORK_E_NO_MEMORY), nal_test::StatusOf([&] { Check(good, hashes, who.cert); })) << call;
    }
}

TEST_F(OneSignature, TheSigningTimeLiesInTheValidity) {
    keycentre::Profile profile = keycentre::SignatureProfile();
    profile.notBefore = nal_test::Date(2026, 2);
    profile.notAfter = nal_test::Date(2026, 4);
    const Signatory who = NewSignatory("Signer", ORK_KEY_SIGNATURE, profile);
    const nal::ContentHashes hashes = Hashes(FromText("content"));
    const struct {
        FILETIME time;
        DWORD status;
    } cases[] = {{nal_test::Date(2026, 2), 0},
                 {nal_test::Date(2026, 4), 0},
                 {nal_test::Date(2026, 1, 31), c_NAL_SIGNING_TIME_INVALID},
                 {nal_test::Date(2051, 1, 1), c_NAL_SIGNING_TIME_INVALID}};
    for (const auto& test : cases) {
        CNALMessageSignerInfo signer;
        {
            const too_testing::ScopedClock clock(test.time);
            signer = Sign(who, hashes);
        }
        const too_testing::ScopedClock clock(nal_test::Date(2026, 3));
        nal::SignerCheck check(m_provider.Get(), signer, hashes, c_NAL_OID_DATA);
        EXPECT_EQ(CTOOFileTime(test.time), check.SigningTime());
        EXPECT_EQ(test.status, check.CheckWith(who.cert));
        EXPECT_EQ(c_NAL_SIGNATURE_VALID, check.CheckSignature(who.cert));
        signer.signedAttrs.Remove(c_NAL_OID_SIGNING_TIME);
        SignAgain(who, signer, signer.GetBytesToSign());
        EXPECT_EQ(c_NAL_SIGNATURE_VALID, Check(signer, hashes, who.cert)) << "without a time the reference is now";
    }
}

// RFC 4490 section 9.1, with the certificate of RFC 4491 section 4.2. It has no signed attributes.
TEST_F(OneSignature, TheExampleOfTheStandardHolds) {
    const std::string name =
        "306d311f301d06035504030c16476f737452333431302d32303031206578616d706c6531123010060355040a0c0943727970746f5072"
        "6f310b30090603550406130252553129302706092a864886f70d010901161a476f737452333431302d32303031406578616d706c652e"
        "636f6d";
    const std::string signature =
        "c0c342d93f8ffe2511118877bf89c3db834204d620f9682a99f6fe303be4f4c8f8d5b4dafbe1c69167341fbca67a0d127bfd1025c651"
        "db8db2f48c717eed72a9";
    const std::string digits =
        "3082012806092a864886f70d010702a082011930820115020101310c300a06062a85030202090500301b06092a864886f70d010701a0"
        "0e040c73616d706c6520746578740a3181e43081e1020101308181" + name +
        "02102bf5c61ec211bd17c7dcd46266b42e21300a06062a85030202090500300a06062a850302021305000440" + signature;
    const IdentObj der = nal_test::FromHexText(digits);
    const nal_test::Bytes certBytes = nal_test::ReadFile(nal_test::SourceDir() + "/tests/data/rfc4491-gost2001.cer");
    // A certificate of version 1, of which no context is made: the key is what comes after serial number and four sequences.
    asnt::Reader fields = asnt::Reader({certBytes.data(), certBytes.size()}).Enter(asnt::tag::Sequence).Enter(asnt::tag::Sequence);
    for (int i = 0; i < 5; ++i) fields.Skip();
    CNALCertPublicKeyInfo key;
    key.ReadData(fields);

    CNALSignData message;
    message.ReadObject(der.GetData(), der.GetSize(), nullptr);
    EXPECT_EQ(FromText("sample text\n"), message.eContent);
    EXPECT_EQ(der, message.WriteObject(nullptr));
    CNALMessageSignerInfo signer;
    signer.ReadData(message.signerInfos.front().GetData(), message.signerInfos.front().GetSize(), nullptr);
    const nal::ContentHashes hashes = Hashes(message.eContent);
    EXPECT_EQ(c_NAL_SIGNATURE_VALID, nal::SignerCheck(m_provider.Get(), signer, hashes, c_NAL_OID_DATA).CheckSignature(key));
    signer.signature.GetData()[63] ^= 1;
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, nal::SignerCheck(m_provider.Get(), signer, hashes, c_NAL_OID_DATA).CheckSignature(key));
}

TEST_F(OneSignature, OnePassHashesEveryContentWithEveryAlgorithm) {
    const IdentObj bytes = MakeBytes(200000);
    const std::string path = Store("content", bytes);
    const nal::ContentHashes expected = Hashes(bytes);
    WhatToSignStruct memory = InMemory(bytes);
    CNALSignData attached;
    attached.AttachData(InFile(path), nullptr);
    for (const int source : {0, 1, 2}) {
        nal::ContentHashes hashes(m_provider.Get(), "test");
        ASSERT_TRUE(hashes.Want(ORK_ALG_PRIVATE_HASH) && hashes.Want(ORK_ALG_GOSTR3411));
        if (source == 0) hashes.Add(InFile(path));
        if (source == 1) hashes.Add(memory);
        if (source == 2) hashes.Add(attached);
        hashes.Finish();
        for (const DWORD algId : {ORK_ALG_PRIVATE_HASH, ORK_ALG_GOSTR3411}) {
            EXPECT_EQ(expected.Find(algId)->value, hashes.Find(algId)->value) << source;
        }
    }
    nal::ContentHashes hashes(m_provider.Get(), "test");
    memory.start = memory.end + 1;
    EXPECT_EQ(TOO_E_RANGE, nal_test::StatusOf([&] { hashes.Add(memory); }));
    memory.data = nullptr;
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, nal_test::StatusOf([&] { hashes.Add(memory); }));
}

}  // namespace
