// Steps over the elements of an encoded message in memory or in a file, without loading what is not asked for.
//
// asnt::Reader does this for bytes in memory. A message's content may be a region of a file of gigabytes, stored in one
// piece or in many; so the elements around it are walked here by offsets, under the BER rules, and every element that
// is taken must be DER.
#pragma once

#include <cstdint>

#include "asnt/view.h"
#include "cms/byte_source.h"
#include "too/ident_obj.h"

namespace nal {

/// The elements between two offsets of a source, or inside one constructed element.
class BerCursor {
public:
    /// @param end      behind the last byte, within the source
    /// @param context  text of what is thrown; a literal
    BerCursor(ByteSource& source, std::uint64_t start, std::uint64_t end, const char* context)
        : m_source(&source), m_position(start), m_end(end), m_context(context) {}

    static constexpr unsigned c_markerSize = 2;  ///< of the end-of-contents marker

    std::uint64_t Position() const { return m_position; }
    /// Behind the last byte that may belong to the elements.
    std::uint64_t Limit() const { return m_end; }
    /// @param position  up to Limit(): behind the next element, which somebody else walked over
    void SkipTo(std::uint64_t position) { m_position = position; }
    ByteSource& Source() const { return *m_source; }
    const char* Context() const { return m_context; }
    /// The same place, with another text of what is thrown.
    BerCursor WithContext(const char* context) const {
        BerCursor other = *this;
        other.m_context = context;
        return other;
    }
    [[noreturn]] void Fail(int code) const;

    /// True at the end; that of an indefinite element is its end-of-contents marker. @throws XTOOStatus(206) when that
    /// is missing
    bool AtEnd() const;

    /// The header of the next element, which lies within this one if its length is definite.
    /// @throws XTOOStatus(206) when there is none or it is damaged
    asnt::Header Peek() const;
    bool NextIs(asnt::Tag tag) const { return !AtEnd() && Peek().tag == tag; }

    /// Loads the next element, which must be DER as far as its header says, and steps over it.
    /// @param budget  how much may be loaded; becomes less by the element's size
    /// @throws XTOOStatus(206); XTOOStatus(12) for one above the budget
    IdentObj Take(std::uint64_t& budget);

    /// Hands a cursor over the next element's content, which must have this tag, to `body`, which must step to its end;
    /// then steps over it.
    /// @param code  thrown when there is no next element or it has another tag
    template <class Body>
    void Inside(asnt::Tag tag, int code, Body&& body) {
        if (!NextIs(tag)) Fail(code);
        BerCursor inside = Enter();
        body(inside);
        Leave(inside);
    }

    /// A cursor over the next element's content; `Leave` with it, at its end, steps behind the element.
    BerCursor Enter() const;
    void Leave(const BerCursor& inside);

private:
    BerCursor(const BerCursor& outer, const asnt::Header& header);

    ByteSource* m_source;
    std::uint64_t m_position;
    std::uint64_t m_end;  // of an indefinite element: how far it may go
    const char* m_context;
    bool m_indefinite = false;
    unsigned m_depth = 0;
};

/// The runs of content bytes in an OCTET STRING, or in a region that holds the pieces of one; pieces may hold pieces.
class PieceWalker {
public:
    /// @param start       where the first piece begins
    /// @param end         behind the last piece; when `indefinite`, how far they may go before their end is marked
    /// @param context     text of what is thrown; a literal
    PieceWalker(ByteSource& source, std::uint64_t start, std::uint64_t end, bool indefinite, const char* context);

    /// @return false, with nothing changed, behind the last run. Empty runs are stepped over.
    /// @throws XTOOStatus(206) when a piece is damaged or is no OCTET STRING
    bool Next(std::uint64_t& offset, std::uint64_t& size);

    /// How many content bytes are left; steps over them.
    /// @throws XTOOStatus(12) above the largest message
    std::uint64_t CountBytes();

    /// Behind what was walked over; at the end, behind the marker of the end too.
    std::uint64_t Position() const { return m_position; }

private:
    struct Level {
        std::uint64_t end;
        bool indefinite;
    };

    void Push(std::uint64_t end, bool indefinite);
    [[noreturn]] void Fail(int code) const;
    asnt::Header ReadHeader() const;

    ByteSource* m_source;
    std::uint64_t m_position;
    const char* m_context;
    Level m_levels[asnt::kMaxDepth];
    unsigned m_depth = 0;
};

}  // namespace nal
