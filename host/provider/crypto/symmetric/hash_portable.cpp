// The step of GOST R 34.11-94 in portable code. Source: RFC 5831 sections 5 and 6.
//
// The four encryptions of a step do not depend on one another, so they run in four lanes. The keys are made by moves
// and sums of words. The mixing psi shifts sixteen words of 16 bits and feeds back a sum of six, so it is linear: of
// its 74 steps the first 13, between which the message and the old value come in, are taken four at a time, and the
// last 61 are one multiplication by a matrix of bits.
#include "host/provider/crypto/symmetric/block_lanes.h"
#include "host/provider/crypto/symmetric/hash_run.h"

namespace nalhost::crypto::symmetric {
namespace {

using Words = std::uint64_t[4];

constexpr std::size_t kWords = 16;  // of 16 bits, of which psi makes one anew a step

// The constant C3, the only one of the three that is not zero.
constexpr std::uint64_t kKeyConstant[4] = {0xFF00FF00FF00FF00, 0x00FF00FF00FF00FF, 0xFF0000FF00FFFF00,
                                           0xFF00FFFF000000FF};

// What psi puts behind sixteen words that begin at `y`.
template <typename Word>
constexpr Word NextWord(const Word* y) {
    return static_cast<Word>(y[0] ^ y[1] ^ y[2] ^ y[3] ^ y[12] ^ y[15]);
}

// For each word that goes in, which of the sixteen words after so many steps it is part of: all ones there.
struct StepMatrix {
    std::uint64_t mask[kWords][4];
};

consteval StepMatrix MakeStepMatrix(std::size_t steps) {
    std::uint16_t parts[kWords + 64]{};  // bit i: word i of those at the start is part of it
    for (std::size_t i = 0; i < kWords; ++i)
        parts[i] = static_cast<std::uint16_t>(1U << i);
    for (std::size_t i = 0; i < steps; ++i)
        parts[i + kWords] = NextWord(parts + i);
    StepMatrix matrix{};
    for (std::size_t in = 0; in < kWords; ++in) {
        for (std::size_t out = 0; out < kWords; ++out) {
            if ((parts[steps + out] >> in & 1) != 0)
                matrix.mask[in][out / 4] |= std::uint64_t{0xFFFF} << (16 * (out % 4));
        }
    }
    return matrix;
}

constexpr StepMatrix kLastSteps = MakeStepMatrix(61);

// Sixteen bits, four times over.
[[gnu::always_inline]] inline std::uint64_t Repeat(std::uint64_t word) {
    return word * 0x0001000100010001;
}

// The words of two after so many bits, less than 64.
[[gnu::always_inline]] inline std::uint64_t Shift(std::uint64_t low, std::uint64_t high, int bits) {
    return low >> bits | high << (64 - bits);
}

// What four steps put behind words that begin with those of `first` and `second` and end with those of `last`. Each of
// the four is a part of the next, so the parts are summed up.
[[gnu::always_inline]] inline std::uint64_t NextFour(std::uint64_t first, std::uint64_t second, std::uint64_t last) {
    std::uint64_t next = first ^ Shift(first, second, 16) ^ Shift(first, second, 32) ^ Shift(first, second, 48) ^ last;
    next ^= next << 16;
    next ^= next << 32;
    return next ^ Repeat(last >> 48);
}

// value = psi^61(value ^ psi(message ^ psi^12(encrypted)))
[[gnu::always_inline]] inline void Mix(const Words& encrypted, const Words& message, Words& value) {
    const std::uint64_t fifth = NextFour(encrypted[0], encrypted[1], encrypted[3]);
    const std::uint64_t sixth = NextFour(encrypted[1], encrypted[2], fifth);
    const std::uint64_t seventh = NextFour(encrypted[2], encrypted[3], sixth);
    const Words sum = {encrypted[3] ^ message[0], fifth ^ message[1], sixth ^ message[2], seventh ^ message[3]};
    const Words in = {Shift(sum[0], sum[1], 16) ^ value[0], Shift(sum[1], sum[2], 16) ^ value[1],
                      Shift(sum[2], sum[3], 16) ^ value[2],
                      Shift(sum[3], NextFour(sum[0], sum[1], sum[3]), 16) ^ value[3]};
    Words mixed{};
    for (std::size_t i = 0; i < kWords; ++i) {
        const std::uint64_t everywhere = Repeat(in[i / 4] >> (16 * (i % 4)) & 0xFFFF);
        for (std::size_t j = 0; j < 4; ++j)
            mixed[j] ^= everywhere & kLastSteps.mask[i][j];
    }
    for (std::size_t j = 0; j < 4; ++j)
        value[j] = mixed[j];
}

// The transposition P: key word i is the bytes i of the four words.
[[gnu::always_inline]] inline void MakeKey(const Words& u, const Words& v, std::size_t lane,
                                           std::uint32_t (&key)[8][4]) {
    // Two transpositions of 2 x 2: of bytes, then of pairs of bytes.
    constexpr std::uint64_t bytes = 0x00FF00FF00FF00FF;
    const std::uint64_t w[4] = {u[0] ^ v[0], u[1] ^ v[1], u[2] ^ v[2], u[3] ^ v[3]};
    const std::uint64_t even01 = (w[0] & bytes) | (w[1] & bytes) << 8;  // pairs of bytes 0, 2, 4, 6
    const std::uint64_t odd01 = (w[0] >> 8 & bytes) | (w[1] & ~bytes);
    const std::uint64_t even23 = (w[2] & bytes) | (w[3] & bytes) << 8;
    const std::uint64_t odd23 = (w[2] >> 8 & bytes) | (w[3] & ~bytes);
    for (std::size_t i = 0; i < 4; ++i) {
        const std::size_t shift = 16 * i;
        key[2 * i][lane] = static_cast<std::uint32_t>((even01 >> shift & 0xFFFF) | (even23 >> shift & 0xFFFF) << 16);
        key[2 * i + 1][lane] = static_cast<std::uint32_t>((odd01 >> shift & 0xFFFF) | (odd23 >> shift & 0xFFFF) << 16);
    }
}

// The transformation A: one word further, the sum of the two lowest goes in at the top.
[[gnu::always_inline]] inline void Advance(Words& words) {
    const std::uint64_t sum = words[0] ^ words[1];
    words[0] = words[1];
    words[1] = words[2];
    words[2] = words[3];
    words[3] = sum;
}

void Step(const SboxTables& tables, Words& value, const Words& message) {
    std::uint32_t key[8][4];
    Words u = {value[0], value[1], value[2], value[3]};
    Words v = {message[0], message[1], message[2], message[3]};
    MakeKey(u, v, 0, key);
    for (std::size_t lane = 1; lane < 4; ++lane) {
        Advance(u);
        Advance(v);
        Advance(v);
        if (lane == 2) {
            for (std::size_t i = 0; i < 4; ++i)
                u[i] ^= kKeyConstant[i];
        }
        MakeKey(u, v, lane, key);
    }
    Blocks<4> blocks;
    for (std::size_t i = 0; i < 4; ++i) {
        blocks.low[i] = static_cast<std::uint32_t>(value[i]);
        blocks.high[i] = static_cast<std::uint32_t>(value[i] >> 32);
    }
    EncryptBlocks(
        tables, [&key](std::size_t word, std::size_t lane) { return key[word][lane]; }, blocks);
    Words encrypted;
    for (std::size_t i = 0; i < 4; ++i)
        encrypted[i] = std::uint64_t{blocks.high[i]} << 32 | blocks.low[i];
    Mix(encrypted, message, value);
}

}  // namespace

void HashBlocksPortable(const SboxTables& tables, HashRun& run, const std::uint8_t* blocks, std::size_t count) {
    for (; count != 0; --count, blocks += kHashBlockSize) {
        Words message;
        std::uint64_t carry = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            message[i] = Load<std::uint64_t>(blocks + 8 * i);
            const std::uint64_t sum = run.sum[i] + carry;
            run.sum[i] = sum + message[i];
            carry = static_cast<std::uint64_t>(sum < carry) | static_cast<std::uint64_t>(run.sum[i] < sum);
        }
        Step(tables, run.value, message);
    }
}

}  // namespace nalhost::crypto::symmetric
