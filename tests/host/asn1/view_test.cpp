#include "asnt/view.h"

#include <gtest/gtest.h>

#include <string>

#include "asn1_support.h"
#include "asnt/writer.h"
#include "too/status.h"

namespace {

using asnt::Element;
using asnt::HeaderState;
using asnt::Reader;
using asnt::Rules;
using asnt::View;
using asnt_test::Bytes;
using asnt_test::StatusOf;
namespace tag = asnt::tag;

TEST(Header, ReadsTheTable) {
    constexpr HeaderState kRead = HeaderState::Read;
    constexpr HeaderState kMore = HeaderState::NeedMore;
    constexpr HeaderState kBad = HeaderState::Bad;
    const struct {
        const char* name;
        const char* hex;
        HeaderState der;
        HeaderState ber;
        std::uint32_t number = 0;
        std::uint64_t contentSize = 0;
    } cases[] = {
        {"nothing", "", kMore, kMore},
        {"no length", "30", kMore, kMore},
        {"short length", "047F", kRead, kRead, 4, 0x7F},
        {"length 128", "048180", kRead, kRead, 4, 0x80},
        {"length octets cut off", "048201", kMore, kMore},
        {"longest length", "0484FFFFFFFF", kRead, kRead, 4, 0xFFFFFFFF},
        {"127 in the long form", "04817F", kBad, kRead, 4, 0x7F},
        {"leading zero in the length", "04820080", kBad, kRead, 4, 0x80},
        {"four leading zeros", "0488000000000000000A", kBad, kRead, 4, 10},
        {"4 GiB", "04850100000000", kBad, kBad},
        {"nine length octets", "0489000000000000000001", kBad, kBad},
        {"reserved length", "04FF", kBad, kBad},
        {"indefinite", "3080", kBad, kRead, 16, 0},
        {"indefinite primitive", "0480", kBad, kBad},
        {"high tag number", "9F1F00", kRead, kRead, 31, 0},
        {"high tag number in two octets", "BF813401FF", kRead, kRead, 180, 1},
        {"highest tag number", "9F8FFFFFFF7F00", kRead, kRead, 0xFFFFFFFF, 0},
        {"tag number cut off", "9F81", kMore, kMore},
        {"tag number above 32 bits", "9F9080808000 00", kBad, kBad},
        {"tag number without end", "9F8181818181818101 00", kBad, kBad},
        {"low tag number in the high form", "9F1E00", kBad, kBad},
        {"leading zero in the tag number", "9F801F00", kBad, kBad},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = Bytes(c.hex);
        for (const Rules rules : {Rules::Der, Rules::Ber}) {
            const HeaderState expected = rules == Rules::Der ? c.der : c.ber;
            asnt::Header header;
            ASSERT_EQ(asnt::ParseHeader(bytes, rules, header), expected) << c.name;
            if (expected != kRead) continue;
            EXPECT_EQ(header.tag.number, c.number) << c.name;
            EXPECT_EQ(header.contentSize, c.contentSize) << c.name;
        }
    }
}

TEST(ReaderSteps, OverElementsAndStopAtDamage) {
    const IdentObj input = Bytes("020105 A0020500 0403AABB");
    Reader reader(input, "Test");
    Element element;
    EXPECT_FALSE(reader.TryNext(tag::Sequence, element));
    EXPECT_TRUE(reader.TryPeek(element));
    EXPECT_EQ(reader.Int64(), 5);
    EXPECT_FALSE(reader.Optional(tag::Context(1), element));
    Reader inside;
    EXPECT_TRUE(reader.OptionalEnter(tag::Context(0), inside));
    inside.Null();
    inside.ExpectEnd();
    EXPECT_FALSE(inside.Optional(tag::Null, element)) << "at the end nothing is there";
    // The last element says three octets and has two.
    EXPECT_FALSE(reader.TryNext(element));
    EXPECT_EQ(StatusOf([&] { reader.Optional(tag::Null, element); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(StatusOf([&] { reader.ExpectEnd(); }), TOO_E_BAD_STRUCTURE);
    EXPECT_EQ(reader.Rest().size, 4u) << "a failed read does not advance";
    try {
        reader.Next();
        FAIL();
    } catch (const XTOOStatus& status) {
        EXPECT_EQ(status.GetText(), "Test");
    }
}

TEST(ReaderSteps, RefuseEveryTruncation) {
    asnt::Writer writer;
    writer.Sequence([&] {
        writer.Set([&] { writer.Oid("1.2.643.2.2.3"); });
        writer.OctetString(IdentObj(nullptr, 300));
    });
    const IdentObj whole = writer.Finish();
    EXPECT_TRUE(asnt::IsWellFormed(whole));
    for (unsigned size = 0; size < whole.GetSize(); ++size) {
        EXPECT_FALSE(asnt::IsWellFormed(View(whole).Sub(0, size))) << size;
    }
    IdentObj longer = whole;
    longer.SetSize(whole.GetSize() + 1);
    EXPECT_FALSE(asnt::IsWellFormed(longer));
}

TEST(ReaderSteps, RefuseUniversalTagZero) {
    for (const char* hex : {"0000", "000101", "2000", "30020000"})
        EXPECT_FALSE(asnt::IsWellFormed(Bytes(hex))) << hex;
}

// `depth` elements inside one another, definite or indefinite.
IdentObj Nested(unsigned depth, Rules rules) {
    IdentObj nested;
    for (unsigned i = 0; i < depth; ++i) {
        asnt::Writer writer;
        if (rules == Rules::Der) {
            writer.Sequence([&] { writer.Raw(nested); });
        } else {
            writer.Raw(Bytes("3080"));
            writer.Raw(nested);
            writer.Raw(Bytes("0000"));
        }
        nested = writer.Finish();
    }
    return nested;
}

TEST(ReaderSteps, LimitTheDepth) {
    for (const Rules rules : {Rules::Der, Rules::Ber}) {
        EXPECT_TRUE(asnt::IsWellFormed(Nested(asnt::kMaxDepth, rules), rules));
        EXPECT_FALSE(asnt::IsWellFormed(Nested(asnt::kMaxDepth + 1, rules), rules));
        const IdentObj deep = Nested(5000, rules);
        EXPECT_FALSE(asnt::IsWellFormed(deep, rules));

        Reader reader(deep, "", rules);
        unsigned entered = 0;
        for (Reader inside; reader.TryEnter(tag::Sequence, inside); reader = inside)
            ++entered;
        EXPECT_LE(entered, asnt::kMaxDepth);
    }
}

TEST(ReaderSteps, TakeIndefiniteLengthsUnderTheBerRulesOnly) {
    const struct {
        const char* hex;
        bool ber;
        unsigned content;
    } cases[] = {
        {"3080 0000", true, 0},           {"3080 020101 0000", true, 3},
        {"3080 3080 0000 0000", true, 4}, {"3080 3003 020100 0000", true, 5},
        {"3080 0402 0000 0000", true, 4},  // zeros inside a primitive element end nothing
        {"3080 020101", false, 0},        {"3080 020101 00", false, 0},
        {"3080 3080 0000", false, 0},     {"3080 000100", false, 0},  // end-of-contents has no content
        {"3080 04050000", false, 0},      {"0480 0000", false, 0},    // indefinite means constructed
        {"3004 3080 0000", true, 4},      {"3003 3080 00 00", false, 0},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = Bytes(c.hex);
        EXPECT_FALSE(asnt::IsWellFormed(bytes)) << c.hex;
        EXPECT_EQ(asnt::IsWellFormed(bytes, Rules::Ber), c.ber) << c.hex;
        Element element;
        if (!c.ber || !Reader(bytes, "", Rules::Ber).TryNext(element)) continue;
        EXPECT_EQ(element.content.size, c.content) << c.hex;
        EXPECT_EQ(element.whole, View(bytes)) << c.hex;
    }
}

TEST(Octets, JoinTheirPieces) {
    const struct {
        const char* hex;
        bool ok;
        const char* joined;
    } cases[] = {
        {"0403010203", true, "010203"},
        {"0400", true, ""},
        {"2400", true, ""},
        {"2480 0000", true, ""},
        {"2480 0401AA 2405 0400 0401BB 0401CC 0000", true, "AABBCC"},
        {"A080 0401AA 0401BB 0000", true, "AABB"},
        {"2403 020101", false, ""},
        {"2403 800101", false, ""},
        {"2404 24020401", false, ""},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = Bytes(c.hex);
        Element element;
        ASSERT_TRUE(Reader(bytes, "", Rules::Ber).TryNext(element)) << c.hex;
        IdentObj joined = Bytes("EE");
        EXPECT_EQ(asnt::JoinOctets(element, Rules::Ber, joined), c.ok) << c.hex;
        EXPECT_EQ(joined, Bytes(c.ok ? c.joined : "EE")) << c.hex;
        if (element.tag.IsConstructed()) {
            EXPECT_FALSE(asnt::JoinOctets(element, Rules::Der, joined)) << c.hex;
        }
    }
}

TEST(Octets, NestedPiecesStopAtTheDepthLimit) {
    for (const unsigned depth : {asnt::kMaxDepth - 1, asnt::kMaxDepth, asnt::kMaxDepth + 1, 3000u}) {
        IdentObj nested = Bytes("0401AA");
        for (unsigned i = 0; i < depth; ++i) {
            asnt::Writer writer;
            writer.Constructed({asnt::Tag::kConstructed, 4}, [&] { writer.Raw(nested); });
            nested = writer.Finish();
        }
        Element element;
        ASSERT_TRUE(Reader(nested, "", Rules::Ber).TryNext(element));
        IdentObj joined;
        EXPECT_EQ(asnt::JoinOctets(element, Rules::Ber, joined), depth <= asnt::kMaxDepth) << depth;
    }
}

TEST(Values, IntegersInTheirShortestForm) {
    const struct {
        const char* hex;
        bool isInteger, fits, fitsUnsigned;
        std::int64_t value;
        std::uint64_t unsignedValue;
    } cases[] = {
        {"", false, false, false, 0, 0},
        {"00", true, true, true, 0, 0},
        {"7F", true, true, true, 127, 127},
        {"80", true, true, false, -128, 0},
        {"0080", true, true, true, 128, 128},
        {"007F", false, false, false, 0, 0},
        {"FF80", false, false, false, 0, 0},
        {"FF7F", true, true, false, -129, 0},
        {"7FFFFFFFFFFFFFFF", true, true, true, INT64_MAX, INT64_MAX},
        {"8000000000000000", true, true, false, INT64_MIN, 0},
        {"00FFFFFFFFFFFFFFFF", true, false, true, 0, UINT64_MAX},
        {"010000000000000000", true, false, false, 0, 0},
    };
    for (const auto& c : cases) {
        const IdentObj content = Bytes(c.hex);
        std::int64_t value = 77;
        std::uint64_t unsignedValue = 77;
        EXPECT_EQ(asnt::IsInteger(content), c.isInteger) << c.hex;
        EXPECT_EQ(asnt::DecodeInteger(content, value), c.fits) << c.hex;
        EXPECT_EQ(asnt::DecodeUnsigned(content, unsignedValue), c.fitsUnsigned) << c.hex;
        EXPECT_EQ(value, c.fits ? c.value : 77) << c.hex;
        EXPECT_EQ(unsignedValue, c.fitsUnsigned ? c.unsignedValue : 77) << c.hex;
    }
}

TEST(Values, BooleansAndBitStrings) {
    const struct {
        const char* hex;
        bool der, ber, value;
    } booleans[] = {{"00", true, true, false},
                    {"FF", true, true, true},
                    {"01", false, true, true},
                    {"", false, false, false},
                    {"FFFF", false, false, false}};
    for (const auto& c : booleans) {
        bool value = false;
        EXPECT_EQ(asnt::DecodeBoolean(Bytes(c.hex), value), c.der) << c.hex;
        EXPECT_EQ(asnt::DecodeBoolean(Bytes(c.hex), value, Rules::Ber), c.ber) << c.hex;
        EXPECT_EQ(value, c.value) << c.hex;
    }
    const struct {
        const char* hex;
        bool der, ber;
    } bits[] = {{"", false, false},     {"00", true, true},    {"01", false, false}, {"0780", true, true},
                {"0880", false, false}, {"05E1", false, true}, {"05E0", true, true}, {"00FF01", true, true}};
    for (const auto& c : bits) {
        const IdentObj content = Bytes(c.hex);
        asnt::BitString value;
        EXPECT_EQ(asnt::DecodeBitString(content, value), c.der) << c.hex;
        EXPECT_EQ(asnt::DecodeBitString(content, value, Rules::Ber), c.ber) << c.hex;
    }
    const IdentObj content = Bytes("05A0");
    asnt::BitString named;
    ASSERT_TRUE(asnt::DecodeBitString(content, named));
    EXPECT_TRUE(named.Bit(0) && !named.Bit(1) && named.Bit(2) && !named.Bit(8));
}

TEST(Values, OfAnotherTypeAreRefused) {
    const struct {
        const char* name;
        const char* hex;
        void (*read)(Reader&);
    } cases[] = {
        {"boolean", "020100", [](Reader& r) { r.Boolean(); }},
        {"boolean of two octets", "0102FFFF", [](Reader& r) { r.Boolean(); }},
        {"integer not minimal", "02020001", [](Reader& r) { r.Integer(); }},
        {"integer beyond 64 bits", "0209010000000000000000", [](Reader& r) { r.Int64(); }},
        {"unsigned beyond 32 bits", "02050100000000", [](Reader& r) { r.Unsigned(); }},
        {"negative", "0201FF", [](Reader& r) { r.Unsigned(); }},
        {"oid", "060180", [](Reader& r) { r.Oid(); }},
        {"bits", "030109", [](Reader& r) { r.Bits(); }},
        {"octets in pieces", "24030401AA", [](Reader& r) { r.Octets(); }},
        {"time", "1701", [](Reader& r) { r.Time(); }},
        {"null with content", "050100", [](Reader& r) { r.Null(); }},
        {"primitive to enter", "1000", [](Reader& r) { r.Inside(r.Next()); }},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = Bytes(c.hex);
        Reader reader(bytes);
        EXPECT_EQ(StatusOf([&] { c.read(reader); }), TOO_E_BAD_STRUCTURE) << c.name;
    }
}

TEST(ViewParts, StayInside) {
    const View view("abc", 3);
    EXPECT_EQ(view.Sub(1), View("bc", 2));
    EXPECT_EQ(view.Sub(1, 1), View("b", 1));
    EXPECT_EQ(view.Sub(1, static_cast<std::size_t>(-1)), View("bc", 2));
    EXPECT_TRUE(view.Sub(3).empty());
    EXPECT_TRUE(view.Sub(9, 5).empty());
    EXPECT_NE(view, View("abd", 3));
    EXPECT_EQ(View(), View("", 0));
}

}  // namespace
