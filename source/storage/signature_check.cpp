#include "storage/signature_check.h"

#include "frame/failure.h"
#include "model/certificate_fields.h"
#include "model/signature_fields.h"
#include "nal/crl.h"
#include "nal/signed_envelope.h"
#include "ork/provider.h"
#include "storage/cert_reader.h"

namespace nal {

bool IsAmong(Algorithms algorithms, const CNALAlgorithmIdentifier& algorithm) {
    unsigned algId = 0;
    unsigned keyAlgId = 0;
    const IdentObj& oid = algorithm.m_algorithm;
    if (!GetAlgIDFromOID(oid.GetData(), oid.GetSize(), algId, keyAlgId)) return false;
    const DWORD key = keyAlgId != 0 ? keyAlgId : algId;
    return key == ORK_ALG_GOST2001_EXCHANGE || key == ORK_ALG_GOST2001_SIGN || key == ORK_ALG_GOST94_SIGN ||
           (algorithms == Algorithms::WithPrivate && key == ORK_ALG_PRIVATE_SIGN);
}

ContextHandle OpenVerifyProvider() {
    ContextHandle provider;
    if (!ORKAcquireContext(provider.Receive(), nullptr, ORK_PROVIDER_NAME, ORK_PROVIDER_TYPE, ORK_OPEN_VERIFY)) provider.Release();
    return provider;
}

bool IsSignedBy(const CERT_CONTEXT& cert, const CNALCertPublicKeyInfo& issuerKey, Algorithms accepted) {
    CertificateFields fields;
    if (!StepOverCertificate(EncodingOf(cert), fields)) asnt::ThrowBadStructure("CNALCertContext::IsValidSignature");
    asnt::Reader reader(fields.signatureFields, "CNALCertContext::IsValidSignature");
    CNALAlgorithmIdentifier algorithm;
    CTOOCryptBitBlob signature;
    ReadSignatureFields(reader, algorithm, signature);
    if (!IsAmong(accepted, algorithm)) return CertVerifySubjectCertificateContext(&cert, nullptr, nullptr) != FALSE;

    // RFC 5280 section 4.1.1.2: both algorithm fields are the same; only the inner one is covered by the signature.
    CNALAlgorithmIdentifier inner;
    asnt::Reader innerReader(fields.tbs.signatureAlgorithm, "CNALCertContext::IsValidSignature");
    inner.ReadData(innerReader);
    if (inner.m_algorithm != algorithm.m_algorithm) return false;

    const ContextHandle provider = OpenVerifyProvider();
    int status = TOO_OK;
    return provider && NALCheckSignature(provider.Get(), fields.signedPart, algorithm, signature, issuerKey, &status) != 0;
}

bool IsSignedBy(const CNAL_CRL_List& crl, const CNALCertPublicKeyInfo& issuerKey) {
    const ContextHandle provider = OpenVerifyProvider();
    int status = TOO_OK;
    return provider && crl.CheckSignature(provider.Get(), issuerKey, &status) != 0;
}

}  // namespace nal
