// Certificates, CRLs and requests as data.
#pragma once

#include <string>

#include "cli/outcome.h"

namespace cli {

/// A name as text; one that does not decode as its bytes.
std::string TextOf(const CNALX509Name& name);
/// "2026-03-01T09:05:00Z"; null for no time.
Json TimeJson(const FILETIME& time);
std::string Hex(const IdentObj& bytes);
/// A serial number, most significant byte first.
std::string SerialText(const IdentObj& serial);
/// { "oid", "name" }
Json AlgorithmJson(const CNALAlgorithmIdentifier& algorithm);
Json KeyJson(const CNALCertPublicKeyInfo& key);
/// The words of a key usage extension.
Json UsageJson(const CNALCertExtensionList& extensions);

CNALX509Certificate DecodeCertificate(const IdentObj& der, const std::string& name);
CNAL_CRL_List DecodeCrl(const IdentObj& der, const std::string& name);
/// One that a store can keep, too.
CNAL_CRL_List CheckedCrl(const IdentObj& der, const std::string& name);
CNALCertContext ContextOf(const IdentObj& der, const std::string& name);

/// Everything of a certificate that people ask for.
Json CertificateJson(const CNALX509Certificate& certificate);
/// What names a certificate in lists: subject, serial, key identifier, end of validity.
Json CertificateSummary(const CNALX509Certificate& certificate);
/// @param entries  how many revoked certificates are listed
Json CrlJson(const CNAL_CRL_List& crl, std::size_t entries);
Json RequestJson(const CNALPKCS10Request& request);

}  // namespace cli
