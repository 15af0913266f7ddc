#include "encryption/key_transport.h"
#include "frame/failure.h"
#include "model/provider_handles.h"
#include "nal/encrypt.h"
#include "ork/provider.h"

namespace {

constexpr char c_context[] = "NALExportEncryptKey";
constexpr char c_defaultKeySet[] = "1.2.643.2.2.35.1";

/// Makes an ephemeral key of the recipient's parameter sets.
bool MakeEphemeral(unsigned long hProv, const CNALAlgorithmIdentifier& recipient, nal::KeyHandle& key) {
    CTOOString keySet;
    CTOOString hashSet;
    recipient.GetParams(nullptr, &keySet, &hashSet, nullptr);
    if (keySet.empty()) keySet = c_defaultKeySet;
    if (hashSet.empty()) hashSet = c_NAL_OID_HASH_PARAMS;
    constexpr DWORD generate = 1;
    return ORKGenKey(hProv, ORK_ALG_EPHEMERAL, ORK_GEN_EXPORTABLE | ORK_GEN_LATER, key.Receive()) &&
           ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_HASH_PARAMS, hashSet.c_str()) &&
           ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_KEY_PARAMS, keySet.c_str()) &&
           ORKSetKeyParam(key.Get(), ORK_KEY_PARAM_GENERATE, generate);
}

/// Wraps the session key. @return the DER of GostR3410-KeyTransport; empty, with the last error set, when the provider refuses
IdentObj Wrap(unsigned long hSessionKey, const CNALCertPublicKeyInfo& recipient) {
    unsigned long hProv = 0;
    nal::KeyHandle ephemeral;
    nal::KeyHandle agreed;
    nal::KeyTransport transport;
    IdentObj wrapped;
    const IdentObj blob = NALConvertPublicKeyInfo(recipient);
    if (!ORKGetKeyParam(hSessionKey, ORK_KEY_PARAM_CONTEXT, hProv) || !MakeEphemeral(hProv, recipient.m_algorithm, ephemeral) ||
        !NALExportPKInfo(hProv, ephemeral.Get(), transport.ephemeralKey) ||
        !ORKImportKey(hProv, blob.GetData(), blob.GetSize(), ephemeral.Get(), 0, agreed.Receive()) ||
        !ORKExportKey(hProv, hSessionKey, agreed.Get(), ORK_BLOB_SIMPLE, ORK_EXPORT_TRANSPORT, wrapped)) {
        return {};
    }
    // An ephemeral key takes a signature key's OID; the standard wants that of the recipient's key.
    transport.ephemeralKey.m_algorithm.m_algorithm = recipient.m_algorithm.m_algorithm;
    transport.key = nal::ReadSimpleBlob(wrapped, c_context);
    return nal::WriteKeyTransport(transport);
}

}  // namespace

int NALExportEncryptKey(unsigned long hSessionKey, CNALCertPublicKeyInfo& recipient) {
    IdentObj der;
    try {
        der = Wrap(hSessionKey, recipient);
    } catch (const XTOOStatus& status) {
        return nal::Refuse(status.GetCode() == TOO_E_UNKNOWN_ALGORITHM ? ORK_E_BAD_ALGID : ORK_E_BAD_DATA);
    }
    if (der.IsEmpty()) return FALSE;
    recipient.m_publicKey = CTOOCryptBitBlob(std::move(der));
    return TRUE;
}
