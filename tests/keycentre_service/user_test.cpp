// A user and a key centre: what the library asks for is answered, and what is answered is installed.
#include "keycentre/service/publish.h"
#include "keycentre_service/centre_test.h"
#include "nal/request_context.h"
#include "nal/settings.h"
#include "nal/trust_storages.h"
#include "nal/user.h"

namespace {

using keycentre::Centre;
using nal_test::Date;

class Users : public nal_test::CentreTest {
protected:
    void SetUp() override {
        Centre centre = Open();
        keycentre::Publish(centre, Transport());
        std::filesystem::create_directories(m_folder.File("home/trust"));
        CNALString path{CTOOString(m_folder.File("home/trust/trusted.dat"))};
        CNALCertStorage main(path, CERT_STORE_PROV_FILENAME_A, 0x12000, 0, nullptr);
        ASSERT_TRUE(main.AddCertificate(CNALCertContext(centre.GetAuthority(keycentre::Role::Root).certificate)));
        ASSERT_TRUE(main.AddEncodetCRL(centre.GetAuthority(keycentre::Role::Root).crl, 1));
        m_VPN_TrustStorages.Reset();
        NALSetTransDir(m_folder.File("net"));
    }
    void TearDown() override { m_VPN_TrustStorages.Reset(); }

    /// Takes the answer to a request in and installs it. @return the certificate
    CNALCertContext Install(CNALUser& user, const NAL_REQ_CONTEXT* asked) {
        const IdentObj identity(asked->Identity.pbData, asked->Identity.cbData);
        NALCloseReqContext(asked);
        int err = -1;
        CTOOString msg;
        EXPECT_TRUE(NALTakeAnswers(m_folder.File("net"), nullptr, &err, &msg)) << msg;
        CNALCertContext certificate;
        for (const CTOOString& path : NALGetReqStatusFile(m_folder.File("net"), true, false, nullptr)) {
            unsigned long handle = 0;
            NALCertOpenReqStorage(path.c_str(), nullptr, 0, &handle);
            for (const NAL_REQ_CONTEXT* request = NALFindReqContextInStorage(handle, 0, nullptr, nullptr); request != nullptr;
                 request = NALFindReqContextInStorage(handle, 0, nullptr, request)) {
                if (IdentObj(request->Identity.pbData, request->Identity.cbData) != identity) continue;
                certificate = CNALCertContext(request->pCertificate);
                EXPECT_TRUE(user.PutCertificate(&request, &err, &msg)) << err << " " << msg;
                NALCloseReqContext(request);
                break;
            }
            NALCertCloseReqStore(handle, 0);
        }
        EXPECT_TRUE(certificate.IsInitialized());
        return certificate;
    }
};

TEST_F(Users, AFirstRequestAndARenewalOfTheLibraryAreAnsweredAndInstalled) {
    CNALUser user;
    ASSERT_EQ(user.LogInUser(m_folder.File("user").c_str(), "pw", nullptr, true), 0);
    CNALCertInfo wanted;
    wanted.m_subject = keycentre::Name("CN=Ivan, O=Works");
    wanted.m_extensions.Add(CNALKeyUsage(CNALKeyUsage::DigitalSignature | CNALKeyUsage::NonRepudiation).ToExtension(c_NAL_OID_KEY_USAGE, true));
    int err = -1;
    CTOOString msg;
    const NAL_REQ_CONTEXT* asked = nullptr;
    ASSERT_TRUE(user.CreateNewRequest(CNALUser(), nullptr, wanted, &asked, &err, &msg)) << err << " " << msg;

    Centre centre = Open();
    ASSERT_EQ(Serve(centre).waiting, 1U);
    // The operator releases it.
    const std::string file = m_events.begin()->first;
    {
        keycentre::Judge judge(centre);
        keycentre::Judgement judgement = judge.Look(keycentre::ReadRequest(RequestPath(file)));
        ASSERT_EQ(judgement.verdict, keycentre::Verdict::First) << judgement.reason;
        judgement.order.delivery = keycentre::Delivery::Own;
        judgement.order.folder = Transport().GetPath();
        judgement.order.file = file;
        const keycentre::FolderLock lock = centre.Lock();
        const auto records = centre.Issue({judgement.order});
        Transport().Deliver(centre, records);
        Transport().MoveAnswered(records.front());
        centre.SetAnswered(records);
    }
    const CNALCertContext first = Install(user, asked);

    too_testing::SetClock(Date(2026, 6));
    asked = nullptr;
    ASSERT_TRUE(user.UpdateKey("", "", {}, {}, first, &asked, &err, &msg)) << err << " " << msg;
    const keycentre::FolderTally tally = Serve(centre);
    EXPECT_EQ(tally.answered, 1U) << (m_events.empty() ? "" : m_events.begin()->second.text);
    const CNALCertContext second = Install(user, asked);
    EXPECT_NE(first, second);
    EXPECT_TRUE(user.CheckSignKeys(second, &err, &msg)) << err << " " << msg;
    const CNALCertInfo info(*second.GetContext());
    EXPECT_EQ(info.m_subject, wanted.m_subject);
    EXPECT_EQ(info.m_serialNumber.GetData()[2], 0xab);
}

}  // namespace
