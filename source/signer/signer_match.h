// Which certificate a signer info names: for verification, signing again, trimming and removal alike.
#pragma once

#include <list>
#include <string>
#include <unordered_map>
#include <vector>

#include "nal/context.h"
#include "nal/signed_data.h"

namespace nal {

/// Whether `signer` names this certificate: by key identifier, or by issuer and serial number. A signer whose hash is 0x8029 may name
/// it by its subject and serial number as well. A certificate or name that does not decode is named by nobody.
bool IsSignerOf(const CNALCertContext& cert, const CNALMessageSignerInfo& signer);

/// Certificates by what signer infos may call them: finding costs the same however many there are.
class SignerCandidates {
public:
    /// Adds a certificate behind the others; equal ones are kept once.
    void Add(const CNALCertContext& cert);
    /// Adds the certificates among a message's. What does not decode is left out.
    void AddAll(const std::list<IdentObj>& certificates);

    /// The certificates for which IsSignerOf is true, in the order in which they were added.
    std::vector<CNALCertContext> Find(const CNALMessageSignerInfo& signer) const;

private:
    std::vector<CNALCertContext> m_certs;
    std::unordered_multimap<std::string, std::size_t> m_byName;
};

}  // namespace nal
