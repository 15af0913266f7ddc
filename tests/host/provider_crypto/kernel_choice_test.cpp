#include "host/provider/crypto/kernel_choice.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace nalhost::crypto {
namespace {

TEST(KernelChoice, NamesAreFoundAgain) {
    for (const Kernel kernel : AllKernels())
        EXPECT_EQ(kernel, FindKernel(KernelName(kernel)));
    for (const char* name : {"", "AVX2", "avx", "avx2 "})
        EXPECT_FALSE(FindKernel(name)) << name;
}

// The test program is also run with each name in the environment.
TEST(KernelChoice, FollowsTheEnvironmentDownwards) {
    const char* name = std::getenv("NAL_KERNELS");
    const Kernel asked = FindKernel(name == nullptr ? "" : name).value_or(ProcessorKernel());
    EXPECT_EQ(asked < ProcessorKernel() ? asked : ProcessorKernel(), ChosenKernel());
    EXPECT_NE(Kernel::kReference, ProcessorKernel());
}

}  // namespace
}  // namespace nalhost::crypto
