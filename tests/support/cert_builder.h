// Certificates and CRLs for tests, as DER. They carry a signature of the right form that nobody made: what checks signatures
// gets its certificates from the key centre's library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "too/ident_obj.h"
#include "too/types.h"

namespace nal_test {

/// A file time; a month and day may be left out.
FILETIME Date(unsigned year, unsigned month = 1, unsigned day = 1);

/// The DER of a name with one common name, as UTF8String.
IdentObj NameDer(const std::string& commonName);

/// `size` bytes, each `value`.
IdentObj Filled(unsigned char value, unsigned size = 20);

/// One more extension; the value is its DER.
struct BuiltExtension {
    std::string oid;
    bool critical = false;
    IdentObj value;
};

/// A certificate to be. Defaults give one that every part of the library accepts.
struct CertBuilder {
    int version = 2;                            // as encoded: 2 is v3; -1 leaves the field out
    IdentObj serial = Filled(1, 1);             // content octets, most significant first
    std::string issuer = "Issuer";
    std::string subject = "Subject";
    FILETIME notBefore = Date(2020);
    FILETIME notAfter = Date(2030);
    std::optional<IdentObj> subjectKeyId = Filled(1);  // nothing: no extension
    std::optional<IdentObj> authorityKeyId;            // nothing: no extension
    std::vector<BuiltExtension> extensions;
    IdentObj publicKeyInfo;                            // DER; empty: a key that nobody has

    IdentObj Build() const;
};

struct BuiltCrlEntry {
    IdentObj serial;  // content octets, most significant first
    FILETIME revoked = Date(2021);
};

/// A CRL to be, likewise.
struct CrlBuilder {
    std::string issuer = "Issuer";
    FILETIME thisUpdate = Date(2021);
    std::optional<FILETIME> nextUpdate = Date(2031);
    std::vector<BuiltCrlEntry> entries;
    std::optional<IdentObj> authorityKeyId = Filled(1);  // nothing: no extension
    std::optional<IdentObj> number = Filled(1, 16);      // content octets of the CRL number, most significant first
    std::vector<BuiltExtension> extensions;

    IdentObj Build() const;
};

}  // namespace nal_test
