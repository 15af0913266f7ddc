// What the readers of all kinds of messages share: the elements around the content are loaded, the content itself is only found.
#pragma once

#include <cstdint>
#include <list>

#include "asnt/view.h"
#include "cms/ber_cursor.h"
#include "cms/byte_source.h"
#include "too/ident_obj.h"
#include "too/status.h"
#include "too/string.h"

namespace nal {

/// How much of a file's message is loaded at most: everything but the content.
inline constexpr std::uint64_t c_maxLoaded = 256U << 20;

/// The content octets of an element, found and checked to their end.
struct ContentRegion {
    std::uint64_t start = 0;
    std::uint64_t end = 0;  // behind the last byte; of pieces, behind the last piece
    std::uint64_t contentSize = 0;  // bytes of content, headers of pieces left out
    bool inPieces = false;

    std::uint64_t Size() const { return end - start; }
};

class MessageReader {
public:
    /// @param source   must outlive this object
    /// @param context  text of what is thrown; a literal
    /// @param budget   how many bytes beside the content may be loaded
    MessageReader(ByteSource& source, const char* context, std::uint64_t budget)
        : m_source(source), m_context(context), m_budget(budget) {}
    MessageReader(const MessageReader&) = delete;
    MessageReader& operator=(const MessageReader&) = delete;

    BerCursor CursorAt(std::uint64_t start) const { return {m_source, start, m_source.Size(), m_context}; }

protected:
    ~MessageReader() = default;

    /// Hands a cursor over the SEQUENCE in the ContentInfo of this type at `start` to `readBody`.
    /// @param emptyStatus  for a ContentInfo with nothing in it
    /// @return behind the message
    template <class ReadBody>
    std::uint64_t ReadContentInfo(std::uint64_t start, const char* type, int emptyStatus, ReadBody&& readBody) {
        BerCursor outer = CursorAt(start);
        RequireSequence(start);
        outer.Inside(asnt::tag::Sequence, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& contentInfo) {
            if (contentInfo.AtEnd()) contentInfo.Fail(emptyStatus);
            if (!contentInfo.NextIs(asnt::tag::Oid) || TakeOid(contentInfo) != type) {
                contentInfo.Fail(TOO_E_NOT_SIGNED_MESSAGE);
            }
            contentInfo.Inside(asnt::tag::Context(0), TOO_E_BAD_STRUCTURE, [&](BerCursor& content) {
                content.Inside(asnt::tag::Sequence, TOO_E_NOT_SIGNED_MESSAGE, readBody);
            });
        });
        return outer.Position();
    }

    /// Anything may be handed over as a message, so what does not even begin as one is told from a damaged one.
    /// @throws XTOOStatus(205)
    void RequireSequence(std::uint64_t start) const;

    /// An INTEGER of 32 bits. @throws XTOOStatus(206)
    std::int32_t TakeVersion(BerCursor& body);
    CTOOString TakeOid(BerCursor& cursor);

    /// Hands the elements of a list to `visit`, each as its DER.
    /// @throws XTOOStatus(12) for so many tiny ones that their memory would be many times the input
    template <class Visit>
    void ForEachElement(BerCursor& list, Visit&& visit) {
        std::size_t count = 0;
        std::size_t bytes = 0;
        while (!list.AtEnd()) {
            IdentObj element = list.Take(m_budget);
            bytes += element.GetSize();
            if (++count > c_freeElements + bytes / c_bytesPerElement) list.Fail(TOO_E_TOO_LARGE);
            visit(static_cast<IdentObj&&>(element));
        }
    }

    /// The elements of the next list, which must have this tag. @throws XTOOStatus(205) when it is another one
    std::list<IdentObj> ReadElements(BerCursor& body, asnt::Tag tag);

    /// Finds the content octets of the next element and steps over it.
    /// @param piecedTag  the tag of an element that holds pieces; one of any other tag holds the content itself
    static ContentRegion FindContent(BerCursor& cursor, asnt::Tag piecedTag);

    /// An element of content as it is kept: the bytes of a region. @param region  within the source, below 4 GiB
    IdentObj Load(const ContentRegion& region) const;

    ByteSource& m_source;
    const char* m_context;
    std::uint64_t m_budget;

private:
    // Every element of a list costs some memory of its own. Real ones are longer than this.
    static constexpr std::size_t c_freeElements = 4096;
    static constexpr std::size_t c_bytesPerElement = 32;
};

}  // namespace nal
