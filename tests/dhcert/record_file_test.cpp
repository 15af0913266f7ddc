#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <list>
#include <set>
#include <string>

#include "dhcert/send_record.h"
#include "nal/dh_certs.h"
#include "support/child.h"
#include "support/status_of.h"
#include "support/temp_folder.h"
#include "too/locker.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::ChildEnd;
using nal_test::FailureOf;
using nal_test::FromText;
using nal_test::StatusOf;

using File = CNALRecFileDHCert;

// Bytes before the first record: what the record file needs for records of 96 bytes behind a header of 16.
constexpr std::size_t c_before = 24 + 96 + 16;

CNALSendCertRecord Record(long flags, const std::string& key, const char* host = "00000001", std::uint64_t time = 1000) {
    CNALSendCertRecord record("0000", "0001", CTOOFileTime(time), flags, FromText(key), "name");
    record.ApID(host);
    record.TimeReceive(CTOOFileTime((flags & c_NAL_DH_INCOMING) != 0 ? time : 0));
    return record;
}

class DHRecordFile : public testing::Test {
protected:
    DHRecordFile() { setenv("NAL_HOME", m_folder.Path().c_str(), 1); }

    static std::string Show(const CNALSendCertRecord& record) {
        const IdentObj key = record.NumberKey();
        return std::string(reinterpret_cast<const char*>(key.GetData()), key.GetSize()) + ":" + std::to_string(record.Flag()) + " ";
    }
    // Every record as "key:flags ", in the order of the file.
    std::string Show() const {
        File file(m_path.c_str(), File::c_read, 96);
        std::string shown;
        for (const auto& record : file.GetPeerRecords({})) shown += Show(record);
        return shown;
    }
    static void Add(File& file, CNALSendCertRecord record) {
        record.IsIncoming() ? file.AddOnRecieve(record) : file.AddOnSend(record);
    }
    std::size_t Length() const { return std::filesystem::file_size(m_path); }

    nal_test::TempFolder m_folder;
    const std::string m_path = m_folder.File("CERTSEND.DAT");
};

TEST(DHRecordFileName, LockName) {
    EXPECT_EQ("_VAR_LIB_X_CERTSEND_DAT", File::FormLockName("/var/lib/x/certsend.dat"));
    EXPECT_EQ("C__A_B_C", File::FormLockName("c:\\a.b/c"));
    EXPECT_EQ(4095U, File::FormLockName(std::string(5000, 'a').c_str()).length());
    EXPECT_EQ("", File::FormLockName(nullptr));
}

TEST_F(DHRecordFile, LogsSendsAndReceipts) {
    const struct {
        const char* name;
        CNALSendCertRecord there, logged;
        const char* result;
    } cases[] = {
        {"the same send again", Record(0, "a"), Record(0, "a", "00000001", 2000), "a:0 "},
        {"marks are joined", Record(c_NAL_DH_ACTUAL, "a"), Record(0x100, "a"), "a:288 "},
        {"another key", Record(0, "a"), Record(0, "b"), "a:0 b:0 "},
        {"a longer key", Record(0, "a"), Record(0, "ab"), "a:0 ab:0 "},
        {"after acknowledgement", Record(c_NAL_DH_ACKNOWLEDGED, "a"), Record(0, "a"), "a:4 a:0 "},
        {"after rejection", Record(c_NAL_DH_REJECTED, "a"), Record(0, "a"), "a:8 a:0 "},
        {"another host", Record(0, "a"), Record(0, "a", "00000002"), "a:0 a:0 "},
        {"a received key", Record(1, "a"), Record(0, "a"), "a:1 a:0 "},
        {"received again", Record(1, "a"), Record(1, "a", "00000001", 2000), "a:1 "},
        {"received again after acknowledgement", Record(1 | c_NAL_DH_ACKNOWLEDGED, "a"), Record(1, "a"), "a:1 "},
        {"received again after rejection", Record(1 | c_NAL_DH_REJECTED, "a"), Record(1, "a"), "a:9 "},
        {"received from another host", Record(1, "a"), Record(1, "a", "00000002"), "a:1 a:1 "},
        {"received, sent before", Record(0, "a"), Record(1, "a"), "a:0 a:1 "},
    };
    for (const auto& test : cases) {
        std::filesystem::remove(m_path);
        File file(m_path.c_str());
        CNALSendCertRecord there = test.there;
        EXPECT_TRUE(file.CNALRecFileDHCert::Add(&there));
        CNALSendCertRecord logged = test.logged;
        const long index = logged.IsIncoming() ? file.AddOnRecieve(logged) : file.AddOnSend(logged);
        EXPECT_EQ(test.result, Show()) << test.name;
        EXPECT_EQ(index, file.FindRecord(logged)) << test.name;
        EXPECT_EQ(test.logged.TimeSend(), logged.TimeSend()) << test.name;
    }
    // Own types and networks tell entries apart; "0000" and none are one.
    std::filesystem::remove(m_path);
    File file(m_path.c_str());
    for (const char* type : {"0000", "0001", "", "0002"}) {
        CNALSendCertRecord record = Record(0, "a");
        record.ColTypeSlf(type);
        Add(file, record);
        record.ColID("0002");
        Add(file, record);
    }
    EXPECT_EQ(6, file.Size());
}

TEST_F(DHRecordFile, LogsWithThePresentTimeAndRefusesTheWrongDirection) {
    const too_testing::ScopedClock clock(CTOOFileTime(777));
    File file(m_path.c_str());
    EXPECT_EQ(CTOOFileTime(777), file.GetCreationTime());
    EXPECT_TRUE(file.IsOpenedToCreate());
    CNALSendCertRecord sent = Record(0, "a", "00000001", 0);
    CNALSendCertRecord received = Record(1, "a", "00000001", 0);
    file.AddOnSend(sent);
    file.AddOnRecieve(received);
    EXPECT_EQ(CTOOFileTime(777), sent.TimeSend());
    EXPECT_EQ(CTOOFileTime(777), received.TimeReceive());
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { file.AddOnSend(received); }));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { file.AddOnRecieve(sent); }));
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { const File other(m_path.c_str(), File::c_write, 97); }));
    EXPECT_EQ("a:0 a:1 ", Show());
    too_testing::SetClock(CTOOFileTime(888));
    EXPECT_EQ(CTOOFileTime(777), File(m_path.c_str()).GetCreationTime());
}

TEST_F(DHRecordFile, ReportsFailures) {
    {
        File file(m_path.c_str());
        Add(file, Record(0, "a"));
    }
    File reader(m_path.c_str(), File::c_read, 96);
    CNALSendCertRecord record = Record(0, "b");
    unsigned char image[96] = {};
    EXPECT_TRUE(reader.GetRecord(0, image));
    EXPECT_EQ(Record(0, "a"), CNALSendCertRecord(image));
    EXPECT_FALSE(reader.GetRecord(1, image));
    EXPECT_FALSE(reader.GetRecord(-1, image));
    EXPECT_EQ(Record(0, "a"), CNALSendCertRecord(image));
    EXPECT_EQ(FailureOf([&] { reader.AddOnSend(record); }),
              "3 File=<" + m_path + "> Finction=<Add record> Adv=<00000001> Size=1 Mode=0 Rc=3");
    File file(m_path.c_str(), File::c_write, 96);
    EXPECT_EQ(FailureOf([&] { file.Put(17, &record); }),
              "37 File=<" + m_path + "> Finction=<Put record> Adv=<00000011> Size=1 Mode=1 Rc=37");
    {
        const too_testing::ScopedStepFailure full(1);
        EXPECT_EQ(TOO_E_DISK_FULL, StatusOf([&] { file.AddOnSend(record); }));
        EXPECT_EQ(TOO_E_DISK_FULL, StatusOf([&] { file.PutHeader(); }));
    }
    EXPECT_EQ("a:0 ", Show());
    EXPECT_EQ(TOO_E_BAD_ARGUMENT, StatusOf([&] { file.Add(nullptr); }));
    std::filesystem::remove(m_path);
    EXPECT_EQ(TOO_E_FILE_NOT_FOUND, StatusOf([&] { file.IsReceivedKey({}, FromText("a")); }));
}

TEST_F(DHRecordFile, LookUpsAndFilters) {
    File file(m_path.c_str());
    for (const CNALSendCertRecord& record :
         {Record(0, "a"), Record(c_NAL_DH_ACKNOWLEDGED, "b"), Record(c_NAL_DH_REJECTED, "c", "0000000A"), Record(1, "d"),
          Record(1 | c_NAL_DH_REJECTED, "e"), Record(1 | c_NAL_DH_ACTUAL, "longer than eight", "0000000A")}) {
        Add(file, record);
    }
    const CNALSendCertRecord out = Record(0, "a", "0000000a");
    const CNALSendCertRecord in = Record(1, "longer than eight", "0000000a");
    const struct {
        unsigned filter;
        CNALSendCertRecord pattern;
        long count;
    } cases[] = {
        {File::c_any, out, 6},
        {File::c_byDirection, out, 3},
        {File::c_byDirection, in, 3},
        {File::c_byDirection | File::c_waiting, out, 1},
        {File::c_acknowledged, out, 1},
        {File::c_rejected, out, 2},
        {File::c_notRejected | File::c_byDirection, in, 2},
        {File::c_actual, out, 1},
        {File::c_byPeerHost, out, 2},
        {File::c_byPeer, out, 2},
        {File::c_byPeer | File::c_byKeyNumber, out, 0},
        {File::c_byOwnType | File::c_byPeerNetwork, out, 6},
        {File::c_byKeyNumber, in, 1},
        {File::c_byShortNumber, in, 1},
        {File::c_byNetFileName, in, 6},
        {File::c_byNetFileName, CNALSendCertRecord(), 0},
    };
    for (const auto& test : cases) {
        const auto filter = static_cast<File::EFilter>(test.filter);
        CDHCertSendList selected;
        EXPECT_EQ(test.count, file.Select(selected, filter, test.pattern)) << test.filter;
        CDHCertSendList filtered = file.GetList();
        EXPECT_EQ(test.count, file.FilterList(filtered, filter, test.pattern)) << test.filter;
        EXPECT_EQ(selected, filtered);
        CNALSendCertRecord found;
        EXPECT_EQ(test.count != 0, file.FindRecord(filter, test.pattern, &found) >= 0);
        EXPECT_EQ(test.count != 0, selected.count(found) != 0) << test.filter;
    }
    EXPECT_TRUE(file.IsReceivedKey({}, FromText("d")));
    EXPECT_TRUE(file.IsReceivedKey({"", "0001", "00000001"}, FromText("d")));
    EXPECT_FALSE(file.IsReceivedKey({"", "", "0000000a"}, FromText("d")));
    EXPECT_FALSE(file.IsReceivedKey({}, FromText("e"))) << "rejected";
    EXPECT_FALSE(file.IsReceivedKey({}, FromText("a"))) << "sent";
    EXPECT_TRUE(file.IsRejectWs("0000000a"));
    EXPECT_FALSE(file.IsRejectWs("00000001"));
    Add(file, Record(0, "f", "0000000A", 1000));
    EXPECT_FALSE(file.IsRejectWs("0000000a")) << "of two sends at one time the later entry counts";
}

TEST_F(DHRecordFile, Marks) {
    File file(m_path.c_str());
    const std::string key = "12345678abcd";
    const unsigned shortNumber = Record(0, key).ShortNumber();
    Add(file, Record(0, key, "00000001"));
    Add(file, Record(0, key, "00000002"));
    Add(file, Record(1, key, "00000001"));
    Add(file, Record(0, "other", "00000001"));
    EXPECT_EQ(2, file.MarkFromPacket(shortNumber, 0x100));
    EXPECT_EQ(0, file.MarkFromPacket(0, 0x100));
    EXPECT_EQ(key + ":256 " + key + ":256 " + key + ":1 other:0 ", Show());
    EXPECT_EQ(1, file.MarkRecipient({"", "", "00000002"}, FromText(key), c_NAL_DH_REJECTED));
    EXPECT_EQ(1, file.MarkRecipient({"", "0001", ""}, FromText(key), c_NAL_DH_ACKNOWLEDGED));
    EXPECT_EQ(key + ":260 " + key + ":264 " + key + ":1 other:0 ", Show());
    EXPECT_TRUE(file.DeleteRecordFlag(1, 0x108));
    EXPECT_TRUE(file.AddRecordFlag(3, c_NAL_DH_ACTUAL));
    EXPECT_FALSE(file.AddRecordFlag(4, 1));
    EXPECT_FALSE(file.DeleteRecordFlag(-1, 1));
    EXPECT_EQ(key + ":260 " + key + ":0 " + key + ":1 other:32 ", Show());
    // The actual mark moves within one peer and direction only.
    EXPECT_TRUE(file.MarkActual(1));
    EXPECT_TRUE(file.MarkActual(2));
    EXPECT_TRUE(file.MarkActual(0));
    EXPECT_EQ(key + ":292 " + key + ":32 " + key + ":33 other:0 ", Show());
    EXPECT_FALSE(file.MarkActual(9));

    // Another process's marks are seen, and none of them is lost to this one's.
    EXPECT_EQ(ChildEnd::success, nal_test::RunInChild([&] {
                  File other(m_path.c_str(), File::c_write, 96);
                  other.AddRecordFlag(3, c_NAL_DH_REJECTED);
              }));
    EXPECT_TRUE(file.AddRecordFlag(3, c_NAL_DH_ACKNOWLEDGED));
    EXPECT_EQ(key + ":292 " + key + ":32 " + key + ":33 other:12 ", Show());
}

TEST_F(DHRecordFile, ClearInfo) {
    const struct {
        CNALSendCertRecord record;
        bool stays;
    } cases[] = {
        {Record(0, "waiting", "00000001", 100), true},
        {Record(c_NAL_DH_REJECTED, "rejected", "00000001", 500), false},
        {Record(c_NAL_DH_ACKNOWLEDGED, "old", "00000001", 200), false},
        {Record(c_NAL_DH_ACKNOWLEDGED | c_NAL_DH_ACTUAL, "actual", "00000001", 200), true},
        {Record(c_NAL_DH_ACKNOWLEDGED, "latest", "00000001", 300), true},
        {Record(1, "first", "00000001", 100), false},
        {Record(1, "second", "00000001", 200), true},
        {Record(1, "only", "00000002", 100), true},
        {Record(1 | c_NAL_DH_REJECTED, "new", "00000002", 2000), true},
        {Record(c_NAL_DH_ACKNOWLEDGED, "a", "00000003", 500), true},
        {Record(c_NAL_DH_ACKNOWLEDGED, "b", "00000003", 500), true},
    };
    File file(m_path.c_str());
    std::string left;
    long gone = 0;
    for (const auto& test : cases) {
        CNALSendCertRecord record = test.record;
        file.CNALRecFileDHCert::Add(&record);
        if (test.stays) {
            left += Show(record);
        } else {
            ++gone;
        }
    }
    EXPECT_EQ(gone, file.ClearInfo(CTOOFileTime(1000)));
    EXPECT_EQ(left, Show());
    EXPECT_EQ(0, file.ClearInfo(CTOOFileTime(1000)));
    EXPECT_EQ(4, file.ClearInfo(SNALDHPeer{"", "0001", "00000001"}));
    EXPECT_EQ("only:1 new:9 a:4 b:4 ", Show());
    EXPECT_EQ(4, file.ClearInfo(SNALDHPeer{"0000", "", ""}));
    EXPECT_EQ(0, file.Size());
}

TEST_F(DHRecordFile, ListsAreBroughtInWithoutUndoingOthers) {
    File file(m_path.c_str());
    Add(file, Record(0, "a"));
    Add(file, Record(0, "b"));
    Add(file, Record(0, "c"));
    EXPECT_EQ(3U, file.GetList().size());
    // Meanwhile another one adds a record and changes one.
    File other(m_path.c_str(), File::c_write, 96);
    Add(other, Record(0, "d"));
    other.AddRecordFlag(2, c_NAL_DH_ACKNOWLEDGED);

    file.GetList().erase(Record(0, "a"));
    file.GetList().insert(Record(0, "e"));
    EXPECT_EQ(1, file.PutList());
    EXPECT_EQ("a:0 b:0 c:4 d:0 e:0 ", Show());
    EXPECT_EQ(5U, file.GetList().size());

    file.GetList().erase(Record(0, "a"));
    file.GetList().erase(Record(0, "b"));
    file.GetList().insert(Record(0, "f"));
    Add(other, Record(0, "g"));
    EXPECT_EQ(5, file.SaveList());
    EXPECT_EQ("c:4 d:0 e:0 g:0 f:0 ", Show());

    CDHCertSendList list;
    list.insert(Record(0, "only"));
    file.SetList(list);
    Add(other, Record(0, "h"));
    EXPECT_EQ(2, file.SaveList());
    EXPECT_EQ("h:0 only:0 ", Show());
    file.GetList().clear();
    EXPECT_EQ(2, file.ReRead());
    EXPECT_EQ(2U, file.GetList().size());
}

TEST_F(DHRecordFile, CorrectsErrors) {
    const auto with = [](unsigned offset, unsigned char value) {
        SENDCERT_RECORD image = Record(0, "key").GetImage();
        image.m_bytes[offset] = value;
        return CNALSendCertRecord(image.m_bytes);
    };
    const CNALSendCertRecord good = Record(0, "good");
    CNALSendCertRecord shortOnly;
    shortOnly.ShortNumber(5);
    SENDCERT_RECORD strayImage{};
    strayImage.m_bytes[95] = 1;
    const CNALSendCertRecord stray(strayImage.m_bytes);
    const struct {
        const char* name;
        CNALSendCertRecord record;
        std::vector<CNALSendCertRecord> result;
        long corrected;
    } cases[] = {
        {"sound", Record(1, "key"), {good, Record(1, "key")}, 0},
        {"a short number alone", shortOnly, {good, shortOnly}, 0},
        {"odd identifiers", with(4, 'z'), {good, with(4, 'z')}, 0},
        {"a copy", good, {good}, 1},
        {"zeros", CNALSendCertRecord(), {good}, 1},
        {"zeros but for a byte that does not belong", stray, {good}, 1},
        {"bytes behind the key", with(60, 1), {good, Record(0, "key")}, 1},
        {"bytes behind the name", with(85, 1), {good, Record(0, "key")}, 1},
        {"a name without an end", with(91, 1), {good, Record(0, "key")}, 1},
        {"the last word", with(94, 1), {good, Record(0, "key")}, 1},
    };
    for (const auto& test : cases) {
        std::filesystem::remove(m_path);
        File file(m_path.c_str());
        CNALSendCertRecord first = good;
        CNALSendCertRecord second = test.record;
        file.CNALRecFileDHCert::Add(&first);
        file.CNALRecFileDHCert::Add(&second);
        EXPECT_EQ(0, File(m_path.c_str(), File::c_read, 96).CorrectErrors(0));
        EXPECT_EQ(0, file.CorrectErrors(File::c_getRecord));
        EXPECT_EQ(test.corrected, file.CorrectErrors(0)) << test.name;
        EXPECT_TRUE(test.result == file.GetPeerRecords({})) << test.name << ": " << Show();
        EXPECT_EQ(0, file.CorrectErrors(File::c_addRecord)) << test.name;
    }
    // A key length above 32.
    File file(m_path.c_str());
    SENDCERT_RECORD image = Record(0, std::string(32, 'k')).GetImage();
    image.m_bytes[43] = 0x7F;
    file.CNALRecFileDHCert::Add(&image);
    EXPECT_EQ(1, file.CorrectErrors(0));
    EXPECT_EQ(2, file.FindRecord(Record(0, std::string(32, 'k'))));
}

// The file ends at any byte of a record: what is whole is read, the rest never, and CorrectErrors cuts it off.
TEST_F(DHRecordFile, TornRecords) {
    {
        File file(m_path.c_str());
        for (const char* key : {"a", "b"}) Add(file, Record(0, key));
    }
    const auto whole = nal_test::ReadFile(m_path);
    ASSERT_EQ(c_before + 192, whole.size());
    for (const std::size_t tail : {0U, 1U, 48U, 95U, 96U, 97U, 191U}) {
        nal_test::WriteFile(m_path, whole.data(), c_before + tail);
        const long records = static_cast<long>(tail / 96);
        File file(m_path.c_str(), File::c_write, 96);
        EXPECT_EQ(records, file.Size()) << tail;
        EXPECT_EQ(static_cast<std::size_t>(records), file.GetList().size()) << tail;
        unsigned char image[96];
        EXPECT_FALSE(file.GetRecord(records, image)) << tail;
        // Reading beyond the end has put the file right.
        EXPECT_EQ(c_before + 96 * static_cast<std::size_t>(records), Length()) << tail;
        EXPECT_EQ(records == 1 ? "a:0 " : "", Show()) << tail;
        Add(file, Record(0, "c"));
        EXPECT_EQ(records == 1 ? "a:0 c:0 " : "c:0 ", Show()) << tail;
    }
}

// Files of a few bytes: the beginning of a record file is made whole, anything else is refused and left alone.
TEST_F(DHRecordFile, ShortFiles) {
    { const File file(m_path.c_str()); }
    const auto made = nal_test::ReadFile(m_path);
    for (const std::size_t length : {0U, 95U, 96U, 97U}) {
        nal_test::WriteFile(m_path, made.data(), length);
        EXPECT_EQ(TOO_E_BAD_STRUCTURE, StatusOf([&] { const File file(m_path.c_str(), File::c_read, 96); })) << length;
        EXPECT_EQ(length, Length());
        {
            File file(m_path.c_str());
            EXPECT_EQ(0, file.Size()) << length;
            Add(file, Record(0, "a"));
        }
        EXPECT_EQ("a:0 ", Show()) << length;

        const std::string other(length, 'x');
        nal_test::WriteFile(m_path, other);
        if (length == 0) continue;
        EXPECT_EQ(TOO_E_BAD_STRUCTURE, StatusOf([&] { const File file(m_path.c_str()); })) << length;
        EXPECT_EQ(nal_test::Text(other), nal_test::ReadFile(m_path));
    }
    // A later version.
    auto later = made;
    later[c_before - 8] = 2;
    nal_test::WriteFile(m_path, later);
    EXPECT_EQ(TOO_E_BAD_STRUCTURE, StatusOf([&] { const File file(m_path.c_str()); }));
    EXPECT_EQ(later, nal_test::ReadFile(m_path));
}

TEST_F(DHRecordFile, AHundredThousandRecords) {
    constexpr long count = 100000;
    const auto make = [](long i) { return Record(i % 2, "key " + std::to_string(i), i % 3 == 0 ? "00000003" : "00000001"); };
    IdentObj records;
    for (long i = 0; i < count; ++i) records.Append(make(i).GetData(), CNALSendCertRecord::c_size);
    {
        File file(m_path.c_str());
        ASSERT_TRUE(file.ReplaceAll(records.GetData(), count));
    }
    File file(m_path.c_str());
    EXPECT_EQ(count, file.Size());
    for (const long i : {0L, 1L, count / 2, count - 1}) EXPECT_EQ(i, file.FindRecord(make(i)));
    EXPECT_TRUE(file.IsReceivedKey({"0000", "0001", "00000003"}, FromText("key " + std::to_string(count - 1))));
    EXPECT_FALSE(file.IsReceivedKey({"0000", "0001", "00000001"}, FromText("key " + std::to_string(count - 1))));
    EXPECT_EQ(static_cast<std::size_t>(count + 2) / 3, file.GetPeerRecords({"", "", "00000003"}).size());
    Add(file, make(count - 1));  // received again: the last record, no further one
    Add(file, Record(0, "new"));
    EXPECT_EQ(count + 1, file.Size());
    EXPECT_EQ(c_before + (count + 1) * CNALSendCertRecord::c_size, Length());
}

// Four processes log the same keys at once, some by a relative path: each is there once, none is missing.
TEST_F(DHRecordFile, FourProcessesLogIntoOneFile) {
    constexpr int processes = 4;
    constexpr int own = 40;
    constexpr int shared = 20;
    {
        std::list<nal_test::Child> children;
        for (int process = 0; process < processes; ++process) {
            children.emplace_back([this, process] {
                std::filesystem::current_path(m_folder.Path());
                File file(process % 2 == 0 ? m_path.c_str() : "./CERTSEND.DAT");
                for (int i = 0; i < own; ++i) {
                    Add(file, Record(i % 2, "own " + std::to_string(process) + " " + std::to_string(i)));
                    if (i % 2 == 0) Add(file, Record(i / 2 % 2, "shared " + std::to_string(i / 2)));
                    if (i % 10 == 9) {
                        file.GetList().insert(Record(0, "list " + std::to_string(process) + " " + std::to_string(i)));
                        file.SaveList();
                    }
                }
            });
        }
        for (auto& child : children) EXPECT_EQ(ChildEnd::success, child.Wait());
    }
    File file(m_path.c_str());
    EXPECT_EQ(processes * (own + own / 10) + shared, file.Size());
    EXPECT_EQ(static_cast<std::size_t>(file.Size()), file.GetList().size()) << "no two are equal";
    std::set<std::string> keys;
    for (const auto& record : file.GetPeerRecords({})) keys.insert(Show(record));
    EXPECT_EQ(static_cast<std::size_t>(file.Size()), keys.size()) << "no key is there twice";
    EXPECT_EQ(0, file.CorrectErrors(0));
}

// A process is killed at each step of each change, or its disk is full there; the next one finds the file as it was
// before or after the change, and goes on.
TEST_F(DHRecordFile, AChangeIsWholeWhereverItStops) {
    const struct {
        const char* name;
        std::function<void(File&)> change;
        const char* result;
    } cases[] = {
        {"AddOnSend, new", [](File& file) { Add(file, Record(0, "c")); }, "a:0 b:1 c:0 "},
        {"AddOnSend, entry", [](File& file) { Add(file, Record(0x100, "a")); }, "a:256 b:1 "},
        {"AddOnRecieve, entry", [](File& file) { Add(file, Record(0x101, "b")); }, "a:0 b:257 "},
        {"AddRecordFlag", [](File& file) { file.AddRecordFlag(1, 8); }, "a:0 b:9 "},
        {"SaveList",
         [](File& file) { file.GetList().erase(Record(0, "a")), file.GetList().insert(Record(0, "x")), file.SaveList(); },
         "b:1 x:0 "},
        {"ClearInfo", [](File& file) { file.ClearInfo(SNALDHPeer{}); }, ""},
    };
    const std::string before = "a:0 b:1 ";
    {
        File file(m_path.c_str());
        Add(file, Record(0, "a"));
        Add(file, Record(1, "b"));
    }
    const auto image = nal_test::ReadFile(m_path);
    for (const auto& test : cases) {
        too_testing::ResetSteps();
        nal_test::WriteFile(m_path, image);
        {
            File file(m_path.c_str());
            test.change(file);
        }
        const unsigned steps = too_testing::GetStepCount();
        ASSERT_GE(steps, 3U);
        ASSERT_EQ(test.result, Show());
        for (unsigned nth = 1; nth <= steps; ++nth) {
            const auto expectWhole = [&](const char* how) {
                const std::string shown = Show();
                EXPECT_TRUE(shown == before || shown == test.result) << test.name << " " << how << " " << nth << shown;
                File next(m_path.c_str());
                EXPECT_EQ(0, next.CorrectErrors(0));
                EXPECT_EQ(c_before + 96 * static_cast<std::size_t>(next.Size()), Length());
                Add(next, Record(0, "next"));
                EXPECT_EQ(shown + "next:0 ", Show());
            };
            nal_test::WriteFile(m_path, image);
            EXPECT_EQ(ChildEnd::killed, nal_test::RunInChild([&] {
                          File file(m_path.c_str());
                          too_testing::KillAtStep(nth);
                          test.change(file);
                      }));
            expectWhole("killed at");
            nal_test::WriteFile(m_path, image);
            {
                File file(m_path.c_str());
                const too_testing::ScopedStepFailure full(nth);
                const int status = StatusOf([&] { test.change(file); });
                EXPECT_TRUE(status == TOO_OK || status == TOO_E_DISK_FULL) << status;
            }
            expectWhole("full at");
        }
    }
}

// The lock that guards the file is the one that its name says, so other parts of the host can take it too.
TEST_F(DHRecordFile, ChangesWaitForTheLock) {
    File file(m_path.c_str());
    EXPECT_EQ(File::FormLockName(std::filesystem::canonical(m_path).c_str()), file.GetLockName());
    auto lock = IPC::CreateWriteLockerDeprecated(file.GetLockName());
    nal_test::Child child([&] {
        File other(m_path.c_str());
        Add(other, Record(0, "later"));
    });
    Add(file, Record(0, "first"));
    EXPECT_EQ("first:0 ", Show());
    lock.reset();
    EXPECT_EQ(ChildEnd::success, child.Wait());
    EXPECT_EQ("first:0 later:0 ", Show());
}

}  // namespace
