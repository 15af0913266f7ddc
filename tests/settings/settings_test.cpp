// Settings: the flags, the transport folder, the certificate number.
#include "nal/settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "nal/request_context.h"
#include "nal/trust_storages.h"
#include "support/temp_folder.h"

namespace {

class Settings : public testing::Test {
protected:
    void SetUp() override {
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        NALFreeRootStorage();
        m_VPN_TrustStorages.m_certNumber = NAL_CERT_NUMBER_UNKNOWN;
        NALSetTransDir(m_folder.Path());
        std::filesystem::create_directories(m_folder.File("d_station/o_users"));
        std::filesystem::create_directories(m_folder.File("d_station/e_users"));
    }
    void TearDown() override {
        NALFreeRootStorage();
        NALSetTransDir(".\\");
        NALSetAplicationFlag(0);
    }

    /// A storage with a request whose identity has that size and number.
    void AddRequest(const std::string& name, DWORD number, DWORD size = 16) {
        const std::string path = m_folder.File("d_station/" + name);
        unsigned long handle = 0;
        ASSERT_TRUE(NALCertOpenReqStorage(path.c_str(), nullptr, NAL_REQ_STORAGE_CREATE, &handle));
        IdentObj identity;
        identity.SetSize(size);
        std::memcpy(identity.GetData() + 4, &number, sizeof number);
        NAL_REQ_CONTEXT record{};
        record.Identity = {identity.GetSize(), identity.GetData()};
        NALCloseReqContext(CNALReqContextStorage::FromHandle(handle)->AddContext(record));
        NALCertCloseReqStore(handle, 0);
    }

    nal_test::TempFolder m_folder;
};

TEST_F(Settings, TheTransportFolderResetsTheFlags) {
    NALSetAplicationFlag(0x20000001);
    EXPECT_FALSE(NALIsTrustStorageInit());
    EXPECT_EQ(".\\", GetCurrentTransDir().str());
    NALSetTransDir("/Net/A");
    EXPECT_EQ(2U, GetAplicationFlag());
    EXPECT_EQ(".\\", GetCurrentTrunsDir().str());

    m_VPN_TrustStorages.Load();
    EXPECT_TRUE(NALIsTrustStorageInit());
    EXPECT_EQ("/Net/A", GetCurrentTransDir().str());
    EXPECT_EQ("/Net/A", GetCurrentTrunsDir().str());
    NALSetAplicationFlag(5);
    NALSetTransDir("/nET/a");
    EXPECT_EQ(5U, gApplicationFlag);
    EXPECT_EQ("/Net/A", GetCurrentTransDir().str());
    NALSetTransDir("/net/b");
    EXPECT_EQ(2U, gApplicationFlag);
    EXPECT_EQ(8U, m_VPN_TrustStorages.m_state);
    m_VPN_TrustStorages.Load();
    EXPECT_EQ(0U, m_VPN_TrustStorages.m_state);
    NALFreeRootStorage();
    EXPECT_FALSE(NALIsTrustStorageInit());
    EXPECT_EQ("/net/b", m_VPN_TrustStorages.m_transportFolder.str());
}

TEST_F(Settings, TheNumberIsOneAboveTheHighest) {
    AddRequest("o_users/2026_ownu.log", 3);
    AddRequest("e_users/2026_extu.log", 9);
    AddRequest("o_users/2025_ownu.log", 5);
    AddRequest("o_users/2026_ownu.log", 77, 15);
    AddRequest("o_users/2026_ownu.txt", 88);
    nal_test::WriteFile(m_folder.File("d_station/o_users/0_ownu.log"), std::string("rubbish"));
    EXPECT_EQ(10U, NALGetCurrentCertNumber());
    AddRequest("o_users/2026_ownu.log", 20);
    EXPECT_EQ(10U, NALGetCurrentCertNumber());
    NALAddCurrentCertNumber();
    EXPECT_EQ(11U, NALGetCurrentCertNumber());
}

TEST_F(Settings, WithoutNumbersItIsZero) {
    AddRequest("o_users/2026_ownu.log", 0);
    AddRequest("o_users/2026_ownu.log", 9, 15);
    EXPECT_EQ(0U, NALGetCurrentCertNumber());
    m_VPN_TrustStorages.m_certNumber = NAL_CERT_NUMBER_UNKNOWN;
    NALAddCurrentCertNumber();  // wraps
    EXPECT_EQ(0U, m_VPN_TrustStorages.m_certNumber);
}

TEST_F(Settings, ListsRequestStorages) {
    for (const char* name : {"o_users/b_ownu.log", "o_users/a_ownu.log", "o_users/x_extu.log", "e_users/z_extu.log"})
        AddRequest(name, 1);
    const std::string station = m_folder.File("d_station/");
    const CTOOString external = station + "e_users/z_extu.log";
    const std::list<CTOOString> own = {station + "o_users/a_ownu.log", station + "o_users/b_ownu.log"};
    std::list<CTOOString> all = own;
    all.push_front(external);
    int err = -1;
    EXPECT_EQ(all, NALGetReqStatusFile(m_folder.Path(), true, false, nullptr));
    EXPECT_EQ(all, NALGetReqStatusFile(m_folder.Path() + "\\", true, true, &err));
    EXPECT_EQ(0, err);
    EXPECT_EQ(own, NALGetReqStatusFile(m_folder.Path(), false, false, nullptr));
    EXPECT_EQ(std::list<CTOOString>{external}, NALGetReqStatusFile(m_folder.Path(), false, true, nullptr));
    EXPECT_TRUE(NALGetReqStatusFile(m_folder.File("none"), true, false, nullptr).empty());
}

}  // namespace
