// Bytes and their hexadecimal text, for tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "too/ident_obj.h"

namespace nal_test {

using Bytes = std::vector<std::uint8_t>;

/// @throws std::invalid_argument for anything but pairs of hexadecimal digits
Bytes FromHex(std::string_view text);

/// The bytes of pairs of hexadecimal digits; blanks may stand anywhere. @throws as FromHex
inline IdentObj FromHexText(std::string digits) {
    std::erase(digits, ' ');
    const Bytes bytes = FromHex(digits);
    return {bytes.data(), static_cast<unsigned>(bytes.size())};
}

/// The bytes of a text, without its terminator.
inline IdentObj FromText(const std::string& text) {
    return {text.data(), static_cast<unsigned>(text.size())};
}

std::string ToHex(const void* data, std::size_t size);

template <typename Container>
std::string ToHex(const Container& bytes) {
    return ToHex(bytes.data(), bytes.size());
}

/// The bytes in the opposite order: standards print numbers most significant byte first.
Bytes Reversed(Bytes bytes);

/// The bytes of a text, without its terminator.
Bytes Text(std::string_view text);

}  // namespace nal_test
