#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "dhcert/send_record.h"
#include "nal/dh_certs.h"
#include "support/hex.h"
#include "too/status.h"
#include "too/testing.h"

namespace {

using nal_test::FromHex;
using nal_test::FromText;
using nal_test::ToHex;

std::string Image(const CNALSendCertRecord& record) {
    return ToHex(record.GetData(), CNALSendCertRecord::c_size);
}

// Each setter writes its own bytes of a record of zeros, and no others.
TEST(SendCertRecord, OffsetsOfTheFields) {
    const struct {
        const char* name;
        void (*set)(CNALSendCertRecord&);
        unsigned offset;
        const char* bytes;
    } cases[] = {
        {"own type", [](auto& r) { r.ColTypeSlf("12Af"); }, 0, "31324166"},
        {"own type cut", [](auto& r) { r.ColTypeSlf("12AfX"); }, 0, "31324166"},
        {"network", [](auto& r) { r.ColID("00Ff"); }, 4, "30304666"},
        {"network, other name", [](auto& r) { r.ColType("1a"); }, 4, "31610000"},
        {"network as a number", [](auto& r) { r.ColTypeW(0x2B); }, 4, "30303242"},
        {"host", [](auto& r) { r.ApID("0123abcdX"); }, 8, "3031323361626364"},
        {"host as a number", [](auto& r) { r.DwApID(0xBEEF); }, 8, "3030303042454546"},
        {"8 bytes of identifier", [](auto& r) { r.SetID(FromText("00000007")); }, 8, "3030303030303037"},
        {"12 bytes of identifier", [](auto& r) { r.SetID(FromText("002a00000007")); }, 4, "303032613030303030303037"},
        {"time sent", [](auto& r) { r.TimeSend(CTOOFileTime(0x1122334455667788)); }, 16, "8877665544332211"},
        {"time received", [](auto& r) { r.TimeReceive(CTOOFileTime(0x1122334455667788)); }, 24, "8877665544332211"},
        {"flags", [](auto& r) { r.Flag(-2); }, 32, "feffffffffffffff"},
        {"key number", [](auto& r) { r.NumberKey(FromText("\x01\x02")); }, 40, "020000000102"},
        {"short number", [](auto& r) { r.ShortNumber(0xA1B2C3D4); }, 52, "d4c3b2a1"},
        {"file name", [](auto& r) { r.NetFileName("a.cer"); }, 76, "612e636572"},
        {"file name cut", [](auto& r) { r.NetFileName("01234567890123456789"); }, 76, "303132333435363738393031323334"},
    };
    for (const auto& test : cases) {
        CNALSendCertRecord record;
        test.set(record);
        nal_test::Bytes expected(CNALSendCertRecord::c_size, 0);
        const auto bytes = FromHex(test.bytes);
        std::copy(bytes.begin(), bytes.end(), expected.begin() + test.offset);
        EXPECT_EQ(ToHex(expected), Image(record)) << test.name;
        // Over a record that is full, the rest stays.
        CNALSendCertRecord full(nal_test::Bytes(CNALSendCertRecord::c_size, 0xEE).data());
        test.set(full);
        EXPECT_EQ(0, std::memcmp(full.GetImage().m_bytes + test.offset, bytes.data(), bytes.size())) << test.name;
        EXPECT_EQ(0xEE, full.GetImage().m_bytes[CNALSendCertRecord::c_size - 1]) << test.name;
    }
}

TEST(SendCertRecord, Constructors) {
    EXPECT_EQ(std::string(192, '0'), Image(CNALSendCertRecord()));
    const too_testing::ScopedClock clock(CTOOFileTime(500));
    const CTOOFileTime sent(400);
    const CNALSendCertRecord out("0001", "002A", sent, c_NAL_DH_ACKNOWLEDGED, FromText("key"), "name");
    EXPECT_EQ(CTOOFileTime(0), out.TimeReceive());
    EXPECT_EQ(sent, out.TimeSend());
    EXPECT_TRUE(out.IsOutgoing() && out.IsWasKvit() && !out.IsReject() && !out.IsActual());
    EXPECT_EQ("name", out.NetFileName());
    EXPECT_EQ(FromText("key"), out.NumberKey());
    const CNALSendCertRecord in(nullptr, nullptr, sent, c_NAL_DH_INCOMING | c_NAL_DH_ACTUAL, IdentObj(), nullptr);
    EXPECT_EQ(CTOOFileTime(500), in.TimeReceive());
    EXPECT_TRUE(in.IsIncoming() && in.IsActual());
    EXPECT_EQ(CTOODateTime(CTOOFileTime(500)), in.TimeRcv());
}

TEST(SendCertRecord, KeyNumberAndShortNumberShareBytes) {
    CNALSendCertRecord record;
    record.NumberKey(FromText("0123456789abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(FromText("0123456789abcdefghijklmnopqrstuv"), record.NumberKey());
    EXPECT_EQ(0x62613938U, record.ShortNumber());  // "89ab", least significant first
    record.ShortNumber(0x5A5A5A5A);
    EXPECT_EQ(FromText("01234567ZZZZcdefghijklmnopqrstuv"), record.NumberKey());
    record.NumberKey(FromText("short"));
    EXPECT_EQ(0U, record.ShortNumber());
    EXPECT_EQ(FromText("short"), record.NumberKey());
}

TEST(SendCertRecord, TextFieldsAndIdentifiers) {
    CNALSendCertRecord record;
    // "0000" and none are one own type; letters count in either case.
    EXPECT_TRUE(record.IsNullCol() && record.IsSameCTSlf("0000"));
    record.ColTypeSlf("0000");
    EXPECT_TRUE(record.IsNullCol() && record.IsSameCTSlf(""));
    record.ColTypeSlf("00a0");
    EXPECT_TRUE(!record.IsNullCol() && record.IsSameCTSlf("00A0") && !record.IsSameCTSlf("00A1"));

    IdentObj id;
    record.DwApID(0x1234ABCD);
    record.GetID(id);
    EXPECT_EQ(FromText("1234ABCD"), id);
    record.ColTypeW(0xF00F);
    record.GetID(id);
    EXPECT_EQ(FromText("F00F1234ABCD"), id);
    EXPECT_FALSE(record.SetID(FromText("123456789")) || record.SetID(IdentObj()));
    EXPECT_TRUE(record.IsSameColID("f00f") && record.IsSameColType("F00F") && record.IsSameApID("1234abcd"));
    EXPECT_EQ(0xF00F, record.ColTypeW());
    EXPECT_EQ(0x1234ABCDU, record.DwApID());
    record.ColID("zz");
    EXPECT_EQ(0, record.ColTypeW());
    record.NetFileName("01234567890123456789");
    EXPECT_EQ("012345678901234", record.NetFileName());
    EXPECT_FALSE(record.IsSameNetFileName("01234567890123456789"));
    record.AddFlag(0x28);
    record.DelFlag(0x8);
    EXPECT_EQ(0x20, record.Flag());
}

// Bytes from a file may be anything: nothing is read beyond a field.
TEST(SendCertRecord, ArbitraryBytes) {
    const CNALSendCertRecord record(nal_test::Bytes(CNALSendCertRecord::c_size, 0xFF).data());
    EXPECT_EQ(32U, record.NumberKey().GetSize());
    EXPECT_EQ(15U, record.NetFileName().length());
    EXPECT_EQ(4U, record.ColID().length());
    EXPECT_EQ(8U, record.ApID().length());
    EXPECT_EQ(0U, record.DwApID());
    EXPECT_THROW(record.TimeSnd(), XTOOStatus);
    const CNALSendCertRecord correct(nal::CorrectRecord(record.GetImage()).m_bytes);
    EXPECT_EQ(record.NumberKey(), correct.NumberKey());
    EXPECT_EQ(std::string("20000000"), Image(correct).substr(80, 8));
    EXPECT_EQ(std::string("0000000000"), Image(correct).substr(182));
}

TEST(DHCertSendList, Find) {
    CDHCertSendList list;
    const auto add = [&](const char* type, long flags, const char* key, const char* name) {
        list.insert(CNALSendCertRecord(type, "0001", CTOOFileTime(1), flags, FromText(key), name));
    };
    add("0001", c_NAL_DH_INCOMING, "k1", "File.cer");
    add("0002", 0, "k2", "file.CER");
    add("0003", 0, "k1", "other.cer");
    EXPECT_EQ("0001", list.Find("FILE.cer")->ColTypeSlf());
    EXPECT_EQ(nullptr, list.Find("file"));
    EXPECT_EQ(nullptr, list.Find(nullptr));
    EXPECT_EQ("0002", list.Find(false, "FILE.cer", IdentObj())->ColTypeSlf());
    EXPECT_EQ("0003", list.Find(false, nullptr, FromText("k1"))->ColTypeSlf());
    EXPECT_EQ(nullptr, list.Find(true, "file.cer", FromText("k2")));
}

}  // namespace
