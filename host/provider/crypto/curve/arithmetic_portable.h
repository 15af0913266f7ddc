// Arithmetic on limbs for every processor. See wide.h.
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
#if defined(__SIZEOF_INT128__)
        const auto product = static_cast<unsigned __int128>(a) * b;
        high = static_cast<Limb>(product >> 64);
        return static_cast<Limb>(product);
#else
        return MultiplyHalves(a, b, high);
#endif
    }

    /// The same of products of 32 bits, for processors that have no others.
    [[gnu::always_inline]] static Limb MultiplyHalves(Limb a, Limb b, Limb& high) {
        const auto low = [](Limb limb) { return limb & 0xFFFFFFFF; };
        const Limb lowest = low(a) * low(b);
        const Limb first = (a >> 32) * low(b) + (lowest >> 32);
        const Limb second = low(a) * (b >> 32) + low(first);
        high = (a >> 32) * (b >> 32) + (first >> 32) + (second >> 32);
        return second << 32 | low(lowest);
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
        return AddPlainly(a, b, carry);
    }
    [[gnu::always_inline]] static Limb Subtract(Limb a, Limb b, Carry& borrow) {
        return SubtractPlainly(a, b, borrow);
    }
#endif

    /// The same without instructions for it: the carry out of the highest bit, as logic tells it.
    [[gnu::always_inline]] static Limb AddPlainly(Limb a, Limb b, Carry& carry) {
        const Limb sum = a + b + carry;
        carry = static_cast<Carry>(((a & b) | ((a | b) & ~sum)) >> 63);
        return sum;
    }

    [[gnu::always_inline]] static Limb SubtractPlainly(Limb a, Limb b, Carry& borrow) {
        const Limb difference = a - b - borrow;
        borrow = static_cast<Carry>(((~a & b) | ((~a | b) & difference)) >> 63);
        return difference;
    }

    /// Reads the whole table, and takes the entry at `index`.
    template <typename Entry>
    [[gnu::always_inline]] static void TakeEntry(const Entry* table, std::size_t count, Limb index, Entry& taken) {
        static_assert(sizeof(Entry) % sizeof(Limb) == 0);
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
