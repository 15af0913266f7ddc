// Content to be encrypted or encrypted content, in memory or in a region of a file, read from its beginning.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "cms/ber_cursor.h"
#include "cms/byte_source.h"
#include "cms/file_content.h"
#include "nal/enveloped_data.h"
#include "nal/signed_data.h"

namespace nal {

/// How a message's encrypted content is read.
enum class ContentForm {
    AsEncoded,  ///< pieces with their headers
    Joined,     ///< the encrypted bytes alone
};

class ContentSource {
public:
    /// Plain content. c_NAL_CONTENT_IN_PIECES is not looked at: it says how the content is to be written.
    /// @param what     memory must outlive this object
    /// @param context  text of what is thrown here and later; a literal
    /// @throws XTOOStatus: (28, context) for a null pointer, (37, context) for a region that is not there, and as FileContent
    ContentSource(const WhatToSignStruct& what, const char* context);
    /// Encrypted content.
    /// @param info  must outlive this object
    /// @throws XTOOStatus: (28, context) when there is none, (36, context) when what is in memory has another length than it should,
    ///         (206, context) for damaged pieces, and as FileContent
    ContentSource(const CNALEncryptedContentInfo& info, ContentForm form, const char* context);

    /// The file that it lies in; null for memory.
    const CTOOFile* File() const { return m_file ? &m_file->File() : nullptr; }
    /// Where it ends in the file or memory.
    DWORD End() const { return m_end; }
    std::uint64_t Size() const { return m_size; }

    /// @return the bytes read: `size`, or at the end what is left @throws as FileContentReader
    std::size_t Read(unsigned char* out, std::size_t size);

private:
    void TakeFile(std::unique_ptr<FileContent> file);
    void TakeMemory(asnt::View bytes);

    std::unique_ptr<FileContent> m_file;
    std::optional<FileContentReader> m_reader;
    std::optional<MemorySource> m_memory;
    std::optional<PieceWalker> m_pieces;  // of memory
    std::uint64_t m_size = 0;
    std::uint64_t m_runLeft = 0;  // of memory
    std::uint64_t m_offset = 0;   // in memory
    DWORD m_end = 0;
};

}  // namespace nal
