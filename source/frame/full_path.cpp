#include "frame/full_path.h"

#include <filesystem>

#include "too/path.h"

namespace nal {

CTOOString FullPath(const CTOOString& path) {
    CTOOString folder;
    CTOOString name;
    if (!storedev::ParseFullPath(path, folder, name)) folder = ".";
    std::error_code error;
    const std::filesystem::path full = std::filesystem::canonical(folder.str(), error);
    return error ? path : storedev::MakeFullPath(full.string(), name);
}

}  // namespace nal
