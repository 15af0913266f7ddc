#include "asnt/writer.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "support/hex.h"
#include "support/status_of.h"
#include "too/status.h"
#include "too/time.h"

namespace {

using asnt::Order;
using asnt::View;
using asnt::Writer;
namespace tag = asnt::tag;

struct Case {
    const char* name;
    void (*write)(Writer&);
    const char* expected;
};

void Integers(Writer& writer, std::initializer_list<int> values) {
    for (const int value : values) writer.Integer(value);
}

const Case kCases[] = {
    {"empty sequence", [](Writer& w) { w.Sequence([] {}); }, "3000"},
    {"boolean", [](Writer& w) { w.Boolean(true), w.Boolean(false); }, "0101FF 010100"},
    {"null", [](Writer& w) { w.Null(); }, "0500"},
    {"integer 0", [](Writer& w) { w.Integer(0); }, "020100"},
    {"integer 127", [](Writer& w) { w.Integer(127); }, "02017F"},
    {"integer 128", [](Writer& w) { w.Integer(128); }, "02020080"},
    {"integer -128", [](Writer& w) { w.Integer(-128); }, "020180"},
    {"integer -129", [](Writer& w) { w.Integer(-129); }, "0202FF7F"},
    {"lowest integer", [](Writer& w) { w.Integer(INT64_MIN); }, "02088000000000000000"},
    {"highest unsigned", [](Writer& w) { w.Unsigned(UINT64_MAX); }, "020900FFFFFFFFFFFFFFFF"},
    {"enumerated", [](Writer& w) { w.Enumerated(6); }, "0A0106"},
    {"integer octets as they stand", [](Writer& w) { w.IntegerOctets(View("\x00\x01", 2)); }, "02020001"},
    {"integer octets reversed", [](Writer& w) { w.IntegerReversed(View("\x01\x02\x00", 3)); }, "0203000201"},
    {"oid", [](Writer& w) { w.Oid("1.2.643.2.2.3"); }, "06062A8503020203"},
    {"unused bits are cleared", [](Writer& w) { w.BitString(View("\xA5\xFF", 2), 5); }, "030305A5E0"},
    {"empty bit string", [](Writer& w) { w.BitString(View()); }, "030100"},
    {"octet string", [](Writer& w) { w.OctetString(IdentObj("abc", 3)); }, "0403616263"},
    {"octets reversed", [](Writer& w) { w.OctetStringReversed(View("abc", 3)); }, "0403636261"},
    {"tag number 30", [](Writer& w) { w.Primitive(tag::ContextPrimitive(30), View("x", 1)); }, "9E0178"},
    {"high tag number", [](Writer& w) { w.Primitive(tag::ContextPrimitive(31), View("y", 1)); }, "9F1F0179"},
    {"highest tag number", [](Writer& w) { w.Context(0xFFFFFFFF, [] {}); }, "BF8FFFFFFF7F00"},
    {"nested",
     [](Writer& w) { w.Sequence([&] { w.Context(0, [&] { w.Integer(2); }), w.Raw(View("\x05\x00", 2)); }); }, "3007A0030201020500"},
    {"raw of nothing", [](Writer& w) { w.Sequence([&] { w.Raw(View()); }); }, "3000"},
    {"set as given", [](Writer& w) { w.Set([&] { Integers(w, {3, 1}), w.Boolean(true); }); }, "31090201030201010101FF"},
    {"set sorted", [](Writer& w) { w.Set([&] { Integers(w, {3, 1}), w.Boolean(true); }, Order::Sorted); }, "31090101FF020101020103"},
    {"raw elements in a sorted set are told apart",
     [](Writer& w) { w.Set([&] { w.Raw(View("\x02\x01\x05\x02\x01\x01", 6)), w.Integer(3); }, Order::Sorted); }, "3109020101020103020105"},
    {"sorted sets inside a sorted set",
     [](Writer& w) {
         const auto inner = [&](std::initializer_list<int> values) { w.Set([&] { Integers(w, values); }, Order::Sorted); };
         w.Set([&] { inner({9, 2}), inner({8, 1}); }, Order::Sorted);
     },
     "3110 3106020101020108 3106020102020109"},
};

TEST(Writer, WritesTheTable) {
    for (const Case& c : kCases) {
        Writer writer;
        c.write(writer);
        const IdentObj expected = nal_test::FromHexText(c.expected);
        EXPECT_EQ(writer.Size(), expected.GetSize()) << c.name;
        EXPECT_EQ(writer.Finish(), expected) << c.name;
    }
}

TEST(Writer, RefusesWhatItCannotEncode) {
    const std::pair<const char*, void (*)(Writer&)> refused[] = {
        {"open element", [](Writer& w) { w.Begin(tag::Sequence), w.Finish(); }},
        {"end without begin", [](Writer& w) { w.End(); }},
        {"not an oid", [](Writer& w) { w.Oid("1.2.x"); }},
        {"integer without octets", [](Writer& w) { w.IntegerOctets(View()); }},
        {"unused bits of no bytes", [](Writer& w) { w.BitString(View(), 1); }},
        {"eight unused bits", [](Writer& w) { w.BitString(View("a", 1), 8); }},
        {"a year that UTCTime lacks", [](Writer& w) { w.UtcTime(CTOOFileTime(0)); }},
        {"content above 4 GiB - 1", [](Writer& w) { w.External(0x100000000u); }},
        {"two external places", [](Writer& w) { w.External(1), w.External(1); }},
        {"external bytes left out", [](Writer& w) { w.External(1), w.Finish(); }},
        {"external bytes in a sorted set", [](Writer& w) { w.Set([&] { w.External(3); }, Order::Sorted); }},
        {"a sorted set of broken elements", [](Writer& w) { w.Set([&] { w.Raw(View("\x02\x05", 2)); }, Order::Sorted), w.Finish(); }},
    };
    for (const auto& [name, write] : refused) {
        Writer writer;
        EXPECT_EQ(nal_test::StatusOf([&] { write(writer); }), TOO_E_ENCODE) << name;
    }
}

TEST(Writer, LengthsTakeTheirShortestForm) {
    const std::pair<unsigned, const char*> cases[] = {{0x7F, "047F"},      {0x80, "048180"},     {0xFF, "0481FF"},
                                                      {0x100, "04820100"}, {0xFFFF, "0482FFFF"}, {0x10000, "0483010000"}};
    for (const auto& [size, hex] : cases) {
        const IdentObj content(nullptr, size);
        Writer writer;
        writer.OctetString(content);
        const IdentObj der = writer.Finish();
        const IdentObj header = nal_test::FromHexText(hex);
        EXPECT_EQ(View(der).Sub(0, header.GetSize()), View(header));
        EXPECT_EQ(der.GetSize(), header.GetSize() + size);
    }
}

// Content in a file is written by the caller: the lengths around it must count it, up to the largest one.
TEST(Writer, SplitsAroundExternalBytes) {
    Writer writer;
    writer.Sequence([&] {
        writer.Integer(1);
        writer.Context(0, [&] { writer.ExternalPrimitive(tag::OctetString, 0xF0000000u); });
        writer.Null();
    });
    EXPECT_EQ(writer.Size(), 6 + 3 + 6 + 6 + 0xF0000000u + 2);
    IdentObj before;
    IdentObj after;
    writer.FinishParts(before, after);
    EXPECT_EQ(before, nal_test::FromHexText("3084F0000011 020101 A084F0000006 0484F0000000"));
    EXPECT_EQ(after, nal_test::FromHexText("0500"));
}

}  // namespace
