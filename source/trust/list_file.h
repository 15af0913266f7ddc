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
    int error = 0;             // the errno with which the system would not tell; the rest is zero then

    /// Whether there is a file, or may be one.
    bool MayExist() const { return inode != 0 || error != 0; }
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
    /// Brings the storage up to date. A failure is logged, and the last storage stays. One that may pass without a change of the file
    /// is met with another try in a call a second later, or when the file changes.
    /// @throws XTOOStatus when a trust list was chosen and cannot be made a storage; the next call tries again
    virtual void Refresh() = 0;
    /// Closed as long as there is no such list.
    const CNALCertStorage& GetStorage() const { return m_storage; }

protected:
    /// Logs a failure, but once for all tries at the same files.
    void Complain(const CTOOString& file, const char* reason);
    void Complain(const CTOOString& file, const XTOOStatus& status) { Complain(file, status.what()); }
    /// To be called when the files are others than before: what failed with those is forgotten.
    void StartAnew();
    /// Whether nothing more is to be done at files that are the same: all is done, or the last failure was too short a time ago.
    bool CanRest() const;
    /// Says how a try ended.
    void End(bool isDone);

    CNALCertStorage m_storage;

private:
    std::set<CTOOString> m_complaints;
    bool m_isDone = false;
    std::uint64_t m_failedAt = 0;  // ticks of a file time
};

/// An unsigned list: `<id>.trl`, `<id>_usr.p7b`.
std::unique_ptr<ListFile> MakeUnsignedList(const CTOOString& path, unsigned kind);
/// A trust list: the file that the network delivers, and the copy that was accepted last. `roots` outlives the list.
std::unique_ptr<ListFile> MakeTrustList(const CTOOString& delivered, const CTOOString& accepted, const CNALCertStorage& roots);
/// The main storage. Its storage is never closed: without a file it is empty.
std::unique_ptr<ListFile> MakeMainStorage(const CTOOString& path);

}  // namespace nal
