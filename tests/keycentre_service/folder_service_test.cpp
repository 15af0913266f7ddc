// The folder service: who is answered, who waits, who is refused and why, and that one bad request stops nobody else's.
#include "keycentre_service/centre_test.h"

#include "asnt/writer.h"
#include "keycentre/service/publish.h"
#include "nal/sign.h"
#include "nal/trust_storages.h"
#include "support/status_of.h"

namespace {

using keycentre::FolderTally;
using keycentre::Centre;
using keycentre::Delivery;
using keycentre::KeyPair;
using nal_test::Date;
using nal_test::Holder;
using nal_test::Request;
using nal_test::SerialOf;
using testing::HasSubstr;

class FolderServices : public nal_test::CentreTest {};

CNALCertExtension Usage(unsigned flags) { return CNALKeyUsage(flags).ToExtension(c_NAL_OID_KEY_USAGE, true); }

IdentObj Identity(unsigned network, unsigned number) {
    IdentObj bytes = keycentre::MakeSerial(static_cast<unsigned short>(network), number);
    asnt::Writer writer;
    writer.OctetString(bytes);
    return writer.Finish();
}

void Wish(CNALPKCS10Data& data, const std::vector<CNALCertExtension>& wishes) {
    CNALCertExtensionList list;
    for (const CNALCertExtension& wish : wishes)
        list.Add(wish);
    data.SetExtensions(list);
}

constexpr char kClients[] = "1.3.6.1.5.5.7.3.2";

TEST_F(FolderServices, ARenewalIsAnsweredAndAFirstRequestWaits) {
    Centre centre = Open();
    CNALExtendedKeyUsage clients;
    clients.m_usages = {kClients};
    const CNALCertExtension extended = clients.ToExtension(c_NAL_OID_EXTENDED_KEY_USAGE, false);
    const Holder ivan = Release(centre, "CN=Иван, O=Works", false, [&](CNALPKCS10Data& data, CNALSecondSignature&) { Wish(data, {extended}); });
    const KeyPair next = NewKey();
    CKeyUsagePeriod period;
    period.m_hasNotBefore = period.m_hasNotAfter = true;
    period.m_notBefore = Date(2026, 4, 1);
    period.m_notAfter = Date(2026, 6, 1);
    Put("12ab0007_ownu.req", Request(next, ivan.name, &ivan, [&](CNALPKCS10Data& data, CNALSecondSignature&) {
            data.m_attributes.Add(c_NAL_OID_REQUEST_IDENTITY, Identity(0x12ab, 7));
            Wish(data, {Usage(CNALKeyUsage::DigitalSignature | CNALKeyUsage::KeyEncipherment), period.ToExtension(c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, false), extended});
        }));
    const KeyPair stranger = NewKey();
    Put("00000001_ownu.req", Request(stranger, keycentre::Name("CN=Stranger"), nullptr));

    const FolderTally tally = Serve(centre);
    EXPECT_EQ(tally.answered, 1U);
    EXPECT_EQ(tally.waiting, 1U);
    EXPECT_EQ(m_events["00000001_ownu.req"].text, NALGetFingerprint(stranger.GetPublicKey().WriteData()).str());
    EXPECT_TRUE(std::filesystem::exists(RequestPath("00000001_ownu.req")));
    EXPECT_TRUE(std::filesystem::exists(m_folder.File("net/d_station/o_users/answered/12ab0007_ownu.req")));

    const std::vector<CNALCertContext> answers = Answers();
    ASSERT_EQ(answers.size(), 1U);
    const CNALCertInfo info(*answers[0].GetContext());
    EXPECT_EQ(info.m_subject, ivan.name);
    EXPECT_EQ(info.m_publicKeyInfo.m_publicKey, next.GetPublicKey().m_publicKey);
    EXPECT_EQ(CTOOFileTime(info.m_notBefore), Date(2026, 4, 1));
    EXPECT_EQ(CTOOFileTime(info.m_notAfter), Date(2026, 9, 1));
    CNALKeyUsage usage;
    ASSERT_TRUE(usage.ReadFrom(info.m_extensions, c_NAL_OID_KEY_USAGE));
    EXPECT_EQ(usage.GetFlags(), CNALKeyUsage::DigitalSignature | CNALKeyUsage::KeyEncipherment);
    EXPECT_TRUE(clients.ReadFrom(info.m_extensions, c_NAL_OID_EXTENDED_KEY_USAGE) && clients.Contains(kClients));
    const unsigned char* serial = info.m_serialNumber.GetData();
    EXPECT_TRUE(info.m_serialNumber.GetSize() == 16 && serial[2] == 0xab && serial[3] == 0x12 && serial[4] == 7);

    // A second pass neither reads nor reports the waiting one again.
    EXPECT_EQ(Serve(centre).waiting, 1U);
    EXPECT_TRUE(m_events.empty());
}

TEST_F(FolderServices, BadRequestsAreRefusedWithAReasonAndTheRestIsServed) {
    Centre centre = Open();
    const Holder ivan = Release(centre, "CN=Ivan");
    const Holder revoked = Release(centre, "CN=Revoked");
    centre.Revoke(SerialOf(revoked), 1);
    Holder stranger{NewKey(), keycentre::Name("CN=Ivan"), {}};
    {
        const keycentre::Issuer other = keycentre::Issuer::SelfSigned(NewKey(), keycentre::Name("CN=Issuing"), keycentre::RootProfile());
        keycentre::Profile profile = keycentre::SignatureProfile();
        profile.serial = SerialOf(ivan);
        profile.subjectKeyId = CNALCertContext(ivan.certificate).GetSubjectKeyId();
        stranger.certificate = other.Certify(stranger.name, stranger.key.GetPublicKey(), profile);
    }
    const KeyPair key = NewKey();
    const auto wishing = [&](std::vector<CNALCertExtension> wishes) {
        return Request(key, ivan.name, &ivan, [wishes](CNALPKCS10Data& data, CNALSecondSignature&) { Wish(data, wishes); });
    };
    const auto flipped = [](IdentObj bytes, unsigned fromEnd) {
        bytes.GetData()[bytes.GetSize() - fromEnd] ^= 1;
        return bytes;
    };
    const IdentObj good = Request(key, ivan.name, &ivan);
    CNALBasicConstraints ca;
    ca.m_isCA = true;
    CNALExtendedKeyUsage lists;
    lists.m_usages = {c_NAL_OID_TRUST_LIST_SIGNING};
    CNALExtendedKeyUsage clients;
    clients.m_usages = {kClients};
    CNALAlternativeNames names;
    names.m_names = {CNALGeneralName(CNALGeneralName::DnsName, nal_test::Filled('a', 3))};
    CKeyUsagePeriod past;
    past.m_hasNotAfter = true;
    past.m_notAfter = Date(2026, 1, 1);

    struct Case {
        IdentObj request;
        const char* reason;
    };
    const std::vector<Case> cases = {
        {flipped(good, 1), "signature with its own key does not hold"},
        {Request(key, ivan.name, &stranger), "second signature does not hold"},
        {Request(key, revoked.name, &revoked), "which is revoked"},
        {Request(key, keycentre::Name("CN=Pjotr"), &ivan), "vouches for another name"},
        {Request(key, keycentre::Name("CN=Root"), &ivan), "one of the key centre's own"},
        {Request(key, CNALX509Name(nal_test::FromHexText("3000")), &ivan), "name is empty"},
        {Request(key, CNALX509Name(nal_test::FromHexText("300C310A300806035504030C01FF")), nullptr), "name is empty or does not decode"},
        {Request(key, CNALX509Name(nal_test::NameDer("a\x1B[31m")), nullptr), "invisible characters"},
        {Request(key, CNALX509Name(nal_test::NameDer("a\xE2\x80\xAE" "b")), nullptr), "invisible characters"},
        {Request(ivan.key, ivan.name, &ivan), "has a certificate already"},
        {Request(key, ivan.name, &ivan, [](CNALPKCS10Data&, CNALSecondSignature& second) { second.m_keyIdentifier.GetData()[0] ^= 1; }), "another key identifier"},
        {Request(key, ivan.name, &ivan, [](CNALPKCS10Data&, CNALSecondSignature& second) { second.m_issuer = keycentre::Name("CN=Else"); }), "did not issue"},
        {Request(key, ivan.name, &ivan, [](CNALPKCS10Data& data, CNALSecondSignature&) { data.m_attributes.Add(c_NAL_OID_REQUEST_IDENTITY, Identity(0x7777, 1)); }),
         "network 7777"},
        {wishing({ca.ToExtension(c_NAL_OID_BASIC_CONSTRAINTS, true)}), "a CA's certificate"},
        {wishing({Usage(CNALKeyUsage::KeyCertSign)}), "which are a CA's"},
        {wishing({lists.ToExtension(c_NAL_OID_EXTENDED_KEY_USAGE, false)}), "which is the key centre's"},
        {wishing({clients.ToExtension(c_NAL_OID_EXTENDED_KEY_USAGE, false)}), "which it does not have"},
        {wishing({names.ToExtension(c_NAL_OID_SUBJECT_ALT_NAME, false)}), "alternative names that are not its own"},
        {wishing({past.ToExtension(c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, false)}), "has passed"},
        {wishing({Usage(1), Usage(1)}), "twice"},
        {wishing({{"1.2.3.4", false, nal_test::FromHexText("0500")}}), "does not issue"},
        {wishing({{c_NAL_OID_KEY_USAGE, true, nal_test::FromHexText("0500")}}), "damaged"},
        {wishing({CNALSubjectKeyID(nal_test::Filled(3)).ToExtension(c_NAL_OID_SUBJECT_KEY_ID, false)}), "not its key's"},
        {IdentObj(good.GetData(), good.GetSize() - 20), "only a part"},
        {IdentObj(), "empty"},
        {nal_test::Filled(0x30, 100000), "too large"},
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        Put(std::to_string(1000 + i) + "_ownu.req", cases[i].request);
    Put("2000_extu.req", good);
    std::filesystem::create_symlink("/dev/zero", RequestPath("3000_ownu.req"));
    std::filesystem::create_directory(RequestPath("3001_ownu.req"));

    const FolderTally tally = Serve(centre);
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string file = std::to_string(1000 + i) + "_ownu.req";
        EXPECT_THAT(Reason(file), HasSubstr(cases[i].reason));
        EXPECT_THAT(Reason(file), HasSubstr(file));
        EXPECT_FALSE(std::filesystem::exists(RequestPath(file)));
    }
    EXPECT_THAT(Reason("3000_ownu.req"), HasSubstr("link"));
    EXPECT_THAT(Reason("3001_ownu.req"), HasSubstr("not a file"));
    EXPECT_EQ(tally.refused, cases.size() + 2);
    EXPECT_EQ(tally.answered, 1U);
    EXPECT_EQ(Answers(Delivery::External).size(), 1U);
    EXPECT_TRUE(Answers().empty());
}

TEST_F(FolderServices, NothingOutlivesTheIssuer) {
    Centre centre = Open();
    const CTOOFileTime end = centre.GetIssuer(keycentre::Role::Issuing).GetInfo().m_notAfter;
    too_testing::SetClock(Date(2031, 2, 1));
    ASSERT_LT(end, CTOOFileTime(Date(2031, 4, 1)));
    const Holder ivan = Release(centre, "CN=Ivan");
    const CNALCertInfo info(*CNALCertContext(ivan.certificate).GetContext());
    CKeyUsagePeriod period;
    ASSERT_TRUE(period.ReadFrom(info.m_extensions, c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD));
    EXPECT_EQ(CTOOFileTime(info.m_notAfter), end);
    EXPECT_EQ(CTOOFileTime(period.m_notAfter), end);
    period.m_hasNotBefore = true;
    period.m_notBefore = Date(2031, 4, 1);
    period.m_notAfter = Date(2031, 6, 1);
    Put("1_ownu.req", Request(NewKey(), ivan.name, &ivan, [&](CNALPKCS10Data& data, CNALSecondSignature&) {
            Wish(data, {period.ToExtension(c_NAL_OID_PRIVATE_KEY_USAGE_PERIOD, false)});
        }));
    EXPECT_EQ(Serve(centre).refused, 1U);
    EXPECT_THAT(Reason("1_ownu.req"), HasSubstr("issuing authority is over"));
}

TEST_F(FolderServices, AKeyOfAnUnknownTypeIsRefused) {
    Centre centre = Open();
    // A request as another tool makes it for a key that no provider here knows; its signature is never looked at.
    const IdentObj key = nal_test::Filled(1, 32);
    const IdentObj signature = nal_test::Filled(2, 64);
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Sequence([&] {
            writer.Integer(0);
            writer.Raw(nal_test::NameDer("x"));
            writer.Sequence([&] {
                writer.Sequence([&] { writer.Oid("1.3.101.112"); });
                writer.BitString(key);
            });
            writer.Context(0, [] {});
        });
        writer.Sequence([&] { writer.Oid("1.3.101.112"); });
        writer.BitString(signature);
    });
    Put("1_ownu.req", writer.Finish());
    EXPECT_EQ(Serve(centre).refused, 1U);
    EXPECT_THAT(Reason("1_ownu.req"), HasSubstr("type that is not known"));
}

TEST_F(FolderServices, OnlyTheEntitledVouchForOthers) {
    Centre centre = Open();
    const Holder clerk = Release(centre, "CN=Clerk");
    const IdentObj serial = SerialOf(clerk);
    CNALAlternativeNames names;
    names.m_names = {CNALGeneralName(CNALGeneralName::DnsName, nal_test::Filled('a', 3))};
    const auto request = [&] {
        return Request(NewKey(), keycentre::Name("CN=Guest"), &clerk,
                       [&](CNALPKCS10Data& data, CNALSecondSignature&) { Wish(data, {names.ToExtension(c_NAL_OID_OLD_SUBJECT_ALT_NAME, false)}); });
    };
    struct Case {
        std::function<void()> before;
        unsigned answered;
    };
    const std::vector<Case> cases = {
        {[] {}, 0}, {[&] { centre.Entitle(serial, true); }, 1}, {[&] { centre.Entitle(serial, false); }, 0},
        {[&] { centre.Entitle(serial, true); too_testing::SetClock(Date(2027, 4, 1)); }, 0},  // the key's period is over
        {[&] { too_testing::SetClock(Date(2026, 4, 1)); centre.Revoke(serial, 0); }, 0},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        cases[i].before();
        Put(std::to_string(i) + "_extu.req", request());
        EXPECT_EQ(Serve(centre).answered, cases[i].answered) << i;
    }
    EXPECT_EQ(Answers(Delivery::External).size(), 1U);
}

TEST_F(FolderServices, AReplayedRequestGetsNoSecondCertificate) {
    Centre centre = Open();
    const Holder ivan = Release(centre, "CN=Ivan");
    const IdentObj request = Request(NewKey(), ivan.name, &ivan);
    Put("1_ownu.req", request);
    Put("2_ownu.req", request);  // in one pass
    FolderTally tally = Serve(centre);
    EXPECT_TRUE(tally.answered == 1 && tally.repeated == 1);
    const std::vector<CNALCertContext> answers = Answers();
    ASSERT_EQ(answers.size(), 1U);

    // Lost on its way, and asked for again: the same certificate.
    std::filesystem::remove_all(m_folder.File("net/d_station/tmp"));
    Put("3_ownu.req", request);
    EXPECT_EQ(Serve(centre).repeated, 1U);
    EXPECT_THAT(Reason("3_ownu.req"), HasSubstr("has its certificate already: "));
    ASSERT_EQ(Answers().size(), 1U);
    EXPECT_EQ(Answers()[0], answers[0]);

    std::filesystem::remove_all(m_folder.File("net/d_station/tmp"));
    centre.Revoke(CNALCertInfo(*answers[0].GetContext()).m_serialNumber, 0);
    Put("4_ownu.req", request);
    EXPECT_EQ(Serve(centre).repeated, 1U);
    EXPECT_FALSE(std::filesystem::exists(m_folder.File("net/d_station/tmp")));
}

TEST_F(FolderServices, AHalfWrittenRequestIsLeftUntilItSettles) {
    Centre centre = Open();
    const Holder ivan = Release(centre, "CN=Ivan");
    const IdentObj request = Request(NewKey(), ivan.name, &ivan);
    Put("1_ownu.req", IdentObj(request.GetData(), 50));
    Age(RequestPath("1_ownu.req"), 5);
    FolderTally tally = Serve(centre);
    EXPECT_TRUE(tally.arriving == 1 && tally.refused == 0);
    Put("1_ownu.req", request);
    Age(RequestPath("1_ownu.req"), 0);
    EXPECT_EQ(Serve(centre).answered, 1U);
}

TEST_F(FolderServices, ManyRequestsAreAnsweredInGroups) {
    Centre centre = Open();
    const Holder clerk = Release(centre, "CN=Clerk", true);
    constexpr unsigned kCount = 41;
    for (unsigned i = 0; i < kCount; ++i) {
        const std::string name = std::to_string(i);
        Put(name + "_extu.req", i % 8 == 7 ? nal_test::Filled(3) : Request(NewKey(), keycentre::Name("CN=Guest " + name), i % 8 == 6 ? nullptr : &clerk));
    }
    const FolderTally tally = Serve(centre, 6);
    EXPECT_EQ(tally.refused, 5U);
    EXPECT_EQ(tally.waiting, 5U);
    EXPECT_EQ(tally.answered, 31U);
    EXPECT_EQ(Answers(Delivery::External).size(), 31U);
    // Nothing is lost between the records of one pass and the next.
    EXPECT_EQ(Serve(centre, 6).waiting, 5U);
}

TEST_F(FolderServices, OneServiceWorksOnAFolder) {
    Centre centre = Open();
    const keycentre::FolderService first(centre, Transport(), {});
    EXPECT_EQ(nal_test::StatusOf([&] { keycentre::FolderService(centre, Transport(), {}); }), TOO_E_LOCK);
    EXPECT_EQ(nal_test::StatusOf([&] { keycentre::TransportFolder(m_folder.File("nowhere")); }), TOO_E_FILE_NOT_FOUND);
}

TEST_F(FolderServices, AnUnreadableRequestStaysAndIsReported) {
    if (::geteuid() == 0) GTEST_SKIP() << "root reads everything";
    Centre centre = Open();
    Put("1_ownu.req", nal_test::Filled(1));
    std::filesystem::permissions(RequestPath("1_ownu.req"), std::filesystem::perms::none);
    EXPECT_EQ(Serve(centre).failed, 1U);
    EXPECT_TRUE(std::filesystem::exists(RequestPath("1_ownu.req")));
}

TEST_F(FolderServices, ADamagedStoreOfAnswersStopsNothingElse) {
    Centre centre = Open();
    const Holder ivan = Release(centre, "CN=Ivan");
    const std::string answers = Transport().GetAnswers(Delivery::Own);
    std::filesystem::create_directories(m_folder.File("net/d_station/tmp"));
    nal_test::WriteFile(answers, nal_test::Filled(7, 5000).GetData(), 5000);
    Put("1_ownu.req", Request(NewKey(), ivan.name, &ivan));
    Put("2_extu.req", Request(NewKey(), ivan.name, &ivan));
    Put("3_ownu.req", nal_test::Filled(1));
    // In the second pass the own user's certificate is there already and waits to be handed over.
    for (const unsigned others : {1U, 0U}) {
        const FolderTally tally = Serve(centre);
        EXPECT_TRUE(tally.failed == 1 && tally.answered == others && tally.refused == others && tally.repeated == 0) << others;
        EXPECT_THAT(m_events["own_input.cer"].text, testing::AllOf(HasSubstr(answers), HasSubstr("damaged"), HasSubstr("not handed over: 1")));
        EXPECT_TRUE(std::filesystem::exists(RequestPath("1_ownu.req")));
        EXPECT_EQ(Answers(Delivery::External).size(), 1U);
    }
    // While it is, no more certificates are made than a group's; afterwards all are handed over, a group at a time.
    for (const char* file : {"4_ownu.req", "5_ownu.req", "6_ownu.req"}) Put(file, Request(NewKey(), ivan.name, &ivan));
    EXPECT_EQ(Serve(centre, 1).failed, 1U);
    EXPECT_EQ(centre.GetRecords().FindUndelivered(Transport().GetPath(), 0, 9).size(), 1U);
    std::filesystem::remove(answers);
    EXPECT_EQ(Serve(centre, 1).answered, 4U);
    EXPECT_EQ(Answers().size(), 4U);
    EXPECT_FALSE(std::filesystem::exists(RequestPath("1_ownu.req")));
}

TEST_F(FolderServices, TheCrlAmongTheAnswersIsThePresentOne) {
    Centre centre = Open();
    const Holder ivan = Release(centre, "CN=Ivan");
    for (int round = 0; round < 3; ++round) {
        {
            const keycentre::FolderLock lock = centre.Lock();
            centre.MakeCrls();
        }
        Put("1_ownu.req", Request(NewKey(), ivan.name, &ivan));
        EXPECT_EQ(Serve(centre).answered, 1U);
        CNALString path{CTOOString(Transport().GetAnswers(Delivery::Own))};
        const CNALCertStorage store(path, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
        const CNALCRLContext crl = store.FindCRLInStore(0, nullptr, {});
        EXPECT_EQ(crl, CNALCRLContext(centre.GetAuthority(centre.GetIssuingRole()).crl));
        EXPECT_FALSE(store.FindCRLInStore(0, nullptr, crl).IsInitialized());
    }
}

TEST_F(FolderServices, PublishedListsAreAccepted) {
    Centre centre = Open();
    const Holder ivan = Release(centre, "CN=Ivan");
    const Holder gone = Release(centre, "CN=Gone");
    centre.Revoke(SerialOf(gone), 0);
    EXPECT_EQ(keycentre::Publish(centre, Transport()).number, 1U);
    const keycentre::Published published = keycentre::Publish(centre, Transport());
    EXPECT_EQ(published.number, 2U);
    EXPECT_EQ(published.users, 1U);

    std::filesystem::create_directories(m_folder.File("home/trust"));
    CNALString path{CTOOString(m_folder.File("home/trust/trusted.dat"))};
    CNALCertStorage main(path, CERT_STORE_PROV_FILENAME_A, 0x12000, 0, nullptr);
    ASSERT_TRUE(main.AddCertificate(CNALCertContext(centre.GetAuthority(keycentre::Role::Root).certificate)));
    m_VPN_TrustStorages.Reset();
    m_VPN_TrustStorages.m_transportFolder = m_folder.File("net");
    CNALCertContext issuer;
    CNALCRLContext crl;
    unsigned flags = 7;
    EXPECT_TRUE(m_VPN_TrustStorages.FindIssuerCertificate(CNALCertContext(ivan.certificate), issuer, &flags, &crl));
    EXPECT_EQ(flags, 0U);
    EXPECT_EQ(issuer, CNALCertContext(centre.GetAuthority(keycentre::Role::Issuing).certificate));
    EXPECT_TRUE(crl.IsInitialized());
    m_VPN_TrustStorages.Reset();
}

}  // namespace
