#include "nal/store_repair.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>
#include <string>

#include "certstorage/cert_fields.h"
#include "certstorage/crl_decoder.h"
#include "certstorage/file_copy.h"
#include "certstorage/store_lock.h"
#include "certstorage/store_pages.h"
#include "certstorage/tree.h"
#include "certstorage/tree_verify.h"
#include "frame/failure.h"

namespace nal {
namespace {

constexpr std::size_t kMostFindings = 100;

int StatusOfErrno(int error, int otherwise) {
    switch (error) {
        case ENOENT: return TOO_E_FILE_NOT_FOUND;
        case EACCES:
        case EPERM:
        case EROFS: return TOO_E_ACCESS;
        case EEXIST: return TOO_E_FILE_EXISTS;
        case ENOSPC:
        case EDQUOT: return TOO_E_DISK_FULL;
        case EISDIR: return TOO_E_NOT_A_FILE;
        default: return otherwise;
    }
}

// Holds changes off while a file is read, if it has a lock file: none is made beside a file that is only looked at.
class Reading {
public:
    explicit Reading(const std::string& path) : m_lock(RealPath(path)) {
        const bool hasLock = access((RealPath(path) + ".lock").c_str(), F_OK) == 0;
        m_held = hasLock && m_lock.Take(LockKind::Shared) == 0;
    }
    ~Reading() {
        if (m_held) m_lock.Release();
    }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

private:
    StoreLock m_lock;
    bool m_held = false;
};

void Find(NALStoreReport& report, const std::string& what) {
    if (report.findings.size() < kMostFindings) report.findings.emplace_back(what);
}

void FindDamage(NALStoreReport& report, const std::string& what) {
    ++report.damaged;
    Find(report, what);
}

std::optional<RecordKey> KeyOfCert(asnt::View value) {
    try {
        const CertFields fields = ReadCertFields(value);
        return fields.hasSubjectKeyId ? RecordKey::Cert(ToKeyIdentifier(fields.subjectKeyId)) : RecordKey{};
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<RecordKey> KeyOfCrl(asnt::View value) {
    try {
        const CNAL_CRL_Key key = NALCheckCRLKey(DecodeCrl(value).m_info);
        RecordKey record;
        std::copy_n(key.m_issuerID.GetData(), record.identifier.size(), record.identifier.begin());
        std::copy_n(key.m_crlSerial.GetData(), record.crlSerial.size(), record.crlSerial.begin());
        record.kind = kKindCrl;
        return record;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Where a value whose key was lost belongs: nowhere, unless it says so itself.
std::optional<RecordKey> KeyOfLost(asnt::View value) {
    const auto cert = KeyOfCert(value);
    if (cert && cert->IsCert()) return cert;
    return cert ? std::nullopt : KeyOfCrl(value);
}

enum class Worth { Whole, Misplaced, Nothing };

// Whether a record is what its key says; what is wrong goes into the report.
Worth Judge(const RecordKey& key, asnt::View value, NALStoreReport& report) {
    constexpr std::uint32_t kKinds = 0xFFFF0000;
    if ((key.kind & kKinds) == kKindCertProp || (key.kind & kKinds) == kKindCrlProp) return Worth::Whole;
    if (key.kind != kKindCert && key.kind != kKindCrl) {
        Find(report, "a record of a kind that is no store's");
        return Worth::Nothing;
    }
    const auto own = key.IsCert() ? KeyOfCert(value) : KeyOfCrl(value);
    if (!own) {
        FindDamage(report, key.IsCert() ? "a certificate that does not decode" : "a CRL that does not decode");
        return Worth::Nothing;
    }
    if (CompareKeys(own->Bytes(), key.Bytes()) == 0) return Worth::Whole;
    FindDamage(report, key.IsCert() ? "a certificate under another's key" : "a CRL under another's key");
    // The functions of the store read a certificate under whatever key, but no CRL.
    return key.IsCert() ? Worth::Misplaced : Worth::Nothing;
}

void Count(const RecordKey& key, NALStoreReport& report) {
    if (key.IsCert()) ++report.certificates;
    else if (key.kind == kKindCrl) ++report.crls;
    else ++report.properties;
}

void FindFault(NALStoreReport& report, std::uint32_t page, const char* what) {
    FindDamage(report, "page " + std::to_string(page) + ": " + what);
}

BOOL Check(const std::string& path, NALStoreReport& report, Outcome& outcome) {
    const Reading reading(path);
    StorePages pages;
    if (const int error = pages.Open(path)) {
        return outcome.Fail(StatusOfErrno(error, TOO_E_READ), "store file " + path + " cannot be read");
    }
    std::string finding;
    if (const int error = VerifyTreeFile(path, &finding)) {
        if (error != EUCLEAN) return outcome.Fail(StatusOfErrno(error, TOO_E_READ), "store file " + path + " cannot be read");
        Find(report, "its tree is damaged: " + finding);
    }
    if (access((RealPath(path) + ".journal").c_str(), F_OK) == 0) {
        Find(report, "a change was cut off; it is undone when the store is next opened");
    }
    pages.ForEachRecord(
        [&](asnt::View key, asnt::View value) {
            if (key.empty()) return;
            if (key.size != sizeof(RecordKey)) return Find(report, "a record whose key is no store's");
            const RecordKey record = RecordKey::FromBytes(key);
            if (Judge(record, value, report) == Worth::Whole) Count(record, report);
        },
        [&](std::uint32_t page, const char* what) { FindFault(report, page, what); });
    if (report.findings.empty()) return TRUE;
    return outcome.Fail(TOO_E_READ, "store file " + path + " is damaged: " + report.findings.front().str());
}

// Puts every record that is worth it into `target`. @return 0 or an errno
int Bring(StorePages& pages, Tree& target, NALStoreReport& report) {
    int error = 0;
    const auto put = [&](const RecordKey& key, asnt::View value) {
        if (error != 0) return;
        const int status = target.Put(key, value, PutMode::KeepExisting);
        if (status == kTreeError) error = errno;
        if (status == kTreeOk) Count(key, report);
    };
    const auto putLost = [&](asnt::View value) {
        const auto key = KeyOfLost(value);
        if (key) put(*key, value);
    };
    pages.ForEachRecord(
        [&](asnt::View key, asnt::View value) {
            if (key.empty()) return putLost(value);
            if (key.size != sizeof(RecordKey)) return Find(report, "a record whose key is no store's");
            const RecordKey record = RecordKey::FromBytes(key);
            if (Judge(record, value, report) != Worth::Nothing) put(record, value);
        },
        [&](std::uint32_t page, const char* what) { FindFault(report, page, what); });
    pages.ForEachLostValue(putLost);
    return error;
}

// A file that is gone at the end of the scope.
class Draft {
public:
    explicit Draft(std::string path) : m_path(std::move(path)) { unlink(m_path.c_str()); }
    ~Draft() { unlink(m_path.c_str()); }
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    const std::string& Path() const { return m_path; }

private:
    const std::string m_path;
};

BOOL Salvage(const std::string& path, const std::string& target, NALStoreReport& report, Outcome& outcome) {
    const auto failTarget = [&](int error) {
        return outcome.Fail(StatusOfErrno(error, TOO_E_WRITE), "store file " + target + " cannot be made");
    };
    const Reading reading(path);
    StorePages pages;
    if (const int error = pages.Open(path)) {
        return outcome.Fail(StatusOfErrno(error, TOO_E_READ), "store file " + path + " cannot be read");
    }
    const std::string whole = RealPath(target);
    if (access(whole.c_str(), F_OK) == 0) return failTarget(EEXIST);
    const Draft draft(whole + ".salvaged." + std::to_string(getpid()));
    {
        Tree tree;
        if (const int error = tree.OpenFile(draft.Path())) return failTarget(error);
        if (const int error = Bring(pages, tree, report)) return failTarget(error);
        if (tree.WriteOut() != kTreeOk) return failTarget(errno);
    }
    if (report.certificates + report.crls + report.properties == 0) {
        return outcome.Fail(TOO_E_READ, "store file " + path + " holds no record that can be read");
    }
    // A link, unlike a rename, never takes the place of a file that has come meanwhile.
    if (link(draft.Path().c_str(), whole.c_str()) != 0 || !SyncFolderOf(whole)) return failTarget(errno);
    return TRUE;
}

}  // namespace
}  // namespace nal

BOOL NALCheckStoreFile(const CTOOString& path, NALStoreReport& report, int* err, CTOOString* msg) {
    report = {};
    nal::Outcome outcome;
    nal::Check(path.str(), report, outcome);
    return outcome.Finish(err, msg);
}

BOOL NALSalvageStoreFile(const CTOOString& path, const CTOOString& target, NALStoreReport& report, int* err, CTOOString* msg) {
    report = {};
    nal::Outcome outcome;
    nal::Salvage(path.str(), target.str(), report, outcome);
    return outcome.Finish(err, msg);
}
