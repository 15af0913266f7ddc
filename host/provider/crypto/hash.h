// GOST R 34.11-94.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>

#include "host/provider/crypto/kernel_choice.h"
#include "host/provider/crypto/parameters.h"
#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

inline constexpr std::size_t kDigestSize = 32;

/// A hash value in the order in which CMS and certificates carry it. A signature reads it as a number least significant
/// byte first. RFC 5831 prints its examples the other way round.
using Digest = std::array<std::uint8_t, kDigestSize>;

/// A running or finished GOST R 34.11-94 hash. Source: RFC 5831, RFC 4357 section 11.2.
///
/// Its state and its value live in secure memory, since keys are derived by it. A copy goes on independently of the
/// original. Not synchronised: one thread at a time per object.
class Hash {
public:
    /// @param kernel  not above ProcessorKernel() @throws CryptoError kNoMemory, kUnavailable
    explicit Hash(const HashParameters& parameters = DefaultHashParameters(), Kernel kernel = ChosenKernel());
    Hash(const Hash& other);
    Hash& operator=(const Hash& other);
    Hash(Hash&&) noexcept;
    Hash& operator=(Hash&&) noexcept;
    ~Hash();

    /// Adds data; chunks of any size give what one call would. @throws CryptoError kBadState when the hash is finished
    void Update(ByteView data);

    /// Finishes the hash (no data can be added afterwards) and gives its value; calling again gives it again.
    Digest Finish();

    /// The same for a value that is a key: it never leaves secure memory. @throws CryptoError kNoMemory
    SecureBytes FinishSecret();

    /// Makes `value` the finished value, whatever was hashed before.
    void SetValue(const Digest& value);

    /// The value of one piece of data.
    static Digest Of(ByteView data, const HashParameters& parameters = DefaultHashParameters());

private:
    struct State;

    ByteView FinishedValue();

    std::unique_ptr<State> m_state;
    std::optional<Digest> m_givenValue;
    bool m_finished = false;
};

}  // namespace nalhost::crypto
