#include "model/certificate_fields.h"

namespace nal {

namespace {

constexpr unsigned char c_subjectKeyIdOid[] = {0x55, 0x1D, 0x0E};
constexpr unsigned char c_authorityKeyIdOid[] = {0x55, 0x1D, 0x23};

bool NextWhole(asnt::Reader& reader, asnt::Tag tag, asnt::View& whole) {
    asnt::Element element;
    if (!reader.TryNext(tag, element)) return false;
    whole = element.whole;
    return true;
}

bool NextTime(asnt::Reader& reader, asnt::Element& time) {
    return reader.TryNext(time) && (time.Is(asnt::tag::UtcTime) || time.Is(asnt::tag::GeneralizedTime));
}

bool StepOverValidity(asnt::Reader& tbs, TbsFields& fields) {
    asnt::Reader validity;
    return tbs.TryEnter(asnt::tag::Sequence, validity) && NextTime(validity, fields.notBefore) &&
           NextTime(validity, fields.notAfter) && validity.AtEnd();
}

// The fields behind the public key come in any order, and others are passed over. One that comes twice is refused: which of
// the two counts would be anybody's guess.
bool StepOverOptional(asnt::Reader& tbs, TbsFields& fields) {
    asnt::Element element;
    while (!tbs.AtEnd()) {
        if (!tbs.TryNext(element)) return false;
        if (!element.tag.IsContext() || element.tag.number < 1 || element.tag.number > 3) continue;
        if (element.tag.number == 3) {
            asnt::Reader inside;
            if (!fields.extensions.empty() || !tbs.TryInside(element, inside)) return false;
            if (!NextWhole(inside, asnt::tag::Sequence, fields.extensions) || !inside.AtEnd()) return false;
        } else {
            asnt::View& id = element.tag.number == 1 ? fields.issuerUniqueId : fields.subjectUniqueId;
            if (!id.empty() || element.tag.IsConstructed() || element.content.size < 2) return false;
            id = element.content;
        }
    }
    return true;
}

bool StepOverTbs(asnt::Reader tbs, TbsFields& fields) {
    fields = {};
    asnt::Element element;
    if (!tbs.TryNext(element)) return false;
    // The class is tested for the one bit of 0x80, so a private [0] is a version too: kept deliberately.
    const bool hasVersion = (element.tag.bits & asnt::Tag::kContext) != 0 && element.tag.number == 0;
    if (hasVersion) {
        asnt::Reader inside;
        asnt::Element version;
        if (!tbs.TryInside(element, inside) || !inside.TryNext(asnt::tag::Integer, version) || !inside.AtEnd()) return false;
        fields.version = version.content;
        if (fields.version.empty() || !tbs.TryNext(element)) return false;
    }
    if (!element.Is(asnt::tag::Integer) || element.content.empty()) return false;
    fields.serial = element.content;
    if (!NextWhole(tbs, asnt::tag::Sequence, fields.signatureAlgorithm) ||
        !NextWhole(tbs, asnt::tag::Sequence, fields.issuer) || !StepOverValidity(tbs, fields) ||
        !NextWhole(tbs, asnt::tag::Sequence, fields.subject) ||
        !NextWhole(tbs, asnt::tag::Sequence, fields.publicKeyInfo)) {
        return false;
    }
    // More than six elements are asked for. Kept deliberately: it refuses version 1 certificates without a version field.
    if (!hasVersion && tbs.AtEnd()) return false;
    return StepOverOptional(tbs, fields);
}

// Steps over extensions of the usual form whose OID is another: most of a search's time goes into these. A SEQUENCE and an OID
// whose lengths take one octet each; the first extension that looks otherwise, or has the OID, is left to the caller.
void SkipOthers(asnt::View& rest, asnt::View oid) {
    constexpr std::size_t c_headers = 4;
    while (rest.size > c_headers && rest[0] == 0x30 && rest[1] < 0x80 && rest[2] == 0x06 && rest[3] < 0x80) {
        const std::size_t size = 2u + rest[1];
        const std::size_t oidSize = rest[3];
        if (size > rest.size || c_headers + oidSize > size) return;
        if (asnt::View(rest.data + c_headers, oidSize) == oid) return;
        rest = rest.Sub(size);
    }
}

}  // namespace

bool StepOverTbs(asnt::View der, TbsFields& fields) {
    asnt::Reader top(der);
    asnt::Reader tbs;
    return top.TryEnter(asnt::tag::Sequence, tbs) && top.AtEnd() && StepOverTbs(tbs, fields);
}

bool StepOverCertificate(asnt::View der, CertificateFields& fields) {
    asnt::Reader top(der);
    asnt::Reader certificate;
    asnt::Reader tbs;
    asnt::Element element;
    if (!top.TryEnter(asnt::tag::Sequence, certificate) || !top.AtEnd()) return false;
    if (!certificate.TryNext(asnt::tag::Sequence, element) || !certificate.TryInside(element, tbs)) return false;
    fields.signedPart = element.whole;
    fields.signatureFields = certificate.Rest();
    return certificate.TryNext(asnt::tag::Sequence, element) && certificate.TryNext(asnt::tag::BitString, element) &&
           certificate.AtEnd() && StepOverTbs(tbs, fields.tbs);
}

bool FindExtensionValue(asnt::View extensions, asnt::View oid, asnt::View& value) {
    asnt::Reader top(extensions);
    asnt::Reader items;
    if (!top.TryEnter(asnt::tag::Sequence, items)) return false;
    asnt::View rest = items.Rest();
    while (!rest.empty()) {
        SkipOthers(rest, oid);
        asnt::Reader reader(rest);
        asnt::Reader item;
        asnt::Element element;
        if (!reader.TryEnter(asnt::tag::Sequence, item) || !item.TryNext(asnt::tag::Oid, element)) return false;
        rest = reader.Rest();
        if (element.content != oid) continue;
        if (!item.TryNext(element)) return false;
        if (element.Is(asnt::tag::Boolean) && !item.TryNext(element)) return false;
        if (!element.Is(asnt::tag::OctetString) || !item.AtEnd()) return false;
        value = element.content;
        return true;
    }
    return false;
}

bool FindSubjectKeyId(const TbsFields& fields, asnt::View& keyId) {
    asnt::View value;
    if (!FindExtensionValue(fields.extensions, {c_subjectKeyIdOid, sizeof(c_subjectKeyIdOid)}, value)) return false;
    asnt::Reader reader(value);
    asnt::Element element;
    if (!reader.TryNext(asnt::tag::OctetString, element) || !reader.AtEnd()) return false;
    keyId = element.content;
    return true;
}

bool FindAuthorityKeyId(asnt::View extensions, asnt::View& keyId) {
    asnt::View value;
    if (!FindExtensionValue(extensions, {c_authorityKeyIdOid, sizeof(c_authorityKeyIdOid)}, value)) return false;
    asnt::Reader reader(value);
    asnt::Reader fields;
    asnt::Element element;
    if (!reader.TryEnter(asnt::tag::Sequence, fields) || !reader.AtEnd()) return false;
    if (!fields.TryNext(asnt::tag::ContextPrimitive(0), element)) return false;
    keyId = element.content;
    return true;
}

}  // namespace nal
