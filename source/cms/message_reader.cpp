#include "cms/message_reader.h"

#include <utility>

#include "model/encoding.h"

namespace nal {

void MessageReader::RequireSequence(std::uint64_t start) const {
    unsigned char first = 0;
    if (start < m_source.Size()) m_source.Read(start, &first, 1);
    if (first != (asnt::tag::Sequence.bits | asnt::tag::Sequence.number)) CursorAt(start).Fail(TOO_E_NOT_SIGNED_MESSAGE);
}

std::int32_t MessageReader::TakeVersion(BerCursor& body) {
    const IdentObj element = body.Take(m_budget);
    asnt::Reader reader(element, body.Context());
    return ReadInt32(reader);
}

CTOOString MessageReader::TakeOid(BerCursor& cursor) {
    const IdentObj element = cursor.Take(m_budget);
    return asnt::Reader(element, cursor.Context()).Oid();
}

std::list<IdentObj> MessageReader::ReadElements(BerCursor& body, asnt::Tag tag) {
    std::list<IdentObj> read;
    body.Inside(tag, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& list) {
        ForEachElement(list, [&](IdentObj&& element) { read.push_back(std::move(element)); });
    });
    return read;
}

ContentRegion MessageReader::FindContent(BerCursor& cursor, asnt::Tag piecedTag) {
    const asnt::Header header = cursor.Peek();
    ContentRegion region;
    region.start = cursor.Position() + header.size;
    region.end = region.start + header.contentSize;
    region.contentSize = header.contentSize;
    region.inPieces = header.tag == piecedTag;
    if (!region.inPieces) {
        if (header.indefinite) cursor.Fail(TOO_E_BAD_STRUCTURE);
        cursor.SkipTo(region.end);
        return region;
    }
    const std::uint64_t limit = header.indefinite ? cursor.Limit() : region.end;
    PieceWalker pieces(cursor.Source(), region.start, limit, header.indefinite, cursor.Context());
    region.contentSize = pieces.CountBytes();
    region.end = pieces.Position() - (header.indefinite ? BerCursor::c_markerSize : 0);
    cursor.SkipTo(pieces.Position());
    return region;
}

IdentObj MessageReader::Load(const ContentRegion& region) const {
    IdentObj content;
    content.SetSize(static_cast<unsigned>(region.Size()));
    m_source.Read(region.start, content.GetData(), content.GetSize());
    return content;
}

}  // namespace nal
