#include "asnt/records.h"

#include <gtest/gtest.h>

#include "support/hex.h"
#include "support/status_of.h"
#include "too/status.h"
#include "too/time.h"

namespace {

using asnt::View;
using nal_test::FromHexText;
using nal_test::StatusOf;

// Gives the whole of the bytes to a record; how many it took.
template <class Record>
std::size_t Read(Record& record, const IdentObj& bytes) {
    return record.ReadData(bytes.GetData(), bytes.GetSize());
}

IdentObj TimeBytes(std::uint64_t ticks) {
    const CTOOFileTime time(ticks);
    return IdentObj(&time, sizeof(FILETIME));
}

// Content to record and back: the encoded form, the record, both ways.
TEST(BaseRecord, ConvertsContentByItsType) {
    const struct {
        const char* name;
        const char* encoded;
        IdentObj record;
    } cases[] = {
        {"integer, least significant first, sign octet kept", "020300FF01", FromHexText("01FF00")},
        {"enumerated", "0A0105", FromHexText("05")},
        {"octets as they stand", "0403010203", FromHexText("010203")},
        {"bit string with its count", "030205E0", FromHexText("05E0")},
        {"oid as it stands", "06022A03", FromHexText("2A03")},
        {"utc time", "170D3730303130313030303030305A", TimeBytes(116444736000000000)},
        {"generalized time", "180F32303530303130313030303030305A", TimeBytes(141690816000000000)},
        {"context-specific 2 is no integer", "82020102", FromHexText("0102")},
    };
    for (const auto& c : cases) {
        const IdentObj encoded = FromHexText(c.encoded);
        CASNTBaseRecord read;
        ASSERT_EQ(Read(read, encoded), encoded.GetSize()) << c.name;
        EXPECT_EQ(read.GetRecord(), c.record) << c.name;

        CASNTBaseRecord built;
        built.SetTag(read.GetTag(), read.GetIsConstraction(), read.GetClass());
        built.SetEntry(c.record);
        EXPECT_EQ(built.GetEncodedRecord(), encoded) << c.name;
    }
}

TEST(BaseRecord, RefusesValuesThatTheTypeDoesNotHave) {
    for (const char* hex : {"0200", "02020001", "1702303A", "170D3930303233303030303030305A"}) {
        CASNTBaseRecord record;
        ASSERT_NE(Read(record, FromHexText(hex)), 0u) << hex;
        EXPECT_EQ(StatusOf([&] { record.GetRecord(); }), TOO_E_BAD_STRUCTURE) << hex;
    }
    CASNTBaseRecord record;
    record.SetTag(2);
    record.SetEntry(FromHexText("01"));
    EXPECT_EQ(StatusOf([&] { record.SetEntry(IdentObj()); }), TOO_E_ENCODE);
    record.SetTag(23);
    EXPECT_EQ(StatusOf([&] { record.SetEntry(FromHexText("0102")); }), TOO_E_ENCODE);
    EXPECT_EQ(StatusOf([&] { record.SetEntry(TimeBytes(0)); }), TOO_E_ENCODE);
    EXPECT_EQ(record.GetEncodedEntry(), FromHexText("01"));
}

TEST(BaseRecord, ReadsAHeaderWithoutItsContent) {
    const IdentObj start = FromHexText("A0820400");
    CASNTBaseRecord record;
    EXPECT_EQ(record.ReadASNInfo(start.GetData(), start.GetSize()), 4u);
    EXPECT_EQ(record.GetTag(), 0u);
    EXPECT_EQ(record.GetClass(), 0x80);
    EXPECT_TRUE(record.GetIsConstraction());
    EXPECT_EQ(record.GetEntrySize(), 1024u);
    EXPECT_EQ(Read(record, start), 0u);
    EXPECT_EQ(record.ReadData(nullptr, 4), 0u);
    EXPECT_EQ(record.GetEntrySize(), 1024u) << "a failed read changes nothing";
}

TEST(ImplicitRecord, KeepsTheTypeBehindTheTag) {
    Implicit serial(2, 2);
    serial.SetEntry(FromHexText("0200"));
    EXPECT_EQ(serial.GetEncodedRecord(), FromHexText("82020002"));
    EXPECT_EQ(Read(serial, FromHexText("83020102")), 0u);
    EXPECT_EQ(Read(serial, FromHexText("82020102")), 4u);
    EXPECT_EQ(serial.GetRecord(), FromHexText("0201"));

    Implicit list(0, 16);
    list.SetEncodedEntry(FromHexText("020101"));
    EXPECT_EQ(list.GetEncodedRecord(), FromHexText("A003020101"));
}

TEST(Unit, GivesTheItemsOfATree) {
    CASNTUnit unit;
    ASSERT_EQ(Read(unit, FromHexText("300D 020105 A006 0404 01020304 3000 FF")), 15u);
    ASSERT_EQ(unit.GetItemCount(), 3u);
    EXPECT_EQ(unit.GetItem(0).GetRecord(), FromHexText("05"));
    EXPECT_EQ(unit.GetItem(0).GetItemCount(), 0u);
    EXPECT_EQ(unit.GetItem(1).GetClass(), 0x80);
    EXPECT_EQ(unit.GetItem(1).GetItem(0).GetRecord(), FromHexText("01020304"));
    EXPECT_EQ(unit.GetItem(1).GetWhole(), View(FromHexText("A006040401020304")));
    EXPECT_EQ(unit.GetItem(2).GetItemCount(), 0u);
    EXPECT_EQ(StatusOf([&] { unit.GetItem(3); }), TOO_E_RANGE);

    // An item lives on when its tree is gone.
    CASNTUnit item = unit.GetItem(1);
    unit = CASNTUnit();
    EXPECT_EQ(item.GetItem(0).GetRecord(), FromHexText("01020304"));
}

TEST(Unit, RefusesDamageAtAnyDepth) {
    for (const char* hex : {"", "30", "3003020206", "3005A003020205", "3004020105A0", "3004A0010500"}) {
        CASNTUnit unit;
        EXPECT_EQ(Read(unit, FromHexText(hex)), 0u) << hex;
        EXPECT_EQ(unit.GetItemCount(), 0u) << hex;
    }
}

TEST(Unit, JoinsPiecesUnderTheBerRulesOnly) {
    const IdentObj pieces = FromHexText("2480 0402 0102 2404 0402 0304 0400 0000");
    CASNTUnit der;
    EXPECT_EQ(Read(der, pieces), 0u);
    CASNTUnit ber(asnt::Rules::Ber);
    ASSERT_EQ(Read(ber, pieces), pieces.GetSize());
    EXPECT_EQ(ber.GetOctets(), FromHexText("01020304"));
}

TEST(Sequences, SplitAndJoin) {
    const IdentObj encoded = FromHexText("3006 020101 0401FF AA");
    std::vector<View> items;
    ASSERT_EQ(ASNTGetSequence(encoded.GetData(), encoded.GetSize(), items), 8u);
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(ASNTPutSequence(16, {items[1], items[0]}), FromHexText("3006 0401FF 020101"));
    EXPECT_EQ(ASNTPutSequence(17, {items[1], items[0]}, asnt::Order::Sorted), FromHexText("3106 020101 0401FF"));

    const IdentObj damaged = FromHexText("3005 020101 0401");
    EXPECT_EQ(ASNTGetSequence(damaged.GetData(), damaged.GetSize(), items), 0u);
    EXPECT_EQ(ASNTGetSequence(encoded.GetData(), encoded.GetSize(), items, 17), 0u);
    EXPECT_EQ(items.size(), 2u);
    asnt::Header info;
    EXPECT_EQ(ASNTGetAsnInfo(encoded.GetData(), 1, info), 0u);
    EXPECT_EQ(ASNTGetAsnInfo(encoded.GetData(), 2, info), 2u);
    EXPECT_EQ(info.contentSize, 6u);
}

TEST(IdData, ReadsWritesAndCompares) {
    const IdentObj gost = FromHexText("301C 06062A8503020213 3012 06072A850302022301 06072A850302021E01");
    CASNTIdData id;
    ASSERT_EQ(Read(id, gost), gost.GetSize());
    EXPECT_EQ(id.GetID(), "1.2.643.2.2.19");
    EXPECT_EQ(id.WriteData(), gost);
    EXPECT_EQ(id.GetObjectSize(), gost.GetSize());

    CASNAlgAddInfo parameters;
    ASSERT_EQ(Read(parameters, id.m_parameters), id.m_parameters.GetSize());
    EXPECT_EQ(parameters.GetSignOID(), "1.2.643.2.2.35.1");
    EXPECT_EQ(parameters.GetHashOID(), "1.2.643.2.2.30.1");
    EXPECT_EQ(parameters.GetEncryptOID(), "");
    EXPECT_EQ(CASNAlgAddInfo("1.2.643.2.2.35.1", "1.2.643.2.2.30.1").WriteData(), id.m_parameters);

    const CASNAlgAddInfo three("1.2.643.2.2.35.1", "1.2.643.2.2.30.1", "1.2.643.2.2.31.1");
    const IdentObj encoded = three.WriteData();
    EXPECT_EQ(encoded, FromHexText("301B 06072A850302022301 06072A850302021E01 06072A850302021F01"));
    ASSERT_EQ(Read(parameters, encoded), encoded.GetSize());
    EXPECT_EQ(parameters.GetEncryptOID(), "1.2.643.2.2.31.1");

    const CASNTIdData bare("1.2.643.2.2.19");
    EXPECT_NE(bare, id);
    EXPECT_LT(bare, id);
    EXPECT_GT(CASNTIdData("1.2.643.2.2.3"), id);
    EXPECT_EQ(bare.WriteID(), FromHexText("06062A8503020213"));
    CASNTIdData read(id);
    ASSERT_EQ(read.ReadID(bare.WriteID().GetData(), 8), 8u);
    EXPECT_EQ(read, bare);

    CASNTIdData terminated;
    terminated.m_algorithm = IdentObj("1.2.643.2.2.19", 15);
    EXPECT_EQ(terminated.WriteID(), bare.WriteID());
}

TEST(IdData, RefusesOtherShapes) {
    for (const char* hex :
         {"3000", "3003020101", "300C 06022A03 0500 0500 02 01 01", "3105 0603 2A0304", "3004 06022A83"}) {
        CASNTIdData id("1.2.3");
        EXPECT_EQ(Read(id, FromHexText(hex)), 0u) << hex;
        EXPECT_EQ(id, CASNTIdData("1.2.3")) << hex;
    }
    CASNAlgAddInfo parameters;
    EXPECT_EQ(Read(parameters, FromHexText("3004 06022A03")), 0u);
    EXPECT_EQ(StatusOf([] { CASNTIdData().WriteData(); }), TOO_E_ENCODE);
    EXPECT_EQ(StatusOf([] { CASNAlgAddInfo("1.2", "").WriteData(); }), TOO_E_ENCODE);
}

}  // namespace
