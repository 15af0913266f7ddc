// One signature: what holds, and that nothing else does.
#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

#include "model/integer_order.h"
#include "signer/signing_test.h"
#include "support/cert_builder.h"
#include "support/certificate_parts.h"
#include "support/hex.h"
#include "support/paths.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/testing.h"

namespace {

using nal_test::Der;
using nal_test::Signatory;
using nal_test::FromText;

class OneSignature : public nal_test::OneSignatureTest {};

std::vector<CTOOString> TypesOf(const CNALMessageSignerInfo& signer) {
    std::vector<CTOOString> types;
    for (const CNALAttributesSet& attribute : signer.signedAttrs) types.push_back(attribute.GetOID());
    return types;
}

TEST_F(OneSignature, EveryKeyWithItsHashSigns) {
    const struct {
        DWORD key;
        DWORD hash;
    } cases[] = {{ORK_ALG_GOST2001_SIGN, ORK_ALG_GOSTR3411},
                 {ORK_ALG_GOST2001_EXCHANGE, ORK_ALG_GOSTR3411},
                 {ORK_ALG_GOST94_SIGN, ORK_ALG_GOSTR3411},
                 {ORK_ALG_PRIVATE_SIGN, ORK_ALG_PRIVATE_HASH},
                 {ORK_ALG_PRIVATE_SIGN, ORK_ALG_GOSTR3411}};
    const IdentObj content = FromText("content");
    const nal::ContentHashes hashes = Hashes(content);
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
            if (flags != 0) {
                EXPECT_EQ(who.cert.GetSubjectKeyId(), signer.subjectKeyIdentifier);
            } else {
                EXPECT_TRUE((isPrivate ? info.m_subject : info.m_issuer) == signer.issuer);
                EXPECT_EQ(nal::Reversed(info.m_serialNumber), signer.serialNumber);
            }
            EXPECT_EQ(TypesOf(signer),
                      (std::vector<CTOOString>{c_NAL_OID_CONTENT_TYPE, c_NAL_OID_SIGNING_TIME, c_NAL_OID_MESSAGE_DIGEST}));
            EXPECT_TRUE(signer.signatureAlgorithm.m_algorithm == info.m_publicKeyInfo.m_algorithm.m_algorithm);
            EXPECT_TRUE(signer.digestAlgorithm.Is(isPrivate ? c_NAL_OID_HASH_PRIVATE : c_NAL_OID_HASH_GOST94));
        }
    }
}

// Whatever byte of a signer info changes: if the signature still holds, then for the same certificate, attributes and value.
TEST_F(OneSignature, NoChangeOfAByteIsTakenForWhatWasSigned) {
    const nal::ContentHashes hashes = Hashes(FromText("content"));
    for (const DWORD hash : {ORK_ALG_GOSTR3411, ORK_ALG_PRIVATE_HASH}) {
        const Signatory who = NewSignatory("Signer", hash == ORK_ALG_GOSTR3411 ? ORK_ALG_GOST2001_SIGN : ORK_ALG_PRIVATE_SIGN);
        CNALMessageSignerInfo good = Sign(who, hashes, hash);
        const IdentObj der = good.WriteData(nullptr);
        unsigned held = 0;
        for (unsigned at = 0; at < der.GetSize(); ++at) {
            for (const unsigned char change : {0x01, 0x80}) {
                IdentObj bad = der;
                bad.GetData()[at] ^= change;
                CNALMessageSignerInfo signer;
                int err = 0;
                signer.ReadData(bad.GetData(), bad.GetSize(), &err);
                if (err != TOO_OK || Check(signer, hashes, who.cert) != c_NAL_SIGNATURE_VALID) continue;
                ++held;
                EXPECT_TRUE(signer.signedAttrs == good.signedAttrs && signer.signature == good.signature) << at;
            }
        }
        EXPECT_LT(held, 2 * (der.GetSize() - 200));
    }
}

TEST_F(OneSignature, AttributesAreJudged) {
    const IdentObj content = FromText("content");
    const nal::ContentHashes hashes = Hashes(content);
    const Signatory who = NewSignatory("Signer");
    const IdentObj digest = Der([&](asnt::Writer& w) { w.OctetString(asnt::View(hashes.Find(ORK_ALG_GOSTR3411)->value)); });
    const IdentObj dataType = Der([](asnt::Writer& w) { w.Oid(c_NAL_OID_DATA); });
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
    using Fill = std::function<void(CNALAttributesList&)>;
    const struct {
        const char* name;
        Fill fill;
        DWORD status;
    } cases[] = {
        {"all three", all, 0},
        {"digest alone", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest); }, 0},
        {"a further one", [&](auto& list) { all(list), list.Add("1.2.3", null), list.Add("1.2.3", null); }, 0},
        {"no digest", [&](auto& list) { list.Add(c_NAL_OID_CONTENT_TYPE, dataType); }, c_NAL_SIGNATURE_INVALID},
        {"digest twice", [&](auto& list) { all(list), list.Add(c_NAL_OID_MESSAGE_DIGEST, digest); }, c_NAL_SIGNATURE_INVALID},
        {"type twice", [&](auto& list) { all(list), list.Add(c_NAL_OID_CONTENT_TYPE, dataType); }, c_NAL_SIGNATURE_INVALID},
        {"time twice", [&](auto& list) { all(list), list.Add(c_NAL_OID_SIGNING_TIME, now); }, c_NAL_SIGNATURE_INVALID},
        {"two digests", [&](auto& list) { list.Add(two(c_NAL_OID_MESSAGE_DIGEST, digest)); }, c_NAL_SIGNATURE_INVALID},
        {"digest of another type", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, null); }, c_NAL_SIGNATURE_INVALID},
        {"time of another type",
         [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest), list.Add(c_NAL_OID_SIGNING_TIME, null); }, c_NAL_SIGNATURE_INVALID},
        {"two types", [&](auto& list) { list.Add(c_NAL_OID_MESSAGE_DIGEST, digest), list.Add(two(c_NAL_OID_CONTENT_TYPE, dataType)); },
         c_NAL_SIGNATURE_INVALID},
        {"another type",
         [&](auto& list) {
             list.Add(c_NAL_OID_MESSAGE_DIGEST, digest);
             list.Add(c_NAL_OID_CONTENT_TYPE, Der([](asnt::Writer& w) { w.Oid(c_NAL_OID_SIGNED_DATA); }));
         },
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
    const IdentObj content = FromText("content");
    const nal::ContentHashes hashes = Hashes(content);
    const Signatory who = NewSignatory("Signer");
    const CNALMessageSignerInfo good = Sign(who, hashes);
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(good, hashes, NewSignatory("Signer").cert));
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(good, hashes, NewSignatory("Signer", ORK_ALG_GOST94_SIGN).cert));
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, nal::SignerCheck(m_provider.Get(), good, hashes, c_NAL_OID_DATA).CheckSignature(CNALCertContext()));
    nal_test::CertBuilder noKey;
    EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(good, hashes, CNALCertContext(noKey.Build())));
    for (const char* oid : {c_NAL_OID_KEY_GOST94, c_NAL_OID_HASH_GOST94, "1.2.840.113549.1.1.1", "1.2.643.2.2.4"}) {
        CNALMessageSignerInfo bad = good;
        bad.signatureAlgorithm.m_algorithm = FromText(oid);
        EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(bad, hashes, who.cert)) << oid;
    }
    for (const char* oid : {c_NAL_OID_HASH_PRIVATE, c_NAL_OID_KEY_GOST2001, c_NAL_OID_SIGN_GOST2001, "1.3.14.3.2.26"}) {
        CNALMessageSignerInfo bad = good;
        bad.digestAlgorithm.m_algorithm = FromText(oid);
        EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(bad, hashes, who.cert)) << oid;
    }
    for (const unsigned size : {0U, 1U, 63U, 65U, 5000U}) {
        CNALMessageSignerInfo bad = good;
        bad.signature.SetSize(size);
        EXPECT_EQ(c_NAL_SIGNATURE_INVALID, Check(bad, hashes, who.cert)) << size;
    }
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
    const nal_test::Bytes bytes = nal_test::FromHex(digits);
    const IdentObj der(bytes.data(), static_cast<unsigned>(bytes.size()));
    const nal_test::Bytes certBytes = nal_test::ReadFile(nal_test::SourceDir() + "/tests/data/rfc4491-gost2001.cer");
    // A certificate of version 1, of which no context is made: the key is what comes after serial number and four sequences.
    asnt::Reader fields = asnt::Reader({certBytes.data(), certBytes.size()}).Enter(asnt::tag::Sequence).Enter(asnt::tag::Sequence);
    for (int i = 0; i < 5; ++i) fields.Skip();
    CNALCertPublicKeyInfo key;
    key.ReadData(fields);

    const auto holds = [&](const IdentObj& message) {
        CNALSignData read;
        int err = 0;
        if (!read.ReadObject(message.GetData(), message.GetSize(), &err)) return false;
        CNALMessageSignerInfo signer;
        const IdentObj info = read.signerInfos.empty() ? IdentObj() : read.signerInfos.front();
        if (signer.ReadData(info.GetData(), info.GetSize(), &err) == 0) return false;
        const nal::ContentHashes hashes = Hashes(read.eContent);
        const nal::SignerCheck check(m_provider.Get(), signer, hashes, read.eContentType.GetID());
        return check.CheckSignature(key) == c_NAL_SIGNATURE_VALID;
    };
    CNALSignData message;
    message.ReadObject(der.GetData(), der.GetSize(), nullptr);
    EXPECT_EQ(FromText("sample text\n"), message.eContent);
    EXPECT_EQ(der, message.WriteObject(nullptr));
    EXPECT_TRUE(holds(der));
    const unsigned contentAt = 57;
    const unsigned signatureAt = der.GetSize() - 64;
    ASSERT_EQ('s', der.GetData()[contentAt]);
    for (const auto& [start, size] : {std::pair{contentAt, 12U}, {signatureAt, 64U}}) {
        for (unsigned bit = 0; bit < size * 8; bit += 5) {
            IdentObj bad = der;
            bad.GetData()[start + bit / 8] ^= static_cast<unsigned char>(1 << bit % 8);
            EXPECT_FALSE(holds(bad)) << bit;
        }
    }
}

TEST_F(OneSignature, OnePassHashesEveryContentWithEveryAlgorithm) {
    const nal_test::TempFolder folder;
    const std::string path = folder.File("content");
    std::string bytes(200000, 'x');
    bytes[100] = 'y';
    nal_test::WriteFile(path, bytes);
    const nal::ContentHashes expected = Hashes(FromText(bytes));
    WhatToSignStruct file;
    file.flags = c_NAL_CONTENT_IN_FILE;
    file.data = path.c_str();
    file.end = c_NAL_TO_END_OF_FILE;
    WhatToSignStruct memory;
    memory.data = bytes.data();
    memory.end = static_cast<DWORD>(bytes.size());
    CNALSignData attached;
    attached.AttachData(file, nullptr);
    for (const int source : {0, 1, 2}) {
        nal::ContentHashes hashes(m_provider.Get(), "test");
        ASSERT_TRUE(hashes.Want(ORK_ALG_PRIVATE_HASH) && hashes.Want(ORK_ALG_GOSTR3411));
        if (source == 0) hashes.Add(file);
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
