// Integers as this library holds them: serial numbers and CRL numbers are the INTEGER's content octets, least significant
// first, every octet kept (a leading zero sign octet becomes a trailing one). In DER they stand the other way round.
#pragma once

#include "asnt/view.h"
#include "too/ident_obj.h"

namespace nal {

/// The bytes in reverse order: an INTEGER's content octets to the order in which the model holds them, and back.
IdentObj Reversed(asnt::View bytes);

/// Turns a serial or CRL number into the 16 bytes by which stores key it: one leading zero sign octet is dropped, the rest is
/// extended with zeros at its most significant end.
/// @param number  least significant byte first
/// @param out     receives 16 bytes, least significant first; untouched on failure
/// @return false for an empty number and for one that does not fit
bool ToSerial16(asnt::View number, unsigned char (&out)[16]);

/// Turns a signature between the order of certificates and messages (RFC 4491: s then r, most significant byte first) and the
/// provider's (least significant byte first). The model holds signatures as they are encoded; only calls of the provider need
/// this, in both directions.
IdentObj ToProviderOrder(asnt::View signature);

}  // namespace nal
