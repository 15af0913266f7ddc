// Files by descriptor: opening, whole writes, copies. All retry when interrupted; failures leave errno.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "certstorage/unique_fd.h"

namespace nal {

/// Opens with O_CLOEXEC; closed, with errno, when it cannot.
UniqueFd OpenFd(const std::string& path, int flags, mode_t mode = 0);

bool WriteAt(int descriptor, const void* data, std::size_t size, off_t offset);

/// Copies the first `size` bytes to the same place, by reference where the file system can. EIO when there are fewer.
bool CopyBytes(int from, int to, std::uint64_t size);

/// Makes names in the folder of `path`, which holds a slash, durable.
bool SyncFolderOf(const std::string& path);

/// The path without symbolic links; its last part need not be there yet.
std::string RealPath(const std::string& path);

}  // namespace nal
