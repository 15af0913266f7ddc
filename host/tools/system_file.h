// System calls on files, in one place: each retries when interrupted, every change of the file system can be made to
// fail by too/testing.h, and every failure becomes an XTOOFile that names the file.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <string>
#include <utility>

#include "too/string.h"

namespace nalhost {

// Owns a descriptor.
class UniqueDescriptor {
public:
    explicit UniqueDescriptor(int descriptor = -1) noexcept : m_descriptor(descriptor) {}
    UniqueDescriptor(UniqueDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    UniqueDescriptor& operator=(UniqueDescriptor&& other) noexcept {
        if (this != &other) {
            Reset();
            m_descriptor = std::exchange(other.m_descriptor, -1);
        }
        return *this;
    }
    ~UniqueDescriptor() { Reset(); }

    int Get() const noexcept { return m_descriptor; }
    bool IsOpen() const noexcept { return m_descriptor >= 0; }
    int Release() noexcept { return std::exchange(m_descriptor, -1); }
    void Reset() noexcept {
        if (m_descriptor >= 0) close(m_descriptor);
        m_descriptor = -1;
    }

private:
    int m_descriptor;
};

// Throws 28 for a path that is empty or holds a zero byte. Returns the path as the system takes it.
const char* SystemPath(const CTOOString& path, const char* action);

// Opens with O_CLOEXEC and without blocking on a pipe; refuses what is neither a regular file nor a character device.
// Returns a closed descriptor, with errno set, when the system refuses.
UniqueDescriptor TryOpenFile(const char* path, int flags, unsigned permissions);
UniqueDescriptor OpenFile(const CTOOString& path, int flags, unsigned permissions, const char* action);

// Whole reads and writes, from the position or at an offset. Reads give fewer bytes only at the end of the file.
std::size_t ReadFrom(int descriptor, void* buffer, std::size_t size, const CTOOString& name);
std::size_t ReadAt(int descriptor, void* buffer, std::size_t size, off_t offset, const CTOOString& name);
void WriteTo(int descriptor, const void* data, std::size_t size, const CTOOString& name);
void WriteAt(int descriptor, const void* data, std::size_t size, off_t offset, const CTOOString& name);

void SyncDescriptor(int descriptor, const CTOOString& name);
void SetDescriptorLength(int descriptor, off_t length, const CTOOString& name);
// A file without a name in the folder of `path`, for reading and writing, with permissions 0600. Returns a closed descriptor
// where the file system knows no such files; throws for every other failure, naming `name`.
UniqueDescriptor OpenUnnamedFile(const CTOOString& path, const CTOOString& name);
// Gives such a file a name. False, with nothing changed, when the name is taken; throws for every other failure, naming `name`.
bool LinkFile(int descriptor, const CTOOString& path, const CTOOString& name);
void RenameFile(const CTOOString& from, const CTOOString& to);
void SyncFolderOf(const CTOOString& file);

// flock without a time limit; `operation` is LOCK_SH, LOCK_EX or LOCK_UN. Throws 13.
void LockDescriptor(int descriptor, int operation, const CTOOString& name);

// Whether the open file is the one that the path names now; false when the path names none.
bool IsFileAt(int descriptor, const char* path);

// The folder part of a path as the system takes it: "." for a bare name.
std::string FolderOf(const CTOOString& file);

// 16 random hexadecimal digits, for names that nobody can guess.
std::string RandomDigits();

[[noreturn]] void ThrowFile(int systemError, int otherwise, const CTOOString& file, const char* action);

}  // namespace nalhost
