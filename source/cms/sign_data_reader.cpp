#include "cms/sign_data_reader.h"

#include <limits>
#include <utility>

#include "cms/ber_cursor.h"
#include "too/status.h"

namespace nal {

namespace {

// Every element of a list costs some memory of its own, so a list of tiny ones would take many times the input. Real
// ones are longer than this.
constexpr std::size_t c_freeElements = 4096;
constexpr std::size_t c_bytesPerElement = 32;
// What of a file's message is loaded: everything but the content.
constexpr std::uint64_t c_maxLoaded = 256U << 20;

constexpr asnt::Tag c_piecedOctetString{asnt::Tag::kConstructed, asnt::tag::OctetString.number};

bool IsOctetString(const asnt::Header& header) {
    return header.tag == asnt::tag::OctetString || header.tag == c_piecedOctetString;
}

/// The content octets of an element, found and checked to their end.
struct ContentRegion {
    std::uint64_t start = 0;
    std::uint64_t end = 0;  // behind the last byte; of pieces, behind the last piece
    bool inPieces = false;
};

class SignDataReader {
public:
    /// @param budget  how many bytes beside the content may be loaded
    SignDataReader(ByteSource& source, CNALSignData& message, std::uint64_t budget)
        : m_source(source), m_message(message), m_budget(budget) {}
    SignDataReader(const SignDataReader&) = delete;
    SignDataReader& operator=(const SignDataReader&) = delete;
    virtual ~SignDataReader() = default;

    BerCursor CursorAt(std::uint64_t start) const { return {m_source, start, m_source.Size(), c_readContext}; }

    void ReadMessage(std::uint64_t start) {
        BerCursor outer = CursorAt(start);
        RequireSequence(start);
        outer.Inside(asnt::tag::Sequence, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& contentInfo) {
            if (contentInfo.AtEnd()) contentInfo.Fail(TOO_E_NOT_FOUND);
            if (!contentInfo.NextIs(asnt::tag::Oid) || TakeOid(contentInfo) != c_NAL_OID_SIGNED_DATA) {
                contentInfo.Fail(TOO_E_NOT_SIGNED_MESSAGE);
            }
            contentInfo.Inside(asnt::tag::Context(0), TOO_E_BAD_STRUCTURE, [&](BerCursor& content) {
                content.Inside(asnt::tag::Sequence, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& body) { ReadBody(body); });
            });
        });
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

    void ReadCertificates(BerCursor& body) { ReadElements(body, asnt::tag::Context(0), m_message.certificates); }
    void ReadCrls(BerCursor& body) { ReadElements(body, asnt::tag::Context(1), m_message.crls); }

private:
    // Anything may be handed over as a signed message, so what does not even begin as one is told from a damaged one.
    void RequireSequence(std::uint64_t start) const {
        unsigned char first = 0;
        if (start < m_source.Size()) m_source.Read(start, &first, 1);
        if (first != (asnt::tag::Sequence.bits | asnt::tag::Sequence.number)) {
            CursorAt(start).Fail(TOO_E_NOT_SIGNED_MESSAGE);
        }
    }

    void ReadBody(BerCursor& body) {
        m_message.version = TakeVersion(body);
        ReadDigestAlgorithms(body);
        ReadEncapContentInfo(body);
        // Each at most once and in this order, or it would be written back otherwise than it came.
        if (body.NextIs(asnt::tag::Context(0))) ReadCertificates(body);
        if (body.NextIs(asnt::tag::Context(1))) ReadCrls(body);
        ReadElements(body, asnt::tag::Set, m_message.signerInfos);
        if (!body.AtEnd()) body.Fail(TOO_E_NOT_SIGNED_MESSAGE);
    }

    std::int32_t TakeVersion(BerCursor& body) {
        const IdentObj element = body.Take(m_budget);
        const std::int64_t version = asnt::Reader(element, c_readContext).Int64();
        if (version < std::numeric_limits<std::int32_t>::min() || version > std::numeric_limits<std::int32_t>::max()) {
            body.Fail(TOO_E_BAD_STRUCTURE);
        }
        return static_cast<std::int32_t>(version);
    }

    CTOOString TakeOid(BerCursor& cursor) {
        const IdentObj element = cursor.Take(m_budget);
        return asnt::Reader(element, c_readContext).Oid();
    }

    template <class Visit>
    void ForEachElement(BerCursor& list, Visit&& visit) {
        std::size_t count = 0;
        std::size_t bytes = 0;
        while (!list.AtEnd()) {
            IdentObj element = list.Take(m_budget);
            bytes += element.GetSize();
            if (++count > c_freeElements + bytes / c_bytesPerElement) list.Fail(TOO_E_TOO_LARGE);
            visit(std::move(element));
        }
    }

    void ReadElements(BerCursor& body, asnt::Tag tag, std::list<IdentObj>& elements) {
        std::list<IdentObj> read;
        body.Inside(tag, TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& list) {
            ForEachElement(list, [&](IdentObj&& element) { read.push_back(std::move(element)); });
        });
        elements = std::move(read);
    }

    // eContent is [0] { OCTET STRING }. A bare OCTET STRING is taken as well, and inside [0] any type (RFC 2315, and
    // RFC 5652 section 5.2.1): its content octets are what is signed.
    static ContentRegion ReadContent(BerCursor& info) {
        if (IsOctetString(info.Peek())) return FindContent(info);
        ContentRegion region;
        info.Inside(asnt::tag::Context(0), TOO_E_NOT_SIGNED_MESSAGE, [&](BerCursor& wrapper) {
            if (wrapper.AtEnd()) wrapper.Fail(TOO_E_BAD_STRUCTURE);
            region = FindContent(wrapper);
        });
        return region;
    }

    static ContentRegion FindContent(BerCursor& cursor) {
        const asnt::Header header = cursor.Peek();
        ContentRegion region;
        region.start = cursor.Position() + header.size;
        region.end = region.start + header.contentSize;
        region.inPieces = header.tag == c_piecedOctetString;
        if (!region.inPieces) {
            if (header.indefinite) cursor.Fail(TOO_E_BAD_STRUCTURE);
            cursor.SkipTo(region.end);
            return region;
        }
        const std::uint64_t limit = header.indefinite ? cursor.Limit() : region.end;
        PieceWalker pieces(cursor.Source(), region.start, limit, header.indefinite, c_readContext);
        pieces.CountBytes();
        region.end = pieces.Position() - (header.indefinite ? BerCursor::c_markerSize : 0);
        cursor.SkipTo(pieces.Position());
        return region;
    }

    virtual void KeepContent(const ContentRegion& region) = 0;

protected:
    ByteSource& m_source;
    CNALSignData& m_message;

private:
    std::uint64_t m_budget;
};

class MemoryReader final : public SignDataReader {
public:
    MemoryReader(ByteSource& source, CNALSignData& message) : SignDataReader(source, message, source.Size()) {}

private:
    void KeepContent(const ContentRegion& region) override {
        IdentObj content;
        if (!region.inPieces) {
            content.SetSize(static_cast<unsigned>(region.end - region.start));
            m_source.Read(region.start, content.GetData(), content.GetSize());
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

CNALSignData ReadSignData(const CTOOFile& file, std::uint64_t offset) {
    CNALSignData message;
    FileSource source(file);
    FileReader(source, message, file.GetName()).ReadMessage(offset);
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
