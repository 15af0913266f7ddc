#include <sys/stat.h>

#include "cli/help.h"
#include "keycentre/program/commands.h"

int main(int argc, char** argv) {
    cli::ProgramText text;
    text.name = "nal-keycentre";
    text.summary = "the key centre: issues and revokes certificates of a network's users";
    text.description = {
        "nal-keycentre keeps the root of a network, issues certificates from requests, revokes them, and publishes CRLs, trust lists and users' lists. "
        "What it did is in the file centre.log of its folder.",
        "Passwords come from a prompt, --password-file or --password-fd, never from the command line. Exit codes: 0 good, 1 a check failed, 2 usage, "
        "3 input, 4 keys and passwords, 5 system."};
    text.environment = {{"NAL_HOME", "the folder under which everything is kept"},
                        {"NAL_LOG", "the level of log records on standard error"},
                        {"NO_COLOR", "when set, nothing is coloured"}};
    ::umask(S_IWGRP | S_IWOTH);

    cli::Program program(std::move(text));
    cli::AddHelpCommand(program);
    keycentre::AddFoundingCommands(program);
    keycentre::AddIssuingCommands(program);
    keycentre::AddRecordCommands(program);
    keycentre::AddListCommands(program);
    return program.Run({argv + 1, argv + argc});
}
