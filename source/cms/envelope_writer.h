// An encrypted message as it is written: what comes before its encrypted content, and what comes after.
#pragma once

#include <memory>

#include "asnt/writer.h"
#include "cms/file_content.h"
#include "nal/enveloped_data.h"

namespace nal {

/// Declares a message, or its EncryptedContentInfo alone, of which `contentFlags` and `encryptedLength` are known; the content
/// itself need not be there. Sizes are in bounds then.
/// @param writer   must be finished before the message changes
/// @param context  text of what is thrown; a literal
/// @throws XTOOStatus as CNALEnvelopedData::WriteObject
void DeclareEnvelope(const CNALEnvelopedData& message, asnt::Writer& writer, const char* context);
void DeclareEncryptedContent(const CNALEncryptedContentInfo& info, asnt::Writer& writer, const char* context);

/// The encrypted content as it is encoded, wherever it lies.
class EncryptedBytes {
public:
    /// @throws XTOOStatus: (28, context) when there is none, (36, context) when what is there has another length than it should;
    ///         (4, path), (37, context) for a file that is not there or too short; XTOOFile
    EncryptedBytes(const CNALEncryptedContentInfo& info, const char* context);

    /// Where the file's part lies; null for content in memory.
    FileContent* File() const { return m_file.get(); }

    /// Hands the bytes to `sink` in order. @throws as FileContent::ForEachChunk
    void ForEachChunk(std::size_t chunkSize, const FileContent::Sink& sink) const;
    /// @param out  has room for all of them
    void CopyTo(unsigned char* out) const;

private:
    asnt::View m_memory;
    std::unique_ptr<FileContent> m_file;
};

}  // namespace nal
