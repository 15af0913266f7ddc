// How messages name the owner of a certificate: by issuer and serial number, or by key identifier.
#pragma once

#include "asnt/view.h"
#include "asnt/writer.h"
#include "too/ident_obj.h"

namespace nal {

/// Reads issuerAndSerialNumber, a SEQUENCE. @throws as the reader; the outputs may then be filled in part
void ReadIssuerAndSerial(asnt::Reader& fields, IdentObj& issuer, IdentObj& serialNumber);

/// Reads that or subjectKeyIdentifier [0], which must not be empty, for it would be taken for the other form.
void ReadIdentifier(asnt::Reader& fields, IdentObj& issuer, IdentObj& serialNumber, IdentObj& keyIdentifier);

/// Declares the key identifier unless it is empty, else issuer and serial number.
/// @throws XTOOStatus(36) for an issuer that is no name, or a serial number that is no INTEGER
void WriteIdentifier(asnt::Writer& writer, const IdentObj& issuer, const IdentObj& serialNumber, const IdentObj& keyIdentifier);

}  // namespace nal
