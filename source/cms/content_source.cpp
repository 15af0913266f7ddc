#include "cms/content_source.h"

#include <algorithm>

#include "cms/memory_content.h"
#include "too/status.h"

namespace nal {

void ContentSource::TakeFile(std::unique_ptr<FileContent> file) {
    m_file = std::move(file);
    m_reader.emplace(*m_file);
    m_size = m_file->Size();
    m_end = m_file->End();
}

void ContentSource::TakeMemory(asnt::View bytes) {
    m_memory.emplace(bytes);
    m_size = bytes.size;
    m_runLeft = bytes.size;
}

ContentSource::ContentSource(const WhatToSignStruct& what, const char* context) {
    if ((what.flags & c_NAL_CONTENT_IN_FILE) != 0) {
        WhatToSignStruct plain = what;
        plain.flags = c_NAL_CONTENT_IN_FILE;
        TakeFile(std::make_unique<FileContent>(plain, context));
        return;
    }
    TakeMemory(MemoryContent(what, context));
    m_end = what.end;
}

ContentSource::ContentSource(const CNALEncryptedContentInfo& info, ContentForm form, const char* context) {
    if ((info.contentFlags & c_NAL_ENCRYPTED_CONTENT) == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    const bool joinsPieces = form == ContentForm::Joined && (info.contentFlags & c_NAL_ENCRYPTED_CONTENT_IN_PIECES) != 0;
    if (!info.contentPath.empty()) {
        const std::uint64_t start = info.contentOffset;
        TakeFile(std::make_unique<FileContent>(info.contentPath, start, start + info.encryptedLength, joinsPieces, context));
        return;
    }
    if (info.encryptedContent.GetSize() != info.encryptedLength) throw XTOOStatus(TOO_E_ENCODE, context);
    TakeMemory(info.encryptedContent);
    m_end = info.encryptedLength;
    if (!joinsPieces) return;
    m_size = PieceWalker(*m_memory, 0, info.encryptedLength, false, context).CountBytes();
    m_pieces.emplace(*m_memory, 0, info.encryptedLength, false, context);
    m_runLeft = 0;
}

std::size_t ContentSource::Read(unsigned char* out, std::size_t size) {
    if (m_reader) return m_reader->Read(out, size);
    std::size_t done = 0;
    while (done != size && (m_runLeft != 0 || (m_pieces && m_pieces->Next(m_offset, m_runLeft)))) {
        const auto count = static_cast<std::size_t>(std::min(m_runLeft, std::uint64_t{size - done}));
        m_memory->Read(m_offset, out + done, count);
        m_offset += count;
        m_runLeft -= count;
        done += count;
    }
    return done;
}

}  // namespace nal
