// A key container on the disk: its path, its lock, and the file behind both.
#pragma once

#include <sys/stat.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/provider/container_file.h"

namespace nalhost::provider {

// A container's name as callers give it: a path or a bare name, and perhaps "#" and the number of an entry.
struct ContainerName {
    std::string path;         // absolute when the file exists or its folder does
    std::uint32_t entry = 0;  // 0: none was named

    // The container of this name. @throws ProviderError ORK_E_BAD_KEYSET_NAME
    static ContainerName Parse(std::string_view name);
    // The same for one to be made, whose name must not look like that of an entry.
    static ContainerName ParseNew(std::string_view name);
};

struct OpenedEntry {
    ContainerEntry entry;
    crypto::SecureBytes privateKey;
};

// One opened container. What was read is kept until the file changes; the key made from the secrets is kept until the
// protection changes, so that only the first use of a key pays for the derivation.
//
// Every change reads the file anew under the container's inter-process lock, writes a temporary file, makes it durable
// and renames it: several processes may work on one container, and a failure leaves it as it was. Not synchronised: the
// context that owns it is.
class Container {
public:
    // Makes the file, in the provider's directory when the name is bare. @throws ProviderError ORK_E_EXISTS; XTOOFile
    static Container Create(const ContainerName& name);
    // @throws ProviderError ORK_E_BAD_KEYSET, ORK_E_DAMAGED, ORK_E_BAD_VERSION; XTOOFile
    static Container Open(const ContainerName& name);
    // Removes the file. @throws as Open, and ORK_E_DAMAGED for a file that is no container
    static void Delete(const ContainerName& name);
    // The names of all containers in the provider's directory, sorted.
    static std::vector<std::string> List();

    // The path without links; opens the container from anywhere.
    const std::string& UniqueName() const { return m_path; }

    // The file as it is now. @throws as Open, when it went away or was replaced by another container too
    const ContainerFile& File();

    // An entry with its private key; both are of one state of the file, which the secrets have vouched for.
    // @throws ProviderError 86, ORK_E_PERMISSION, ORK_E_NO_KEY, ORK_E_DAMAGED
    OpenedEntry OpenEntry(std::uint32_t number, const ContainerSecrets& secrets);

    // Lets `edit` change the file and its keys, and writes both. @throws as File and OpenEntry
    void Change(const ContainerSecrets& secrets, const std::function<void(ContainerFile&, PrivateKeys&)>& edit);
    // Protects all keys by `newSecrets` from now on. Only the secret of the bit `changed` comes or goes: the others that
    // the container did not ask for were never checked, so it does not begin to ask for them.
    void ChangeProtection(const ContainerSecrets& secrets, const ContainerSecrets& newSecrets, DWORD changed);
    // The secrets are others now: they are checked again.
    void ForgetKey() { m_key.reset(); }

private:
    // What tells one state of a file from another without reading it.
    struct Stamp {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec modified{};
        timespec changed{};

        static Stamp Of(const struct stat& status);
        bool operator==(const Stamp& other) const;
    };

    explicit Container(std::string path) : m_path(std::move(path)) {}
    void Load();
    void Store(ContainerFile file, const ContainerKey* key, const PrivateKeys& keys);
    const ContainerKey& Unlock(const ContainerSecrets& secrets);

    std::string m_path;
    Stamp m_stamp;
    std::optional<ContainerFile> m_file;
    std::optional<ContainerKey> m_key;
};

}  // namespace nalhost::provider
