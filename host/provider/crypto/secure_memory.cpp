#include "host/provider/crypto/secure_memory.h"

#include <gcrypt.h>
#include <string.h>
#include <sys/mman.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <utility>

#include "host/provider/crypto/error.h"

namespace nalhost::crypto {
namespace {

// A cipher handle takes 1 KiB, so the largest pool serves a thousand at once and the smallest thirty.
constexpr std::size_t kLargestPool = 1024 * 1024;
constexpr std::size_t kSmallestPool = 32 * 1024;

// Whether this process may lock so much more memory now. Tried, since neither the limit nor the user says it: a right
// may lift the limit or be missing, and some may be locked already.
bool CanLock(std::size_t size) {
    // Without access there are no pages to bring in, which would take longer than all the rest of the start.
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_LOCKED;
    void* const memory = mmap(nullptr, size, PROT_NONE, flags, -1, 0);
    if (memory == MAP_FAILED) return false;
    munmap(memory, size);  // unlocks
    return true;
}

// As much as may be locked, since a pool is locked whole or not at all; half of it, so that the host can lock some too.
int PoolSize() {
    std::size_t size = kLargestPool;
    while (size > kSmallestPool && !CanLock(2 * size))
        size /= 2;
    return static_cast<int>(size);
}

constexpr const char* kOldestLibrary = "1.10.0";

// Null, or why libgcrypt cannot serve. Called once.
const char* StartLibrary() {
    if (!gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) {
        // The kernel's generator: libgcrypt's own takes longer for 32 bytes than a signature takes for all the rest.
        // First of all, since several other commands settle on libgcrypt's own.
        gcry_control(GCRYCTL_SET_PREFERRED_RNG_TYPE, GCRY_RNG_TYPE_SYSTEM);
        // Making the pool would otherwise drop the host's effective user.
        gcry_control(GCRYCTL_DISABLE_PRIV_DROP);
        if (!gcry_check_version(kOldestLibrary)) return "libgcrypt 1.10 or later is needed";
        // It prints on standard error; GetSecureMemoryState tells instead.
        gcry_control(GCRYCTL_DISABLE_SECMEM_WARN);
        // For libgcrypt's own generator, should it be used all the same: its pool holds what it has given out.
        gcry_control(GCRYCTL_USE_SECURE_RNDPOOL);
        gcry_control(GCRYCTL_INIT_SECMEM, PoolSize(), 0);
        gcry_control(GCRYCTL_AUTO_EXPAND_SECMEM, static_cast<unsigned int>(kLargestPool), 0);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    } else if (!gcry_check_version(kOldestLibrary)) {
        return "libgcrypt 1.10 or later is needed";
    }
    if (gcry_fips_mode_active()) return "libgcrypt works in FIPS mode, which has no GOST algorithm";
    return nullptr;
}

// Whether the mapping that holds `address` is locked, as the kernel reports it.
bool IsLocked(const void* address) {
    const auto sought = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    bool inside = false;
    for (std::string line; std::getline(maps, line);) {
        std::uintptr_t first = 0;
        std::uintptr_t last = 0;
        char* rest = nullptr;
        first = std::strtoull(line.c_str(), &rest, 16);
        if (rest != line.c_str() && *rest == '-') {
            last = std::strtoull(rest + 1, nullptr, 16);
            inside = first <= sought && sought < last;
        } else if (inside && line.starts_with("VmFlags:")) {
            return (line + ' ').find(" lo ") != std::string::npos;
        }
    }
    return false;
}

}  // namespace

void StartCrypto() {
    static const char* const failure = StartLibrary();
    if (failure) throw CryptoError(Failure::kUnavailable, failure);
}

SecureMemoryState GetSecureMemoryState() {
    static const SecureMemoryState state = [] {
        const SecureBytes probe(1);
        if (!gcry_is_secure(probe.data())) return SecureMemoryState::kDisabled;
        return IsLocked(probe.data()) ? SecureMemoryState::kLocked : SecureMemoryState::kUnlocked;
    }();
    return state;
}

const char* SecureMemoryWarning(SecureMemoryState state) {
    switch (state) {
        case SecureMemoryState::kLocked:
            return "";
        case SecureMemoryState::kUnlocked:
            return "Keys are kept in memory that may be swapped out: raise the limit on locked memory (ulimit -l) to "
                   "2048 KiB or more";
        case SecureMemoryState::kDisabled:
            return "Keys are kept in memory that may be swapped out: the host process has turned off libgcrypt's "
                   "secure memory";
    }
    return "";
}

void Wipe(void* data, std::size_t size) {
    if (size != 0) explicit_bzero(data, size);
}

// Clears whole registers where the processor has wider ones than this file is compiled for, whatever kernels it can run:
// the C library's copying uses them, too. Not inlined, so that the compiler keeps nothing in those that it does not know.
[[gnu::noinline]] void WipeRegisters() {
#if defined(__x86_64__)
    struct Processor {
        bool hasAvx = __builtin_cpu_supports("avx");
        bool hasAvx512 = __builtin_cpu_supports("avx512f");
        bool hasWideMasks = __builtin_cpu_supports("avx512bw");
    };
    static const Processor processor;
    if (processor.hasAvx512) {
        asm volatile(
            "vpxord %%zmm16, %%zmm16, %%zmm16; vpxord %%zmm17, %%zmm17, %%zmm17; vpxord %%zmm18, %%zmm18, %%zmm18\n\t"
            "vpxord %%zmm19, %%zmm19, %%zmm19; vpxord %%zmm20, %%zmm20, %%zmm20; vpxord %%zmm21, %%zmm21, %%zmm21\n\t"
            "vpxord %%zmm22, %%zmm22, %%zmm22; vpxord %%zmm23, %%zmm23, %%zmm23; vpxord %%zmm24, %%zmm24, %%zmm24\n\t"
            "vpxord %%zmm25, %%zmm25, %%zmm25; vpxord %%zmm26, %%zmm26, %%zmm26; vpxord %%zmm27, %%zmm27, %%zmm27\n\t"
            "vpxord %%zmm28, %%zmm28, %%zmm28; vpxord %%zmm29, %%zmm29, %%zmm29; vpxord %%zmm30, %%zmm30, %%zmm30\n\t"
            "vpxord %%zmm31, %%zmm31, %%zmm31" ::
                : "memory");
    }
    if (processor.hasWideMasks) {
        asm volatile(
            "kxorq %%k0, %%k0, %%k0; kxorq %%k1, %%k1, %%k1; kxorq %%k2, %%k2, %%k2; kxorq %%k3, %%k3, %%k3\n\t"
            "kxorq %%k4, %%k4, %%k4; kxorq %%k5, %%k5, %%k5; kxorq %%k6, %%k6, %%k6; kxorq %%k7, %%k7, %%k7" ::
                : "memory");
    } else if (processor.hasAvx512) {
        asm volatile(
            "kxorw %%k0, %%k0, %%k0; kxorw %%k1, %%k1, %%k1; kxorw %%k2, %%k2, %%k2; kxorw %%k3, %%k3, %%k3\n\t"
            "kxorw %%k4, %%k4, %%k4; kxorw %%k5, %%k5, %%k5; kxorw %%k6, %%k6, %%k6; kxorw %%k7, %%k7, %%k7" ::
                : "memory");
    }
    if (processor.hasAvx) asm volatile("vzeroall" ::: "memory");
    asm volatile(
        "pxor %%xmm0, %%xmm0; pxor %%xmm1, %%xmm1; pxor %%xmm2, %%xmm2; pxor %%xmm3, %%xmm3\n\t"
        "pxor %%xmm4, %%xmm4; pxor %%xmm5, %%xmm5; pxor %%xmm6, %%xmm6; pxor %%xmm7, %%xmm7\n\t"
        "pxor %%xmm8, %%xmm8; pxor %%xmm9, %%xmm9; pxor %%xmm10, %%xmm10; pxor %%xmm11, %%xmm11\n\t"
        "pxor %%xmm12, %%xmm12; pxor %%xmm13, %%xmm13; pxor %%xmm14, %%xmm14; pxor %%xmm15, %%xmm15\n\t"
        "xorl %%eax, %%eax; xorl %%ecx, %%ecx; xorl %%edx, %%edx; xorl %%esi, %%esi; xorl %%edi, %%edi\n\t"
        "xorl %%r8d, %%r8d; xorl %%r9d, %%r9d; xorl %%r10d, %%r10d; xorl %%r11d, %%r11d" ::
            : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8", "xmm9", "xmm10", "xmm11", "xmm12",
              "xmm13", "xmm14", "xmm15", "rax", "rcx", "rdx", "rsi", "rdi", "r8", "r9", "r10", "r11", "cc", "memory");
#endif
}

[[gnu::noinline]] void WipeStack() {
    WipeRegisters();
    std::uint8_t frame[16384];
    Wipe(frame, sizeof frame);
}

[[gnu::noinline]] void WipeShallowStack() {
    WipeRegisters();
    std::uint8_t frame[4096];
    Wipe(frame, sizeof frame);
}

bool ConstantTimeEqual(ByteView left, ByteView right) {
    if (left.size() != right.size()) return false;
    // Volatile, so that the compiler cannot leave the loop at the first difference.
    volatile std::uint8_t difference = 0;
    for (std::size_t i = 0; i < left.size(); ++i)
        difference = difference | (left[i] ^ right[i]);
    return difference == 0;
}

SecureBytes::SecureBytes(std::size_t size) {
    StartCrypto();
    if (size == 0) return;
    m_data = static_cast<std::uint8_t*>(gcry_malloc_secure(size));
    if (!m_data) throw CryptoError(Failure::kNoMemory, "secure memory is used up");
    m_size = size;
    memset(m_data, 0, size);
}

SecureBytes::SecureBytes(ByteView bytes) : SecureBytes(bytes.size()) {
    if (m_size != 0) memcpy(m_data, bytes.data(), m_size);
}

SecureBytes::SecureBytes(SecureBytes&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr)), m_size(std::exchange(other.m_size, 0)) {}

SecureBytes& SecureBytes::operator=(SecureBytes&& other) noexcept {
    if (this != &other) {
        Clear();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
    }
    return *this;
}

SecureBytes::~SecureBytes() {
    Clear();
}

void SecureBytes::Clear() noexcept {
    if (!m_data) return;
    Wipe(m_data, m_size);
    gcry_free(m_data);
    m_data = nullptr;
    m_size = 0;
}

}  // namespace nalhost::crypto
