#include "too/folder.h"

#include <dirent.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "host/tools/system_file.h"
#include "too/path.h"
#include "too/status.h"

using namespace nalhost;

namespace {

constexpr unsigned c_mostTrials = 10000;

struct FolderCloser {
    void operator()(DIR* folder) const { closedir(folder); }
};

bool IsFolder(const char* path) {
    struct stat info {};
    return stat(path, &info) == 0 && S_ISDIR(info.st_mode);
}

// Steps back to the last "*" when a byte does not match, so the time is at most the product of the lengths.
bool Matches(std::string_view name, std::string_view mask) {
    std::size_t n = 0;
    std::size_t m = 0;
    std::size_t star = std::string_view::npos;
    std::size_t afterStar = 0;
    while (n < name.size()) {
        if (m < mask.size() && mask[m] == '*') {
            star = m++;
            afterStar = n;
        } else if (m < mask.size() && (mask[m] == '?' || mask[m] == name[n])) {
            ++m;
            ++n;
        } else if (star != std::string_view::npos) {
            m = star + 1;
            n = ++afterStar;
        } else {
            return false;
        }
    }
    return mask.find_first_not_of('*', m) == std::string_view::npos;
}

bool EntryIsFolder(DIR* folder, const dirent& entry) {
    if (entry.d_type == DT_DIR) return true;
    if (entry.d_type != DT_UNKNOWN && entry.d_type != DT_LNK) return false;
    struct stat info {};
    return fstatat(dirfd(folder), entry.d_name, &info, 0) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

void CTOOFolder::MakeFolder(const CTOOString& path, unsigned permissions) {
    const char* action = "cannot make the folder";
    std::string part = SystemPath(path, action);
    if (IsFolder(part.c_str())) return;
    for (std::size_t end = part.find('/', 1);; end = part.find('/', end + 1)) {
        const std::string folder = part.substr(0, end);
        const int error = mkdir(folder.c_str(), permissions) == 0 ? 0 : errno;
        if (error != 0 && !IsFolder(folder.c_str())) {
            // Something of that name is there and no folder: say so, rather than that it exists.
            ThrowFile(error == EEXIST ? ENOTDIR : error, TOO_E_WRITE, folder, action);
        }
        if (end == std::string::npos) break;
    }
}

bool CTOOFolder::Exists(const CTOOString& path) {
    return path.find(std::string_view("\0", 1)) == CTOOString::npos && IsFolder(path.c_str());
}

bool CTOOFolder::Delete(const CTOOString& path) {
    const char* action = "cannot remove the folder";
    if (rmdir(SystemPath(path, action)) == 0) return true;
    if (errno == ENOENT) return false;
    ThrowFile(errno, TOO_E_WRITE, path, action);
}

CTOOString CTOOFolder::UniqueFileName(const CTOOString& folder, const CTOOString& name) {
    if (name.empty() || name.find("/") != CTOOString::npos) {
        throw XTOOFile(TOO_E_BAD_ARGUMENT, name, "no plain file name:");
    }
    const std::size_t dot = name.str().rfind('.');
    const bool hasExtension = dot != CTOOString::npos && dot != 0;
    const CTOOString stem = hasExtension ? name.substr(0, dot) : name;
    const CTOOString extension = hasExtension ? name.substr(dot) : CTOOString();
    for (unsigned trial = 0; trial < c_mostTrials; ++trial) {
        const CTOOString number = trial == 0 ? CTOOString() : CTOOString(fmt::format("~{}", trial));
        CTOOString path = storedev::MakeFullPath(folder, stem + number + extension);
        struct stat info {};
        if (lstat(SystemPath(path, "cannot use the name"), &info) != 0) {
            if (errno == ENOENT) return path;
            ThrowFile(errno, TOO_E_OPEN, path, "cannot look up");
        }
    }
    throw XTOOFile(TOO_E_FILE_EXISTS, storedev::MakeFullPath(folder, name), "no free name beside");
}

void CTOOFolder::Sync(const CTOOString& folder) {
    SyncFolderOf(storedev::MakeFullPath(SystemPath(folder, "cannot write to disk"), "."));
}

CTOOFindFile::CTOOFindFile(const CTOOString& folder, const CTOOString& mask, Kind kind) {
    const char* action = "cannot read the folder";
    const std::unique_ptr<DIR, FolderCloser> handle(opendir(SystemPath(folder, action)));
    if (!handle) {
        if (errno == ENOENT) return;
        ThrowFile(errno, TOO_E_READ, folder, action);
    }
    const bool hiddenToo = !mask.empty() && mask[0] == '.';
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(handle.get());
        if (!entry) break;
        const std::string_view name = entry->d_name;
        if (name == "." || name == ".." || (name[0] == '.' && !hiddenToo) || !Matches(name, mask.view())) continue;
        if (kind != c_all && EntryIsFolder(handle.get(), *entry) != (kind == c_folders)) continue;
        m_names.emplace_back(name);
    }
    if (errno != 0) ThrowFile(errno, TOO_E_READ, folder, action);
    std::sort(m_names.begin(), m_names.end());
}

bool CTOOFindFile::Next(CTOOString& name) {
    if (m_next == m_names.size()) return false;
    name = m_names[m_next++];
    return true;
}
