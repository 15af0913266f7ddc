// A certificate's fields, from a context whose CERT_INFO may be empty: the store fills it only for key identifiers of 20 bytes.
#pragma once

#include "certstorage/cert_fields.h"
#include "nal/certificate.h"
#include "nal/context.h"

namespace nal {

/// The validity of a certificate.
struct Validity {
    CTOOFileTime notBefore;
    CTOOFileTime notAfter;
};

/// @throws XTOOStatus for a certificate that does not decode, as all of these
Validity ValidityOf(const CERT_CONTEXT& cert);

/// The serial number, least significant byte first.
IdentObj SerialOf(const CERT_CONTEXT& cert);

/// The issuer's and the subject's name as encoded; views into the context.
asnt::View IssuerNameOf(const CERT_CONTEXT& cert);
asnt::View SubjectNameOf(const CERT_CONTEXT& cert);

/// The subject's public key.
CNALCertPublicKeyInfo PublicKeyOf(const CERT_CONTEXT& cert);

inline asnt::View EncodingOf(const CERT_CONTEXT& cert) { return {cert.pbCertEncoded, cert.cbCertEncoded}; }
inline asnt::View EncodingOf(const CRL_CONTEXT& crl) { return {crl.pbCrlEncoded, crl.cbCrlEncoded}; }

}  // namespace nal
