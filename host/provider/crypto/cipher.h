// GOST 28147-89: encryption with feedback, the simple mode for key wrap, and the authentication code.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "host/provider/crypto/kernel_choice.h"
#include "host/provider/crypto/parameters.h"
#include "host/provider/crypto/secure_memory.h"

namespace nalhost::crypto {

inline constexpr std::size_t kCipherKeySize = 32;
inline constexpr std::size_t kCipherBlockSize = 8;  ///< also of an initialisation vector and of a UKM
inline constexpr std::size_t kMacSize = 4;

using Mac = std::array<std::uint8_t, kMacSize>;

enum class Direction { kEncrypt, kDecrypt };

enum class KeyMeshing {
    kNone,
    kOfParameterSet,  ///< a new key after every 1024 bytes when the set asks for it. Source: RFC 4357 section 2.3.2
};

/// One message in cipher feedback mode, encrypted or decrypted in chunks of any size; the state goes on from chunk to
/// chunk. A new message takes a new object. Source: RFC 5830 section 7, RFC 4357 section 2.
///
/// Key schedule and state live in secure memory and are wiped. Not synchronised: one thread at a time per object.
class CfbCipher {
public:
    /// @param key  32 bytes in the standard's order
    /// @param iv   8 bytes
    /// @param kernel  not above ProcessorKernel()
    /// @throws CryptoError kBadLength, kNoMemory, kUnavailable
    CfbCipher(Direction direction, const CipherParameters& parameters, KeyMeshing meshing, ByteView key, ByteView iv,
              Kernel kernel = ChosenKernel());
    CfbCipher(CfbCipher&&) noexcept;
    CfbCipher& operator=(CfbCipher&&) noexcept;
    ~CfbCipher();

    /// Processes the next chunk. `out` has the size of `in`; it is the same memory, or does not overlap it.
    /// @throws CryptoError kBadLength when the sizes differ
    void Process(ByteView in, ByteSpan out);

private:
    struct State;
    std::unique_ptr<State> m_state;
    Direction m_direction;
};

/// Encrypts or decrypts whole blocks independently of one another, in place. For wrapped keys only: equal blocks
/// give equal results. @param data  a multiple of 8 bytes @throws CryptoError kBadLength, kNoMemory
void ProcessEcb(Direction direction, const CipherParameters& parameters, ByteView key, ByteSpan data);

/// A running authentication code (imitovstavka) of one message, of 4 bytes. It never meshes keys.
/// Source: RFC 5830 section 8. Secrets and threads as for CfbCipher.
class MacCode {
public:
    /// @param iv  8 bytes; zeros when the protocol names none @throws CryptoError kBadLength, kNoMemory, kUnavailable
    MacCode(const CipherParameters& parameters, ByteView key, ByteView iv);
    MacCode(MacCode&&) noexcept;
    MacCode& operator=(MacCode&&) noexcept;
    ~MacCode();

    void Update(ByteView data);

    /// Ends the message and gives its code; calling again gives it again.
    Mac Finish();

private:
    struct State;
    std::unique_ptr<State> m_state;
};

}  // namespace nalhost::crypto
