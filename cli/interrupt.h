// Ctrl-C, Ctrl-\ and the other signals that ask a program to end.
//
// The first one only raises a flag: long work looks at it through its progress handler, reads and prompts by their EINTR, and all of
// them end as if they had failed, so nothing half-made stays. One that comes more than two seconds later ends the program at once; even
// then no temporary folder stays.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace cli {

void InstallSignalHandlers();

/// Puts /dev/null in the place of standard descriptors that were closed from outside, opened so that their use fails: else the next
/// file to be opened, a store perhaps, would take such a number and get the program's messages.
void GuardStandardDescriptors();

/// Whether a signal asked to end.
bool Interrupted();

/// @throws Stopped when one did
void ThrowIfInterrupted();

/// Waits until a descriptor has something to read, or is at its end. @throws Stopped when a signal asked to end, before or meanwhile
void WaitReadable(int descriptor);

/// Writes all of a text to a descriptor. A reader that reads no more keeps no signal waiting.
/// @return 0, or the errno: EINTR when a signal asked to end, before or meanwhile
int WriteUnlessStopped(int descriptor, std::string_view text);

/// Something that stays when the program is stopped from here on; the operator is told of it.
void RecordEffect(std::string what);
const std::vector<std::string>& Effects();

/// Removes a folder with the files in it. Safe in a signal handler.
void RemoveFolder(const char* path);
/// The temporary folder that is removed when a second signal ends the program at once; empty: none. There is one at a time.
void RemoveWhenKilled(const std::string& folder);

/// Removes the temporary folder and ends the program by the signal that came, so that a shell sees it.
[[noreturn]] void EndBySignal();

}  // namespace cli
