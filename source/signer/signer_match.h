// Which certificate a signer info names: for verification, signing again, trimming and removal alike.
#pragma once

#include <list>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "asnt/view.h"
#include "nal/context.h"
#include "nal/signed_data.h"

namespace nal {

/// Whether `signer` names this certificate: by key identifier, or by issuer and serial number. A signer whose hash is 0x8029 may name
/// it by its subject and serial number as well. A certificate or name that does not decode is named by nobody.
bool IsSignerOf(const CNALCertContext& cert, const CNALMessageSignerInfo& signer);

/// Certificates by what signer infos may call them: finding costs the same however many there are.
class SignerCandidates {
public:
    /// How many certificates of one name are kept: those of others than the signer cost him a check each.
    static constexpr std::size_t c_maxOfOneName = 16;

    /// Adds a certificate behind the others; equal ones are kept once.
    void Add(const CNALCertContext& cert);
    /// Adds the certificates among a message's, which must outlive this object. What is none is left out.
    void AddAll(const std::list<IdentObj>& certificates);

    /// The certificates for which IsSignerOf is true, in the order in which they were added. What does not decode is left out.
    std::vector<CNALCertContext> Find(const CNALMessageSignerInfo& signer) const;

private:
    struct Entry {
        asnt::View encoded;
        CNALCertContext cert;  // empty for one of a message: made when it is found, since most never are
    };

    void AddEntry(Entry entry);

    std::vector<Entry> m_entries;
    std::map<std::string, std::vector<std::size_t>> m_byName;  // a tree: names come from outside, and could be made to collide
};

/// What the signers of a message are called, to tell which certificates some signer names.
class SignerNames {
public:
    void Add(const CNALMessageSignerInfo& signer);
    /// Whether IsSignerOf is true of one of the signers and this certificate. False for what is no certificate.
    bool Include(asnt::View certificate) const;

private:
    std::set<std::string> m_names;
};

}  // namespace nal
