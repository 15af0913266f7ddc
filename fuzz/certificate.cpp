// Certificates, with every extension value that has a class; what decodes is written and compared.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "model/certificate_fields.h"
#include "nal/certificate.h"

namespace {

void Require(bool condition) {
    if (!condition) std::abort();
}

// A value that decodes is written, and what was written decodes and is written the same way.
template <class Value>
void CheckValue(const CNALCertExtension& extension) {
    Value value;
    if (!value.TryRead(extension)) return;
    const CNALCertExtension written = value.ToExtension("1.2.3", false);
    Value again;
    Require(again.TryRead(written) && again.WriteData() == written.m_value);
}

void CheckExtension(const CNALCertExtension& extension) {
    CheckValue<CNALSubjectKeyID>(extension);
    CheckValue<CNALIssuerPublicKeyID>(extension);
    CheckValue<CNALBasicConstraints>(extension);
    CheckValue<CNALOldBasicConstraints>(extension);
    CheckValue<CNALKeyUsage>(extension);
    CheckValue<CNALExtendedKeyUsage>(extension);
    CheckValue<CKeyUsagePeriod>(extension);
    CheckValue<CNALAlternativeNames>(extension);
    CheckValue<CNALCRLNumber>(extension);
    CheckValue<CNALReasonCode>(extension);
    CheckValue<CNALCRLDistributionPoints>(extension);
    CheckValue<CNALCertificatePolicies>(extension);
}

void CheckCertificate(const CNALX509Certificate& certificate, const IdentObj& input, unsigned consumed) {
    IdentObj out;
    out.SetSize(consumed);
    Require(certificate.WriteEncodetData(out.GetData(), consumed) == consumed);
    Require(std::memcmp(out.GetData(), input.GetData(), consumed) == 0);

    nal::CertificateFields fields;
    Require(nal::StepOverCertificate(certificate.m_encodedCertificate, fields));
    asnt::View stepped;
    CNALSubjectKeyID decoded;
    const CNALCertExtension* extension = certificate.m_info.m_extensions.FindExtension(c_NAL_OID_SUBJECT_KEY_ID);
    const bool isDecoded = extension != nullptr && decoded.TryRead(*extension);
    Require(nal::FindSubjectKeyId(fields.tbs, stepped) == isDecoded);
    Require(!isDecoded || stepped == asnt::View(decoded.m_keyId));
    nal::FindAuthorityKeyId(fields.tbs.extensions, stepped);

    for (const auto& item : certificate.m_info.m_extensions) CheckExtension(item);
    const CNALCertPublicKeyInfo& key = certificate.m_info.m_publicKeyInfo;
    key.GetKeyID();
    key.GetKeyLength();
    CNALCertInfo copy = certificate.m_info;
    Require(copy.DecodeInfo(certificate.m_signedPart) && copy.m_serialNumber == certificate.m_info.m_serialNumber);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const IdentObj input(data, static_cast<unsigned>(size));
    try {
        CNALX509Certificate certificate;
        const unsigned consumed = certificate.ReadEncodetData(input.GetData(), input.GetSize());
        if (consumed != 0) CheckCertificate(certificate, input, consumed);
    } catch (const XTOOStatus& status) {
        Require(status.GetCode() == TOO_E_BAD_STRUCTURE);
    }
    CheckExtension(CNALCertExtension("1.2.3", false, input));
    try {
        CNALCertPublicKeyInfo key;
        key.ReadData(input.GetData(), input.GetSize());
        unsigned keySpec = 0;
        CTOOString names[3];
        CNALCertInfo info;
        info.m_publicKeyInfo = key;
        info.GetKeyParam(keySpec, names[0], names[1], names[2]);
        NALConvertPublicKeyInfo(key);
    } catch (const XTOOStatus&) {
    }
    return 0;
}
