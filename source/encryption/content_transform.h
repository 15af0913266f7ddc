// Content on its way through a session key.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cms/content_source.h"
#include "cms/file_content.h"
#include "frame/progress.h"
#include "nal/enveloped_data.h"
#include "too/ident_obj.h"

namespace nal {

/// Memory that may hold plaintext. Whoever wants to keep it takes the bytes out.
struct WipedBuffer {
    explicit WipedBuffer(std::size_t size) { bytes.SetSize(static_cast<unsigned>(size)); }
    WipedBuffer(const WipedBuffer&) = delete;
    WipedBuffer& operator=(const WipedBuffer&) = delete;
    ~WipedBuffer() { bytes.Wipe(); }

    IdentObj bytes;
};

/// Encrypts or decrypts what a source gives, and reports progress.
///
/// A file's content goes to the provider in blocks of c_NAL_PIECE_SIZE, memory in the chunks that are asked for; the last call is marked
/// as final.
class ContentTransform {
public:
    enum Direction { Encrypt, Decrypt };

    /// @param hKey           stands at its initialisation vector
    /// @param source         must outlive this object; nothing was read from it
    /// @param writesPieces   the result is written as OCTET STRINGs of c_NAL_PIECE_SIZE bytes
    /// @param context        text of what is thrown; a literal
    ContentTransform(unsigned long hKey, Direction direction, ContentSource& source, bool writesPieces, const char* context);

    /// Transforms the next bytes of the source.
    /// @param out   has room for the result: `size`, and the headers of pieces
    /// @param size  at most this many; a multiple of c_NAL_PIECE_SIZE, or all
    /// @return the bytes written to `out`; 0 at the end
    /// @throws XTOOStatus: the provider's status, (14) when the progress handler cancels; as ContentSource::Read
    std::size_t Next(unsigned char* out, std::size_t size);

    /// Transforms everything.
    /// @param out  has room for it
    void ToMemory(unsigned char* out);
    /// @param sink  gets it chunk by chunk, from one small buffer, which is wiped in the end
    void ToSink(const FileContent::Sink& sink);

private:
    void Run(unsigned char* data, std::size_t size);

    unsigned long m_hKey;
    Direction m_direction;
    ContentSource& m_source;
    bool m_writesPieces;
    const char* m_context;
    std::uint64_t m_left;
    Progress m_progress;
};

/// Describes content that a key is to encrypt: algorithm and parameters, form and sizes. Sets the key's meshing.
/// @throws XTOOStatus: the provider's status, (12) when it is too large; with `context`
void DescribeContent(unsigned long hKey, std::uint64_t openSize, bool inPieces, const char* context, CNALEncryptedContentInfo& info);

}  // namespace nal
