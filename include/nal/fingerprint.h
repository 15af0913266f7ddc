/// Fingerprints: the texts that two people compare to be sure that they have the same certificate or the same key.
#pragma once

#include "nal/export.h"
#include "too/ident_obj.h"
#include "too/string.h"

/// The fingerprint of some bytes: their GOST R 34.11-94 hash (RFC 5831, parameter set 1.2.643.2.2.30.1), as 64 upper-case hexadecimal
/// digits in groups of eight, a blank between two groups.
///
/// Of a certificate it is that of its DER, of a key that of the DER of its SubjectPublicKeyInfo (CNALCertPublicKeyInfo::WriteData).
/// Whatever prints a fingerprint calls this, so that all of them look alike.
///
/// @throws XTOOStatus(status, "NALGetFingerprint") with the status of the provider's failure
/// Thread-safe.
NAL_EXPORT CTOOString NALGetFingerprint(const IdentObj& bytes);
