// The content that a region of a file holds, as it is or in pieces: what is signed, copied, compared and taken out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "asnt/view.h"
#include "cms/ber_cursor.h"
#include "cms/byte_source.h"
#include "nal/signed_data.h"
#include "too/file.h"

namespace nal {

class FileContent {
public:
    /// Opens the file that `what` names and finds its region; an open end is the file's length.
    /// @param context  text of what is thrown here and later; a literal
    /// @throws XTOOStatus: (28) for a null path, (4, path), (37) for a region beyond the end of the file, (12) for one
    ///         that ends behind 4 GiB - 2, (206) for damaged pieces; XTOOFile
    FileContent(const WhatToSignStruct& what, const char* context);
    /// The same for a region that is known exactly: of pieces, it ends behind the last one.
    FileContent(const CTOOString& path, std::uint64_t start, std::uint64_t end, bool inPieces, const char* context);
    FileContent(const FileContent&) = delete;
    FileContent& operator=(const FileContent&) = delete;

    const CTOOFile& File() const { return m_file; }
    /// Where the region ends in the file.
    DWORD End() const { return static_cast<DWORD>(m_end + m_uncounted); }
    /// The bytes of content, pieces joined.
    std::uint64_t Size() const { return m_size; }

    using Sink = std::function<void(asnt::View)>;
    /// Hands the content to `sink` in order, in chunks of `chunkSize` bytes and a last one of what is left, which are
    /// valid only during the call, and reports progress.
    /// @throws XTOOFile(5) when the file has become shorter; XTOOStatus(14) when the progress handler cancels
    void ForEachChunk(std::size_t chunkSize, const Sink& sink);
    /// Copies the whole content to `out`, which has room for Size() bytes. @throws as ForEachChunk
    void CopyTo(unsigned char* out);

private:
    FileContent(const CTOOString& path, bool inPieces, unsigned uncounted, const char* context);
    void SetRegion(std::uint64_t start, std::uint64_t end);

    CTOOFile m_file;
    const char* m_context;
    bool m_inPieces;
    std::uint64_t m_uncounted;  // bytes of the region behind the pieces
    std::uint64_t m_start = 0;
    std::uint64_t m_end = 0;  // behind the content
    std::uint64_t m_size = 0;

    friend class FileContentReader;
};

/// Reads a content from its beginning, pieces joined, for callers that want the pace to be theirs.
class FileContentReader {
public:
    /// @param content  must outlive this object; of several readers each keeps its own place
    explicit FileContentReader(const FileContent& content);

    /// @return the bytes read: `size`, or at the end what is left. Bytes that were added since the content was opened are not read.
    /// @throws XTOOFile(5) when the file has become shorter; XTOOStatus(206) when its pieces were changed
    std::size_t Read(unsigned char* out, std::size_t size);

private:
    void NextRun();

    const FileContent& m_content;
    FileSource m_source;
    std::optional<PieceWalker> m_pieces;
    std::uint64_t m_offset;        // in the file, of the run's next byte
    std::uint64_t m_runLeft = 0;
    std::uint64_t m_left;
};

}  // namespace nal
