// Answers of the key centre that lie in the input folder.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "asnt/writer.h"
#include "nal/context.h"
#include "nal/pkcs10.h"
#include "nal/request_context.h"
#include "nal/storage.h"
#include "support/temp_folder.h"
#include "support/test_signer.h"

namespace {

using nal_test::CertBuilder;
using nal_test::Filled;
using nal_test::TestSigner;

class Answers : public testing::Test {
protected:
    void SetUp() override {
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        for (const char* folder : {"o_users", "e_users", "tmp"})
            std::filesystem::create_directories(m_folder.File("d_station/") + folder);
    }

    /// A request for the key of `signer` in a storage.
    void AskFor(const std::string& storage, const TestSigner& signer) {
        CNALPKCS10Data data;
        data.m_subject = CNALX509Name(nal_test::NameDer("End"));
        data.m_publicKey.ReadData(signer.PublicKeyInfo().GetData(), signer.PublicKeyInfo().GetSize());
        IdentObj request = signer.SignBytes(data.WriteData()).WriteData(nullptr);
        unsigned long handle = 0;
        ASSERT_TRUE(NALCertOpenReqStorage(m_folder.File("d_station/" + storage).c_str(), nullptr, NAL_REQ_STORAGE_CREATE, &handle));
        NAL_REQ_CONTEXT record{};
        record.Request = {request.GetSize(), request.GetData()};
        NALCloseReqContext(CNALReqContextStorage::FromHandle(handle)->AddContext(record));
        NALCertCloseReqStore(handle, 0);
    }

    CNALCertReqContext First(const std::string& storage) const {
        unsigned long handle = 0;
        NALCertOpenReqStorage(m_folder.File("d_station/" + storage).c_str(), nullptr, 0, &handle);
        CNALCertReqContext context(NALFindReqContextInStorage(handle, 0, nullptr, nullptr));
        NALCertCloseReqStore(handle, 0);
        return context;
    }

    void Answer(const std::string& name, const std::vector<IdentObj>& certs, const std::vector<IdentObj>& crls) {
        CNALString path(m_folder.File("d_station/tmp/" + name).c_str());
        CNALCertStorage storage(path, CERT_STORE_PROV_FILENAME_A, 0x12000, 0, nullptr);
        for (const IdentObj& cert : certs)
            ASSERT_TRUE(storage.AddEncodetCertificate(cert, 0x10001));
        for (const IdentObj& crl : crls)
            ASSERT_TRUE(storage.AddEncodetCRL(crl, 0x10001));
    }

    static CertBuilder Named(const char* subject, unsigned char id) {
        CertBuilder builder;
        builder.subject = subject;
        builder.issuer = "CA";
        builder.subjectKeyId = Filled(id);
        builder.authorityKeyId = Filled(1);
        builder.serial = Filled(id, 2);
        return builder;
    }
    IdentObj CaCert() const { return m_ca.Issue(Named("CA", 1), m_ca); }
    IdentObj Crl() const {
        nal_test::CrlBuilder crl;
        crl.issuer = "CA";
        return m_ca.Sign(crl.Build());
    }

    nal_test::TempFolder m_folder;
    TestSigner m_ca;
    TestSigner m_own;
    TestSigner m_external;
    TestSigner m_stranger;
};

TEST_F(Answers, BecomeProperties) {
    EXPECT_TRUE(NALTakeAnswers(m_folder.Path(), nullptr, nullptr, nullptr));  // nothing there is fine
    AskFor("o_users/2026_ownu.log", m_own);
    AskFor("e_users/2026_extu.log", m_external);
    const IdentObj own = m_ca.Issue(Named("Own", 2), m_own);
    const IdentObj external = m_ca.Issue(Named("External", 3), m_external);
    const IdentObj unasked = m_ca.Issue(Named("Stranger", 4), m_stranger);
    Answer("own_input.cer", {CaCert(), own, unasked}, {Crl()});
    Answer("ext_input.cer", {CaCert(), external}, {});

    std::list<CNALAnswerReport> reports;
    int err = 0;
    CTOOString msg;
    EXPECT_FALSE(NALTakeAnswers(m_folder.Path(), &reports, &err, &msg));
    EXPECT_EQ(TOO_E_NOT_FOUND, err);
    EXPECT_NE(std::string::npos, msg.str().find("own_input.cer")) << msg.str();
    std::map<unsigned, int> statuses;
    for (const CNALAnswerReport& report : reports)
        statuses[report.m_serial.GetData()[0]] = report.m_status;
    EXPECT_EQ((std::map<unsigned, int>{{2, 0}, {3, 0}, {4, TOO_E_NOT_FOUND}}), statuses);

    const CNALCertReqContext request = First("o_users/2026_ownu.log");
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_RECEIVED), request->dwStatus);
    CNALCertContext certificate;
    CNALCRLContext crl;
    EXPECT_TRUE(NALGetReqProperties(6, request.Get(), &certificate, nullptr));
    EXPECT_EQ(CNALCertContext(own), certificate);
    EXPECT_TRUE(NALGetReqProperties(7, request.Get(), &certificate, nullptr));
    EXPECT_EQ(CNALCertContext(CaCert()).GetSubjectKeyId(), certificate.GetSubjectKeyId());
    EXPECT_TRUE(NALGetReqProperties(8, request.Get(), &crl, nullptr));
    const CNALCertReqContext other = First("e_users/2026_extu.log");
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_RECEIVED), other->dwStatus);
    EXPECT_FALSE(NALGetReqProperties(8, other.Get(), &crl, &err));
    EXPECT_EQ(194, err);

    // Again: nothing new; and another certificate for the same key does not replace the first.
    Answer("own_input.cer", {m_ca.Issue(Named("Own", 5), m_own)}, {});
    NALTakeAnswers(m_folder.Path(), &reports, &err, &msg);
    for (const CNALAnswerReport& report : reports) {
        EXPECT_FALSE(report.m_isNew);
        EXPECT_EQ(report.m_serial.GetData()[0] == 5, report.m_status == TOO_E_REQUEST_STATE);
    }
    EXPECT_EQ(CNALCertContext(own), CNALCertContext(First("o_users/2026_ownu.log")->pCertificate));
}

TEST_F(Answers, AreTakenBesideADamagedStorage) {
    AskFor("o_users/2026_ownu.log", m_own);
    nal_test::WriteFile(m_folder.File("d_station/o_users/2025_ownu.log"), std::string("no storage"));
    Answer("own_input.cer", {CaCert(), m_ca.Issue(Named("Own", 2), m_own), m_ca.Issue(Named("Stranger", 4), m_stranger)}, {});
    std::list<CNALAnswerReport> reports;
    int err = 0;
    EXPECT_FALSE(NALTakeAnswers(m_folder.Path(), &reports, &err, nullptr));
    std::map<unsigned, int> statuses;
    for (const CNALAnswerReport& report : reports)
        statuses[report.m_serial.GetData()[0]] = report.m_status;
    // Whether the stranger's was asked for is not known: the damaged storage might hold the request.
    EXPECT_EQ((std::map<unsigned, int>{{2, 0}, {4, TOO_E_BAD_STRUCTURE}}), statuses);
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_RECEIVED), First("o_users/2026_ownu.log")->dwStatus);
}

TEST_F(Answers, MustBeSignedByWhatLiesBesideThem) {
    AskFor("o_users/2026_ownu.log", m_own);
    const TestSigner impostor;
    Answer("own_input.cer", {CaCert(), impostor.Issue(Named("Own", 2), m_own)}, {});
    nal_test::WriteFile(m_folder.File("d_station/tmp/ext_input.cer"), std::string("no store"));
    std::list<CNALAnswerReport> reports;
    int err = 0;
    EXPECT_FALSE(NALTakeAnswers(m_folder.Path(), &reports, &err, nullptr));
    ASSERT_EQ(2U, reports.size());
    EXPECT_NE(TOO_OK, reports.front().m_status);
    EXPECT_NE(std::string::npos, reports.front().m_text.str().find("ext_input.cer"));
    EXPECT_EQ(TOO_E_BAD_SIGNATURE, reports.back().m_status);
    EXPECT_EQ(static_cast<DWORD>(NAL_REQ_STATUS_MADE), First("o_users/2026_ownu.log")->dwStatus);
}

}  // namespace
