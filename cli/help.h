// Help, manual pages and completion, all made of the definitions of the commands.
#pragma once

#include <string>

#include "cli/program.h"

namespace cli {

/// The help of a command.
std::string HelpOf(const CommandEntry& command, const Program& program, bool colour);
/// The help of a family or, for the empty name, of the program.
std::string HelpOf(const std::string& family, const Program& program, bool colour);

/// Writes <program>.1 and <program>-<family>.1 into a folder, which is made.
void WriteManualPages(const Program& program, const std::string& folder);

/// A script for bash that completes commands, options and files.
std::string BashCompletion(const Program& program);

/// Adds the command `help`.
void AddHelpCommand(Program& program);

}  // namespace cli
