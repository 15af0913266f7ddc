#include "support/secret_residue.h"

#include <gcrypt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/sanitized.h"

namespace nal_test {
namespace {

using nalhost::crypto::ByteView;
using nalhost::crypto::SecureBytes;

struct Range {
    const std::uint8_t* first;
    const std::uint8_t* last;
};

// The process's heap, stack and other memory that it writes to.
std::vector<Range> WritableMemory() {
    constexpr std::uintptr_t c_most = 256U << 20;
    std::vector<Range> ranges;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0;
        std::uintptr_t last = 0;
        char mode[5] = {};
        if (std::sscanf(line.c_str(), "%lx-%lx %4s", &first, &last, mode) != 3) continue;
        if (mode[0] != 'r' || mode[1] != 'w' || line.find("[v") != std::string::npos || last - first > c_most) continue;
        ranges.push_back({reinterpret_cast<const std::uint8_t*>(first), reinterpret_cast<const std::uint8_t*>(last)});
    }
    return ranges;
}

// How often the bytes occur outside the secure pool, in which `needle` itself must be.
int CountOutside(const SecureBytes& needle) {
    int count = 0;
    for (const Range& range : WritableMemory()) {
        for (const std::uint8_t* at = range.first;; ++at) {
            const auto left = static_cast<std::size_t>(range.last - at);
            at = static_cast<const std::uint8_t*>(memmem(at, left, needle.data(), needle.size()));
            if (at == nullptr) break;
            count += gcry_is_secure(at) == 0;
        }
    }
    return count;
}

}  // namespace

const char* WhyNoResidueIsSeen() {
    // Sanitizers keep released memory for themselves and forbid looking at it.
    if (kSanitized) return "a sanitizer is at work";
    return nalhost::crypto::GetSecureMemoryState() == nalhost::crypto::SecureMemoryState::kDisabled ? "no secure memory" : nullptr;
}

int Residue(ByteView secret) {
    int count = 0;
    std::vector<ByteView> parts = {secret};
    if (secret.size() >= 16) parts = {secret.first(secret.size() / 2), secret.last(secret.size() / 2)};
    for (const ByteView bytes : parts) {
        SecureBytes part(bytes);
        count += CountOutside(part);
        std::reverse(part.begin(), part.end());
        count += CountOutside(part);
    }
    return count;
}

}  // namespace nal_test
