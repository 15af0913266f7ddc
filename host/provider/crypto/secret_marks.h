// Marks by which the check of constant time follows secrets: under valgrind's memcheck, secrets are undefined memory,
// and a branch or an address that depends on one is reported. In the library itself the marks are nothing; the check
// compiles these sources once more, with NAL_MARK_SECRETS.
#pragma once

#include <cstddef>

#ifdef NAL_MARK_SECRETS
#include <valgrind/memcheck.h>
#endif

namespace nalhost::crypto {

/// From here on the memory is secret.
inline void MarkSecret([[maybe_unused]] void* data, [[maybe_unused]] std::size_t size) {
#ifdef NAL_MARK_SECRETS
    VALGRIND_MAKE_MEM_UNDEFINED(data, size);
#endif
}

/// From here on the memory is public, though it was computed of secrets: it leaves the process, or says no more than
/// that a random number was refused.
inline void MarkPublic([[maybe_unused]] void* data, [[maybe_unused]] std::size_t size) {
#ifdef NAL_MARK_SECRETS
    VALGRIND_MAKE_MEM_DEFINED(data, size);
#endif
}

}  // namespace nalhost::crypto
