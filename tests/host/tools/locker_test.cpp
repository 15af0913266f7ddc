#include "too/locker.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

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
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace {

using IPC::CreateReadLockerDeprecated;
using IPC::CreateWriteLockerDeprecated;
using nal_test::Child;
using nal_test::ChildEnd;
using nal_test::Pipe;

class Locker : public testing::Test {
protected:
    Locker() { setenv("NAL_HOME", m_folder.Path().c_str(), 1); }

    // The number in a file; raised by reading and writing it, it loses counts unless others are kept out.
    int Number() const {
        const auto bytes = nal_test::ReadFile(m_folder.File("number"));
        return std::stoi(std::string(bytes.begin(), bytes.end()));
    }
    void Write(int number) const { nal_test::WriteFile(m_folder.File("number"), std::to_string(number)); }

    // Whether the file of the lock "name" is locked by somebody.
    bool IsLocked() const {
        const int file = open(m_folder.File("locks/name.lock").c_str(), O_RDWR | O_CLOEXEC);
        const bool locked = flock(file, LOCK_EX | LOCK_NB) != 0;
        close(file);
        return locked;
    }

    nal_test::TempFolder m_folder;
};

TEST_F(Locker, AWriterIsAloneAmongProcessesAndThreads) {
    constexpr int rounds = 100;
    Write(0);
    const auto work = [&] {
        for (int i = 0; i < rounds; ++i) {
            const auto lock = CreateWriteLockerDeprecated("_A_B");
            Write(Number() + 1);
        }
    };
    Child first(work);
    Child second(work);
    std::thread third(work);
    std::thread fourth(work);
    third.join();
    fourth.join();
    for (Child* child : {&first, &second}) EXPECT_EQ(ChildEnd::success, child->Wait());
    EXPECT_EQ(4 * rounds, Number());
}

TEST_F(Locker, ReadersShareAndKeepWritersOut) {
    std::atomic<bool> written{false};
    std::thread writer;
    {
        const auto mine = CreateReadLockerDeprecated("name");
        // Would never end if readers excluded one another.
        std::thread([&] { const auto other = CreateReadLockerDeprecated("name"); }).join();
        EXPECT_EQ(ChildEnd::success, nal_test::RunInChild([] { CreateReadLockerDeprecated("name"); }));
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
    EXPECT_EQ(TOO_E_LOCK, nal_test::StatusOf([] { CreateWriteLockerDeprecated("name"); })) << "a reader became a writer";
}

TEST_F(Locker, ADeadProcessLeavesNoLock) {
    const Pipe held;
    Child child([&] {
        const auto lock = CreateWriteLockerDeprecated("name");
        held.Send("!");
        pause();
    });
    held.Receive();
    auto waiting = std::async(std::launch::async, [] { const auto lock = CreateWriteLockerDeprecated("name"); });
    EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::seconds(0)));
    child.Kill();
    EXPECT_EQ(ChildEnd::killed, child.Wait());
    waiting.get();
}

TEST_F(Locker, AForkedChildHoldsNothingOfItsParent) {
    auto lock = CreateWriteLockerDeprecated("name");
    const Pipe started;
    Child child([&] {
        lock.reset();  // the parent's, so nothing happens
        started.Send("!");
        const auto own = CreateWriteLockerDeprecated("name");
    });
    started.Receive();
    EXPECT_TRUE(IsLocked());
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
    EXPECT_TRUE(IsLocked());
    checked.set_value();
    waiting.join();
}

TEST_F(Locker, NamesOfAnyBytesAndLengthMakeFilesInTheLockFolder) {
    const std::string longName(5000, 'L');
    std::vector<std::unique_ptr<IPC::CLocker>> locks;
    const std::string names[] = {"a/b", "a_b", "../../x", std::string("\0", 1), "a%2Fb", longName + "1", longName + "2"};
    for (const std::string& name : names) locks.push_back(CreateWriteLockerDeprecated(name));
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.File("locks"))) files += entry.is_regular_file();
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
