// Memory for secrets, and the start of libgcrypt, from which it comes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <type_traits>

namespace nalhost::crypto {

using ByteView = std::span<const std::uint8_t>;
using ByteSpan = std::span<std::uint8_t>;

enum class SecureMemoryState {
    kLocked,    ///< secrets never reach the swap space
    kUnlocked,  ///< the memory-lock limit (RLIMIT_MEMLOCK) is too small: secrets are wiped, but may be swapped out
    kDisabled,  ///< the host process started libgcrypt without secure memory: secrets are wiped, but may be swapped out
};

/// Starts libgcrypt for this process, once; every primitive calls it before it does anything.
///
/// A host that has finished libgcrypt's initialisation itself keeps its settings, whatever they are. Otherwise the pool
/// of secure memory is made (1 MiB, or less where less may be locked), no privilege is dropped and nothing is printed.
/// When the pool is full, libgcrypt adds pools of 1 MiB, which are wiped but not locked.
///
/// @throws CryptoError kUnavailable when libgcrypt is older than 1.10 or works in FIPS mode, which has no GOST
/// algorithm;
///         every later call throws the same
/// Thread-safe.
void StartCrypto();

/// How well secrets are protected; starts libgcrypt. Looked up once, at the first call. Thread-safe.
SecureMemoryState GetSecureMemoryState();

/// A sentence for the operator about a state other than kLocked: what is at risk and the remedy; "" for kLocked.
const char* SecureMemoryWarning(SecureMemoryState state);

/// Overwrites memory in a way that the compiler does not leave out.
void Wipe(void* data, std::size_t size);

/// Clears the registers that functions may leave changed, all vector registers among them: a function called later may
/// save what it finds there to memory. Works on every x86-64, and does nothing on other processors.
void WipeRegisters();

/// Overwrites what functions that have returned left in registers and on the stack, 16 KiB below the caller's frame.
void WipeStack();

/// The same for 4 KiB, for short computations that are called often.
void WipeShallowStack();

/// Calls `action` and wipes the registers and the stack that it used, also when it throws: for computations that keep
/// secrets there.
template <typename Action>
void WithWipedStack(const Action& action, void (*wipe)() = WipeStack) {
    struct Wiper {
        void (*wipe)();
        ~Wiper() { wipe(); }
    };
    const Wiper wiper{wipe};
    // Through a pointer that the compiler does not see through, so that the action has a frame of its own.
    void (*volatile call)(const Action&) = [](const Action& called) { called(); };
    call(action);
}

/// Compares in time that depends on the sizes only. Blocks of different sizes are unequal.
bool ConstantTimeEqual(ByteView left, ByteView right);

/// Owned bytes in locked memory, wiped when released: for keys, passwords, and what is computed from them.
///
/// At most 1 MiB (less a few bytes) in one block. Moves are cheap and leave the source empty; a copy is asked for by
/// name, so that none is made by accident. The pool is searched linearly: keep secrets in few blocks. Not synchronised;
/// different objects may be used by different threads.
class SecureBytes {
public:
    SecureBytes() = default;
    /// `size` zero bytes. @throws CryptoError kNoMemory
    explicit SecureBytes(std::size_t size);
    /// A copy of `bytes`. @throws CryptoError kNoMemory
    explicit SecureBytes(ByteView bytes);
    SecureBytes(SecureBytes&& other) noexcept;
    SecureBytes& operator=(SecureBytes&& other) noexcept;
    SecureBytes(const SecureBytes&) = delete;
    SecureBytes& operator=(const SecureBytes&) = delete;
    ~SecureBytes();

    SecureBytes Clone() const { return SecureBytes(View()); }

    std::uint8_t* data() { return m_data; }
    const std::uint8_t* data() const { return m_data; }
    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    std::uint8_t& operator[](std::size_t index) { return m_data[index]; }
    std::uint8_t operator[](std::size_t index) const { return m_data[index]; }
    std::uint8_t* begin() { return m_data; }
    std::uint8_t* end() { return m_data + m_size; }
    const std::uint8_t* begin() const { return m_data; }
    const std::uint8_t* end() const { return m_data + m_size; }

    ByteView View() const { return {m_data, m_size}; }
    ByteSpan Span() { return {m_data, m_size}; }
    operator ByteView() const { return View(); }

    /// Wipes and releases the bytes; the object is empty afterwards.
    void Clear() noexcept;

private:
    std::uint8_t* m_data = nullptr;
    std::size_t m_size = 0;
};

/// Plain data in locked memory, all zeros at first, wiped when released. Otherwise as SecureBytes.
template <typename T>
class SecureObject {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T> && alignof(T) <= 8);

public:
    SecureObject() = default;
    static SecureObject Make() {
        SecureObject made;
        made.m_bytes = SecureBytes(sizeof(T));
        new (made.m_bytes.data()) T{};
        return made;
    }
    SecureObject Clone() const {
        SecureObject copy;
        copy.m_bytes = m_bytes.Clone();
        return copy;
    }

    explicit operator bool() const { return !m_bytes.empty(); }
    T& operator*() { return *std::launder(reinterpret_cast<T*>(m_bytes.data())); }
    T* operator->() { return &**this; }

    /// Wipes and releases the data.
    void Clear() noexcept { m_bytes.Clear(); }

private:
    SecureBytes m_bytes;
};

}  // namespace nalhost::crypto
