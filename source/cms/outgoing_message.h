// Writing a message: every size is known and checked before the first byte, and content in a file is copied through a small buffer.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "asnt/writer.h"
#include "cms/file_content.h"
#include "nal/signed_data.h"
#include "too/file.h"

namespace nal {

/// A message with its size, which is in bounds.
class OutgoingMessage {
public:
    /// Writes nothing.
    /// @param message  must outlive this
    /// @param context  text of what is thrown; a literal
    /// @throws XTOOStatus: (36) for what cannot be encoded, (12) when it would be larger than c_NAL_MAX_MESSAGE_SIZE; as FileContent
    OutgoingMessage(const CNALSignData& message, const char* context);
    /// The same with a content of `contentSize` bytes in the place of the message's, for its size alone.
    OutgoingMessage(const CNALSignData& message, std::uint64_t contentSize, const char* context);

    DWORD Size() const { return static_cast<DWORD>(m_writer.Size()); }
    /// Where the content lies when it is in a file; else null.
    FileContent* File() const { return m_file.get(); }

    IdentObj Encode();
    /// Writes at the position of an open file, which is cut back to its length before when writing fails.
    void Write(CTOOFile& file) { Write(file, {}, {}); }

    /// The same for a message whose content is in a file and whose end depends on it: one pass over the content serves both.
    /// @param seen      given the content as it is written; none is fine, as for the next one
    /// @param complete  called behind the content: may replace elements that stand behind it by others of the same size
    /// @throws XTOOStatus(41) when the size became another
    void Write(CTOOFile& file, const FileContent::Sink& seen, const std::function<void()>& complete);

private:
    void Prepare();
    void Declare(asnt::Writer& writer, bool withContent) const;
    void DeclareContent(asnt::Writer& writer) const;
    void WriteParts(CTOOFile& file, const FileContent::Sink& seen, const std::function<void()>& complete);

    const CNALSignData& m_message;
    const char* m_context;
    std::unique_ptr<FileContent> m_file;
    std::uint64_t m_externalSize = 0;  // of a content that is not in the message's memory
    bool m_external = false;
    asnt::Writer m_writer;
};

}  // namespace nal
