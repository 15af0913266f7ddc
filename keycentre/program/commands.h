// The commands of nal-keycentre, and what they share.
#pragma once

#include <string>

#include "cli/outcome.h"
#include "cli/program.h"
#include "cli/secret.h"
#include "keycentre/service/centre.h"
#include "keycentre/service/judge.h"

namespace keycentre {

/// The centre that a command works on, and the password of its keys.
struct CentreOption {
    std::string folder;
    cli::PasswordSource password;

    /// @param withKeys  whether the command signs
    void Define(cli::Options& options, bool withKeys);
    /// The folder that was named, else `keycentre` in the home folder.
    std::string Folder() const;
    /// Opens the centre without its keys.
    Centre Open() const;
    void OpenKeys(Centre& centre) const;
};

/// A serial number as `list` prints it. @throws cli::Fault
IdentObj ParseSerial(const std::string& text);
/// A name as text. @throws cli::Fault
CNALX509Name ParseName(const std::string& option, const std::string& text);
/// The words of a reason for revocation, and back.
unsigned ParseReason(const std::string& word);
const char* ReasonText(unsigned reason);

/// A record for scripts and people.
cli::Json RecordJson(const CertificateRecord& record);
/// "valid", "revoked", "expired", "not yet valid", "being issued"
std::string StandingOf(const CertificateRecord& record);

void AddFoundingCommands(cli::Program& program);  // init
void AddIssuingCommands(cli::Program& program);   // issue, serve-folder
void AddRecordCommands(cli::Program& program);    // revoke, entitle, list, export
void AddListCommands(cli::Program& program);      // crl, publish

}  // namespace keycentre
