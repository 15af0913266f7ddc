// Which file it is, and what tells whether its content is still the one that was seen.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nal {

/// The layout is also that of the lock file's record. The number of the device is no part of it: it may change with the next start
/// of the machine.
struct FileState {
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t modified[2] = {0, 0};  ///< time of the last write: seconds, nanoseconds
    std::int64_t changed[2] = {0, 0};   ///< time of the last change of status

    /// Nothing, with errno, when there is no such file or it cannot be told.
    static std::optional<FileState> OfPath(const std::string& path);
    static std::optional<FileState> OfDescriptor(int descriptor);

    bool SameFile(const FileState& other) const { return inode == other.inode; }
    bool operator==(const FileState& other) const = default;
};

}  // namespace nal
