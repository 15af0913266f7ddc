// Parameter values on their way across the API.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "asnt/view.h"
#include "host/provider/failure.h"
#include "ork/constants.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace nalhost::provider {

inline IdentObj ValueOf(std::string_view text) {
    return {text.data(), static_cast<unsigned>(text.size())};
}

template <class Number>
IdentObj ValueOfNumber(Number number) {
    return {&number, sizeof number};
}

inline std::string_view TextOf(asnt::View value) {
    return {reinterpret_cast<const char*>(value.data), value.size};
}

// @throws ProviderError ORK_E_BAD_LENGTH when the value is no number of this size
template <class Number>
Number NumberOf(asnt::View value) {
    Require(value.size == sizeof(Number), ORK_E_BAD_LENGTH);
    Number number = 0;
    std::memcpy(&number, value.data, sizeof number);
    return number;
}

}  // namespace nalhost::provider
