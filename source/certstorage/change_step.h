// The steps of a change of a store's file, and the one way to make them.
#pragma once

#include <cerrno>

#include "too/testing.h"

namespace nal {

/// Everything that a change asks of the file system. docs/store-format.md tells what each is for.
enum class ChangeStep {
    WriteJournal,
    SyncJournal,
    NameJournal,
    SyncFolderForJournal,
    ChangeRecord,  ///< once for each record
    SyncTree,
    RestoreFile,
    SyncRestored,
    WriteCounter,
    RetireJournal,
    SyncFolderForRetired,
    RemoveRetired,
};

// A process may die before each step of these: tests/crash kills one there, and counts the steps that are really made, so that
// a step made and not listed fails the tests.

/// A change that is made. It holds from RetireJournal on.
inline constexpr ChangeStep kCommitSteps[] = {
    ChangeStep::WriteJournal, ChangeStep::SyncJournal,   ChangeStep::NameJournal,          ChangeStep::SyncFolderForJournal,
    ChangeStep::ChangeRecord, ChangeStep::SyncTree,      ChangeStep::WriteCounter,         ChangeStep::RetireJournal,
    ChangeStep::SyncFolderForRetired, ChangeStep::RemoveRetired,
};
/// A change that is undone.
inline constexpr ChangeStep kUndoSteps[] = {
    ChangeStep::RestoreFile,   ChangeStep::SyncRestored,         ChangeStep::WriteCounter,
    ChangeStep::RetireJournal, ChangeStep::SyncFolderForRetired, ChangeStep::RemoveRetired,
};

/// Makes a step: `work` says whether it went well, with errno else. Tests let a step fail, or the process die before it.
/// @return 0 or an errno
template <class Work>
int MakeStep(ChangeStep /*step*/, Work&& work) {
    if (const int error = too_testing::NextStepFails()) return error;
    return work() ? 0 : errno;
}

}  // namespace nal
