#include "cms/party_identifier.h"

#include "too/status.h"

namespace nal {

namespace {

bool IsName(const IdentObj& der) {
    asnt::Element name;
    return asnt::IsWellFormed(der) && asnt::Reader(der).TryNext(asnt::tag::Sequence, name);
}

}  // namespace

void ReadIssuerAndSerial(asnt::Reader& fields, IdentObj& issuer, IdentObj& serialNumber) {
    asnt::Reader issuerAndSerial = fields.Enter(asnt::tag::Sequence);
    const asnt::Element name = issuerAndSerial.Next(asnt::tag::Sequence);
    if (!asnt::IsWellFormed(name.whole)) fields.Fail();
    issuer = name.whole.Copy();
    serialNumber = issuerAndSerial.Integer().Copy();
    issuerAndSerial.ExpectEnd();
}

void ReadIdentifier(asnt::Reader& fields, IdentObj& issuer, IdentObj& serialNumber, IdentObj& keyIdentifier) {
    asnt::Element keyId;
    if (!fields.Optional(asnt::tag::ContextPrimitive(0), keyId)) return ReadIssuerAndSerial(fields, issuer, serialNumber);
    if (keyId.content.empty()) fields.Fail();
    keyIdentifier = keyId.content.Copy();
}

void WriteIdentifier(asnt::Writer& writer, const IdentObj& issuer, const IdentObj& serialNumber, const IdentObj& keyIdentifier) {
    if (!keyIdentifier.IsEmpty()) return writer.Primitive(asnt::tag::ContextPrimitive(0), keyIdentifier);
    if (!IsName(issuer) || !asnt::IsInteger(serialNumber)) throw XTOOStatus(TOO_E_ENCODE);
    writer.Sequence([&] {
        writer.Raw(issuer);
        writer.IntegerOctets(serialNumber);
    });
}

}  // namespace nal
