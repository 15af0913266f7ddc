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
            Signing without = signing;
            without.withCertificate = false;
            const IdentObj bare = Encoded(MessageOf(m_content, {without}));
            std::vector<Records> all = {RecordsOf(attached), RecordsOf(detached, InMemory(m_content)), RecordsOf(detached, InFile(path)),
                                        RecordsOf(attached, InFile(path)), RecordsOf(bare, {}, &storage), {}, {}};
            EXPECT_TRUE(NALVerifySignatureOnFile(all[5], path.c_str(), &detached, nullptr, nullptr));
            EXPECT_TRUE(NALVerifySignatureOnFile(all[6], message.c_str(), nullptr, nullptr, nullptr));
            for (const Records& found : all) {
                ASSERT_EQ(StatusesOf(found), Statuses{0}) << key << " " << flags << " " << &found - all.data();
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
        // Content in the message does not make another one beside it good; no bytes in memory are no other one.
        EXPECT_EQ(StatusesOf(RecordsOf(attached, InMemory(other))), other.IsEmpty() ? Statuses(2, 0) : fails);
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
        {"good later", ValidFrom(-1, 30), 29, 0},
        {"expired since", ValidFrom(-1, 30), 31, c_NAL_SIGNER_NOT_ALLOWED},
        {"expired before", ValidFrom(-30, -1), 0, c_NAL_SIGNING_TIME_INVALID},
        {"not yet valid", ValidFrom(1, 30), 0, c_NAL_SIGNING_TIME_INVALID},
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

// What else the attributes of one signature may say is the business of signer/signer_check_test.
TEST_F(Verification, JudgesTheSignedAttributes) {
    const auto time = [](int days) { return Der([&](asnt::Writer& writer) { writer.Time(DaysFromNow(days)); }); };
    const IdentObj otherType = Der([](asnt::Writer& writer) { writer.Oid("1.2.3"); });
    using Attributes = CNALAttributesList;
    const struct {
        const char *name, *removed;
        std::function<void(Attributes&)> add;
        DWORD status;
    } cases[] = {
        {"as made", "", [](Attributes&) {}, 0},
        {"no signing time", c_NAL_OID_SIGNING_TIME, [](Attributes&) {}, 0},
        {"no digest", c_NAL_OID_MESSAGE_DIGEST, [](Attributes&) {}, c_NAL_SIGNATURE_INVALID},
        {"time twice", "", [&](Attributes& list) { list.Add(c_NAL_OID_SIGNING_TIME, time(0)); }, c_NAL_SIGNATURE_INVALID},
        {"another type", c_NAL_OID_CONTENT_TYPE, [&](Attributes& list) { list.Add(c_NAL_OID_CONTENT_TYPE, otherType); },
         c_NAL_CONTENT_TYPE_INVALID},
        {"time before the certificate", c_NAL_OID_SIGNING_TIME, [&](Attributes& list) { list.Add(c_NAL_OID_SIGNING_TIME, time(-400)); },
         c_NAL_SIGNING_TIME_INVALID},
    };
    for (const auto& item : cases) {
        CNALSignData message = MessageOf(m_content, {{&*s_first}});
        CNALMessageSignerInfo info = InfoOf(message);
        info.signedAttrs.Remove(item.removed);
        item.add(info.signedAttrs);
        SignAgain(*s_first, info, info.GetBytesToSign());
        message.signerInfos = {info.WriteData(nullptr)};
        EXPECT_EQ(Verify(message), Statuses{item.status}) << item.name;
    }
    CNALSignData message = MessageOf(m_content, {{&*s_first}});
    message.eContentType = CASNTIdData("1.2.3");
    EXPECT_EQ(Verify(message), Statuses{c_NAL_CONTENT_TYPE_INVALID});
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
    EXPECT_EQ(CNALWholeSignatureCheck(static_cast<const CNALWholeSignature&>(records.front())).status, c_NAL_SIGNER_NOT_FOUND);
}

TEST_F(Verification, OptionBitsChangeNothingAndContentBitsWhatTheySay) {
    const IdentObj message = Encoded(MessageOf(m_content, {{&*s_first}}, false));
    for (const DWORD options : {0x10000u, 0x20000u, 0x40000u, 0x80000u, 0xF0000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(StatusesOf(RecordsOf(message, InMemory(m_content, options))), Statuses{0});
    }
    IdentObj padded = FromText("--");
    padded.Append(m_content.GetData(), m_content.GetSize());
    EXPECT_EQ(StatusesOf(RecordsOf(message, InMemory(padded, 0, 2))), Statuses{0});
    const std::string path = Store("padded", padded);
    EXPECT_EQ(StatusesOf(RecordsOf(message, InFile(path, 0, 2))), Statuses{0});
    // 04 04 "what" 24 80 04 0B " was signed" 00 00, and two bytes that do not count.
    const IdentObj pieces = nal_test::Hex("04 04 77686174 24 80 04 0B 20776173207369676E6564 0000 FFFF");
    const std::string piecePath = Store("pieces", pieces);
    WhatToSignStruct part = InFile(piecePath);
    part.flags |= c_NAL_CONTENT_IN_PIECES;
    EXPECT_EQ(StatusesOf(RecordsOf(message, part)), Statuses{0});
    part.flags = c_NAL_CONTENT_IN_FILE;
    EXPECT_EQ(StatusesOf(RecordsOf(message, part)), Statuses{c_NAL_SIGNATURE_INVALID});
}

// Whatever byte changes, a message that is still valid says the same: content, signed attributes and whose key signed it.
TEST_F(Verification, NoChangeOfAByteMakesAnotherMessageValid) {
    const Signatory secret = NewSignatory("Private", ORK_ALG_PRIVATE_SIGN);
    for (const Signing& signing : {Signing{&*s_first}, Signing{&secret, 0, ORK_ALG_PRIVATE_HASH}}) {
        const IdentObj der = Encoded(MessageOf(m_content, {signing}));
        const CNALMessageSignerInfo original = RecordsOf(der).front().signerInfo;
        // All but the key may be another in the certificate: its own signature is looked at with its chain.
        const auto keyOf = [](const CNALCertContext& cert) { return CNALCertInfo(*cert.GetContext()).m_publicKeyInfo.m_publicKey; };
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
                EXPECT_EQ(records.front().signerInfo.GetBytesToSign(asnt::Order::Sorted), original.GetBytesToSign(asnt::Order::Sorted));
                EXPECT_TRUE(keyOf(CNALCertContext(records.front().signerCertificate)) == keyOf(signing.who->cert)) << at;
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
