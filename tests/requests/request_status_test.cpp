#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "nal/request_files.h"
#include "support/hex.h"
#include "support/temp_folder.h"
#include "too/status.h"

namespace {

// A record with a value of its own in every field.
CNALCertRequestStatus Full(DWORD format = CNALCertRequestStatus::c_formatWithOptional) {
    CNALCertRequestStatus record;
    record.m_requestType = 0x01010101;
    record.m_format = format;
    record.m_requestId = nal_test::FromText("A");
    record.m_subjectName = nal_test::FromText("BB");
    record.m_userName = nal_test::FromText("");
    record.m_status = 2;
    record.m_certificateNumber = 3;
    record.m_flags = 4;
    record.m_timeMade = CTOOFileTime(5);
    record.m_timeSent = CTOOFileTime(6);
    record.m_timeAnswered = CTOOFileTime(7);
    record.m_timeReceived = CTOOFileTime(8);
    record.m_timeInstalled = CTOOFileTime(9);
    record.m_certificateSerial = nal_test::FromText("X");
    record.m_certificateIssuer = nal_test::FromText("Y");
    record.m_subjectKeyId = nal_test::FromText("Z");
    record.m_comment = nal_test::FromText("C");
    return record;
}

IdentObj Encode(const CNALCertRequestStatus& record) {
    IdentObj bytes;
    bytes.SetSize(record.GetObjectSize());
    EXPECT_EQ(bytes.GetSize(), record.WriteData(bytes.GetData(), bytes.GetSize()));
    return bytes;
}

TEST(RequestStatus, BinaryForm) {
    const std::string start =
        "01010101 02000100 01000000 41 02000000 4242 00000000 02000000 03000000 04000000 0500000000000000 0600000000000000"
        "0700000000000000 0800000000000000 0900000000000000";
    const std::string optional = "01000000 58 01000000 59 01000000 5a";
    const std::string end = "01000000 43";
    const IdentObj with = Encode(Full());
    EXPECT_EQ(nal_test::FromHexText(start + optional + end), with);
    const IdentObj without = Encode(Full(0x10001));
    EXPECT_EQ(nal_test::FromHexText("01010101 01000100" + start.substr(17) + end), without);
    EXPECT_EQ(60U + 4 * 4, CNALCertRequestStatus().GetObjectSize());

    CNALCertRequestStatus read;
    EXPECT_EQ(with.GetSize(), read.ReadData(with.GetData(), with.GetSize()));
    EXPECT_EQ(with, Encode(read));
    EXPECT_EQ(nal_test::FromText("Z"), read.m_subjectKeyId);
    EXPECT_EQ(without.GetSize(), read.ReadData(without.GetData(), without.GetSize()));
    EXPECT_TRUE(read.m_subjectKeyId.IsEmpty());
}

TEST(RequestStatus, TooLittleRoomOrTooFewBytes) {
    const IdentObj whole = Encode(Full());
    IdentObj room;
    room.SetSize(whole.GetSize() + 7);
    EXPECT_EQ(0U, Full().WriteData(nullptr, 1000));
    EXPECT_EQ(0U, Full().WriteData(room.GetData(), 0));
    EXPECT_EQ(0U, Full().WriteData(room.GetData(), whole.GetSize() - 1));
    EXPECT_EQ(whole.GetSize(), Full().WriteData(room.GetData(), room.GetSize()));
    CNALCertRequestStatus read;
    read.m_flags = 77;
    EXPECT_EQ(0U, read.ReadData(nullptr, 100));
    for (unsigned size = 0; size < whole.GetSize(); ++size) {
        EXPECT_EQ(0U, read.ReadData(IdentObj(whole.GetData(), size).GetData(), size)) << size;
        EXPECT_EQ(77U, read.m_flags);
    }
    // A length that is larger than the rest, up to one that would wrap around.
    for (const unsigned char high : {0x01, 0x7F, 0xFF}) {
        IdentObj bad = whole;
        bad.GetData()[11] = high;
        EXPECT_EQ(0U, read.ReadData(bad.GetData(), bad.GetSize()));
    }
}

TEST(RequestStatus, ThroughAFile) {
    const nal_test::TempFolder folder;
    const unsigned size = Full().GetObjectSize();
    {
        CTOOFile file(folder.File("record"), "w+");
        EXPECT_EQ(size, Full().WriteData(file, size));
        EXPECT_EQ(0U, Full().WriteData(file, size - 1));
        EXPECT_EQ(size, Full().WriteData(file, size + 100));
        file.Write("x", 1);
    }
    CTOOFile file(folder.File("record"), "r");
    CNALCertRequestStatus read;
    EXPECT_EQ(0U, read.ReadData(file, size - 1));
    EXPECT_EQ(0U, file.Tell());
    EXPECT_EQ(size, read.ReadData(file, 0xFFFFFFFF));
    EXPECT_EQ(size, read.ReadData(file, size));
    EXPECT_EQ(Encode(Full()), Encode(read));
    EXPECT_EQ(0U, read.ReadData(file, size));
    EXPECT_EQ(2 * size, file.Tell());
    EXPECT_EQ(0U, Full().WriteData(file, size)) << "opened for reading";
    CTOOFile closed;
    EXPECT_EQ(0U, read.ReadData(closed, size));
}

TEST(RequestStatus, Comparison) {
    using Record = CNALCertRequestStatus;
    // Every field that counts, raised.
    const std::vector<std::function<void(Record&)>> fields = {
        [](Record& r) { r.m_requestType += 1; },
        [](Record& r) { r.m_format += 1; },
        [](Record& r) { r.m_requestId = nal_test::FromText("b"); },
        [](Record& r) { r.m_subjectName = nal_test::FromText("b"); },
        [](Record& r) { r.m_userName = nal_test::FromText("b"); },
        [](Record& r) { r.m_status += 1; },
        [](Record& r) { r.m_certificateNumber += 1; },
        [](Record& r) { r.m_flags += 1; },
        [](Record& r) { r.m_timeMade = CTOOFileTime(99); },
        [](Record& r) { r.m_timeSent = CTOOFileTime(99); },
        [](Record& r) { r.m_timeAnswered = CTOOFileTime(99); },
        [](Record& r) { r.m_timeReceived = CTOOFileTime(99); },
        [](Record& r) { r.m_timeInstalled = CTOOFileTime(99); },
        [](Record& r) { r.m_comment = nal_test::FromText("b"); },
    };
    Record all = Full();
    for (const auto& raise : fields) raise(all);
    EXPECT_TRUE(Full() < all && all > Full() && !(all < Full()) && !(Full() > all));
    for (std::size_t i = 0; i < fields.size(); ++i) {
        Record one = Full();
        Record others = Full();
        for (std::size_t k = 0; k < fields.size(); ++k) fields[k](k == i ? one : others);
        // Where one field is equal, neither is less nor greater.
        EXPECT_TRUE(one != Full() && !(Full() < one)) << i;
        EXPECT_FALSE(Full() < others || others < Full() || Full() > others || others > Full()) << i;
    }
    Record optional = Full();
    optional.m_certificateSerial = nal_test::FromText("other");
    optional.m_certificateIssuer = nal_test::FromText("other");
    optional.m_subjectKeyId = nal_test::FromText("other");
    EXPECT_TRUE(optional == Full());
    EXPECT_FALSE(optional < all && !(Full() < all));
    EXPECT_TRUE(optional < all);
}

}  // namespace
