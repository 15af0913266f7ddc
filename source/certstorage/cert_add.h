// Adding certificates: what each disposition does.
#pragma once

#include "certstorage/cert_context.h"
#include "certstorage/cert_store.h"

namespace nal {

/// How an addition went.
enum class AddResult {
    Stored,
    Failed,         // the tree failed; errno says why, and the last error is set to it
    Present,        // one is there that stays: last error 0x80092005
    NotSupported,   // last error 230
    Refused,        // no last error
};

/// CertAddEncodedCertificateToStore, without its context.
AddResult AddEncodedCert(CertStore& store, const KeyIdentifier& key, asnt::View encoded, DWORD disposition);

/// CertAddCertificateContextToStore, without its context.
AddResult AddCertContext(CertStore& store, CertContext& context, DWORD disposition);

}  // namespace nal
