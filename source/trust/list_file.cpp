#include "trust/list_file.h"

#include <sys/stat.h>

#include <cerrno>
#include <map>
#include <utility>

#include "frame/failure.h"
#include "frame/log.h"
#include "nal/crl.h"
#include "nal/signed_data.h"
#include "nal/trust_storages.h"
#include "storage/cert_reader.h"
#include "storage/signature_check.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/locker.h"
#include "too/path.h"
#include "too/time.h"
#include "trust/trust_list.h"

namespace nal {
namespace {

constexpr char c_sourcePath[] = "source/trust";
constexpr std::uint32_t c_maxList = 64U << 20;
constexpr std::uint64_t c_pause = CTOOFileTime::c_ticksPerSecond;  // between tries at files that do not change

/// Whether a failure may pass without a change of what the file holds.
bool MayPass(const XTOOStatus& status) {
    const int code = status.GetCode();
    return dynamic_cast<const XTOOFile*>(&status) != nullptr || code == TOO_E_NO_MEMORY || code == TOO_E_INTERNAL ||
           code == TOO_E_NO_PROVIDER;
}

void Log(const CTOOString& file, const char* reason) {
    LogError(NAL_HERE(c_sourcePath), file + ": " + reason);
}

CNALCertStorage OpenMemory(unsigned kind, bool untrusted) {
    CNALString name;
    CNALCertStorage storage(name, CERT_STORE_PROV_MEMORY, 0, kind, nullptr);
    if (!storage.IsOpened()) throw XTOOStatus(LastErrorStatus(), "CNALCertStorageCollection");
    storage.m_untrusted = untrusted;
    return storage;
}

// By key identifier, as a storage keys them: a list's CRL is held against one certificate, however many the list has.
using CertsByKeyId = std::map<IdentObj, CNALCertContext>;

bool IsSignedInside(const IdentObj& encoded, const CertsByKeyId& certs) {
    CNAL_CRL_List crl;
    crl.ReadData(encoded.GetData(), encoded.GetSize());
    const auto issuer = certs.find(NALCheckCRLKey(crl.m_info).m_issuerID);
    if (issuer == certs.end()) return false;
    const CERT_CONTEXT& cert = *issuer->second.GetContext();
    return SubjectNameOf(cert) == asnt::View(crl.m_info.m_issuer) && IsSignedBy(crl, PublicKeyOf(cert));
}

/// The storage of an unsigned list, for the collection and for CNALCertList.
CNALCertStorage StorageOfMessage(const IdentObj& message, unsigned kind, const CTOOString& path) {
    CNALSignData list;
    list.ReadObject(message.GetData(), message.GetSize(), nullptr);
    CNALCertStorage storage = MakeStorage(list.certificates, list.crls, path);
    storage.m_storageType = kind;
    storage.m_untrusted = 1;
    storage.m_name = CNALString(path);
    return storage;
}

/// A list that is one file.
class SingleFile : public ListFile {
public:
    explicit SingleFile(CTOOString path) : m_path(std::move(path)) {}

    void Refresh() final {
        const FileStamp stamp = StampOf(m_path);  // of before the reading: a change meanwhile is seen next time
        if (stamp != m_stamp) StartAnew();
        if (CanRest()) return;
        m_stamp = stamp;
        try {
            m_storage = stamp.MayExist() ? Load() : Empty();
            End(true);
        } catch (const XTOOStatus& status) {
            Complain(m_path, status);
            End(!MayPass(status));
        }
    }

protected:
    /// @throws XTOOStatus; an XTOOFile when the file cannot be read now
    virtual CNALCertStorage Load() const = 0;
    /// What the list is without a file.
    virtual CNALCertStorage Empty() const = 0;

    const CTOOString m_path;

private:
    FileStamp m_stamp;
};

class UnsignedList : public SingleFile {
public:
    UnsignedList(const CTOOString& path, unsigned kind) : SingleFile(path), m_kind(kind) {}

protected:
    CNALCertStorage Load() const override { return StorageOfMessage(ReadListFile(m_path), m_kind, m_path); }
    CNALCertStorage Empty() const override { return {}; }

private:
    const unsigned m_kind;
};

class SignedList : public ListFile {
public:
    SignedList(CTOOString delivered, CTOOString accepted, const CNALCertStorage& roots)
        : m_delivered(std::move(delivered)), m_accepted(std::move(accepted)), m_roots(roots) {}

    void Refresh() override {
        const FileStamp delivered = StampOf(m_delivered);
        const FileStamp accepted = StampOf(m_accepted);
        const bool isSame = delivered == m_deliveredStamp && accepted == m_acceptedStamp && m_roots.GetStore() == m_checkedRoots.GetStore();
        if (!isSame) StartAnew();
        if (CanRest()) return;
        m_deliveredStamp = delivered;
        m_acceptedStamp = accepted;
        m_mayPass = false;
        if (delivered.MayExist() || accepted.MayExist() || !m_unkept.IsEmpty()) {
            Choose(delivered.MayExist());
        } else {
            m_storage.Clear();
        }
        m_checkedRoots = m_roots;
        End(!m_mayPass);
    }

private:
    enum class State : unsigned char {
        Absent,
        Good,
        Refused,     // for want of a root that vouches for it
        Unreadable,  // what it holds is not known
    };
    /// A list and the message that it came in.
    struct Accepted {
        State state = State::Absent;
        IdentObj message;
        TrustList list;
    };

    void Choose(bool isDelivered) {
        // Two processes that find a new list at once must not put the older one over the newer.
        const auto lock = TryLock();
        m_acceptedStamp = StampOf(m_accepted);
        Accepted kept = Read(m_accepted, TrustCheck::Kept);
        if (kept.state == State::Unreadable) {
            Complain(m_accepted, "no delivered list is taken before this copy of the one accepted last can be read, or is removed: which is newer is not known");
            if (m_roots.GetStore() != m_checkedRoots.GetStore()) Use(Accepted());  // what is in use was not held against these roots
            return;
        }
        // What is in use without having been kept counts as if it had been.
        bool isKept = true;
        if (Accepted unkept = Check(m_unkept); unkept.state == State::Good && unkept.message != kept.message &&
                                               !(kept.state == State::Good && unkept.list.number < kept.list.number)) {
            kept = std::move(unkept);
            isKept = false;
        }
        Accepted fresh;
        if (isDelivered) fresh = Read(m_delivered, TrustCheck::Delivered);
        if (fresh.state == State::Good && kept.state == State::Good && fresh.list.number < kept.list.number) {
            Complain(m_delivered, "the list has a lower number than the one accepted before");
            fresh.state = State::Refused;
        }
        if (fresh.state == State::Good && !(kept.state == State::Good && kept.message == fresh.message)) {
            kept = std::move(fresh);
            isKept = false;
        }
        if (kept.state == State::Good) {
            if (!isKept) isKept = lock != nullptr && Keep(kept.message);
            m_unkept = isKept ? IdentObj() : kept.message;
        }
        Use(kept);
    }

    void Use(const Accepted& accepted) {
        m_storage = MakeStorage(accepted.list.certificates, accepted.list.crls, m_delivered);  // without a list: empty
        m_storage.m_storageType = NAL_STORAGE_TRUST_LIST;
        m_storage.m_name = CNALString(m_delivered);
    }

    std::unique_ptr<IPC::CLocker> TryLock() {
        try {
            return IPC::CreateWriteLockerDeprecated("trust list " + m_accepted);
        } catch (const XTOOStatus& status) {
            Complain(m_accepted, status);  // a process that may not write cannot replace the copy either
            return nullptr;
        }
    }

    Accepted Read(const CTOOString& path, TrustCheck check) {
        Accepted result;
        try {
            result.message = ReadListFile(path);
        } catch (const XTOOStatus& status) {
            if (status.GetCode() != TOO_E_FILE_NOT_FOUND) NoteFailure(path, status, result);
            return result;
        }
        Judge(path, check, result);
        return result;
    }

    /// A message that was accepted before, held against the present roots; of no bytes: absent.
    Accepted Check(const IdentObj& message) {
        Accepted result;
        result.message = message;
        if (!message.IsEmpty()) Judge(m_delivered, TrustCheck::Kept, result);
        return result;
    }

    void Judge(const CTOOString& path, TrustCheck check, Accepted& result) {
        try {
            result.list = CheckTrustList(result.message, m_roots, check);
            result.state = State::Good;
        } catch (const XTOOStatus& status) {
            NoteFailure(path, status, result);
        }
    }

    // What was accepted once can only fail for want of its root, unless it is damaged.
    void NoteFailure(const CTOOString& path, const XTOOStatus& status, Accepted& result) {
        Complain(path, status);
        m_mayPass = m_mayPass || MayPass(status);
        result.state = status.GetCode() == TOO_E_UNTRUSTED ? State::Refused : State::Unreadable;
    }

    bool Keep(const IdentObj& message) {
        bool isKept = false;
        try {
            CTOOString folder;
            CTOOString name;
            storedev::ParseFullPath(m_accepted, folder, name);
            CTOOFolder::MakeFolder(folder, 0700);
            CTOOWholeFile::Store(m_accepted, message.GetData(), message.GetSize());
            isKept = true;
        } catch (const XTOOStatus& status) {
            Complain(m_accepted, status);  // in use all the same, but another process will not know its number
        }
        m_acceptedStamp = StampOf(m_accepted);
        return isKept;
    }

    const CTOOString m_delivered;
    const CTOOString m_accepted;
    const CNALCertStorage& m_roots;
    bool m_mayPass = false;  // whether something failed in this try that may work in another
    FileStamp m_deliveredStamp;
    FileStamp m_acceptedStamp;
    IdentObj m_unkept;  // the message in use when it could not be kept
    CNALCertStorage m_checkedRoots;  // what the list was checked against; held, so that its handle is not given out again
};

class MainStorage : public SingleFile {
public:
    explicit MainStorage(const CTOOString& path) : SingleFile(path) { m_storage = OpenMemory(NAL_STORAGE_MAIN, false); }

protected:
    CNALCertStorage Load() const override {
        CNALString name(m_path);
        const CNALCertStorage file(name, CERT_STORE_PROV_FILENAME_A, 0x10000, NAL_STORAGE_MAIN, nullptr);
        if (!file.IsOpened()) Fail("the main storage cannot be opened");
        CNALCertStorage copy = Empty();
        std::list<CNALCertContext> certs;
        if (!file.FindCertList(certs, CERT_FIND_ANY, nullptr) && GetLastError() != NAL_STORE_E_NOT_FOUND) Fail("the main storage cannot be read");
        if (!copy.AddCertificateList(certs)) Fail("the main storage cannot be copied");
        for (CNALCRLContext crl; (crl = file.FindCRLInStore(0, nullptr, crl)).IsInitialized();) {
            if (copy.AddCRLContext(crl, CERT_STORE_ADD_ALWAYS)) continue;
            if (const XTOOStatus status(LastErrorStatus()); MayPass(status)) Fail("the main storage cannot be copied");
            Log(m_path, "a CRL of the main storage cannot be copied, and is left out");
        }
        if (GetLastError() != NAL_STORE_E_NOT_FOUND) Fail("the main storage cannot be read");
        return copy;
    }
    CNALCertStorage Empty() const override {
        CNALCertStorage storage = OpenMemory(NAL_STORAGE_MAIN, false);
        storage.m_name = CNALString(m_path);
        return storage;
    }

private:
    [[noreturn]] void Fail(const char* what) const {
        if (GetLastError() == EUCLEAN) throw XTOOStatus(LastErrorStatus(), what);  // damaged until somebody mends it
        throw XTOOFile(LastErrorStatus(), m_path, what);
    }
};

}  // namespace

void ListFile::Complain(const CTOOString& file, const char* reason) {
    if (m_complaints.insert(file + ": " + reason).second) Log(file, reason);
}

void ListFile::StartAnew() {
    m_complaints.clear();
    m_isDone = false;
    m_failedAt = 0;
}

// A clock that was set back ends the pause.
bool ListFile::CanRest() const {
    const std::uint64_t now = CTOOFileTime::Now().GetTicks();
    return m_isDone || (now >= m_failedAt && now - m_failedAt < c_pause);
}

void ListFile::End(bool isDone) {
    m_isDone = isDone;
    m_failedAt = CTOOFileTime::Now().GetTicks();
}

FileStamp StampOf(const CTOOString& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        FileStamp stamp;
        if (errno != ENOENT && errno != ENOTDIR) stamp.error = errno;
        return stamp;
    }
    if (!S_ISREG(status.st_mode)) return {};
    return {static_cast<std::uint64_t>(status.st_ino), static_cast<std::uint64_t>(status.st_size),
            static_cast<std::int64_t>(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec, 0};
}

IdentObj ReadListFile(const CTOOString& path) {
    return CTOOFile::ReadWhole(path, c_maxList);
}

CNALCertStorage MakeStorage(const std::list<IdentObj>& certificates, const std::list<IdentObj>& crls, const CTOOString& source) {
    CNALCertStorage storage = OpenMemory(0, false);
    CertsByKeyId certs;
    for (const IdentObj& encoded : certificates) {
        try {
            const CNALCertContext cert(encoded);
            if (storage.AddCertificate(cert))
                certs[cert.GetSubjectKeyId()] = cert;
            else
                Log(source, "a certificate without subject key identifier is left out");
        } catch (const XTOOStatus& status) {
            if (MayPass(status)) throw;
            Log(source, status.what());
        }
    }
    for (const IdentObj& encoded : crls) {
        try {
            const CNALCRLContext crl(encoded);
            if (!IsSignedInside(encoded, certs))
                Log(source, "a CRL that no certificate of the list signed is left out");
            else if (!storage.AddCRLContext(crl, CERT_STORE_ADD_ALWAYS))
                Log(source, "a CRL cannot be stored");
        } catch (const XTOOStatus& status) {
            if (MayPass(status)) throw;
            Log(source, status.what());
        }
    }
    return storage;
}

std::unique_ptr<ListFile> MakeUnsignedList(const CTOOString& path, unsigned kind) {
    return std::make_unique<UnsignedList>(path, kind);
}

std::unique_ptr<ListFile> MakeTrustList(const CTOOString& delivered, const CTOOString& accepted, const CNALCertStorage& roots) {
    return std::make_unique<SignedList>(delivered, accepted, roots);
}

std::unique_ptr<ListFile> MakeMainStorage(const CTOOString& path) {
    return std::make_unique<MainStorage>(path);
}

}  // namespace nal

BOOL CNALCertList::LoadFile(const CTOOString& path, unsigned int storageType, int* err, CTOOString* msg) {
    nal::Outcome outcome;
    try {
        CNALCertStorage::operator=(nal::StorageOfMessage(nal::ReadListFile(path), storageType, path));
    } catch (const XTOOFile& failure) {
        outcome.Fail(failure);
    } catch (const XTOOStatus& status) {
        outcome.Fail(status.GetCode(), path + ": " + status.GetText());
    }
    return outcome.Finish(err, msg);
}
