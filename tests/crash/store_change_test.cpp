// Sudden death and failing disks in the changes of a store's file: afterwards the store opens and holds every change that was
// acknowledged, and none half-made.
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <iterator>
#include <new>
#include <random>
#include <thread>

#include "certstorage/change_step.h"
#include "crash/changed_store.h"
#include "support/child.h"
#include "too/testing.h"

namespace {

using namespace nal_test;
using nal::ChangeStep;

struct ChangeCase {
    const char* name;
    std::function<int(const StorePtr&)> make;
    unsigned records;  // that it changes
    std::string after;
};

const std::string kBefore = "bdf";

const std::vector<ChangeCase>& Cases() {
    static const std::vector<ChangeCase> cases = {
        {"one more", [](const StorePtr& store) { return Put(store, 'c'); }, 1, "bcdf"},
        {"a list",
         [](const StorePtr& store) {
             int status = 0;
             for (const char letter : {'a', 'e', 'g'}) {
                 if (status == 0) status = Put(store, letter, std::string(20000, letter));
             }
             return status;
         },
         3, "abdefg"},
        {"one fewer", [](const StorePtr& store) { return StoreOf(store).deleteCertCascade(Letter('d')); }, 1, "bf"},
        {"a replacement",
         [](const StorePtr& store) {
             const int status = StoreOf(store).deleteCert(Letter('f'));
             return status == 0 ? Put(store, 'h') : status;
         },
         2, "bdh"},
        {"none left",
         [](const StorePtr& store) {
             int status = 0;
             for (const char letter : kBefore) {
                 if (status == 0) status = StoreOf(store).deleteCertCascade(Letter(letter));
             }
             return status;
         },
         3, ""},
    };
    return cases;
}

unsigned StepsOf(const ChangeCase& test) { return static_cast<unsigned>(std::size(nal::kCommitSteps)) - 1 + test.records; }

// The number of the step, counted from 1, from which on a change holds when the process dies before the next.
unsigned HoldingStep(const ChangeCase& test) {
    const auto* step = std::find(std::begin(nal::kCommitSteps), std::end(nal::kCommitSteps), ChangeStep::RetireJournal);
    return static_cast<unsigned>(step - std::begin(nal::kCommitSteps)) + test.records;
}

// A store in a folder of its own.
struct Place {
    explicit Place(const std::string& letters = kBefore) { MakeStore(path, letters); }
    TempFolder folder;
    std::string path = folder.File("store");
    std::string journal = path + ".journal";

    // As if the process had died while pages were written: the file stays, its content is noise from the middle on.
    void Scribble() const {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        const auto size = static_cast<std::streamoff>(std::filesystem::file_size(path));
        file.seekp(size / 2);
        for (std::streamoff i = size / 2; i < size + 100; ++i) file.put(static_cast<char>(i * 7));
    }

    ChildEnd DieIn(const ChangeCase& test, unsigned nth) const {
        return RunInChild([&] {
            const StorePtr store = OpenFile(path);
            too_testing::KillAtStep(nth);
            Change(store, [&] { return test.make(store); });
        });
    }
};

TEST(StoreCrash, EveryStepOfAChangeIsListed) {
    for (const ChangeCase& test : Cases()) {
        SCOPED_TRACE(test.name);
        const Place place;
        const StorePtr store = OpenFile(place.path);
        too_testing::ResetSteps();
        ASSERT_EQ(0, Change(store, [&] { return test.make(store); }));
        EXPECT_EQ(StepsOf(test), too_testing::GetStepCount());
        EXPECT_EQ(test.after, Letters(place.path));
        EXPECT_FALSE(Exists(place.journal));
    }
}

TEST(StoreCrash, DeathBeforeEachStepLeavesAllOrNothing) {
    for (const ChangeCase& test : Cases()) {
        for (unsigned nth = 1; nth <= StepsOf(test); ++nth) {
            SCOPED_TRACE(std::string(test.name) + " " + std::to_string(nth));
            for (const bool halfWritten : {false, true}) {
                const Place place;
                ASSERT_EQ(ChildEnd::killed, place.DieIn(test, nth));
                if (halfWritten && !Exists(place.journal)) continue;
                if (halfWritten) place.Scribble();
                EXPECT_EQ(nth <= HoldingStep(test) ? kBefore : test.after, Letters(place.path));
                EXPECT_FALSE(Exists(place.journal));
                const StorePtr store = OpenFile(place.path);
                EXPECT_EQ(0, Change(store, [&] { return Put(store, 'z'); }));
                EXPECT_EQ('z', Letters(place.path).back());
            }
        }
    }
}

TEST(StoreCrash, DeathInTheRecoveryIsRecoveredFrom) {
    const ChangeCase& test = Cases()[1];
    constexpr auto kSteps = static_cast<unsigned>(std::size(nal::kUndoSteps));
    for (unsigned nth = 1; nth <= kSteps + 1; ++nth) {
        SCOPED_TRACE(nth);
        const Place place;
        ASSERT_EQ(ChildEnd::killed, place.DieIn(test, HoldingStep(test)));
        ASSERT_TRUE(Exists(place.journal));
        place.Scribble();
        if (nth <= kSteps) {
            EXPECT_EQ(ChildEnd::killed, RunInChild([&] {
                          too_testing::KillAtStep(nth);
                          Letters(place.path);
                      }));
        } else {
            too_testing::ResetSteps();
            EXPECT_EQ(kBefore, Letters(place.path));
            EXPECT_EQ(kSteps, too_testing::GetStepCount());
        }
        EXPECT_EQ(kBefore, Letters(place.path));
        EXPECT_FALSE(Exists(place.journal));
    }
}

TEST(StoreCrash, AFailedStepUndoesTheChange) {
    for (const ChangeCase& test : Cases()) {
        for (unsigned nth = 1; nth <= StepsOf(test); ++nth) {
            for (const unsigned count : {1U, 0U}) {  // one failure, or a disk that stays full
                SCOPED_TRACE(std::string(test.name) + " " + std::to_string(nth) + " " + std::to_string(count));
                const Place place;
                const StorePtr store = OpenFile(place.path);
                const bool holds = nth == StepsOf(test);  // only what is left behind could not be removed
                {
                    const too_testing::ScopedStepFailure full(nth, ENOSPC, count);
                    EXPECT_EQ(holds ? 0 : ENOSPC, Change(store, [&] { return test.make(store); }));
                }
                EXPECT_EQ(holds ? test.after : kBefore, Letters(store));
                EXPECT_EQ(0, Change(store, [&] { return Put(store, 'z'); }));
                EXPECT_EQ((holds ? test.after : kBefore) + "z", Letters(place.path));
            }
        }
    }
}

TEST(StoreCrash, AChangeThatIsNotCommittedIsUndone) {
    for (const ChangeCase& test : Cases()) {
        SCOPED_TRACE(test.name);
        const Place place;
        const StorePtr store = OpenFile(place.path);
        {
            const nal::StoreChange change(StoreOf(store));
            ASSERT_EQ(0, change.Error());
            test.make(store);
        }
        EXPECT_EQ(kBefore, Letters(store));
        EXPECT_FALSE(Exists(place.journal));
    }
}

// Counters that a child and its parent see.
struct Shared {
    std::atomic<unsigned> acknowledged{0};
};

class SharedMemory {
public:
    SharedMemory()
        : m_shared(new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Shared) {}
    ~SharedMemory() { munmap(m_shared, sizeof(Shared)); }
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;
    Shared* operator->() const { return m_shared; }

private:
    Shared* m_shared;
};

TEST(StoreCrash, KilledAtAnyInstantItHoldsWhatWasAcknowledged) {
    const Place place("");
    std::mt19937 random(20);
    std::string expected;
    for (unsigned round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        const SharedMemory shared;
        // Each change adds a letter, or takes the last away when all are there.
        const auto next = [](const std::string& letters) {
            return letters.size() < 20 ? letters + static_cast<char>('a' + letters.size()) : letters.substr(0, 3);
        };
        {
            Child child([&] {
                const StorePtr store = OpenFile(place.path);
                for (std::string now = Letters(store);;) {
                    const std::string then = next(now);
                    const int error = Change(store, [&] {
                        for (std::size_t i = then.size(); i < now.size(); ++i) StoreOf(store).deleteCertCascade(Letter(now[i]));
                        return then.size() > now.size() ? Put(store, then.back(), std::string(random() % 9000 + 1, 'x')) : 0;
                    });
                    if (error != 0) throw std::runtime_error("change");
                    now = then;
                    ++shared->acknowledged;
                }
            });
            const unsigned target = random() % 4;
            unsigned spins = random() % 2000;
            while (shared->acknowledged < target || spins-- != 0) std::this_thread::yield();
            child.Kill();
            ASSERT_EQ(ChildEnd::killed, child.Wait());
        }
        std::string acknowledged = expected;
        for (unsigned i = 0; i < shared->acknowledged; ++i) acknowledged = next(acknowledged);
        const std::string found = Letters(place.path);
        // The last change may have been made and not told.
        ASSERT_TRUE(found == acknowledged || found == next(acknowledged)) << found << " after " << acknowledged;
        expected = found;
    }
}

TEST(StoreCrash, ProcessesChangeOneStoreAtOnce) {
    const Place place("");
    constexpr unsigned kRounds = 25;
    const auto writer = [&](char first) {
        const StorePtr store = OpenFile(place.path);
        for (unsigned round = 0; round < kRounds; ++round) {
            // Always both or none of a pair.
            const bool adds = round % 2 == 0;
            for (const bool reads : {false, true}) {
                if (reads && (Letters(store).find(first) != std::string::npos) != adds) throw std::runtime_error("lost");
                if (reads) continue;
                const int error = Change(store, [&] {
                    for (const char letter : {first, static_cast<char>(first + 1)}) {
                        const int status = adds ? Put(store, letter, std::string(5000, letter))
                                                : StoreOf(store).deleteCertCascade(Letter(letter));
                        if (status == nal::kTreeError) return status;
                    }
                    return 0;
                });
                if (error != 0) throw std::runtime_error("change");
            }
        }
    };
    const auto reader = [&] {
        const StorePtr store = OpenFile(place.path);
        for (unsigned round = 0; round < 200; ++round) {
            const std::string letters = Letters(store);
            if (letters.size() % 2 != 0) throw std::runtime_error("half a change: " + letters);
        }
    };
    Child a([&] { writer('a'); });
    Child b([&] { writer('c'); });
    Child c([&] { writer('e'); });
    Child d(reader);
    Child e(reader);
    for (Child* child : {&a, &b, &c, &d, &e}) EXPECT_EQ(ChildEnd::success, child->Wait());
    EXPECT_EQ("abcdef", Letters(place.path));
}

}  // namespace
