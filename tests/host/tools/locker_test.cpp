#include "too/locker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "support/child.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace {

using IPC::CreateReadLockerDeprecated;
using IPC::CreateWriteLockerDeprecated;
using nal_test::Child;
using nal_test::ChildEnd;

// Bytes between two processes, to say that a point was reached and to wait for it.
class Signal {
public:
    Signal() {
        if (pipe(m_ends.data()) != 0) throw XTOOStatus(TOO_E_INTERNAL, "pipe");
    }
    ~Signal() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    void Send() const { ASSERT_EQ(1, write(m_ends[1], "x", 1)); }
    void Await() const {
        char c = 0;
        ASSERT_EQ(1, read(m_ends[0], &c, 1));
    }

private:
    std::array<int, 2> m_ends{};
};

class Locker : public testing::Test {
protected:
    Locker() { setenv("NAL_HOME", m_folder.Path().c_str(), 1); }

    // Raises a number in a file by reading and writing it, which loses counts unless others are kept out.
    void Raise() const {
        const auto bytes = nal_test::ReadFile(m_folder.File("number"));
        const int number = std::stoi(std::string(bytes.begin(), bytes.end()));
        nal_test::WriteFile(m_folder.File("number"), std::to_string(number + 1));
    }

    nal_test::TempFolder m_folder;
};

TEST_F(Locker, AWriterIsAloneAmongProcessesAndThreads) {
    constexpr int rounds = 100;
    nal_test::WriteFile(m_folder.File("number"), std::string("0"));
    const auto work = [&] {
        for (int i = 0; i < rounds; ++i) {
            const auto lock = CreateWriteLockerDeprecated("_A_B");
            Raise();
        }
    };
    {
        Child first(work);
        Child second(work);
        std::thread third(work);
        std::thread fourth(work);
        third.join();
        fourth.join();
        EXPECT_EQ(ChildEnd::success, first.Wait());
        EXPECT_EQ(ChildEnd::success, second.Wait());
    }
    const auto bytes = nal_test::ReadFile(m_folder.File("number"));
    EXPECT_EQ(std::to_string(4 * rounds), std::string(bytes.begin(), bytes.end()));
}

TEST_F(Locker, ReadersShareAndKeepWritersOut) {
    std::atomic<bool> written{false};
    std::thread writer;
    {
        const auto mine = CreateReadLockerDeprecated("name");
        // Would never end if readers excluded one another.
        std::thread([&] { const auto other = CreateReadLockerDeprecated("name"); }).join();
        EXPECT_EQ(ChildEnd::success,
                  nal_test::RunInChild([&] { const auto other = CreateReadLockerDeprecated("name"); }));
        writer = std::thread([&] {
            const auto lock = CreateWriteLockerDeprecated("name");
            written = true;
        });
        // However long the writer has waited by now, this thread still gets in again, and the writer does not.
        for (int i = 0; i < 1000; ++i) {
            const auto again = CreateReadLockerDeprecated("name");
            EXPECT_FALSE(written);
        }
    }
    writer.join();
    EXPECT_TRUE(written);
}

TEST_F(Locker, IsRecursiveByThread) {
    {
        auto outer = CreateWriteLockerDeprecated("name");
        auto reader = CreateReadLockerDeprecated("name");
        auto inner = CreateWriteLockerDeprecated("name");
        outer.reset();
        reader.reset();
        // Still held: another process gets in only when the last one goes.
        std::atomic<bool> entered{false};
        std::thread other([&] {
            const auto lock = CreateReadLockerDeprecated("name");
            entered = true;
        });
        EXPECT_FALSE(entered);
        inner.reset();
        other.join();
        EXPECT_TRUE(entered);
    }
    const auto reader = CreateReadLockerDeprecated("name");
    try {
        CreateWriteLockerDeprecated("name");
        ADD_FAILURE() << "a reader became a writer";
    } catch (const XTOOStatus& failure) {
        EXPECT_EQ(TOO_E_LOCK, failure.GetCode());
    }
}

TEST_F(Locker, ADeadProcessLeavesNoLock) {
    const Signal held;
    Child child([&] {
        const auto lock = CreateWriteLockerDeprecated("name");
        held.Send();
        pause();
    });
    held.Await();
    auto waiting = std::async(std::launch::async, [] { const auto lock = CreateWriteLockerDeprecated("name"); });
    EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::seconds(0)));
    child.Kill();
    EXPECT_EQ(ChildEnd::killed, child.Wait());
    waiting.get();
}

TEST_F(Locker, AForkedChildHoldsNothingOfItsParent) {
    auto lock = CreateWriteLockerDeprecated("name");
    const Signal started;
    Child child([&] {
        lock.reset();  // the parent's, so nothing happens
        started.Send();
        const auto own = CreateWriteLockerDeprecated("name");
    });
    started.Await();
    const int file = open(m_folder.File("locks/name.lock").c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(-1, flock(file, LOCK_EX | LOCK_NB));
    close(file);
    lock.reset();
    EXPECT_EQ(ChildEnd::success, child.Wait());
}

// Waits until a thread of this process sleeps, as one that waits for a lock does; not longer than it takes to read its
// state some thousand times.
void AwaitSleep(pid_t thread) {
    for (int i = 0; i < 100000; ++i) {
        std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
        std::string stat;
        std::getline(file, stat);
        const std::size_t name = stat.rfind(')');
        if (name != std::string::npos && stat.compare(name, 3, ") S") == 0) return;
    }
}

// Made before anything takes a lock, and so destroyed after everything that locks make.
std::unique_ptr<IPC::CLocker> g_heldToTheEnd;

TEST_F(Locker, ALockMayBeHeldUntilTheProcessHasEnded) {
    EXPECT_EQ(ChildEnd::success, nal_test::RunInChild([] {
                  g_heldToTheEnd = CreateWriteLockerDeprecated("name");
                  std::exit(0);
              }));
    const auto lock = CreateWriteLockerDeprecated("name");
}

TEST_F(Locker, ALockFileThatIsReplacedMeanwhileIsTakenAnew) {
    { const auto lock = CreateWriteLockerDeprecated("name"); }
    const std::string path = m_folder.File("locks/name.lock");
    const int removed = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(removed, LOCK_EX));
    std::promise<pid_t> started;
    std::promise<void> entered;
    std::promise<void> checked;
    std::thread waiting([&] {
        started.set_value(gettid());
        const auto lock = CreateWriteLockerDeprecated("name");
        entered.set_value();
        checked.get_future().wait();
    });
    AwaitSleep(started.get_future().get());
    std::filesystem::remove(path);
    close(removed);
    entered.get_future().wait();
    // What others find under the name is locked.
    const int present = open(path.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(-1, flock(present, LOCK_EX | LOCK_NB));
    close(present);
    checked.set_value();
    waiting.join();
}

TEST_F(Locker, NamesOfAnyBytesAndLengthMakeFilesInTheLockFolder) {
    const std::string longName(5000, 'L');
    std::vector<std::unique_ptr<IPC::CLocker>> locks;
    for (const std::string& name : {std::string("a/b"), std::string("a_b"), std::string("../../x"),
                                    std::string("\0", 1), std::string("a%2Fb"), longName + "1", longName + "2"}) {
        locks.push_back(CreateWriteLockerDeprecated(name));
    }
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.File("locks")))
        files += entry.is_regular_file();
    EXPECT_EQ(locks.size(), files);
    EXPECT_THROW(CreateReadLockerDeprecated(""), XTOOStatus);
}

TEST_F(Locker, ALockFileThatIsALinkIsRefused) {
    { const auto lock = CreateWriteLockerDeprecated("name"); }
    const std::string file = m_folder.File("locks/name.lock");
    ASSERT_TRUE(std::filesystem::remove(file));
    std::filesystem::create_symlink("/etc/passwd", file);
    EXPECT_THROW(CreateWriteLockerDeprecated("name"), XTOOFile);
    std::filesystem::remove(file);
    // A failure leaves nothing held.
    const auto lock = CreateWriteLockerDeprecated("name");
}

}  // namespace
