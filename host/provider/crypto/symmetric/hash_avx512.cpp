// The step of GOST R 34.11-94 for x86-64 with AVX-512 VBMI and GFNI; the build compiles this file alone for such
// processors. Source: RFC 5831 sections 5 and 6.
//
// The four encryptions of a step are four lanes of a vector, and the S-boxes are looked up in registers, so no address
// depends on a secret. A round waits for the round before it, and 32 of them are what a step costs: everything else is
// arranged to be computed beside them.
//
// All of it is linear over bits and keeps bits at their places in bytes: in the transformations A, P and psi every byte
// that comes out is a sum of bytes that go in. Eight bytes, transposed as a matrix of 8 x 8 bits, multiply with a byte
// that says which of them to add: one instruction (GF2P8AFFINEQB) makes any eight such sums. So one product of the
// cipher text with a matrix leads straight to any arrangement of the next value's bytes that is wanted:
//
//   value' = psi^61(value ^ psi(message ^ psi^12(cipher text)))
//          = psi^61(value) ^ psi^62(message) ^ psi^74(cipher text)
//
// The first two terms are known before the last rounds, and of the third the half of the cipher text that is ready a
// round earlier.
#include "host/provider/crypto/symmetric/hash_run.h"

#if defined(__AVX512VBMI__) && defined(__GFNI__)

#include <cstring>

#include "host/provider/crypto/symmetric/intrinsics.h"

namespace nalhost::crypto::symmetric {
namespace {

constexpr std::size_t kWidth = 64;   // bytes of a vector
constexpr std::size_t kWords = 16;   // of 16 bits, of which psi makes one anew a step
constexpr std::size_t kQuarter = 8;  // bytes: what A moves, what a lane encrypts, what a product takes

// For each byte of a vector which bytes of a 256-bit number it is the sum of, bit i for byte i.
struct Sums {
    std::uint32_t of[kWidth];
};

// The number's own bytes after steps of psi, as sums of those before.
consteval Sums MakePsi(std::size_t steps) {
    std::uint16_t parts[kWords + 80]{};  // bit i: word i of those at the start is part of it
    for (std::size_t i = 0; i < kWords; ++i)
        parts[i] = static_cast<std::uint16_t>(1U << i);
    for (std::size_t i = 0; i < steps; ++i) {
        const std::uint16_t* y = parts + i;
        parts[i + kWords] = static_cast<std::uint16_t>(y[0] ^ y[1] ^ y[2] ^ y[3] ^ y[12] ^ y[15]);
    }
    Sums psi{};
    for (std::size_t out = 0; out < kWords; ++out) {
        for (std::size_t in = 0; in < kWords; ++in) {
            if ((parts[steps + out] >> in & 1) == 0) continue;
            psi.of[2 * out] |= 1U << (2 * in);
            psi.of[2 * out + 1] |= 1U << (2 * in + 1);
        }
    }
    return psi;
}

// Sums of what are sums themselves.
consteval Sums Of(const Sums& outer, const Sums& inner) {
    Sums sums{};
    for (std::size_t out = 0; out < kWidth; ++out) {
        for (std::size_t i = 0; i < 32; ++i) {
            if ((outer.of[out] >> i & 1) != 0) sums.of[out] ^= inner.of[i];
        }
    }
    return sums;
}

// What the number's quarters become by A, once for each lane: bit i for quarter i, lowest first.
struct Quarters {
    std::uint8_t of[4];
};

consteval Quarters Advance(Quarters quarters, std::size_t times) {
    for (; times != 0; --times)
        quarters = {{quarters.of[1], quarters.of[2], quarters.of[3],
                     static_cast<std::uint8_t>(quarters.of[0] ^ quarters.of[1])}};
    return quarters;
}

consteval std::uint32_t BytesOf(std::uint8_t quarters, std::size_t byte) {
    std::uint32_t bytes = 0;
    for (std::size_t i = 0; i < 4; ++i)
        bytes |= (quarters >> i & 1U) << (kQuarter * i + byte);
    return bytes;
}

constexpr Quarters kNumber = {{1, 2, 4, 8}};

// The value as it is kept: its quarters, and those sums of two that appear in the keys.
constexpr std::uint8_t kKept[8] = {1, 2, 4, 8, 1 | 2, 2 | 4, 4 | 8, 0};

consteval Sums MakeKept() {
    Sums sums{};
    for (std::size_t i = 0; i < kWidth; ++i)
        sums.of[i] = BytesOf(kKept[i / kQuarter], i % kQuarter);
    return sums;
}

// Four key words of every lane, from `first` on, when the lanes take the number by so many times A each. The
// transposition P: byte i of key word j is byte j of quarter i.
consteval Sums MakeKeys(std::size_t times, std::size_t first) {
    Sums sums{};
    for (std::size_t i = 0; i < kWidth; ++i) {
        const std::size_t lane = i / 4 % 4;
        sums.of[i] = BytesOf(Advance(kNumber, times * lane).of[i % 4], first + i / 16);
    }
    return sums;
}

// One of those four words, four times over.
consteval Sums Repeat(const Sums& words, std::size_t word) {
    Sums sums{};
    for (std::size_t i = 0; i < kWidth; ++i)
        sums.of[i] = words.of[16 * word + i % 16];
    return sums;
}

// The lower (0) or upper (1) half of what each lane encrypts, four times over.
consteval Sums MakeHalves(std::size_t half) {
    Sums sums{};
    for (std::size_t i = 0; i < kWidth; ++i)
        sums.of[i] = 1U << (kQuarter * (i / 4 % 4) + 4 * half + i % 4);
    return sums;
}

struct alignas(kWidth) Bytes {
    std::uint8_t at[kWidth];
};

// Multiplies four vectors of transposed bytes and adds the products up.
struct Matrix {
    Bytes part[4];
};

// Where the bytes of the number are in the vectors: byte i of a quarter of the matrix is source[i].
struct Order {
    std::uint8_t source[4][kQuarter];
};

consteval Matrix MakeMatrix(const Sums& sums, const Order& order) {
    Matrix matrix{};
    for (std::size_t part = 0; part < 4; ++part) {
        for (std::size_t out = 0; out < kWidth; ++out) {
            unsigned row = 0;
            for (std::size_t in = 0; in < kQuarter; ++in)
                row |= (sums.of[out] >> order.source[part][in] & 1U) << (7 - in);
            matrix.part[part].at[out] = static_cast<std::uint8_t>(row);
        }
    }
    return matrix;
}

// As in memory, and as the halves of the lanes.
constexpr Order kInMemory = {{{0, 1, 2, 3, 4, 5, 6, 7},
                              {8, 9, 10, 11, 12, 13, 14, 15},
                              {16, 17, 18, 19, 20, 21, 22, 23},
                              {24, 25, 26, 27, 28, 29, 30, 31}}};
constexpr Order kInLanes = {{{0, 1, 2, 3, 8, 9, 10, 11},
                             {16, 17, 18, 19, 24, 25, 26, 27},
                             {4, 5, 6, 7, 12, 13, 14, 15},
                             {20, 21, 22, 23, 28, 29, 30, 31}}};

// Where in the kept value the bytes are that these sums are.
consteval Bytes MakePlaces(const Sums& sums) {
    constexpr Sums kept = MakeKept();
    Bytes places{};
    for (std::size_t i = 0; i < kWidth; ++i) {
        while (kept.of[places.at[i]] != sums.of[i])
            ++places.at[i];
    }
    return places;
}

// The constant C3 goes into the third lane's key, and through A into the fourth's.
consteval Bytes MakeKeyConstants(std::size_t first) {
    constexpr std::uint64_t c3[4] = {0xFF00FF00FF00FF00, 0x00FF00FF00FF00FF, 0xFF0000FF00FFFF00, 0xFF00FFFF000000FF};
    Bytes bytes{};
    for (std::size_t i = 0; i < kWidth; ++i) {
        const std::size_t lane = i / 4 % 4;
        if (lane < 2) continue;
        for (std::size_t quarter = 0; quarter < 4; ++quarter) {
            if ((Advance(kNumber, lane - 2).of[i % 4] >> quarter & 1) != 0)
                bytes.at[i] ^= static_cast<std::uint8_t>(c3[quarter] >> (8 * (first + i / 16)));
        }
    }
    return bytes;
}

consteval Bytes MakeSelectors() {
    Bytes bytes{};
    for (std::size_t i = 0; i < kWidth; ++i)
        bytes.at[i] = static_cast<std::uint8_t>(16 * (i % 4));
    return bytes;
}

constexpr Sums kLowHalves = MakeHalves(0);
constexpr Sums kFirstKey = Repeat(MakeKeys(1, 0), 0);

struct Constants {
    Bytes selectors = MakeSelectors();
    Bytes lowHalves = MakePlaces(kLowHalves);
    Bytes highHalves = MakePlaces(MakeHalves(1));
    Bytes firstKey = MakePlaces(kFirstKey);
    Bytes keys[2] = {MakePlaces(MakeKeys(1, 0)), MakePlaces(MakeKeys(1, 4))};
    Bytes keyConstants[2] = {MakeKeyConstants(0), MakeKeyConstants(4)};
    Matrix keptOfValue = MakeMatrix(Of(MakeKept(), MakePsi(61)), kInMemory);
    Matrix keptOfMessage = MakeMatrix(Of(MakeKept(), MakePsi(62)), kInMemory);
    Matrix keysOfMessage[2] = {MakeMatrix(MakeKeys(2, 0), kInMemory), MakeMatrix(MakeKeys(2, 4), kInMemory)};
    Matrix keptOfText = MakeMatrix(Of(MakeKept(), MakePsi(74)), kInLanes);
    Matrix lowHalvesOfText = MakeMatrix(Of(kLowHalves, MakePsi(74)), kInLanes);
    Matrix firstKeyOfText = MakeMatrix(Of(kFirstKey, MakePsi(74)), kInLanes);
};

constexpr Constants kConstants;

using Vector = __m512i;

[[gnu::always_inline]] inline Vector LoadVector(const Bytes& bytes) {
    return _mm512_load_si512(&bytes);
}

[[gnu::always_inline]] inline Vector Add(Vector a, Vector b, Vector c) {
    return _mm512_ternarylogic_epi32(a, b, c, 0x96);
}

[[gnu::always_inline]] inline Vector Permute(Vector table, const Bytes& places) {
    return _mm512_permutexvar_epi8(LoadVector(places), table);
}

// Each eight bytes as a matrix of bits with its axes changed.
[[gnu::always_inline]] inline Vector Transpose(Vector bytes) {
    return _mm512_gf2p8affine_epi64_epi8(_mm512_set1_epi64(0x0102040810204080), bytes, 0);
}

[[gnu::always_inline]] inline Vector Multiply(const Matrix& matrix, std::size_t part, Vector transposed) {
    return _mm512_gf2p8affine_epi64_epi8(LoadVector(matrix.part[part]), transposed, 0);
}

// start ^ two of the products, from `first` on.
[[gnu::always_inline]] inline Vector AddProducts(Vector start, const Matrix& matrix, std::size_t first,
                                                 const Vector (&transposed)[2]) {
    return Add(start, Multiply(matrix, first, transposed[0]), Multiply(matrix, first + 1, transposed[1]));
}

// The quarters of a number of transposed bytes, each repeated throughout a vector, for AddProducts.
struct Spread {
    Vector quarters[2][2];
};

[[gnu::always_inline]] inline Spread SpreadQuarters(Vector transposed) {
    return {{{_mm512_permutexvar_epi64(_mm512_set1_epi64(0), transposed),
              _mm512_permutexvar_epi64(_mm512_set1_epi64(1), transposed)},
             {_mm512_permutexvar_epi64(_mm512_set1_epi64(2), transposed),
              _mm512_permutexvar_epi64(_mm512_set1_epi64(3), transposed)}}};
}

[[gnu::always_inline]] inline Vector AddProduct(Vector start, const Matrix& matrix, const Spread& number) {
    return AddProducts(AddProducts(start, matrix, 0, number.quarters[0]), matrix, 2, number.quarters[1]);
}

// A message block for psi, and what it adds to the keys, four words a vector.
struct MessagePart {
    Spread spread;
    Vector keys[2];
};

[[gnu::always_inline]] inline void PrepareMessage(const std::uint8_t* block, MessagePart& part) {
    // Not quarter by quarter: clang 14 makes each an operand in memory of the product, whose offset it encodes wrongly.
    const Vector loaded = _mm512_broadcast_i64x4(_mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(block)));
    part.spread = SpreadQuarters(Transpose(loaded));
    for (std::size_t i = 0; i < 2; ++i)
        part.keys[i] = AddProduct(LoadVector(kConstants.keyConstants[i]), kConstants.keysOfMessage[i], part.spread);
}

// The value and what is taken from it first, or of each the part that is known already.
struct Value {
    Vector kept;
    Vector lowHalves;
    Vector firstKey;
};

[[gnu::always_inline]] inline Value Arrange(Vector kept, const MessagePart& message) {
    return {kept, Permute(kept, kConstants.lowHalves),
            _mm512_xor_si512(Permute(kept, kConstants.firstKey),
                             _mm512_shuffle_i64x2(message.keys[0], message.keys[0], 0x00))};
}

// psi^61(value) ^ psi^62(message)
[[gnu::always_inline]] inline Vector MixKnown(Vector kept, const MessagePart& message) {
    const Vector sum = AddProduct(_mm512_setzero_si512(), kConstants.keptOfMessage, message.spread);
    return AddProduct(sum, kConstants.keptOfValue, SpreadQuarters(Transpose(kept)));
}

// psi^74 of one half of the cipher text of all lanes, 0 the lower.
[[gnu::always_inline]] inline void MixText(Vector halves, std::size_t half, Value& value) {
    const Vector transposed = Transpose(halves);
    const Vector both[2] = {_mm512_unpacklo_epi64(transposed, transposed),
                            _mm512_unpackhi_epi64(transposed, transposed)};
    value.lowHalves = AddProducts(value.lowHalves, kConstants.lowHalvesOfText, 2 * half, both);
    value.firstKey = AddProducts(value.firstKey, kConstants.firstKeyOfText, 2 * half, both);
    value.kept = AddProducts(value.kept, kConstants.keptOfText, 2 * half, both);
}

// Half of what the lanes encrypt, and the same before its rotation by 11 bits: what a round adds to.
struct Half {
    Vector word;
    Vector unrotated;
};

[[gnu::always_inline]] inline Half MakeHalf(Vector word) {
    return {word, _mm512_ror_epi32(word, 11)};
}

class Rounds {
public:
    explicit Rounds(const SboxTables& tables)
        : m_low(_mm512_load_si512(tables.nibble[0])), m_high(_mm512_load_si512(tables.nibble[1])) {}

    [[gnu::always_inline]] void One(const Half& from, Vector key, Half& to) const {
        const Vector sum = _mm512_add_epi32(from.word, key);
        const Vector low = _mm512_permutexvar_epi8(Select(sum), m_low);
        const Vector high = _mm512_permutexvar_epi8(Select(_mm512_srli_epi32(sum, 4)), m_high);
        to.unrotated = Add(to.unrotated, low, high);
        to.word = _mm512_rol_epi32(to.unrotated, 11);
    }

private:
    // The lower half of each byte, beside the number of its S-box.
    [[gnu::always_inline]] Vector Select(Vector bytes) const {
        return _mm512_ternarylogic_epi32(bytes, m_lowerHalves, m_selectors, 0xEA);
    }

    Vector m_low;
    Vector m_high;
    Vector m_lowerHalves = _mm512_set1_epi8(0x0F);
    Vector m_selectors = LoadVector(kConstants.selectors);
};

[[gnu::always_inline]] inline void PassUp(const Rounds& rounds, const Vector (&keys)[8], Half& low, Half& high) {
    for (std::size_t i = 0; i < 8; i += 2) {
        rounds.One(low, keys[i], high);
        rounds.One(high, keys[i + 1], low);
    }
}

// The value in the order in which it is kept.
[[gnu::always_inline]] inline Vector LoadKept(const std::uint64_t (&value)[4]) {
    const Vector loaded = _mm512_maskz_loadu_epi64(0x0F, value);
    const Vector first = _mm512_maskz_permutexvar_epi64(0x70, _mm512_setr_epi64(0, 0, 0, 0, 0, 1, 2, 0), loaded);
    const Vector second = _mm512_maskz_permutexvar_epi64(0x70, _mm512_setr_epi64(0, 0, 0, 0, 1, 2, 3, 0), loaded);
    return Add(loaded, first, second);
}

[[gnu::always_inline]] inline void AddToSum(const std::uint8_t* block, std::uint64_t (&sum)[4]) {
    unsigned char carry = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        unsigned long long quarter;
        std::memcpy(&quarter, block + kQuarter * i, sizeof quarter);
        carry = _addcarry_u64(carry, sum[i], quarter, &quarter);
        sum[i] = quarter;
    }
}

void HashVectors(const SboxTables& tables, HashRun& run, const std::uint8_t* blocks, std::size_t count) {
    const Rounds rounds(tables);
    MessagePart message;
    PrepareMessage(blocks, message);
    Value value = Arrange(LoadKept(run.value), message);
    for (; count != 0; --count, blocks += kHashBlockSize) {
        AddToSum(blocks, run.sum);
        Vector keys[8];
        for (std::size_t i = 0; i < 2; ++i) {
            const Vector four = _mm512_xor_si512(Permute(value.kept, kConstants.keys[i]), message.keys[i]);
            keys[4 * i] = _mm512_shuffle_i64x2(four, four, 0x00);
            keys[4 * i + 1] = _mm512_shuffle_i64x2(four, four, 0x55);
            keys[4 * i + 2] = _mm512_shuffle_i64x2(four, four, 0xAA);
            keys[4 * i + 3] = _mm512_shuffle_i64x2(four, four, 0xFF);
        }
        keys[0] = value.firstKey;
        Half low = MakeHalf(value.lowHalves);
        Half high = MakeHalf(Permute(value.kept, kConstants.highHalves));
        PassUp(rounds, keys, low, high);
        const Vector known = MixKnown(value.kept, message);
        PassUp(rounds, keys, low, high);
        // The message part of the block after this one; after the last it is not used.
        PrepareMessage(count == 1 ? blocks : blocks + kHashBlockSize, message);
        value = Arrange(known, message);
        PassUp(rounds, keys, low, high);
        for (std::size_t i = 8; i != 2; i -= 2) {
            rounds.One(low, keys[i - 1], high);
            rounds.One(high, keys[i - 2], low);
        }
        rounds.One(low, keys[1], high);
        MixText(high.word, 0, value);
        rounds.One(high, keys[0], low);
        MixText(low.word, 1, value);
    }
    _mm512_mask_storeu_epi64(run.value, 0x0F, value.kept);
}

}  // namespace

const HashBlocks kHashBlocksAvx512 = HashVectors;

}  // namespace nalhost::crypto::symmetric

#else

const nalhost::crypto::symmetric::HashBlocks nalhost::crypto::symmetric::kHashBlocksAvx512 = nullptr;

#endif
