#include "host/provider/crypto/secure_memory.h"

#include <gcrypt.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
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

// As much as may be locked, since a pool is locked whole or not at all; half of it, so that the host can lock some too.
int PoolSize() {
    rlimit limit{};
    if (geteuid() == 0 || getrlimit(RLIMIT_MEMLOCK, &limit) != 0) return kLargestPool;
    return static_cast<int>(std::clamp<rlim_t>(limit.rlim_cur / 2, kSmallestPool, kLargestPool));
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
                   "secure "
                   "memory";
    }
    return "";
}

void Wipe(void* data, std::size_t size) {
    if (size != 0) explicit_bzero(data, size);
}

[[gnu::noinline]] void WipeStack() {
    std::uint8_t frame[16384];
    Wipe(frame, sizeof frame);
}

[[gnu::noinline]] void WipeShallowStack() {
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
