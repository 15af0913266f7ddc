// Which of the kernels of a primitive is used. A kernel is one implementation of it, for processors that have certain
// instructions; all kernels of a primitive give the same results.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace nalhost::crypto {

/// What kernels are built on, each with what those before it have. A primitive takes the highest that it has a kernel
/// for, not above ChosenKernel(), unless a lower one is faster on the processor; a comparison with < is meant.
enum class Kernel {
    kReference,  ///< libgcrypt alone
    kPortable,   ///< C++ that runs on every processor
    kAvx2,       ///< x86-64 with AVX2 and BMI2 (MULX): Intel since 2013, AMD since 2015
    kAvx512,     ///< with AVX-512 F, BW, DQ, VL, VBMI and GFNI too: Intel since 2019, AMD since 2022
};

/// All of them, lowest first.
std::span<const Kernel> AllKernels();

/// The name by which the environment variable asks for it: reference, portable, avx2, avx512.
const char* KernelName(Kernel kernel);

/// The kernel of this name, nothing for any other text.
std::optional<Kernel> FindKernel(std::string_view name);

/// The highest that this processor and its operating system can run. Thread-safe.
Kernel ProcessorKernel();

/// The highest that is to be used: ProcessorKernel(), or a lower one that the environment variable NAL_KERNELS names.
/// A name that is unknown or above ProcessorKernel() changes nothing. Decided once, at the first call. Thread-safe.
Kernel ChosenKernel();

}  // namespace nalhost::crypto
