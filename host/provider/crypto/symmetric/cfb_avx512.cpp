// Cipher feedback for x86-64 with AVX-512 VBMI; the build compiles this file alone for such processors. Source: RFC
// 5830 sections 5 and 7, RFC 4357 section 2.3.2.
//
// A vector holds half of each of 16 blocks. A byte permute looks up in 64 bytes at once, four S-boxes of 16 entries: an
// index is half a byte of the sum with the byte's number above it. So a round is two look-ups, one for the lower halves
// of bytes and one for the upper, and nothing secret becomes an address. Halves are kept before the rotation by 11 bits
// that ends the round function; it is made up for when a half is next added to.
//
// Decryption takes 128 blocks at a time, which is all that one key serves. Two things would make it wait at each change
// of keys, since they come one after the other:
// - The next key is four blocks, decrypted with this one; it goes along as a ninth vector.
// - The first block of a section depends on two encryptions: the old feedback encrypted is the new feedback, and that
//   encrypted is the gamma. The first goes along as if it were the gamma; the second is left over, until there are 16
//   of them for a vector whose blocks have a key each.
//
// Encryption is a chain of rounds, each 8 cycles where an instruction takes one: sum, shift, index, look-up (3), sum of
// three, rotation. The lower half of a block is ready a round before the upper, and the next block begins with it.
#include "host/provider/crypto/symmetric/cfb_run.h"

#if defined(__AVX512VBMI__) && defined(__AVX512BW__) && defined(__AVX512VL__)

#include "host/provider/crypto/symmetric/intrinsics.h"
#include "host/provider/crypto/symmetric/key_meshing.h"

namespace nalhost::crypto::symmetric {
namespace {

constexpr std::size_t kLanes = 16;       // blocks of a vector
constexpr std::size_t kMostVectors = 8;  // that are worked on side by side
constexpr std::size_t kRounds = 32;
constexpr std::size_t kHalfVector = kLanes / 2;  // blocks of a vector of memory

using Key = std::uint32_t[8];

// The order of key words, of which decryption is the reverse.
constexpr std::uint8_t kKeyWord[kRounds] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7,
                                            0, 1, 2, 3, 4, 5, 6, 7, 7, 6, 5, 4, 3, 2, 1, 0};

// What looks up stays in registers.
struct Substitution {
    __m512i low, high, mask, select;

    [[gnu::always_inline]] explicit Substitution(const SboxTables& tables)
        : low(_mm512_load_si512(tables.nibble[0])),
          high(_mm512_load_si512(tables.nibble[1])),
          mask(_mm512_set1_epi32(0x0F0F0F0F)),
          select(_mm512_set1_epi32(0x30201000)) {}

    // The S-boxes, XOR another number.
    [[gnu::always_inline]] __m512i Add(__m512i sum, __m512i other) const {
        constexpr int kAndOr = 0xEA;
        constexpr int kXor = 0x96;
        const __m512i lowIndex = _mm512_ternarylogic_epi32(sum, mask, select, kAndOr);
        const __m512i highIndex = _mm512_ternarylogic_epi32(_mm512_srli_epi32(sum, 4), mask, select, kAndOr);
        return _mm512_ternarylogic_epi32(_mm512_permutexvar_epi8(lowIndex, low),
                                         _mm512_permutexvar_epi8(highIndex, high), other, kXor);
    }
};

[[gnu::always_inline]] inline __m512i Rotate(__m512i value) {
    return _mm512_rol_epi32(value, 11);
}

[[gnu::always_inline]] inline __m512i RotateBack(__m512i value) {
    return _mm512_ror_epi32(value, 11);
}

// Halves of blocks, before the rotation: `a` is added to in even rounds.
struct Halves {
    __m512i a, b;
};

// Two rounds.
[[gnu::always_inline]] inline void TwoRounds(const Substitution& boxes, __m512i first, __m512i second, Halves& blocks) {
    blocks.b = boxes.Add(_mm512_add_epi32(Rotate(blocks.a), first), blocks.b);
    blocks.a = boxes.Add(_mm512_add_epi32(Rotate(blocks.b), second), blocks.a);
}

[[gnu::always_inline]] inline Halves MeshingConstant() {
    return {
        RotateBack(_mm512_zextsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i*>(kMeshingConstant.low)))),
        RotateBack(_mm512_zextsi128_si512(_mm_loadu_si128(reinterpret_cast<const __m128i*>(kMeshingConstant.high))))};
}

// The last round ends without an exchange of the halves.
[[gnu::always_inline]] inline void StoreKey(const Halves& blocks, Key& key) {
    const __m128i low = _mm512_castsi512_si128(Rotate(blocks.b));
    const __m128i high = _mm512_castsi512_si128(Rotate(blocks.a));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(key), _mm_unpacklo_epi32(low, high));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(key + 4), _mm_unpackhi_epi32(low, high));
}

void MakeNextKey(const Substitution& boxes, Key& key) {
    Halves blocks = MeshingConstant();
    for (std::size_t i = kRounds; i != 0; i -= 2)
        TwoRounds(boxes, _mm512_set1_epi32(static_cast<int>(key[kKeyWord[i - 1]])),
                  _mm512_set1_epi32(static_cast<int>(key[kKeyWord[i - 2]])), blocks);
    StoreKey(blocks, key);
}

// Block i and block i + 8 alternate in what is kept.
[[gnu::always_inline]] inline Halves Split(__m512i first, __m512i second) {
    const __m512 x = _mm512_castsi512_ps(first);
    const __m512 y = _mm512_castsi512_ps(second);
    return {RotateBack(_mm512_castps_si512(_mm512_shuffle_ps(x, y, 0x88))),
            RotateBack(_mm512_castps_si512(_mm512_shuffle_ps(x, y, 0xDD)))};
}

[[gnu::always_inline]] inline __mmask8 MaskOf(std::size_t first, std::size_t count) {
    if (count <= first) return 0;
    return count - first >= kHalfVector ? 0xFF : static_cast<__mmask8>((1U << (count - first)) - 1);
}

// First blocks of sections, of which the feedback is there and the gamma is not.
struct LeftOver {
    std::size_t count = 0;
    alignas(64) std::uint32_t key[8][kLanes];
    std::uint64_t feedback[kLanes];
    std::uint64_t cipherText[kLanes];
    std::uint8_t* out[kLanes];

    [[gnu::noinline]] void Finish(const Substitution& boxes) {
        Halves blocks = Split(_mm512_loadu_si512(feedback), _mm512_loadu_si512(feedback + kHalfVector));
        // Keys in the order that Split leaves.
        const __m512i order = _mm512_set_epi32(15, 14, 7, 6, 13, 12, 5, 4, 11, 10, 3, 2, 9, 8, 1, 0);
        __m512i keys[8];
        for (std::size_t word = 0; word < 8; ++word)
            keys[word] = _mm512_permutexvar_epi32(order, _mm512_load_si512(key[word]));
        for (std::size_t word = 0; word < 8; ++word)
            _mm512_store_si512(key[word], keys[word]);
        for (std::size_t i = 0; i < kRounds; i += 2)
            TwoRounds(boxes, _mm512_load_si512(key[kKeyWord[i]]), _mm512_load_si512(key[kKeyWord[i + 1]]), blocks);
        const __m512i low = Rotate(blocks.b);
        const __m512i high = Rotate(blocks.a);
        _mm512_storeu_si512(feedback, _mm512_unpacklo_epi32(low, high));
        _mm512_storeu_si512(feedback + kHalfVector, _mm512_unpackhi_epi32(low, high));
        for (std::size_t i = 0; i < count; ++i)
            Store(cipherText[i] ^ feedback[i], out[i]);
        count = 0;
    }
};

// Decrypts up to 16 blocks for each of some vectors, with one key; makes the next key on the way if there is room for
// it.
template <bool IsWhole, std::size_t... Vector>
[[gnu::always_inline]] inline void DecryptVectors(std::index_sequence<Vector...>, const Substitution& boxes,
                                                  const Key& key, std::uint64_t& feedback, const std::uint8_t* in,
                                                  std::uint8_t* out, std::size_t count, Key* next) {
    const auto mask = [count](std::size_t vector) {
        return IsWhole ? __mmask8{0xFF} : MaskOf(kHalfVector * vector, count);
    };
    const auto load = [&](std::size_t vector) { return _mm512_maskz_loadu_epi64(mask(vector), in + 64 * vector); };
    // What is encrypted: the blocks of cipher text before.
    const auto loadBefore = [&](std::size_t vector) {
        if (vector == 0) return _mm512_alignr_epi64(load(0), _mm512_set1_epi64(static_cast<long long>(feedback)), 7);
        return _mm512_maskz_loadu_epi64(mask(vector), in + 64 * vector - kBlockSize);
    };
    Halves blocks[] = {Split(loadBefore(2 * Vector), loadBefore(2 * Vector + 1))...};
    Halves meshed = MeshingConstant();
    feedback = Load<std::uint64_t>(in + kBlockSize * (count - 1));
    for (std::size_t i = 0; i < kRounds; i += 2) {
        const __m512i first = _mm512_set1_epi32(static_cast<int>(key[kKeyWord[i]]));
        const __m512i second = _mm512_set1_epi32(static_cast<int>(key[kKeyWord[i + 1]]));
        (TwoRounds(boxes, first, second, blocks[Vector]), ...);
        if constexpr (IsWhole) {
            TwoRounds(boxes, _mm512_set1_epi32(static_cast<int>(key[kKeyWord[kRounds - 1 - i]])),
                      _mm512_set1_epi32(static_cast<int>(key[kKeyWord[kRounds - 2 - i]])), meshed);
        }
    }
    const auto store = [&](std::size_t vector, __m512i gamma) {
        _mm512_mask_storeu_epi64(out + 64 * vector, mask(vector), _mm512_xor_si512(load(vector), gamma));
    };
    const auto storeBoth = [&](std::size_t vector, const Halves& halves) {
        const __m512i low = Rotate(halves.b);
        const __m512i high = Rotate(halves.a);
        store(2 * vector, _mm512_unpacklo_epi32(low, high));
        store(2 * vector + 1, _mm512_unpackhi_epi32(low, high));
    };
    (storeBoth(Vector, blocks[Vector]), ...);
    if (IsWhole && next != nullptr) StoreKey(meshed, *next);
}

// A whole section, and the key of the next.
void DecryptSection(const Substitution& boxes, const Key& key, std::uint64_t& feedback, const std::uint8_t* in,
                    std::uint8_t* out, Key& next) {
    DecryptVectors<true>(std::make_index_sequence<kMostVectors>(), boxes, key, feedback, in, out, kBlocksOfOneKey,
                         &next);
}

// Up to 128 blocks.
template <std::size_t Vectors>
void DecryptPart(const Substitution& boxes, const Key& key, std::uint64_t& feedback, const std::uint8_t* in,
                 std::uint8_t* out, std::size_t count) {
    DecryptVectors<false>(std::make_index_sequence<Vectors>(), boxes, key, feedback, in, out, count, nullptr);
}

void DecryptBlocksOfOneKey(const Substitution& boxes, const Key& key, std::uint64_t& feedback, const std::uint8_t* in,
                           std::uint8_t* out, std::size_t count) {
    while (count != 0) {
        const std::size_t size = count < kMostVectors * kLanes ? count : kMostVectors * kLanes;
        if (size <= kLanes) {
            DecryptPart<1>(boxes, key, feedback, in, out, size);
        } else if (size <= 2 * kLanes) {
            DecryptPart<2>(boxes, key, feedback, in, out, size);
        } else if (size <= 4 * kLanes) {
            DecryptPart<4>(boxes, key, feedback, in, out, size);
        } else {
            DecryptPart<8>(boxes, key, feedback, in, out, size);
        }
        in += size * kBlockSize;
        out += size * kBlockSize;
        count -= size;
    }
}

void DecryptRun(const SboxTables& tables, CfbRun& run, const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    const Substitution boxes(tables);
    LeftOver leftOver;
    auto feedback = Load<std::uint64_t>(run.feedback);
    bool hasKey = false;  // the next one
    bool isMeshed = false;
    ForEachKey(
        run, count,
        [&] {
            if (!hasKey) MakeNextKey(boxes, run.key);
            hasKey = false;
            isMeshed = true;
        },
        [&](std::size_t done, std::size_t blocks) {
            const std::uint8_t* from = in + done * kBlockSize;
            std::uint8_t* to = out + done * kBlockSize;
            if (isMeshed) {
                for (std::size_t word = 0; word < 8; ++word)
                    leftOver.key[word][leftOver.count] = run.key[word];
                leftOver.cipherText[leftOver.count] = Load<std::uint64_t>(from);
                leftOver.out[leftOver.count] = to;
            }
            if (blocks == kBlocksOfOneKey && done + blocks < count) {
                DecryptSection(boxes, run.key, feedback, from, to, run.key);
                hasKey = true;
            } else {
                DecryptBlocksOfOneKey(boxes, run.key, feedback, from, to, blocks);
            }
            if (isMeshed) {
                leftOver.feedback[leftOver.count] = leftOver.cipherText[leftOver.count] ^ Load<std::uint64_t>(to);
                if (++leftOver.count == kLanes) leftOver.Finish(boxes);
                isMeshed = false;
            }
        });
    if (leftOver.count != 0) leftOver.Finish(boxes);
    Store(feedback, run.feedback);
}

// A half of a block in the first lane.
[[gnu::always_inline]] inline __m512i LoadHalf(const std::uint8_t* from) {
    return RotateBack(_mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(Load<std::uint32_t>(from)))));
}

[[gnu::always_inline]] inline void StoreHalf(__m512i half, std::uint8_t* to) {
    Store(static_cast<std::uint32_t>(_mm_cvtsi128_si32(_mm512_castsi512_si128(Rotate(half)))), to);
}

// Makes cipher text, which is the next feedback, of the feedback and plain text.
[[gnu::always_inline]] inline void EncryptBlock(const Substitution& boxes, const __m512i (&key)[8], Halves& block,
                                                const Halves& plain) {
    for (int i = 0; i < 3; ++i) {
        TwoRounds(boxes, key[0], key[1], block);
        TwoRounds(boxes, key[2], key[3], block);
        TwoRounds(boxes, key[4], key[5], block);
        TwoRounds(boxes, key[6], key[7], block);
    }
    TwoRounds(boxes, key[7], key[6], block);
    TwoRounds(boxes, key[5], key[4], block);
    TwoRounds(boxes, key[3], key[2], block);
    // The plain text goes into the sums that end the last two rounds; only the last round itself needs one without it.
    const __m512i sum = _mm512_add_epi32(Rotate(block.a), key[1]);
    const __m512i gamma = boxes.Add(sum, block.b);
    const __m512i low = boxes.Add(sum, _mm512_xor_si512(block.b, plain.a));
    block.b = boxes.Add(_mm512_add_epi32(Rotate(gamma), key[0]), _mm512_xor_si512(block.a, plain.b));
    block.a = low;
}

void EncryptRun(const SboxTables& tables, CfbRun& run, const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    const Substitution boxes(tables);
    Halves block = {LoadHalf(run.feedback), LoadHalf(run.feedback + 4)};
    __m512i key[8];
    const auto loadKey = [&] {
        for (std::size_t i = 0; i < 8; ++i)
            key[i] = _mm512_set1_epi32(static_cast<int>(run.key[i]));
    };
    loadKey();
    ForEachKey(
        run, count,
        [&] {
            MakeNextKey(boxes, run.key);
            loadKey();
            EncryptBlock(boxes, key, block, {_mm512_setzero_si512(), _mm512_setzero_si512()});
        },
        [&](std::size_t, std::size_t blocks) {
            for (; blocks != 0; --blocks, in += kBlockSize, out += kBlockSize) {
                EncryptBlock(boxes, key, block, {LoadHalf(in), LoadHalf(in + 4)});
                StoreHalf(block.a, out);
                StoreHalf(block.b, out + 4);
            }
        });
    StoreHalf(block.a, run.feedback);
    StoreHalf(block.b, run.feedback + 4);
}

}  // namespace

const CfbKernel kCfbAvx512 = {EncryptRun, DecryptRun};

}  // namespace nalhost::crypto::symmetric

#else

const nalhost::crypto::symmetric::CfbKernel nalhost::crypto::symmetric::kCfbAvx512 = {nullptr, nullptr};

#endif
