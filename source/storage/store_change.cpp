#include "storage/store_change.h"

namespace nal {

BOOL AddToStore(HCERTSTORE store, const CNALCertContext& cert) {
    const PCCERT_CONTEXT context = cert.GetContext();
    if (context == nullptr) return Refuse(NAL_STORE_E_INVALID_ARGUMENT);
    if (context->pCertInfo->Issuer.cbData != 0) {
        return CertAddCertificateContextToStore(store, context, CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
    }
    return CertAddEncodedCertificateToStore(store, context->dwCertEncodingType, context->pbCertEncoded, context->cbCertEncoded,
                                            CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
}

}  // namespace nal
