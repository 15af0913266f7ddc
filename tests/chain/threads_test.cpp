// Chains from many threads, while the storages change under them.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <thread>

#include "support/hierarchy.h"
#include "nal/trust_storages.h"

namespace {

using namespace nal_test;

TEST(ChainThreads, EightBuildWhileStoragesAreReloaded) {
    Hierarchy hierarchy;
    for (const char* subject : {"CA", "Sub"}) hierarchy.certs[subject].place = hierarchy.crls[subject].place = Place::Extra;
    hierarchy.Store();
    const CNALCertContext cert = hierarchy.Issue("End");
    const std::string file = hierarchy.Folder() + "/home/trust/trusted.dat";
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
        // The extra storage changes, the main one's file gets another time, the collection is given up.
        CertBuilder other;
        for (unsigned char n = 0; !stop; ++n) {
            other.subjectKeyId = Filled(static_cast<unsigned char>(100 + n % 100));
            hierarchy.Extra().AddEncodetCertificate(other.Build(), 0x10001);
            std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now());
            if (n % 16 == 0) m_VPN_TrustStorages.Reset();
        }
    });
    for (std::thread& thread : threads) thread.join();
    stop = true;
    changer.join();
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
