// Which of several certificates with the right name issued a certificate. docs/issuer-search.md tells it in words.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>

#include "nal/context.h"
#include "nal/wincrypt.h"

namespace nal {

/// The checks of an issuer look-up that may fail.
inline constexpr unsigned kAllChecks = CERT_STORE_SIGNATURE_FLAG | CERT_STORE_TIME_VALIDITY_FLAG | CERT_STORE_REVOCATION_FLAG;

/// How the subject names its issuer (RFC 5280 section 4.2.1.1).
struct IssuerHints {
    IdentObj keyId;   // empty when it does not say
    IdentObj serial;  // least significant byte first; empty likewise
};

enum class Match { Name, Serial, Key };

/// How a candidate fits the hints; nothing when it cannot be the issuer.
std::optional<Match> MatchHints(const IssuerHints& hints, const CNALCertContext& candidate);

/// What is known of a candidate once it was checked.
struct CheckedCandidate {
    Match match = Match::Name;
    unsigned failed = 0;     // CERT_STORE_* bits as the caller gets them
    CTOOFileTime notAfter;
};

/// The place of a candidate among others. The largest wins; of equal ones the first in the storage.
struct Rank {
    bool isNamed = false;         // by key, or by serial with a signature that holds: taken at once
    bool signatureHolds = false;  // one that does not sign is never preferred, and has no more to its rank
    int revocation = 0;           // 2 checked and not listed, 1 no CRL, 0 listed
    bool timeHolds = false;
    std::uint64_t notAfter = 0;   // the longer life

    auto operator<=>(const Rank&) const = default;
};
Rank RankOf(const CheckedCandidate& candidate);

}  // namespace nal
