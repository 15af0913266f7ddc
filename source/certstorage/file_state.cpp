#include "certstorage/file_state.h"

#include <sys/stat.h>

namespace nal {
namespace {

FileState ToState(const struct stat& info) {
    return {info.st_ino,
            static_cast<std::uint64_t>(info.st_size),
            {info.st_mtim.tv_sec, info.st_mtim.tv_nsec},
            {info.st_ctim.tv_sec, info.st_ctim.tv_nsec}};
}

}  // namespace

std::optional<FileState> FileState::OfPath(const std::string& path) {
    struct stat info{};
    if (stat(path.c_str(), &info) != 0) return std::nullopt;
    return ToState(info);
}

std::optional<FileState> FileState::OfDescriptor(int descriptor) {
    struct stat info{};
    if (fstat(descriptor, &info) != 0) return std::nullopt;
    return ToState(info);
}

}  // namespace nal
