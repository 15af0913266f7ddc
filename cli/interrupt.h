// Ctrl-C and the other signals that ask a program to end.
//
// The first one only raises a flag: long work looks at it through its progress handler, reads and prompts by their EINTR, and all of
// them end as if they had failed, so nothing half-made stays. One that comes more than two seconds later ends the program at once.
#pragma once

#include <string>
#include <vector>

namespace cli {

void InstallSignalHandlers();

/// Whether a signal asked to end.
bool Interrupted();

/// @throws Stopped when one did
void ThrowIfInterrupted();

/// Waits until a descriptor has something to read, or is at its end. @throws Stopped when a signal asked to end, before or meanwhile
void WaitReadable(int descriptor);

/// Something that stays when the program is stopped from here on; the operator is told of it.
void RecordEffect(std::string what);
const std::vector<std::string>& Effects();

/// Ends the program by the signal that came, so that a shell sees it.
[[noreturn]] void EndBySignal();

}  // namespace cli
