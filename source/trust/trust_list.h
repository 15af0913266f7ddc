// Trust lists: what of a signed list is trusted, and when a list is accepted. docs/trust-lists.md has the format and the rules.
#pragma once

#include <cstdint>

#include "nal/storage.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace nal {

/// A list whose signature was checked. Everything in it is from the signed content.
struct TrustList {
    std::uint64_t number = 0;
    FILETIME thisUpdate{0, 0};
    std::list<IdentObj> certificates;  // DER
    std::list<IdentObj> crls;
};

enum class TrustCheck {
    Delivered,  ///< everything: the signer is valid and not revoked
    Kept,       ///< of a list that was accepted before: what happened to the signer since then does not count
};

/// Decodes a trust list and checks that it is signed by a certificate for signing trust lists, which a root of `roots` issued.
/// @throws XTOOStatus: 205, 206 for what is no trust list; 58 for a signature that does not hold; 194 when the signer's certificate
///         is not in the message; 106 when it may not sign trust lists; 224 when no root of `roots` issued it; 223 or 222 when it was
///         not valid at the time of signing or is revoked. The text says so.
TrustList CheckTrustList(const IdentObj& message, const CNALCertStorage& roots, TrustCheck check);

}  // namespace nal
