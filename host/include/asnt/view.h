/// Reading of DER, and of BER where a caller asks for it, without copying.
///
/// A `View` is bytes that somebody else owns. A `Reader` steps over the elements in a view and never past its end, so a
/// parser reads like the grammar that it parses:
///
///     asnt::Reader top(input, "CRL");
///     asnt::Reader list = top.Enter(asnt::tag::Sequence);
///     DWORD version = list.Unsigned();
///     asnt::Element name = list.Next(asnt::tag::Sequence);
///     asnt::Element extra;
///     if (list.Optional(asnt::tag::Context(0), extra)) ...
///     list.ExpectEnd();
///
/// Two forms of failure: functions whose name starts with `Try`, and the `Decode` functions, return false and change
/// neither the reader nor their outputs; all others throw XTOOStatus(TOO_E_BAD_STRUCTURE) with the reader's context as
/// text.
///
/// Enforced under the DER rules: definite lengths, lengths and tag numbers in their shortest form, lengths of at most
/// four octets (4 GiB - 1), no element of universal tag 0, nesting of at most kMaxDepth. The BER rules also take
/// indefinite lengths and longer forms of a length. Source: ITU-T X.690 sections 8.1, 10.1.
///
/// Thread-safe as any value: distinct objects may be used at once. Views stay valid as long as the bytes they look at.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "too/export.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

namespace asnt {

/// Bytes that somebody else owns; empty by default.
struct View {
    const unsigned char* data = nullptr;
    std::size_t size = 0;

    constexpr View() = default;
    View(const void* bytes, std::size_t count) : data(static_cast<const unsigned char*>(bytes)), size(count) {}
    View(const IdentObj& bytes)
        : data(bytes.GetData()), size(bytes.GetSize()) {}  // NOLINT(google-explicit-constructor)

    bool empty() const { return size == 0; }
    const unsigned char* begin() const { return data; }
    const unsigned char* end() const { return data + size; }
    unsigned char operator[](std::size_t index) const { return data[index]; }

    /// The bytes from `offset` on, at most `count` of them; what lies outside the view is left out.
    View Sub(std::size_t offset, std::size_t count = static_cast<std::size_t>(-1)) const {
        if (offset >= size) return {};
        return {data + offset, count < size - offset ? count : size - offset};
    }

    /// An owned copy. @throws XTOOStatus(TOO_E_RANGE) above 4 GiB - 1 bytes
    NAL_HOST_EXPORT IdentObj Copy() const;

    friend bool operator==(View a, View b) {
        return a.size == b.size && (a.size == 0 || std::memcmp(a.data, b.data, a.size) == 0);
    }
    friend bool operator!=(View a, View b) { return !(a == b); }
};

/// Which rules of X.690 an input follows.
enum class Rules : unsigned char { Der, Ber };

/// An identifier: the class and constructed bits of its first octet, and its number.
struct Tag {
    static constexpr unsigned char kConstructed = 0x20;
    static constexpr unsigned char kContext = 0x80;

    unsigned char bits =
        0;  ///< 0x00 universal, 0x40 application, 0x80 context-specific, 0xC0 private; | 0x20 constructed
    std::uint32_t number = 0;

    constexpr unsigned char Class() const { return bits & 0xC0; }
    constexpr bool IsConstructed() const { return (bits & kConstructed) != 0; }
    constexpr bool IsUniversal() const { return Class() == 0; }
    constexpr bool IsContext() const { return Class() == kContext; }
    friend constexpr bool operator==(Tag a, Tag b) { return a.bits == b.bits && a.number == b.number; }
    friend constexpr bool operator!=(Tag a, Tag b) { return !(a == b); }
};

/// The identifiers of the structures that certificates and messages are made of.
namespace tag {
inline constexpr Tag Boolean{0, 1};
inline constexpr Tag Integer{0, 2};
inline constexpr Tag BitString{0, 3};
inline constexpr Tag OctetString{0, 4};
inline constexpr Tag Null{0, 5};
inline constexpr Tag Oid{0, 6};
inline constexpr Tag Enumerated{0, 10};
inline constexpr Tag Utf8String{0, 12};
inline constexpr Tag Sequence{Tag::kConstructed, 16};
inline constexpr Tag Set{Tag::kConstructed, 17};
inline constexpr Tag NumericString{0, 18};
inline constexpr Tag PrintableString{0, 19};
inline constexpr Tag TeletexString{0, 20};
inline constexpr Tag Ia5String{0, 22};
inline constexpr Tag UtcTime{0, 23};
inline constexpr Tag GeneralizedTime{0, 24};
inline constexpr Tag UniversalString{0, 28};
inline constexpr Tag BmpString{0, 30};

/// [number] EXPLICIT anything, or [number] IMPLICIT over something constructed.
constexpr Tag Context(std::uint32_t number) {
    return {Tag::kContext | Tag::kConstructed, number};
}
/// [number] IMPLICIT over something primitive.
constexpr Tag ContextPrimitive(std::uint32_t number) {
    return {Tag::kContext, number};
}
}  // namespace tag

/// Elements nested deeper than this are refused.
inline constexpr unsigned kMaxDepth = 64;
/// The longest content of an element, in bytes.
inline constexpr std::uint64_t kMaxContent = 0xFFFFFFFFu;

/// The identifier and length octets of an element.
struct Header {
    Tag tag;
    unsigned size = 0;              ///< of these octets: 2 to 12
    std::uint64_t contentSize = 0;  ///< of the content, at most kMaxContent; 0 when indefinite
    bool indefinite = false;        ///< BER only: the content ends at an end-of-contents element
};

enum class HeaderState : unsigned char {
    Read,      ///< the header is complete and valid; the content may still lie beyond the input
    NeedMore,  ///< the input ends inside the header
    Bad,       ///< no valid header starts like this
};

/// Reads the header at the start of `input`, which need not hold the content: for input that comes in pieces.
/// @param header  receives the header when the result is Read; else untouched
NAL_HOST_EXPORT HeaderState ParseHeader(View input, Rules rules, Header& header);

/// One element: identifier, length and content.
struct Element {
    Tag tag;
    bool indefinite = false;  ///< had an indefinite length
    View content;             ///< the content octets, end-of-contents left out
    View whole;               ///< the whole encoding

    std::size_t HeaderSize() const { return static_cast<std::size_t>(content.data - whole.data); }
    bool Is(Tag expected) const { return tag == expected; }
};

/// A BIT STRING's value.
struct BitString {
    View bytes;                    ///< first bit of the string is the top bit of the first byte
    unsigned char unusedBits = 0;  ///< 0 to 7, at the low end of the last byte

    /// Bit `index`, counted from 0 as in named bit lists; false beyond the end.
    bool Bit(std::size_t index) const {
        return index / 8 < bytes.size && (bytes[index / 8] >> (7 - index % 8) & 1) != 0;
    }
};

/// Content octets to values. Each returns false, and leaves its output alone, for content that its type does not have.

/// BOOLEAN: 0x00 or 0xFF; the BER rules take any other octet as true. X.690 sections 8.2, 11.1.
NAL_HOST_EXPORT bool DecodeBoolean(View content, bool& value, Rules rules = Rules::Der);
/// Whether `content` is an INTEGER's: not empty, and no needless leading octet. X.690 section 8.3.
NAL_HOST_EXPORT bool IsInteger(View content);
/// INTEGER or ENUMERATED that fits 64 bits with sign.
NAL_HOST_EXPORT bool DecodeInteger(View content, std::int64_t& value);
/// INTEGER that is not negative and fits 64 bits.
NAL_HOST_EXPORT bool DecodeUnsigned(View content, std::uint64_t& value);
/// BIT STRING; under the DER rules its unused bits are zero. X.690 sections 8.6, 11.2.
NAL_HOST_EXPORT bool DecodeBitString(View content, BitString& value, Rules rules = Rules::Der);

/// Steps over the elements of a view.
class NAL_HOST_EXPORT Reader {
public:
    /// A reader of nothing.
    Reader() = default;
    /// @param input    the elements, one after another; must outlive the reader and the views that it gives
    /// @param context  the text of what is thrown; a literal, or text that outlives the reader. Readers of inner
    /// elements inherit it.
    /// @param rules    inherited by readers of inner elements
    explicit Reader(View input, const char* context = "", Rules rules = Rules::Der)
        : m_rest(input), m_context(context), m_rules(rules) {}

    /// True when no byte is left.
    bool AtEnd() const { return m_rest.empty(); }
    /// The bytes not yet read.
    View Rest() const { return m_rest; }
    Rules GetRules() const { return m_rules; }

    /// Reads the next element whatever its tag. At the end, or for an element that is damaged or does not fit: false.
    bool TryNext(Element& element);
    /// Reads the next element when its tag is `expected`; else false.
    bool TryNext(Tag expected, Element& element);
    /// Reads the next element without stepping over it.
    bool TryPeek(Element& element) const { return Reader(*this).TryNext(element); }
    /// A reader of a constructed element's content. False for a primitive one and below kMaxDepth.
    bool TryInside(const Element& element, Reader& inside) const;
    /// Reads the next element when its tag is `expected` and gives a reader of its content; else false.
    bool TryEnter(Tag expected, Reader& inside);

    /// As TryNext, TryPeek, TryInside and TryEnter, but they throw.
    Element Next();
    Element Next(Tag expected);
    Element Peek() const;
    Reader Inside(const Element& element) const;
    Reader Enter(Tag expected);
    /// Steps over the next element. @throws XTOOStatus at the end or for a damaged element
    void Skip() { Next(); }

    /// Reads the next element when there is one and its tag is `expected`.
    /// @return whether it was there; `element` is untouched otherwise
    /// @throws XTOOStatus when what comes next is damaged
    bool Optional(Tag expected, Element& element);
    /// As Optional, and gives a reader of the content.
    bool OptionalEnter(Tag expected, Reader& inside);
    /// @throws XTOOStatus when bytes are left
    void ExpectEnd() const;

    /// The next element's value; they throw when it has another type or its content is invalid.

    bool Boolean();
    /// The content octets of an INTEGER, most significant first, in their shortest form.
    View Integer();
    /// An INTEGER that fits.
    std::int64_t Int64();
    /// An INTEGER from 0 to 2^32 - 1.
    DWORD Unsigned();
    /// An OBJECT IDENTIFIER as dotted text.
    CTOOString Oid();
    BitString Bits();
    /// The octets of a primitive OCTET STRING.
    View Octets();
    /// A UTCTime or GeneralizedTime; see asnt/time.h for what is accepted.
    FILETIME Time();
    void Null();

    /// Throws XTOOStatus(TOO_E_BAD_STRUCTURE) with this reader's context: for a parser's own findings.
    [[noreturn]] void Fail() const;

private:
    View m_rest;
    const char* m_context = "";
    Rules m_rules = Rules::Der;
    unsigned char m_depth = 0;
};

/// Steps over the pieces of an OCTET STRING's content, which the BER rules let come in parts, parts within parts
/// included:
///
///     asnt::OctetPieces pieces(element, reader.GetRules());
///     for (asnt::View piece; pieces.Next(piece);) hash(piece);
///     if (pieces.Failed()) ...
///
/// The element's tag must be OCTET STRING's, or one that stands for it ([n] IMPLICIT); a primitive element has one
/// piece. Under the DER rules a constructed one fails. Empty pieces are stepped over. X.690 section 8.7.
class NAL_HOST_EXPORT OctetPieces {
public:
    OctetPieces(const Element& element, Rules rules);

    /// @param piece  receives the next piece; untouched at the end and on failure
    bool Next(View& piece);
    bool Failed() const { return m_failed; }

private:
    Reader m_open[kMaxDepth];
    unsigned m_depth = 0;
    View m_only;
    bool m_failed = false;
};

/// All pieces of an OCTET STRING joined. @return false, with `octets` untouched, when a piece is damaged or they exceed
/// 4 GiB - 1
NAL_HOST_EXPORT bool JoinOctets(const Element& element, Rules rules, IdentObj& octets);

/// Whether `input` is one element, complete and with nothing behind it, and so is every constructed element inside,
/// down to kMaxDepth. Takes time linear in the input.
NAL_HOST_EXPORT bool IsWellFormed(View input, Rules rules = Rules::Der);

/// Throws XTOOStatus(TOO_E_BAD_STRUCTURE, context).
[[noreturn]] NAL_HOST_EXPORT void ThrowBadStructure(const char* context);

}  // namespace asnt
