// A running GOST R 34.11-94 hash, as the kernels compute it. Source: RFC 5831.
#pragma once

#include "host/provider/crypto/kernel_choice.h"
#include "host/provider/crypto/secure_memory.h"
#include "host/provider/crypto/symmetric/sbox_tables.h"

namespace nalhost::crypto::symmetric {

inline constexpr std::size_t kHashBlockSize = 32;

/// Plain data, for secure memory. All zeros is the start. Numbers have their least significant word first.
struct HashRun {
    std::uint64_t value[4];
    std::uint64_t sum[4];  ///< of all blocks, modulo 2^256
    std::uint64_t size;    ///< of the message so far, in bytes
    std::uint8_t pending[kHashBlockSize];
    std::size_t pendingSize;              ///< 0..31
    std::uint8_t digest[kHashBlockSize];  ///< the value in the order of CMS, once the hash is finished
};

/// Takes whole blocks, one at least, into the value and the sum. What it works on stays on the stack, below the caller's frame.
using HashBlocks = void (*)(const SboxTables& tables, HashRun& run, const std::uint8_t* blocks, std::size_t count);

void HashBlocksPortable(const SboxTables& tables, HashRun& run, const std::uint8_t* blocks, std::size_t count);
/// For Kernel::kAvx512; null in builds for other processors.
extern const HashBlocks kHashBlocksAvx512;

/// The best that `kernel` allows. @param kernel  not kReference
HashBlocks HashBlocksOf(Kernel kernel);

/// Adds data of any size.
void UpdateHash(const SboxTables& tables, HashBlocks kernel, HashRun& run, ByteView data);

/// Ends the message; `digest` is there then.
void FinishHash(const SboxTables& tables, HashBlocks kernel, HashRun& run);

}  // namespace nalhost::crypto::symmetric
