#include "certstorage/tree_verify.h"

#include <db.h>

#include <cerrno>

#include "certstorage/db_memory.h"
#include "certstorage/record_key.h"

namespace nal {
namespace {

extern "C" int CompareVerified(DB* /*db*/, const DBT* a, const DBT* b) {
    return CompareKeys({a->data, a->size}, {b->data, b->size});
}

// Berkeley DB has no place for a caller's pointer in this callback; a verification stays on one thread.
thread_local std::string t_finding;

extern "C" void KeepFirstFinding(const DB_ENV* /*env*/, const char* /*prefix*/, const char* message) {
    if (t_finding.empty() && message != nullptr) t_finding = message;
}

constexpr unsigned kVerifyCache = 8U << 20;

}  // namespace

int VerifyTreeFile(const std::string& path, std::string* finding) {
    PrepareDbMemory();
    DB* db = nullptr;
    if (int error = db_create(&db, nullptr, 0)) return error > 0 ? error : EIO;
    t_finding.clear();
    db->set_errcall(db, KeepFirstFinding);
    int error = db->set_bt_compare(db, CompareVerified);
    if (error == 0) error = db->set_cachesize(db, 0, kVerifyCache, 1);
    if (error == 0) {
        error = db->verify(db, path.c_str(), nullptr, nullptr, 0);  // releases the handle, whatever it finds
    } else {
        db->close(db, 0);
    }
    if (finding != nullptr) *finding = t_finding;
    // Its own codes are negative; a page that lies about its size comes out as EINVAL.
    return error < 0 || error == EINVAL ? EUCLEAN : error;
}

}  // namespace nal
