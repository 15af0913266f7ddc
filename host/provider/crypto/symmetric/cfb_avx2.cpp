// Decryption with cipher feedback for x86-64 with AVX2; the build compiles this file alone for such processors. Source:
// RFC 5830 sections 5 and 7, RFC 4357 section 2.3.2.
//
// 32 blocks go side by side, cut into planes: a vector holds the same byte of every block, so that one byte permute
// looks all of them up in the 16 entries of one S-box. In planes
// - the rotation by 11 bits is one by a byte, which is a matter of names, and one by 3 bits, which is in the tables:
//   the upper S-box of a byte is spread over two bytes, so there are three look-ups for each;
// - the sum with the key needs its carries from byte to byte. Bytes are compared as signed ones only, so sums are kept
//   with their highest bit inverted, which the tables take back.
//
// Where keys are meshed, the keys of some sections are made before, and their first feedbacks are encrypted side by
// side, in portable code.
#include "host/provider/crypto/symmetric/cfb_run.h"

#if defined(__AVX2__)

#include "host/provider/crypto/symmetric/intrinsics.h"
#include "host/provider/crypto/symmetric/key_meshing.h"

namespace nalhost::crypto::symmetric {
namespace {

constexpr std::size_t kLanes = 32;  // blocks of a vector
constexpr std::size_t kPortableLanes = 4;
constexpr std::size_t kMostPortable = 12;  // blocks that portable code decrypts as fast as a vector
constexpr std::size_t kPlanes = 4;         // of half a block
constexpr std::size_t kMostSections = 4;

using Key = std::uint32_t[8];

constexpr std::uint8_t kKeyWord[32] = {0, 1, 2, 3, 4, 5, 6, 7, 0, 1, 2, 3, 4, 5, 6, 7,
                                       0, 1, 2, 3, 4, 5, 6, 7, 7, 6, 5, 4, 3, 2, 1, 0};

[[gnu::always_inline]] inline __m128i Load128(const std::uint8_t* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

[[gnu::always_inline]] inline __m256i Load256(const std::uint8_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
}

[[gnu::always_inline]] inline void Store128(__m128i value, std::uint8_t* to) {
    _mm_store_si128(reinterpret_cast<__m128i*>(to), value);
}

// For each byte of a sum: what half of it gives to the byte after it or to the one after that.
struct PlaneTables {
    alignas(16) std::uint8_t low[kPlanes][16];
    alignas(16) std::uint8_t high[kPlanes][16];
    alignas(16) std::uint8_t highBeyond[kPlanes][16];

    explicit PlaneTables(const SboxTables& tables) {
        for (std::size_t i = 0; i < kPlanes; ++i) {
            Store128(_mm_slli_epi16(Load128(tables.nibble[0] + 16 * i), 3), low[i]);
            // The highest bit of the index is inverted: the halves of the table change places.
            const __m128i turned = _mm_shuffle_epi32(Load128(tables.nibble[1] + 16 * i), 0x4E);
            Store128(_mm_and_si128(_mm_slli_epi16(turned, 3), _mm_set1_epi8(-128)), high[i]);
            Store128(_mm_and_si128(_mm_srli_epi16(turned, 5), _mm_set1_epi8(7)), highBeyond[i]);
        }
    }
};

// Each byte of a key with its highest bit inverted, for every lane.
struct PlaneKey {
    alignas(16) std::uint8_t word[8][kPlanes][16];

    explicit PlaneKey(const Key& key) {
        for (std::size_t i = 0; i < 8; ++i) {
            for (std::size_t plane = 0; plane < kPlanes; ++plane)
                Store128(_mm_set1_epi8(static_cast<char>(key[i] >> (8 * plane) ^ 0x80)), word[i][plane]);
        }
    }
};

[[gnu::always_inline]] inline __m256i Broadcast(const std::uint8_t (&bytes)[16]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(bytes)));
}

// Substitutes byte `Plane` of the sums into the other halves.
template <std::size_t Plane>
[[gnu::always_inline]] inline void Substitute(const PlaneTables& tables, __m256i sum, __m256i (&other)[kPlanes]) {
    const __m256i mask = _mm256_set1_epi8(0x0F);
    const __m256i low = _mm256_and_si256(sum, mask);
    const __m256i high = _mm256_and_si256(_mm256_srli_epi16(sum, 4), mask);
    __m256i& next = other[(Plane + 1) % kPlanes];
    __m256i& beyond = other[(Plane + 2) % kPlanes];
    next = _mm256_xor_si256(next, _mm256_xor_si256(_mm256_shuffle_epi8(Broadcast(tables.low[Plane]), low),
                                                   _mm256_shuffle_epi8(Broadcast(tables.high[Plane]), high)));
    beyond = _mm256_xor_si256(beyond, _mm256_shuffle_epi8(Broadcast(tables.highBeyond[Plane]), high));
}

[[gnu::always_inline]] inline void Round(const PlaneTables& tables, const std::uint8_t (&key)[kPlanes][16],
                                         const __m256i (&half)[kPlanes], __m256i (&other)[kPlanes]) {
    // All ones where the sum of the plane before has a carry.
    __m256i carry = _mm256_setzero_si256();
    __m256i word;
    __m256i plain;  // the sum without that carry
    const auto addPlane = [&](std::size_t plane) __attribute__((always_inline)) {
        word = Broadcast(key[plane]);
        plain = _mm256_add_epi8(half[plane], word);
        return _mm256_sub_epi8(plain, carry);
    };
    // The highest sum goes round with a carry; what others do is known without it.
    const auto makeCarry = [&]() __attribute__((always_inline)) {
        carry = _mm256_or_si256(_mm256_cmpgt_epi8(word, plain),
                                _mm256_and_si256(carry, _mm256_cmpeq_epi8(plain, _mm256_set1_epi8(127))));
    };
    Substitute<0>(tables, addPlane(0), other);
    makeCarry();
    Substitute<1>(tables, addPlane(1), other);
    makeCarry();
    Substitute<2>(tables, addPlane(2), other);
    makeCarry();
    Substitute<3>(tables, addPlane(3), other);
}

// Eight vectors as one array of twice 128 bytes: takes the bytes of its halves in turn. With bytes numbered by 7 bits
// this turns their numbers round by one. What it makes of blocks in four times are planes, in three more the blocks.
[[gnu::always_inline]] inline void Interleave(__m256i (&vectors)[8]) {
    __m256i made[8];
    for (std::size_t i = 0; i < 4; ++i) {
        made[2 * i] = _mm256_unpacklo_epi8(vectors[i], vectors[i + 4]);
        made[2 * i + 1] = _mm256_unpackhi_epi8(vectors[i], vectors[i + 4]);
    }
    for (std::size_t i = 0; i < 8; ++i)
        vectors[i] = made[i];
}

// 32 blocks.
void DecryptLanes(const PlaneTables& tables, const PlaneKey& key, std::uint64_t& feedback, const std::uint8_t* in,
                  std::uint8_t* out) {
    const auto word = [in](std::size_t i) { return static_cast<long long>(Load<std::uint64_t>(in + kBlockSize * i)); };
    // What is encrypted: the blocks of cipher text before.
    __m256i vectors[8] = {_mm256_set_epi64x(word(2), word(1), word(0), static_cast<long long>(feedback))};
    for (std::size_t i = 1; i < 8; ++i)
        vectors[i] = Load256(in + 32 * i - kBlockSize);
    feedback = Load<std::uint64_t>(in + kBlockSize * (kLanes - 1));
    for (int i = 0; i < 4; ++i)
        Interleave(vectors);
    __m256i low[kPlanes] = {vectors[0], vectors[1], vectors[2], vectors[3]};
    __m256i high[kPlanes] = {vectors[4], vectors[5], vectors[6], vectors[7]};
    for (std::size_t i = 0; i < 32; i += 2) {
        Round(tables, key.word[kKeyWord[i]], low, high);
        Round(tables, key.word[kKeyWord[i + 1]], high, low);
    }
    // The last round ends without an exchange of the halves.
    for (std::size_t i = 0; i < kPlanes; ++i) {
        vectors[i] = high[i];
        vectors[i + kPlanes] = low[i];
    }
    for (int i = 0; i < 3; ++i)
        Interleave(vectors);
    for (std::size_t i = 0; i < 8; ++i)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 32 * i),
                            _mm256_xor_si256(Load256(in + 32 * i), vectors[i]));
}

// Encrypts the inputs of some blocks in portable code, with a key each.
template <typename KeyOf>
void EncryptFew(const SboxTables& tables, const KeyOf& keyOf, std::uint64_t (&words)[kPortableLanes]) {
    Blocks<kPortableLanes> blocks;
    for (std::size_t i = 0; i < kPortableLanes; ++i)
        SetBlock(blocks, i, words[i]);
    EncryptBlocks(tables, keyOf, blocks);
    for (std::size_t i = 0; i < kPortableLanes; ++i)
        words[i] = GetBlock(blocks, i);
}

void DecryptBlocksOfOneKey(const SboxTables& tables, const PlaneTables& planes, const Key& key, std::uint64_t& feedback,
                           const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    if (count > kMostPortable) {
        const PlaneKey planeKey(key);
        for (; count >= kLanes; count -= kLanes, in += kLanes * kBlockSize, out += kLanes * kBlockSize)
            DecryptLanes(planes, planeKey, feedback, in, out);
        if (count > kMostPortable) {
            std::uint8_t copy[kLanes * kBlockSize]{};
            std::memcpy(copy, in, count * kBlockSize);
            const auto last = Load<std::uint64_t>(in + kBlockSize * (count - 1));
            DecryptLanes(planes, planeKey, feedback, copy, copy);
            std::memcpy(out, copy, count * kBlockSize);
            feedback = last;
            return;
        }
    }
    while (count != 0) {
        const std::size_t size = count < kPortableLanes ? count : kPortableLanes;
        std::uint64_t words[kPortableLanes]{};
        std::uint64_t cipherText[kPortableLanes]{};
        for (std::size_t i = 0; i < size; ++i) {
            words[i] = feedback;
            cipherText[i] = feedback = Load<std::uint64_t>(in + kBlockSize * i);
        }
        EncryptFew(
            tables, [&key](std::size_t word, std::size_t) { return key[word]; }, words);
        for (std::size_t i = 0; i < size; ++i)
            Store(cipherText[i] ^ words[i], out + kBlockSize * i);
        in += size * kBlockSize;
        out += size * kBlockSize;
        count -= size;
    }
}

void DecryptRun(const SboxTables& tables, CfbRun& run, const std::uint8_t* in, std::uint8_t* out, std::size_t count) {
    if (count <= kMostPortable) return kCfbPortable.decrypt(tables, run, in, out, count);
    const PlaneTables planes(tables);
    auto feedback = Load<std::uint64_t>(run.feedback);
    // Sections that are prepared, from `next` on.
    Key keys[kMostSections]{};
    std::uint64_t feedbacks[kPortableLanes]{};
    std::size_t next = kMostSections;
    std::size_t at = 0;
    ForEachKey(
        run, count,
        [&] {
            if (next == kMostSections) {
                // The keys of this section and of those after it, as far as there are any.
                const std::size_t sections = (count - at + kBlocksOfOneKey - 1) / kBlocksOfOneKey;
                next = sections < kMostSections ? kMostSections - sections : 0;
                for (std::size_t i = next; i < kMostSections; ++i) {
                    std::memcpy(keys[i], i == next ? run.key : keys[i - 1], sizeof(Key));
                    MeshKey(tables, keys[i]);
                    feedbacks[i] = i == next
                                       ? feedback
                                       : Load<std::uint64_t>(in + kBlockSize * (at + (i - next) * kBlocksOfOneKey - 1));
                }
                EncryptFew(
                    tables, [&keys](std::size_t word, std::size_t lane) { return keys[lane][word]; }, feedbacks);
            }
            std::memcpy(run.key, keys[next], sizeof run.key);
            feedback = feedbacks[next];
            ++next;
        },
        [&](std::size_t done, std::size_t blocks) {
            DecryptBlocksOfOneKey(tables, planes, run.key, feedback, in + done * kBlockSize, out + done * kBlockSize,
                                  blocks);
            at = done + blocks;
        });
    Store(feedback, run.feedback);
}

}  // namespace

const CfbKernel kCfbAvx2 = {nullptr, DecryptRun};

}  // namespace nalhost::crypto::symmetric

#else

const nalhost::crypto::symmetric::CfbKernel nalhost::crypto::symmetric::kCfbAvx2 = {nullptr, nullptr};

#endif
