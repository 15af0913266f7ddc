// Contexts behind handles: a container, the secrets given for it, and what ORKSetProvParam set.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/provider/container.h"
#include "host/provider/key.h"

namespace nalhost::provider {

// Thread-safe: every call holds the context's mutex. A key's mutex is never held when a context's is taken.
class Context {
public:
    // Without a container. @param container  nothing: a verify-only context
    Context(std::optional<Container> container, std::string givenName, std::uint32_t entry);

    bool HasContainer() const { return m_container.has_value(); }

    void SetPassword(std::string_view text);
    void SetPin(std::string_view text);
    // 32 bytes, or empty to take it away.
    void SetProtectionKey(crypto::SecureBytes key);
    void ChangePassword(std::string_view text);
    void ChangePin(std::string_view text);

    // Parameter 94 or 95: the set, or the algorithm, of keys to be made. @throws ProviderError ORK_E_BAD_ALGID
    void SetKeyParams(DWORD keyType, std::string_view oid);
    std::string GetKeyParams(DWORD keyType) const;
    void SetHashParams(std::string_view oid);
    const crypto::HashParameters& HashParams() const;
    void SetCipherParams(std::string_view oid);
    const crypto::CipherParameters& CipherParams() const;

    // The format of a key to be made. @param algId  a key type or an ALG_ID @throws ProviderError ORK_E_BAD_ALGID
    KeyFormat FormatFor(DWORD algId) const;

    const std::string& GivenName() const { return m_givenName; }
    std::string UniqueName() const;
    DWORD Protection();

    // The record that parameter 1 gives next. @throws ProviderError ORK_E_NO_MORE_ITEMS
    std::size_t NextAlgorithm(bool first, std::size_t count);
    // The name that parameter 2 gives next: an entry's, which becomes current, or a container's.
    std::string NextEntry(bool first);

    IdentObj EntryCertificate();
    IdentObj EntryInfo();
    void DeleteEntry();

    // The private key of the current entry, or of the first one of the type. @throws ProviderError ORK_E_NO_KEY
    AsymmetricKeyRef OpenKey(DWORD keyType);
    // The key that a hash without a key signs with.
    AsymmetricKeyRef SigningKey(DWORD keyType);
    // Adds a pair to the container; its entry becomes current. @throws ProviderError ORK_E_EXISTS
    AsymmetricKeyRef AddKey(const KeyFormat& format, DWORD keyType, crypto::PrivateKey key);
    void MakeCurrent(std::uint32_t entry);

    IdentObj Certificate(std::uint32_t entry);
    void SetCertificate(std::uint32_t entry, asnt::View certificate);
    std::string EntryName(std::uint32_t entry) const;

private:
    struct KeyParams {
        DWORD keyType;
        std::string oid;
    };

    Container& Opened();
    const Container& Opened() const;
    // The current entry, by default the first. @throws ProviderError ORK_E_NOT_FOUND when there is none
    const ContainerEntry& CurrentEntry();
    // The same, null when it is gone. @throws ProviderError ORK_E_NO_KEY for a container without entries
    const ContainerEntry* PeekCurrent(const ContainerFile& file) const;
    // The pair of an entry, which becomes current.
    AsymmetricKeyRef Open(std::uint32_t number);
    ContainerSecrets CopySecrets() const;

    mutable std::mutex m_mutex;
    std::optional<Container> m_container;
    std::string m_givenName;
    ContainerSecrets m_secrets;
    std::uint32_t m_current;  // 0: the first
    std::uint32_t m_enumerated = 0;
    std::size_t m_algorithm = 0;
    std::vector<std::string> m_containers;
    std::size_t m_nextContainer = 0;
    std::vector<KeyParams> m_keyParams;  // the latest last
    const crypto::HashParameters* m_hash;
    const crypto::CipherParameters* m_cipher;
};

}  // namespace nalhost::provider
