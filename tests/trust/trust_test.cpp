// The collection of trust storages: what a list must be to be taken, what stays when it is not, and where issuers are sought.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "nal/trust_storages.h"
#include "support/cert_builder.h"
#include "support/child.h"
#include "support/sanitized.h"
#include "support/temp_folder.h"
#include "support/test_signer.h"
#include "support/trust_list_builder.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

constexpr const char* kCommon = "0000_trl.p7s";

/// No file can be opened meanwhile.
class NoFiles {
public:
    NoFiles() {
        getrlimit(RLIMIT_NOFILE, &m_limit);
        const rlimit none{0, m_limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoFiles() { setrlimit(RLIMIT_NOFILE, &m_limit); }
    NoFiles(const NoFiles&) = delete;
    NoFiles& operator=(const NoFiles&) = delete;

private:
    rlimit m_limit{};
};

class Trust : public testing::Test {
protected:
    void SetUp() override {
        setenv("NAL_HOME", m_folder.File("home").c_str(), 1);
        std::filesystem::create_directories(m_folder.File("net/d_station"));
        std::filesystem::create_directories(m_folder.File("home/trust"));
        m_VPN_TrustStorages.Reset();
        m_VPN_TrustStorages.m_transportFolder = m_folder.File("net");
        too_testing::SetClock(Date(2026, 4));
        AddToMain({RootCert()}, {});
    }
    void TearDown() override {
        m_VPN_TrustStorages.Reset();
        too_testing::ResetClock();
    }

    static CertBuilder Named(const char* subject, const char* issuer, unsigned char id, unsigned char issuerId) {
        CertBuilder builder;
        builder.subject = subject;
        builder.issuer = issuer;
        builder.subjectKeyId = Filled(id);
        builder.authorityKeyId = Filled(issuerId);
        builder.serial = Filled(id, 2);
        return builder;
    }
    IdentObj RootCert() const { return m_root.Issue(Named("Root", "Root", 1, 1), m_root); }
    static CertBuilder SignerToBe(const char* issuer = "Root", unsigned char issuerId = 1) {
        CertBuilder builder = Named("Signer", issuer, 2, issuerId);
        builder.extensions.push_back(TrustListUsage());
        return builder;
    }
    IdentObj SignerCert() const { return m_root.Issue(SignerToBe(), m_signer); }
    /// A certificate that vouches for `End`, and that certificate; the serial names network 12ab.
    IdentObj CaCert() const { return m_ca.Issue(Named("CA", "CA", 3, 3), m_ca); }
    IdentObj EndCert() const { return m_ca.Issue(InNetwork(Named("End", "CA", 4, 3)), m_end); }
    static CertBuilder InNetwork(CertBuilder builder) {
        builder.serial = Filled(9, 16);
        builder.serial.GetData()[12] = 0x12;  // most significant first: stored bytes 3 and 2
        builder.serial.GetData()[13] = 0xAB;
        return builder;
    }
    IdentObj CrlThatRevokesTheSigner() const {
        CrlBuilder crl;
        crl.issuer = "Root";
        crl.entries.push_back({Filled(2, 2)});
        return m_root.Sign(crl.Build());
    }

    void AddToMain(const std::vector<IdentObj>& certs, const std::vector<IdentObj>& crls) {
        CNALString name(m_folder.File("home/trust/trusted.dat").c_str());
        CNALCertStorage storage(name, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
        for (const IdentObj& cert : certs) ASSERT_TRUE(storage.AddEncodetCertificate(cert, 0x10001));
        for (const IdentObj& crl : crls) ASSERT_TRUE(storage.AddEncodetCRL(crl, 0x10001));
    }

    TrustListBuilder GoodList(std::int64_t number = 1) const {
        TrustListBuilder list;
        list.number = number;
        list.certificates = {CaCert()};
        list.signer = SignerCert();
        return list;
    }
    std::string Delivered(const std::string& name) const { return m_folder.File("net/d_station/" + name); }
    void Deliver(const std::string& name, const IdentObj& message) const {
        const std::string path = Delivered(name);
        WriteFile(path + ".new", message.GetData(), message.GetSize());
        std::filesystem::rename(path + ".new", path);
    }
    void Forget(const char* name) const { std::filesystem::remove(m_folder.File("home/trust/") + name); }
    template <class Storage>
    static std::list<CNALCertContext> All(const Storage& storage) {
        std::list<CNALCertContext> certs;
        storage.FindCertList(certs, CERT_FIND_ANY, nullptr);
        return certs;
    }
    /// How many certificates the common trust list has now; -1 without a list.
    static int CommonList() {
        const CNALCertStorage list = m_VPN_TrustStorages.GetList(kCommon);
        return list.IsOpened() ? static_cast<int>(All(list).size()) : -1;
    }
    using Answer = std::pair<bool, unsigned>;
    /// Whether there is an issuer, and the flags of a search with all checks.
    static Answer FindIssuer(const IdentObj& subject, CNALCRLContext* crl = nullptr) {
        CNALCertContext issuer;
        unsigned flags = 7;
        const bool found = m_VPN_TrustStorages.FindIssuerCertificate(CNALCertContext(subject), issuer, &flags, crl) != FALSE;
        return {found, flags};
    }

    TempFolder m_folder;
    TestSigner m_root;
    TestSigner m_signer;
    TestSigner m_ca;
    TestSigner m_end;
};

TEST_F(Trust, TakesAListOfTheRightSignerAndKeepsIt) {
    EXPECT_EQ(-1, CommonList());
    Deliver(kCommon, GoodList(5).Build(m_signer));
    EXPECT_EQ(1, CommonList());
    TrustListBuilder larger = GoodList(6);
    larger.certificates.push_back(EndCert());
    Deliver(kCommon, larger.Build(m_signer));
    const CNALCertStorage before = m_VPN_TrustStorages.GetList(kCommon);
    EXPECT_EQ(2, CommonList());

    // Replayed, gone or rubbish: the accepted copy stays in use, in another process too.
    const std::pair<const char*, IdentObj> bad[] = {
        {"replayed", GoodList(5).Build(m_signer)}, {"rubbish", Filled(7, 100)}, {"empty", IdentObj()}};
    for (const auto& [name, message] : bad) {
        Deliver(kCommon, message);
        EXPECT_EQ(2, CommonList()) << name;
        EXPECT_EQ(ChildEnd::success, RunInChild([] {
                      m_VPN_TrustStorages.Reset();
                      if (CommonList() != 2) throw XTOOStatus(TOO_E_INTERNAL);
                  }))
            << name;
    }
    std::filesystem::remove(Delivered(kCommon));
    EXPECT_EQ(2, CommonList());
    EXPECT_EQ(2U, All(before).size());  // what was handed out stays
    // Without the root nothing of it is trusted any more.
    Forget("trusted.dat");
    EXPECT_EQ(0, CommonList());
}

TEST_F(Trust, RefusesEveryOtherList) {
    const TestSigner stranger;
    CertBuilder expired = SignerToBe();
    expired.notAfter = Date(2025);
    const auto with = [&](const IdentObj& signer) {
        TrustListBuilder list = GoodList();
        list.signer = signer;
        return list.Build(m_signer);
    };
    TrustListBuilder outside = GoodList();
    outside.certificates.clear();
    outside.outside = {CaCert()};
    TrustListBuilder version = GoodList();
    version.version = 1;
    const std::pair<const char*, IdentObj> cases[] = {
        {"no usage", with(m_root.Issue(Named("Signer", "Root", 2, 1), m_signer))},
        {"foreign root", with(stranger.Issue(SignerToBe(), m_signer))},
        {"not below a root", with(m_ca.Issue(SignerToBe("CA", 3), m_signer))},
        {"another key", GoodList().Build(stranger)},
        {"expired", with(m_root.Issue(expired, m_signer))},
        {"certificate outside the signed content", outside.Build(m_signer)},
        {"version", version.Build(m_signer)},
        {"unsigned", UnsignedList({CaCert()})},
    };
    for (const auto& [name, message] : cases) {
        Deliver(kCommon, message);
        EXPECT_EQ(0, CommonList()) << name;
        Forget(kCommon);
        m_VPN_TrustStorages.Reset();
    }
    // A signer that the root has revoked; a list that was accepted before stays.
    AddToMain({}, {CrlThatRevokesTheSigner()});
    Deliver(kCommon, GoodList().Build(m_signer));
    EXPECT_EQ(0, CommonList());
}

TEST_F(Trust, KeepsTheListOfASignerThatIsRevokedLater) {
    Deliver(kCommon, GoodList(1).Build(m_signer));
    EXPECT_EQ(1, CommonList());
    AddToMain({}, {CrlThatRevokesTheSigner()});
    Deliver(kCommon, GoodList(2).Build(m_signer));
    EXPECT_EQ(1, CommonList());
    const auto kept = ReadFile(m_folder.File("home/trust/") + kCommon);
    EXPECT_EQ(GoodList(1).Build(m_signer).GetSize(), kept.size());
}

// What cannot be read when it has just changed is read later, without another change.
TEST_F(Trust, TriesAgainWhatCouldNotBeRead) {
    if (nal_test::kSanitized) GTEST_SKIP() << "the sanitizers' own checks need descriptors";
    const auto found = [](const char* name) {
        std::list<CNALCertContext> certs;
        m_VPN_TrustStorages.GetList(name).FindCertList(certs, CERT_FIND_ANY, nullptr);
        return certs.size();
    };
    const auto roots = [] {
        std::list<CNALCertContext> certs;
        m_VPN_TrustStorages.GetStorages(NAL_STORAGE_MAIN).front().FindCertList(certs, CERT_FIND_ANY, nullptr);
        return certs.size();
    };
    Deliver("12ab.trl", UnsignedList({CaCert()}));
    Deliver(kCommon, GoodList(1).Build(m_signer));
    EXPECT_TRUE(found("12ab.trl") == 1 && found(kCommon) == 1 && roots() == 1);
    Deliver("12ab.trl", UnsignedList({CaCert(), EndCert()}));
    TrustListBuilder larger = GoodList(2);
    larger.certificates.push_back(EndCert());
    Deliver(kCommon, larger.Build(m_signer));
    AddToMain({CaCert()}, {});
    {
        const NoFiles none;
        EXPECT_TRUE(found("12ab.trl") == 1 && found(kCommon) == 1 && roots() == 1);
    }
    too_testing::AdvanceClock(1);
    EXPECT_EQ(2U, found("12ab.trl"));
    EXPECT_EQ(2U, found(kCommon));
    EXPECT_EQ(2U, roots());
    // Files that the system does not find are gone; of those that it will not look for nobody knows.
    for (const char* folder : {"net/d_station", "home/trust"}) {
        const std::string path = m_folder.File(folder);
        std::filesystem::rename(path, path + ".aside");
        std::filesystem::create_symlink(path, path);
        EXPECT_TRUE(found("12ab.trl") == 2 && found(kCommon) == 2 && roots() == 2) << folder;
        std::filesystem::remove(path);
        std::filesystem::rename(path + ".aside", path);
        EXPECT_TRUE(found("12ab.trl") == 2 && found(kCommon) == 2 && roots() == 2) << folder;
    }
    // Nor does a list have a fault when there is no memory to check it.
    Deliver(kCommon, GoodList(3).Build(m_signer));
    {
        const too_testing::ScopedCallFailure noMemory("ORKAcquireContext", 8);
        EXPECT_EQ(2U, found(kCommon));
    }
    too_testing::AdvanceClock(1);
    EXPECT_EQ(1U, found(kCommon));
}

// A copy that is damaged hides which number was accepted: an older list must not come in its place.
TEST_F(Trust, TakesNoListInThePlaceOfAnUnreadableCopy) {
    TrustListBuilder larger = GoodList(7);
    larger.certificates.push_back(EndCert());
    Deliver(kCommon, larger.Build(m_signer));
    ASSERT_EQ(2, CommonList());
    const std::string copy = m_folder.File("home/trust/") + kCommon;
    auto damaged = nal_test::ReadFile(copy);
    damaged[damaged.size() / 2] ^= 1;
    nal_test::WriteFile(copy, damaged);
    Deliver(kCommon, GoodList(6).Build(m_signer));
    EXPECT_EQ(2, CommonList());  // what this process accepted
    m_VPN_TrustStorages.Reset();
    EXPECT_EQ(0, CommonList());
    EXPECT_EQ(damaged, nal_test::ReadFile(copy));
    std::filesystem::remove(copy);  // the operator begins anew
    EXPECT_EQ(1, CommonList());
}

// A list with a byte changed, or cut, never brings anything that was not signed.
TEST_F(Trust, NoChangeOfAByteMakesAnotherListGood) {
    const IdentObj good = GoodList().Build(m_signer);
    for (unsigned at = 0; at < good.GetSize(); at += 3) {
        for (const bool cut : {false, true}) {
            IdentObj bad = good;
            if (cut) bad.SetSize(at);
            if (!cut) bad.GetData()[at] ^= 0x04;
            Deliver(kCommon, bad);
            for (const CNALCertContext& cert : All(m_VPN_TrustStorages.GetList(kCommon))) {
                EXPECT_EQ(CNALCertContext(CaCert()).GetSubjectKeyId(), cert.GetSubjectKeyId()) << at;
            }
            Forget(kCommon);
        }
    }
}

TEST_F(Trust, AcceptingIsWholeWhereverItStops) {
    Deliver(kCommon, GoodList(1).Build(m_signer));
    ASSERT_EQ(1, CommonList());
    TrustListBuilder larger = GoodList(2);
    larger.certificates.push_back(EndCert());
    const IdentObj next = larger.Build(m_signer);
    const std::string accepted = m_folder.File("home/trust/") + kCommon;
    const auto before = ReadFile(accepted);
    Deliver(kCommon, next);
    for (unsigned nth = 1; nth <= 6; ++nth) {
        WriteFile(accepted, before);
        RunInChild([&] {
            m_VPN_TrustStorages.Reset();
            too_testing::KillAtStep(nth);
            CommonList();
        });
        const auto after = ReadFile(accepted);
        EXPECT_TRUE(after == before || IdentObj(after.data(), static_cast<unsigned>(after.size())) == next) << nth;
    }
    // On a full disk the list is in use all the same.
    WriteFile(accepted, before);
    m_VPN_TrustStorages.Reset();
    {
        const too_testing::ScopedStepFailure full(1);
        EXPECT_EQ(2, CommonList());
        EXPECT_EQ(before, ReadFile(accepted));
        Deliver(kCommon, GoodList(1).Build(m_signer));
        EXPECT_EQ(2, CommonList()) << "a list older than the one in use";
        std::filesystem::remove(Delivered(kCommon));
        EXPECT_EQ(2, CommonList());
    }
    // It is kept when that can be done, and trusted no longer than its root.
    Deliver(kCommon, Filled(7, 100));
    EXPECT_EQ(2, CommonList());
    EXPECT_EQ(next.GetSize(), ReadFile(accepted).size());
    WriteFile(accepted, before);
    Deliver(kCommon, next);
    const too_testing::ScopedStepFailure full(1);
    EXPECT_EQ(2, CommonList());
    Forget("trusted.dat");
    EXPECT_EQ(0, CommonList());
}

TEST_F(Trust, SeeksIssuersInOrder) {
    EXPECT_EQ("12ab", NALGetNetworkIdentifier(CNALCertContext(EndCert())).str());
    EXPECT_EQ(Answer(false, 0x20007), FindIssuer(EndCert()));
    CNALCertContext nobody;
    EXPECT_FALSE(m_VPN_TrustStorages.FindIssuerCertificate(CNALCertContext(), nobody, nullptr, nullptr));
    EXPECT_EQ(6U, GetLastError());

    Deliver(kCommon, GoodList().Build(m_signer));
    EXPECT_EQ(Answer(true, 0x10000), FindIssuer(EndCert()));
    Deliver("12ab.trl", UnsignedList({CaCert()}));
    EXPECT_EQ(Answer(true, 0x10000), FindIssuer(EndCert())) << "the unsigned list is asked first, but its issuer is not the subject";

    // An unsigned list's root is untrusted, and a signed list of the network comes before it.
    std::filesystem::remove(Delivered(kCommon));
    Forget(kCommon);
    const IdentObj root = m_ca.Issue(InNetwork(Named("CA", "CA", 3, 3)), m_ca);
    Deliver("12ab.trl", UnsignedList({root}));
    EXPECT_EQ(Answer(true, 0x10020), FindIssuer(root));
    CrlBuilder builder;
    builder.issuer = "CA";
    builder.authorityKeyId = Filled(3);
    builder.entries.push_back({Filled(1, 16)});
    TrustListBuilder signedList = GoodList();
    signedList.certificates = {root};
    signedList.crls = {m_ca.Sign(builder.Build())};
    Deliver("12ab_trl.p7s", signedList.Build(m_signer));
    CNALCRLContext crl;
    EXPECT_EQ(Answer(true, 0), FindIssuer(root, &crl));
    EXPECT_TRUE(crl.IsInitialized());
}

TEST_F(Trust, WalksTheStoragesOfAKind) {
    Deliver(kCommon, GoodList().Build(m_signer));
    Deliver("12ab.trl", UnsignedList({CaCert()}));
    Deliver("12ab_usr.p7b", UnsignedList({EndCert()}));
    Deliver("0000_usr.p7b", UnsignedList({SignerCert()}));
    Deliver("nonsense_usr.p7b", UnsignedList({EndCert()}));
    const struct {
        unsigned kinds;
        std::size_t storages, certificates;
    } cases[] = {{0, 0, 0},  {1, 1, 1},          {2, 1, 1},          {0x20, 1, 1}, {0x10, 0, 0},
                 {51, 3, 3}, {0x20000030, 3, 3}, {0x20000010, 1, 1}, {0x20000033, 5, 5}};
    for (const auto& test : cases) {
        m_VPN_TrustStorages.Reset();
        EXPECT_EQ(test.storages, m_VPN_TrustStorages.GetStorages(test.kinds).size()) << test.kinds;
        std::list<CNALCertContext> certs;
        EXPECT_EQ(test.certificates != 0, NALFindCertificate(certs, test.kinds, CERT_FIND_ANY, nullptr)) << test.kinds;
        EXPECT_EQ(test.certificates, certs.size()) << test.kinds;
        for (CNALCertContext& cert : certs) EXPECT_NE(0U, NALGetStorageType(cert) & test.kinds);
    }
    for (const char* name : {"../d_station/0000_trl.p7s", "0000_trl.p7s/", "00AB_trl.p7s", "_trl.p7s", "", "12ab.cer"})
        EXPECT_FALSE(m_VPN_TrustStorages.GetList(name).IsOpened()) << name;
}

TEST_F(Trust, LoadsUsersLists) {
    const std::string path = Delivered("12ab_usr.p7b");
    CNALCertList list;
    int err = 0;
    CTOOString msg;
    EXPECT_FALSE(list.LoadFile(path, 0x20, &err, &msg));
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, err);
    Deliver("12ab_usr.p7b", UnsignedList({EndCert(), CaCert()}));
    EXPECT_TRUE(list.LoadFile(path, 0x20, &err, &msg));
    EXPECT_EQ(1U, list.m_untrusted);
    EXPECT_EQ(0x20U, list.m_storageType);
    Deliver("12ab_usr.p7b", Filled(3, 50));
    EXPECT_FALSE(list.LoadFile(path, 0x20, &err, &msg));
    EXPECT_NE(std::string::npos, msg.str().find(path));
    EXPECT_EQ(2U, All(list).size());
}

TEST_F(Trust, ThreadsSearchWhileListsAreReplaced) {
    const IdentObj end = EndCert();
    std::vector<IdentObj> messages;
    for (int number = 1; number <= 4; ++number) messages.push_back(GoodList(number).Build(m_signer));
    Deliver(kCommon, messages.front());
    std::atomic<bool> stop{false};
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            while (!stop) {
                if (FindIssuer(end) != Answer(true, 0x10000)) ++failures;
            }
        });
    }
    for (const IdentObj& message : messages) {
        Deliver(kCommon, message);
        EXPECT_TRUE(FindIssuer(end).first);
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(0, failures.load());
}

}  // namespace
