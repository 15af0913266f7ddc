/// The lists that a key centre hands out: trust lists and users' lists. docs/trust-lists.md has their form.
#pragma once

#include <cstdint>
#include <list>
#include <optional>

#include "keycentre/issuer.h"
#include "keycentre/issuer.h"
#include "too/ident_obj.h"
#include "too/types.h"

namespace keycentre {

/// A trust list to be.
struct TrustList {
    std::uint64_t number = 1;            ///< rises from list to list
    std::optional<FILETIME> thisUpdate;  ///< nothing: now
    std::list<IdentObj> certificates;    ///< DER
    std::list<IdentObj> crls;            ///< DER
};

/// The content of a trust list.
IdentObj EncodeTrustList(const TrustList& list);

/// The whole message: the content signed by `signer`, whose certificate is in the message. @throws XTOOStatus as NALSignTrustList
IdentObj SignTrustList(const TrustList& list, const Issuer& signer);

/// A users' list, or an unsigned list of trusted certificates: a SignedData message without content and signer (RFC 5652 section 5.1).
IdentObj EncodeUsersList(const std::list<IdentObj>& certificates, const std::list<IdentObj>& crls);

}  // namespace keycentre
