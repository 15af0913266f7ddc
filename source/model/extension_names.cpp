// The extension values that hold GeneralNames. RFC 5280 section 4.2.1.6:
//
//   GeneralName ::= CHOICE { otherName [0] SEQUENCE, rfc822Name [1] IA5String, dNSName [2] IA5String, x400Address [3] SEQUENCE,
//                            directoryName [4] EXPLICIT Name, ediPartyName [5] SEQUENCE,
//                            uniformResourceIdentifier [6] IA5String, iPAddress [7] OCTET STRING, registeredID [8] OID }
#include <algorithm>
#include <utility>

#include "model/bit_string.h"
#include "model/encoding.h"
#include "model/integer_order.h"
#include "nal/extensions.h"

namespace {

bool IsConstructedKind(unsigned kind) {
    return kind == CNALGeneralName::OtherName || kind == CNALGeneralName::X400Address ||
           kind == CNALGeneralName::DirectoryName || kind == CNALGeneralName::EdiPartyName;
}

CNALGeneralName ReadName(asnt::Reader& names) {
    asnt::Element name = names.Next();
    unsigned number = name.tag.number;
    if (!name.tag.IsContext() || number > CNALGeneralName::RegisteredId ||
        name.tag.IsConstructed() != IsConstructedKind(number)) {
        names.Fail();
    }
    auto kind = static_cast<CNALGeneralName::Kind>(number);
    if (kind == CNALGeneralName::DirectoryName) {
        asnt::Reader inside = names.Inside(name);
        inside.Next(asnt::tag::Sequence);
        inside.ExpectEnd();
    }
    return {kind, name.content.Copy()};
}

std::vector<CNALGeneralName> ReadNames(asnt::Reader names) {
    std::vector<CNALGeneralName> read;
    do {
        read.push_back(ReadName(names));
    } while (!names.AtEnd());
    return read;
}

// A directory name's value is the Name's whole DER, so its EXPLICIT tag is written like the IMPLICIT ones: around the value.
void WriteNames(asnt::Writer& writer, const std::vector<CNALGeneralName>& names) {
    for (const auto& name : names) {
        if (IsConstructedKind(name.m_kind)) {
            writer.Context(name.m_kind, [&] { writer.Raw(name.m_value); });
        } else {
            writer.Primitive(asnt::tag::ContextPrimitive(name.m_kind), name.m_value);
        }
    }
}

const CNALGeneralName* FindKind(const std::vector<CNALGeneralName>& names, CNALGeneralName::Kind kind) {
    auto found = std::find_if(names.begin(), names.end(), [&](const auto& name) { return name.m_kind == kind; });
    return found == names.end() ? nullptr : &*found;
}

// The issuer field [1] of an authority key identifier: GeneralNames (2.5.29.35), or one Name (2.5.29.1). A Name is a CHOICE, so
// its tag should be EXPLICIT, but encoders exist that put [1] in the place of the Name's own tag.
std::vector<CNALGeneralName> ReadIssuer(asnt::Reader issuer, bool& isName) {
    asnt::Element first = issuer.Peek();
    isName = first.tag.IsUniversal();
    if (!isName) return ReadNames(issuer);

    IdentObj name;
    if (first.Is(asnt::tag::Sequence)) {
        issuer.Skip();
        name = first.whole.Copy();
        issuer.ExpectEnd();
    } else {
        asnt::View sets = issuer.Rest();
        while (!issuer.AtEnd()) issuer.Next(asnt::tag::Set);
        name = nal::Encoded([&](asnt::Writer& writer) { writer.Sequence([&] { writer.Raw(sets); }); });
    }
    std::vector<CNALGeneralName> read;
    read.emplace_back(CNALGeneralName::DirectoryName, std::move(name));
    return read;
}

}  // namespace

const CNALGeneralName* CNALAlternativeNames::Find(CNALGeneralName::Kind kind) const {
    return FindKind(m_names, kind);
}

void CNALAlternativeNames::Decode(asnt::Reader& reader) {
    m_names = ReadNames(reader.Enter(asnt::tag::Sequence));
}

void CNALAlternativeNames::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] { WriteNames(writer, m_names); });
}

bool CNALIssuerPublicKeyID::ReadFrom(const CNALCertExtensionList& list) {
    return ReadFrom(list, c_NAL_OID_OLD_AUTHORITY_KEY_ID) || ReadFrom(list, c_NAL_OID_AUTHORITY_KEY_ID);
}

IdentObj CNALIssuerPublicKeyID::GetIssuerName() const {
    const CNALGeneralName* name = FindKind(m_issuer, CNALGeneralName::DirectoryName);
    return name == nullptr ? IdentObj() : name->m_value;
}

void CNALIssuerPublicKeyID::Decode(asnt::Reader& reader) {
    asnt::Reader fields = reader.Enter(asnt::tag::Sequence);
    CNALIssuerPublicKeyID read;
    asnt::Element field;
    if (fields.Optional(asnt::tag::ContextPrimitive(0), field)) read.m_keyId = field.content.Copy();
    asnt::Reader issuer;
    if (fields.OptionalEnter(asnt::tag::Context(1), issuer)) read.m_issuer = ReadIssuer(issuer, read.m_oldForm);
    if (fields.Optional(asnt::tag::ContextPrimitive(2), field)) {
        if (field.content.empty()) fields.Fail();
        read.m_issuerSerial = nal::Reversed(field.content);
    }
    fields.ExpectEnd();
    *this = std::move(read);
}

void CNALIssuerPublicKeyID::Encode(asnt::Writer& writer) const {
    writer.Sequence([&] {
        if (!m_keyId.IsEmpty()) writer.Primitive(asnt::tag::ContextPrimitive(0), m_keyId);
        const CNALGeneralName* name = FindKind(m_issuer, CNALGeneralName::DirectoryName);
        if (m_oldForm ? name != nullptr : !m_issuer.empty()) {
            writer.Context(1, [&] {
                if (m_oldForm) {
                    writer.Raw(name->m_value);
                } else {
                    WriteNames(writer, m_issuer);
                }
            });
        }
        if (!m_issuerSerial.IsEmpty()) writer.PrimitiveReversed(asnt::tag::ContextPrimitive(2), m_issuerSerial);
    });
}

void CNALCRLDistributionPoints::Decode(asnt::Reader& reader) {
    asnt::Reader points = reader.Enter(asnt::tag::Sequence);
    std::vector<CNALCRLDistributionPoint> read;
    do {
        asnt::Reader fields = points.Enter(asnt::tag::Sequence);
        CNALCRLDistributionPoint& point = read.emplace_back();
        asnt::Reader name;
        if (fields.OptionalEnter(asnt::tag::Context(0), name)) {
            asnt::Reader fullName;
            if (name.OptionalEnter(asnt::tag::Context(0), fullName)) {
                point.m_fullName = ReadNames(fullName);
            } else {
                point.m_nameRelativeToIssuer = name.Next(asnt::tag::Context(1)).content.Copy();
            }
            name.ExpectEnd();
        }
        asnt::Element reasons;
        point.m_hasReasons = fields.Optional(asnt::tag::ContextPrimitive(1), reasons);
        if (point.m_hasReasons) {
            asnt::BitString bits;
            if (!asnt::DecodeBitString(reasons.content, bits)) fields.Fail();
            point.m_reasons = nal::ToBitBlob(bits);
        }
        asnt::Reader issuer;
        if (fields.OptionalEnter(asnt::tag::Context(2), issuer)) point.m_crlIssuer = ReadNames(issuer);
        fields.ExpectEnd();
    } while (!points.AtEnd());
    m_points = std::move(read);
}

void CNALCRLDistributionPoints::Encode(asnt::Writer& writer) const {
    auto encodePoint = [&](const CNALCRLDistributionPoint& point) {
        if (!point.m_fullName.empty() || !point.m_nameRelativeToIssuer.IsEmpty()) {
            writer.Context(0, [&] {
                if (!point.m_fullName.empty()) {
                    writer.Context(0, [&] { WriteNames(writer, point.m_fullName); });
                } else {
                    writer.Context(1, [&] { writer.Raw(point.m_nameRelativeToIssuer); });
                }
            });
        }
        if (point.m_hasReasons) {
            IdentObj content;
            const auto unused = static_cast<unsigned char>(point.m_reasons.m_unusedBits);
            content.Append(&unused, 1);
            content.Append(point.m_reasons.m_data.GetData(), point.m_reasons.m_data.GetSize());
            writer.Primitive(asnt::tag::ContextPrimitive(1), std::move(content));
        }
        if (!point.m_crlIssuer.empty()) writer.Context(2, [&] { WriteNames(writer, point.m_crlIssuer); });
    };
    writer.Sequence([&] {
        for (const auto& point : m_points) writer.Sequence([&] { encodePoint(point); });
    });
}
