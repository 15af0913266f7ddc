// Whether the certificates of a message's signers lead to a root that the host trusts.
#pragma once

#include <map>
#include <set>
#include <string_view>
#include <vector>

#include "nal/chain.h"
#include "nal/signed_data.h"
#include "nal/storage.h"

namespace nal {

/// Builds each certificate's chain once. What the message and the caller's storage have to offer goes into an untrusted storage in
/// memory: it may show a way to a trusted root and never is one.
class SignerChains {
public:
    /// @param message  must outlive this object
    /// @param storage  may be null or closed; likewise
    SignerChains(const CNALSignData& message, const CNALCertStorage* storage);

    /// The status of the chain of this DER certificate; of no bytes CERT_TRUST_IS_PARTIAL_CHAIN.
    /// @throws XTOOStatus when there is no memory storage, or the trust storages fail
    CERT_TRUST_STATUS StatusOf(const IdentObj& certificate);

private:
    void OpenExtra();
    void ReadIssuersOfMessage();
    void AddIssuersOf(CNALCertContext cert);
    void AddOtherIssuers();
    void AddCrlsOfMessage();
    void AddIssuersFromStorage(CNALCertContext cert);
    void AddCert(const CNALCertContext& cert);
    void AddCrl(const CNALCRLContext& crl);

    /// A certificate of the message whose subject is an issuer's name in it.
    struct Offered {
        std::string_view subject;
        const IdentObj* encoded;

        static bool IsBefore(const Offered& a, const Offered& b) { return a.subject < b.subject; }
    };

    const CNALSignData& m_message;
    const CNALCertStorage* m_storage;
    CNALCertStorage m_extra;
    std::set<IdentObj> m_added;  // to m_extra, which is searched through an index that each change makes void
    std::map<IdentObj, IdentObj> m_present;  // by key identifier, which of the certificates added for a chain m_extra holds
    std::vector<Offered> m_offered;  // by subject
    unsigned m_onChains = 0;
    std::map<IdentObj, CERT_TRUST_STATUS> m_known;
};

}  // namespace nal
