// For kernels that hold secrets in AVX-512 registers: other code hardly uses the upper sixteen, so what is left there
// stays until a signal or a switch of contexts writes it to memory that nobody wipes.
#pragma once

namespace nalhost::crypto::symmetric {

// Of internal linkage on purpose: what is built on it belongs to one file.
namespace {  // NOLINT(google-build-namespaces,cert-dcl59-cpp)

/// Zeroes all of them; a kernel's last act.
[[gnu::always_inline]] inline void WipeVectorRegisters() {
#define NAL_ZERO(number) "vpxord %%xmm" #number ", %%xmm" #number ", %%xmm" #number "\n\t"
    __asm__ volatile(
        "vzeroall\n\t"  // 0 to 15
        NAL_ZERO(16) NAL_ZERO(17) NAL_ZERO(18) NAL_ZERO(19) NAL_ZERO(20) NAL_ZERO(21) NAL_ZERO(22) NAL_ZERO(23)
            NAL_ZERO(24) NAL_ZERO(25) NAL_ZERO(26) NAL_ZERO(27) NAL_ZERO(28) NAL_ZERO(29) NAL_ZERO(30) NAL_ZERO(31)
        :
        :
        : "memory", "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11",
          "xmm12", "xmm13", "xmm14", "xmm15", "xmm16", "xmm17", "xmm18", "xmm19", "xmm20", "xmm21", "xmm22", "xmm23",
          "xmm24", "xmm25", "xmm26", "xmm27", "xmm28", "xmm29", "xmm30", "xmm31");
#undef NAL_ZERO
}

}  // namespace

}  // namespace nalhost::crypto::symmetric
