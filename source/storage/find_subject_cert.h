// Find type 0xB0000 of a storage: a certificate by the fields of a CERT_INFO.
#pragma once

#include <optional>

#include "nal/context.h"

namespace nal {

/// The value of the one attribute 1.3.6.1.4.1.311.10.7.1 that an issuer name consists of; nothing for any other name.
/// Such a name stands for the issuer, and the wanted certificate has that key identifier.
std::optional<IdentObj> KeyIdentifierInName(const CERT_NAME_BLOB& issuer);

/// Whether the fields that `wanted` fills in are those of the certificate. The issuer and the serial always count, unless the
/// issuer is a key identifier.
bool FitsCertInfo(const CNALCertContext& cert, const CERT_INFO& wanted);

}  // namespace nal
