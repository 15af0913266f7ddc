// Chains from many threads, while the storages and the trust list change under them.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "support/hierarchy.h"
#include "nal/trust_storages.h"
#include "too/file.h"

namespace {

using namespace nal_test;

TEST(ChainThreads, EightBuildWhileStoragesAreReloaded) {
    Hierarchy hierarchy;
    hierarchy.certs["CA"].place = hierarchy.crls["CA"].place = Place::TrustList;
    hierarchy.certs["Sub"].place = hierarchy.crls["Sub"].place = Place::Extra;
    hierarchy.Store();
    const CNALCertContext cert = hierarchy.Issue("End");
    const std::string file = hierarchy.Folder() + "/home/trust/trusted.dat";
    const CTOOString list = hierarchy.Folder() + "/net/d_station/0000_trl.p7s";
    const IdentObj message = CTOOFile::ReadWhole(list);
    std::atomic<bool> stop{false};
    std::atomic<unsigned> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned n = 0; n < 8; ++n) {
        threads.emplace_back([&] {
            for (unsigned round = 0; round < 20; ++round) {
                CNALCertificateChain chain;
                if (!NALVerifyCertificate(cert, chain, nullptr, &hierarchy.Extra()) || chain.GetCount() != 4 || chain.GetErrors() != 0) ++wrong;
            }
        });
    }
    std::thread changer([&] {
        // The extra storage changes, the main one's file gets another time, the signed list is delivered again, the collection is given up.
        CertBuilder other;
        for (unsigned char n = 0; !stop; ++n) {
            other.subjectKeyId = Filled(static_cast<unsigned char>(100 + n % 100));
            hierarchy.Extra().AddEncodetCertificate(other.Build(), 0x10001);
            std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now());
            CTOOWholeFile::Store(list, message.GetData(), message.GetSize());
            if (n % 16 == 0) m_VPN_TrustStorages.Reset();
        }
    });
    for (std::thread& thread : threads) thread.join();
    stop = true;
    changer.join();
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
