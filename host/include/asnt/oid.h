/// Object identifiers: dotted text to content octets and back. Source: ITU-T X.690 section 8.19, X.660.
///
/// Arcs go up to 2^128 - 1 (so 2.25 identifiers made from UUIDs fit), the content up to kMaxOidContent octets, which
/// keeps every text below 4,096 characters. What goes beyond is refused.
#pragma once

#include <string>
#include <string_view>

#include "asnt/view.h"
#include "too/export.h"

namespace asnt {

/// The longest content of an OBJECT IDENTIFIER that is read or written.
inline constexpr std::size_t kMaxOidContent = 1000;

/// @param content  an OBJECT IDENTIFIER's content octets
/// @param text     receives the dotted text, for example "1.2.643.2.2.3"; untouched on failure
/// @return false for empty, truncated or overlong content, and for a sub-identifier not in its shortest form
NAL_HOST_EXPORT bool OidToText(View content, std::string& text);

/// @param text     dotted text: at least two arcs, decimal, without leading zeros, blanks or signs; the first arc is 0
/// to 2,
///                 and the second below 40 when the first is 0 or 1
/// @param content  receives the content octets; untouched on failure
/// @return whether the text is an object identifier within the bounds
NAL_HOST_EXPORT bool OidFromText(std::string_view text, std::string& content);

}  // namespace asnt
