// Where the certificates of a message's signers are sought: first in a storage of the caller's, then in the message.
#pragma once

#include <list>
#include <vector>

#include "nal/storage.h"
#include "signer/signer_match.h"

namespace nal {

class SignerFinder {
public:
    /// @param certificates  those of the message; must outlive this object
    /// @param storage       may be null or closed; must outlive this object
    SignerFinder(const std::list<IdentObj>& certificates, const CNALCertStorage* storage);

    /// The certificates that the signer info names, each once. Their number is bounded: what a message holds beside the signer's own
    /// certificate is somebody's choice.
    /// @throws XTOOStatus when the storage cannot be read
    std::vector<CNALCertContext> Find(const CNALMessageSignerInfo& signer) const;

private:
    void FindInStorage(const CNALMessageSignerInfo& signer, std::vector<CNALCertContext>& found) const;

    SignerCandidates m_ofMessage;
    const CNALCertStorage* m_storage;
};

}  // namespace nal
