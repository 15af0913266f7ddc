#include "asnt/writer.h"

#include <algorithm>
#include <string>
#include <utility>

#include "asnt/oid.h"
#include "asnt/time.h"
#include "too/status.h"

namespace asnt {
namespace {

constexpr const char* kContext = "asnt::Writer";
constexpr unsigned kLowNumbers = 31;          // tag numbers that fit the first octet
constexpr std::size_t kTypicalElements = 32;  // of a structure smaller than a certificate
constexpr std::size_t kTypicalSmall = 128;

[[noreturn]] void FailEncode() {
    throw XTOOStatus(TOO_E_ENCODE, kContext);
}

unsigned Base128Octets(std::uint32_t number) {
    unsigned octets = 1;
    while (number >>= 7)
        ++octets;
    return octets;
}

unsigned LengthOctets(std::uint64_t length) {
    unsigned octets = 1;
    if (length >= 0x80) {
        for (; length != 0; length >>= 8)
            ++octets;
    }
    return octets;
}

std::uint64_t HeaderSize(Tag tag, std::uint64_t contentSize) {
    return 1 + (tag.number < kLowNumbers ? 0 : Base128Octets(tag.number)) + LengthOctets(contentSize);
}

unsigned char* PutHeader(unsigned char* out, Tag tag, std::uint64_t contentSize) {
    if (tag.number < kLowNumbers) {
        *out++ = static_cast<unsigned char>(tag.bits | tag.number);
    } else {
        *out++ = static_cast<unsigned char>(tag.bits | kLowNumbers);
        for (unsigned left = Base128Octets(tag.number); left-- != 0;) {
            *out++ = static_cast<unsigned char>((tag.number >> 7 * left & 0x7F) | (left != 0 ? 0x80 : 0));
        }
    }
    unsigned left = LengthOctets(contentSize);
    if (left == 1) {
        *out++ = static_cast<unsigned char>(contentSize);
    } else {
        *out++ = static_cast<unsigned char>(0x80 | --left);
        while (left-- != 0)
            *out++ = static_cast<unsigned char>(contentSize >> 8 * left);
    }
    return out;
}

unsigned char* PutBytes(unsigned char* out, const unsigned char* bytes, std::size_t count) {
    if (count != 0) std::memcpy(out, bytes, count);
    return out + count;
}

// Orders the elements of a SET OF. Encodings of whole elements are never prefixes of one another.
void SortElements(unsigned char* content, std::size_t size) {
    std::vector<View> elements;
    Reader reader(View(content, size));
    while (!reader.AtEnd()) {
        Element element;
        if (!reader.TryNext(element)) FailEncode();
        elements.push_back(element.whole);
    }
    const auto before = [](View a, View b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
    };
    if (std::is_sorted(elements.begin(), elements.end(), before)) return;
    std::stable_sort(elements.begin(), elements.end(), before);
    std::vector<unsigned char> sorted;
    sorted.reserve(size);
    for (const View element : elements)
        sorted.insert(sorted.end(), element.begin(), element.end());
    std::memcpy(content, sorted.data(), size);
}

}  // namespace

Writer::Writer() {
    m_nodes.reserve(kTypicalElements);
    m_small.reserve(kTypicalSmall);
}
Writer::~Writer() = default;
Writer::Writer(Writer&&) noexcept = default;
Writer& Writer::operator=(Writer&&) noexcept = default;

void Writer::CountInParent(const Node& node) {
    std::uint64_t size = node.contentSize;
    if (node.kind != Node::RawBytes && node.kind != Node::ExternalBytes)
        size += HeaderSize(node.Tag(), node.contentSize);
    const std::uint64_t sum = size + (m_open.empty() ? m_size : m_nodes[m_open.back()].contentSize);
    if (sum > kMaxContent) FailEncode();
    if (m_open.empty()) {
        m_size = sum;
    } else {
        m_nodes[m_open.back()].contentSize = static_cast<std::uint32_t>(sum);
    }
}

void Writer::Add(Tag tag, Node::Kind kind, View content, unsigned unusedBits) {
    const std::size_t prefix = kind == Node::Bits ? 1 : 0;
    if (content.size > kMaxContent - prefix) FailEncode();
    Node node;
    node.bytes = content.data;
    node.size = static_cast<std::uint32_t>(content.size);
    node.contentSize = static_cast<std::uint32_t>(content.size + prefix);
    node.number = tag.number;
    node.tagBits = tag.bits;
    node.kind = kind;
    node.unusedBits = static_cast<unsigned char>(unusedBits);
    CountInParent(node);
    m_nodes.push_back(node);
}

void Writer::AddKept(Tag tag, std::string_view content) {
    const std::size_t offset = m_small.size();
    m_small.insert(m_small.end(), content.begin(), content.end());
    Add(tag, Node::Kept, View(nullptr, content.size()));
    m_nodes.back().offset = offset;
}

void Writer::Begin(Tag tag, Order order) {
    Node node;
    node.number = tag.number;
    node.tagBits = tag.bits;
    node.sorted = order == Order::Sorted;
    m_open.push_back(m_nodes.size());
    m_nodes.push_back(node);
}

void Writer::End() {
    if (m_open.empty()) FailEncode();
    const Node& node = m_nodes[m_open.back()];
    m_open.pop_back();
    CountInParent(node);
}

View Writer::Keep(IdentObj&& bytes) {
    m_kept.push_back(std::move(bytes));
    return m_kept.back();
}

void Writer::Primitive(Tag tag, View content) {
    Add(tag, Node::Plain, content);
}
void Writer::Primitive(Tag tag, IdentObj&& content) {
    Primitive(tag, Keep(std::move(content)));
}
void Writer::PrimitiveReversed(Tag tag, View content) {
    Add(tag, Node::Reversed, content);
}

void Writer::AddInteger(Tag tag, std::int64_t value) {
    unsigned char octets[sizeof value];
    for (std::size_t i = 0; i < sizeof octets; ++i) {
        octets[i] = static_cast<unsigned char>(static_cast<std::uint64_t>(value) >> 8 * (sizeof octets - 1 - i));
    }
    View content(octets, sizeof octets);
    while (!IsInteger(content))
        content = content.Sub(1);
    AddKept(tag, {reinterpret_cast<const char*>(content.data), content.size});
}

void Writer::Boolean(bool value) {
    AddKept(tag::Boolean, value ? "\xFF" : std::string_view("\0", 1));
}
void Writer::Null() {
    AddKept(tag::Null, {});
}
void Writer::Integer(std::int64_t value) {
    AddInteger(tag::Integer, value);
}
void Writer::Enumerated(std::int64_t value) {
    AddInteger(tag::Enumerated, value);
}

void Writer::Unsigned(std::uint64_t value) {
    const auto bits = static_cast<std::int64_t>(value);
    if (bits >= 0) return AddInteger(tag::Integer, bits);
    char octets[1 + sizeof value] = {};
    for (std::size_t i = 0; i < sizeof value; ++i)
        octets[sizeof value - i] = static_cast<char>(value >> 8 * i);
    AddKept(tag::Integer, {octets, sizeof octets});
}

void Writer::IntegerOctets(View content) {
    if (content.empty()) FailEncode();
    Primitive(tag::Integer, content);
}

void Writer::IntegerReversed(View content) {
    if (content.empty()) FailEncode();
    PrimitiveReversed(tag::Integer, content);
}

void Writer::Oid(std::string_view dotted) {
    std::string content;
    if (!OidFromText(dotted, content)) FailEncode();
    AddKept(tag::Oid, content);
}

void Writer::BitString(View bytes, unsigned unusedBits) {
    if (unusedBits > 7 || (bytes.empty() && unusedBits != 0)) FailEncode();
    Add(tag::BitString, Node::Bits, bytes, unusedBits);
}

void Writer::AddTime(Tag tag, const FILETIME& time) {
    std::string content;
    if (!EncodeTime(tag, time, content)) FailEncode();
    AddKept(tag, content);
}

void Writer::UtcTime(const FILETIME& time) {
    AddTime(tag::UtcTime, time);
}
void Writer::GeneralizedTime(const FILETIME& time) {
    AddTime(tag::GeneralizedTime, time);
}
void Writer::Time(const FILETIME& time) {
    AddTime(TimeTag(time), time);
}

void Writer::Raw(View encoded) {
    Add({}, Node::RawBytes, encoded);
}
void Writer::Raw(IdentObj&& encoded) {
    Raw(Keep(std::move(encoded)));
}

void Writer::External(std::uint64_t size) {
    const bool inSorted =
        std::any_of(m_open.begin(), m_open.end(), [this](std::size_t open) { return m_nodes[open].sorted; });
    if (m_hasExternal || inSorted || size > kMaxContent) FailEncode();
    Add({}, Node::ExternalBytes, View(nullptr, static_cast<std::size_t>(size)));
    m_hasExternal = true;
    m_externalSize = size;
}

void Writer::ExternalPrimitive(Tag tag, std::uint64_t size) {
    Begin(tag);
    External(size);
    End();
}

void Writer::RequireClosed() const {
    if (!m_open.empty()) FailEncode();
}

std::uint64_t Writer::Size() const {
    RequireClosed();
    return m_size;
}

// Writes everything but the external bytes. @return where they belong, as an offset
std::size_t Writer::Emit(unsigned char* out) const {
    unsigned char* const first = out;
    std::size_t external = 0;
    std::vector<std::pair<unsigned char*, std::size_t>> sortedSets;
    for (const Node& node : m_nodes) {
        if (node.kind == Node::ExternalBytes) {
            external = static_cast<std::size_t>(out - first);
            continue;
        }
        if (node.kind != Node::RawBytes) out = PutHeader(out, node.Tag(), node.contentSize);
        if (node.sorted) sortedSets.emplace_back(out, node.contentSize);
        switch (node.kind) {
            case Node::Reversed:
                out = std::reverse_copy(node.bytes, node.bytes + node.size, out);
                break;
            case Node::Bits:
                *out++ = node.unusedBits;
                out = PutBytes(out, node.bytes, node.size);
                if (node.size != 0) out[-1] = static_cast<unsigned char>(out[-1] & ~((1u << node.unusedBits) - 1));
                break;
            case Node::Kept:
                out = PutBytes(out, m_small.data() + node.offset, node.size);
                break;
            default:
                out = PutBytes(out, node.bytes, node.size);
                break;
        }
    }
    // Inner sets come later in the list and must be in order before the outer ones compare them.
    for (auto set = sortedSets.rbegin(); set != sortedSets.rend(); ++set)
        SortElements(set->first, set->second);
    return external;
}

IdentObj Writer::Finish() {
    if (m_hasExternal) FailEncode();
    IdentObj all;
    IdentObj none;
    FinishParts(all, none);
    return all;
}

void Writer::FinishParts(IdentObj& before, IdentObj& after) {
    RequireClosed();
    IdentObj all;
    all.SetSize(static_cast<unsigned>(m_size - m_externalSize));
    const std::size_t external = Emit(all.GetData());
    if (m_hasExternal) {
        const View view(all);
        before = view.Sub(0, external).Copy();
        after = view.Sub(external).Copy();
    } else {
        before = std::move(all);
        after.Clear();
    }
    m_nodes.clear();
    m_kept.clear();
    m_small.clear();
    m_size = m_externalSize = 0;
    m_hasExternal = false;
}

}  // namespace asnt
