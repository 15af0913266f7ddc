#include "too/rec_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <list>
#include <string>

#include "support/child.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::ChildEnd;
using nal_test::TempFolder;

constexpr long c_recordSize = 96;
constexpr long c_headerSize = 32;

class RecFile : public testing::Test {
protected:
    static std::string Record(char c) { return std::string(c_recordSize, c); }

    CRecFile Open(unsigned char mode = CRecFile::c_create) const {
        return CRecFile(m_path.c_str(), mode, c_recordSize, c_headerSize);
    }

    // A new file with a record for each letter.
    void Fill(const std::string& letters) const {
        CRecFile file = Open();
        for (const char c : letters) {
            if (!file.Add(Record(c).data())) throw XTOOStatus(file.GetReturnCode());
        }
    }

    // The records' letters, which is all that tells them apart; a record that is not whole shows as "?".
    std::string Show() const {
        const CRecFile file = Open(CRecFile::c_read);
        IdentObj all;
        EXPECT_TRUE(file.GetAll(all)) << file.GetReturnText();
        EXPECT_EQ(file.Size() * c_recordSize, static_cast<long>(all.GetSize()));
        std::string shown;
        for (long i = 0; i < file.Size(); ++i) {
            std::string record(c_recordSize, '\0');
            EXPECT_TRUE(file.Get(i, record.data()));
            EXPECT_EQ(0, std::memcmp(record.data(), all.GetData() + i * c_recordSize, c_recordSize));
            shown += record == Record(record[0]) ? record[0] : '?';
        }
        return shown;
    }

    std::string Header() const {
        std::string header(c_headerSize, '\0');
        EXPECT_TRUE(Open(CRecFile::c_read).GetHeader(header.data()));
        return header;
    }

    TempFolder m_folder;
    const std::string m_path = m_folder.File("CERTSEND.DAT");
};

TEST_F(RecFile, AddsPutsGetsAndKeeps) {
    Fill("");
    EXPECT_EQ("", Show());
    Fill("abc");
    EXPECT_TRUE(Open().Put(1, Record('B').data()));
    EXPECT_TRUE(Open().PutHeader(std::string(c_headerSize, 'h').data()));
    EXPECT_EQ("aBc", Show());
    EXPECT_EQ(std::string(c_headerSize, 'h'), Header());

    CRecFile file = Open(CRecFile::c_write);
    CRecFile other = Open(CRecFile::c_write);
    EXPECT_TRUE(file.ReplaceAll((Record('x') + Record('y')).data(), 2));
    EXPECT_EQ(std::string(c_headerSize, 'h'), Header());
    // The other object follows to the new file.
    EXPECT_TRUE(other.Add(Record('z').data()));
    EXPECT_EQ(3, file.Size());
    EXPECT_EQ("xyz", Show());
    EXPECT_TRUE(file.ReplaceAll(nullptr, 0));
    EXPECT_EQ("", Show());
}

TEST_F(RecFile, ReturnCodes) {
    Fill("a");
    CRecFile file = Open(CRecFile::c_read);
    std::string record = Record('-');
    for (const long beyond : {1L, -1L, 1L << 40}) {
        EXPECT_FALSE(file.Get(beyond, record.data()));
        EXPECT_EQ(TOO_E_RANGE, file.GetReturnCode());
    }
    EXPECT_EQ(Record('-'), record);
    EXPECT_TRUE(file.Get(0, record.data()));
    EXPECT_EQ(0, file.GetReturnCode());
    EXPECT_FALSE(file.Get(0, nullptr));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, file.GetReturnCode());
    for (const bool result : {file.Add(record.data()), file.Put(0, record.data()), file.PutHeader(record.data()),
                              file.ReplaceAll(record.data(), 1)}) {
        EXPECT_FALSE(result);
        EXPECT_EQ(TOO_E_ACCESS, file.GetReturnCode());
    }
    CRecFile writer = Open(CRecFile::c_write);
    EXPECT_FALSE(writer.Put(1, record.data()));
    EXPECT_EQ(TOO_E_RANGE, writer.GetReturnCode());
    std::filesystem::remove(m_path);
    EXPECT_EQ(0, writer.Size());
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, writer.GetReturnCode());
}

TEST_F(RecFile, RefusesWhatIsNoRecordFileOfItsSizes) {
    Fill("a");
    const auto good = nal_test::ReadFile(m_path);
    const auto codeOf = [&](long recordSize, long headerSize, unsigned char mode) {
        return nal_test::StatusOf([&] { const CRecFile file(m_path.c_str(), mode, recordSize, headerSize); });
    };
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, codeOf(95, c_headerSize, 2));
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, codeOf(c_recordSize, 0, 2));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, codeOf(0, 0, 2));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, codeOf(c_recordSize, -1, 2));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, codeOf(c_recordSize, 0, 3));
    EXPECT_EQ(good, nal_test::ReadFile(m_path));

    nal_test::WriteFile(m_path, std::string("something else, which is to stay"));
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, codeOf(c_recordSize, c_headerSize, 2));
    EXPECT_EQ(32U, std::filesystem::file_size(m_path));

    // A file whose making was cut short at any byte is made again, but only for a writer.
    for (std::size_t length = 0; length < good.size() - c_recordSize; length += 7) {
        nal_test::WriteFile(m_path, good.data(), length);
        EXPECT_EQ(TOO_E_BAD_STRUCTURE, codeOf(c_recordSize, c_headerSize, CRecFile::c_read)) << length;
    }
    nal_test::WriteFile(m_path, good.data(), 20);
    EXPECT_EQ(0, codeOf(c_recordSize, c_headerSize, 2));
    EXPECT_EQ("", Show());
}

TEST_F(RecFile, ATornLastRecordIsNoRecord) {
    Fill("ab");
    const auto whole = nal_test::ReadFile(m_path);
    for (long cut = 1; cut < c_recordSize; cut += 13) {
        nal_test::WriteFile(m_path, whole.data(), whole.size() - static_cast<std::size_t>(cut));
        EXPECT_EQ("a", Show());
        CRecFile file = Open();
        EXPECT_TRUE(file.Add(Record('c').data()));
        EXPECT_EQ("ac", Show());
    }
}

// Bytes of the file are changed or cut at will: nothing crashes, and every answer is an error or whole records.
TEST_F(RecFile, DamagedFilesAreReadWithoutHarm) {
    Fill("abc");
    const auto good = nal_test::ReadFile(m_path);
    for (std::size_t at = 0; at < 16 + 8 + 96 + 32; ++at) {
        for (const int value : {0x00, 0xFF, 0x01}) {
            auto bad = good;
            bad[at] = static_cast<std::uint8_t>(value);
            nal_test::WriteFile(m_path, bad);
            try {
                CRecFile file = Open();
                EXPECT_LE(file.Size(), 4);
                IdentObj all;
                file.GetAll(all);
                EXPECT_TRUE(file.Add(Record('d').data()));
            } catch (const XTOOFile& failure) {
                EXPECT_EQ(TOO_E_BAD_STRUCTURE, failure.GetCode());
                EXPECT_LT(at, 16U);
            }
        }
    }
}

// Each change is stopped at each of its steps: by SIGKILL, by a disk that fails once, and by one that fails for good.
TEST_F(RecFile, AChangeIsWholeWhereverItStops) {
    struct {
        const char* name;
        std::function<bool(CRecFile&)> change;
        std::string records;
        char header;
    } const cases[] = {
        {"Add", [](CRecFile& file) { return file.Add(Record('d').data()); }, "abcd", 'h'},
        {"Put", [](CRecFile& file) { return file.Put(1, Record('d').data()); }, "adc", 'h'},
        {"PutHeader", [](CRecFile& file) { return file.PutHeader(std::string(c_headerSize, 'H').data()); }, "abc", 'H'},
        {"ReplaceAll", [](CRecFile& file) { return file.ReplaceAll((Record('x') + Record('y')).data(), 2); }, "xy", 'h'},
    };
    const std::string oldHeader(c_headerSize, 'h');
    Fill("abc");
    Open().PutHeader(oldHeader.data());
    const auto before = nal_test::ReadFile(m_path);
    for (const auto& test : cases) {
        const std::string newHeader(c_headerSize, test.header);
        const auto expectOldOrNew = [&](bool mustBeOld, const std::string& where) {
            const std::string records = Show();
            const std::string header = Header();
            const bool isOld = records == "abc" && header == oldHeader;
            EXPECT_TRUE(isOld || (!mustBeOld && records == test.records && header == newHeader))
                << test.name << " " << where << ": " << records << " " << header;
            // The next change works on it.
            CRecFile file = Open(CRecFile::c_write);
            EXPECT_TRUE(file.Add(Record('z').data()));
            EXPECT_EQ(records + "z", Show());
        };
        too_testing::ResetSteps();
        CRecFile changed = Open();
        ASSERT_TRUE(test.change(changed));
        const unsigned steps = too_testing::GetStepCount();
        ASSERT_GE(steps, 4U);
        for (unsigned nth = 1; nth <= steps; ++nth) {
            nal_test::WriteFile(m_path, before);
            EXPECT_EQ(ChildEnd::killed, nal_test::RunInChild([&] {
                          CRecFile file = Open();
                          too_testing::KillAtStep(nth);
                          test.change(file);
                      }));
            expectOldOrNew(false, "killed at " + std::to_string(nth));

            for (const unsigned count : {1U, 0U}) {
                nal_test::WriteFile(m_path, before);
                CRecFile file = Open();
                bool done = false;
                {
                    const too_testing::ScopedStepFailure full(nth, ENOSPC, count);
                    done = test.change(file);
                }
                EXPECT_TRUE(done || file.GetReturnCode() == TOO_E_DISK_FULL) << file.GetReturnText();
                // Only a step after the rename fails with the change made.
                const bool mustBeOld = !done && count == 1 && !(test.records == "xy" && nth == steps);
                expectOldOrNew(mustBeOld, "failed at " + std::to_string(nth));
            }
        }
    }
}

TEST_F(RecFile, ProcessesShareAFile) {
    constexpr int processes = 4;
    constexpr int records = 20;
    std::list<nal_test::Child> children;
    for (int process = 0; process < processes; ++process) {
        children.emplace_back([&, process] { Fill(std::string(records, static_cast<char>('a' + process))); });
    }
    for (auto& child : children) EXPECT_EQ(ChildEnd::success, child.Wait());
    const std::string shown = Show();
    for (int process = 0; process < processes; ++process) {
        EXPECT_EQ(records, std::count(shown.begin(), shown.end(), static_cast<char>('a' + process)));
    }
}

}  // namespace
