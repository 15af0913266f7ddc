// One list file as the collection keeps it: loaded, and loaded again when its file is another.
#pragma once

#include <cstdint>
#include <memory>
#include <set>

#include "nal/storage.h"
#include "too/ident_obj.h"
#include "too/status.h"
#include "too/string.h"

namespace nal {

/// What tells one state of a file from the next; all zero when there is none.
struct FileStamp {
    std::uint64_t inode = 0;
    std::uint64_t size = 0;
    std::int64_t changed = 0;  // nanoseconds

    bool Exists() const { return inode != 0; }
    bool operator==(const FileStamp&) const = default;
};
FileStamp StampOf(const CTOOString& path);

/// Certificates and CRLs as a storage in memory. What does not decode, cannot be keyed, or is a CRL that no certificate of the list
/// signed, is left out and logged under `source`.
CNALCertStorage MakeStorage(const std::list<IdentObj>& certificates, const std::list<IdentObj>& crls, const CTOOString& source);

/// Reads a file, at most 64 MiB. @throws XTOOFile
IdentObj ReadListFile(const CTOOString& path);

/// A list's place in the collection. Refresh and the storage are guarded by NALStorageLocker.
class ListFile {
public:
    virtual ~ListFile() = default;
    /// Brings the storage up to date. A failure is logged, and the last storage stays; one to read a file is met with another try in the
    /// next call, also when the file does not change.
    virtual void Refresh() = 0;
    /// Closed as long as there is no such list.
    const CNALCertStorage& GetStorage() const { return m_storage; }

protected:
    /// Logs a failure, but once for all tries at the same files.
    void Complain(const CTOOString& file, const char* reason);
    void Complain(const CTOOString& file, const XTOOStatus& status) { Complain(file, status.what()); }
    void ForgetComplaints() { m_complaints.clear(); }

    CNALCertStorage m_storage;

private:
    std::set<CTOOString> m_complaints;
};

/// An unsigned list: `<id>.trl`, `<id>_usr.p7b`.
std::unique_ptr<ListFile> MakeUnsignedList(const CTOOString& path, unsigned kind);
/// A trust list: the file that the network delivers, and the copy that was accepted last. `roots` outlives the list.
std::unique_ptr<ListFile> MakeTrustList(const CTOOString& delivered, const CTOOString& accepted, const CNALCertStorage& roots);
/// The main storage. Its storage is never closed: without a file it is empty.
std::unique_ptr<ListFile> MakeMainStorage(const CTOOString& path);

}  // namespace nal
