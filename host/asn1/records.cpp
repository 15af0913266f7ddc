#include "asnt/records.h"

#include <algorithm>
#include <string>
#include <utility>

#include "asnt/oid.h"
#include "asnt/time.h"
#include "too/status.h"

namespace {

using asnt::Element;
using asnt::Reader;
using asnt::Tag;
using asnt::View;
using asnt::Writer;
namespace tag = asnt::tag;

constexpr Tag Universal(unsigned number) {
    return {0, number};
}

bool IsInteger(unsigned type) {
    return type == tag::Integer.number || type == tag::Enumerated.number;
}
bool IsTime(unsigned type) {
    return type == tag::UtcTime.number || type == tag::GeneralizedTime.number;
}
bool IsSequenceOrSet(unsigned type) {
    return type == tag::Sequence.number || type == tag::Set.number;
}

IdentObj Reversed(View bytes) {
    IdentObj reversed(nullptr, static_cast<unsigned>(bytes.size));
    std::reverse_copy(bytes.begin(), bytes.end(), reversed.GetData());
    return reversed;
}

// Runs a parser that throws, for an interface that returns the bytes consumed. @return 0 when it throws
// TOO_E_BAD_STRUCTURE
template <class Parser>
unsigned Consumed(const void* data, unsigned size, Parser&& parse) {
    Reader reader(View(data, data ? size : 0));
    if (reader.AtEnd()) return 0;
    try {
        parse(reader);
    } catch (const XTOOStatus& status) {
        if (status.GetCode() != TOO_E_BAD_STRUCTURE) throw;
        return 0;
    }
    return size - static_cast<unsigned>(reader.Rest().size);
}

IdentObj TextBytes(const CTOOString& text) {
    return IdentObj(text.data(), static_cast<unsigned>(text.size()));
}

// The dotted text in `bytes`, with or without terminator.
CTOOString Text(const IdentObj& bytes) {
    const CTOOString text(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
    return !text.empty() && text[text.size() - 1] == '\0' ? text.substr(0, text.size() - 1) : text;
}

}  // namespace

bool ASNTLowDecodeData(unsigned type, const void* data, unsigned size, IdentObj& record) {
    const View content(data, data ? size : 0);
    if (IsInteger(type)) {
        if (!asnt::IsInteger(content)) return false;
        record = Reversed(content);
    } else if (IsTime(type)) {
        FILETIME time;
        if (!asnt::DecodeTime(Universal(type), content, time)) return false;
        record = IdentObj(&time, sizeof time);
    } else {
        record = content.Copy();
    }
    return true;
}

bool ASNTLowEncodeData(unsigned type, const void* data, unsigned size, IdentObj& content) {
    const View record(data, data ? size : 0);
    if (IsInteger(type)) {
        if (record.empty()) return false;
        content = Reversed(record);
    } else if (IsTime(type)) {
        FILETIME time;
        std::string text;
        if (record.size != sizeof time) return false;
        std::memcpy(&time, record.data, sizeof time);
        if (!asnt::EncodeTime(Universal(type), time, text)) return false;
        content = TextBytes(text);
    } else {
        content = record.Copy();
    }
    return true;
}

unsigned ASNTGetAsnInfo(const void* data, unsigned size, asnt::Header& info) {
    const View input(data, data ? size : 0);
    return asnt::ParseHeader(input, asnt::Rules::Der, info) == asnt::HeaderState::Read ? info.size : 0;
}

unsigned ASNTGetSequence(const void* data, unsigned size, std::vector<View>& items, unsigned tag) {
    return Consumed(data, size, [&](Reader& reader) {
        std::vector<View> found;
        for (Reader inside = reader.Enter({Tag::kConstructed, tag}); !inside.AtEnd();)
            found.push_back(inside.Next().whole);
        items = std::move(found);
    });
}

IdentObj ASNTPutSequence(unsigned tag, const std::vector<View>& items, asnt::Order order) {
    Writer writer;
    writer.Constructed(
        {Tag::kConstructed, tag},
        [&] {
            for (const View item : items)
                writer.Raw(item);
        },
        order);
    return writer.Finish();
}

CASNTBaseRecord::CASNTBaseRecord() = default;
CASNTBaseRecord::CASNTBaseRecord(const CASNTBaseRecord&) = default;
CASNTBaseRecord& CASNTBaseRecord::operator=(const CASNTBaseRecord&) = default;
CASNTBaseRecord::CASNTBaseRecord(CASNTBaseRecord&&) noexcept = default;
CASNTBaseRecord& CASNTBaseRecord::operator=(CASNTBaseRecord&&) noexcept = default;
CASNTBaseRecord::~CASNTBaseRecord() = default;

void CASNTBaseRecord::SetContent(std::shared_ptr<const IdentObj> owner, View content) {
    m_owner = std::move(owner);
    m_content = content;
    m_entrySize = static_cast<unsigned>(content.size);
}

void CASNTBaseRecord::Adopt(const std::shared_ptr<const IdentObj>& owner, const Element& element) {
    m_tag = element.tag;
    SetContent(owner, element.content);
}

unsigned CASNTBaseRecord::ReadData(const void* data, unsigned size) {
    return Consumed(data, size, [&](Reader& reader) {
        const Element element = reader.Next();
        m_tag = element.tag;
        SetEncodedEntry(element.content.Copy());
    });
}

unsigned CASNTBaseRecord::ReadASNInfo(const void* data, unsigned size) {
    asnt::Header header;
    if (ASNTGetAsnInfo(data, size, header) == 0) return 0;
    m_tag = header.tag;
    SetContent(nullptr, {});
    m_entrySize = static_cast<unsigned>(header.contentSize);
    return header.size;
}

IdentObj CASNTBaseRecord::GetRecord() const {
    IdentObj record;
    if (!ASNTLowDecodeData(ContentType(), m_content.data, static_cast<unsigned>(m_content.size), record)) {
        asnt::ThrowBadStructure("CASNTBaseRecord::GetRecord");
    }
    return record;
}

void CASNTBaseRecord::SetTag(unsigned tag, bool constructed, unsigned char asnClass) {
    m_tag = Tag{static_cast<unsigned char>((asnClass & 0xC0) | (constructed ? Tag::kConstructed : 0)), tag};
}

void CASNTBaseRecord::SetEntry(const IdentObj& record) {
    IdentObj content;
    if (!ASNTLowEncodeData(ContentType(), record.GetData(), record.GetSize(), content)) {
        throw XTOOStatus(TOO_E_ENCODE, "CASNTBaseRecord::SetEntry");
    }
    SetEncodedEntry(content);
}

IdentObj CASNTBaseRecord::GetEncodedEntry() const {
    return m_content.Copy();
}

void CASNTBaseRecord::SetEncodedEntry(const IdentObj& content) {
    auto owner = std::make_shared<const IdentObj>(content);
    const View view(*owner);
    SetContent(std::move(owner), view);
}

IdentObj CASNTBaseRecord::GetEncodedRecord() const {
    Writer writer;
    writer.Primitive(m_tag, m_content);
    return writer.Finish();
}

Implicit::Implicit(unsigned number, unsigned type) : m_type(type) {
    SetTag(number, IsSequenceOrSet(type), Tag::kContext);
}

unsigned Implicit::ReadData(const void* data, unsigned size) {
    return Consumed(data, size, [&](Reader& reader) { SetEncodedEntry(reader.Next(m_tag).content.Copy()); });
}

unsigned CASNTUnit::ReadData(const void* data, unsigned size) {
    Reader reader(View(data, data ? size : 0), "", m_rules);
    Element element;
    if (!reader.TryNext(element) || !asnt::IsWellFormed(element.whole, m_rules)) return 0;
    const auto owner = std::make_shared<const IdentObj>(element.whole.Copy());
    AdoptTree(owner, Reader(View(*owner), "", m_rules).Next());
    return owner->GetSize();
}

void CASNTUnit::AdoptTree(const std::shared_ptr<const IdentObj>& owner, const Element& element) {
    std::vector<std::uint32_t> items;
    if (element.tag.IsConstructed()) {
        for (Reader inside(element.content, "CASNTUnit", m_rules); !inside.AtEnd(); inside.Skip()) {
            items.push_back(static_cast<std::uint32_t>(element.content.size - inside.Rest().size));
        }
    }
    Adopt(owner, element);
    m_whole = element.whole;
    m_items = std::move(items);
}

CASNTUnit CASNTUnit::GetItem(unsigned index) const {
    if (index >= m_items.size()) throw XTOOStatus(TOO_E_RANGE, "CASNTUnit::GetItem");
    CASNTUnit item(m_rules);
    item.AdoptTree(m_owner, Reader(m_content.Sub(m_items[index]), "CASNTUnit", m_rules).Next());
    return item;
}

IdentObj CASNTUnit::GetOctets() const {
    if (m_items.empty() || !m_tag.IsUniversal() || m_tag.number != tag::OctetString.number) return GetEncodedEntry();
    IdentObj octets;
    Element element;
    element.tag = m_tag;
    element.content = m_content;
    if (!asnt::JoinOctets(element, m_rules, octets)) asnt::ThrowBadStructure("CASNTUnit::GetOctets");
    return octets;
}

CASNTIdData::CASNTIdData(const char* dotted, const IdentObj& parameters) {
    m_algorithm = TextBytes(dotted);
    m_parameters = parameters;
}

CTOOString CASNTIdData::GetID() const {
    return Text(m_algorithm);
}

unsigned CASNTIdData::ReadData(const void* data, unsigned size) {
    return Consumed(data, size, [this](Reader& reader) { ReadData(reader); });
}

void CASNTIdData::ReadData(Reader& reader) {
    Reader ahead(reader);
    Reader body = ahead.Enter(tag::Sequence);
    IdentObj algorithm = TextBytes(body.Oid());
    IdentObj parameters = body.AtEnd() ? IdentObj() : body.Next().whole.Copy();
    body.ExpectEnd();
    reader = ahead;
    m_algorithm = std::move(algorithm);
    m_parameters = std::move(parameters);
}

void CASNTIdData::WriteData(Writer& writer) const {
    writer.Sequence([&] {
        writer.Oid(GetID());
        writer.Raw(m_parameters);
    });
}

IdentObj CASNTIdData::WriteData() const {
    Writer writer;
    WriteData(writer);
    return writer.Finish();
}

unsigned CASNTIdData::GetObjectSize() const {
    Writer writer;
    WriteData(writer);
    return static_cast<unsigned>(writer.Size());
}

unsigned CASNTIdData::ReadID(const void* data, unsigned size) {
    return Consumed(data, size, [this](Reader& reader) {
        m_algorithm = TextBytes(reader.Oid());
        m_parameters.Clear();
    });
}

IdentObj CASNTIdData::WriteID() const {
    Writer writer;
    writer.Oid(GetID());
    return writer.Finish();
}

unsigned CASNAlgAddInfo::ReadData(const void* data, unsigned size) {
    return Consumed(data, size, [this](Reader& reader) {
        Reader body = reader.Enter(tag::Sequence);
        CASNAlgAddInfo read;
        read.m_signOID = body.Oid();
        read.m_hashOID = body.Oid();
        if (!body.AtEnd()) read.m_encryptOID = body.Oid();
        body.ExpectEnd();
        *this = std::move(read);
    });
}

IdentObj CASNAlgAddInfo::WriteData() const {
    Writer writer;
    writer.Sequence([&] {
        writer.Oid(m_signOID);
        writer.Oid(m_hashOID);
        if (!m_encryptOID.empty()) writer.Oid(m_encryptOID);
    });
    return writer.Finish();
}
