#include "cms/file_content.h"

#include <algorithm>
#include <vector>

#include "frame/progress.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr unsigned c_uncountedBytes = 2;  // behind the pieces, see WhatToSignStruct
constexpr std::size_t c_copyChunk = 256 * 1024;

CTOOFile OpenContent(const WhatToSignStruct& what, const char* context) {
    if (what.data == nullptr) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    const CTOOString path(static_cast<const char*>(what.data));
    if (!CTOOFile::Exists(path)) throw XTOOStatus(TOO_E_FILE_NOT_FOUND, path);
    return {path, "rbc"};
}

}  // namespace

FileContent::FileContent(const WhatToSignStruct& what, const char* context)
    : m_file(OpenContent(what, context)),
      m_context(context),
      m_inPieces((what.flags & c_NAL_CONTENT_IN_PIECES) != 0),
      m_start(what.start),
      m_end(what.end) {
    const std::uint64_t length = m_file.Length();
    if (what.end == c_NAL_TO_END_OF_FILE) m_end = length;
    if (m_start > m_end || m_end > length) throw XTOOStatus(TOO_E_RANGE, context);
    if (m_end > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_TOO_LARGE, context);
    m_size = m_end - m_start;
    if (!m_inPieces) return;
    if (m_size < c_uncountedBytes) throw XTOOStatus(TOO_E_RANGE, context);
    FileSource source(m_file);
    m_size = PieceWalker(source, m_start, m_end - c_uncountedBytes, false, context).CountBytes();
}

void FileContent::ForEachRun(const RunVisitor& visit) {
    FileSource source(m_file);
    if (!m_inPieces) {
        visit(source, m_start, m_size);
        return;
    }
    PieceWalker pieces(source, m_start, m_end - c_uncountedBytes, false, m_context);
    std::uint64_t offset = 0;
    for (std::uint64_t size = 0; pieces.Next(offset, size);) visit(source, offset, size);
}

void FileContent::ForEachChunk(std::size_t chunkSize, const Sink& sink) {
    std::vector<unsigned char> chunk(static_cast<std::size_t>(std::min<std::uint64_t>(chunkSize, m_size)));
    Progress progress(m_size);
    std::uint64_t left = m_size;
    std::size_t filled = 0;
    ForEachRun([&](FileSource& source, std::uint64_t offset, std::uint64_t size) {
        // Pieces that somebody lengthened since they were counted do not get into what was announced.
        for (std::uint64_t rest = std::min(size, left); rest != 0;) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(rest, chunk.size() - filled));
            source.Read(offset, chunk.data() + filled, count);
            offset += count;
            rest -= count;
            left -= count;
            filled += count;
            if (filled != chunk.size() && left != 0) continue;
            sink({chunk.data(), filled});
            progress.Advance(filled);
            filled = 0;
        }
    });
    if (left != 0) FailShort();
}

void FileContent::CopyTo(unsigned char* out) {
    Progress progress(m_size);
    std::uint64_t left = m_size;
    ForEachRun([&](FileSource& source, std::uint64_t offset, std::uint64_t size) {
        for (std::uint64_t rest = std::min(size, left); rest != 0;) {
            const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(rest, c_copyChunk));
            source.Read(offset, out, count);
            offset += count;
            out += count;
            rest -= count;
            left -= count;
            progress.Advance(count);
        }
    });
    if (left != 0) FailShort();
}

void FileContent::FailShort() const {
    throw XTOOFile(TOO_E_READ, m_file.GetName(), "unexpected end of");
}

}  // namespace nal
