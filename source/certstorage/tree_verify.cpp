#include "certstorage/tree_verify.h"

#include <db.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

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

// The verification is only sound for what a store consists of: a fuzzer made it free memory twice by giving a page the type of
// another access method. So a file is first held against this much of the page format, and refused when it has anything else:
//
//   offset  size  field of page 0                  offset  size  field of every other page
//       12     4  magic number, 0x053162               25     1  type: 0 free, 3 inner, 5 leaf, 7 overflow
//       16     4  version, 9
//       20     4  page size, a power of two from 512 to 65536
//       24     1  encryption, 0
//       25     1  type, 9
//       26     1  flags of all kinds of databases, 0: no checksums, no partitions in other files
//       48     4  flags, 0: no duplicates, no record numbers, no databases inside
constexpr std::size_t kMetaSize = 512;
constexpr std::size_t kTypeOffset = 25;

class ReadOnlyFile {
public:
    explicit ReadOnlyFile(const std::string& path) : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY)) {}
    ~ReadOnlyFile() {
        if (m_descriptor >= 0) close(m_descriptor);
    }
    ReadOnlyFile(const ReadOnlyFile&) = delete;
    ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

    bool IsOpen() const { return m_descriptor >= 0; }
    /// -1 when it cannot be told.
    off_t Size() const {
        struct stat info{};
        return fstat(m_descriptor, &info) == 0 ? info.st_size : -1;
    }
    bool Read(off_t offset, void* data, std::size_t size) const {
        return pread(m_descriptor, data, size, offset) == static_cast<ssize_t>(size);
    }

private:
    int m_descriptor;
};

std::uint32_t WordAt(const std::array<unsigned char, kMetaSize>& bytes, std::size_t offset) {
    std::uint32_t word = 0;
    std::memcpy(&word, bytes.data() + offset, sizeof word);
    return word;
}

bool IsTreePage(unsigned char type) { return type == 0 || type == 3 || type == 5 || type == 7; }

int CheckPages(const std::string& path, std::string& finding) {
    const ReadOnlyFile file(path);
    if (!file.IsOpen()) return errno;
    std::array<unsigned char, kMetaSize> meta{};
    finding = "it is no database of this machine";
    if (!file.Read(0, meta.data(), meta.size())) return EUCLEAN;
    const std::uint32_t pageSize = WordAt(meta, 20);
    const bool isTree = WordAt(meta, 12) == 0x053162 && WordAt(meta, 16) == 9 && meta[24] == 0 && meta[kTypeOffset] == 9 &&
                        meta[26] == 0 && WordAt(meta, 48) == 0;
    if (!isTree || pageSize < 512 || pageSize > 65536 || (pageSize & (pageSize - 1)) != 0) return EUCLEAN;
    finding = "it is cut off";
    const off_t size = file.Size();
    if (size < 0 || size % pageSize != 0) return EUCLEAN;
    finding = "it has a page of another kind than a store's";
    for (off_t page = pageSize; page < size; page += pageSize) {
        unsigned char type = 0;
        if (!file.Read(page + static_cast<off_t>(kTypeOffset), &type, 1) || !IsTreePage(type)) return EUCLEAN;
    }
    finding.clear();
    return 0;
}

}  // namespace

int VerifyTreeFile(const std::string& path, std::string* finding) {
    std::string wrong;
    if (int error = CheckPages(path, wrong)) {
        if (finding != nullptr) *finding = wrong;
        return error;
    }
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
