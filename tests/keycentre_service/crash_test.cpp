// A service that dies, or whose disk fills, at each of its steps: no serial number twice, no certificate without a record, no answer
// without a certificate, and the next run finishes what was begun.
#include <set>

#include "keycentre/service/publish.h"
#include "keycentre_service/centre_test.h"
#include "nal/crl.h"
#include "support/child.h"

namespace {

using keycentre::Centre;
using keycentre::CertificateRecord;
using keycentre::Delivery;
using keycentre::KeyPair;
using nal_test::ChildEnd;
using nal_test::Holder;
using nal_test::Request;

class Crashes : public nal_test::CentreTest {
protected:
    /// Every record and every answer agree.
    void ExpectWhole() {
        Centre centre(m_folder.File("centre"));
        std::set<std::string> serials;
        std::set<std::string> recorded;
        centre.GetRecords().ForEach(true, [&](const CertificateRecord& record) {
            EXPECT_TRUE(serials.insert(keycentre::SerialText(record.serial)).second);
            if (record.certificate.IsEmpty()) {
                EXPECT_EQ(record.state, keycentre::State::Reserved);
                return;
            }
            const CNALCertInfo info(*CNALCertContext(record.certificate).GetContext());
            EXPECT_EQ(info.m_serialNumber, record.serial);
            recorded.insert(NALGetFingerprint(record.certificate).str());
        });
        if (!std::filesystem::exists(Transport().GetAnswers(Delivery::Own))) return;
        for (const CNALCertContext& answer : Answers()) {
            const IdentObj der(answer.GetContext()->pbCertEncoded, answer.GetContext()->cbCertEncoded);
            EXPECT_TRUE(recorded.contains(NALGetFingerprint(der).str()));
        }
    }

    /// After a run that ended early: one more answers the request, with one certificate.
    void ExpectFinished(const KeyPair& key, const std::string& file) {
        ExpectWhole();
        Centre centre = Open();
        Serve(centre);
        ExpectWhole();
        EXPECT_FALSE(std::filesystem::exists(RequestPath(file)));
        EXPECT_TRUE(std::filesystem::exists(m_folder.File("net/d_station/o_users/answered/" + file)));
        unsigned count = 0;
        for (const CNALCertContext& answer : Answers())
            count += CNALCertInfo(*answer.GetContext()).m_publicKeyInfo.m_publicKey == key.GetPublicKey().m_publicKey ? 1 : 0;
        EXPECT_EQ(count, 1U);
        const auto record = centre.GetRecords().FindKey(NALGetFingerprint(key.GetPublicKey().WriteData()).str());
        ASSERT_TRUE(record);
        EXPECT_EQ(record->state, keycentre::State::Answered);
    }
};

TEST_F(Crashes, KilledAtAnyStepTheServiceLosesAndRepeatsNothing) {
    const Holder ivan = [&] {
        Centre centre = Open();
        return Release(centre, "CN=Ivan");
    }();
    unsigned step = 1;
    for (; step < 200; ++step) {
        const KeyPair key = NewKey();
        const std::string file = std::to_string(step) + "_ownu.req";
        Put(file, Request(key, ivan.name, &ivan));
        const ChildEnd end = nal_test::RunInChild([&] {
            Centre centre = Open();
            too_testing::KillAtStep(step);
            Serve(centre);
        });
        SCOPED_TRACE(step);
        ExpectFinished(key, file);
        if (end == ChildEnd::success) break;
        ASSERT_EQ(end, ChildEnd::killed);
    }
    EXPECT_GT(step, 10U);
    EXPECT_LT(step, 200U);
}

TEST_F(Crashes, AFullDiskAtAnyStepLosesAndRepeatsNothing) {
    const Holder ivan = [&] {
        Centre centre = Open();
        return Release(centre, "CN=Ivan");
    }();
    for (unsigned step = 1; step < 200; ++step) {
        const KeyPair key = NewKey();
        const std::string file = std::to_string(step) + "_ownu.req";
        Put(file, Request(key, ivan.name, &ivan));
        bool failed = false;
        unsigned steps = 0;
        {
            Centre centre = Open();
            const too_testing::ScopedStepFailure full(step, ENOSPC, 1);
            try {
                failed = Serve(centre).failed != 0;
            } catch (const XTOOStatus&) {
                failed = true;
            }
            steps = too_testing::GetStepCount();
        }
        SCOPED_TRACE(step);
        ExpectFinished(key, file);
        if (!failed && steps < step) break;
    }
}

// Whatever the clocks say: it stands still here, so the revocation is not newer than the last CRL.
TEST_F(Crashes, ARevocationThatDiesIsOnTheNextCrlThatIsHandedOut) {
    const auto lists = [](const IdentObj& crl, const IdentObj& serial) {
        CNAL_CRL_List decoded;
        decoded.ReadData(crl.GetData(), crl.GetSize());
        return decoded.m_info.FindEntry(serial) != CNAL_CRL_Info::npos;
    };
    for (unsigned step = 1; step < 50; ++step) {
        SCOPED_TRACE(step);
        const IdentObj serial = [&] {
            Centre centre = Open();
            return nal_test::SerialOf(Release(centre, "CN=Ivan"));
        }();
        const ChildEnd end = nal_test::RunInChild([&] {
            Centre centre = Open();
            too_testing::KillAtStep(step);
            centre.Revoke(serial, 1);
            centre.MakeCrls();
        });
        Centre centre = Open();
        if (centre.GetRecords().FindSerial(serial)->revoked) {
            keycentre::Publish(centre, Transport());
            EXPECT_TRUE(lists(centre.GetAuthority(keycentre::Role::Issuing).crl, serial));
            const nal_test::Bytes file = nal_test::ReadFile(m_folder.File("centre/crl/issuing.crl"));
            EXPECT_TRUE(lists(IdentObj(file.data(), static_cast<unsigned>(file.size())), serial));
        }
        if (end == ChildEnd::success) {
            EXPECT_GT(step, 5U);
            return;
        }
        ASSERT_EQ(end, ChildEnd::killed);
    }
    FAIL() << "it did not end";
}

TEST_F(Crashes, AFoundingThatDiesLeavesNoCentre) {
    Centre::Founding founding;
    founding.folder = m_folder.File("other");
    founding.root = keycentre::Name("CN=R");
    founding.lists = keycentre::Name("CN=L");
    for (unsigned step = 1;; ++step) {
        const ChildEnd end = nal_test::RunInChild([&] {
            too_testing::KillAtStep(step);
            Centre::Found(founding);
        });
        if (std::filesystem::exists(founding.folder.str())) {
            Centre centre(founding.folder);
            centre.OpenKeys("");
            EXPECT_EQ(centre.GetIssuingRole(), keycentre::Role::Root);
            EXPECT_FALSE(centre.GetAuthority(keycentre::Role::Root).crl.IsEmpty());
            EXPECT_GT(step, 10U);
            break;
        }
        ASSERT_EQ(end, ChildEnd::killed);
    }
    EXPECT_FALSE(std::filesystem::exists(founding.folder.str() + ".new"));
}

}  // namespace
