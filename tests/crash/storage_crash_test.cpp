// A store's file under sudden death, failing writes and several processes: what was acknowledged stays, nothing is half-made.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <random>
#include <set>
#include <stdexcept>

#include "certstorage/store_file.h"
#include "nal/storage.h"
#include "support/cert_builder.h"
#include "support/child.h"
#include "support/hex.h"
#include "support/temp_folder.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

constexpr unsigned kEncoding = 0x10001;
using Content = std::set<std::string>;

CNALCertContext Cert(unsigned number) {
    CertBuilder builder;
    builder.subjectKeyId = Filled(static_cast<unsigned char>(number));
    builder.subject = "Certificate " + std::to_string(number);
    return CNALCertContext(builder.Build());
}

std::string Text(const CNALCertContext& cert) {
    return {reinterpret_cast<const char*>(cert.GetContext()->pbCertEncoded), cert.GetContext()->cbCertEncoded};
}

Content Of(std::initializer_list<unsigned> numbers) {
    Content content;
    for (const unsigned number : numbers) content.insert(Text(Cert(number)));
    return content;
}

// Fails the test, or ends the child that it is in.
void Require(bool holds, const std::string& what) {
    if (!holds) throw std::runtime_error(what + ", last error " + std::to_string(GetLastError()));
}

class StorageCrash : public testing::Test {
protected:
    std::unique_ptr<CNALCertStorage> Open() const {
        CNALString name(path.c_str());
        auto storage = std::make_unique<CNALCertStorage>(name, CERT_STORE_PROV_FILENAME_A, 0, 0, nullptr);
        Require(storage->IsOpened(), "open");
        return storage;
    }

    static Content ContentOf(const CNALCertStorage& storage) {
        std::list<CNALCertContext> list;
        storage.FindCertList(list, CERT_FIND_ANY, nullptr);
        Content content;
        for (const CNALCertContext& cert : list) content.insert(Text(cert));
        return content;
    }
    Content Read() const { return ContentOf(*Open()); }

    void MakeStore() const {
        for (const char* end : {"", ".lock", ".journal", ".journal.new", ".journal.stale"}) unlink((path + end).c_str());
        const auto storage = Open();
        Require(storage->AddCertificateList({Cert(1), Cert(2), Cert(3)}), "make");
    }

    // Adds the certificate, or deletes it when it is there.
    static void Turn(CNALCertStorage& storage, Content& content, unsigned number) {
        const CNALCertContext cert = Cert(number);
        if (content.insert(Text(cert)).second) return Require(storage.AddCertificate(cert), "add");
        content.erase(Text(cert));
        std::list<CNALCertContext> list;
        CRYPT_HASH_BLOB blob{0, reinterpret_cast<BYTE*>(const_cast<CERT_CONTEXT*>(cert.GetContext()))};
        Require(storage.FindCertList(list, CERT_FIND_EXISTING, &blob), "find");
        Require(storage.DeleteCertificate(list.front()), "delete");
    }

    TempFolder folder;
    const std::string path = folder.File("store");
    const Content before = Of({1, 2, 3});
};

TEST_F(StorageCrash, AFullDiskUndoesTheChange) {
    MakeStore();
    const ChildEnd end = RunInChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const auto storage = Open();
        const rlimit limit{40000, 40000};  // room for the journal, none for what is added
        Require(setrlimit(RLIMIT_FSIZE, &limit) == 0, "limit");
        std::list<CNALCertContext> many;
        for (unsigned i = 10; i < 60; ++i) many.push_back(Cert(i));
        Require(!storage->AddCertificateList(many), "no failure");
        Require(GetLastError() == EFBIG || GetLastError() == ENOSPC || GetLastError() == EIO, "code");
        Require(ContentOf(*storage) == before, "content");
    });
    EXPECT_EQ(end, ChildEnd::success);
    EXPECT_EQ(Read(), before);
}

TEST_F(StorageCrash, KilledAtRandomKeepsWhatWasAcknowledged) {
    MakeStore();
    std::mt19937 random(1);
    // Operation n adds certificate 10 + n % 30, or deletes it when it is there: known from n alone.
    const auto apply = [](Content& content, unsigned n) {
        const std::string text = Text(Cert(10 + n % 30));
        if (content.erase(text) == 0) content.insert(text);
    };
    Content expected = before;
    unsigned next = 0;
    for (unsigned round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        Pipe acks;
        Child child([&] {
            const auto storage = Open();
            Content content = expected;
            for (unsigned n = next;; ++n) {
                Turn(*storage, content, 10 + n % 30);
                acks.Send("+");
            }
        });
        acks.CloseSending();
        const auto acknowledge = [&](const std::string& told) {
            for (std::size_t i = 0; i < told.size(); ++i) apply(expected, next++);
            return !told.empty();
        };
        for (unsigned wanted = random() % 4; wanted != 0 && acknowledge(acks.Receive()); --wanted) continue;
        // A while of any length, so that any moment may be the last: the child is somewhere in its next change.
        unsigned spent = 0;
        for (unsigned spin = random() % 4000; spin != 0; --spin) spent += access(path.c_str(), F_OK) == 0 ? 1 : 0;
        ASSERT_LE(spent, 4000U);
        child.Kill();
        ASSERT_EQ(child.Wait(), ChildEnd::killed);
        while (acknowledge(acks.Receive())) continue;
        const Content content = Read();
        if (content != expected) apply(expected, next++);  // done, and killed before it could say so
        ASSERT_EQ(content, expected);
    }
}

TEST_F(StorageCrash, FourProcessesLoseNothing) {
    MakeStore();
    const char* wanted = std::getenv("NAL_TEST_ROUNDS");  // for a long run by hand
    const unsigned rounds = wanted != nullptr ? static_cast<unsigned>(std::atoi(wanted)) : 120;
    std::vector<std::unique_ptr<Child>> children;
    for (unsigned process = 0; process < 4; ++process) {
        children.push_back(std::make_unique<Child>([&, process] {
            const auto storage = Open();
            std::mt19937 random(process);
            Content mine;
            for (unsigned round = 0; round < rounds; ++round) {
                const unsigned number = 10 + process * 50 + random() % 50;
                Turn(*storage, mine, number);
                const Content all = ContentOf(*storage);
                for (unsigned i = 0; i < 50; ++i) {
                    const std::string each = Text(Cert(10 + process * 50 + i));
                    Require(all.count(each) == mine.count(each), "lost or risen");
                }
                Require(all.count(Text(Cert(1))) == 1, "lost");
            }
        }));
    }
    for (const auto& child : children) EXPECT_EQ(child->Wait(), ChildEnd::success);
    EXPECT_TRUE(Open()->IsOpened());
}

TEST_F(StorageCrash, AListIsAddedWhollyOrNotAtAll) {
    MakeStore();
    const auto storage = Open();
    CertBuilder unkeyed;
    unkeyed.subjectKeyId.reset();
    EXPECT_FALSE(storage->AddCertificateList({Cert(10), Cert(11), CNALCertContext(unkeyed.Build())}));
    EXPECT_EQ(GetLastError(), 0x80070057U);
    EXPECT_EQ(ContentOf(*storage), before);
    EXPECT_TRUE(storage->AddCertificateList({}));
}

}  // namespace
