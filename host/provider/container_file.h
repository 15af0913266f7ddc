// A key container as a file; docs/container-format.md draws the bytes.
//
// This level turns bytes into records and back, and opens and closes the sealed part. It knows no paths and no locks.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "asnt/view.h"
#include "host/provider/crypto/protection.h"
#include "host/provider/key_format.h"
#include "too/ident_obj.h"
#include "too/types.h"

namespace nalhost::provider {

// Read before anything of a file is believed.
inline constexpr std::size_t c_maxContainerSize = 16U << 20;
inline constexpr std::size_t c_maxEntries = 1024;
inline constexpr std::size_t c_maxCertificateSize = 1U << 20;

// One key of a container, but for the private key itself.
struct ContainerEntry {
    std::uint32_t number = 0;  // unique in the container for all time
    KeyFormat format;
    DWORD keyType = 0;
    FILETIME created{};
    IdentObj publicKey;
    IdentObj certificate;  // empty: none
};

// What the user knows or has, from which the container's key is made.
struct ContainerSecrets {
    crypto::SecureBytes password;
    crypto::SecureBytes pin;
    crypto::SecureBytes protectionKey;  // 32 bytes, or empty

    DWORD ProtectionBits() const;
};

// The container's key with what it was made from: good for every file that has the same.
struct ContainerKey {
    crypto::SecureBytes key;
    DWORD protection = 0;
    std::array<std::uint8_t, 16> salt{};
    crypto::ScryptCost cost;
};

// The private keys of all entries, 32 bytes each in the order of the entries.
class PrivateKeys {
public:
    PrivateKeys() = default;
    explicit PrivateKeys(crypto::SecureBytes bytes) : m_bytes(std::move(bytes)) {}

    crypto::ByteView At(std::size_t index) const;
    void Append(crypto::ByteView key);
    void Erase(std::size_t index);
    crypto::ByteView All() const { return m_bytes; }

private:
    crypto::SecureBytes m_bytes;
};

class ContainerFile {
public:
    using Id = std::array<std::uint8_t, 16>;

    // A new container without entries and without protection.
    static ContainerFile Make();
    // @throws ProviderError ORK_E_DAMAGED, ORK_E_BAD_VERSION
    static ContainerFile Parse(asnt::View bytes);
    // Whether the bytes at a file's beginning are a container's.
    static bool HasMagic(asnt::View head);

    const Id& GetId() const { return m_id; }
    const std::vector<ContainerEntry>& Entries() const { return m_entries; }
    // The index of an entry. @throws ProviderError ORK_E_NO_KEY
    std::size_t IndexOf(std::uint32_t number) const;
    const ContainerEntry* Find(std::uint32_t number) const;

    // False until the first key comes in: then the secrets given set the protection.
    bool IsProtected() const { return m_isProtected; }
    // ORK_PROTECTED_* bits.
    DWORD Protection() const { return m_protection; }

    // Sets what protects the container from now on, with a new salt.
    // @param protection  ORK_PROTECTED_* bits, each of a secret that is given
    ContainerKey Protect(const ContainerSecrets& secrets, DWORD protection);
    // Whether `key` was made for this protection; says nothing about the password.
    bool Suits(const ContainerKey& key) const;
    // Makes the key and checks it. @throws ProviderError 86, ORK_E_PERMISSION
    ContainerKey Unlock(const ContainerSecrets& secrets) const;
    // @throws ProviderError 86 when the key is not this container's, ORK_E_DAMAGED when what it protects was changed
    PrivateKeys Open(const ContainerKey& key) const;

    std::uint32_t AddEntry(ContainerEntry entry);
    void EraseEntry(std::size_t index) { m_entries.erase(m_entries.begin() + static_cast<std::ptrdiff_t>(index)); }
    ContainerEntry& At(std::size_t index) { return m_entries[index]; }

    // The file's bytes, one revision on. A container that is not protected has no entries and takes no key.
    IdentObj Write(const ContainerKey* key, const PrivateKeys& keys);

private:
    IdentObj WriteHead() const;
    IdentObj WriteEntries() const;
    void ReadEntries(asnt::View bytes);
    // What the sealed part vouches for: everything before it.
    IdentObj m_open;
    std::vector<std::uint8_t> m_sealed;

    Id m_id{};
    bool m_isProtected = false;
    DWORD m_protection = 0;
    std::uint64_t m_revision = 0;
    crypto::ScryptCost m_cost;
    std::array<std::uint8_t, 16> m_salt{};
    std::vector<std::uint8_t> m_verifier;
    std::uint32_t m_nextNumber = 1;
    std::vector<ContainerEntry> m_entries;
};

}  // namespace nalhost::provider
