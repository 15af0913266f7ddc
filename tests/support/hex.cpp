#include "support/hex.h"

#include <algorithm>
#include <stdexcept>

namespace nal_test {
namespace {

int Digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    throw std::invalid_argument("not a hexadecimal digit");
}

}  // namespace

Bytes FromHex(std::string_view text) {
    if (text.size() % 2 != 0) throw std::invalid_argument("an odd number of hexadecimal digits");
    Bytes bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(Digit(text[i]) << 4 | Digit(text[i + 1])));
    }
    return bytes;
}

std::string ToHex(const void* data, std::size_t size) {
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        const std::uint8_t byte = static_cast<const std::uint8_t*>(data)[i];
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

Bytes Reversed(Bytes bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

Bytes Text(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace nal_test
