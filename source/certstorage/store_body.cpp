#include "certstorage/store_body.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "certstorage/invariant.h"
#include "certstorage/tree_verify.h"
#include "too/path.h"

namespace nal {
namespace {

// Which file it is, and everything that tells whether its content is still the one that was verified.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};

    static FileState Of(const struct stat& info) {
        return {info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
    }
    std::pair<dev_t, ino_t> Identity() const { return {device, inode}; }
    bool SameContent(const FileState& other) const {
        return size == other.size && Same(modified, other.modified) && Same(changed, other.changed);
    }

private:
    static bool Same(const timespec& a, const timespec& b) { return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec; }
};

struct OpenStores {
    struct File {
        std::weak_ptr<StoreBody> body;
        std::optional<FileState> sound;  // the state in which it was verified, or in which this process left it
    };

    std::mutex mutex;  // held while a file is opened or closed, so nobody opens one that is still being written out
    std::map<std::pair<dev_t, ino_t>, File> files;

    static OpenStores& Get() {
        static OpenStores stores;
        return stores;
    }
};

std::optional<FileState> StateOf(const std::string& path) {
    struct stat info{};
    if (stat(path.c_str(), &info) != 0) return std::nullopt;
    return FileState::Of(info);
}

// Not a socket, a device or a folder: Berkeley DB would wait on some of them for ever.
int CheckFileType(const std::string& path) {
    struct stat info{};
    if (stat(path.c_str(), &info) != 0) return errno == ENOENT ? 0 : errno;
    if (S_ISDIR(info.st_mode)) return EISDIR;
    return S_ISREG(info.st_mode) ? 0 : EUCLEAN;
}

int Verify(const std::string& path) {
    std::string finding;
    const int error = VerifyTreeFile(path, &finding);
    if (error != 0) LogError(NAL_HERE(kStoreSource), "store file " + path + " is refused: " + finding);
    return error;
}

}  // namespace

std::shared_ptr<StoreBody> StoreBody::OpenFile(const std::string& path) {
    OpenStores& stores = OpenStores::Get();
    const std::lock_guard lock(stores.mutex);

    int error = path.empty() ? EINVAL : CheckFileType(path);
    const std::optional<FileState> before = error == 0 ? StateOf(path) : std::nullopt;
    if (before) {
        OpenStores::File& file = stores.files[before->Identity()];
        if (auto body = file.body.lock()) return body;
        if (!file.sound || !file.sound->SameContent(*before)) error = Verify(path);
        if (error == 0) file.sound = before;
    }
    auto body = std::make_shared<StoreBody>();
    if (error == 0) error = body->m_tree.OpenFile(path);
    struct stat opened{};
    if (error == 0 && fstat(body->m_tree.FileDescriptor(), &opened) != 0) error = errno;
    // Replaced between the verification and the opening: what was verified is not what was opened.
    if (error == 0 && before && FileState::Of(opened).Identity() != before->Identity()) error = EAGAIN;
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    stores.files[FileState::Of(opened).Identity()].body = body;
    return body;
}

void StoreBody::Close(std::shared_ptr<StoreBody>& body) {
    if (body == nullptr) return;
    if (!body->HasFile()) {
        body.reset();
        return;
    }
    OpenStores& stores = OpenStores::Get();
    const std::lock_guard lock(stores.mutex);
    struct stat file{};
    {
        const std::lock_guard treeLock(body->m_tree.Mutex());
        if (body->m_tree.Sync() != kTreeOk) LogError(NAL_HERE(kStoreSource), "a store file could not be written out");
        if (fstat(body->m_tree.FileDescriptor(), &file) != 0) file = {};
    }
    const std::string path = body->m_tree.Path();
    body.reset();
    const auto entry = stores.files.find(FileState::Of(file).Identity());
    if (entry == stores.files.end() || !entry->second.body.expired()) return;
    // What this process has just closed needs no verification when it opens it again.
    const std::optional<FileState> after = StateOf(path);
    if (after && after->Identity() == entry->first) {
        entry->second.sound = after;
    } else {
        stores.files.erase(entry);
    }
}

const std::string& SystemStorePath() {
    static const std::string path = GetTarnCSPPath().str() + "/ormatek/storage/cstore" + ".dat";
    return path;
}

}  // namespace nal
