#include "asnt/view.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "support/hex.h"
#include "support/status_of.h"
#include "asnt/writer.h"
#include "too/status.h"

namespace {

using asnt::Element;
using asnt::HeaderState;
using asnt::Reader;
using asnt::Rules;
using asnt::View;
using nal_test::FromHexText;
using nal_test::StatusOf;
namespace tag = asnt::tag;

constexpr HeaderState kRead = HeaderState::Read;
constexpr HeaderState kMore = HeaderState::NeedMore;
constexpr HeaderState kBad = HeaderState::Bad;

TEST(Header, ReadsTheTable) {
    const struct {
        const char* hex;
        HeaderState der, ber;
        std::uint32_t number = 0;
        std::uint64_t contentSize = 0;
    } cases[] = {
        {"", kMore, kMore},
        {"30", kMore, kMore},
        // Lengths: cut off, not the shortest form, above 4 GiB - 1, reserved, indefinite.
        {"047F", kRead, kRead, 4, 0x7F},       {"048180", kRead, kRead, 4, 0x80}, {"0484FFFFFFFF", kRead, kRead, 4, 0xFFFFFFFF},
        {"048201", kMore, kMore},              {"04817F", kBad, kRead, 4, 0x7F},  {"0488000000000000000A", kBad, kRead, 4, 10},
        {"04820080", kBad, kRead, 4, 0x80},    {"04850100000000", kBad, kBad},    {"0489000000000000000001", kBad, kBad},
        {"04FF", kBad, kBad},                  {"3080", kBad, kRead, 16, 0},      {"0480", kBad, kBad},
        // Tag numbers: in several octets, cut off, above 32 bits, without an end, not the shortest form.
        {"9F1F00", kRead, kRead, 31, 0},       {"BF813401FF", kRead, kRead, 180, 1}, {"9F8FFFFFFF7F00", kRead, kRead, 0xFFFFFFFF, 0},
        {"9F81", kMore, kMore},                {"9F9080808000 00", kBad, kBad},      {"9F8181818181818101 00", kBad, kBad},
        {"9F1E00", kBad, kBad},                {"9F801F00", kBad, kBad},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = FromHexText(c.hex);
        for (const Rules rules : {Rules::Der, Rules::Ber}) {
            const HeaderState expected = rules == Rules::Der ? c.der : c.ber;
            asnt::Header header;
            ASSERT_EQ(asnt::ParseHeader(bytes, rules, header), expected) << c.hex;
            if (expected != kRead) continue;
            EXPECT_EQ(header.tag.number, c.number) << c.hex;
            EXPECT_EQ(header.contentSize, c.contentSize) << c.hex;
        }
    }
}

TEST(ReaderSteps, OverElementsAndStopAtDamage) {
    const IdentObj input = FromHexText("020105 A0020500 0403AABB");
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

// `depth` elements inside one another, definite or indefinite.
IdentObj Nested(unsigned depth, Rules rules) {
    IdentObj nested;
    for (unsigned i = 0; i < depth; ++i) {
        asnt::Writer writer;
        if (rules == Rules::Der) {
            writer.Sequence([&] { writer.Raw(nested); });
        } else {
            writer.Raw(FromHexText("3080"));
            writer.Raw(nested);
            writer.Raw(FromHexText("0000"));
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
        for (Reader inside; reader.TryEnter(tag::Sequence, inside); reader = inside) ++entered;
        EXPECT_LE(entered, asnt::kMaxDepth);
    }
}

TEST(ReaderSteps, TakeIndefiniteLengthsUnderTheBerRulesOnly) {
    const struct {
        const char* hex;
        bool ber;
        unsigned content;
    } cases[] = {
        {"3080 0000", true, 0},           {"3080 020101 0000", true, 3},     {"3080 3080 0000 0000", true, 4},
        {"3080 3003 020100 0000", true, 5}, {"3004 3080 0000", true, 4},     {"3003 3080 00 00", false, 0},
        {"3080 020101", false, 0},        {"3080 020101 00", false, 0},      {"3080 3080 0000", false, 0},
        {"3080 04050000", false, 0},
        {"3080 0402 0000 0000", true, 4},  // zeros inside a primitive element end nothing
        {"3080 000100", false, 0},         // end-of-contents has no content
        {"0480 0000", false, 0},           // indefinite means constructed
        {"0000", false, 0},               {"000101", false, 0},              {"2000", false, 0},       {"30020000", false, 0},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = FromHexText(c.hex);
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
        const char* joined;  // null: they do not
    } cases[] = {
        {"0403010203", "010203"},  {"0400", ""},
        {"2400", ""},              {"2480 0000", ""},
        {"2403 020101", nullptr},  {"2480 0401AA 2405 0400 0401BB 0401CC 0000", "AABBCC"},
        {"2403 800101", nullptr},  {"A080 0401AA 0401BB 0000", "AABB"},
        {"2404 24020401", nullptr},
    };
    for (const auto& c : cases) {
        const IdentObj bytes = FromHexText(c.hex);
        Element element;
        ASSERT_TRUE(Reader(bytes, "", Rules::Ber).TryNext(element)) << c.hex;
        IdentObj joined = FromHexText("EE");
        EXPECT_EQ(asnt::JoinOctets(element, Rules::Ber, joined), c.joined != nullptr) << c.hex;
        EXPECT_EQ(joined, FromHexText(c.joined != nullptr ? c.joined : "EE")) << c.hex;
        EXPECT_EQ(asnt::JoinOctets(element, Rules::Der, joined), !element.tag.IsConstructed()) << c.hex;
    }
}

TEST(Octets, NestedPiecesStopAtTheDepthLimit) {
    for (const unsigned depth : {asnt::kMaxDepth - 1, asnt::kMaxDepth, asnt::kMaxDepth + 1, 3000u}) {
        IdentObj nested = FromHexText("0401AA");
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
        bool isInteger;
        std::optional<std::int64_t> value;
        std::optional<std::uint64_t> unsignedValue;
    } cases[] = {
        {"", false, {}, {}},         {"00", true, 0, 0},       {"7F", true, 127, 127}, {"80", true, -128, {}},
        {"0080", true, 128, 128},    {"007F", false, {}, {}},  {"FF80", false, {}, {}}, {"FF7F", true, -129, {}},
        {"7FFFFFFFFFFFFFFF", true, INT64_MAX, INT64_MAX},      {"8000000000000000", true, INT64_MIN, {}},
        {"00FFFFFFFFFFFFFFFF", true, {}, UINT64_MAX},          {"010000000000000000", true, {}, {}},
    };
    for (const auto& c : cases) {
        const IdentObj content = FromHexText(c.hex);
        std::int64_t value = 77;
        std::uint64_t unsignedValue = 77;
        EXPECT_EQ(asnt::IsInteger(content), c.isInteger) << c.hex;
        EXPECT_EQ(asnt::DecodeInteger(content, value), c.value.has_value()) << c.hex;
        EXPECT_EQ(asnt::DecodeUnsigned(content, unsignedValue), c.unsignedValue.has_value()) << c.hex;
        EXPECT_EQ(value, c.value.value_or(77)) << c.hex;
        EXPECT_EQ(unsignedValue, c.unsignedValue.value_or(77)) << c.hex;
    }
}

TEST(Values, BooleansAndBitStrings) {
    const struct {
        const char* hex;
        bool der, ber, value;
    } booleans[] = {
        {"00", true, true, false},   {"FF", true, true, true},       {"01", false, true, true},
        {"", false, false, false},   {"FFFF", false, false, false},
    };
    for (const auto& c : booleans) {
        bool value = false;
        EXPECT_EQ(asnt::DecodeBoolean(FromHexText(c.hex), value), c.der) << c.hex;
        EXPECT_EQ(asnt::DecodeBoolean(FromHexText(c.hex), value, Rules::Ber), c.ber) << c.hex;
        EXPECT_EQ(value, c.value) << c.hex;
    }
    const struct {
        const char* hex;
        bool der, ber;
    } bits[] = {{"", false, false},     {"00", true, true},    {"01", false, false}, {"0780", true, true},
                {"0880", false, false}, {"05E1", false, true}, {"05E0", true, true}, {"00FF01", true, true}};
    for (const auto& c : bits) {
        const IdentObj content = FromHexText(c.hex);
        asnt::BitString value;
        EXPECT_EQ(asnt::DecodeBitString(content, value), c.der) << c.hex;
        EXPECT_EQ(asnt::DecodeBitString(content, value, Rules::Ber), c.ber) << c.hex;
    }
    const IdentObj content = FromHexText("05A0");
    asnt::BitString named;
    ASSERT_TRUE(asnt::DecodeBitString(content, named));
    EXPECT_TRUE(named.Bit(0) && !named.Bit(1) && named.Bit(2) && !named.Bit(8));
}

TEST(Values, OfAnotherTypeAreRefused) {
    const std::pair<const char*, void (*)(Reader&)> cases[] = {
        {"020100", [](Reader& r) { r.Boolean(); }},
        {"0102FFFF", [](Reader& r) { r.Boolean(); }},
        {"02020001", [](Reader& r) { r.Integer(); }},
        {"0209010000000000000000", [](Reader& r) { r.Int64(); }},
        {"02050100000000", [](Reader& r) { r.Unsigned(); }},
        {"0201FF", [](Reader& r) { r.Unsigned(); }},
        {"060180", [](Reader& r) { r.Oid(); }},
        {"030109", [](Reader& r) { r.Bits(); }},
        {"24030401AA", [](Reader& r) { r.Octets(); }},
        {"1701", [](Reader& r) { r.Time(); }},
        {"050100", [](Reader& r) { r.Null(); }},
        {"1000", [](Reader& r) { r.Inside(r.Next()); }},
    };
    for (const auto& [hex, read] : cases) {
        const IdentObj bytes = FromHexText(hex);
        Reader reader(bytes);
        EXPECT_EQ(StatusOf([&] { read(reader); }), TOO_E_BAD_STRUCTURE) << hex;
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
