// The container that a command works with, and its password.
#pragma once

#include <string>

#include "cli/outcome.h"
#include "cli/secret.h"

namespace cli {

class Options;

/// Which container, by whose password and PIN.
struct UserOption {
    std::string container;
    PasswordSource password;
    PasswordSource pin;

    /// Adds --key CONTAINER and the options of its password and PIN.
    void Define(Options& options, bool required = true);
    /// Adds the password and PIN alone, for commands whose container is positional.
    void DefineSecrets(Options& options);
};

/// What a container is, without a password. @throws Fault when there is none
CNALUserContainerInfo ContainerInfo(const std::string& container);

/// Words for the protection bits.
Json ProtectionJson(DWORD protection);
/// One key of a container.
Json ContainerKeyJson(const CNALUserKeyInfo& key);

/// Opens a container, asks for the password and PIN that it wants, and checks them.
/// @param password  receives the password; empty when there is none
void OpenUser(CNALUser& user, const UserOption& option, Secret& password, Secret& pin);
void OpenUser(CNALUser& user, const UserOption& option);

/// The certificate of a container's key that `id` means or, when that is empty, the only one that may be used for signing.
CNALCertContext UserCertificate(const CNALUser& user, const std::string& id, bool forSigning);

}  // namespace cli
