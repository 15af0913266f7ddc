// Certificates put together from parts, each of which a test may replace by something else. Their signature is made up.
#pragma once

#include <string_view>
#include <vector>

#include "asnt/writer.h"
#include "nal/extensions.h"
#include "too/ident_obj.h"

namespace nal_test {

/// The DER that `write` writes.
template <class Write>
IdentObj Der(Write&& write) {
    asnt::Writer writer;
    write(writer);
    return writer.Finish();
}

/// A Name with one common name.
IdentObj CommonName(std::string_view text);

/// Every part as the DER that stands in the certificate; an empty one is left out.
struct CertificateParts {
    CertificateParts();

    /// Puts these extensions in the place of `optional`.
    void SetExtensions(const std::vector<CNALCertExtension>& extensions);
    IdentObj EncodeTbs() const;
    IdentObj Encode() const;

    IdentObj version;         ///< [0] { 2 }
    IdentObj serial;          ///< 0x00 F1 02 03 04 05 06 07
    IdentObj innerAlgorithm;  ///< GOST R 34.11-94 with GOST R 34.10-2001
    IdentObj issuer;          ///< CN=Issuer
    IdentObj validity;        ///< 2026-01-01 00:00:00 to 2051-01-01 00:00:00
    IdentObj subject;         ///< CN=Subject
    IdentObj publicKeyInfo;   ///< GOST R 34.10-2001, parameter set A, 64 bytes 0x00 to 0x3F
    IdentObj optional;        ///< [3] with the subject key identifier 00 to 13
    IdentObj outerAlgorithm;  ///< as innerAlgorithm
    IdentObj signature;       ///< BIT STRING of 64 bytes 0x80 to 0xBF
};

/// A certificate of about 1 KiB as authorities issue them: names of several attributes and nine extensions.
IdentObj TypicalCertificate();

}  // namespace nal_test
