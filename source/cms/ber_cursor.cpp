#include "cms/ber_cursor.h"

#include <algorithm>

#include "nal/signed_data.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr std::size_t c_longestHeader = 16;
constexpr asnt::Tag c_endOfContents{0, 0};

/// The header at `position`, with the content of a definite element before `end`. False when there is none.
bool ParseAt(ByteSource& source, std::uint64_t position, std::uint64_t end, asnt::Rules rules, asnt::Header& header) {
    unsigned char bytes[c_longestHeader];
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(c_longestHeader, end - position));
    source.Read(position, bytes, count);
    return asnt::ParseHeader({bytes, count}, rules, header) == asnt::HeaderState::Read &&
           header.size + header.contentSize <= end - position;
}

bool IsMarker(const asnt::Header& header) {
    return header.tag == c_endOfContents && header.size == BerCursor::c_markerSize && header.contentSize == 0;
}

}  // namespace

void BerCursor::Fail(int code) const {
    throw XTOOStatus(code, m_context);
}

bool BerCursor::AtEnd() const {
    if (!m_indefinite) return m_position == m_end;
    asnt::Header header;
    if (!ParseAt(*m_source, m_position, m_end, asnt::Rules::Ber, header)) Fail(TOO_E_BAD_STRUCTURE);
    return IsMarker(header);
}

asnt::Header BerCursor::Peek() const {
    asnt::Header header;
    if (!ParseAt(*m_source, m_position, m_end, asnt::Rules::Ber, header) || header.tag == c_endOfContents) {
        Fail(TOO_E_BAD_STRUCTURE);
    }
    return header;
}

IdentObj BerCursor::Take(std::uint64_t& budget) {
    asnt::Header header;
    if (!ParseAt(*m_source, m_position, m_end, asnt::Rules::Der, header)) Fail(TOO_E_BAD_STRUCTURE);
    // The whole lies within the source, so no more is allocated than there is.
    const std::uint64_t size = header.size + header.contentSize;
    if (size > budget) Fail(TOO_E_TOO_LARGE);
    IdentObj element;
    element.SetSize(static_cast<unsigned>(size));
    m_source->Read(m_position, element.GetData(), element.GetSize());
    m_position += size;
    budget -= size;
    return element;
}

BerCursor::BerCursor(const BerCursor& outer, const asnt::Header& header)
    : m_source(outer.m_source),
      m_position(outer.m_position + header.size),
      m_end(header.indefinite ? outer.m_end : m_position + header.contentSize),
      m_context(outer.m_context),
      m_indefinite(header.indefinite),
      m_depth(outer.m_depth + 1) {
    if (m_depth > asnt::kMaxDepth || !header.tag.IsConstructed()) Fail(TOO_E_BAD_STRUCTURE);
}

BerCursor BerCursor::Enter() const {
    return {*this, Peek()};
}

void BerCursor::Leave(const BerCursor& inside) {
    if (!inside.AtEnd()) Fail(TOO_E_BAD_STRUCTURE);
    m_position = inside.m_position + (inside.m_indefinite ? c_markerSize : 0);
}

PieceWalker::PieceWalker(ByteSource& source, std::uint64_t start, std::uint64_t end, bool indefinite, const char* context)
    : m_source(&source), m_position(start), m_context(context) {
    Push(end, indefinite);
}

void PieceWalker::Fail(int code) const {
    throw XTOOStatus(code, m_context);
}

void PieceWalker::Push(std::uint64_t end, bool indefinite) {
    if (m_depth == asnt::kMaxDepth) Fail(TOO_E_BAD_STRUCTURE);
    m_levels[m_depth++] = {end, indefinite};
}

asnt::Header PieceWalker::ReadHeader() const {
    asnt::Header header;
    if (!ParseAt(*m_source, m_position, m_levels[m_depth - 1].end, asnt::Rules::Ber, header)) {
        Fail(TOO_E_BAD_STRUCTURE);
    }
    return header;
}

bool PieceWalker::Next(std::uint64_t& offset, std::uint64_t& size) {
    std::uint64_t run = 0;
    while (run == 0 && m_depth != 0) {
        const Level& level = m_levels[m_depth - 1];
        if (!level.indefinite && m_position == level.end) {
            --m_depth;
            continue;
        }
        const asnt::Header header = ReadHeader();
        m_position += header.size;
        if (level.indefinite && IsMarker(header)) {
            --m_depth;
        } else if (header.tag == asnt::tag::OctetString) {
            run = header.contentSize;
        } else if (header.tag.IsUniversal() && header.tag.IsConstructed() &&
                   header.tag.number == asnt::tag::OctetString.number) {
            Push(header.indefinite ? level.end : m_position + header.contentSize, header.indefinite);
        } else {
            Fail(TOO_E_BAD_STRUCTURE);
        }
    }
    if (run == 0) return false;
    offset = m_position;
    size = run;
    m_position += run;
    return true;
}

std::uint64_t PieceWalker::CountBytes() {
    std::uint64_t total = 0;
    std::uint64_t offset = 0;
    for (std::uint64_t size = 0; Next(offset, size);) {
        total += size;
        if (total > c_NAL_MAX_MESSAGE_SIZE) Fail(TOO_E_TOO_LARGE);
    }
    return total;
}

}  // namespace nal
