// Finding a request by the key that it asks a certificate for.
#pragma once

#include "nal/request_context.h"

namespace nal {

/// A storage of requests, open as long as this object.
class OpenRequestStorage {
public:
    /// @param flags  as NALCertOpenReqStorage @throws XTOOStatus
    explicit OpenRequestStorage(const CTOOString& path, unsigned flags = 0);
    ~OpenRequestStorage() { NALCertCloseReqStore(m_handle, 0); }
    OpenRequestStorage(const OpenRequestStorage&) = delete;
    OpenRequestStorage& operator=(const OpenRequestStorage&) = delete;

    CNALReqContextStorage& Get() const { return *CNALReqContextStorage::FromHandle(m_handle); }

private:
    unsigned long m_handle = 0;
};

/// The first request for a key. @param publicKeyInfo  DER @return an empty wrapper when there is none @throws XTOOStatus
CNALCertReqContext FindRequestFor(CNALReqContextStorage& storage, const IdentObj& publicKeyInfo);

}  // namespace nal
