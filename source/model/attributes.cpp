#include "nal/attributes.h"

#include <algorithm>
#include <string>
#include <utility>

#include "asnt/oid.h"
#include "model/encoding.h"
#include "too/status.h"

namespace {

constexpr char c_setContext[] = "CNALAttributesSet::ReadData";
constexpr char c_listContext[] = "CNALAttributesList::ReadData";

/// A type as it stands in encodings, so that a search compares bytes; empty, and equal to nothing, for a text that is no OID.
std::string EncodeOid(const char* oid) {
    std::string content;
    if (oid == nullptr || !asnt::OidFromText(oid, content)) content.clear();
    return content;
}

bool SameOid(asnt::View content, const std::string& wanted) {
    return !wanted.empty() && content == asnt::View(wanted.data(), wanted.size());
}

asnt::View TypeOf(const CNALAttributesSet& attribute) {
    if (attribute.WriteData().IsEmpty()) return {};
    return asnt::Reader(attribute.WriteData()).Enter(asnt::tag::Sequence).Next(asnt::tag::Oid).content;
}

}  // namespace

CNALAttributesSet::CNALAttributesSet(const CTOOString& oid, const IdentObj& value) {
    if (!asnt::IsWellFormed(value)) throw XTOOStatus(TOO_E_ENCODE, "CNALAttributesSet");
    m_encoded = nal::Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Oid(oid);
            writer.Set([&] { writer.Raw(value); });
        });
    });
}

CTOOString CNALAttributesSet::GetOID() const { return m_encoded.IsEmpty() ? CTOOString() : Body().Oid(); }

bool CNALAttributesSet::HasOID(const char* oid) const { return SameOid(TypeOf(*this), EncodeOid(oid)); }

// What m_encoded holds was checked when it came in.
asnt::Reader CNALAttributesSet::Body() const { return asnt::Reader(m_encoded, c_setContext).Enter(asnt::tag::Sequence); }

asnt::Reader CNALAttributesSet::ValueReader() const {
    if (m_encoded.IsEmpty()) return {};
    asnt::Reader body = Body();
    body.Skip();
    return body.Enter(asnt::tag::Set);
}

std::size_t CNALAttributesSet::GetValueCount() const {
    return nal::CountElements(ValueReader());
}

std::vector<asnt::View> CNALAttributesSet::GetValues() const {
    std::vector<asnt::View> result;
    result.reserve(GetValueCount());
    for (asnt::Reader values = ValueReader(); !values.AtEnd();) result.push_back(values.Next().whole);
    return result;
}

bool CNALAttributesSet::GetSingleValue(asnt::View& value) const {
    asnt::Reader values = ValueReader();
    asnt::Element only;
    if (!values.TryNext(only) || !values.AtEnd()) return false;
    value = only.whole;
    return true;
}

void CNALAttributesSet::AddValue(const IdentObj& value) {
    if (m_encoded.IsEmpty() || !asnt::IsWellFormed(value)) throw XTOOStatus(TOO_E_ENCODE, "CNALAttributesSet");
    m_encoded = nal::Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Raw(Body().Next().whole);
            writer.Set([&] {
                writer.Raw(ValueReader().Rest());
                writer.Raw(value);
            });
        });
    });
}

void CNALAttributesSet::Adopt(const asnt::Element& attribute, const char* context) {
    asnt::Reader body = asnt::Reader(attribute.whole, context).Enter(asnt::tag::Sequence);
    body.Oid();
    for (asnt::Reader values = body.Enter(asnt::tag::Set); !values.AtEnd();) values.Skip();
    body.ExpectEnd();
    m_encoded = attribute.whole.Copy();
}

unsigned CNALAttributesSet::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_setContext, [&](asnt::Reader& reader) { Adopt(reader.Next(), c_setContext); });
}

std::size_t CNALAttributesList::Remove(const char* oid) {
    const std::string wanted = EncodeOid(oid);
    return std::erase_if(m_items, [&](const auto& item) { return SameOid(TypeOf(item), wanted); });
}

const CNALAttributesSet* CNALAttributesList::Find(const char* oid) const {
    const std::string wanted = EncodeOid(oid);
    auto found = std::find_if(m_items.begin(), m_items.end(), [&](const auto& item) { return SameOid(TypeOf(item), wanted); });
    return found == m_items.end() ? nullptr : &*found;
}

std::size_t CNALAttributesList::Count(const char* oid) const {
    const std::string wanted = EncodeOid(oid);
    return static_cast<std::size_t>(
        std::count_if(m_items.begin(), m_items.end(), [&](const auto& item) { return SameOid(TypeOf(item), wanted); }));
}

bool CNALAttributesList::GetSingleValue(const char* oid, asnt::View& value) const {
    const CNALAttributesSet* attribute = Find(oid);
    if (attribute == nullptr) return false;
    if (Count(oid) != 1 || !attribute->GetSingleValue(value)) asnt::ThrowBadStructure("CNALAttributesList");
    return true;
}

unsigned CNALAttributesList::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_listContext, [&](asnt::Reader& outer) {
        const asnt::Element list = outer.Next();
        if (list.tag != asnt::tag::Set && list.tag != asnt::tag::Context(list.tag.number)) outer.Fail();
        asnt::Reader items = outer.Inside(list);
        std::vector<CNALAttributesSet> read(nal::CountElements(items));
        for (auto& item : read) item.Adopt(items.Next(), c_listContext);

        m_items = std::move(read);
        SetTag(list.tag.number, list.tag.IsUniversal());
    });
}

asnt::Tag CNALAttributesList::Tag() const {
    return m_universal ? asnt::Tag{asnt::Tag::kConstructed, m_tagNumber} : asnt::tag::Context(m_tagNumber);
}

void CNALAttributesList::WriteData(asnt::Writer& writer) const {
    writer.Constructed(Tag(), [&] {
        for (const auto& item : m_items) writer.Raw(item.m_encoded);
    });
}

IdentObj CNALAttributesList::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) { WriteData(writer); });
}

IdentObj CNALAttributesList::WriteSorted() const {
    asnt::Writer writer;
    writer.Constructed(Tag(), [&] {
        for (const auto& item : m_items) {
            if (item.m_encoded.IsEmpty()) continue;
            writer.Sequence([&] {
                writer.Raw(item.Body().Next().whole);
                writer.Set([&] {
                    for (asnt::Reader values = item.ValueReader(); !values.AtEnd();) writer.Raw(values.Next().whole);
                }, asnt::Order::Sorted);
            });
        }
    }, asnt::Order::Sorted);
    return writer.Finish();
}

unsigned CNALAttributesList::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { WriteData(writer); });
}
