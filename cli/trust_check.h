// Verification of certificates and CRLs, with every fault in words.
#pragma once

#include <string>
#include <vector>

#include "cli/outcome.h"

namespace cli {

/// The words for error bits of a chain or of one certificate in it; none for 0.
std::vector<std::string> FaultWords(DWORD trustErrors);

/// The error bits of a chain. Where its last issuer is missing the library says of every check that it failed; of these bits only what
/// is known without an issuer stays: the time.
DWORD KnownErrors(const CNALCertificateChain& chain);
/// The same of a chain that has no more than these bits: nothing but that an issuer is missing, when one is.
DWORD KnownErrors(DWORD trustErrors);

/// What helps to find a way to a trusted root, and is not trusted itself.
struct HelpersOption {
    std::vector<std::string> certificates;  ///< --with
    std::vector<std::string> crls;          ///< --crl
    std::string store;                      ///< --store; empty: the user's own

    void Define(class Options& options);
    /// The store and the files as one untrusted storage.
    CNALCertStorage Open() const;
};

/// A chain: { "verdict", "good", "faults", "chain": [ { certificate, "faults", "crl" } ] }
Json ChainJson(const CNALCertificateChain& chain);
/// The same as a tree, root first.
std::string ChainTree(const CNALCertificateChain& chain, bool colour);

/// Builds the chain of a certificate with every check. @throws Fault for one that does not decode
CNALCertificateChain BuildChain(const CNALCertContext& certificate, CNALCertStorage& helpers);

/// Whether a CRL's signature holds under this certificate's key, and the names agree.
bool IsCrlOf(const CNAL_CRL_List& crl, const CNALX509Certificate& issuer);

}  // namespace cli
