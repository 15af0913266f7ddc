// The families of commands, a source file each.
#pragma once

namespace cli {

class Program;

void AddContainerCommands(Program& program);
void AddCertCommands(Program& program);
void AddCrlCommands(Program& program);
void AddTrustCommands(Program& program);
void AddRequestCommands(Program& program);
void AddSignCommands(Program& program);
void AddVerifyCommand(Program& program);
void AddSignaturesCommands(Program& program);
void AddEncryptCommands(Program& program);
void AddHashCommand(Program& program);
void AddNameCommand(Program& program);
void AddStoreCommands(Program& program);
void AddDhCommands(Program& program);
void AddSettingsCommand(Program& program);

}  // namespace cli
