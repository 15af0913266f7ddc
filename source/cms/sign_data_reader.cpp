#include "cms/sign_data_reader.h"

#include <utility>

#include "cms/message_reader.h"
#include "too/status.h"

namespace nal {

namespace {

constexpr asnt::Tag c_piecedOctetString{asnt::Tag::kConstructed, asnt::tag::OctetString.number};

bool IsOctetString(const asnt::Header& header) {
    return header.tag == asnt::tag::OctetString || header.tag == c_piecedOctetString;
}

class SignDataReader : public MessageReader {
public:
    SignDataReader(ByteSource& source, CNALSignData& message, std::uint64_t budget)
        : MessageReader(source, c_readContext, budget), m_message(message) {}
    SignDataReader(const SignDataReader&) = delete;
    SignDataReader& operator=(const SignDataReader&) = delete;
    virtual ~SignDataReader() = default;

    /// @return where it ends
    std::uint64_t ReadMessage(std::uint64_t start) {
        return ReadContentInfo(start, c_NAL_OID_SIGNED_DATA, TOO_E_NOT_FOUND, [&](BerCursor& body) { ReadBody(body); });
    }

    void ReadDigestAlgorithms(BerCursor& body) {
        std::list<CNALAlgorithmIdentifier> read;
        body.Inside(asnt::tag::Set, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& set) {
            ForEachElement(set, [&](IdentObj&& element) {
                asnt::Reader reader(element, c_readContext);
                read.emplace_back().ReadData(reader);
            });
        });
        m_message.digestAlgorithms = std::move(read);
    }

    void ReadEncapContentInfo(BerCursor& body) {
        body.Inside(asnt::tag::Sequence, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& info) {
            CASNTIdData type(TakeOid(info).c_str());
            ContentRegion region;
            const bool attached = !info.AtEnd();
            if (attached) region = ReadContent(info);
            if (!info.AtEnd()) info.Fail(TOO_E_NOT_SIGNED_MESSAGE);
            m_message.eContent.Clear();
            m_message.dataSource = WhatToSignStruct();
            if (attached) KeepContent(region);
            m_message.eContentType = std::move(type);
        });
    }

    void ReadCertificates(BerCursor& body) { m_message.certificates = ReadElements(body, asnt::tag::Context(0)); }
    void ReadCrls(BerCursor& body) { m_message.crls = ReadElements(body, asnt::tag::Context(1)); }

private:
    void ReadBody(BerCursor& body) {
        m_message.version = TakeVersion(body);
        ReadDigestAlgorithms(body);
        ReadEncapContentInfo(body);
        // Each at most once and in this order, or it would be written back otherwise than it came.
        if (body.NextIs(asnt::tag::Context(0))) ReadCertificates(body);
        if (body.NextIs(asnt::tag::Context(1))) ReadCrls(body);
        m_message.signerInfos = ReadElements(body, asnt::tag::Set);
        if (!body.AtEnd()) body.Fail(TOO_E_NOT_SIGNED_MESSAGE);
    }

    // eContent is [0] { OCTET STRING }. A bare OCTET STRING is taken as well, and inside [0] any type (RFC 2315, and
    // RFC 5652 section 5.2.1): its content octets are what is signed.
    static ContentRegion ReadContent(BerCursor& info) {
        if (IsOctetString(info.Peek())) return FindContent(info, c_piecedOctetString);
        ContentRegion region;
        info.Inside(asnt::tag::Context(0), TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& wrapper) {
            if (wrapper.AtEnd()) wrapper.Fail(TOO_E_BAD_STRUCTURE);
            region = FindContent(wrapper, c_piecedOctetString);
        });
        return region;
    }

    virtual void KeepContent(const ContentRegion& region) = 0;

protected:
    CNALSignData& m_message;
};

class MemoryReader final : public SignDataReader {
public:
    MemoryReader(ByteSource& source, CNALSignData& message) : SignDataReader(source, message, source.Size()) {}

private:
    void KeepContent(const ContentRegion& region) override {
        IdentObj content;
        if (!region.inPieces) {
            content = Load(region);
        } else {
            content.SetSize(static_cast<unsigned>(Pieces(region).CountBytes()));
            unsigned char* out = content.GetData();
            PieceWalker pieces = Pieces(region);
            std::uint64_t offset = 0;
            for (std::uint64_t size = 0; pieces.Next(offset, size); out += size) m_source.Read(offset, out, size);
        }
        m_message.eContent = std::move(content);
    }

    PieceWalker Pieces(const ContentRegion& region) const {
        return {m_source, region.start, region.end, false, c_readContext};
    }
};

class FileReader final : public SignDataReader {
public:
    FileReader(ByteSource& source, CNALSignData& message, const CTOOString& path)
        : SignDataReader(source, message, c_maxLoaded), m_path(path) {}

private:
    void KeepContent(const ContentRegion& region) override {
        // In any message something follows the pieces, if only the signer infos; so these two bytes are in the file.
        const std::uint64_t end = region.end + (region.inPieces ? BerCursor::c_markerSize : 0);
        if (end > c_NAL_MAX_MESSAGE_SIZE) CursorAt(0).Fail(TOO_E_TOO_LARGE);
        WhatToSignStruct what;
        what.flags = c_NAL_CONTENT_IN_FILE | (region.inPieces ? c_NAL_CONTENT_IN_PIECES : 0);
        what.data = m_path.c_str();
        what.start = static_cast<DWORD>(region.start);
        what.end = static_cast<DWORD>(end);
        m_message.dataSource = what;
    }

    const CTOOString& m_path;
};

/// Runs `read` over the element, which must be all that there is, and changes the message only if it is.
template <class Read>
void ReadOne(asnt::View element, CNALSignData& message, Read&& read) {
    CNALSignData changed = message;
    MemorySource source(element);
    MemoryReader reader(source, changed);
    BerCursor cursor = reader.CursorAt(0);
    read(reader, cursor);
    if (!cursor.AtEnd()) cursor.Fail(TOO_E_BAD_STRUCTURE);
    message = std::move(changed);
}

}  // namespace

CNALSignData ReadSignData(asnt::View bytes) {
    CNALSignData message;
    MemorySource source(bytes);
    MemoryReader(source, message).ReadMessage(0);
    return message;
}

CNALSignData ReadSignData(const CTOOFile& file, std::uint64_t offset, std::uint64_t* end) {
    CNALSignData message;
    FileSource source(file);
    const std::uint64_t messageEnd = FileReader(source, message, file.GetName()).ReadMessage(offset);
    if (end != nullptr) *end = messageEnd;
    return message;
}

void ReadDigestAlgorithms(asnt::View element, CNALSignData& message) {
    ReadOne(element, message, [](auto& reader, auto& cursor) { reader.ReadDigestAlgorithms(cursor); });
}

void ReadEncapContentInfo(asnt::View element, CNALSignData& message) {
    ReadOne(element, message, [](auto& reader, auto& cursor) { reader.ReadEncapContentInfo(cursor); });
}

void ReadCertificates(asnt::View element, CNALSignData& message) {
    ReadOne(element, message, [](auto& reader, auto& cursor) { reader.ReadCertificates(cursor); });
}

void ReadCrls(asnt::View element, CNALSignData& message) {
    ReadOne(element, message, [](auto& reader, auto& cursor) { reader.ReadCrls(cursor); });
}

}  // namespace nal
