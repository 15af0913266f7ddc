#include "too/path.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "too/status.h"

namespace storedev {

bool ParseFullPath(const CTOOString& path, CTOOString& folder, CTOOString& name) {
    const std::string text(path.view());  // a copy: `folder` or `name` may be the path itself
    const std::size_t slash = text.rfind('/');
    if (slash == std::string::npos) {
        folder.clear();
        name = text;
        return false;
    }
    // The root keeps its slash; elsewhere a run of them counts as one.
    const std::size_t end = text.find_last_not_of('/', slash);
    folder = end == std::string::npos ? "/" : text.substr(0, end + 1);
    name = text.substr(slash + 1);
    return true;
}

CTOOString MakeFullPath(const CTOOString& folder, const CTOOString& name, const CTOOString& extension) {
    std::string path = folder.str();
    if (!path.empty() && path.back() != '/') path += '/';
    path += name.view();
    if (!extension.empty()) {
        if (extension[0] != '.') path += '.';
        path += extension.view();
    }
    return path;
}

}  // namespace storedev

namespace toolsunix {

CTOOString FilenameConvertor(const CTOOString& path) {
    std::string text = path.str();
    if (text.find('\\') == std::string::npos) return path;
    const bool hasDrive = text.size() > 2 && text[1] == ':' && text[2] == '\\' &&
                          ((text[0] >= 'A' && text[0] <= 'Z') || (text[0] >= 'a' && text[0] <= 'z'));
    if (hasDrive) text.erase(0, 2);
    for (char& c : text) {
        if (c == '\\') c = '/';
    }
    return text;
}

}  // namespace toolsunix

namespace {

std::string HomeFolder() {
    const char* home = secure_getenv("HOME");
    if (home && home[0] == '/') return home;
    std::vector<char> buffer(16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found && found->pw_dir &&
        found->pw_dir[0] == '/') {
        return found->pw_dir;
    }
    throw XTOOStatus(TOO_E_NOT_INITIALIZED, "no home folder: set NAL_HOME");
}

}  // namespace

CTOOString TOOGetHomePath() {
    const char* own = secure_getenv("NAL_HOME");
    if (own && *own) return own;
    const char* data = secure_getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') return storedev::MakeFullPath(data, "nal");
    return storedev::MakeFullPath(HomeFolder(), ".local/share/nal");
}

CTOOString GetTarnCSPPath() {
    return storedev::MakeFullPath(TOOGetHomePath(), "csp");
}
