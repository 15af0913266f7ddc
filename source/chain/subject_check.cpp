// One certificate against one issuer.
#include "frame/failure.h"
#include "nal/signed_envelope.h"
#include "nal/verify.h"
#include "storage/cert_reader.h"
#include "storage/signature_check.h"
#include "storage/store_change.h"

namespace {

bool TimeHolds(const CERT_CONTEXT& subject, const CERT_CONTEXT& issuer) {
    const nal::Validity own = nal::ValidityOf(subject);
    const CTOOFileTime now = CTOOFileTime::Now();
    return own.notBefore < nal::ValidityOf(issuer).notAfter && own.notAfter > now && own.notBefore <= now;
}

/// The storage in which CRLs are sought: the given one, or that of the issuer.
CNALCertStorage StorageFor(const CNALCertStorage* given, const CNALCertContext& issuer) {
    return given != nullptr && given->IsOpened() ? *given : CNALCertStorage::OverStore(issuer.GetContext()->hCertStore);
}

}  // namespace

BOOL NALVerifySubjectCertificateContext(const CNALCertContext& subject, const CNALCertContext& issuer, unsigned* flags,
                                        CNALCertStorage* crlStorage, CNALCRLContext* crlOut) {
    if (!subject.IsInitialized() || !issuer.IsInitialized() || flags == nullptr) return nal::Refuse(nal::kInvalidParameter);
    const CERT_CONTEXT& cert = *subject.GetContext();
    const CERT_CONTEXT& issuerCert = *issuer.GetContext();
    if (crlOut != nullptr) *crlOut = CNALCRLContext();
    try {
        CNALSignedData envelope;
        int status = TOO_OK;
        if (envelope.ReadData(cert.pbCertEncoded, cert.cbCertEncoded, &status) == 0) return nal::Refuse(NAL_VERIFY_E_BAD_SUBJECT);
        if (!nal::IsAmong(nal::Algorithms::WithPrivate, envelope.m_algorithm)) {
            DWORD word = *flags;
            const BOOL answer = CertVerifySubjectCertificateContext(&cert, &issuerCert, &word);
            *flags = word;
            return answer;
        }
        unsigned word = *flags;
        if ((word & CERT_STORE_SIGNATURE_FLAG) != 0 &&
            nal::IsSignedBy(cert, nal::PublicKeyOf(issuerCert), nal::Algorithms::WithPrivate)) {
            word &= ~CERT_STORE_SIGNATURE_FLAG;
        }
        if ((word & CERT_STORE_TIME_VALIDITY_FLAG) != 0 && TimeHolds(cert, issuerCert)) word &= ~CERT_STORE_TIME_VALIDITY_FLAG;
        if ((word & CERT_STORE_REVOCATION_FLAG) != 0) {
            CNALCRLContext crl;
            bool isListed = false;
            const bool found = StorageFor(crlStorage, issuer).FindRevocation(subject, issuer, isListed, crl) != FALSE;
            if (!found) word |= CERT_STORE_NO_CRL_FLAG;
            if (!isListed) word &= ~CERT_STORE_REVOCATION_FLAG;
            if (crlOut != nullptr) *crlOut = std::move(crl);
        }
        *flags = word;
        return TRUE;
    } catch (const XTOOStatus&) {
        return nal::Refuse(NAL_VERIFY_E_BAD_SUBJECT);
    }
}
