#include <utility>

#include "cms/party_identifier.h"
#include "frame/failure.h"
#include "frame/log.h"
#include "model/encoding.h"
#include "model/integer_order.h"
#include "nal/signed_data.h"
#include "too/status.h"

namespace {

constexpr char c_readContext[] = "MessageSignerInfo";
constexpr char c_writeContext[] = "CNALMessageSignerInfo::WriteData";
constexpr char c_dateContext[] = "CNALMessageSignerInfo::GetSigningDate";

constexpr std::int32_t c_versionIssuer = 1;
constexpr std::int32_t c_versionKeyId = 3;
constexpr DWORD c_signedAttrsTag = 0;
constexpr DWORD c_unsignedAttrsTag = 1;
constexpr DWORD c_setTag = 17;

void ReadAttributes(asnt::Reader& fields, DWORD tag, CNALAttributesList& attributes) {
    asnt::Element list;
    if (!fields.Optional(asnt::tag::Context(tag), list)) return;
    // A list of none would not be written again, and without signed attributes a signature means something else.
    if (list.content.empty()) fields.Fail();
    attributes.ReadData(list.whole.data, static_cast<unsigned>(list.whole.size));
}

CNALMessageSignerInfo Decode(asnt::Reader fields) {
    CNALMessageSignerInfo info;
    info.version = nal::ReadInt32(fields);
    nal::ReadIdentifier(fields, info.issuer, info.serialNumber, info.subjectKeyIdentifier);
    info.digestAlgorithm.ReadData(fields);
    ReadAttributes(fields, c_signedAttrsTag, info.signedAttrs);
    info.signatureAlgorithm.ReadData(fields);
    info.signature = nal::Reversed(fields.Octets());
    ReadAttributes(fields, c_unsignedAttrsTag, info.unsignedAttrs);
    fields.ExpectEnd();
    return info;
}

void Encode(CNALMessageSignerInfo& info, asnt::Writer& writer) {
    info.version = info.subjectKeyIdentifier.IsEmpty() ? c_versionIssuer : c_versionKeyId;
    writer.Sequence([&] {
        writer.Integer(info.version);
        nal::WriteIdentifier(writer, info.issuer, info.serialNumber, info.subjectKeyIdentifier);
        info.digestAlgorithm.WriteData(writer);
        info.signedAttrs.SetTag(c_signedAttrsTag, false);
        if (!info.signedAttrs.empty()) info.signedAttrs.WriteData(writer);
        info.signatureAlgorithm.WriteData(writer);
        writer.OctetStringReversed(info.signature);
        info.unsignedAttrs.SetTag(c_unsignedAttrsTag, false);
        if (!info.unsignedAttrs.empty()) info.unsignedAttrs.WriteData(writer);
    });
}

int CompareIdentifiers(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b) {
    if (const int order = a.subjectKeyIdentifier.Compare(b.subjectKeyIdentifier)) return order;
    if (const int order = a.issuer.Compare(b.issuer)) return order;
    return a.serialNumber.Compare(b.serialNumber);
}

}  // namespace

CNALMessageSignerInfo::CNALMessageSignerInfo() = default;
CNALMessageSignerInfo::CNALMessageSignerInfo(const CNALMessageSignerInfo&) = default;
CNALMessageSignerInfo::CNALMessageSignerInfo(CNALMessageSignerInfo&&) noexcept = default;
CNALMessageSignerInfo& CNALMessageSignerInfo::operator=(const CNALMessageSignerInfo&) = default;
CNALMessageSignerInfo& CNALMessageSignerInfo::operator=(CNALMessageSignerInfo&&) noexcept = default;
CNALMessageSignerInfo::~CNALMessageSignerInfo() = default;

IdentObj CNALMessageSignerInfo::WriteData(int* err) {
    nal::Outcome outcome;
    IdentObj der;
    try {
        asnt::Writer writer;
        Encode(*this, writer);
        der = writer.Finish();
    } catch (const XTOOStatus&) {
        outcome.Fail(TOO_E_ENCODE, c_writeContext);
    }
    outcome.Finish(err);
    return der;
}

unsigned CNALMessageSignerInfo::ReadData(const void* data, unsigned len, int* err) {
    nal::Outcome outcome;
    unsigned consumed = 0;
    try {
        asnt::Reader reader({data, data != nullptr ? len : 0}, c_readContext);
        *this = Decode(reader.Enter(asnt::tag::Sequence));
        consumed = len - static_cast<unsigned>(reader.Rest().size);
    } catch (const XTOOStatus&) {
        *this = CNALMessageSignerInfo();
        outcome.Fail(TOO_E_BAD_STRUCTURE, c_readContext);
        // Fixed for those who read logs.
        nal::LogError({"DWORD CNALMessageSignerInfo::ReadData(void*, DWORD, int*)", "ReadData",
                       "source/win32/certsign", __LINE__},
                      CTOOString("CNALMessageSignerInfo::ReadData: ") + c_readContext);
    }
    outcome.Finish(err);
    return consumed;
}

IdentObj CNALMessageSignerInfo::GetBytesToSign(asnt::Order order) const {
    if (signedAttrs.empty()) return {};
    CNALAttributesList attributes = signedAttrs;
    attributes.SetTag(c_setTag, true);
    return order == asnt::Order::Sorted ? attributes.WriteSorted() : attributes.WriteData();
}

CTOOFileTime CNALMessageSignerInfo::GetSigningDate(int* err) const {
    nal::Outcome outcome;
    CTOOFileTime time;
    try {
        asnt::View value;
        if (signedAttrs.GetSingleValue(c_NAL_OID_SIGNING_TIME, value)) {
            time = asnt::Reader(value).Time();
        } else {
            outcome.Fail(TOO_E_NOT_FOUND, c_dateContext);
        }
    } catch (const XTOOStatus& status) {
        outcome.Fail(status.GetCode(), c_dateContext);
    }
    outcome.Finish(err);
    return time;
}

bool operator==(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b) {
    return CompareIdentifiers(a, b) == 0;
}

bool operator<(const CNALMessageSignerInfo& a, const CNALMessageSignerInfo& b) {
    return CompareIdentifiers(a, b) < 0;
}

CNALWholeSignature::CNALWholeSignature() = default;
CNALWholeSignature::CNALWholeSignature(const CNALWholeSignature&) = default;
CNALWholeSignature::CNALWholeSignature(CNALWholeSignature&&) noexcept = default;
CNALWholeSignature& CNALWholeSignature::operator=(const CNALWholeSignature&) = default;
CNALWholeSignature& CNALWholeSignature::operator=(CNALWholeSignature&&) noexcept = default;
CNALWholeSignature::~CNALWholeSignature() = default;
