// Check and salvage of damaged store files.
#include <random>

#include "crash/changed_store.h"
#include "nal/store_repair.h"
#include "too/status.h"

namespace {

using namespace nal_test;

constexpr unsigned kCerts = 30;

class StoreRepair : public testing::Test {
protected:
    StoreRepair() { FillStore(m_path, kCerts); }

    TempFolder m_folder;
    const std::string m_path = m_folder.File("store");
    const std::string m_target = m_folder.File("salvaged");
};

TEST_F(StoreRepair, ASoundStoreIsSoundAndSalvagedWhole) {
    NALStoreReport report;
    int err = -1;
    EXPECT_TRUE(NALCheckStoreFile(m_path.c_str(), report, &err));
    EXPECT_EQ(0, err);
    EXPECT_EQ(kCerts, report.certificates);
    EXPECT_EQ(1U, report.crls);
    EXPECT_EQ(kCerts, report.properties);
    EXPECT_EQ(0U, report.damaged);
    const Bytes before = ReadFile(m_path);
    EXPECT_TRUE(NALSalvageStoreFile(m_path.c_str(), m_target.c_str(), report, &err));
    EXPECT_EQ(kCerts, report.properties);
    EXPECT_EQ(Certificates(OpenFile(m_path)), Certificates(OpenFile(m_target)));
    EXPECT_EQ(before, ReadFile(m_path));
    EXPECT_FALSE(NALSalvageStoreFile(m_path.c_str(), m_target.c_str(), report, &err));
    EXPECT_EQ(TOO_E_FILE_EXISTS, err);
}

TEST_F(StoreRepair, WhatWasDeletedStaysDeleted) {
    EXPECT_TRUE(CertDeleteCertificateFromStore(CertEnumCertificatesInStore(OpenFile(m_path).get(), nullptr)));
    NALStoreReport report;
    int err = -1;
    EXPECT_TRUE(NALSalvageStoreFile(m_path.c_str(), m_target.c_str(), report, &err));
    EXPECT_EQ(kCerts - 1, report.certificates);
    EXPECT_EQ(kCerts - 1, report.properties);
}

TEST_F(StoreRepair, AnyOnePageMayBeLost) {
    const Bytes sound = ReadFile(m_path);
    const std::size_t pages = sound.size() / 4096;
    ASSERT_GT(pages, 2 * kCerts);
    std::mt19937 random(3);
    for (std::size_t page = 0; page < pages; ++page) {
        for (const bool noise : {false, true}) {
            SCOPED_TRACE(std::to_string(page) + (noise ? " noise" : " zeros"));
            Bytes damaged = sound;
            for (std::size_t i = page * 4096; i < (page + 1) * 4096; ++i) {
                damaged[i] = noise ? static_cast<unsigned char>(random()) : 0;
            }
            WriteFile(m_path, damaged);
            std::filesystem::remove(m_target);
            NALStoreReport report;
            int err = -1;
            ASSERT_TRUE(NALSalvageStoreFile(m_path.c_str(), m_target.c_str(), report, &err)) << err;
            // A certificate lies on pages of its own, and its encoding says its key: one page costs one at most.
            EXPECT_GE(report.certificates + report.crls, kCerts);
            EXPECT_EQ(report.certificates, Certificates(OpenFile(m_target)).size());
            EXPECT_EQ(damaged, ReadFile(m_path));
            EXPECT_TRUE(NALCheckStoreFile(m_target.c_str(), report, &err));
            EXPECT_FALSE(NALCheckStoreFile(m_path.c_str(), report, &err));
            EXPECT_EQ(TOO_E_READ, err);
            EXPECT_FALSE(report.findings.empty());
        }
    }
}

TEST_F(StoreRepair, NoiseIsReadWithoutHarm) {
    const Bytes sound = ReadFile(m_path);
    for (unsigned seed = 0; seed < 200; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        Bytes damaged = sound;
        damaged.resize(damaged.size() - random() % 6000);
        for (unsigned n = random() % 200; n != 0; --n) {
            // Mostly in headers and indexes, where they mislead.
            const std::size_t page = random() % (damaged.size() / 4096) * 4096;
            damaged[page + (random() % 4 != 0 ? random() % 80 : random() % 4000)] = static_cast<unsigned char>(random());
        }
        WriteFile(m_path, damaged);
        std::filesystem::remove(m_target);
        NALStoreReport report;
        int err = -1;
        if (NALSalvageStoreFile(m_path.c_str(), m_target.c_str(), report, &err)) {
            EXPECT_TRUE(OpenFile(m_target));
            EXPECT_LE(report.certificates, kCerts + 1);
        }
        NALCheckStoreFile(m_path.c_str(), report, &err);
    }
}

TEST_F(StoreRepair, FilesThatAreNoStore) {
    NALStoreReport report;
    int err = -1;
    EXPECT_FALSE(NALCheckStoreFile(m_folder.File("none").c_str(), report, &err));
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, err);
    EXPECT_FALSE(NALCheckStoreFile(m_folder.Path().c_str(), report, &err));
    EXPECT_EQ(TOO_E_NOT_A_FILE, err);
    for (const std::size_t size : {0, 10, 5000}) {
        WriteFile(m_path, std::string(size, 'n'));
        EXPECT_FALSE(NALCheckStoreFile(m_path.c_str(), report, &err));
        EXPECT_EQ(TOO_E_READ, err);
        EXPECT_FALSE(NALSalvageStoreFile(m_path.c_str(), m_target.c_str(), report, &err));
        EXPECT_EQ(TOO_E_READ, err);
        EXPECT_FALSE(Exists(m_target));
    }
    EXPECT_THROW(NALCheckStoreFile(m_path.c_str(), report, nullptr), XTOOStatus);
}

}  // namespace
