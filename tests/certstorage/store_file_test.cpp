// Several users of one store's file: searches and changes of threads and processes, and what they find beside the file.
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "certstorage/change_step.h"
#include "certstorage/tree_verify.h"
#include "crash/changed_store.h"
#include "support/child.h"
#include "too/testing.h"

namespace {

using namespace nal_test;

// Another process. It is made before this one opens a store, so that it does not inherit an open one.
class Elsewhere {
public:
    explicit Elsewhere(const std::string& path) : m_child([&] { Serve(path); }) { m_answers.CloseSending(); }
    ~Elsewhere() {
        m_orders.CloseSending();
        EXPECT_EQ(ChildEnd::success, m_child.Wait());
    }

    /// Adds a letter in a transaction. @return what the store there holds then
    std::string Add(char letter) const {
        m_orders.Send({letter});
        return m_answers.Receive();
    }

private:
    void Serve(const std::string& path) {
        m_orders.CloseSending();
        StorePtr store;
        for (std::string order = m_orders.Receive(); !order.empty(); order = m_orders.Receive()) {
            if (!store) store = OpenFile(path);
            if (Change(store, [&] { return Put(store, order.front()); }) != 0) throw std::runtime_error("change");
            m_answers.Send(Letters(store));
        }
    }

    Pipe m_orders;
    Pipe m_answers;
    Child m_child;
};

class StoreFileTest : public testing::Test {
protected:
    StoreFileTest() { MakeStore(m_path, "bdf"); }
    TempFolder m_folder;
    const std::string m_path = m_folder.File("store");
};

TEST_F(StoreFileTest, TakesInWhatAnotherProcessDid) {
    Elsewhere elsewhere(m_path);
    const StorePtr store = OpenFile(m_path);
    StoreOf(store).SetCursorOp(nal::CertStore::CursorOp::First);
    nal::RecordKey key;
    std::vector<unsigned char> value;
    ASSERT_EQ(nal::kTreeOk, StoreOf(store).traverse(key, value));
    StoreOf(store).SetCursorOp(nal::CertStore::CursorOp::Next);
    const std::uint64_t before = StoreOf(store).Body()->GetTree().ChangeCount();
    elsewhere.Add('a');
    elsewhere.Add('c');
    {
        const nal::StoreSearch search(StoreOf(store));
        ASSERT_EQ(0, search.Error());
        // The walk goes on where it stood.
        ASSERT_EQ(nal::kTreeOk, StoreOf(store).traverse(key, value));
        EXPECT_EQ('c', key.identifier.front());
        EXPECT_NE(before, StoreOf(store).Body()->GetTree().ChangeCount());
    }
    EXPECT_EQ("abcdf", Letters(store));
}

// Who only reads writes nothing; and the database would write pages of a deletion late, over what another process has done.
TEST_F(StoreFileTest, NothingIsWrittenAfterTheChange) {
    for (const std::string letters : {"", "d", "f", "bdf"}) {
        SCOPED_TRACE(letters);
        const std::string path = m_folder.File("without " + letters);
        MakeStore(path, "bdf");
        Elsewhere elsewhere(path);
        StorePtr store = OpenFile(path);
        const auto take = [&] {
            for (const char letter : letters) StoreOf(store).deleteCertCascade(Letter(letter));
            return 0;
        };
        ASSERT_EQ(0, letters.empty() ? 0 : Change(store, take));
        const Bytes committed = ReadFile(path);
        Letters(store);
        EXPECT_EQ(committed, ReadFile(path));
        elsewhere.Add('x');
        const Bytes changed = ReadFile(path);
        store.reset();
        EXPECT_EQ(changed, ReadFile(path));
    }
}

TEST_F(StoreFileTest, BareChangesAreCountedOrDropped) {
    Elsewhere elsewhere(m_path);
    StorePtr store = OpenFile(m_path);
    EXPECT_EQ("bdfu", elsewhere.Add('u'));
    EXPECT_EQ("bdfu", Letters(store));
    Put(store, 'c');
    EXPECT_EQ("bcdfu", Letters(store));  // written out by the search
    EXPECT_EQ("bcdfux", elsewhere.Add('x'));
    Letters(store);
    Put(store, 'e');
    elsewhere.Add('y');
    EXPECT_EQ("bcdfuxy", Letters(store));
    Put(store, 'e');
    EXPECT_EQ("bcdfuxyz", elsewhere.Add('z'));
    store.reset();
    EXPECT_EQ("bcdfuxyz", Letters(m_path));
}

// A process dies in a change while another holds a bare change in memory, which it writes out when it closes.
TEST_F(StoreFileTest, ClosingUndoesWhatADeadProcessLeft) {
    for (unsigned step = 1; step <= std::size(nal::kCommitSteps); ++step) {
        SCOPED_TRACE(step);
        std::filesystem::remove(m_path);
        MakeStore(m_path, "bdf");
        const Pipe orders;
        Child other([&] {  // made before this process opens the store
            orders.Receive();
            const StorePtr own = OpenFile(m_path);
            too_testing::KillAtStep(step);
            Change(own, [&] { return Put(own, 'x', std::string(20000, 'x')); });
        });
        StorePtr store = OpenFile(m_path);
        Put(store, 'c');
        orders.Send("!");
        EXPECT_EQ(ChildEnd::killed, other.Wait());
        store.reset();
        const std::string letters = Letters(m_path);
        EXPECT_TRUE(letters == "bdf" || letters == "bcdf" || letters == "bdfx") << letters;
        EXPECT_FALSE(Exists(m_path + ".journal"));
        EXPECT_EQ(0, nal::VerifyTreeFile(m_path));
    }
}

TEST_F(StoreFileTest, AFileFromElsewhereIsVerified) {
    const StorePtr store = OpenFile(m_path);
    EXPECT_EQ("bdf", Letters(store));
    const std::string other = m_folder.File("other");
    MakeStore(other, "uvw");
    const Bytes sound = ReadFile(other);
    std::filesystem::rename(other, m_path);
    EXPECT_EQ("uvw", Letters(store));
    for (const Bytes& damaged : {Bytes(sound.begin(), sound.end() - 100), Bytes(20000, 0x5A), Bytes()}) {
        SCOPED_TRACE(damaged.size());
        WriteFile(m_path, damaged);
        {
            const nal::StoreSearch search(StoreOf(store));
            EXPECT_EQ(EUCLEAN, search.Error());
            EXPECT_EQ(nal::kTreeError, Put(store, 'a'));
        }
        EXPECT_EQ(EUCLEAN, Change(store, [&] { return Put(store, 'a'); }));
        EXPECT_EQ(DWORD{EUCLEAN}, ErrorOf([&] { return OpenFile(m_path); }));
        EXPECT_EQ(damaged, ReadFile(m_path)) << "what is refused is not changed";
    }
    WriteFile(m_path, sound);
    EXPECT_EQ("uvw", Letters(store));
    std::filesystem::remove(m_path);
    EXPECT_EQ(ENOENT, Change(store, [&] { return Put(store, 'a'); }));
    EXPECT_FALSE(Exists(m_path));
}

TEST_F(StoreFileTest, JournalsOfOthersAreNotPlayedBack) {
    const std::string journal = m_path + ".journal";
    const Bytes before = ReadFile(m_path);
    WriteFile(journal, std::string(500, 'j'));
    EXPECT_EQ(nullptr, OpenFile(m_path));
    EXPECT_EQ(static_cast<DWORD>(EUCLEAN), GetLastError());
    EXPECT_EQ(before, ReadFile(m_path));
    std::filesystem::remove(journal);

    // A real journal, kept from a change in the middle; then another file is put in the store's place.
    {
        const StorePtr store = OpenFile(m_path);
        const nal::StoreChange change(StoreOf(store));
        Put(store, 'x');
        std::filesystem::copy(journal, m_folder.File("kept"));
    }
    MakeStore(m_folder.File("backup"), "uv");
    std::filesystem::rename(m_folder.File("backup"), m_path);
    std::filesystem::rename(m_folder.File("kept"), journal);
    EXPECT_EQ("uv", Letters(m_path));
    EXPECT_FALSE(Exists(journal));
    EXPECT_TRUE(Exists(journal + ".stale"));
}

TEST_F(StoreFileTest, AStoreIsMadeWholeOrNotAtAll) {
    const std::string path = m_folder.File("new");
    WriteFile(path + ".new", std::string("left by a process that died"));
    const StorePtr store = OpenFile(path);
    ASSERT_TRUE(store);
    EXPECT_GT(std::filesystem::file_size(path), 0U);
    EXPECT_FALSE(Exists(path + ".new"));
    EXPECT_EQ(0, Change(store, [&] { return Put(store, 'a'); }));
    EXPECT_EQ("a", Letters(path));
}

TEST_F(StoreFileTest, ReadersNeedNoWriteAccess) {
    const std::string lock = m_path + ".lock";
    for (const bool hasLock : {true, false}) {
        SCOPED_TRACE(hasLock);
        if (!hasLock) std::filesystem::remove(lock);
        ASSERT_EQ(0, chmod(m_path.c_str(), 0444));
        ASSERT_TRUE(!hasLock || chmod(lock.c_str(), 0444) == 0);
        ASSERT_EQ(0, chmod(m_folder.Path().c_str(), 0555));
        EXPECT_EQ(ChildEnd::success, RunInChild([&] {
                      // Root may do everything, so it becomes somebody else.
                      if (geteuid() == 0 && seteuid(65534) != 0) throw std::runtime_error("seteuid");
                      const StorePtr store = OpenFile(m_path);
                      if (Letters(store) != "bdf") throw std::runtime_error("letters");
                      if (Change(store, [&] { return Put(store, 'x'); }) != EACCES) throw std::runtime_error("changed");
                      if (Letters(store) != "bdf") throw std::runtime_error("letters");
                  }));
        ASSERT_EQ(0, chmod(m_folder.Path().c_str(), 0755));
    }
    EXPECT_FALSE(Exists(m_path + ".journal"));
}

TEST_F(StoreFileTest, ChangesAndSearchesNest) {
    for (const bool hasFile : {true, false}) {
        SCOPED_TRACE(hasFile);
        const StorePtr store = hasFile ? OpenFile(m_path) : OpenMemory();
        EXPECT_EQ(0, Change(store, [&] {
                      Letters(store);
                      return Change(store, [&] { return Put(store, 'x'); });
                  }));
        {
            const nal::StoreSearch outer(StoreOf(store));
            const nal::StoreSearch inner(StoreOf(store));
            EXPECT_EQ(0, inner.Error());
            EXPECT_EQ(EDEADLK, Change(store, [&] { return 0; }));
        }
        // A failed inner change fails the whole.
        if (hasFile) {
            EXPECT_EQ(0, Change(store, [&] {
                          Put(store, 'y');
                          const nal::StoreChange inner(StoreOf(store));
                          return 0;
                      }));
            EXPECT_EQ(std::string::npos, Letters(store).find('y'));
        }
    }
}

TEST_F(StoreFileTest, ThreadsSearchWhileOneChanges) {
    for (const bool hasFile : {true, false}) {
        SCOPED_TRACE(hasFile);
        const StorePtr store = hasFile ? OpenFile(m_path) : OpenMemory();
        std::atomic<bool> ended{false};
        std::atomic<unsigned> halves{0};
        std::vector<std::thread> readers;
        for (unsigned i = 0; i < 4; ++i) {
            readers.emplace_back([&] {
                const StorePtr own = hasFile ? OpenFile(m_path) : StorePtr(CertDuplicateStore(store.get()));
                while (!ended) {
                    const nal::StoreSearch search(StoreOf(own));
                    std::vector<unsigned char> value;
                    const int x = StoreOf(own).GetRecord(nal::RecordKey::Cert(Letter('x')), value);
                    const int y = StoreOf(own).GetRecord(nal::RecordKey::Cert(Letter('y')), value);
                    if (x != y) ++halves;
                }
            });
        }
        for (unsigned round = 0; round < 20; ++round) {
            EXPECT_EQ(0, Change(store, [&] {
                          for (const char letter : {'x', 'y'}) {
                              if (round % 2 == 0) Put(store, letter);
                              else StoreOf(store).deleteCert(Letter(letter));
                          }
                          return 0;
                      }));
        }
        ended = true;
        for (std::thread& reader : readers) reader.join();
        EXPECT_EQ(0U, halves);
    }
}

}  // namespace
