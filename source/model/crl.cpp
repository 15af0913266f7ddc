#include "nal/crl.h"

#include <utility>

#include "model/crl_entries.h"
#include "model/encoding.h"
#include "model/integer_order.h"
#include "model/signature_fields.h"
#include "too/status.h"

namespace {

constexpr char c_entryContext[] = "CNAL_CRL_Entry::ReadData";
constexpr char c_infoContext[] = "CNAL_CRL_Info::ReadData";
constexpr char c_listContext[] = "CNAL_CRL_List::ReadData";
constexpr unsigned c_keyIdSize = 20;
constexpr DWORD c_version2 = 1;

bool IsZero(const FILETIME& time) { return time.dwLowDateTime == 0 && time.dwHighDateTime == 0; }

bool ReadOptionalTime(asnt::Reader& fields, FILETIME& time) {
    asnt::Element next;
    if (!fields.TryPeek(next) || (!next.Is(asnt::tag::UtcTime) && !next.Is(asnt::tag::GeneralizedTime))) return false;
    time = fields.Time();
    return true;
}

// Two of either would leave it to chance by which one a CRL is kept.
void RefuseRepeated(const CNALCertExtensionList& extensions, const char* oid) {
    bool seen = false;
    for (const CNALCertExtension& extension : extensions) {
        if (extension.m_oid != oid) continue;
        if (seen) asnt::ThrowBadStructure(c_infoContext);
        seen = true;
    }
}

CNAL_CRL_Entry ToEntry(const CNAL_CRL_EntryView& view) {
    CNAL_CRL_Entry entry;
    entry.m_serialNumber = nal::Reversed(view.m_serialOctets);
    entry.m_revocationDate = view.m_revocationDate;
    entry.m_extensions.ReadData(view.m_extensions.data, static_cast<unsigned>(view.m_extensions.size));
    return entry;
}

}  // namespace

unsigned CNAL_CRL_Entry::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_entryContext, [&](asnt::Reader& reader) {
        const nal::CrlEntries one(nullptr, reader.Next(asnt::tag::Sequence).whole, c_entryContext);
        *this = ToEntry(one.Get(0));
    });
}

void CNAL_CRL_Entry::WriteData(asnt::Writer& writer) const {
    writer.Sequence([&] {
        writer.IntegerReversed(m_serialNumber);
        writer.Time(m_revocationDate);
        if (!m_extensions.empty()) m_extensions.WriteData(writer);
    });
}

IdentObj CNAL_CRL_Entry::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) { WriteData(writer); });
}

unsigned CNAL_CRL_Entry::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { WriteData(writer); });
}

void CNAL_CRL_Info::Read(const std::shared_ptr<const IdentObj>& encoded, asnt::View tbs) {
    CNAL_CRL_Info read;
    asnt::Reader fields = asnt::Reader(tbs, c_infoContext).Enter(asnt::tag::Sequence);
    asnt::Element next;
    read.m_version = 0;
    if (fields.TryPeek(next) && next.Is(asnt::tag::Integer)) read.m_version = fields.Unsigned();
    if (read.m_version > c_version2) fields.Fail();
    read.m_signatureAlgorithm.ReadData(fields);
    read.m_issuer = fields.Next(asnt::tag::Sequence).whole.Copy();
    read.m_thisUpdate = fields.Time();
    ReadOptionalTime(fields, read.m_nextUpdate);
    if (fields.Optional(asnt::tag::Sequence, next)) {
        read.m_entries = std::make_shared<nal::CrlEntries>(encoded, next.content, c_infoContext);
    }
    asnt::Reader tagged;
    if (fields.OptionalEnter(asnt::tag::Context(0), tagged)) {
        next = tagged.Next(asnt::tag::Sequence);
        tagged.ExpectEnd();
        read.m_extensions.ReadData(next.whole.data, static_cast<unsigned>(next.whole.size));
    }
    fields.ExpectEnd();
    RefuseRepeated(read.m_extensions, c_NAL_OID_CRL_NUMBER);
    RefuseRepeated(read.m_extensions, c_NAL_OID_AUTHORITY_KEY_ID);
    *this = std::move(read);
}

unsigned CNAL_CRL_Info::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_infoContext, [&](asnt::Reader& reader) {
        const auto encoded = std::make_shared<const IdentObj>(reader.Next(asnt::tag::Sequence).whole.Copy());
        Read(encoded, *encoded);
    });
}

IdentObj CNAL_CRL_Info::WriteData() const {
    if (m_issuer.IsEmpty() || m_signatureAlgorithm.m_algorithm.IsEmpty() || IsZero(m_thisUpdate)) {
        throw XTOOStatus(TOO_E_NOT_INITIALIZED, "CNAL_CRL_Info");
    }
    return nal::Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Unsigned(c_version2);
            m_signatureAlgorithm.WriteData(writer);
            writer.Raw(m_issuer);
            writer.Time(m_thisUpdate);
            if (!IsZero(m_nextUpdate)) writer.Time(m_nextUpdate);
            if (GetEntryCount() != 0) writer.Sequence([&] { writer.Raw(m_entries->Bytes()); });
            if (!m_extensions.empty()) writer.Context(0, [&] { m_extensions.WriteData(writer); });
        });
    });
}

unsigned CNAL_CRL_Info::GetObjectSize() const { return WriteData().GetSize(); }

std::size_t CNAL_CRL_Info::GetEntryCount() const { return m_entries ? m_entries->Count() : 0; }

CNAL_CRL_EntryView CNAL_CRL_Info::ViewEntry(std::size_t index) const {
    if (index >= GetEntryCount()) throw XTOOStatus(TOO_E_RANGE, "CNAL_CRL_Info::GetEntry");
    return m_entries->Get(index);
}

CNAL_CRL_Entry CNAL_CRL_Info::GetEntry(std::size_t index) const { return ToEntry(ViewEntry(index)); }

void CNAL_CRL_Info::AddEntry(const CNAL_CRL_Entry& entry) {
    const IdentObj der = entry.WriteData();
    // Entries that were read, or that a copy of this object shows too, are copied first.
    if (!m_entries) {
        m_entries = std::make_shared<nal::CrlEntries>();
    } else if (m_entries.use_count() > 1 || !m_entries->OwnsBytes()) {
        m_entries = std::make_shared<nal::CrlEntries>(*m_entries);
    }
    m_entries->Add(der, "CNAL_CRL_Info::AddEntry");
}

std::size_t CNAL_CRL_Info::FindEntryByOctets(asnt::View octets) const { return m_entries ? m_entries->Find(octets) : npos; }

std::size_t CNAL_CRL_Info::FindEntry(const IdentObj& serial) const {
    if (GetEntryCount() == 0) return npos;
    return FindEntryByOctets(nal::Reversed(serial));
}

IdentObj CNAL_CRL_Info::GetSerial() const {
    CNALCRLNumber number;
    if (!number.ReadFrom(m_extensions, c_NAL_OID_CRL_NUMBER)) return {};
    unsigned char key[kSerialSize];
    return nal::ToSerial16(number.m_number, key) ? IdentObj(key, sizeof key) : number.m_number;
}

unsigned CNAL_CRL_List::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_listContext, [&](asnt::Reader& reader) {
        CNAL_CRL_List read;
        read.m_encoded = std::make_shared<const IdentObj>(reader.Next(asnt::tag::Sequence).whole.Copy());
        asnt::Reader fields = asnt::Reader(*read.m_encoded, c_listContext).Enter(asnt::tag::Sequence);
        read.m_signedPart = fields.Next(asnt::tag::Sequence).whole;
        nal::ReadSignatureFields(fields, read.m_signatureAlgorithm, read.m_signature);
        // Last, because this is what takes time: a list that is damaged behind its entries is refused without it.
        read.m_info.Read(read.m_encoded, read.m_signedPart);
        *this = std::move(read);
    });
}

CNAL_CRL_Key NALCheckCRLKey(const CNAL_CRL_Info& crl) {
    CNAL_CRL_Key key;
    CNALIssuerPublicKeyID issuer;
    if (!issuer.ReadFrom(crl.m_extensions, c_NAL_OID_AUTHORITY_KEY_ID)) {
        throw XTOOStatus(TOO_E_CERT_REFUSED, "the CRL does not say whose key signed it (no authority key identifier)");
    }
    key.m_issuerID = issuer.GetKeyID();
    if (key.m_issuerID.GetSize() != c_keyIdSize) {
        throw XTOOStatus(TOO_E_CERT_REFUSED, "the CRL's authority key identifier is not 20 bytes long");
    }
    key.m_crlSerial = crl.GetSerial();
    if (key.m_crlSerial.IsEmpty()) throw XTOOStatus(TOO_E_CERT_REFUSED, "the CRL has no number");
    if (key.m_crlSerial.GetSize() != CNAL_CRL_Info::kSerialSize) {
        throw XTOOStatus(TOO_E_CERT_REFUSED, "the CRL's number is longer than 16 bytes");
    }
    return key;
}
