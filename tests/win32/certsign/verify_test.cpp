// Which status a signature gets, and that 0 means what it says.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "cms/message_test.h"
#include "model/integer_order.h"
#include "win32/certsign/message_maker.h"
#include "too/testing.h"

namespace {

using nal_test::Der;
using nal_test::FromText;
using nal_test::Records;
using nal_test::Signatory;
using nal_test::Signing;
using Statuses = std::vector<DWORD>;

class Verification : public nal_test::MessageTest {
protected:
    static void SetUpTestSuite() {
        MessageTest::SetUpTestSuite();
        s_first.emplace(NewSignatory("First"));
        s_second.emplace(NewSignatory("Second"));
    }
    static void TearDownTestSuite() {
        s_first.reset();
        s_second.reset();
        MessageTest::TearDownTestSuite();
    }

    /// A certificate for the same key.
    static CNALCertContext AnotherFor(const Signatory& who, const keycentre::Profile& profile, const std::string& name = "First") {
        return CNALCertContext(s_authority->root.Certify(keycentre::Name("CN=" + name), who.key.GetPublicKey(), profile));
    }

    /// Makes the one signer info of `message` anew after `change`, signed by `who` over what it then says.
    static void SignAnew(CNALSignData& message, const Signatory& who, const std::function<void(CNALMessageSignerInfo&)>& change) {
        CNALMessageSignerInfo info = InfoOf(message);
        change(info);
        SignAgain(who, info, info.GetBytesToSign());
        message.signerInfos = {info.WriteData(nullptr)};
    }

    static CNALMessageSignerInfo InfoOf(const CNALSignData& message) {
        CNALMessageSignerInfo info;
        const IdentObj& der = message.signerInfos.front();
        EXPECT_NE(info.ReadData(der.GetData(), der.GetSize(), nullptr), 0u);
        return info;
    }

    const IdentObj m_content = FromText("what was signed");
    static std::optional<Signatory> s_first;
    static std::optional<Signatory> s_second;
};

std::optional<Signatory> Verification::s_first;
std::optional<Signatory> Verification::s_second;

TEST_F(Verification, HoldsForEveryKeyIdentifierAndPlaceOfTheContent) {
    const std::string path = Store("content", m_content);
    for (const DWORD key : {ORK_ALG_GOST2001_SIGN, ORK_ALG_GOST94_SIGN, ORK_ALG_PRIVATE_SIGN}) {
        const Signatory who = NewSignatory("Signer", key);
        for (const DWORD flags : {DWORD{0}, c_NAL_SIGN_BY_KEY_ID}) {
            const Signing signing{&who, flags, key == ORK_ALG_PRIVATE_SIGN ? ORK_ALG_PRIVATE_HASH : ORK_ALG_GOSTR3411};
            const IdentObj attached = Encoded(MessageOf(m_content, {signing}));
            const IdentObj detached = Encoded(MessageOf(m_content, {signing}, false));
            const std::string message = Store("message", attached);
            const CNALCertStorage storage = StorageOf({who.cert});
            Records records[7];
            EXPECT_TRUE(NALVerifySignedData(&records[0], {}, attached, nullptr, nullptr));
            EXPECT_TRUE(NALVerifySignedData(&records[1], InMemory(m_content), detached, nullptr, nullptr));
            EXPECT_TRUE(NALVerifySignedData(&records[2], InFile(path), detached, nullptr, nullptr));
            EXPECT_TRUE(NALVerifySignedData(&records[3], InFile(path), attached, nullptr, nullptr));
            EXPECT_TRUE(NALVerifySignatureOnFile(records[4], path.c_str(), &detached, nullptr, nullptr));
            EXPECT_TRUE(NALVerifySignatureOnFile(records[5], message.c_str(), nullptr, nullptr, nullptr));
            Signing without = signing;
            without.withCertificate = false;
            const IdentObj bare = Encoded(MessageOf(m_content, {without}));
            EXPECT_TRUE(NALVerifySignedData(&records[6], {}, bare, &storage, nullptr));
            for (const Records& found : records) {
                ASSERT_EQ(StatusesOf(found), Statuses{0}) << key << " " << flags << " " << &found - records;
                EXPECT_EQ(found.front().signerCertificate, EncodingOf(who.cert));
            }
            EXPECT_EQ(Verify(bare), Statuses{c_NAL_SIGNER_NOT_FOUND});
        }
    }
}

TEST_F(Verification, OfAnotherContentFails) {
    const IdentObj detached = Encoded(MessageOf(m_content, {{&*s_first}, {&*s_second}}, false));
    const IdentObj attached = Encoded(MessageOf(m_content, {{&*s_first}, {&*s_second}}));
    const Statuses fails{c_NAL_SIGNATURE_INVALID, c_NAL_SIGNATURE_INVALID};
    for (const char* text : {"", "what was signeD", "what was signe", "what was signed "}) {
        const IdentObj other = FromText(text);
        const std::string path = Store("content", other);
        EXPECT_EQ(StatusesOf(RecordsOf(detached, InMemory(other))), fails);
        // Content in the message does not make another one beside it good.
        if (!other.IsEmpty()) {
            EXPECT_EQ(StatusesOf(RecordsOf(attached, InMemory(other))), fails);
        }
        EXPECT_EQ(StatusesOf(RecordsOf(attached, InFile(path))), fails);
        Records records;
        EXPECT_TRUE(NALVerifySignatureOnFile(records, path.c_str(), &detached, nullptr, nullptr));
        EXPECT_EQ(StatusesOf(records), fails);
        // Who is said to have signed is told all the same.
        EXPECT_EQ(records.front().signerCertificate, EncodingOf(s_first->cert));
    }
    CNALSignData changed = MessageOf(m_content, {{&*s_first}});
    changed.eContent = FromText("something else");
    EXPECT_EQ(Verify(changed), Statuses{c_NAL_SIGNATURE_INVALID});
    EXPECT_EQ(StatusesOf(RecordsOf(Encoded(changed), InMemory(m_content))), Statuses{c_NAL_SIGNATURE_INVALID});
}

TEST_F(Verification, StatusSaysWhatIsWrongWithTheSigner) {
    using Profile = keycentre::Profile;
    const auto with = [](const std::function<void(Profile&)>& change) {
        Profile profile = ValidFrom(-1, 30);
        change(profile);
        return profile;
    };
    const auto keyPeriod = [&](int from, int to) {
        return with([&](Profile& profile) { profile.privateKeyUsage = keycentre::Period{DaysFromNow(from), DaysFromNow(to)}; });
    };
    const struct {
        const char* name;
        Profile profile;
        int verifiedAfterDays;
        DWORD status;
    } cases[] = {
        {"good", ValidFrom(-1, 30), 0, 0},
        {"good later", ValidFrom(-1, 30), 29, 0},
        {"expired since", ValidFrom(-1, 30), 31, c_NAL_SIGNER_NOT_ALLOWED},
        {"expired before", ValidFrom(-30, -1), 0, c_NAL_SIGNING_TIME_INVALID},
        {"not yet valid", ValidFrom(1, 30), 0, c_NAL_SIGNING_TIME_INVALID},
        {"not yet valid then", ValidFrom(1, 30), 2, c_NAL_SIGNING_TIME_INVALID},
        {"no key usage", with([](Profile& p) { p.keyUsage = 0; }), 0, c_NAL_SIGNER_NOT_ALLOWED},
        {"another key usage", with([](Profile& p) { p.keyUsage = CNALKeyUsage::KeyEncipherment; }), 0, c_NAL_SIGNER_NOT_ALLOWED},
        {"CA", with([](Profile& p) { p.constraints = keycentre::Constraints::New, p.isCa = true; }), 0, c_NAL_SIGNER_NOT_ALLOWED},
        {"key period over", keyPeriod(-10, -5), 0, c_NAL_SIGNER_NOT_ALLOWED},
        {"key period over since", keyPeriod(-10, 5), 10, 0},  // the key's period is held against the signing time
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.name);
        const Signatory who = NewSignatory("Signer", ORK_KEY_SIGNATURE, item.profile);
        const IdentObj message = Encoded(MessageOf(m_content, {{&who}}));
        too_testing::AdvanceClock(std::int64_t{86400} * item.verifiedAfterDays);
        const Records records = RecordsOf(message);
        too_testing::ResetClock();
        EXPECT_EQ(StatusesOf(records), Statuses{item.status});
        EXPECT_EQ(records.front().signerCertificate, EncodingOf(who.cert));
        // Another content is worse than all of these.
        const IdentObj detached = Encoded(MessageOf(m_content, {{&who}}, false));
        EXPECT_EQ(StatusesOf(RecordsOf(detached, InMemory(FromText("other")))), Statuses{c_NAL_SIGNATURE_INVALID});
    }
}

TEST_F(Verification, JudgesTheSignedAttributes) {
    const auto oid = [](const char* text) { return Der([&](asnt::Writer& writer) { writer.Oid(text); }); };
    const auto time = [](int days) { return Der([&](asnt::Writer& writer) { writer.Time(DaysFromNow(days)); }); };
    using Info = CNALMessageSignerInfo;
    const struct {
        const char* name;
        std::function<void(Info&)> change;
        DWORD status;
    } cases[] = {
        {"as made", [](Info&) {}, 0},
        {"no content type", [](Info& i) { i.signedAttrs.Remove(c_NAL_OID_CONTENT_TYPE); }, 0},
        {"no signing time", [](Info& i) { i.signedAttrs.Remove(c_NAL_OID_SIGNING_TIME); }, 0},
        {"one more", [](Info& i) { i.signedAttrs.Add("1.2.3", nal_test::Hex("0500")); }, 0},
        {"no digest", [](Info& i) { i.signedAttrs.Remove(c_NAL_OID_MESSAGE_DIGEST); }, c_NAL_SIGNATURE_INVALID},
        {"another digest",
         [](Info& i) {
             i.signedAttrs.Remove(c_NAL_OID_MESSAGE_DIGEST);
             i.signedAttrs.Add(c_NAL_OID_MESSAGE_DIGEST, nal_test::Hex("04 20" + std::string(64, '7')));
         },
         c_NAL_SIGNATURE_INVALID},
        {"digest twice", [](Info& i) { i.signedAttrs.Add(*i.signedAttrs.Find(c_NAL_OID_MESSAGE_DIGEST)); }, c_NAL_SIGNATURE_INVALID},
        {"time twice", [&](Info& i) { i.signedAttrs.Add(c_NAL_OID_SIGNING_TIME, time(0)); }, c_NAL_SIGNATURE_INVALID},
        {"type twice", [&](Info& i) { i.signedAttrs.Add(c_NAL_OID_CONTENT_TYPE, oid(c_NAL_OID_DATA)); }, c_NAL_SIGNATURE_INVALID},
        {"two times in one",
         [&](Info& i) {
             CNALAttributesSet both(c_NAL_OID_SIGNING_TIME, time(0));
             both.AddValue(time(1));
             i.signedAttrs.Remove(c_NAL_OID_SIGNING_TIME);
             i.signedAttrs.Add(both);
         },
         c_NAL_SIGNATURE_INVALID},
        {"time that is none",
         [](Info& i) {
             i.signedAttrs.Remove(c_NAL_OID_SIGNING_TIME);
             i.signedAttrs.Add(c_NAL_OID_SIGNING_TIME, nal_test::Hex("0500"));
         },
         c_NAL_SIGNATURE_INVALID},
        {"another type",
         [&](Info& i) {
             i.signedAttrs.Remove(c_NAL_OID_CONTENT_TYPE);
             i.signedAttrs.Add(c_NAL_OID_CONTENT_TYPE, oid("1.2.3"));
         },
         c_NAL_CONTENT_TYPE_INVALID},
        {"time before the certificate",
         [&](Info& i) {
             i.signedAttrs.Remove(c_NAL_OID_SIGNING_TIME);
             i.signedAttrs.Add(c_NAL_OID_SIGNING_TIME, time(-400));
         },
         c_NAL_SIGNING_TIME_INVALID},
        {"unknown digest algorithm",
         [](Info& i) { i.digestAlgorithm = nal_test::Algorithm("1.2.840.113549.2.5"); },
         c_NAL_SIGNATURE_INVALID},
        {"key as digest algorithm",
         [](Info& i) { i.digestAlgorithm = nal_test::Algorithm(c_NAL_OID_KEY_GOST2001); },
         c_NAL_SIGNATURE_INVALID},
        {"foreign signature algorithm",
         [](Info& i) { i.signatureAlgorithm = nal_test::Algorithm("1.2.840.113549.1.1.1"); },
         c_NAL_SIGNATURE_INVALID},
    };
    for (const auto& item : cases) {
        CNALSignData message = MessageOf(m_content, {{&*s_first}});
        SignAnew(message, *s_first, item.change);
        EXPECT_EQ(Verify(message), Statuses{item.status}) << item.name;
    }
    // Signed attributes are shown as they were signed, or not at all.
    CNALSignData message = MessageOf(m_content, {{&*s_first}});
    CNALMessageSignerInfo info = InfoOf(message);
    info.signedAttrs.Add("1.2.3", nal_test::Hex("0500"));
    message.signerInfos = {info.WriteData(nullptr)};
    EXPECT_EQ(Verify(message), Statuses{c_NAL_SIGNATURE_INVALID});
    message = MessageOf(m_content, {{&*s_first}});
    message.eContentType = CASNTIdData("1.2.3");
    EXPECT_EQ(Verify(message), Statuses{c_NAL_CONTENT_TYPE_INVALID});
}

// Without signed attributes the signature is over the content itself, which must not be what once were attributes.
TEST_F(Verification, WithoutSignedAttributesIsOfPlainContentOnly) {
    const auto strip = [](CNALSignData& message, const IdentObj& content) {
        CNALMessageSignerInfo info = InfoOf(message);
        message.eContent = content;
        info.signedAttrs.Clear();
        message.signerInfos = {info.WriteData(nullptr)};
    };
    CNALSignData plain = MessageOf(m_content, {{&*s_first}});
    CNALMessageSignerInfo info = InfoOf(plain);
    info.signedAttrs.Clear();
    SignAgain(*s_first, info, m_content);
    plain.signerInfos = {info.WriteData(nullptr)};
    EXPECT_EQ(Verify(plain), Statuses{0});
    plain.eContentType = CASNTIdData("1.2.3");
    EXPECT_EQ(Verify(plain), Statuses{c_NAL_SIGNATURE_INVALID});

    CNALSignData recast = MessageOf(m_content, {{&*s_first}});
    strip(recast, InfoOf(recast).GetBytesToSign());
    EXPECT_EQ(Verify(recast), Statuses{c_NAL_SIGNATURE_INVALID});

    const Signatory who = NewSignatory("Private", ORK_ALG_PRIVATE_SIGN);
    recast = MessageOf(m_content, {{&who, 0, ORK_ALG_PRIVATE_HASH}});
    IdentObj both = m_content;
    const IdentObj attributes = InfoOf(recast).GetBytesToSign();
    both.Append(attributes.GetData(), attributes.GetSize());
    strip(recast, both);
    EXPECT_EQ(Verify(recast), Statuses{c_NAL_SIGNATURE_INVALID});
}

TEST_F(Verification, TriesEveryCertificateThatTheSignerNames) {
    keycentre::Profile profile = ValidFrom(-1, 30);
    profile.serial = nal_test::Filled(0x21, 16);
    const Signatory who = NewSignatory("Signer", ORK_KEY_SIGNATURE, profile);
    const Signatory bogus = NewSignatory("Bogus", ORK_KEY_SIGNATURE, profile);  // the same serial number
    CNALSignData message = MessageOf(m_content, {{&who}});
    const IdentObj good = EncodingOf(who.cert);
    message.certificates = {EncodingOf(bogus.cert), good};
    Records records = RecordsOf(Encoded(message));
    EXPECT_EQ(StatusesOf(records), Statuses{0});
    EXPECT_EQ(records.front().signerCertificate, good);
    message.certificates = {EncodingOf(bogus.cert)};
    EXPECT_EQ(Verify(message), Statuses{c_NAL_SIGNATURE_INVALID});
    // What the caller trusts comes first, and nothing in the message displaces it.
    for (int i = 0; i < 40; ++i) {
        keycentre::Profile other = profile;
        other.notAfter = DaysFromNow(31 + i);
        message.certificates.push_back(EncodingOf(AnotherFor(bogus, other, "Bogus")));
    }
    EXPECT_EQ(Verify(message), Statuses{c_NAL_SIGNATURE_INVALID});
    const CNALCertStorage storage = StorageOf({who.cert});
    EXPECT_EQ(Verify(message, &storage), Statuses{0});

    // A renewed certificate for the same key: by key identifier both are named, and the one that was valid counts.
    const CNALCertContext expired = AnotherFor(who, ValidFrom(-30, -2));
    keycentre::Profile noUsage = ValidFrom(-1, 30);
    noUsage.keyUsage = 0;
    message = MessageOf(m_content, {{&who, c_NAL_SIGN_BY_KEY_ID}});
    const struct {
        std::list<IdentObj> certs;
        DWORD status;
    } cases[] = {{{EncodingOf(expired), good}, 0},
                 {{good, EncodingOf(expired)}, 0},
                 {{EncodingOf(expired)}, c_NAL_SIGNING_TIME_INVALID},
                 {{EncodingOf(AnotherFor(who, noUsage)), EncodingOf(expired)}, c_NAL_SIGNER_NOT_ALLOWED},
                 {{EncodingOf(AnotherFor(who, noUsage)), EncodingOf(expired), good}, 0}};
    for (const auto& item : cases) {
        message.certificates = item.certs;
        EXPECT_EQ(Verify(message), Statuses{item.status}) << &item - cases;
    }
}

TEST_F(Verification, GivesARecordPerSignerInOrder) {
    const Signatory caught = NewSignatory("Caught", ORK_KEY_SIGNATURE, ValidFrom(-30, -2));
    CNALSignData message = MessageOf(m_content, {{&*s_first}, {&caught}, {&*s_second, 0, ORK_ALG_GOSTR3411, false}, {&*s_first}});
    message.signerInfos.push_back(nal_test::Hex("30 03 020101"));
    message.signerInfos.push_back(MessageOf(FromText("else"), {{&*s_second}}).signerInfos.front());
    const Records records = RecordsOf(Encoded(message));
    EXPECT_EQ(StatusesOf(records), (Statuses{0, c_NAL_SIGNING_TIME_INVALID, c_NAL_SIGNER_NOT_FOUND, 0, c_NAL_SIGNER_NOT_FOUND,
                                             c_NAL_SIGNATURE_INVALID}));
    auto der = message.signerInfos.begin();
    for (const CNALWholeSignatureCheck& record : records) EXPECT_EQ(record.encoded, *der++);

    const CNALSignerInfoCheck shown(records.front());
    EXPECT_EQ(shown.certificate.m_info.m_subject, s_first->cert.IsInitialized() ? keycentre::Name("CN=First") : CNALX509Name());
    EXPECT_EQ(shown.status, 0u);
    EXPECT_EQ(shown.encoded, records.front().encoded);
    EXPECT_EQ(shown.statusText, records.front().statusText);
    const CNALSignerInfoCheck unknown(*std::next(records.begin(), 2));
    EXPECT_TRUE(unknown.certificate.m_info.m_subject.IsEmpty());
    EXPECT_TRUE(unknown != shown && (unknown < shown) != (unknown > shown) && CNALSignerInfoCheck(shown) == shown);
    EXPECT_TRUE(records.front() == records.back() || records.front() < records.back() || records.front() > records.back());
    EXPECT_EQ(CNALWholeSignatureCheck(static_cast<const CNALWholeSignature&>(records.front())).status, c_NAL_SIGNER_NOT_FOUND);
}

TEST_F(Verification, OptionBitsChangeNothingAndContentBitsWhatTheySay) {
    const IdentObj message = Encoded(MessageOf(m_content, {{&*s_first}}, false));
    for (const DWORD options : {0x10000u, 0x20000u, 0x40000u, 0x80000u, 0xF0000u, 0xFFFFFFFFu}) {
        WhatToSignStruct what = InMemory(m_content);
        what.options = options;
        EXPECT_EQ(StatusesOf(RecordsOf(message, what)), Statuses{0});
    }
    IdentObj padded = FromText("--");
    padded.Append(m_content.GetData(), m_content.GetSize());
    WhatToSignStruct part = InMemory(padded);
    part.start = 2;
    EXPECT_EQ(StatusesOf(RecordsOf(message, part)), Statuses{0});
    const std::string path = Store("padded", padded);
    part = InFile(path);
    part.start = 2;
    EXPECT_EQ(StatusesOf(RecordsOf(message, part)), Statuses{0});
    // 04 04 "what" 24 80 04 0B " was signed" 00 00, and two bytes that do not count.
    const IdentObj pieces = nal_test::Hex("04 04 77686174 24 80 04 0B 20776173207369676E6564 0000 FFFF");
    const std::string piecePath = Store("pieces", pieces);
    part = InFile(piecePath);
    part.flags |= c_NAL_CONTENT_IN_PIECES;
    EXPECT_EQ(StatusesOf(RecordsOf(message, part)), Statuses{0});
    part.flags = c_NAL_CONTENT_IN_FILE;
    EXPECT_EQ(StatusesOf(RecordsOf(message, part)), Statuses{c_NAL_SIGNATURE_INVALID});
}

/// A message that says the same: content, signed attributes and who signed it.
void ExpectTheSame(const CNALWholeSignatureCheck& record, const CNALWholeSignatureCheck& original) {
    EXPECT_EQ(record.signerInfo.GetBytesToSign(asnt::Order::Sorted), original.signerInfo.GetBytesToSign(asnt::Order::Sorted));
    // All but the key may be another in the certificate: its own signature is looked at with its chain.
    const CNALCertContext cert(record.signerCertificate);
    const CNALCertContext signer(original.signerCertificate);
    const auto keyOf = [](const CNALCertContext& c) { return CNALCertInfo(*c.GetContext()).m_publicKeyInfo.m_publicKey; };
    EXPECT_TRUE(keyOf(cert) == keyOf(signer));
}

TEST_F(Verification, NoChangeOfAByteMakesAnotherMessageValid) {
    const IdentObj der = Encoded(MessageOf(m_content, {{&*s_first}}));
    const CNALWholeSignatureCheck original = RecordsOf(der).front();
    unsigned valid = 0;
    for (unsigned at = 0; at < der.GetSize(); ++at) {
        for (const unsigned char change : {0x01, 0x20, 0xFF}) {
            IdentObj bad = der;
            bad.GetData()[at] ^= change;
            Records records;
            int err = -1;
            if (!NALVerifySignedData(&records, {}, bad, nullptr, &err)) {
                EXPECT_TRUE(records.empty() && (err == TOO_E_NOT_VERIFIED || err == TOO_E_NO_SIGNERS)) << at << " " << err;
                continue;
            }
            ASSERT_LE(records.size(), 1u);
            if (!records.front().IsValid()) continue;
            ++valid;
            CNALSignData read;
            read.ReadObject(bad.GetData(), bad.GetSize(), nullptr);
            EXPECT_EQ(read.eContent, m_content) << at;
            ExpectTheSame(records.front(), original);
        }
    }
    EXPECT_GT(valid, 0u);  // in the certificate's signature, for one
    for (unsigned size = 0; size < der.GetSize(); ++size) {
        Records records;
        int err = -1;
        EXPECT_FALSE(NALVerifySignedData(&records, {}, IdentObj(der.GetData(), size), nullptr, &err));
        EXPECT_EQ(err, TOO_E_NOT_VERIFIED) << size;
    }
}

// Many signers, and many certificates for each, cost no more than there are of them.
TEST_F(Verification, OfVeryManySignersEnds) {
    constexpr int count = 10000;
    CNALSignData message = MessageOf(m_content, {{&*s_first, c_NAL_SIGN_BY_KEY_ID}});
    CNALMessageSignerInfo info = InfoOf(message);
    info.signature.Clear();
    const IdentObj signer = info.WriteData(nullptr);
    nal_test::CertBuilder builder;
    builder.subjectKeyId = info.subjectKeyIdentifier;
    for (int i = 0; i < count; ++i) {
        message.signerInfos.push_back(signer);
        builder.subject = "Subject " + std::to_string(i);
        message.certificates.push_back(builder.Build());
    }
    const Statuses statuses = Verify(message);
    ASSERT_EQ(statuses.size(), count + 1u);
    EXPECT_EQ(statuses.front(), 0u);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), c_NAL_SIGNATURE_INVALID), count);
}

}  // namespace
