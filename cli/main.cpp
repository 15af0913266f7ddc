#include "cli/commands.h"
#include "cli/help.h"
#include "cli/home.h"
#include "cli/program.h"

int main(int argc, char** argv) {
    std::string transport;
    cli::ProgramText text;
    text.name = "nal";
    text.summary = "certificates, keys, signatures and encryption with GOST algorithms";
    text.description = {
        "nal keeps certificates, keys and requests, signs and encrypts, with GOST algorithms.",
        "FILE may be \"-\" for standard input, OUT \"-\" for standard output. PEM and DER are told apart by their content. Passwords come from a "
        "prompt, --password-file or --password-fd, never from the command line."};
    text.environment = {{"NAL_HOME", "the folder under which everything is kept"},
                        {"NAL_LOG", "the level of log records on standard error"},
                        {"NO_COLOR", "when set, nothing is coloured"}};
    text.options = {{"--transport", "DIR", "The transport folder, in the place of the one in the settings", &transport}};
    text.prepare = [&](const std::string& words) {
        // A settings file that is damaged is no reason to give no help, nor to refuse to be set anew.
        if (words != "help") cli::UseHome(transport, words == "settings");
    };

    cli::Program program(std::move(text));
    cli::AddHelpCommand(program);
    cli::AddSignCommands(program);
    cli::AddVerifyCommand(program);
    cli::AddEncryptCommands(program);
    cli::AddHashCommand(program);
    cli::AddNameCommand(program);
    cli::AddSettingsCommand(program);
    cli::AddContainerCommands(program);
    cli::AddCertCommands(program);
    cli::AddCrlCommands(program);
    cli::AddTrustCommands(program);
    cli::AddRequestCommands(program);
    cli::AddSignaturesCommands(program);
    cli::AddDhCommands(program);
    cli::AddStoreCommands(program);
    return program.Run({argv + 1, argv + argc});
}
