// Stores that commands work on, and finding a certificate in them by what the operator typed.
#pragma once

#include <list>
#include <string>

#include "cli/outcome.h"

namespace cli {

class Options;

/// The option --store of every command that works on a store.
struct StoreOption {
    std::string path;
    void Define(Options& options);
    std::string Path() const;
    /// Opens it for reading. The user's own is closed while there is none yet. @throws Fault as OpenStore, and when the option names none
    CNALCertStorage Open() const;
};

/// Opens a store. One that is not there is made with `create`; else the storage is closed, and every search finds nothing.
/// @throws Fault for a file that cannot be opened or is no sound store
CNALCertStorage OpenStore(const std::string& path, bool create);

/// All certificates, and all CRLs, of a storage. @throws Fault when it cannot be read to its end
std::list<CNALCertContext> AllCertificates(const CNALCertStorage& storage);
std::list<CNALCRLContext> AllCrls(const CNALCertStorage& storage);

/// Whether a certificate is the one that `id` means: the beginning of its key identifier or serial number in hexadecimal, at least
/// four digits, or a part of its subject's text, letters of either case being equal.
bool Matches(const CNALX509Certificate& certificate, const std::string& id);

/// The one certificate of a storage that `id` means.
/// @param unless  begins the message when there is none
/// @throws Fault for none, and for several, which it lists
CNALCertContext SelectOne(const CNALCertStorage& storage, const std::string& id, const std::string& where, const std::string& unless = {});

/// A certificate that a command line names: the file of this path or, when there is none, the one in the store that it means.
CNALCertContext CertificateArgument(const std::string& fileOrId, const StoreOption& store);

/// An untrusted storage in memory with these certificates and CRLs, for building chains. Certificates that no store can keep are left out.
CNALCertStorage MemoryStorage(const std::vector<IdentObj>& certificates, const std::vector<IdentObj>& crls);

IdentObj EncodingOf(const CNALCertContext& certificate);
IdentObj EncodingOf(const CNALCRLContext& crl);
CNALX509Certificate Decoded(const CNALCertContext& certificate);

/// Why no store can keep a certificate; empty when one can.
std::string WhyNotKept(const CNALX509Certificate& certificate);

}  // namespace cli
