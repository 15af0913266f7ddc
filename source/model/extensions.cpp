#include "nal/extensions.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "model/encoding.h"
#include "too/status.h"

namespace {

constexpr char c_context[] = "CNALCertExtension::ReadData";

CNALCertExtension DecodeExtension(asnt::Reader fields) {
    CNALCertExtension extension;
    extension.m_oid = fields.Oid();
    asnt::Element next;
    // An explicit FALSE is no DER, but authorities write it.
    if (fields.TryPeek(next) && next.Is(asnt::tag::Boolean)) extension.m_critical = fields.Boolean();
    extension.m_value = fields.Octets().Copy();
    fields.ExpectEnd();
    return extension;
}

}  // namespace

CNALCertExtension::CNALCertExtension(const CTOOString& oid, bool critical, IdentObj value)
    : m_oid(oid), m_critical(critical), m_value(std::move(value)) {}

CNALCertExtension::CNALCertExtension(const CERT_EXTENSION& extension)
    : m_oid(extension.pszObjId),
      m_critical(extension.fCritical != FALSE),
      m_value(asnt::View(extension.Value.pbData, extension.Value.cbData).Copy()) {}

unsigned CNALCertExtension::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_context, [&](asnt::Reader& reader) {
        *this = DecodeExtension(reader.Enter(asnt::tag::Sequence));
    });
}

void CNALCertExtension::WriteData(asnt::Writer& writer) const {
    writer.Sequence([&] {
        writer.Oid(m_oid);
        if (m_critical) writer.Boolean(true);
        writer.OctetString(m_value);
    });
}

IdentObj CNALCertExtension::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) { WriteData(writer); });
}

unsigned CNALCertExtension::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { WriteData(writer); });
}

const CNALCertExtension* CNALCertExtensionList::FindExtension(const char* oid) const {
    auto found = std::find_if(m_items.begin(), m_items.end(), [&](const auto& item) { return item.m_oid == oid; });
    return found == m_items.end() ? nullptr : &*found;
}

bool CNALCertExtensionList::FindExtension(const CTOOString& oid, CNALCertExtension& out) const {
    const CNALCertExtension* found = FindExtension(oid.c_str());
    if (found == nullptr) return false;
    out = *found;
    return true;
}

void CNALCertExtensionList::Replace(CNALCertExtension extension) {
    auto found =
        std::find_if(m_items.begin(), m_items.end(), [&](const auto& item) { return item.m_oid == extension.m_oid; });
    if (found == m_items.end()) {
        Add(std::move(extension));
    } else {
        *found = std::move(extension);
    }
}

unsigned CNALCertExtensionList::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_context, [&](asnt::Reader& reader) {
        asnt::Reader items = reader.Enter(asnt::tag::Sequence);
        std::vector<CNALCertExtension> read;
        read.reserve(nal::CountElements(items));
        while (!items.AtEnd()) read.push_back(DecodeExtension(items.Enter(asnt::tag::Sequence)));

        if (m_items.empty()) {
            m_items = std::move(read);
        } else {
            m_items.insert(m_items.end(), std::make_move_iterator(read.begin()), std::make_move_iterator(read.end()));
        }
    });
}

void CNALCertExtensionList::WriteData(asnt::Writer& writer) const {
    writer.Sequence([&] {
        for (const auto& item : m_items) item.WriteData(writer);
    });
}

IdentObj CNALCertExtensionList::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) { WriteData(writer); });
}

unsigned CNALCertExtensionList::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { WriteData(writer); });
}

bool CNALCertExtensionList::operator<(const CNALCertExtensionList& other) const {
    return std::equal(m_items.begin(), m_items.end(), other.m_items.begin(), other.m_items.end(),
                      [](const auto& left, const auto& right) { return left < right; });
}

unsigned CNALExtensionValue::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, Name(), [&](asnt::Reader& reader) { Decode(reader); });
}

void CNALExtensionValue::Read(const CNALCertExtension& extension) {
    // Stepped over before it is decoded, so that bytes behind the value are found while the object is still as it was.
    asnt::Reader reader(extension.m_value, Name());
    asnt::Reader whole = reader;
    whole.Skip();
    whole.ExpectEnd();
    Decode(reader);
}

bool CNALExtensionValue::TryRead(const CNALCertExtension& extension) {
    try {
        Read(extension);
        return true;
    } catch (const XTOOStatus&) {
        return false;
    }
}

bool CNALExtensionValue::ReadFrom(const CNALCertExtensionList& list, const char* oid) {
    const CNALCertExtension* found = list.FindExtension(oid);
    if (found == nullptr) return false;
    Read(*found);
    return true;
}

IdentObj CNALExtensionValue::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) { Encode(writer); });
}

CNALCertExtension CNALExtensionValue::ToExtension(const char* oid, bool critical) const {
    return {oid, critical, WriteData()};
}

unsigned CNALExtensionValue::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { Encode(writer); });
}
