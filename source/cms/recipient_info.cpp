#include <utility>

#include "cms/outgoing.h"
#include "cms/party_identifier.h"
#include "cms/recipient_writer.h"
#include "frame/failure.h"
#include "model/bit_string.h"
#include "model/encoding.h"
#include "nal/enveloped_data.h"
#include "too/status.h"

namespace {

constexpr char c_readOriginatorContext[] = "CNALOriginatorInfo::ReadObject";
constexpr char c_writeOriginatorContext[] = "CNALOriginatorInfo::WriteObject";
constexpr char c_readContext[] = "CNALTransRecipientInfo::ReadObject";
constexpr char c_writeContext[] = "CNALTransRecipientInfo::WriteObject";
constexpr char c_readAgreeContext[] = "CNALAgreeRecipientInfo::ReadObject";

constexpr DWORD c_agreeTag = 1;
constexpr DWORD c_originatorKeyTag = 1;
constexpr int c_unsupportedForm = 56;

/// Runs `decode` over the data with `object` as new, which it stays when that fails.
template <class Object, class Decode>
int ReadWhole(asnt::View data, const char* context, int* err, Object& object, Decode&& decode) {
    return nal::Report(err, [&] {
        if (data.data == nullptr || data.empty()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, context);
        Object read;
        asnt::Reader reader(data, context);
        try {
            decode(reader, read);
        } catch (const XTOOStatus&) {
            object = Object();
            throw;
        }
        object = std::move(read);
    });
}

std::list<IdentObj> ReadList(asnt::Reader list) {
    // A node of the list costs more than the smallest element: real certificates and CRLs are far longer.
    constexpr std::size_t smallest = 32;
    if (nal::CountElements(list) > 4096 + list.Rest().size / smallest) throw XTOOStatus(TOO_E_TOO_LARGE, c_readOriginatorContext);
    std::list<IdentObj> elements;
    while (!list.AtEnd()) elements.push_back(list.Next().whole.Copy());
    return elements;
}

bool TakeList(asnt::Reader& fields, asnt::Tag tag, std::list<IdentObj>& elements) {
    asnt::Reader list;
    if (!fields.OptionalEnter(tag, list)) return false;
    elements = ReadList(list);
    return true;
}

void DecodeOriginator(asnt::Reader& reader, CNALOriginatorInfo& info) {
    asnt::Reader fields = reader.Enter(asnt::tag::Context(0));
    if (!TakeList(fields, asnt::tag::Context(0), info.certificates)) TakeList(fields, asnt::tag::Set, info.certificates);
    if (!TakeList(fields, asnt::tag::Context(1), info.crls)) TakeList(fields, asnt::tag::Set, info.crls);
    fields.ExpectEnd();
}

void DecodeTransport(asnt::Reader& reader, CNALTransRecipientInfo& info) {
    const asnt::Element element = reader.Next();
    if (!element.Is(asnt::tag::Sequence)) throw XTOOStatus(c_unsupportedForm, c_readContext);
    asnt::Reader fields = reader.Inside(element);
    info.version = nal::ReadInt32(fields);
    nal::ReadIdentifier(fields, info.issuer, info.serialNumber, info.subjectKeyIdentifier);
    info.keyEncryptionAlgorithm = fields.Next(asnt::tag::Sequence).whole.Copy();
    if (!asnt::IsWellFormed(info.keyEncryptionAlgorithm)) fields.Fail();
    info.encryptedKey = fields.Octets().Copy();
    fields.ExpectEnd();
}

CNALCertPublicKeyInfo DecodeOriginatorKey(asnt::Reader originator) {
    const asnt::Element element = originator.Next();
    originator.ExpectEnd();
    if (!element.Is(asnt::tag::Context(c_originatorKeyTag))) throw XTOOStatus(c_unsupportedForm, c_readAgreeContext);
    asnt::Reader fields = originator.Inside(element);
    CNALCertPublicKeyInfo key;
    key.m_algorithm.ReadData(fields);
    key.m_publicKey = nal::ToBitBlob(fields.Bits());
    fields.ExpectEnd();
    return key;
}

CNALAgreeRecipientInfo::Recipient DecodeAgreed(asnt::Reader fields) {
    CNALAgreeRecipientInfo::Recipient recipient;
    asnt::Reader keyId;
    if (fields.OptionalEnter(asnt::tag::Context(0), keyId)) {
        // A date and another identifier may follow, which tell nothing of whose key it is.
        recipient.subjectKeyIdentifier = keyId.Octets().Copy();
        if (recipient.subjectKeyIdentifier.IsEmpty()) fields.Fail();
        while (!keyId.AtEnd()) keyId.Skip();
    } else {
        nal::ReadIssuerAndSerial(fields, recipient.issuer, recipient.serialNumber);
    }
    recipient.encryptedKey = fields.Octets().Copy();
    fields.ExpectEnd();
    return recipient;
}

void DecodeAgreement(asnt::Reader& reader, CNALAgreeRecipientInfo& info) {
    const asnt::Element element = reader.Next();
    if (!element.Is(asnt::tag::Context(c_agreeTag))) throw XTOOStatus(c_unsupportedForm, c_readAgreeContext);
    asnt::Reader fields = reader.Inside(element);
    info.version = nal::ReadInt32(fields);
    info.originatorKey = DecodeOriginatorKey(fields.Enter(asnt::tag::Context(0)));
    asnt::Reader ukm;
    if (fields.OptionalEnter(asnt::tag::Context(1), ukm)) {
        info.ukm = ukm.Octets().Copy();
        ukm.ExpectEnd();
    }
    info.keyEncryptionAlgorithm.ReadData(fields);
    asnt::Reader recipients = fields.Enter(asnt::tag::Sequence);
    fields.ExpectEnd();
    while (!recipients.AtEnd()) info.recipients.push_back(DecodeAgreed(recipients.Enter(asnt::tag::Sequence)));
}

}  // namespace

void nal::DeclareRecipient(const CNALTransRecipientInfo& recipient, asnt::Writer& writer) {
    try {
        if (recipient.encryptedKey.IsEmpty() || !asnt::IsWellFormed(recipient.keyEncryptionAlgorithm)) throw XTOOStatus(TOO_E_ENCODE);
        writer.Sequence([&] {
            writer.Integer(recipient.version);
            WriteIdentifier(writer, recipient.issuer, recipient.serialNumber, recipient.subjectKeyIdentifier);
            writer.Raw(recipient.keyEncryptionAlgorithm);
            writer.OctetString(recipient.encryptedKey);
        });
    } catch (const XTOOStatus&) {
        throw XTOOStatus(TOO_E_NOT_INITIALIZED, c_writeContext);
    }
}

void nal::DeclareOriginator(const CNALOriginatorInfo& originator, asnt::Writer& writer) {
    writer.Context(0, [&] {
        if (!originator.certificates.empty()) writer.Context(0, [&] { WriteElements(writer, originator.certificates); });
        if (!originator.crls.empty()) writer.Context(1, [&] { WriteElements(writer, originator.crls); });
    });
}

int CNALOriginatorInfo::ReadObject(const unsigned char* data, unsigned int len, int* err) {
    return ReadWhole({data, len}, c_readOriginatorContext, err, *this, DecodeOriginator);
}

IdentObj CNALOriginatorInfo::WriteObject(int* err) const {
    IdentObj der;
    nal::Report(err, [&] {
        try {
            der = nal::Encoded([&](asnt::Writer& writer) { nal::DeclareOriginator(*this, writer); });
        } catch (const XTOOStatus& status) {
            throw XTOOStatus(status.GetCode(), c_writeOriginatorContext);
        }
    });
    return der;
}

unsigned int CNALOriginatorInfo::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { nal::DeclareOriginator(*this, writer); });
}

int CNALTransRecipientInfo::ReadObject(const unsigned char* data, unsigned int len, int* err) {
    return ReadWhole({data, len}, c_readContext, err, *this, DecodeTransport);
}

IdentObj CNALTransRecipientInfo::WriteObject(int* err) const {
    IdentObj der;
    nal::Report(err, [&] { der = nal::Encoded([&](asnt::Writer& writer) { nal::DeclareRecipient(*this, writer); }); });
    return der;
}

unsigned int CNALTransRecipientInfo::GetObjectSize() const {
    return nal::EncodedSize([&](asnt::Writer& writer) { nal::DeclareRecipient(*this, writer); });
}

int CNALAgreeRecipientInfo::ReadObject(const unsigned char* data, unsigned int len, int* err) {
    return ReadWhole({data, len}, c_readAgreeContext, err, *this, DecodeAgreement);
}
