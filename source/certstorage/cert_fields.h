// A certificate's fields, decoded where they lie in its encoding: CERT_INFO points there, and nothing is copied.
#pragma once

#include "asnt/view.h"
#include "certstorage/record_key.h"
#include "too/types.h"

namespace nal {

struct AlgorithmFields {
    asnt::View oid;         // content octets
    asnt::View parameters;  // DER, empty when absent
};

struct CertFields {
    DWORD version = 0;
    asnt::View serial;  // most significant octet first
    AlgorithmFields signatureAlgorithm;
    asnt::View issuer;  // DER
    FILETIME notBefore{};
    FILETIME notAfter{};
    asnt::View subject;  // DER
    AlgorithmFields keyAlgorithm;
    asnt::BitString publicKey;
    asnt::BitString issuerUniqueId;
    asnt::BitString subjectUniqueId;
    bool hasSubjectKeyId = false;  // the extension is there and decodes
    asnt::View subjectKeyId;
    asnt::View extensions;  // the elements of the SEQUENCE, each checked; empty when absent
    DWORD extensionCount = 0;
};

struct ExtensionFields {
    asnt::View oid;  // content octets
    bool critical = false;
    asnt::View value;
};

/// Decodes a certificate, by the rules of CNALX509Certificate::DecodeCert.
/// @throws XTOOStatus(TOO_E_BAD_STRUCTURE) for bytes that are none
CertFields ReadCertFields(asnt::View encoded);

/// Steps over the extensions of ReadCertFields. @return false at the end
bool NextExtension(asnt::Reader& extensions, ExtensionFields& extension);

/// The first 20 bytes, filled up with zeros.
KeyIdentifier ToKeyIdentifier(asnt::View value);

/// What finds compare. `serial` as in CertFields.
struct CertNames {
    asnt::View serial;
    asnt::View issuer;
    asnt::View subject;
};

/// Steps to the names and no further. @return false for what does not begin like a certificate
bool StepToNames(asnt::View encoded, CertNames& names);

}  // namespace nal
