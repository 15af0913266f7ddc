// The certificate storage: changes, searches, and the index held against plain walks.
#include "nal/storage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "asnt/writer.h"
#include "certstorage/cert_store.h"
#include "certstorage/store_access.h"
#include "certstorage/store_test.h"
#include "nal/extensions.h"
#include "storage/find_subject_cert.h"
#include "storage/issuer_search.h"
#include "support/child.h"
#include "support/temp_folder.h"
#include "support/test_signer.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

class Storage : public testing::Test {
protected:
    Storage() {
        CNALString name("test");
        EXPECT_TRUE(storage.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 5, nullptr));
    }

    void Add(const IdentObj& cert) { ASSERT_TRUE(storage.AddEncodetCertificate(cert, kEncoding)); }
    void AddCrl(const IdentObj& crl) { ASSERT_TRUE(storage.AddEncodetCRL(crl, kEncoding)); }

    CNALCertStorage storage;
};

std::list<CNALCertContext> All(const CNALCertStorage& storage) {
    std::list<CNALCertContext> all;
    const BOOL found = storage.FindCertList(all, CERT_FIND_ANY, nullptr);
    EXPECT_EQ(found != FALSE, !all.empty());
    return all;
}

std::vector<std::string> Encodings(const std::list<CNALCertContext>& certs) {
    std::vector<std::string> all;
    for (const CNALCertContext& cert : certs) all.push_back(EncodingOf(cert.GetContext()));
    return all;
}

TEST_F(Storage, RefusesWithItsOwnCodes) {
    std::list<CNALCertContext> list(1);
    const CRYPT_HASH_BLOB noContext{0, nullptr};
    const CNALCertStorage closed;
    CNALCertStorage shut;
    const CNALCertContext cert(CertBuilder().Build());
    CNALCertContext issuer;
    CNALCRLContext crl;
    unsigned flags = 7;
    const std::pair<DWORD, std::function<bool()>> cases[] = {
        {87, [&] { return storage.FindCertList(list, CERT_FIND_SUBJECT_NAME, nullptr); }},
        {87, [&] { return storage.FindCertList(list, CERT_FIND_EXISTING, &noContext); }},
        {kNotSupported, [&] { return storage.FindCertList(list, CERT_FIND_PUBLIC_KEY, &noContext); }},
        {kNotFound, [&] { return storage.FindCertList(list, CERT_FIND_ANY, nullptr); }},
        {kBadArgument, [&] { return storage.AddCertificate(CNALCertContext()); }},
        {6, [&] { return closed.FindCertList(list, CERT_FIND_ANY, nullptr); }},
        {6, [&] { return closed.FindIssuerCertificate(cert, issuer, &flags, nullptr); }},
        {6, [&] { return shut.AddCertificate(cert); }},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        EXPECT_EQ(ErrorOf(one.second), one.first);
    }
    EXPECT_EQ(list.size(), 1U);
    EXPECT_EQ(flags, 0x20007U);
    EXPECT_FALSE(shut.GetCrlFromStorage(cert, crl));
    EXPECT_FALSE(shut.FindCRLInStore(0, nullptr, crl).IsInitialized());
}

/// Nothing can be read by the descriptors that are open on a file, until this goes.
class Unreadable {
public:
    explicit Unreadable(const std::string& path) {
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        for (int descriptor = 0; descriptor < null; ++descriptor) {
            std::error_code error;
            if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error) != path) continue;
            m_kept[descriptor] = dup(descriptor);
            dup2(null, descriptor);
        }
        close(null);
    }
    ~Unreadable() {
        for (const auto& [descriptor, kept] : m_kept) {
            dup2(kept, descriptor);
            close(kept);
        }
    }
    Unreadable(const Unreadable&) = delete;
    Unreadable& operator=(const Unreadable&) = delete;
    bool IsAny() const { return !m_kept.empty(); }

private:
    std::map<int, int> m_kept;
};

TEST_F(Storage, WhatCannotBeReadIsAFailureAndNotAnException) {
    const TempFolder folder;
    CNALString path(folder.File("store.dat").c_str());
    CertBuilder builder;
    const CNALCertContext cert(builder.Build());
    builder.subjectKeyId = Filled(9);
    const CNALCertContext other(builder.Build());
    ASSERT_EQ(ChildEnd::success, RunInChild([&] {  // so that nothing of it is in this process's memory
                  CNALCertStorage(path, CERT_STORE_PROV_FILENAME_A, 0x12000, 0, nullptr).AddCertificate(cert);
              }));
    const CNALCertStorage file(path, CERT_STORE_PROV_FILENAME_A, 0x10000, 0, nullptr);
    const auto find = [&](DWORD type, const void* parameter) {
        std::list<CNALCertContext> list;
        return file.FindCertList(list, type, parameter) ? 0 : GetLastError();
    };
    const CRYPT_HASH_BLOB absent{0, reinterpret_cast<BYTE*>(const_cast<CERT_CONTEXT*>(other.GetContext()))};
    EXPECT_EQ(NAL_STORE_E_NOT_FOUND, find(CERT_FIND_EXISTING, &absent));
    CNALCertContext issuer;
    CNALCRLContext crl;
    unsigned flags = 7;
    bool isListed = false;
    {
        const Unreadable unreadable(folder.File("store.dat"));
        ASSERT_TRUE(unreadable.IsAny());
        EXPECT_EQ(DWORD{EBADF}, find(CERT_FIND_ANY, nullptr));
        EXPECT_EQ(DWORD{EBADF}, find(CERT_FIND_SUBJECT_NAME, &cert.GetContext()->pCertInfo->Subject));
        EXPECT_FALSE(file.FindIssuerCertificate(cert, issuer, &flags, nullptr));
        EXPECT_TRUE(flags == 0x20007 && GetLastError() == EBADF);
        EXPECT_FALSE(file.GetCrlFromStorage(cert, crl));
        EXPECT_EQ(DWORD{EBADF}, GetLastError());
        EXPECT_FALSE(file.FindRevocation(cert, cert, isListed, crl));
        EXPECT_EQ(DWORD{EBADF}, GetLastError());
    }
    EXPECT_EQ(0U, find(CERT_FIND_SUBJECT_NAME, &cert.GetContext()->pCertInfo->Subject));
}

TEST_F(Storage, AddsReplacesAndDeletes) {
    CertBuilder builder;
    const CNALCertContext first(builder.Build());
    ASSERT_TRUE(storage.AddCertificate(first));
    CNALCertContext taken = All(storage).front();
    EXPECT_EQ(taken.m_storageType, 5U);
    ASSERT_TRUE(taken.SetContainer("kept"));

    builder.subject = "Replaced";
    Add(builder.Build());
    EXPECT_EQ(Encodings(All(storage)), std::vector{TextOf(builder.Build())});
    EXPECT_EQ(All(storage).front().GetContainer(), "kept") << "the encoded form keeps properties";
    ASSERT_TRUE(storage.AddCertificate(first));
    taken = All(storage).front();
    EXPECT_EQ(taken.GetContainer(), "") << "the context form does not";

    EXPECT_TRUE(storage.DeleteCertificate(taken));
    EXPECT_FALSE(taken.IsInitialized());
    EXPECT_FALSE(storage.DeleteCertificate(taken));
    EXPECT_TRUE(All(storage).empty());
}

TEST_F(Storage, KeysWhatTheStoreCanKeyAndRefusesTheRest) {
    CertBuilder builder;
    builder.subjectKeyId = Filled(3, 24);
    EXPECT_TRUE(storage.AddCertificate(CNALCertContext(builder.Build()))) << "keyed by the first 20 bytes";
    builder.subjectKeyId.reset();
    EXPECT_EQ(ErrorOf([&] { return storage.AddCertificate(CNALCertContext(builder.Build())); }), kBadArgument);
    EXPECT_FALSE(storage.AddEncodetCertificate(Filled(0x30, 20), kEncoding));
    EXPECT_EQ(All(storage).size(), 1U);

    CrlBuilder crl;
    crl.number = Filled(1, 17);
    EXPECT_FALSE(storage.AddEncodetCRL(crl.Build(), kEncoding));
    crl.number = Filled(1, 16);
    crl.authorityKeyId = Filled(1, 21);
    EXPECT_FALSE(storage.AddEncodetCRL(crl.Build(), kEncoding));
    EXPECT_FALSE(storage.AddEncodetCRL(Filled(0, 5), kEncoding));
    EXPECT_FALSE(storage.FindCRLInStore(0, nullptr, CNALCRLContext()).IsInitialized());
}

TEST_F(Storage, WalksAndDeletesCrls) {
    for (const unsigned char number : {3, 1, 2}) {
        CrlBuilder crl;
        crl.number = Filled(number, 16);
        AddCrl(crl.Build());
    }
    std::vector<int> numbers;
    CNALCRLContext crl;
    while ((crl = storage.FindCRLInStore(0, nullptr, crl)).IsInitialized()) numbers.push_back(crl.GetSerialNumber().GetData()[0]);
    EXPECT_THAT(numbers, testing::ElementsAre(1, 2, 3));
    crl = storage.FindCRLInStore(0, nullptr, CNALCRLContext());
    EXPECT_TRUE(storage.DeleteCRL(crl));
    EXPECT_FALSE(crl.IsInitialized());
    EXPECT_EQ(storage.FindCRLInStore(0, nullptr, crl).GetSerialNumber().GetData()[0], 2);
}

TEST_F(Storage, CopiesShareTheStoreAndClearForgets) {
    const CNALCertStorage copy(storage);
    Add(CertBuilder().Build());
    EXPECT_EQ(All(copy).size(), 1U);
    CNALCertStorage other;
    other = copy;
    storage.Clear();
    EXPECT_FALSE(storage.IsOpened());
    EXPECT_EQ(storage.m_storageType, 0U);
    EXPECT_EQ(All(other).size(), 1U);
    EXPECT_EQ(other.m_storageType, 5U);
}

TEST_F(Storage, ASearchSeesNoChangeOfItsOwnThread) {
    const nal::StoreSearch search(*nal::CertStore::FromHandle(storage.GetStore()));
    EXPECT_EQ(ErrorOf([&] { return storage.AddCertificate(CNALCertContext(CertBuilder().Build())); }), DWORD{EDEADLK});
}

// --- Certificates by their fields ---

IdentObj KeyIdentifierName(const IdentObj& id) {
    asnt::Writer writer;
    const auto attribute = [&] {
        writer.Oid("1.3.6.1.4.1.311.10.7.1");
        writer.OctetString(asnt::View(id));
    };
    writer.Sequence([&] { writer.Set([&] { writer.Sequence(attribute); }); });
    return writer.Finish();
}

TEST_F(Storage, FindsByTheFieldsThatAreFilledIn) {
    CertBuilder builder;
    for (const unsigned char n : {1, 2, 3}) {
        builder.subjectKeyId = Filled(n);
        builder.serial = Filled(static_cast<unsigned char>(n % 2 + 1), 2);
        builder.subject = "Subject " + std::string(1, static_cast<char>('0' + n));
        Add(builder.Build());
    }
    IdentObj serial = Filled(2, 2);  // of 1 and 3
    const IdentObj issuer = NameDer("Issuer");
    const IdentObj third = NameDer("Subject 3");
    const IdentObj secondKey = KeyIdentifierName(Filled(2));
    const CNALCertContext last = All(storage).back();
    const CERT_INFO whole = *last.GetContext()->pCertInfo;

    CERT_INFO bySerial{};
    bySerial.SerialNumber = Blob(serial);
    bySerial.Issuer = Blob(issuer);
    CERT_INFO bySubject = bySerial;
    bySubject.Subject = Blob(third);
    CERT_INFO otherKey = whole;
    otherKey.SubjectPublicKeyInfo.PublicKey.cbData -= 1;
    std::vector<CERT_EXTENSION> extensions(whole.rgExtension, whole.rgExtension + whole.cExtension);
    extensions[0].fCritical = TRUE;
    CERT_INFO otherExtensions = whole;
    otherExtensions.rgExtension = extensions.data();
    CERT_INFO byKeyIdentifier{};  // whatever the serial
    byKeyIdentifier.Issuer = Blob(secondKey);
    CERT_INFO otherIssuer{};
    otherIssuer.Issuer = Blob(third);
    const std::pair<const CERT_INFO*, const char*> cases[] = {
        {&bySerial, "13"}, {&bySubject, "3"},        {&whole, "3"},     {&otherKey, ""},
        {&otherExtensions, ""}, {&byKeyIdentifier, "2"}, {&otherIssuer, ""}};
    for (const auto& one : cases) {
        SCOPED_TRACE(&one - cases);
        const auto& [wanted, expected] = one;
        std::list<CNALCertContext> list;
        storage.FindCertList(list, CERT_FIND_SUBJECT_CERT, wanted);
        std::string found;
        for (const CNALCertContext& cert : list) found += static_cast<char>('0' + cert.GetSubjectKeyId().GetData()[0]);
        EXPECT_EQ(found, expected);
    }
}

// --- The index and plain walks ---

std::vector<std::string> PlainFind(HCERTSTORE store, DWORD type, const void* parameter) {
    std::vector<std::string> found;
    PCCERT_CONTEXT next = nullptr;
    while ((next = CertFindCertificateInStore(store, kEncoding, 0, type, parameter, next)) != nullptr) found.push_back(EncodingOf(next));
    return found;
}

TEST_F(Storage, IndexGivesWhatPlainWalksGive) {
    for (unsigned seed = 0; seed < 30; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        storage.Clear();
        CNALString name;
        ASSERT_TRUE(storage.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 0, nullptr));
        const unsigned names = random() % 8 + 1;
        const auto anyName = [&] { return "Name " + std::to_string(random() % names); };
        for (unsigned step = 0; step < 60; ++step) {
            // A change now and then, also behind the storage's back, and records that do not decode.
            CertBuilder builder;
            builder.subjectKeyId = Filled(static_cast<unsigned char>(random() % 40));
            builder.subject = anyName();
            builder.issuer = anyName();
            builder.serial = Filled(static_cast<unsigned char>(random() % 3 + 1), random() % 3 + 1);
            const IdentObj der = builder.Build();
            nal::CertStore& store = *nal::CertStore::FromHandle(storage.GetStore());
            switch (random() % 6) {
                case 0: {
                    std::list<CNALCertContext> all = All(storage);
                    if (!all.empty()) storage.DeleteCertificate(all.front());
                    break;
                }
                case 1:
                    CertAddEncodedCertificateToStore(storage.GetStore(), kEncoding, der.GetData(), der.GetSize(), 4, nullptr);
                    break;
                case 2: {
                    const nal::KeyIdentifier key = Identifier(static_cast<unsigned char>(random() % 40), 1);
                    store.storeCert(key, asnt::View(der).Sub(0, random() % der.GetSize()), nal::PutMode::Overwrite);
                    break;
                }
                default:
                    Add(der);
            }
            const IdentObj wanted = NameDer(anyName());
            const CERT_NAME_BLOB blob = Blob(wanted);
            CERT_INFO info{};
            info.SerialNumber = Blob(builder.serial);
            info.Issuer = blob;
            const std::pair<DWORD, const void*> searches[] = {
                {CERT_FIND_SUBJECT_NAME, &blob}, {CERT_FIND_ISSUER_NAME, &blob}, {CERT_FIND_SUBJECT_CERT, &info}};
            for (const auto& [type, parameter] : searches) {
                std::list<CNALCertContext> list;
                storage.FindCertList(list, type, parameter);
                ASSERT_EQ(Encodings(list), PlainFind(storage.GetStore(), type, parameter));
            }
        }
    }
}

// --- Issuers ---

// One key for all, since what decides is in the certificates.
class Issuers : public Storage {
protected:
    Issuers() : clock(Date(2025)) {}

    // Adds a candidate; its first byte of key identifier is `id`.
    IdentObj AddCandidate(unsigned char id, const TestSigner& owner, FILETIME notAfter = Date(2040),
                          const IdentObj& serial = Filled(1, 1)) {
        CertBuilder builder;
        builder.issuer = builder.subject = "CA";
        builder.subjectKeyId = Filled(id);
        builder.serial = serial;
        builder.notAfter = notAfter;
        const IdentObj der = root.Issue(builder, owner);
        Add(der);
        return der;
    }

    CertBuilder Leaf() const {
        CertBuilder builder;
        builder.issuer = "CA";
        builder.subject = "Leaf";
        builder.subjectKeyId = Filled(200);
        builder.serial = Filled(7, 3);
        return builder;
    }

    void AddCrlOf(unsigned char issuer, std::vector<IdentObj> listed, FILETIME thisUpdate = Date(2024), unsigned char number = 1,
                  const TestSigner* signer = nullptr) {
        CrlBuilder crl;
        crl.issuer = "CA";
        crl.authorityKeyId = Filled(issuer);
        crl.number = Filled(number, 16);
        crl.thisUpdate = thisUpdate;
        for (IdentObj& serial : listed) crl.entries.push_back({std::move(serial)});
        AddCrl((signer != nullptr ? *signer : root).Sign(crl.Build()));
    }

    // The first byte of the issuer's key identifier, 0 for none, and the flags.
    std::pair<int, unsigned> Find(const CertBuilder& subject, unsigned flags = 7) {
        const CNALCertContext cert(root.Issue(subject, root));
        CNALCertContext issuer;
        lastCrl = CNALCRLContext();
        const BOOL found = storage.FindIssuerCertificate(cert, issuer, &flags, &lastCrl);
        EXPECT_EQ(found != FALSE, issuer.IsInitialized());
        return {found ? issuer.GetSubjectKeyId().GetData()[0] : 0, flags};
    }

    const too_testing::ScopedClock clock;
    const TestSigner root;
    const TestSigner stranger;
    CNALCRLContext lastCrl;
};

using Answer = std::pair<int, unsigned>;

TEST_F(Issuers, OneIsChosenByKeyThenBySignatureThenByLife) {
    struct Candidate {
        unsigned char id;
        const TestSigner* owner;
        unsigned until;
        IdentObj serial = Filled(1, 1);
    };
    CertBuilder keyed = Leaf();
    keyed.authorityKeyId = Filled(2);
    CertBuilder expired = keyed;
    expired.notAfter = Date(2024);
    CertBuilder serialled = Leaf();
    CNALIssuerPublicKeyID authority;
    authority.m_issuerSerial = Filled(5, 2);
    serialled.extensions.push_back({"2.5.29.35", false, authority.WriteData()});
    const struct {
        const char* what;
        std::vector<Candidate> candidates;
        CertBuilder leaf;
        unsigned flags;
        Answer answer;
    } cases[] = {
        {"none", {}, Leaf(), 7, {0, 0x20007}},
        {"none, one check", {}, Leaf(), 2, {0, 0x20002}},
        {"the right name, another key", {{1, &root, 2040}}, keyed, 7, {0, 0x20007}},
        {"the longer life, when the leaf does not say", {{1, &root, 2049}, {2, &root, 2031}}, Leaf(), 7, {1, 0x10000}},
        {"the key before the life", {{1, &root, 2049}, {2, &root, 2031}}, keyed, 7, {2, 0x10000}},
        {"no CRL is sought", {{2, &root, 2031}}, keyed, 3, {2, 0}},
        {"nothing is checked", {{2, &root, 2031}}, keyed, 0, {2, 0}},
        {"what is named by key, whatever fails", {{1, &root, 2040}, {2, &stranger, 2040}}, expired, 7, {2, 0x10003}},
        {"the only one, which does not sign", {{1, &stranger, 2049}}, Leaf(), 7, {1, 0x10001}},
        {"another that does not sign displaces nobody", {{1, &stranger, 2049}, {2, &stranger, 2059}}, Leaf(), 7, {1, 0x10001}},
        {"one that signs is preferred", {{1, &stranger, 2049}, {2, &stranger, 2059}, {3, &root, 2031}}, Leaf(), 7, {3, 0x10000}},
        {"a serial is taken at once only when it signs",
         {{1, &stranger, 2049, Filled(5, 2)}, {2, &root, 2031, Filled(5, 2)}, {3, &root, 2049, Filled(6, 2)}},
         serialled, 7, {2, 0x10000}},
    };
    for (const auto& each : cases) {
        storage.Clear();
        CNALString name("test");
        ASSERT_TRUE(storage.OpenStorage(name, CERT_STORE_PROV_MEMORY, 0, 5, nullptr));
        for (const Candidate& candidate : each.candidates) {
            AddCandidate(candidate.id, *candidate.owner, Date(candidate.until), candidate.serial);
        }
        EXPECT_EQ(Find(each.leaf, each.flags), each.answer) << each.what;
    }
}

TEST_F(Issuers, RevocationIsOfTheCrlThatTheIssuerSigned) {
    AddCandidate(1, root);
    const IdentObj serial = Leaf().serial;
    const struct {
        const char* what;
        unsigned flags;
        std::function<void()> add;
    } steps[] = {
        {"none", 0x10000, [] {}},
        {"signed by somebody else", 0x10000, [&] { AddCrlOf(1, {serial}, Date(2024), 1, &stranger); }},
        {"from the future", 0x10000, [&] { AddCrlOf(1, {serial}, Date(2026), 2); }},
        {"not listed", 0, [&] { AddCrlOf(1, {Filled(7, 2)}, Date(2021), 3); }},
        {"listed in a later one", 4, [&] { AddCrlOf(1, {Filled(1, 1), serial}, Date(2022), 1); }},
        {"an earlier one changes nothing", 4, [&] { AddCrlOf(1, {}, Date(2020), 9); }},
        {"of one time the larger number", 0, [&] { AddCrlOf(1, {}, Date(2022), 10); }},
    };
    for (const auto& step : steps) {
        step.add();
        EXPECT_EQ(Find(Leaf()), Answer(1, step.flags)) << step.what;
        EXPECT_EQ(lastCrl.IsInitialized(), step.flags != 0x10000) << step.what;
    }
    CNALCRLContext crl;
    ASSERT_TRUE(storage.GetCrlFromStorage(All(storage).front(), crl));
    EXPECT_EQ(crl.GetSerialNumber(), Filled(10, 16));
}

TEST_F(Issuers, SelfSignedInAnUntrustedStorageIsItsOwnIssuer) {
    const IdentObj der = AddCandidate(1, root);
    for (const unsigned untrusted : {0U, 1U}) {
        storage.m_untrusted = untrusted;
        CNALCertContext issuer;
        unsigned flags = 3;
        ASSERT_TRUE(storage.FindIssuerCertificate(CNALCertContext(der), issuer, &flags, nullptr));
        EXPECT_EQ(TextOf(der), EncodingOf(issuer.GetContext()));
        EXPECT_EQ(flags, untrusted != 0 ? 0x20U : 0U);
        ASSERT_TRUE(storage.FindIssuerCertificate(CNALCertContext(der), issuer, nullptr, nullptr));
    }
}

TEST_F(Issuers, EightThreadsSearchWhileTheStorageChanges) {
    AddCandidate(1, root);
    AddCrlOf(1, {Filled(9, 3)});
    const CNALCertContext good(root.Issue(Leaf(), root));
    CertBuilder listed = Leaf();
    listed.serial = Filled(9, 3);
    const CNALCertContext revoked(root.Issue(listed, root));
    std::atomic<unsigned> wrong{0};
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < 8; ++thread) {
        threads.emplace_back([&, thread] {
            const CNALCertStorage own(storage);
            for (unsigned round = 0; round < 50; ++round) {
                CNALCertContext issuer;
                CNALCRLContext crl;
                unsigned flags = CERT_STORE_REVOCATION_FLAG;
                const CNALCertContext& subject = (round + thread) % 2 == 0 ? good : revoked;
                if (!own.FindIssuerCertificate(subject, issuer, &flags, &crl)) ++wrong;
                if (flags != (&subject == &good ? 0U : CERT_STORE_REVOCATION_FLAG) || !crl.IsInitialized()) ++wrong;
                if (All(own).empty()) ++wrong;
            }
        });
    }
    for (unsigned char round = 0; round < 30; ++round) {
        CertBuilder other;
        other.subjectKeyId = Filled(static_cast<unsigned char>(100 + round % 5));
        Add(other.Build());
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0U);
}

TEST(IssuerRank, IsTheOrderOfTheList) {
    using nal::CheckedCandidate;
    using nal::Match;
    const CTOOFileTime early(Date(2030));
    const CTOOFileTime late(Date(2040));
    // From the one that is chosen last to the one that is chosen first; those of one line are equal.
    const std::vector<std::vector<CheckedCandidate>> order = {
        {{Match::Name, 1 | 4, late}, {Match::Serial, 1 | 4, late}, {Match::Name, 1 | 0x10000, early}, {Match::Name, 1, late}},
        {{Match::Name, 4 | 2, late}},
        {{Match::Name, 4, late}},
        {{Match::Name, 0x10000 | 2, late}},
        {{Match::Name, 0x10000, early}},
        {{Match::Name, 0x10000, late}},
        {{Match::Name, 2, late}},
        {{Match::Name, 0, early}},
        {{Match::Name, 0, late}},
    };
    for (std::size_t i = 0; i < order.size(); ++i) {
        for (std::size_t j = 0; j < order.size(); ++j) {
            for (const CheckedCandidate& a : order[i]) {
                for (const CheckedCandidate& b : order[j]) EXPECT_EQ(nal::RankOf(a) <=> nal::RankOf(b), i <=> j) << i << " " << j;
            }
        }
    }
    for (const CheckedCandidate& named : {CheckedCandidate{Match::Key, 7, early}, CheckedCandidate{Match::Serial, 4, early}}) {
        EXPECT_TRUE(nal::RankOf(named).isNamed);
        EXPECT_GT(nal::RankOf(named), nal::RankOf(order.back().front()));
    }
}

}  // namespace
