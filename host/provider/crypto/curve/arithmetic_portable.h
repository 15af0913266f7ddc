// Arithmetic on limbs for every processor of 64 bits. See wide.h.
#pragma once

#include "host/provider/crypto/curve/number.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace nalhost::crypto::curve {

// Of internal linkage on purpose: what is built on it belongs to one file.
namespace {  // NOLINT(google-build-namespaces,cert-dcl59-cpp)

struct Portable {
    using Carry = unsigned char;

    [[gnu::always_inline]] static Limb Multiply(Limb a, Limb b, Limb& high) {
        const auto product = static_cast<unsigned __int128>(a) * b;
        high = static_cast<Limb>(product >> 64);
        return static_cast<Limb>(product);
    }

#if defined(__x86_64__)
    // Every x86-64 has these. Without them compilers keep the carry in a register, at up to twice the time.
    [[gnu::always_inline]] static Limb Add(Limb a, Limb b, Carry& carry) {
        unsigned long long sum;
        carry = _addcarry_u64(carry, a, b, &sum);
        return sum;
    }

    [[gnu::always_inline]] static Limb Subtract(Limb a, Limb b, Carry& borrow) {
        unsigned long long difference;
        borrow = _subborrow_u64(borrow, a, b, &difference);
        return difference;
    }
#else
    [[gnu::always_inline]] static Limb Add(Limb a, Limb b, Carry& carry) {
        const auto sum = static_cast<unsigned __int128>(a) + b + carry;
        carry = static_cast<Carry>(sum >> 64);
        return static_cast<Limb>(sum);
    }

    [[gnu::always_inline]] static Limb Subtract(Limb a, Limb b, Carry& borrow) {
        const auto difference = static_cast<unsigned __int128>(a) - b - borrow;
        borrow = static_cast<Carry>(difference >> 64) & 1;
        return static_cast<Limb>(difference);
    }
#endif

    /// Reads the whole table, and takes the entry at `index`.
    template <typename Entry>
    [[gnu::always_inline]] static void TakeEntry(const Entry* table, std::size_t count, Limb index, Entry& taken) {
        constexpr std::size_t limbs = sizeof(Entry) / sizeof(Limb);
        Limb sum[limbs] = {};
        for (std::size_t i = 0; i < count; ++i) {
            const Mask mask = IsZeroMask(i ^ index);
            Limb entry[limbs];
            __builtin_memcpy(entry, table + i, sizeof entry);
            for (std::size_t j = 0; j < limbs; ++j)
                sum[j] |= entry[j] & mask;
        }
        __builtin_memcpy(&taken, sum, sizeof sum);
    }
};

}  // namespace

}  // namespace nalhost::crypto::curve
