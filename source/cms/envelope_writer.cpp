#include "cms/envelope_writer.h"

#include <algorithm>
#include <string_view>

#include "cms/outgoing.h"
#include "cms/recipient_writer.h"
#include "frame/failure.h"
#include "too/status.h"

namespace {

constexpr char c_contentContext[] = "CNALEncryptedContentInfo::WriteObject";
constexpr char c_context[] = "CNALEnvelopedData::WriteObject";
constexpr DWORD c_attributesTag = 1;

bool IsInPieces(const CNALEncryptedContentInfo& info) { return (info.contentFlags & c_NAL_ENCRYPTED_CONTENT_IN_PIECES) != 0; }

void DeclareContentInfo(const CNALEncryptedContentInfo& info, asnt::Writer& writer, bool withContent) {
    writer.Sequence([&] {
        writer.Oid(info.contentType);
        info.contentEncryptionAlgorithm.WriteData(writer);
        if (!withContent) return;
        if (IsInPieces(info)) {
            writer.Context(0, [&] { writer.External(info.encryptedLength); });
        } else {
            writer.ExternalPrimitive(asnt::tag::ContextPrimitive(0), info.encryptedLength);
        }
    });
}

void Declare(const CNALEnvelopedData& message, asnt::Writer& writer, bool withContent) {
    writer.Sequence([&] {
        writer.Oid(c_NAL_OID_ENVELOPED_DATA);
        writer.Context(0, [&] {
            writer.Sequence([&] {
                writer.Integer(message.version);
                if (!message.originatorInfo.IsEmpty()) nal::DeclareOriginator(message.originatorInfo, writer);
                writer.Set([&] {
                    for (const CNALTransRecipientInfo& recipient : message.recipientInfos) nal::DeclareRecipient(recipient, writer);
                    nal::WriteElements(writer, message.otherRecipientInfos);
                });
                DeclareContentInfo(message.encryptedContentInfo, writer, withContent);
                if (!message.unprotectedAttrs.empty()) {
                    writer.Context(c_attributesTag, [&] {
                        for (const CNALAttributesSet& attribute : message.unprotectedAttrs) writer.Raw(attribute.WriteData());
                    });
                }
            });
        });
    });
}

/// A declared encoding and the content that goes into it.
class OutgoingEnvelope {
public:
    template <class Object, class DeclareObject>
    OutgoingEnvelope(const Object& object, const CNALEncryptedContentInfo& info, const char* context, DeclareObject&& declare)
        : m_content(info, c_contentContext) {
        declare(object, m_writer, context);
    }
    explicit OutgoingEnvelope(const CNALEnvelopedData& message)
        : OutgoingEnvelope(message, message.encryptedContentInfo, c_context, nal::DeclareEnvelope) {}
    explicit OutgoingEnvelope(const CNALEncryptedContentInfo& info)
        : OutgoingEnvelope(info, info, c_contentContext, nal::DeclareEncryptedContent) {}

    unsigned Size() const { return static_cast<unsigned>(m_writer.Size()); }

    IdentObj Encode() {
        IdentObj der;
        der.SetSize(Size());
        IdentObj before;
        IdentObj after;
        m_writer.FinishParts(before, after);
        unsigned char* out = std::copy_n(before.GetData(), before.GetSize(), der.GetData());
        m_content.CopyTo(out);
        std::copy_n(after.GetData(), after.GetSize(), der.GetData() + der.GetSize() - after.GetSize());
        return der;
    }

    void Write(CTOOFile& file, const char* context) {
        if (m_content.File() != nullptr && nal::IsSameFile(m_content.File()->File(), file)) {
            throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        }
        nal::FileUndo undo(file);
        IdentObj before;
        IdentObj after;
        m_writer.FinishParts(before, after);
        file.Write(before);
        m_content.ForEachChunk(nal::c_copyChunk, [&](asnt::View chunk) { file.Write(chunk.data, chunk.size); });
        file.Write(after);
        undo.Done();
    }

private:
    nal::EncryptedBytes m_content;
    asnt::Writer m_writer;
};

WhatToSignStruct RegionOf(const CNALEncryptedContentInfo& info, const char* context) {
    WhatToSignStruct what;
    what.flags = c_NAL_CONTENT_IN_FILE;
    what.data = info.contentPath.c_str();
    what.start = info.contentOffset;
    const std::uint64_t end = std::uint64_t{info.contentOffset} + info.encryptedLength;
    if (end > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_RANGE, context);
    what.end = static_cast<DWORD>(end);
    return what;
}

}  // namespace

void nal::DeclareEnvelope(const CNALEnvelopedData& message, asnt::Writer& writer, const char* context) {
    DeclareMessage(writer, context, [&](asnt::Writer& to, bool withContent) { Declare(message, to, withContent); });
}

void nal::DeclareEncryptedContent(const CNALEncryptedContentInfo& info, asnt::Writer& writer, const char* context) {
    DeclareMessage(writer, context, [&](asnt::Writer& to, bool withContent) { DeclareContentInfo(info, to, withContent); });
}

nal::EncryptedBytes::EncryptedBytes(const CNALEncryptedContentInfo& info, const char* context) {
    if ((info.contentFlags & c_NAL_ENCRYPTED_CONTENT) == 0 || info.encryptedLength == 0) {
        throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
    }
    if (!info.contentPath.empty()) {
        m_file = std::make_unique<FileContent>(RegionOf(info, context), context);
        return;
    }
    if (info.encryptedContent.GetSize() != info.encryptedLength) throw XTOOStatus(TOO_E_ENCODE, context);
    m_memory = info.encryptedContent;
}

void nal::EncryptedBytes::ForEachChunk(std::size_t chunkSize, const FileContent::Sink& sink) const {
    if (m_file) return m_file->ForEachChunk(chunkSize, sink);
    sink(m_memory);
}

void nal::EncryptedBytes::CopyTo(unsigned char* out) const {
    if (m_file) return m_file->CopyTo(out);
    std::copy_n(m_memory.data, m_memory.size, out);
}

IdentObj CNALEncryptedContentInfo::WriteObject(int* err) const {
    IdentObj der;
    nal::Report(err, [&] { der = OutgoingEnvelope(*this).Encode(); });
    return der;
}

void CNALEncryptedContentInfo::WriteObject(CTOOFile& file) const { OutgoingEnvelope(*this).Write(file, c_contentContext); }

unsigned int CNALEncryptedContentInfo::GetObjectSize() const { return OutgoingEnvelope(*this).Size(); }

unsigned int CNALEncryptedContentInfo::GetEncryptSize(unsigned long /*hKey*/, unsigned int openSize, unsigned int flags) const {
    constexpr std::uint64_t pieceHeader = 4;
    const bool inPieces = (flags & c_NAL_ENCRYPTED_CONTENT_IN_PIECES) != 0;
    const std::uint64_t pieces = (std::uint64_t{openSize} + c_NAL_PIECE_SIZE - 1) / c_NAL_PIECE_SIZE;
    const std::uint64_t size = openSize + (inPieces ? pieces * pieceHeader : 0);
    if (size > c_NAL_MAX_MESSAGE_SIZE) throw XTOOStatus(TOO_E_TOO_LARGE, "CNALEncryptedContentInfo::GetEncryptSize");
    return static_cast<unsigned>(size);
}

IdentObj CNALEnvelopedData::WriteObject(int* err) const {
    IdentObj der;
    nal::Report(err, [&] { der = OutgoingEnvelope(*this).Encode(); });
    return der;
}

int CNALEnvelopedData::WriteObject(CTOOFile& file, int* err) const {
    return nal::Report(err, [&] { OutgoingEnvelope(*this).Write(file, c_context); });
}
