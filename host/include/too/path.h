/// Paths: taking them apart, putting them together, and where this system keeps its files.
#pragma once

#include "too/export.h"
#include "too/string.h"

namespace storedev {

/// Splits a path at its last slash.
///
/// @param path    the path
/// @param folder  receives what stands before the last slash ("/" for the root); empty for a bare name
/// @param name    receives what stands behind it; empty when the path ends in a slash
/// @return true when the path is full, that is, says in which folder the file is; false for a bare name
NAL_HOST_EXPORT bool ParseFullPath(const CTOOString& path, CTOOString& folder, CTOOString& name);

/// Joins a folder and a name with exactly one slash between them, and a non-empty extension with one dot.
/// An empty folder gives the bare name.
NAL_HOST_EXPORT CTOOString MakeFullPath(const CTOOString& folder, const CTOOString& name,
                                        const CTOOString& extension = CTOOString());

}  // namespace storedev

namespace toolsunix {

/// Turns a path with backslashes into one of this system: "C:\dir\file" gives "/dir/file", "dir\file" "dir/file".
/// A path without a backslash is given back as it stands.
NAL_HOST_EXPORT CTOOString FilenameConvertor(const CTOOString& path);

}  // namespace toolsunix

/// Gives the folder under which this system keeps its files: $NAL_HOME, else $XDG_DATA_HOME/nal when that is an
/// absolute path, else .local/share/nal in the user's home folder. The environment is looked at in each call, and not
/// at all in a process with raised privileges. The folder need not exist.
/// @throws XTOOStatus 42 when the user has no home folder either. Safe from threads that do not change the environment.
NAL_HOST_EXPORT CTOOString TOOGetHomePath();

/// Gives the provider's directory, TOOGetHomePath() followed by "/csp". Throws as that does.
NAL_HOST_EXPORT CTOOString GetTarnCSPPath();
