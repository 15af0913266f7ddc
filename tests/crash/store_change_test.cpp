// Sudden death and failing disks in the changes of a store's file: afterwards the store opens and holds every change that was
// acknowledged, and none half-made.
#include <algorithm>
#include <fstream>
#include <iterator>

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

// The first status that is not 0.
int ForAll(const std::string& letters, const std::function<int(char)>& make) {
    for (const char letter : letters) {
        if (const int status = make(letter)) return status;
    }
    return 0;
}
int PutAll(const StorePtr& store, const std::string& letters) {
    return ForAll(letters, [&](char letter) { return Put(store, letter, std::string(20000, letter)); });
}
int DeleteAll(const StorePtr& store, const std::string& letters) {
    return ForAll(letters, [&](char letter) { return StoreOf(store).deleteCertCascade(Letter(letter)); });
}

const std::vector<ChangeCase>& Cases() {
    static const std::vector<ChangeCase> cases = {
        {"one more", [](const StorePtr& store) { return Put(store, 'c'); }, 1, "bcdf"},
        {"a list", [](const StorePtr& store) { return PutAll(store, "aeg"); }, 3, "abdefg"},
        {"one fewer", [](const StorePtr& store) { return DeleteAll(store, "d"); }, 1, "bf"},
        {"a replacement",
         [](const StorePtr& store) { return StoreOf(store).deleteCert(Letter('f')) == 0 ? Put(store, 'h') : nal::kTreeError; }, 2, "bdh"},
        {"none left", [](const StorePtr& store) { return DeleteAll(store, kBefore); }, 3, ""},
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

TEST(StoreCrash, EveryStepOfAChangeIsListedAndOneThatIsNotCommittedIsUndone) {
    for (const ChangeCase& test : Cases()) {
        SCOPED_TRACE(test.name);
        const Place place;
        const StorePtr store = OpenFile(place.path);
        {
            const nal::StoreChange uncommitted(StoreOf(store));
            ASSERT_EQ(0, uncommitted.Error());
            test.make(store);
        }
        EXPECT_EQ(kBefore, Letters(store));
        EXPECT_FALSE(Exists(place.journal));
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

TEST(StoreCrash, ProcessesChangeOneStoreAtOnce) {
    const Place place("");
    constexpr unsigned kRounds = 25;
    const auto writer = [&](char first) {
        const StorePtr store = OpenFile(place.path);
        const std::string pair = {first, static_cast<char>(first + 1)};  // always both or none
        for (unsigned round = 0; round < kRounds; ++round) {
            const bool adds = round % 2 == 0;
            if (Change(store, [&] { return adds ? PutAll(store, pair) : DeleteAll(store, pair); }) != 0) throw std::runtime_error("change");
            if ((Letters(store).find(first) != std::string::npos) != adds) throw std::runtime_error("lost");
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
