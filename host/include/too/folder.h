/// Folders and what is in them.
#pragma once

#include <cstddef>
#include <vector>

#include "too/export.h"
#include "too/string.h"

/// Calls on folders. Failures throw XTOOFile, which names the folder. Thread-safe.
class NAL_HOST_EXPORT CTOOFolder {
public:
    /// Makes a folder and those above it that are missing; one that is there already is fine.
    /// @param permissions  of every folder made, less the umask
    /// @throws XTOOFile 11 when a part of the path is there and no folder
    static void MakeFolder(const CTOOString& path, unsigned permissions = 0777);

    /// @return whether `path` names a folder, through links; false when that cannot be told
    static bool Exists(const CTOOString& path);

    /// Removes an empty folder. @return false when there was none. @throws XTOOFile 8 when it is not empty
    static bool Delete(const CTOOString& path);

    /// Finds a name in `folder` that nothing has.
    ///
    /// @param name  the name wanted, without a folder; where it is taken, "~1", "~2", ... is put before its extension
    /// @return the path of the free name. Another process may take it first: open it with CTOOFile mode "wx".
    /// @throws XTOOFile 28 for a name that is empty or holds a slash, 8 when no name is free after 10000 trials
    static CTOOString UniqueFileName(const CTOOString& folder, const CTOOString& name);

    /// Waits until the names in a folder are on the disk. @throws XTOOFile 6
    static void Sync(const CTOOString& folder);
};

/// The names in a folder that match a mask, in byte order.
///
/// The folder is read once, when the object is made, so what happens there afterwards does not disturb the walk.
/// One object is for one thread at a time.
class NAL_HOST_EXPORT CTOOFindFile {
public:
    enum Kind { c_files, c_folders, c_all };

    /// @param folder  the folder; one that is missing gives no names
    /// @param mask    "*" stands for any bytes and "?" for one byte; names that begin with a dot match only a mask that
    ///                begins with one; "." and ".." never match
    /// @param kind    links count as what they lead to, and those that lead nowhere as files
    /// @throws XTOOFile 3 or 5 when the folder cannot be read, 11 when it is none
    explicit CTOOFindFile(const CTOOString& folder, const CTOOString& mask = "*", Kind kind = c_files);

    /// Gives the next name, without the folder. @return false, and `name` unchanged, behind the last one
    bool Next(CTOOString& name);

    /// @return all names, those that Next gave included
    const std::vector<CTOOString>& GetNames() const noexcept { return m_names; }

private:
    std::vector<CTOOString> m_names;
    std::size_t m_next = 0;
};
