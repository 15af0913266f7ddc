// Public keys between certificates and the provider.
#include <utility>

#include "frame/failure.h"
#include "nal/algorithm.h"
#include "ork/csp.h"

int NALIportPKInfo(unsigned long hProv, const CNALCertPublicKeyInfo& info, unsigned long* hKey) {
    if (hKey == nullptr) return nal::Refuse(ORK_E_INVALID_PARAMETER);
    IdentObj der;
    try {
        der = info.WriteData();
    } catch (const XTOOStatus&) {
        return nal::Refuse(ORK_E_BAD_KEY);
    }
    unsigned long imported = 0;
    if (!ORKImportPKInfo(hProv, der.GetData(), der.GetSize(), &imported)) return FALSE;
    *hKey = imported;
    return TRUE;
}

int NALExportPKInfo(unsigned long hProv, unsigned long hKey, CNALCertPublicKeyInfo& info) {
    // The encoder below knows the blobs of this one provider.
    CTOOString provider;
    if (!ORKGetProvParam(hProv, ORK_PARAM_NAME, provider)) return FALSE;
    if (provider != ORK_PROVIDER_NAME) return nal::Refuse(NAL_STORE_E_NOT_SUPPORTED);

    IdentObj blob;
    if (!ORKExportKey(hProv, hKey, 0, ORK_BLOB_PUBLIC, 0, blob)) return FALSE;
    CTOOString algorithm;
    IdentObj parameters;
    IdentObj publicKey;
    if (!orkcspex::ORKEncodePublicKeyAndParametrs(blob, algorithm, parameters, publicKey)) return FALSE;
    info.m_algorithm.m_algorithm = IdentObj(algorithm.data(), static_cast<unsigned>(algorithm.length()));
    info.m_algorithm.m_parameters = std::move(parameters);
    info.m_publicKey = CTOOCryptBitBlob(std::move(publicKey));
    return TRUE;
}
