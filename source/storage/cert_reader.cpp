#include "storage/cert_reader.h"

#include <algorithm>

#include "model/certificate_fields.h"

namespace nal {
namespace {

bool IsFilled(const CERT_CONTEXT& cert) { return cert.pCertInfo != nullptr && cert.pCertInfo->Issuer.cbData != 0; }

CertificateFields FieldsOf(const CERT_CONTEXT& cert) {
    CertificateFields fields;
    if (!StepOverCertificate(EncodingOf(cert), fields)) asnt::ThrowBadStructure("CNALCertContext");
    return fields;
}

asnt::View ViewOfBlob(const CRYPTOAPI_BLOB& blob) { return {blob.pbData, blob.cbData}; }

}  // namespace

Validity ValidityOf(const CERT_CONTEXT& cert) {
    if (IsFilled(cert)) return {cert.pCertInfo->NotBefore, cert.pCertInfo->NotAfter};
    const CertFields fields = ReadCertFields(EncodingOf(cert));
    return {fields.notBefore, fields.notAfter};
}

IdentObj SerialOf(const CERT_CONTEXT& cert) {
    if (IsFilled(cert)) return ViewOfBlob(cert.pCertInfo->SerialNumber).Copy();
    IdentObj serial = FieldsOf(cert).tbs.serial.Copy();
    std::reverse(serial.GetData(), serial.GetData() + serial.GetSize());
    return serial;
}

asnt::View IssuerNameOf(const CERT_CONTEXT& cert) {
    return IsFilled(cert) ? ViewOfBlob(cert.pCertInfo->Issuer) : FieldsOf(cert).tbs.issuer;
}

asnt::View SubjectNameOf(const CERT_CONTEXT& cert) {
    return IsFilled(cert) ? ViewOfBlob(cert.pCertInfo->Subject) : FieldsOf(cert).tbs.subject;
}

CNALCertPublicKeyInfo PublicKeyOf(const CERT_CONTEXT& cert) {
    if (IsFilled(cert)) return CNALCertPublicKeyInfo(cert.pCertInfo->SubjectPublicKeyInfo);
    const asnt::View der = FieldsOf(cert).tbs.publicKeyInfo;
    CNALCertPublicKeyInfo key;
    key.ReadData(der.data, static_cast<unsigned>(der.size));
    return key;
}

}  // namespace nal
