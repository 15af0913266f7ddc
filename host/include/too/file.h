/// Files: open, read, write; and output files that appear whole or not at all.
#pragma once

#include <cstddef>
#include <cstdint>

#include "too/export.h"
#include "too/ident_obj.h"
#include "too/status.h"
#include "too/string.h"

/// An open file.
///
/// Paths are bytes; one that is empty or holds a zero byte is refused with code 28. Only regular files and character
/// devices are opened: a folder, pipe or socket gives code 10 at once and never blocks. Every descriptor is closed on
/// exec. Nothing is buffered here, so data are best handed over in large pieces.
///
/// Every failure throws XTOOFile, which names the file: 4 no such file, 3 access refused, 9 disk full, 10 not a file,
/// 15 too many open files, otherwise 2 (open), 5 (read), 6 (write), 7 (seek); a call on a file that is not open is 42.
/// Reading calls are const, since they leave the file's content alone; they move the position all the same.
/// One object is for one thread at a time.
class NAL_HOST_EXPORT CTOOFile {
public:
    enum Origin { c_begin, c_current, c_end };

    CTOOFile() = default;
    /// Opens, as Open does.
    CTOOFile(const CTOOString& path, const char* mode) { Open(path, mode); }
    CTOOFile(CTOOFile&& other) noexcept;
    CTOOFile& operator=(CTOOFile&& other) noexcept;
    CTOOFile(const CTOOFile&) = delete;
    CTOOFile& operator=(const CTOOFile&) = delete;
    /// Closes without reporting; a writer that wants to know calls Close.
    ~CTOOFile();

    /// Opens a file; one that is open already is closed first.
    ///
    /// @param mode  "r" an existing file for reading, or "w" a new or emptied one for writing; then any of
    ///              "+" reading and writing, "b" (as it is always), "c" written data and, for a new file, its name
    ///              reach the disk before Close returns, "x" with "w": the file must be new (8 if it is there), links
    ///              are not followed, and its permissions are 0600. Other files are created with 0666 less the umask.
    /// @throws XTOOFile as the class says, 28 for another mode
    void Open(const CTOOString& path, const char* mode);

    bool IsOpen() const noexcept { return m_descriptor >= 0; }
    /// @return the path as it was given to Open, kept after Close
    const CTOOString& GetName() const noexcept { return m_name; }
    /// @return the descriptor, which stays the file's; -1 when closed
    int GetDescriptor() const noexcept { return m_descriptor; }

    /// Reads at the position and moves it.
    /// @return the bytes read; fewer than `size` only at the end of the file
    std::size_t Read(void* buffer, std::size_t size) const;

    /// Reads exactly `size` bytes. @throws XTOOFile 5 when the file ends before
    void ReadExactly(void* buffer, std::size_t size) const;

    /// Writes all `size` bytes at the position and moves it. On failure part of them may have been written.
    void Write(const void* data, std::size_t size);
    void Write(const IdentObj& data) { Write(data.GetData(), data.GetSize()); }

    /// Moves the position, which may lie behind the end. @return the position from the beginning
    std::uint64_t Seek(std::int64_t offset, Origin origin = c_begin) const;
    /// @return the position from the beginning
    std::uint64_t Tell() const { return Seek(0, c_current); }

    /// @return the length in bytes
    std::uint64_t Length() const;
    /// Cuts the file, or lengthens it with zeros. The position stays.
    void SetLength(std::uint64_t length);

    /// With mode "c" waits until what was written is on the disk; without it there is nothing left to do.
    void Flush();
    /// Waits until what was written is on the disk, whatever the mode.
    void Sync();
    /// Closes, with mode "c" after a Sync. Does nothing when closed. The file is closed even when this throws.
    void Close();

    /// @return whether `path` names something other than a folder, through links; false when that cannot be told
    static bool Exists(const CTOOString& path);
    /// Removes a file (or link). @return false when there was none. @throws XTOOFile for every other failure
    static bool Delete(const CTOOString& path);
    /// Gives a file another name, replacing a file of that name. Between file systems the content is copied whole
    /// or not at all, then the source removed. When it returns, the new name is on the disk.
    static void MoveFile(const CTOOString& from, const CTOOString& to);
    /// Copies content and permissions of a regular file, by reference where the file system can. The target appears
    /// whole or not at all and replaces a file of that name.
    static void CopyFile(const CTOOString& from, const CTOOString& to);
    /// Reads a whole file. @throws XTOOFile 12 when it holds more than `limit` bytes
    static IdentObj ReadWhole(const CTOOString& path, std::uint32_t limit = 0xFFFFFFFFU);

private:
    friend class CTOOWholeFile;

    void RequireOpen() const;
    void CloseQuietly() noexcept;

    int m_descriptor = -1;
    bool m_commit = false;
    bool m_created = false;
    CTOOString m_name;
};

/// An output file that appears whole or not at all.
///
/// The content goes to a temporary file beside the target, made exclusively with permissions 0600 and named
/// ".<target>.<random>.tmp". Commit makes it durable and renames it over the target. Without Commit, and after any
/// failure, the target is what it was and the temporary file is gone; after a crash only the temporary file may be
/// left.
///
/// The target gets the permissions (and, where the system lets us, owner and group) of the file that it replaces, or
/// 0666 less the umask. Where the group cannot be kept, the new one gets no more than everybody does. A link of the target's name is replaced, not followed. Errors are those of CTOOFile and name
/// the target. One object is for one thread at a time.
class NAL_HOST_EXPORT CTOOWholeFile {
public:
    /// Says that the temporary file is to have no name.
    struct UnnamedTag {};
    static constexpr UnnamedTag Unnamed{};

    /// Prepares the output. @throws XTOOFile 10 when the target exists and is neither a regular file nor a link
    explicit CTOOWholeFile(const CTOOString& target);
    /// The same with fixed permissions of the target, for files that hold secrets.
    CTOOWholeFile(const CTOOString& target, unsigned permissions);
    /// The same for content that nobody may find before it is complete, not even after a crash: the temporary file has no
    /// name until Commit. Commit gives it the target's name at once when there is no such file; else it has a name like
    /// an ordinary temporary file for the moment before the renaming. Where the file system knows no unnamed files it
    /// is an ordinary temporary file all along.
    CTOOWholeFile(const CTOOString& target, UnnamedTag);
    CTOOWholeFile(const CTOOWholeFile&) = delete;
    CTOOWholeFile& operator=(const CTOOWholeFile&) = delete;
    /// Removes the temporary file unless it was committed.
    ~CTOOWholeFile();

    /// @return the temporary file, open for writing and reading until Commit
    CTOOFile& GetFile() noexcept { return m_file; }
    void Write(const void* data, std::size_t size);
    void Write(const IdentObj& data) { Write(data.GetData(), data.GetSize()); }

    /// Puts the file in place. When it returns, content and name are on the disk.
    /// @throws XTOOFile; the target is then as it was, unless only the last step failed (making the name durable)
    void Commit();

    /// Writes `size` bytes as the whole content of `target`.
    static void Store(const CTOOString& target, const void* data, std::size_t size);

private:
    CTOOString Prepare();
    void OpenNamed(const CTOOString& temporary);
    bool OpenUnnamed(const CTOOString& temporary);
    bool LinkUnnamed();

    CTOOString m_target;
    CTOOString m_temporary;  // removed by the destructor unless it is empty
    CTOOString m_laterName;  // of an unnamed file, for when the target is there already
    CTOOFile m_file;
    unsigned m_permissions;
    bool m_fixedPermissions;
};
