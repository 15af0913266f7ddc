// Small blocks in the files beside a store: a magic word first, a sum (FNV-1a, 64 bits) over everything before it last.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace nal {

template <class Layout>
std::uint64_t SumOf(const Layout& layout) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&layout);
    std::uint64_t sum = 0xCBF29CE484222325;
    for (std::size_t i = 0; i < offsetof(Layout, sum); ++i) sum = (sum ^ bytes[i]) * 0x100000001B3;
    return sum;
}

template <class Layout>
void Seal(Layout& layout, const char (&magic)[8]) {
    std::memcpy(layout.magic, magic, sizeof magic);
    layout.sum = SumOf(layout);
}

template <class Layout>
bool IsWhole(const Layout& layout, const char (&magic)[8]) {
    return std::memcmp(layout.magic, magic, sizeof magic) == 0 && layout.sum == SumOf(layout);
}

}  // namespace nal
