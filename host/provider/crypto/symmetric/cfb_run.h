// A message in cipher feedback mode, as the kernels encrypt and decrypt it. Source: RFC 5830 section 7, RFC 4357
// section 2.3.2.
#pragma once

#include <cstdint>

#include "host/provider/crypto/kernel_choice.h"
#include "host/provider/crypto/secure_memory.h"
#include "host/provider/crypto/symmetric/sbox_tables.h"

namespace nalhost::crypto::symmetric {

inline constexpr std::size_t kBlockSize = 8;

/// Plain data, for secure memory.
struct CfbRun {
    std::uint32_t key[8];
    std::uint8_t feedback[kBlockSize];  ///< the last block of cipher text, the IV at first. Of a block that has begun:
                                        ///< cipher text as far as it has come, the rest is still gamma
    std::size_t used;                   ///< of the block that has begun, 1..8; 8 when none has
    std::uint64_t blocksLeft;           ///< under this key; no end of them when keys are not meshed
};

/// Processes whole blocks from `in` to `out`, which may be the same memory; key and feedback go on, over borders at
/// which the key changes, too. What it works on stays on the stack, up to 4 KiB below the caller's frame.
using CfbBlocks = void (*)(const SboxTables& tables, CfbRun& run, const std::uint8_t* in, std::uint8_t* out,
                           std::size_t count);

struct CfbKernel {
    CfbBlocks encrypt;
    CfbBlocks decrypt;
};

/// The kernels as the build has them: a function is null where the build has none, or where it would be no faster than
/// the portable one.
extern const CfbKernel kCfbPortable;
extern const CfbKernel kCfbAvx2;
extern const CfbKernel kCfbAvx512;

/// The fastest functions of this kernel and those below it. @param kernel  kPortable..ProcessorKernel()
CfbKernel ChooseCfbKernel(Kernel kernel);

/// @param key  32 bytes @param iv  8 bytes
void StartCfb(CfbRun& run, ByteView key, ByteView iv, bool meshes);

/// The next chunk, of any size; `out` has the size of `in` and is the same memory or apart.
void EncryptCfb(const SboxTables& tables, const CfbKernel& kernel, CfbRun& run, ByteView in, ByteSpan out);
void DecryptCfb(const SboxTables& tables, const CfbKernel& kernel, CfbRun& run, ByteView in, ByteSpan out);

}  // namespace nalhost::crypto::symmetric
