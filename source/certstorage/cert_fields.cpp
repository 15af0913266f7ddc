#include "certstorage/cert_fields.h"

#include <algorithm>

#include "asnt/time.h"
#include "model/certificate_fields.h"

namespace nal {
namespace {

AlgorithmFields ReadAlgorithm(asnt::Reader& reader) {
    asnt::Reader inside = reader.Enter(asnt::tag::Sequence);
    AlgorithmFields algorithm;
    algorithm.oid = inside.Next(asnt::tag::Oid).content;
    algorithm.parameters = inside.Rest();
    return algorithm;
}

FILETIME ReadTime(const asnt::Element& element) {
    FILETIME time{};
    if (!asnt::DecodeTime(element.tag, element.content, time)) asnt::ThrowBadStructure("");
    return time;
}

// Empty when absent.
asnt::BitString ReadUniqueId(asnt::View content) {
    asnt::BitString bits;
    if (!content.empty() && !asnt::DecodeBitString(content, bits)) asnt::ThrowBadStructure("");
    return bits;
}

DWORD ReadVersion(asnt::View content) {
    std::uint64_t version = 0;
    if (!content.empty() && (!asnt::DecodeUnsigned(content, version) || version > 0xFFFFFFFF)) asnt::ThrowBadStructure("");
    return static_cast<DWORD>(version);
}

ExtensionFields ReadExtension(asnt::Reader& extensions) {
    asnt::Reader inside = extensions.Enter(asnt::tag::Sequence);
    ExtensionFields extension;
    extension.oid = inside.Next(asnt::tag::Oid).content;
    asnt::Element critical;
    if (inside.Optional(asnt::tag::Boolean, critical) && !asnt::DecodeBoolean(critical.content, extension.critical)) {
        inside.Fail();
    }
    extension.value = inside.Octets();
    inside.ExpectEnd();
    return extension;
}

// A find steps over every certificate of a store, and asnt::Reader, which checks all that DER asks, would cost as much there as
// the walk. This checks bounds alone; what fits is then decoded with every check.
struct Piece {
    asnt::View content;
    asnt::View whole;
};

constexpr unsigned char kIntegerOctet = 0x02;

bool Take(asnt::View& rest, Piece& piece) {
    if (rest.size < 2) return false;
    std::size_t header = 2;
    std::size_t length = rest[1];
    if (length >= 0x80) {
        const std::size_t count = length - 0x80;
        if (count == 0 || count > 4 || rest.size < header + count) return false;
        length = 0;
        for (std::size_t i = 0; i < count; ++i) length = length << 8 | rest[header + i];
        header += count;
    }
    if (length > rest.size - header) return false;
    piece.content = {rest.data + header, length};
    piece.whole = {rest.data, header + length};
    rest = {rest.data + header + length, rest.size - header - length};
    return true;
}

}  // namespace

CertFields ReadCertFields(asnt::View encoded) {
    CertificateFields parts;
    if (!StepOverCertificate(encoded, parts)) asnt::ThrowBadStructure("");
    asnt::Reader signature(parts.signatureFields);
    ReadAlgorithm(signature);
    signature.Bits();

    CertFields fields;
    const TbsFields& tbs = parts.tbs;
    fields.version = ReadVersion(tbs.version);
    fields.serial = tbs.serial;
    asnt::Reader algorithm(tbs.signatureAlgorithm);
    fields.signatureAlgorithm = ReadAlgorithm(algorithm);
    fields.issuer = tbs.issuer;
    fields.notBefore = ReadTime(tbs.notBefore);
    fields.notAfter = ReadTime(tbs.notAfter);
    fields.subject = tbs.subject;
    asnt::Reader keyInfo(tbs.publicKeyInfo);
    asnt::Reader key = keyInfo.Enter(asnt::tag::Sequence);
    fields.keyAlgorithm = ReadAlgorithm(key);
    fields.publicKey = key.Bits();
    key.ExpectEnd();
    fields.issuerUniqueId = ReadUniqueId(tbs.issuerUniqueId);
    fields.subjectUniqueId = ReadUniqueId(tbs.subjectUniqueId);
    fields.hasSubjectKeyId = FindSubjectKeyId(tbs, fields.subjectKeyId);
    if (!tbs.extensions.empty()) {
        asnt::Reader extensions = asnt::Reader(tbs.extensions).Enter(asnt::tag::Sequence);
        fields.extensions = extensions.Rest();
        while (!extensions.AtEnd()) {
            ReadExtension(extensions);
            ++fields.extensionCount;
        }
    }
    return fields;
}

bool NextExtension(asnt::Reader& extensions, ExtensionFields& extension) {
    if (extensions.AtEnd()) return false;
    extension = ReadExtension(extensions);
    return true;
}

KeyIdentifier ToKeyIdentifier(asnt::View value) {
    KeyIdentifier identifier{};
    std::copy_n(value.begin(), std::min(value.size, identifier.size()), identifier.begin());
    return identifier;
}

bool StepToNames(asnt::View encoded, CertNames& names) {
    Piece certificate;
    Piece tbs;
    Piece item;
    if (!Take(encoded, certificate) || !Take(certificate.content, tbs)) return false;
    asnt::View rest = tbs.content;
    if (!Take(rest, item)) return false;
    if (item.whole[0] != kIntegerOctet && !Take(rest, item)) return false;  // the version is not asked for
    if (item.whole[0] != kIntegerOctet) return false;
    names.serial = item.content;
    if (!Take(rest, item) || !Take(rest, item)) return false;  // signature algorithm, issuer
    names.issuer = item.whole;
    if (!Take(rest, item) || !Take(rest, item)) return false;  // validity, subject
    names.subject = item.whole;
    return true;
}

}  // namespace nal
