#include <algorithm>

#include "model/bit_string.h"
#include "model/encoding.h"
#include "model/file_element.h"
#include "nal/algorithm.h"
#include "too/file.h"
#include "too/status.h"

namespace {

constexpr unsigned c_keyIdSize = 20;

// Keys of the GOST family stand in the BIT STRING as an OCTET STRING. A header of two or three bytes is taken off once; anything
// else is the key as it stands.
asnt::View UnwrapKey(asnt::View bits) {
    asnt::Element element;
    asnt::Reader reader(bits);
    if (!reader.TryNext(asnt::tag::OctetString, element)) return bits;
    const std::size_t around = bits.size - element.content.size;
    return around == 2 || around == 3 ? element.content : bits;
}

void AppendWord(IdentObj& out, DWORD value) {
    const unsigned char bytes[] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                   static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    out.Append(bytes, sizeof(bytes));
}

}  // namespace

CNALCertPublicKeyInfo::CNALCertPublicKeyInfo(const CERT_PUBLIC_KEY_INFO& info)
    : m_algorithm(info.Algorithm), m_publicKey(nal::ToBitBlob(info.PublicKey)) {}

CNALCertPublicKeyInfo& CNALCertPublicKeyInfo::operator=(const CERT_PUBLIC_KEY_INFO& info) {
    return *this = CNALCertPublicKeyInfo(info);
}

CNALCertPublicKeyInfo::~CNALCertPublicKeyInfo() = default;

IdentObj CNALCertPublicKeyInfo::GetKeyID() const {
    IdentObj id = asnt::View(m_publicKey.m_data).Sub(0, c_keyIdSize).Copy();
    id.SetSize(c_keyIdSize);
    return id;
}

unsigned CNALCertPublicKeyInfo::GetKeyLength() const {
    const asnt::View bits = m_publicKey.m_data;
    const auto whole = static_cast<unsigned>(bits.size * 8);
    asnt::Reader reader(bits);
    asnt::Element element;
    if (!reader.TryNext(element) || !reader.AtEnd()) return whole;
    if (!element.tag.IsConstructed()) return static_cast<unsigned>(element.content.size * 8);

    asnt::Reader items(element.content);
    asnt::Element item;
    asnt::View first = element.content;
    bool any = false;
    while (!items.AtEnd()) {
        if (!items.TryNext(item)) return whole;
        if (!any) first = item.content;
        any = true;
    }
    if (any) {
        const auto* start = std::find_if(first.begin(), first.end(), [](unsigned char byte) { return byte != 0; });
        first = first.Sub(static_cast<std::size_t>(start - first.begin()));
    }
    return static_cast<unsigned>(first.size * 8);
}

unsigned CNALCertPublicKeyInfo::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, "CNALCertPublicKeyInfo::ReadData", [&](asnt::Reader& reader) { ReadData(reader); });
}

unsigned CNALCertPublicKeyInfo::ReadData(const CTOOFile& file) {
    const IdentObj record = nal::ReadElement(file, "CNALCertPublicKeyInfo::ReadData");
    return ReadData(record.GetData(), record.GetSize());
}

void CNALCertPublicKeyInfo::ReadData(asnt::Reader& reader) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    CNALAlgorithmIdentifier algorithm;
    algorithm.ReadData(fields);
    const asnt::BitString key = fields.Bits();
    fields.ExpectEnd();
    m_publicKey = nal::ToBitBlob(key);
    m_algorithm = std::move(algorithm);
}

void CNALCertPublicKeyInfo::WriteData(asnt::Writer& writer) const {
    if (m_publicKey.m_data.IsEmpty()) throw XTOOStatus(TOO_E_NOT_INITIALIZED, "CNALCertPublicKeyInfo");
    writer.Sequence([&] {
        m_algorithm.WriteData(writer);
        writer.BitString(m_publicKey.m_data, m_publicKey.m_unusedBits);
    });
}

IdentObj CNALCertPublicKeyInfo::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) { WriteData(writer); });
}

unsigned CNALCertPublicKeyInfo::WriteData(CTOOFile& file) const {
    const IdentObj record = WriteData();
    file.Write(record);
    return record.GetSize();
}

unsigned CNALCertPublicKeyInfo::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { WriteData(writer); });
}

IdentObj NALConvertPublicKeyInfo(const CNALCertPublicKeyInfo& info) {
    const CNALAlgorithmIdentifier& algorithm = info.m_algorithm;
    unsigned algId = 0;
    unsigned extra = 0;
    if (!GetAlgIDFromOID(algorithm.m_algorithm.GetData(), algorithm.m_algorithm.GetSize(), algId, extra)) {
        throw XTOOStatus(TOO_E_UNKNOWN_ALGORITHM, "NALConvertPublicKeyInfo");
    }
    const asnt::View key = UnwrapKey(info.m_publicKey.m_data);

    const unsigned char head[] = {0x06, 0x10, 0, 0};
    IdentObj blob(head, sizeof(head));
    AppendWord(blob, algId);
    blob.Append("MAG1", 4);
    AppendWord(blob, static_cast<DWORD>(key.size * 8));
    blob.Append(algorithm.m_parameters.GetData(), algorithm.m_parameters.GetSize());
    blob.Append(key.data, static_cast<unsigned>(key.size));
    return blob;
}
