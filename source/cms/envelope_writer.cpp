#include "cms/envelope_writer.h"

#include <algorithm>
#include <vector>

#include "cms/content_source.h"
#include "cms/outgoing.h"
#include "cms/recipient_writer.h"
#include "frame/failure.h"
#include "frame/progress.h"
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
        : m_content(info, nal::ContentForm::AsEncoded, c_contentContext) {
        if (info.encryptedLength == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
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
        unsigned char* out = der.GetData();
        Write([&](asnt::View bytes) { out = std::copy_n(bytes.data, bytes.size, out); });
        return der;
    }

    void WriteTo(CTOOFile& file, const char* context) {
        if (m_content.File() != nullptr && nal::IsSameFile(*m_content.File(), file)) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        nal::FileUndo undo(file);
        Write([&](asnt::View bytes) { file.Write(bytes.data, bytes.size); });
        undo.Done();
    }

private:
    template <class Sink>
    void Write(Sink&& sink) {
        IdentObj before;
        IdentObj after;
        m_writer.FinishParts(before, after);
        sink(before);
        std::vector<unsigned char> chunk(std::min<std::uint64_t>(nal::c_copyChunk, m_content.Size()));
        nal::Progress progress(m_content.Size());
        while (const std::size_t count = m_content.Read(chunk.data(), chunk.size())) {
            sink(asnt::View(chunk.data(), count));
            progress.Advance(count);
        }
        sink(after);
    }

    nal::ContentSource m_content;
    asnt::Writer m_writer;
};

}  // namespace

void nal::DeclareEnvelope(const CNALEnvelopedData& message, asnt::Writer& writer, const char* context) {
    DeclareMessage(writer, context, [&](asnt::Writer& to, bool withContent) { Declare(message, to, withContent); });
}

void nal::DeclareEncryptedContent(const CNALEncryptedContentInfo& info, asnt::Writer& writer, const char* context) {
    DeclareMessage(writer, context, [&](asnt::Writer& to, bool withContent) { DeclareContentInfo(info, to, withContent); });
}

IdentObj CNALEncryptedContentInfo::WriteObject(int* err) const {
    IdentObj der;
    nal::Report(err, [&] { der = OutgoingEnvelope(*this).Encode(); });
    return der;
}

void CNALEncryptedContentInfo::WriteObject(CTOOFile& file) const { OutgoingEnvelope(*this).WriteTo(file, c_contentContext); }

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
    return nal::Report(err, [&] { OutgoingEnvelope(*this).WriteTo(file, c_context); });
}
