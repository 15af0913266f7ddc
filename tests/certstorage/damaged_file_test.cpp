// Store files from outside: whatever is in them, they are refused or read.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <random>

#include "certstorage/cert_store.h"
#include "certstorage/store_test.h"
#include "certstorage/tree.h"
#include "support/process.h"
#include "support/temp_folder.h"

namespace {

using namespace nal_test;

nal_test::Bytes MadeStore(const TempFolder& folder, unsigned certificates) {
    FillStore(folder.File("made"), certificates);
    return ReadFile(folder.File("made"));
}

// Everything that a program does with a store, whatever comes of it. @return whether it opened
bool Use(const std::string& path) {
    const StorePtr store = OpenFile(path);
    if (!store) return false;
    Certificates(store);
    PCCRL_CONTEXT crl = nullptr;
    while ((crl = CertGetCRLFromStore(store.get(), nullptr, crl, nullptr)) != nullptr) continue;
    CertBuilder builder;
    for (unsigned char id : {1, 5, 77}) {
        builder.subjectKeyId = Filled(id);
        AddEncoded(store, builder.Build(), 3);
    }
    PCCERT_CONTEXT first = CertEnumCertificatesInStore(store.get(), nullptr);
    if (first != nullptr) CertDeleteCertificateFromStore(first);
    return true;
}

// In a child, so that a crash fails the case that caused it. @return 0 refused, 1 opened, else it crashed
int UseInChild(const std::string& path) {
    const pid_t child = fork();
    if (child == 0) _exit(Use(path) ? 1 : 0);
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + status;
}

TEST(DamagedStore, RandomBytesOfPagesAreRefusedOrRead) {
    const TempFolder folder;
    const nal_test::Bytes sound = MadeStore(folder, 40);
    const std::string path = folder.File("damaged");
    int outcomes[2] = {};  // refused, opened
    for (unsigned seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        nal_test::Bytes damaged = sound;
        const std::size_t page = random() % (damaged.size() / 4096) * 4096;
        for (unsigned n = random() % 8 + 1; n != 0; --n) {
            // Half of the changes hit the page's header and its index, where they hurt.
            const std::size_t offset = page + (random() % 2 != 0 ? random() % 64 : random() % 4096);
            damaged[offset] = static_cast<unsigned char>(random());
        }
        WriteFile(path, damaged);
        const int outcome = UseInChild(path);
        ASSERT_TRUE(outcome == 0 || outcome == 1) << "it crashed: " << outcome;
        ++outcomes[outcome];
    }
    EXPECT_GT(outcomes[0], 100);
    EXPECT_GT(outcomes[1], 20);
}

TEST(DamagedStore, FilesThatAreCutAreRefused) {
    const TempFolder folder;
    const nal_test::Bytes sound = MadeStore(folder, 40);
    const std::string path = folder.File("cut");
    for (std::size_t size : {std::size_t{1}, std::size_t{511}, std::size_t{4096}, sound.size() / 2, sound.size() - 4096}) {
        WriteFile(path, nal_test::Bytes(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size)));
        EXPECT_EQ(0, UseInChild(path)) << size;
        EXPECT_EQ(size, ReadFile(path).size());
    }
}

// Berkeley DB's verification is not safe for all of these, so they must not come to it.
TEST(DamagedStore, PagesOfOtherAccessMethodsAreRefused) {
    const TempFolder folder;
    const nal_test::Bytes sound = MadeStore(folder, 10);
    const std::string path = folder.File("other");
    const auto refuses = [&](std::size_t offset, unsigned char value) {
        SCOPED_TRACE(std::to_string(offset) + " " + std::to_string(value));
        nal_test::Bytes other = sound;
        other[offset] = value;
        WriteFile(path, other);
        EXPECT_EQ(other == sound ? 1 : 0, UseInChild(path));
    };
    for (unsigned page = 0; page < 3; ++page) {
        for (unsigned char type = 0; type < 20; ++type) refuses(page * 4096 + 25, type);
    }
    for (const std::size_t offset : {12, 16, 20, 24, 26, 48}) refuses(offset, sound[offset] ^ 0x20);
}

TEST(ForeignStore, RecordsWithOtherKeysAreLeftAlone) {
    const TempFolder folder;
    {
        // Another program's records in the same order of keys.
        nal::Tree tree;
        ASSERT_EQ(0, tree.OpenFile(folder.File("s")));
        ASSERT_EQ(0, tree.Put({Identifier(3), {}, 0x12345}, AsView("another kind"), nal::PutMode::Overwrite));
        ASSERT_EQ(0, tree.Put({Identifier(5), {}, 0x10001}, AsView("nearly a certificate"), nal::PutMode::Overwrite));
    }
    // Keys of other lengths come in through Berkeley DB's own loader.
    const auto loaded = RunProcess({"sh", "-c",
                                    "printf 'VERSION=3\\nformat=print\\ntype=btree\\ndb_pagesize=4096\\nHEADER=END\\n a\\n short\\n "
                                    "zzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzzz\\n long\\nDATA=END\\n' | db5.3_load " +
                                        folder.File("keys")});
    ASSERT_EQ(0, loaded.exitCode) << loaded.errors;
    for (const char* name : {"s", "keys"}) {
        SCOPED_TRACE(name);
        const StorePtr store = OpenFile(folder.File(name));
        ASSERT_TRUE(store);
        EXPECT_TRUE(Certificates(store).empty());
        EXPECT_TRUE(AddEncoded(store, CertBuilder().Build(), 3));
        EXPECT_EQ(1U, Certificates(store).size());
        EXPECT_TRUE(CertDeleteCertificateFromStore(CertEnumCertificatesInStore(store.get(), nullptr)));
    }
}

}  // namespace
