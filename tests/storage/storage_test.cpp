// The certificate storage: changes, searches, and the index held against plain walks.
#include "nal/storage.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
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

std::vector<std::string> Encodings(const std::list<CNALCertContext>& certs) {
    std::vector<std::string> all;
    for (const CNALCertContext& cert : certs) all.push_back(EncodingOf(cert.GetContext()));
    return all;
}

TEST_F(Storage, RefusesWithItsOwnCodes) {
    std::list<CNALCertContext> list(1);
    EXPECT_FALSE(storage.FindCertList(list, CERT_FIND_SUBJECT_NAME, nullptr));
    EXPECT_EQ(GetLastError(), 87U);
    const CRYPT_HASH_BLOB noContext{0, nullptr};
    EXPECT_FALSE(storage.FindCertList(list, CERT_FIND_EXISTING, &noContext));
    EXPECT_EQ(GetLastError(), 87U);
    EXPECT_FALSE(storage.FindCertList(list, CERT_FIND_PUBLIC_KEY, &noContext));
    EXPECT_EQ(GetLastError(), 230U);
    EXPECT_FALSE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(GetLastError(), 0x80092004U);
    EXPECT_EQ(list.size(), 1U);

    CNALCertStorage closed;
    CNALCertContext issuer;
    CNALCRLContext crl;
    unsigned flags = 7;
    const CNALCertContext cert(CertBuilder().Build());
    EXPECT_FALSE(closed.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(GetLastError(), 6U);
    EXPECT_FALSE(closed.FindIssuerCertificate(cert, issuer, &flags, nullptr));
    EXPECT_EQ(GetLastError(), 6U);
    EXPECT_EQ(flags, 0x20007U);
    EXPECT_FALSE(closed.AddCertificate(cert));
    EXPECT_EQ(GetLastError(), 6U);
    EXPECT_FALSE(closed.GetCrlFromStorage(cert, crl));
    EXPECT_FALSE(closed.FindCRLInStore(0, nullptr, crl).IsInitialized());
    EXPECT_FALSE(storage.AddCertificate(CNALCertContext()));
    EXPECT_EQ(GetLastError(), 0x80070057U);
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
    std::list<CNALCertContext> list;
    ASSERT_TRUE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(list.front().m_storageType, 5U);
    ASSERT_TRUE(list.front().SetContainer("kept"));

    builder.subject = "Replaced";
    Add(builder.Build());
    list.clear();
    ASSERT_TRUE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(Encodings(list), std::vector{TextOf(builder.Build())});
    EXPECT_EQ(list.front().GetContainer(), "kept") << "the encoded form keeps properties";
    ASSERT_TRUE(storage.AddCertificate(first));
    list.clear();
    ASSERT_TRUE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(list.front().GetContainer(), "") << "the context form does not";

    CNALCertContext taken = list.front();
    EXPECT_TRUE(storage.DeleteCertificate(taken));
    EXPECT_FALSE(taken.IsInitialized());
    EXPECT_FALSE(storage.DeleteCertificate(taken));
    list.clear();
    EXPECT_FALSE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
}

TEST_F(Storage, KeysWhatTheStoreCanKeyAndRefusesTheRest) {
    CertBuilder builder;
    builder.subjectKeyId = Filled(3, 24);
    const CNALCertContext cut(builder.Build());
    EXPECT_TRUE(storage.AddCertificate(cut)) << "keyed by the first 20 bytes";
    builder.subjectKeyId.reset();
    EXPECT_FALSE(storage.AddCertificate(CNALCertContext(builder.Build())));
    EXPECT_EQ(GetLastError(), 0x80070057U);
    EXPECT_FALSE(storage.AddEncodetCertificate(Filled(0x30, 20), kEncoding));
    std::list<CNALCertContext> list;
    EXPECT_TRUE(storage.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(list.size(), 1U);

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
    std::list<CNALCertContext> list;
    EXPECT_TRUE(copy.FindCertList(list, CERT_FIND_ANY, nullptr));
    list.clear();
    CNALCertStorage other;
    other = copy;
    storage.Clear();
    EXPECT_FALSE(storage.IsOpened());
    EXPECT_EQ(storage.m_storageType, 0U);
    EXPECT_TRUE(other.FindCertList(list, CERT_FIND_ANY, nullptr));
    EXPECT_EQ(other.m_storageType, 5U);
}

TEST_F(Storage, ASearchSeesNoChangeOfItsOwnThread) {
    const nal::StoreSearch search(*nal::CertStore::FromHandle(storage.GetStore()));
    EXPECT_FALSE(storage.AddCertificate(CNALCertContext(CertBuilder().Build())));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(EDEADLK));
}

// --- Certificates by their fields ---

IdentObj KeyIdentifierName(const IdentObj& id) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Set([&] {
            writer.Sequence([&] {
                writer.Oid("1.3.6.1.4.1.311.10.7.1");
                writer.OctetString(asnt::View(id));
            });
        });
    });
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
    std::list<CNALCertContext> all;
    storage.FindCertList(all, CERT_FIND_ANY, nullptr);
    const CERT_INFO whole = *all.back().GetContext()->pCertInfo;

    const auto find = [&](const CERT_INFO& wanted) {
        std::list<CNALCertContext> list;
        storage.FindCertList(list, CERT_FIND_SUBJECT_CERT, &wanted);
        std::string found;
        for (const CNALCertContext& cert : list) found += static_cast<char>('0' + cert.GetSubjectKeyId().GetData()[0]);
        return found;
    };
    CERT_INFO wanted{};
    wanted.SerialNumber = Blob(serial);
    wanted.Issuer = Blob(issuer);
    EXPECT_EQ(find(wanted), "13");
    wanted.Subject = Blob(third);
    EXPECT_EQ(find(wanted), "3");
    EXPECT_EQ(find(whole), "3");
    CERT_INFO otherKey = whole;
    otherKey.SubjectPublicKeyInfo.PublicKey.cbData -= 1;
    EXPECT_EQ(find(otherKey), "");
    CERT_INFO otherExtensions = whole;
    std::vector<CERT_EXTENSION> extensions(whole.rgExtension, whole.rgExtension + whole.cExtension);
    extensions[0].fCritical = TRUE;
    otherExtensions.rgExtension = extensions.data();
    EXPECT_EQ(find(otherExtensions), "");
    wanted = {};
    wanted.Issuer = Blob(secondKey);
    EXPECT_EQ(find(wanted), "2") << "by key identifier, whatever the serial";
    wanted.Issuer = Blob(third);
    EXPECT_EQ(find(wanted), "");
}

// --- The index and plain walks ---

std::vector<std::string> PlainFind(HCERTSTORE store, DWORD type, const void* parameter) {
    std::vector<std::string> found;
    PCCERT_CONTEXT next = nullptr;
    while ((next = CertFindCertificateInStore(store, kEncoding, 0, type, parameter, next)) != nullptr) {
        found.push_back(EncodingOf(next));
    }
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
                    std::list<CNALCertContext> all;
                    if (storage.FindCertList(all, CERT_FIND_ANY, nullptr)) storage.DeleteCertificate(all.front());
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
            for (const DWORD type : {CERT_FIND_SUBJECT_NAME, CERT_FIND_ISSUER_NAME}) {
                std::list<CNALCertContext> list;
                storage.FindCertList(list, type, &blob);
                ASSERT_EQ(Encodings(list), PlainFind(storage.GetStore(), type, &blob));
            }
            CERT_INFO info{};
            IdentObj serial = builder.serial;
            info.SerialNumber = Blob(serial);
            info.Issuer = blob;
            std::list<CNALCertContext> list;
            storage.FindCertList(list, CERT_FIND_SUBJECT_CERT, &info);
            ASSERT_EQ(Encodings(list), PlainFind(storage.GetStore(), CERT_FIND_SUBJECT_CERT, &info));
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
                          const IdentObj& serial = Filled(1, 1), unsigned keySize = 20) {
        CertBuilder builder;
        builder.issuer = builder.subject = "CA";
        builder.subjectKeyId = Filled(id, keySize);
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

TEST_F(Issuers, NoneIsSaidSo) {
    EXPECT_EQ(Find(Leaf()), Answer(0, 0x20007));
    EXPECT_EQ(Find(Leaf(), 2), Answer(0, 0x20002));
    AddCandidate(1, root);
    CertBuilder leaf = Leaf();
    leaf.authorityKeyId = Filled(9);
    EXPECT_EQ(Find(leaf), Answer(0, 0x20007)) << "the right name, another key";
}

TEST_F(Issuers, KeyIdentifierWinsOverALongerLife) {
    AddCandidate(1, root, Date(2049));
    AddCandidate(2, root, Date(2031));
    CertBuilder leaf = Leaf();
    EXPECT_EQ(Find(leaf), Answer(1, 0x10000)) << "the longer life, when the leaf does not say";
    leaf.authorityKeyId = Filled(2);
    EXPECT_EQ(Find(leaf), Answer(2, 0x10000));
    EXPECT_EQ(Find(leaf, 3), Answer(2, 0)) << "no CRL is sought";
    EXPECT_EQ(Find(leaf, 0), Answer(2, 0));
}

TEST_F(Issuers, WhatIsNamedByKeyIsTakenWhateverFails) {
    AddCandidate(1, root);
    AddCandidate(2, stranger);
    CertBuilder leaf = Leaf();
    leaf.authorityKeyId = Filled(2);
    leaf.notAfter = Date(2024);
    EXPECT_EQ(Find(leaf), Answer(2, 0x10003));
}

TEST_F(Issuers, OneThatSignsIsPreferred) {
    AddCandidate(1, stranger, Date(2049));
    EXPECT_EQ(Find(Leaf()), Answer(1, 0x10001)) << "the only one is taken all the same";
    AddCandidate(2, stranger, Date(2059));
    EXPECT_EQ(Find(Leaf()), Answer(1, 0x10001)) << "another that does not sign displaces nobody";
    AddCandidate(3, root, Date(2031));
    EXPECT_EQ(Find(Leaf()), Answer(3, 0x10000));
}

TEST_F(Issuers, SerialDecidesWhereTheKeyIdentifierDoesNot) {
    AddCandidate(1, stranger, Date(2049), Filled(5, 2));
    AddCandidate(2, root, Date(2031), Filled(5, 2));
    AddCandidate(3, root, Date(2049), Filled(6, 2));
    CertBuilder leaf = Leaf();
    CNALIssuerPublicKeyID authority;
    authority.m_issuerSerial = Filled(5, 2);
    leaf.extensions.push_back({"2.5.29.35", false, authority.WriteData()});
    EXPECT_EQ(Find(leaf), Answer(2, 0x10000)) << "a serial is taken at once only when it signs";
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
    std::list<CNALCertContext> all;
    storage.FindCertList(all, CERT_FIND_ANY, nullptr);
    CNALCRLContext crl;
    ASSERT_TRUE(storage.GetCrlFromStorage(all.front(), crl));
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
                std::list<CNALCertContext> all;
                if (!own.FindCertList(all, CERT_FIND_ANY, nullptr)) ++wrong;
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
