// The one exception of the cryptographic primitives.
#pragma once

#include <stdexcept>
#include <string>

namespace nalhost::crypto {

enum class Failure {
    kBadAlgorithm,  ///< an operation that this algorithm or parameter set does not have (NTE_BAD_ALGID 0x80090008)
    kBadKey,        ///< a scalar out of range, a point off the curve, a value of small order (NTE_BAD_KEY 0x80090003)
    kBadLength,     ///< a key, IV, UKM or value of the wrong size (NTE_BAD_LEN 0x80090004)
    kBadData,       ///< a wrapped key or sealed block that fails its check (NTE_BAD_DATA 0x80090005)
    kBadState,      ///< more data for a finished hash (NTE_BAD_HASH_STATE 0x8009000C)
    kNoMemory,      ///< secure or ordinary memory is used up (NTE_NO_MEMORY 0x8009000E)
    kUnavailable,   ///< libgcrypt is too old, or refuses these algorithms (FIPS mode) (NTE_FAIL 0x80090020)
    kInternal,      ///< anything else that libgcrypt reports (NTE_FAIL 0x80090020)
};

/// Thrown by every primitive that cannot do what was asked. Nothing is changed or half-written when it is thrown, and
/// the text never holds a secret. A signature that does not verify is no exception: verification returns false.
class CryptoError : public std::runtime_error {
public:
    CryptoError(Failure failure, const std::string& text) : std::runtime_error(text), m_failure(failure) {}

    Failure Kind() const { return m_failure; }

private:
    Failure m_failure;
};

}  // namespace nalhost::crypto
