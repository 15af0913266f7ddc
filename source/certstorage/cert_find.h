// Enumerating and finding certificates: what each find type compares.
#pragma once

#include "certstorage/cert_context.h"
#include "certstorage/cert_store.h"

namespace nal {

/// The next certificate of the store that fits, from the store's cursor operation on.
/// @return null with the last error set, as CertFindCertificateInStore
CertContext::Reference FindCert(CertStore& store, DWORD findType, const void* parameter);

}  // namespace nal
