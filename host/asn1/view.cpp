// The octets that are read here (X.690 section 8.1):
//
//   identifier   class (2 bits), constructed (1), number (5); number 31 says that it follows in base 128, top bit =
//   more length       0x00-0x7F  itself
//                0x80       indefinite (BER): the content ends before a universal element 0 of length 0
//                0x81-0x84  that many octets of length follow, most significant first
//   content

#include "asnt/view.h"

#include <limits>

#include "asnt/oid.h"
#include "asnt/time.h"
#include "too/status.h"

namespace asnt {
namespace {

constexpr unsigned kHighNumber = 31;
constexpr std::size_t kMaxTagOctets = 5;     // after the first: 32 bits in base 128
constexpr std::size_t kMaxLengthOctets = 8;  // after the first, BER; leading zeros included

HeaderState ParseTag(View input, Tag& tag, std::size_t& used) {
    if (input.empty()) return HeaderState::NeedMore;
    tag.bits = input[0] & 0xE0;
    tag.number = input[0] & 0x1F;
    used = 1;
    if (tag.number != kHighNumber) return HeaderState::Read;

    std::uint64_t number = 0;
    for (;; ++used) {
        if (used > kMaxTagOctets) return HeaderState::Bad;
        if (used == input.size) return HeaderState::NeedMore;
        const unsigned char octet = input[used];
        if (used == 1 && octet == 0x80) return HeaderState::Bad;
        number = number << 7 | (octet & 0x7F);
        if ((octet & 0x80) == 0) break;
    }
    ++used;
    if (number < kHighNumber || number > std::numeric_limits<std::uint32_t>::max()) return HeaderState::Bad;
    tag.number = static_cast<std::uint32_t>(number);
    return HeaderState::Read;
}

HeaderState ParseLength(View input, Rules rules, Header& header, std::size_t& used) {
    if (input.empty()) return HeaderState::NeedMore;
    used = 1;
    if (input[0] < 0x80) {
        header.contentSize = input[0];
        return HeaderState::Read;
    }
    if (input[0] == 0x80) {
        if (rules == Rules::Der || !header.tag.IsConstructed()) return HeaderState::Bad;
        header.indefinite = true;
        return HeaderState::Read;
    }
    const std::size_t octets = input[0] & 0x7F;
    if (octets > (rules == Rules::Der ? 4 : kMaxLengthOctets)) return HeaderState::Bad;
    for (; used <= octets; ++used) {
        if (used == input.size) return HeaderState::NeedMore;
        if (rules == Rules::Der && used == 1 && input[1] == 0) return HeaderState::Bad;
        header.contentSize = header.contentSize << 8 | input[used];
    }
    if (header.contentSize > kMaxContent) return HeaderState::Bad;
    if (rules == Rules::Der && header.contentSize < 0x80) return HeaderState::Bad;
    return HeaderState::Read;
}

// The size of an indefinite element's content, found by stepping over elements until the end-of-contents that closes
// it. Nested indefinite elements are only counted, so one pass serves whatever the nesting.
bool FindEndOfContents(View content, unsigned depth, std::size_t& size) {
    std::size_t offset = 0;
    for (unsigned open = 1;;) {
        Header header;
        if (ParseHeader(content.Sub(offset), Rules::Ber, header) != HeaderState::Read) return false;
        if (header.tag == Tag{0, 0}) {
            if (header.contentSize != 0) return false;
            if (--open == 0) {
                size = offset;
                return true;
            }
            offset += header.size;
        } else if (header.indefinite) {
            if (++open + depth > kMaxDepth) return false;
            offset += header.size;
        } else {
            if (header.contentSize > content.size - offset - header.size) return false;
            offset += header.size + static_cast<std::size_t>(header.contentSize);
        }
    }
}

// Nearly every header has a tag of one octet and a length of one to three in its shortest form, which both rules take. False for
// any other: the general case decides about it.
inline bool ParseCommonHeader(View input, Header& header) {
    if (input.size < 4) return false;
    const unsigned char first = input[0];
    if (first == 0 || (first & 0x1F) == 0x1F) return false;
    unsigned size = 2;
    unsigned length = input[1];
    if (length == 0x81 && input[2] >= 0x80) {
        size = 3;
        length = input[2];
    } else if (length == 0x82 && input[2] != 0) {
        size = 4;
        length = static_cast<unsigned>(input[2] << 8 | input[3]);
    } else if (length >= 0x80) {
        return false;
    }
    header.tag = Tag{static_cast<unsigned char>(first & 0xE0), first & 0x1Fu};
    header.size = size;
    header.contentSize = length;
    return true;
}

constexpr std::size_t kEndOfContentsSize = 2;

bool IsWellFormedInside(Reader reader) {
    Element element;
    while (!reader.AtEnd()) {
        if (!reader.TryNext(element)) return false;
        Reader inside;
        if (element.tag.IsConstructed() && !(reader.TryInside(element, inside) && IsWellFormedInside(inside)))
            return false;
    }
    return true;
}

}  // namespace

HeaderState ParseHeader(View input, Rules rules, Header& header) {
    Header parsed;
    std::size_t tagOctets = 0;
    std::size_t lengthOctets = 0;
    HeaderState state = ParseTag(input, parsed.tag, tagOctets);
    if (state != HeaderState::Read) return state;
    state = ParseLength(input.Sub(tagOctets), rules, parsed, lengthOctets);
    if (state != HeaderState::Read) return state;
    parsed.size = static_cast<unsigned>(tagOctets + lengthOctets);
    header = parsed;
    return HeaderState::Read;
}

IdentObj View::Copy() const {
    if (size > std::numeric_limits<unsigned>::max()) throw XTOOStatus(TOO_E_RANGE, "asnt::View::Copy");
    return IdentObj(data, static_cast<unsigned>(size));
}

bool DecodeBoolean(View content, bool& value, Rules rules) {
    if (content.size != 1 || (rules == Rules::Der && content[0] != 0x00 && content[0] != 0xFF)) return false;
    value = content[0] != 0;
    return true;
}

bool IsInteger(View content) {
    if (content.empty()) return false;
    if (content.size == 1) return true;
    // Nine equal leading bits mean that the first octet says nothing.
    const bool firstSaysNothing =
        (content[0] == 0x00 && content[1] < 0x80) || (content[0] == 0xFF && content[1] >= 0x80);
    return !firstSaysNothing;
}

bool DecodeInteger(View content, std::int64_t& value) {
    if (!IsInteger(content) || content.size > sizeof value) return false;
    std::uint64_t bits = content[0] >= 0x80 ? ~std::uint64_t{0} : 0;
    for (const unsigned char octet : content)
        bits = bits << 8 | octet;
    value = static_cast<std::int64_t>(bits);
    return true;
}

bool DecodeUnsigned(View content, std::uint64_t& value) {
    if (!IsInteger(content) || content[0] >= 0x80) return false;
    const View magnitude = content[0] == 0 ? content.Sub(1) : content;
    if (magnitude.size > sizeof value) return false;
    std::uint64_t bits = 0;
    for (const unsigned char octet : magnitude)
        bits = bits << 8 | octet;
    value = bits;
    return true;
}

bool DecodeBitString(View content, BitString& value, Rules rules) {
    if (content.empty() || content[0] > 7) return false;
    const unsigned char unused = content[0];
    const View bytes = content.Sub(1);
    if (bytes.empty() && unused != 0) return false;
    if (rules == Rules::Der && unused != 0 && (bytes[bytes.size - 1] & ((1u << unused) - 1)) != 0) return false;
    value.bytes = bytes;
    value.unusedBits = unused;
    return true;
}

bool Reader::TryNext(Element& element) {
    Header header;
    if (!ParseCommonHeader(m_rest, header) && ParseHeader(m_rest, m_rules, header) != HeaderState::Read) return false;
    std::size_t contentSize = static_cast<std::size_t>(header.contentSize);
    std::size_t trailer = 0;
    if (header.indefinite) {
        if (!FindEndOfContents(m_rest.Sub(header.size), m_depth, contentSize)) return false;
        trailer = kEndOfContentsSize;
    } else if (contentSize > m_rest.size - header.size) {
        return false;
    }
    Element read;
    read.tag = header.tag;
    read.indefinite = header.indefinite;
    read.content = View(m_rest.data + header.size, contentSize);
    read.whole = View(m_rest.data, header.size + contentSize + trailer);
    // Universal 0 closes an indefinite content and has no other meaning.
    if (read.tag.IsUniversal() && read.tag.number == 0) return false;
    element = read;
    m_rest = View(m_rest.data + read.whole.size, m_rest.size - read.whole.size);
    return true;
}

bool Reader::TryNext(Tag expected, Element& element) {
    constexpr std::uint32_t kFirstOfMoreOctets = 31;
    if (expected.number < kFirstOfMoreOctets) {
        // The tag is the first octet.
        return !m_rest.empty() && m_rest[0] == (expected.bits | expected.number) && TryNext(element);
    }
    const View rest = m_rest;
    Element next;
    if (!TryNext(next)) return false;
    if (next.tag != expected) {
        m_rest = rest;
        return false;
    }
    element = next;
    return true;
}

bool Reader::TryInside(const Element& element, Reader& inside) const {
    if (!element.tag.IsConstructed() || m_depth + 1u > kMaxDepth) return false;
    Reader reader(element.content, m_context, m_rules);
    reader.m_depth = static_cast<unsigned char>(m_depth + 1);
    inside = reader;
    return true;
}

bool Reader::TryEnter(Tag expected, Reader& inside) {
    const View rest = m_rest;
    Element element;
    if (!TryNext(expected, element)) return false;
    if (TryInside(element, inside)) return true;
    m_rest = rest;
    return false;
}

Element Reader::Next() {
    Element element;
    if (!TryNext(element)) Fail();
    return element;
}

Element Reader::Next(Tag expected) {
    Element element;
    if (!TryNext(expected, element)) Fail();
    return element;
}

Element Reader::Peek() const {
    Element element;
    if (!TryPeek(element)) Fail();
    return element;
}

Reader Reader::Inside(const Element& element) const {
    Reader inside;
    if (!TryInside(element, inside)) Fail();
    return inside;
}

Reader Reader::Enter(Tag expected) {
    Reader inside;
    if (!TryEnter(expected, inside)) Fail();
    return inside;
}

bool Reader::Optional(Tag expected, Element& element) {
    if (AtEnd()) return false;
    Reader ahead(*this);
    const Element next = ahead.Next();
    if (next.tag != expected) return false;
    element = next;
    m_rest = ahead.m_rest;
    return true;
}

bool Reader::OptionalEnter(Tag expected, Reader& inside) {
    Element element;
    if (!Optional(expected, element)) return false;
    inside = Inside(element);
    return true;
}

void Reader::ExpectEnd() const {
    if (!AtEnd()) Fail();
}

bool Reader::Boolean() {
    bool value = false;
    if (!DecodeBoolean(Next(tag::Boolean).content, value, m_rules)) Fail();
    return value;
}

View Reader::Integer() {
    const View content = Next(tag::Integer).content;
    if (!IsInteger(content)) Fail();
    return content;
}

std::int64_t Reader::Int64() {
    std::int64_t value = 0;
    if (!DecodeInteger(Next(tag::Integer).content, value)) Fail();
    return value;
}

DWORD Reader::Unsigned() {
    std::uint64_t value = 0;
    if (!DecodeUnsigned(Next(tag::Integer).content, value) || value > std::numeric_limits<DWORD>::max()) Fail();
    return static_cast<DWORD>(value);
}

CTOOString Reader::Oid() {
    std::string text;
    if (!OidToText(Next(tag::Oid).content, text)) Fail();
    return text;
}

BitString Reader::Bits() {
    BitString value;
    if (!DecodeBitString(Next(tag::BitString).content, value, m_rules)) Fail();
    return value;
}

View Reader::Octets() {
    return Next(tag::OctetString).content;
}

FILETIME Reader::Time() {
    const Element element = Next();
    FILETIME time{};
    if (!DecodeTime(element.tag, element.content, time)) Fail();
    return time;
}

void Reader::Null() {
    if (!Next(tag::Null).content.empty()) Fail();
}

void Reader::Fail() const {
    ThrowBadStructure(m_context);
}

OctetPieces::OctetPieces(const Element& element, Rules rules) {
    if (!element.tag.IsConstructed()) {
        m_only = element.content;
    } else if (rules == Rules::Ber && Reader({}, "", rules).TryInside(element, m_open[0])) {
        m_depth = 1;
    } else {
        m_failed = true;
    }
}

bool OctetPieces::Next(View& piece) {
    if (!m_only.empty()) {
        piece = m_only;
        m_only = View();
        return true;
    }
    while (m_depth != 0 && !m_failed) {
        Reader& reader = m_open[m_depth - 1];
        if (reader.AtEnd()) {
            --m_depth;
            continue;
        }
        Element part;
        if (!reader.TryNext(part) || !part.tag.IsUniversal() || part.tag.number != tag::OctetString.number) {
            m_failed = true;
        } else if (part.tag.IsConstructed()) {
            // Each reader on the stack is one level deeper than the one below, so TryInside bounds the stack as well.
            if (m_depth == kMaxDepth || !reader.TryInside(part, m_open[m_depth])) {
                m_failed = true;
            } else {
                ++m_depth;
            }
        } else if (!part.content.empty()) {
            piece = part.content;
            return true;
        }
    }
    return false;
}

bool JoinOctets(const Element& element, Rules rules, IdentObj& octets) {
    std::uint64_t total = 0;
    View piece;
    OctetPieces measured(element, rules);
    while (measured.Next(piece))
        total += piece.size;
    if (measured.Failed() || total > std::numeric_limits<unsigned>::max()) return false;

    IdentObj joined;
    joined.SetSize(static_cast<unsigned>(total));
    unsigned char* out = joined.GetData();
    for (OctetPieces pieces(element, rules); pieces.Next(piece); out += piece.size)
        std::memcpy(out, piece.data, piece.size);
    octets = std::move(joined);
    return true;
}

bool IsWellFormed(View input, Rules rules) {
    Reader reader(input, "", rules);
    Element element;
    if (!reader.TryNext(element) || !reader.AtEnd()) return false;
    Reader inside;
    return !element.tag.IsConstructed() ||
           (Reader(input, "", rules).TryInside(element, inside) && IsWellFormedInside(inside));
}

void ThrowBadStructure(const char* context) {
    throw XTOOStatus(TOO_E_BAD_STRUCTURE, context);
}

}  // namespace asnt
