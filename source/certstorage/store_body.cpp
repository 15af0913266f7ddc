#include "certstorage/store_body.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "certstorage/invariant.h"
#include "certstorage/store_file.h"
#include "too/path.h"

namespace nal {
namespace {

struct OpenStores {
    using Identity = StoreBody::Identity;
    struct File {
        std::weak_ptr<StoreBody> body;
        std::optional<FileState> sound;  // the state in which it was verified, or in which this process left it
    };

    std::mutex mutex;  // held while a file is opened or closed, so nobody opens one that is still being written out
    std::map<Identity, File> files;

    static OpenStores& Get() {
        static OpenStores stores;
        return stores;
    }
};

// Not a socket, a device or a folder: Berkeley DB would wait on some of them for ever.
// @return nothing for a file that is not there, with `error` 0
std::optional<OpenStores::Identity> Identify(const std::string& path, int& error) {
    struct stat info{};
    error = path.empty() ? EINVAL : 0;
    if (error != 0) return std::nullopt;
    if (stat(path.c_str(), &info) != 0) {
        error = errno == ENOENT ? 0 : errno;
        return std::nullopt;
    }
    if (!S_ISREG(info.st_mode)) error = S_ISDIR(info.st_mode) ? EISDIR : EUCLEAN;
    return OpenStores::Identity{info.st_dev, info.st_ino};
}

}  // namespace

std::shared_ptr<StoreBody> StoreBody::OpenFile(const std::string& path) {
    OpenStores& stores = OpenStores::Get();
    const std::lock_guard lock(stores.mutex);

    int error = 0;
    auto identity = Identify(path, error);
    std::optional<FileState> sound;
    if (error == 0 && identity) {
        const OpenStores::File& file = stores.files[*identity];
        if (auto body = file.body.lock()) return body;
        sound = file.sound;
    }
    auto body = std::make_shared<StoreBody>();
    auto file = std::make_unique<StoreFile>(path);
    if (error == 0) error = file->Open(body->m_tree, sound);
    struct stat opened{};
    if (error == 0 && fstat(body->m_tree.FileDescriptor(), &opened) != 0) error = errno;
    if (error != 0) {
        errno = error;
        return nullptr;
    }
    body->m_access.SetFile(std::move(file));
    body->m_identity = {opened.st_dev, opened.st_ino};
    stores.files[body->m_identity] = {body, sound};
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
    std::optional<FileState> left;
    if (body->m_access.CloseFile(left) != 0) {
        LogError(NAL_HERE(kStoreSource), "store file " + body->m_tree.Path() + " could not be written out");
    }
    const auto entry = stores.files.find(body->m_identity);
    body.reset();
    if (entry == stores.files.end() || !entry->second.body.expired()) return;
    // What this process has just closed needs no verification when it opens it again.
    if (left) {
        entry->second.sound = left;
    } else {
        stores.files.erase(entry);
    }
}

const std::string& SystemStorePath() {
    static const std::string path = GetTarnCSPPath().str() + "/ormatek/storage/cstore" + ".dat";
    return path;
}

}  // namespace nal
