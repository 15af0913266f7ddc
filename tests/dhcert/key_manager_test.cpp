#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "nal/dh_certs.h"
#include "nal/storage.h"
#include "support/cert_builder.h"
#include "support/child.h"
#include "support/temp_folder.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::Date;
using nal_test::Filled;

// Certificates are told apart by the byte of which their subject key identifier, and so the key number, consists.
class DHCertManager : public testing::Test {
protected:
    DHCertManager() {
        setenv("NAL_HOME", m_folder.Path().c_str(), 1);
        CNALString name(L"memory");
        EXPECT_TRUE(m_storage.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr));
        too_testing::SetClock(Date(2026));
    }
    ~DHCertManager() override { too_testing::ResetClock(); }

    void AddCertificate(unsigned char key, const FILETIME& from = Date(2020), const FILETIME& to = Date(2030)) {
        nal_test::CertBuilder builder;
        builder.subject = std::string("Peer ") + static_cast<char>(key);
        builder.subjectKeyId = Filled(key);
        builder.notBefore = from;
        builder.notAfter = to;
        ASSERT_TRUE(m_storage.AddCertificate(CNALCertContext(builder.Build())));
    }
    void AddRecord(unsigned char key, long flags, std::uint64_t time, const char* host = "00000001") {
        CNALSendCertRecord record("0000", "0001", CTOOFileTime(time), flags, Filled(key), "name");
        record.ApID(host);
        record.TimeReceive(CTOOFileTime((flags & c_NAL_DH_INCOMING) != 0 ? time : 0));
        m_records.CNALRecFileDHCert::Add(&record);
    }
    // The actual key number and the key of the actual certificate: "-" for none.
    std::string Actual(CNALDHCertManager::EDirection direction, const char* host = "00000001") {
        const CNALDHCertManager manager(m_records, m_storage);
        const SNALDHPeer peer{"", "0001", host};
        IdentObj number = Filled('-', 1);
        IdentObj used = Filled('-', 1);
        CNALCertContext certificate;
        manager.GetActualKeyNumber(peer, direction, number);
        if (manager.GetActualCertificate(peer, direction, certificate, &used)) {
            EXPECT_EQ(used, certificate.GetSubjectKeyId());
        } else {
            EXPECT_FALSE(certificate.IsInitialized());
        }
        return {static_cast<char>(number.GetData()[0]), static_cast<char>(used.GetData()[0])};
    }

    nal_test::TempFolder m_folder;
    const std::string m_path = m_folder.File("CERTSEND.DAT");
    CNALRecFileDHCert m_records{m_path.c_str()};
    CNALCertStorage m_storage;
};

TEST_F(DHCertManager, TakesTheFirstKeyInOrderWhoseCertificateIsValid) {
    constexpr long in = c_NAL_DH_INCOMING;
    constexpr long acked = c_NAL_DH_ACKNOWLEDGED;
    constexpr long actual = c_NAL_DH_ACTUAL;
    AddCertificate('a');
    AddCertificate('b');
    AddCertificate('x', Date(2015), Date(2025));  // expired
    AddCertificate('f', Date(2027), Date(2030));  // to come
    // There is no certificate 'm'.
    const struct {
        const char* name;
        std::vector<std::tuple<char, long, std::uint64_t>> records;
        const char* sent;  // key number and key of the certificate
        const char* received;
    } cases[] = {
        {"two that overlap", {{'a', acked, 1}, {'b', acked, 2}}, "bb", "--"},
        {"the later expired", {{'a', in, 1}, {'x', in, 2}}, "--", "xa"},
        {"the later not valid yet", {{'a', acked, 1}, {'f', acked, 2}}, "fa", "--"},
        {"the later without a certificate", {{'a', in, 1}, {'m', in, 2}}, "--", "ma"},
        {"marked actual and expired", {{'x', in | actual, 1}, {'b', in, 2}}, "--", "xb"},
        {"only an expired one", {{'x', acked, 1}}, "x-", "--"},
        {"both directions", {{'a', acked, 1}, {'b', in, 2}}, "aa", "bb"},
    };
    for (const auto& test : cases) {
        m_records.ClearInfo(SNALDHPeer{});
        for (const auto& [key, flags, time] : test.records) AddRecord(static_cast<unsigned char>(key), flags, time);
        AddRecord('b', in | acked | actual, 99, "00000002");
        EXPECT_EQ(test.sent, Actual(CNALDHCertManager::c_sent)) << test.name;
        EXPECT_EQ(test.received, Actual(CNALDHCertManager::c_received)) << test.name;
    }
}

TEST_F(DHCertManager, MarksOfOneProcessAreSeenByAnother) {
    AddCertificate('a');
    AddCertificate('b');
    AddRecord('a', c_NAL_DH_ACKNOWLEDGED, 1);
    const SNALDHPeer peer{"0000", "0001", "00000001"};
    EXPECT_EQ(nal_test::ChildEnd::success, nal_test::RunInChild([&] {
                  CNALRecFileDHCert records(m_path.c_str());
                  if (!CNALDHCertManager(records, m_storage).MarkActual(peer, CNALDHCertManager::c_sent)) {
                      throw XTOOStatus(TOO_E_NOT_FOUND, "MarkActual");
                  }
              }));
    AddRecord('b', c_NAL_DH_ACKNOWLEDGED, 2);
    EXPECT_EQ("aa", Actual(CNALDHCertManager::c_sent));
    m_records.AddRecordFlag(0, c_NAL_DH_REJECTED);
    EXPECT_EQ("bb", Actual(CNALDHCertManager::c_sent));
    CNALDHCertManager manager(m_records, m_storage);
    EXPECT_TRUE(manager.MarkActual(peer, CNALDHCertManager::c_sent));
    CNALSendCertRecord record;
    EXPECT_EQ(1, m_records.FindRecord(CNALRecFileDHCert::c_actual, record, &record));
    EXPECT_EQ(Filled('b'), record.NumberKey());
    EXPECT_FALSE(manager.MarkActual(peer, CNALDHCertManager::c_received));
}

}  // namespace
