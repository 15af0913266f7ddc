/// Writing of DER: what goes into an encoding is declared first, its sizes add up as elements close, and `Finish`
/// writes everything into one buffer of the right size.
///
///     asnt::Writer writer;
///     writer.Sequence([&] {
///         writer.Integer(1);
///         writer.Oid("1.2.643.2.2.3");
///         writer.Context(0, [&] { writer.Raw(certificate); });
///     });
///     IdentObj der = writer.Finish();
///
/// Contents are looked at, not copied: bytes passed as a View (or as an IdentObj that stays in place) must live until
/// `Finish`. An IdentObj passed as a temporary is kept by the writer. Text, numbers, identifiers and times are kept
/// too.
///
/// Failures are thrown as XTOOStatus(TOO_E_ENCODE): a value that its type cannot hold, content above 4 GiB - 1, `End`
/// without `Begin` and the reverse. A writer that has thrown is thrown away. One thread at a time uses a writer.
/// Source: ITU-T X.690 sections 8, 10, 11.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include "asnt/view.h"
#include "too/export.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

namespace asnt {

/// The order of a SET OF's elements.
enum class Order : unsigned char {
    AsGiven,  ///< as they were written
    Sorted,   ///< ascending by their encodings, as DER asks (X.690 section 11.6)
};

class NAL_HOST_EXPORT Writer {
public:
    Writer();
    ~Writer();
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    Writer(Writer&&) noexcept;
    Writer& operator=(Writer&&) noexcept;

    /// Opens a constructed element; what is written until `End` is its content.
    void Begin(Tag tag, Order order = Order::AsGiven);
    void End();

    /// Constructed elements whose content `body` writes.
    template <class Body>
    void Constructed(Tag tag, Body&& body, Order order = Order::AsGiven) {
        Begin(tag, order);
        body();
        End();
    }
    template <class Body>
    void Sequence(Body&& body) {
        Constructed(tag::Sequence, body);
    }
    template <class Body>
    void Set(Body&& body, Order order = Order::AsGiven) {
        Constructed(tag::Set, body, order);
    }
    /// [number], constructed: EXPLICIT, or IMPLICIT over a SEQUENCE or SET.
    template <class Body>
    void Context(std::uint32_t number, Body&& body, Order order = Order::AsGiven) {
        Constructed(tag::Context(number), body, order);
    }

    /// An element with the given content, whatever the tag.
    void Primitive(Tag tag, View content);
    void Primitive(Tag tag, IdentObj&& content);
    /// The same, last byte first.
    void PrimitiveReversed(Tag tag, View content);

    void Boolean(bool value);
    void Null();
    void Integer(std::int64_t value);
    void Unsigned(std::uint64_t value);
    /// An INTEGER from its content octets, most significant first, as they stand. An INTEGER has at least one.
    void IntegerOctets(View content);
    /// An INTEGER from its content octets, least significant first, as serial numbers are held.
    void IntegerReversed(View content);
    void Enumerated(std::int64_t value);
    /// @param dotted  for example "1.2.643.2.2.3"; see asnt/oid.h for the bounds
    void Oid(std::string_view dotted);
    void Oid(const char* dotted) { Oid(std::string_view(dotted)); }
    void Oid(const std::string& dotted) { Oid(std::string_view(dotted)); }
    void Oid(const CTOOString& dotted) { Oid(dotted.view()); }
    /// @param unusedBits  0 to 7; those bits are written as zero, as DER asks
    void BitString(View bytes, unsigned unusedBits = 0);
    void OctetString(View bytes) { Primitive(tag::OctetString, bytes); }
    void OctetString(IdentObj&& bytes) { Primitive(tag::OctetString, static_cast<IdentObj&&>(bytes)); }
    void OctetStringReversed(View bytes) { PrimitiveReversed(tag::OctetString, bytes); }
    /// UTCTime, 1950 to 2049, in whole seconds.
    void UtcTime(const FILETIME& time);
    /// GeneralizedTime, 1601 to 9999, in whole seconds.
    void GeneralizedTime(const FILETIME& time);
    /// UTCTime through 2049 and GeneralizedTime after, as RFC 5280 section 4.1.2.5 asks.
    void Time(const FILETIME& time);
    /// Elements that are encoded already; none is fine.
    void Raw(View encoded);
    void Raw(IdentObj&& encoded);

    /// `size` bytes that the caller writes itself, as when the content of a message is a file: they count in every
    /// length around them. At most one such place, never inside a sorted SET; see FinishParts.
    void External(std::uint64_t size);
    /// The header of a primitive element whose `size` content bytes are external.
    void ExternalPrimitive(Tag tag, std::uint64_t size);

    /// The size of the whole encoding in bytes, external bytes included. Everything must be closed.
    std::uint64_t Size() const;
    /// The encoding. Everything must be closed, and nothing external. The writer is empty afterwards.
    IdentObj Finish();
    /// The encoding without its external bytes: what comes before them, and what comes after.
    void FinishParts(IdentObj& before, IdentObj& after);

private:
    // One element, some encoded bytes or the external ones; a constructed element's descendants follow it. Kept small,
    // since a revocation list has a few of these for each of its entries.
    struct Node {
        enum Kind : unsigned char { Plain, Reversed, Bits, Kept, RawBytes, ExternalBytes };

        union {
            const unsigned char* bytes = nullptr;
            std::size_t offset;  // Kept: into m_small
        };
        std::uint32_t size = 0;         // of those bytes
        std::uint32_t contentSize = 0;  // of the whole content
        std::uint32_t number = 0;       // of the tag
        unsigned char tagBits = 0;
        Kind kind = Plain;
        unsigned char unusedBits = 0;  // Bits: the content's first octet
        bool sorted = false;

        asnt::Tag Tag() const { return {tagBits, number}; }
    };

    void Add(Tag tag, Node::Kind kind, View content, unsigned unusedBits = 0);
    void AddKept(Tag tag, std::string_view content);
    void AddTime(Tag tag, const FILETIME& time);
    void AddInteger(Tag tag, std::int64_t value);
    View Keep(IdentObj&& bytes);
    void CountInParent(const Node& node);
    std::size_t Emit(unsigned char* out) const;
    void RequireClosed() const;

    std::vector<Node> m_nodes;
    std::vector<std::size_t> m_open;
    std::list<IdentObj> m_kept;          // passed as temporaries
    std::vector<unsigned char> m_small;  // contents that the writer made itself
    std::uint64_t m_size = 0;
    std::uint64_t m_externalSize = 0;
    bool m_hasExternal = false;
};

}  // namespace asnt
