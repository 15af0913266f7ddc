#include "nal/pkcs10.h"

#include <utility>

#include "model/encoding.h"
#include "model/integer_order.h"
#include "model/signature_fields.h"
#include "too/status.h"

namespace {

constexpr char c_dataContext[] = "CNALPKCS10Data::ReadData";
constexpr char c_requestContext[] = "CNALPKCS10Request::ReadData";
constexpr char c_secondContext[] = "CNALSecondSignature::ReadData";

constexpr unsigned char c_emptySequence[] = {0x30, 0x00};

}  // namespace

unsigned CNALSecondSignature::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_secondContext, [&](asnt::Reader& outer) {
        CNALSecondSignature read;
        asnt::Reader fields = outer.Enter(asnt::tag::Sequence);
        asnt::Reader signer = fields.Enter(asnt::tag::Sequence);
        read.m_issuer = signer.Next(asnt::tag::Sequence).whole.Copy();
        const asnt::View serial = signer.Next(asnt::tag::Integer).content;
        if (serial.empty()) signer.Fail();
        read.m_serialNumber = nal::Reversed(serial);
        signer.ExpectEnd();
        read.m_keyIdentifier = fields.Octets().Copy();
        nal::ReadSignatureFields(fields, read.m_algorithm, read.m_signature);
        *this = std::move(read);
    });
}

IdentObj CNALSecondSignature::WriteData() const {
    return nal::Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Sequence([&] {
                writer.Raw(m_issuer);
                writer.IntegerReversed(m_serialNumber);
            });
            writer.OctetString(m_keyIdentifier);
            nal::WriteSignatureFields(writer, m_algorithm, m_signature);
        });
    });
}

unsigned CNALSecondSignature::GetObjectSize() const { return WriteData().GetSize(); }

unsigned CNALPKCS10Data::ReadData(const void* data, unsigned size) {
    return nal::ReadStart(data, size, c_dataContext, [&](asnt::Reader& outer) {
        CNALPKCS10Data read;
        asnt::Reader fields = outer.Enter(asnt::tag::Sequence);
        if (fields.Unsigned() != 0) fields.Fail();
        read.m_subject = fields.Next(asnt::tag::Sequence).whole.Copy();
        read.m_publicKey.ReadData(fields);
        // The standard wants the field even when it is empty; some programs leave it out.
        asnt::Element attributes;
        if (fields.Optional(asnt::tag::Context(0), attributes)) {
            read.m_attributes.ReadData(attributes.whole.data, static_cast<unsigned>(attributes.whole.size));
        }
        fields.ExpectEnd();
        *this = std::move(read);
    });
}

IdentObj CNALPKCS10Data::WriteData() const {
    CNALAttributesList attributes = m_attributes;
    attributes.SetTag(0, false);
    return nal::Encoded([&](asnt::Writer& writer) {
        writer.Sequence([&] {
            writer.Unsigned(0);
            writer.Raw(m_subject.IsEmpty() ? asnt::View(c_emptySequence, sizeof c_emptySequence) : asnt::View(m_subject));
            m_publicKey.WriteData(writer);
            attributes.WriteData(writer);
        });
    });
}

unsigned CNALPKCS10Data::GetObjectSize() const { return WriteData().GetSize(); }

CNALCertExtensionList CNALPKCS10Data::GetExtensions() const {
    CNALCertExtensionList extensions;
    asnt::View value;
    if (m_attributes.GetSingleValue(c_NAL_OID_EXTENSION_REQUEST, value)) {
        extensions.ReadData(value.data, static_cast<unsigned>(value.size));
    }
    return extensions;
}

void CNALPKCS10Data::SetExtensions(const CNALCertExtensionList& extensions) {
    CNALAttributesSet attribute;
    if (!extensions.empty()) attribute = CNALAttributesSet(c_NAL_OID_EXTENSION_REQUEST, extensions.WriteData());
    m_attributes.Remove(c_NAL_OID_EXTENSION_REQUEST);
    if (!extensions.empty()) m_attributes.Add(std::move(attribute));
}

bool CNALPKCS10Data::GetSecondSignature(CNALSecondSignature& signature) const {
    asnt::View value;
    if (!m_attributes.GetSingleValue(c_NAL_OID_SECOND_SIGNATURE, value)) return false;
    signature.ReadData(value.data, static_cast<unsigned>(value.size));
    return true;
}

bool CNALPKCS10Data::TakeSecondSignature(CNALSecondSignature& signature) {
    if (!GetSecondSignature(signature)) return false;
    m_attributes.Remove(c_NAL_OID_SECOND_SIGNATURE);
    return true;
}

unsigned CNALPKCS10Request::ReadData(const void* data, unsigned size) {
    if (data == nullptr || size == 0) return 0;
    CNALPKCS10Request read;
    int status = TOO_OK;
    const unsigned consumed = read.m_envelope.ReadData(static_cast<const unsigned char*>(data), size, &status);
    if (status != TOO_OK) throw XTOOStatus(status, c_requestContext);
    read.m_data.ReadData(read.m_envelope.m_data.GetData(), read.m_envelope.m_data.GetSize());
    *this = std::move(read);
    return consumed;
}
