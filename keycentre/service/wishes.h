// The extensions that a request asks for, held against what a key centre grants.
#pragma once

#include <string>

#include "keycentre/profile.h"
#include "nal/algorithm.h"

namespace keycentre {

/// A request that is not granted; the text is for people.
struct Refusal {
    std::string reason;
};

/// Makes a profile of what is asked for.
///
/// Granted: key usages other than certificate and CRL signing, extended usages other than those that would speak for the centre,
/// alternative names (which the caller judges), a period of at most 15 months in which the private key signs for at most 12. A key
/// identifier must be the key's own. The authority key identifier, which says who is asked, is not looked at.
///
/// @param asCa  see Judge::Look
/// @throws Refusal
Profile GrantWishes(const CNALCertExtensionList& wishes, const CNALCertPublicKeyInfo& key, bool asCa);

}  // namespace keycentre
