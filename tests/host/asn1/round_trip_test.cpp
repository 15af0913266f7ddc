// Random structures written and read back: what was declared comes out, and a reader's view of it writes the same
// bytes.

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "asnt/records.h"
#include "asnt/view.h"
#include "asnt/writer.h"

namespace {

using asnt::Element;
using asnt::Reader;
using asnt::Tag;
using asnt::View;
using asnt::Writer;

constexpr unsigned kStructures = 3000;
constexpr unsigned kMaxNesting = 6;

struct Node {
    Tag tag;
    IdentObj content;
    std::vector<Node> children;
};

class Generator {
public:
    explicit Generator(unsigned seed) : m_random(seed) {}

    Node Make(unsigned depth) {
        Node node;
        static const std::uint32_t kNumbers[] = {1, 2, 4, 16, 30, 31, 127, 128, 16383, 16384, 0xFFFFFFFF};
        node.tag.number = kNumbers[Below(std::size(kNumbers))];
        node.tag.bits = static_cast<unsigned char>(Below(4) << 6);
        if (depth < kMaxNesting && Below(3) != 0) {
            node.tag.bits |= Tag::kConstructed;
            for (unsigned left = Below(5); left != 0; --left) node.children.push_back(Make(depth + 1));
        } else {
            static const unsigned kSizes[] = {0, 1, 5, 126, 127, 128, 255, 256, 1000};
            node.content.SetSize(kSizes[Below(std::size(kSizes))]);
            for (unsigned i = 0; i < node.content.GetSize(); ++i) node.content.GetData()[i] = static_cast<unsigned char>(m_random());
        }
        return node;
    }

private:
    unsigned Below(std::size_t bound) { return static_cast<unsigned>(m_random() % bound); }

    std::mt19937 m_random;
};

void Write(Writer& writer, const Node& node) {
    if (!node.tag.IsConstructed()) return writer.Primitive(node.tag, node.content);
    writer.Constructed(node.tag, [&] {
        for (const Node& child : node.children) Write(writer, child);
    });
}

void ExpectSame(Reader& reader, const Node& node) {
    const Element element = reader.Next();
    ASSERT_EQ(element.tag, node.tag);
    if (!node.tag.IsConstructed()) {
        EXPECT_EQ(element.content, View(node.content));
        return;
    }
    Reader inside = reader.Inside(element);
    for (const Node& child : node.children) ExpectSame(inside, child);
    EXPECT_TRUE(inside.AtEnd());
}

void ExpectSame(const CASNTUnit& unit, const Node& node) {
    ASSERT_EQ(unit.GetTag(), node.tag.number);
    ASSERT_EQ(unit.GetItemCount(), node.children.size());
    for (unsigned i = 0; i < unit.GetItemCount(); ++i) ExpectSame(unit.GetItem(i), node.children[i]);
}

TEST(RoundTrip, RandomStructures) {
    for (unsigned seed = 0; seed < kStructures; ++seed) {
        SCOPED_TRACE(seed);
        const Node node = Generator(seed).Make(0);
        Writer writer;
        Write(writer, node);
        const std::uint64_t size = writer.Size();
        const IdentObj der = writer.Finish();
        ASSERT_EQ(der.GetSize(), size);
        ASSERT_TRUE(asnt::IsWellFormed(der));
        ASSERT_TRUE(asnt::IsWellFormed(der, asnt::Rules::Ber)) << "DER is BER";

        Reader reader(der);
        ASSERT_NO_FATAL_FAILURE(ExpectSame(reader, node));
        EXPECT_TRUE(reader.AtEnd());
        CASNTUnit unit;
        ASSERT_EQ(unit.ReadData(der.GetData(), der.GetSize()), der.GetSize());
        ASSERT_NO_FATAL_FAILURE(ExpectSame(unit, node));
    }
}

}  // namespace
