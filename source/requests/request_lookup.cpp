#include "requests/request_lookup.h"

#include "nal/pkcs10.h"
#include "too/status.h"

namespace nal {
namespace {

/// The public key that a request asks for; empty when the request does not decode.
IdentObj KeyOf(const CRYPTOAPI_BLOB& request) {
    try {
        CNALPKCS10Request decoded;
        decoded.ReadData(request.pbData, request.cbData);
        return decoded.GetData().m_publicKey.WriteData();
    } catch (const XTOOStatus&) {
        return {};
    }
}

}  // namespace

OpenRequestStorage::OpenRequestStorage(const CTOOString& path, unsigned flags) {
    NALCertOpenReqStorage(CERT_STORE_PROV_FILENAME_A, path.c_str(), flags, &m_handle, nullptr, nullptr);
}

CNALCertReqContext FindRequestFor(CNALReqContextStorage& storage, const IdentObj& publicKeyInfo) {
    CNALCertReqContext request;
    do {
        request.Attach(storage.EnumContexts(request.Detach()));
    } while (request && KeyOf(request->Request) != publicKeyInfo);
    return request;
}

}  // namespace nal
