// Finding a certificate's fields by stepping over its DER: nothing is decoded, copied or allocated. The stores search with this,
// and the decoder starts from it, so both refuse the same certificates.
//
//   Certificate    ::= SEQUENCE { tbsCertificate, signatureAlgorithm AlgorithmIdentifier, signatureValue BIT STRING }
//   TBSCertificate ::= SEQUENCE { version [0] EXPLICIT INTEGER OPTIONAL, serialNumber INTEGER, signature AlgorithmIdentifier,
//                                 issuer Name, validity SEQUENCE { notBefore Time, notAfter Time }, subject Name,
//                                 subjectPublicKeyInfo SEQUENCE, issuerUniqueID [1] IMPLICIT BIT STRING OPTIONAL,
//                                 subjectUniqueID [2] IMPLICIT BIT STRING OPTIONAL, extensions [3] EXPLICIT SEQUENCE OPTIONAL }
//   Extension      ::= SEQUENCE { extnID OID, critical BOOLEAN DEFAULT FALSE, extnValue OCTET STRING }
#pragma once

#include "asnt/view.h"

namespace nal {

/// The fields of a TBSCertificate. Views look into the encoding.
struct TbsFields {
    asnt::View version;             ///< content of the INTEGER; empty when absent
    asnt::View serial;              ///< content of the INTEGER, most significant byte first; not empty
    asnt::View signatureAlgorithm;  ///< whole element, as the following
    asnt::View issuer;
    asnt::Element notBefore;        ///< UTCTime or GeneralizedTime
    asnt::Element notAfter;
    asnt::View subject;
    asnt::View publicKeyInfo;
    asnt::View issuerUniqueId;      ///< content, at least 2 bytes; empty when absent, as the following
    asnt::View subjectUniqueId;
    asnt::View extensions;          ///< the Extensions SEQUENCE, whole
};

struct CertificateFields {
    asnt::View signedPart;       ///< the TBSCertificate, whole
    asnt::View signatureFields;  ///< signatureAlgorithm and signatureValue
    TbsFields tbs;
};

/// Finds the fields of a TBSCertificate that fills `der`.
/// @return false, with `fields` undefined, when its structure is damaged; the fields' own content is not looked at
bool StepOverTbs(asnt::View der, TbsFields& fields);

/// The same for a certificate.
bool StepOverCertificate(asnt::View der, CertificateFields& fields);

/// Finds the value (the content of extnValue) of the first extension with an OID.
/// @param extensions  the Extensions SEQUENCE; nothing is found in an empty view
/// @param oid         the OID's content octets
/// @return false, with `value` untouched, when there is none or an extension before it is damaged
bool FindExtensionValue(asnt::View extensions, asnt::View oid, asnt::View& value);

/// The key identifier of extension 2.5.29.14.
/// @return false, with `keyId` untouched, when the extension is absent or damaged
bool FindSubjectKeyId(const TbsFields& fields, asnt::View& keyId);

/// The key identifier of the issuer in extension 2.5.29.35, of a certificate or a CRL.
/// @return false, with `keyId` untouched, when extension or identifier are absent or damaged
bool FindAuthorityKeyId(asnt::View extensions, asnt::View& keyId);

}  // namespace nal
