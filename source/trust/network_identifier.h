// The four characters that name a network.
#pragma once

#include <string_view>

#include "nal/certificate.h"

namespace nal {

constexpr std::size_t c_networkIdLength = 4;
/// What stands in its place in the names of the lists that all networks share.
constexpr char c_commonLists[] = "0000";

/// Whether a text is four characters 0-9a-f; no path is built from anything else.
bool IsNetworkIdentifier(std::string_view text);

/// The network of a certificate's fields, as NALGetNetworkIdentifier tells it. @return an empty text when there is none
CTOOString NetworkIdentifierOf(const CNALCertInfo& info);

}  // namespace nal
