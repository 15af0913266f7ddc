// Adding CRLs: what each disposition does.
#pragma once

#include "certstorage/crl_context.h"

namespace nal {

/// CertAddEncodedCRLToStore, without its context. @return whether the CRL was put; else the last error is set
bool AddEncodedCrl(CertStore& store, const CrlKey& key, asnt::View encoded, DWORD disposition);

/// CertAddCRLContextToStore, without its context. @return whether all was put; else the last error is set
bool AddCrlContext(CertStore& store, CrlContext& context, DWORD disposition);

}  // namespace nal
