// A change of a store as a whole: all of it, or, in a store with a file, nothing.
#pragma once

#include "certstorage/cert_store.h"
#include "certstorage/store_access.h"
#include "frame/failure.h"
#include "nal/context.h"

namespace nal {

// Last errors of the storages.
inline constexpr DWORD kInvalidHandle = 6;
inline constexpr DWORD kInvalidParameter = 87;

/// Runs `change`, which says whether it went well, as one change of the store.
/// @return TRUE when it did and is durable; else FALSE with the last error
template <class Change>
BOOL ChangeStore(HCERTSTORE handle, Change&& change) {
    StoreChange whole(*CertStore::FromHandle(handle));
    if (whole.Error() != 0) return Refuse(static_cast<DWORD>(whole.Error()));
    if (!change()) return FALSE;  // the last error is its own
    const int error = whole.Commit();
    return error == 0 ? TRUE : Refuse(static_cast<DWORD>(error));
}

/// Adds a certificate in the place of one with the same key. The first 20 bytes of its key identifier key it, also when the
/// identifier has another length and the context therefore none.
BOOL AddToStore(HCERTSTORE store, const CNALCertContext& cert);

}  // namespace nal
