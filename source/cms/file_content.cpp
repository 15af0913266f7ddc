#include "cms/file_content.h"

#include <algorithm>
#include <vector>

#include "cms/outgoing.h"
#include "frame/progress.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr unsigned c_uncountedBytes = 2;  // behind the pieces, see WhatToSignStruct

CTOOFile OpenContent(const CTOOString& path) {
    if (!CTOOFile::Exists(path)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, path);
    return {path, "rbc"};
}

CTOOString PathOf(const WhatToSignStruct& what, const char* context) {
    if (what.data == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    return CTOOString(static_cast<const char*>(what.data));
}

bool IsInPieces(const WhatToSignStruct& what) { return (what.flags & c_NAL_CONTENT_IN_PIECES) != 0; }

}  // namespace

FileContent::FileContent(const CTOOString& path, bool inPieces, unsigned uncounted, const char* context)
    : m_file(OpenContent(path)), m_context(context), m_inPieces(inPieces), m_uncounted(uncounted) {}

FileContent::FileContent(const WhatToSignStruct& what, const char* context)
    : FileContent(PathOf(what, context), IsInPieces(what), IsInPieces(what) ? c_uncountedBytes : 0, context) {
    SetRegion(what.start, what.end == c_NAL_TO_END_OF_FILE ? m_file.Length() : what.end);
}

FileContent::FileContent(const CTOOString& path, std::uint64_t start, std::uint64_t end, bool inPieces, const char* context)
    : FileContent(path, inPieces, 0, context) {
    SetRegion(start, end);
}

void FileContent::SetRegion(std::uint64_t start, std::uint64_t end) {
    if (start > end || end > m_file.Length() || end - start < m_uncounted) throw XTOOStatus(TOO_E_RANGE, m_context);
    if (end > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_TOO_LARGE, m_context);
    m_start = start;
    m_end = end - m_uncounted;
    m_size = m_end - m_start;
    if (!m_inPieces) return;
    FileSource source(m_file);
    m_size = PieceWalker(source, m_start, m_end, false, m_context).CountBytes();
}

void FileContent::ForEachChunk(std::size_t chunkSize, const Sink& sink) {
    std::vector<unsigned char> chunk(static_cast<std::size_t>(std::min<std::uint64_t>(chunkSize, m_size)));
    Progress progress(m_size);
    FileContentReader reader(*this);
    for (std::uint64_t left = m_size; left != 0;) {
        const std::size_t count = reader.Read(chunk.data(), chunk.size());
        sink({chunk.data(), count});
        progress.Advance(count);
        left -= count;
    }
}

void FileContent::CopyTo(unsigned char* out) {
    Progress progress(m_size);
    FileContentReader reader(*this);
    for (std::uint64_t left = m_size; left != 0;) {
        const std::size_t count = reader.Read(out, c_copyChunk);
        progress.Advance(count);
        out += count;
        left -= count;
    }
}

FileContentReader::FileContentReader(const FileContent& content)
    : m_content(content), m_source(content.m_file), m_offset(content.m_start), m_left(content.m_size) {
    if (content.m_inPieces) {
        m_pieces.emplace(m_source, content.m_start, content.m_end, false, content.m_context);
    } else {
        m_runLeft = m_left;
    }
}

void FileContentReader::NextRun() {
    if (!m_pieces || !m_pieces->Next(m_offset, m_runLeft)) {
        throw XTOOFile(TOO_E_READ, m_content.m_file.GetName(), "unexpected end of");
    }
}

std::size_t FileContentReader::Read(unsigned char* out, std::size_t size) {
    std::size_t done = 0;
    // Pieces that somebody lengthened since they were counted do not get into what was announced.
    while (done != size && m_left != 0) {
        if (m_runLeft == 0) NextRun();
        const auto count = static_cast<std::size_t>(std::min({m_runLeft, m_left, std::uint64_t{size - done}}));
        m_source.Read(m_offset, out + done, count);
        m_offset += count;
        m_runLeft -= count;
        m_left -= count;
        done += count;
    }
    return done;
}

}  // namespace nal
