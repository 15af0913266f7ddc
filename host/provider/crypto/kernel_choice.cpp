#include "host/provider/crypto/kernel_choice.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace nalhost::crypto {
namespace {

constexpr std::array<Kernel, 4> c_kernels = {Kernel::kReference, Kernel::kPortable, Kernel::kAvx2, Kernel::kAvx512};

}  // namespace

std::span<const Kernel> AllKernels() {
    return c_kernels;
}

const char* KernelName(Kernel kernel) {
    switch (kernel) {
        case Kernel::kReference:
            return "reference";
        case Kernel::kPortable:
            return "portable";
        case Kernel::kAvx2:
            return "avx2";
        case Kernel::kAvx512:
            return "avx512";
    }
    return "";
}

std::optional<Kernel> FindKernel(std::string_view name) {
    for (const Kernel kernel : c_kernels) {
        if (name == KernelName(kernel)) return kernel;
    }
    return std::nullopt;
}

Kernel ProcessorKernel() {
#if defined(__x86_64__)
    // The compiler's runtime also asks whether the operating system saves the registers.
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("bmi2")) return Kernel::kPortable;
    const bool has512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
                        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("gfni");
    return has512 ? Kernel::kAvx512 : Kernel::kAvx2;
#else
    return Kernel::kPortable;
#endif
}

Kernel ChosenKernel() {
    static const Kernel chosen = [] {
        const char* name = secure_getenv("NAL_KERNELS");
        const std::optional<Kernel> asked = name == nullptr ? std::nullopt : FindKernel(name);
        return std::min(asked.value_or(ProcessorKernel()), ProcessorKernel());
    }();
    return chosen;
}

}  // namespace nalhost::crypto
