#include "storage/find_subject_cert.h"

#include "certstorage/arena.h"
#include "nal/certificate.h"

namespace nal {
namespace {

// 1.3.6.1.4.1.311.10.7.1
constexpr unsigned char kKeyIdentifierOid[] = {0x2B, 0x06, 0x01, 0x04, 0x01, 0x82, 0x37, 0x0A, 0x07, 0x01};

bool SameName(const CNALX509Name& a, asnt::View b) { return asnt::View(a) == b || a == CNALX509Name(b.Copy()); }

bool SameExtensions(const CNALCertExtensionList& a, const CERT_INFO& wanted) {
    CNALCertExtensionList b;
    for (DWORD i = 0; i < wanted.cExtension; ++i) b.Add(CNALCertExtension(wanted.rgExtension[i]));
    return a == b;
}

}  // namespace

std::optional<IdentObj> KeyIdentifierInName(const CERT_NAME_BLOB& issuer) {
    asnt::Reader name(ViewOf(issuer));
    asnt::Reader rdns;
    asnt::Reader rdn;
    asnt::Reader attribute;
    asnt::Element oid;
    asnt::Element value;
    if (!name.TryEnter(asnt::tag::Sequence, rdns) || !rdns.TryEnter(asnt::tag::Set, rdn) || !rdns.AtEnd() ||
        !rdn.TryEnter(asnt::tag::Sequence, attribute) || !rdn.AtEnd() || !attribute.TryNext(asnt::tag::Oid, oid) ||
        !attribute.TryNext(value) || oid.content != asnt::View(kKeyIdentifierOid, sizeof kKeyIdentifierOid)) {
        return std::nullopt;
    }
    return value.content.Copy();
}

bool FitsCertInfo(const CNALCertContext& cert, const CERT_INFO& wanted) {
    const CNALCertInfo info(*cert.GetContext());
    if (const auto keyId = KeyIdentifierInName(wanted.Issuer)) {
        if (cert.GetSubjectKeyId() != *keyId) return false;
    } else if (!SameName(info.m_issuer, ViewOf(wanted.Issuer)) || asnt::View(info.m_serialNumber) != ViewOf(wanted.SerialNumber)) {
        return false;
    }
    if (wanted.Subject.cbData != 0 && !SameName(info.m_subject, ViewOf(wanted.Subject))) return false;
    if (wanted.SubjectPublicKeyInfo.PublicKey.cbData != 0 &&
        !(info.m_publicKeyInfo == CNALCertPublicKeyInfo(wanted.SubjectPublicKeyInfo))) {
        return false;
    }
    return wanted.cExtension == 0 || SameExtensions(info.m_extensions, wanted);
}

}  // namespace nal
