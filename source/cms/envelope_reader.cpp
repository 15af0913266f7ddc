// Reads an EnvelopedData message, or its EncryptedContentInfo alone, from memory or from a file; the two differ only in what
// becomes of the content.
#include <utility>

#include "cms/message_reader.h"
#include "frame/failure.h"
#include "nal/enveloped_data.h"
#include "too/status.h"

namespace {

constexpr char c_context[] = "CNALEnvelopedData::ReadObject";
constexpr char c_contentContext[] = "CNALEncryptedContentInfo::ReadObject";

constexpr asnt::Tag c_originator = asnt::tag::Context(0);
constexpr asnt::Tag c_attributes = asnt::tag::Context(1);
constexpr asnt::Tag c_content = asnt::tag::ContextPrimitive(0);
constexpr asnt::Tag c_contentInPieces = asnt::tag::Context(0);

class EnvelopeReader final : public nal::MessageReader {
public:
    /// @param path  of the file that the source is; null for memory
    EnvelopeReader(nal::ByteSource& source, const char* context, const CTOOString* path)
        : MessageReader(source, context, path != nullptr ? nal::c_maxLoaded : source.Size()), m_path(path) {}

    std::uint64_t ReadMessage(std::uint64_t start, CNALEnvelopedData& message) {
        return ReadContentInfo(start, c_NAL_OID_ENVELOPED_DATA, TOO_E_NOT_SIGNED_MESSAGE,
                               [&](nal::BerCursor& body) { ReadBody(body, message); });
    }

    CNALEncryptedContentInfo ReadEncryptedContent(nal::BerCursor& body) {
        CNALEncryptedContentInfo read;
        nal::BerCursor element = body.WithContext(c_contentContext);
        element.Inside(asnt::tag::Sequence, TOO_E_NOT_SIGNED_MESSAGE, [&](nal::BerCursor& info) {
            if (!info.NextIs(asnt::tag::Oid)) info.Fail(TOO_E_NOT_SIGNED_MESSAGE);
            read.contentType = TakeOid(info);
            const IdentObj algorithm = info.Take(m_budget);
            asnt::Reader reader(algorithm, c_contentContext);
            read.contentEncryptionAlgorithm.ReadData(reader);
            if (!info.AtEnd()) ReadContent(info, read);
            if (!info.AtEnd()) info.Fail(TOO_E_NOT_SIGNED_MESSAGE);
        });
        body.SkipTo(element.Position());
        return read;
    }

private:
    void ReadBody(nal::BerCursor& body, CNALEnvelopedData& message) {
        message.version = TakeVersion(body);
        if (body.NextIs(c_originator)) {
            const IdentObj element = body.Take(m_budget);
            message.originatorInfo.ReadObject(element.GetData(), element.GetSize(), nullptr);
        }
        body.Inside(asnt::tag::Set, TOO_E_NOT_SIGNED_MESSAGE, [&](nal::BerCursor& set) {
            ForEachElement(set, [&](IdentObj&& element) { AddRecipient(std::move(element), message); });
        });
        message.encryptedContentInfo = ReadEncryptedContent(body);
        if (body.NextIs(c_attributes)) {
            const IdentObj element = body.Take(m_budget);
            message.unprotectedAttrs.ReadData(element.GetData(), element.GetSize());
        }
        if (!body.AtEnd()) body.Fail(TOO_E_NOT_SIGNED_MESSAGE);
    }

    static void AddRecipient(IdentObj&& element, CNALEnvelopedData& message) {
        if (element.GetData()[0] != (asnt::tag::Sequence.bits | asnt::tag::Sequence.number)) {
            message.otherRecipientInfos.push_back(std::move(element));
        } else {
            message.recipientInfos.emplace_back().ReadObject(element.GetData(), element.GetSize(), nullptr);
        }
    }

    void ReadContent(nal::BerCursor& info, CNALEncryptedContentInfo& read) const {
        if (!info.NextIs(c_content) && !info.NextIs(c_contentInPieces)) info.Fail(TOO_E_BAD_STRUCTURE);
        const nal::ContentRegion region = FindContent(info, c_contentInPieces);
        if (region.end > c_NAL_MAX_MESSAGE_SIZE) info.Fail(TOO_E_TOO_LARGE);
        read.contentFlags = c_NAL_ENCRYPTED_CONTENT;
        if (region.inPieces) read.contentFlags |= c_NAL_ENCRYPTED_CONTENT_IN_PIECES;
        read.openTextSize = static_cast<DWORD>(region.contentSize);
        read.encryptedLength = static_cast<DWORD>(region.Size());
        if (m_path != nullptr) {
            read.contentPath = *m_path;
            read.contentOffset = static_cast<DWORD>(region.start);
        } else {
            read.encryptedContent = Load(region);
        }
    }

    const CTOOString* m_path;
};

void RequireData(const unsigned char* data, unsigned len, const char* context) {
    if (data == nullptr || len == 0) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
}

}  // namespace

CNALEnvelopedData::CNALEnvelopedData() = default;
CNALEnvelopedData::CNALEnvelopedData(const CNALEnvelopedData&) = default;
CNALEnvelopedData::CNALEnvelopedData(CNALEnvelopedData&&) noexcept = default;
CNALEnvelopedData& CNALEnvelopedData::operator=(const CNALEnvelopedData&) = default;
CNALEnvelopedData& CNALEnvelopedData::operator=(CNALEnvelopedData&&) noexcept = default;
CNALEnvelopedData::~CNALEnvelopedData() = default;

int CNALEnvelopedData::ReadObject(const unsigned char* data, unsigned int len, int* err) {
    // Kept until the end: `data` may be bytes of this message.
    const CNALEnvelopedData previous = std::exchange(*this, CNALEnvelopedData());
    return nal::Report(err, [&] {
        RequireData(data, len, c_context);
        nal::MemorySource source({data, len});
        CNALEnvelopedData read;
        EnvelopeReader(source, c_context, nullptr).ReadMessage(0, read);
        *this = std::move(read);
    });
}

int CNALEnvelopedData::ReadObject(const CTOOFile& file, int* err) {
    *this = CNALEnvelopedData();
    return nal::Report(err, [&] {
        const std::uint64_t start = file.Tell();
        nal::FileSource source(file);
        if (start >= source.Size()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_context);
        CNALEnvelopedData read;
        const std::uint64_t end = EnvelopeReader(source, c_context, &file.GetName()).ReadMessage(start, read);
        file.Seek(static_cast<std::int64_t>(end));
        *this = std::move(read);
    });
}

unsigned int CNALEncryptedContentInfo::ReadObject(const unsigned char* data, unsigned int len) {
    const CNALEncryptedContentInfo previous = std::exchange(*this, CNALEncryptedContentInfo());
    RequireData(data, len, c_contentContext);
    nal::MemorySource source({data, len});
    EnvelopeReader reader(source, c_contentContext, nullptr);
    nal::BerCursor cursor = reader.CursorAt(0);
    *this = reader.ReadEncryptedContent(cursor);
    return static_cast<unsigned>(cursor.Position());
}

void CNALEncryptedContentInfo::ReadObject(const CTOOFile& file) {
    *this = CNALEncryptedContentInfo();
    const std::uint64_t start = file.Tell();
    nal::FileSource source(file);
    if (start >= source.Size()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, c_contentContext);
    EnvelopeReader reader(source, c_contentContext, &file.GetName());
    nal::BerCursor cursor = reader.CursorAt(start);
    *this = reader.ReadEncryptedContent(cursor);
    file.Seek(static_cast<std::int64_t>(cursor.Position()));
}
