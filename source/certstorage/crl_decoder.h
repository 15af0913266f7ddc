// From a CRL's encoding to what a store needs of it.
#pragma once

#include <optional>

#include "certstorage/crl_context.h"
#include "nal/crl.h"

namespace nal {

/// Decodes a CRL with nothing behind it. @throws XTOOStatus
CNAL_CRL_List DecodeCrl(asnt::View encoded);

/// The key identifier in the extension "2.5.29.35", which may be empty. @return nothing without the extension
/// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) when it does not decode
std::optional<IdentObj> IssuerKeyIDOf(const CNAL_CRL_Info& crl);

/// The texts of the two invariants, which differ by the place that finds them broken.
struct CrlKeyTexts {
    const char* issuerID;
    const char* crlSerial;
};

/// The store's key of a CRL. Aborts with the text for an identifier or a serial of another size.
CrlKey ToCrlKey(const IdentObj& issuerKeyID, const IdentObj& crlSerial, const CrlKeyTexts& texts);

}  // namespace nal
