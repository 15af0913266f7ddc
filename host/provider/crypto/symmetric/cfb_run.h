// A message in cipher feedback mode, as the kernels encrypt and decrypt it. Source: RFC 5830 section 7, RFC 4357
// section 2.3.2.
#pragma once

#include "host/provider/crypto/secure_memory.h"
#include "host/provider/crypto/symmetric/sbox_tables.h"

namespace nalhost::crypto::symmetric {

inline constexpr std::size_t kBlockSize = 8;

/// Plain data, for secure memory.
struct CfbRun {
    std::uint32_t key[8];
    std::uint8_t feedback[kBlockSize];  ///< the last block of cipher text, as far as it has come; the IV at first
    std::uint8_t gamma[kBlockSize];     ///< what the block that has begun is added to
    std::size_t used;                   ///< of the gamma, 1..8; 8 when no block has begun
    std::size_t blocksLeft;             ///< under this key, when keys are meshed
    bool meshes;
};

/// Processes whole blocks from `in` to `out`, which may be the same memory; `feedback` goes on. What it works on stays
/// on the stack, below the caller's frame.
using CfbBlocks = void (*)(const SboxTables& tables, const std::uint32_t (&key)[8],
                           std::uint8_t (&feedback)[kBlockSize], const std::uint8_t* in, std::uint8_t* out,
                           std::size_t count);

void EncryptCfbPortable(const SboxTables& tables, const std::uint32_t (&key)[8], std::uint8_t (&feedback)[kBlockSize],
                        const std::uint8_t* in, std::uint8_t* out, std::size_t count);
void DecryptCfbPortable(const SboxTables& tables, const std::uint32_t (&key)[8], std::uint8_t (&feedback)[kBlockSize],
                        const std::uint8_t* in, std::uint8_t* out, std::size_t count);

/// @param key  32 bytes @param iv  8 bytes
void StartCfb(CfbRun& run, ByteView key, ByteView iv, bool meshes);

/// The next chunk, of any size; `out` has the size of `in` and is the same memory or apart.
void EncryptCfb(const SboxTables& tables, CfbBlocks kernel, CfbRun& run, ByteView in, ByteSpan out);
void DecryptCfb(const SboxTables& tables, CfbBlocks kernel, CfbRun& run, ByteView in, ByteSpan out);

}  // namespace nalhost::crypto::symmetric
