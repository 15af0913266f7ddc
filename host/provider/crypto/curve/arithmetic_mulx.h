// Arithmetic on limbs for x86-64 with BMI2, whose MULX leaves the carry flag alone, and AVX2, which reads tables 32
// bytes at a time. See wide.h.
#pragma once

#include <immintrin.h>

#include "host/provider/crypto/curve/arithmetic_portable.h"

namespace nalhost::crypto::curve {

// Of internal linkage on purpose: what is built on it belongs to one file.
namespace {  // NOLINT(google-build-namespaces,cert-dcl59-cpp)

struct Mulx : Portable {
    [[gnu::always_inline]] static Limb Multiply(Limb a, Limb b, Limb& high) {
        unsigned long long upper;
        const Limb lower = _mulx_u64(a, b, &upper);
        high = upper;
        return lower;
    }

    /// Reads the whole table, and takes the entry at `index`.
    template <typename Entry>
    [[gnu::always_inline]] static void TakeEntry(const Entry* table, std::size_t count, Limb index, Entry& taken) {
        static_assert(sizeof(Entry) % sizeof(__m256i) == 0);
        constexpr std::size_t vectors = sizeof(Entry) / sizeof(__m256i);
        const __m256i one = _mm256_set1_epi64x(1);
        const __m256i wanted = _mm256_set1_epi64x(static_cast<long long>(index));
        __m256i current = _mm256_setzero_si256();
        __m256i sum[vectors];
        for (__m256i& vector : sum)
            vector = _mm256_setzero_si256();
        for (std::size_t i = 0; i < count; ++i) {
            const __m256i mask = _mm256_cmpeq_epi64(current, wanted);
            const auto* entry = reinterpret_cast<const __m256i*>(table + i);
            for (std::size_t j = 0; j < vectors; ++j)
                sum[j] = _mm256_or_si256(sum[j], _mm256_and_si256(mask, _mm256_loadu_si256(entry + j)));
            current = _mm256_add_epi64(current, one);
        }
        for (std::size_t j = 0; j < vectors; ++j)
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(&taken) + j, sum[j]);
    }
};

}  // namespace

}  // namespace nalhost::crypto::curve
