#include "cms/outgoing_message.h"

#include <algorithm>
#include <string_view>

#include "cms/outgoing.h"
#include "too/status.h"

namespace nal {
namespace {

std::string_view OidOf(const IdentObj& text) {
    return {reinterpret_cast<const char*>(text.GetData()), text.GetSize()};
}

template <class Content>
void DeclareSignedData(const CNALSignData& message, asnt::Writer& writer, Content&& content) {
    writer.Sequence([&] {
        writer.Oid(OidOf(message.contentType));
        writer.Context(0, [&] {
            writer.Sequence([&] {
                writer.Integer(message.version);
                writer.Set([&] {
                    for (const CNALAlgorithmIdentifier& algorithm : message.digestAlgorithms) algorithm.WriteData(writer);
                });
                writer.Sequence([&] {
                    writer.Oid(OidOf(message.eContentType.m_algorithm));
                    content();
                });
                if (!message.certificates.empty()) {
                    writer.Context(0, [&] { WriteElements(writer, message.certificates); });
                }
                if (!message.crls.empty()) writer.Context(1, [&] { WriteElements(writer, message.crls); });
                writer.Set([&] { WriteElements(writer, message.signerInfos); });
            });
        });
    });
}

}  // namespace

OutgoingMessage::OutgoingMessage(const CNALSignData& message, const char* context) : m_message(message), m_context(context) {
    if (message.dataSource.IsFile()) {
        m_file = std::make_unique<FileContent>(message.dataSource, context);
        m_externalSize = m_file->Size();
        m_external = true;
    }
    Prepare();
}

OutgoingMessage::OutgoingMessage(const CNALSignData& message, std::uint64_t contentSize, const char* context)
    : m_message(message), m_context(context), m_externalSize(contentSize), m_external(true) {
    Prepare();
}

void OutgoingMessage::Prepare() {
    DeclareMessage(m_writer, m_context, [&](asnt::Writer& writer, bool withContent) { Declare(writer, withContent); });
}

void OutgoingMessage::Declare(asnt::Writer& writer, bool withContent) const {
    DeclareSignedData(m_message, writer, [&] {
        if (withContent) DeclareContent(writer);
    });
}

void OutgoingMessage::DeclareContent(asnt::Writer& writer) const {
    if (!m_external && m_message.eContent.IsEmpty()) return;
    writer.Context(0, [&] {
        if (m_external) {
            writer.ExternalPrimitive(asnt::tag::OctetString, m_externalSize);
        } else {
            writer.OctetString(asnt::View(m_message.eContent));
        }
    });
}

IdentObj OutgoingMessage::Encode() {
    if (m_file == nullptr) return m_writer.Finish();
    IdentObj der;
    der.SetSize(Size());
    IdentObj before;
    IdentObj after;
    m_writer.FinishParts(before, after);
    unsigned char* out = std::copy_n(before.GetData(), before.GetSize(), der.GetData());
    m_file->CopyTo(out);
    std::copy_n(after.GetData(), after.GetSize(), out + m_file->Size());
    return der;
}

void OutgoingMessage::Write(CTOOFile& file, const FileContent::Sink& seen, const std::function<void()>& complete) {
    FileUndo undo(file);
    if (m_file == nullptr) {
        file.Write(m_writer.Finish());
    } else {
        WriteParts(file, seen, complete);
    }
    undo.Done();
}

void OutgoingMessage::WriteParts(CTOOFile& file, const FileContent::Sink& seen, const std::function<void()>& complete) {
    IdentObj before;
    IdentObj after;
    m_writer.FinishParts(before, after);
    file.Write(before);
    m_file->ForEachChunk(c_copyChunk, [&](asnt::View chunk) {
        if (seen) seen(chunk);
        file.Write(chunk.data, chunk.size);
    });
    if (complete) {
        complete();
        asnt::Writer completed;
        Declare(completed, true);
        IdentObj sameBefore;
        const unsigned size = after.GetSize();
        completed.FinishParts(sameBefore, after);
        if (sameBefore != before || after.GetSize() != size) throw XTOOStatus(TOO_E_INTERNAL, m_context);
    }
    file.Write(after);
}

}  // namespace nal
