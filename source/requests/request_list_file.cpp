// The list file: request-status records one behind the other, and nothing else.

#include <fmt/format.h>
#include <sys/stat.h>

#include <iterator>
#include <map>
#include <string>
#include <utility>

#include "frame/full_path.h"
#include "frame/log.h"
#include "nal/request_files.h"
#include "requests/request_list.h"
#include "too/folder.h"
#include "too/locker.h"
#include "too/path.h"
#include "too/status.h"

namespace {

using List = std::list<CNALCertRequestStatus>;

constexpr const char* c_getText = "CNALCertRequestCfgFile::GetCertRequestInfo";
constexpr const char* c_temporaryExtension = ".$$$";
constexpr std::size_t c_numberDigits = 8;

// Stores a failure, or throws it.
CNALCertRequestStatus Refuse(int code, const char* text, int* err) {
    if (!err) throw XTOOStatus(code, text);
    *err = code;
    return {};
}

CNALCertRequestStatus Answer(const CNALCertRequestStatus& record, int* err) {
    if (err) *err = TOO_OK;
    return record;
}

IdentObj Encode(const CNALCertRequestStatus& record) {
    IdentObj encoded;
    encoded.SetSize(record.GetObjectSize());
    if (record.WriteData(encoded.GetData(), encoded.GetSize()) == 0) {
        throw XTOOStatus(TOO_E_TOO_LARGE, "CNALCertRequestStatus::WriteData");
    }
    return encoded;
}

std::vector<IdentObj> EncodeEach(const List& records) {
    std::vector<IdentObj> encoded;
    encoded.reserve(records.size());
    for (const auto& record : records)
        encoded.push_back(Encode(record));
    return encoded;
}

// The file's records; none when there is no file.
List ReadFile(const CTOOString& path) {
    if (!CTOOFile::Exists(path)) return {};
    return nal::ReadRequestList(CTOOFile::ReadWhole(path, CNALCertRequestCfgFile::c_maxFileSize), path);
}

unsigned char Lower(unsigned char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<unsigned char>(c - 'A' + 'a') : c;
}

// strncasecmp over the length of the record's name, with zeros behind the end of the other.
bool FitsName(const IdentObj& ofRecord, const IdentObj& name) {
    for (unsigned i = 0; i < ofRecord.GetSize(); ++i) {
        const unsigned char a = Lower(ofRecord.GetData()[i]);
        const unsigned char b = i < name.GetSize() ? Lower(name.GetData()[i]) : static_cast<unsigned char>(0);
        if (a != b) return false;
        if (a == 0) return true;
    }
    return true;
}

// Gives a file the permissions of another one, if that is there.
void CopyPermissions(const CTOOString& from, const CTOOFile& to) {
    struct stat info {};
    if (stat(from.c_str(), &info) != 0) return;
    // A file that we may write but do not own keeps its own.
    (void)!fchmod(to.GetDescriptor(), info.st_mode & 0777);
}

// Removes what stores that died left behind; the lock says that none is at work.
void SweepTemporaries(const CTOOString& folder, const CTOOString& base) {
    const CTOOFindFile find(folder, CTOOString(base[0] == '.' ? ".*" : "*") + c_temporaryExtension);
    for (const auto& name : find.GetNames()) {
        if (name.substr(0, base.length()) != base) continue;
        const CTOOString rest = name.substr(base.length());
        if (rest.str().find_first_not_of("0123456789ABCDEF") != c_numberDigits) continue;
        try {
            CTOOFile::Delete(storedev::MakeFullPath(folder, name));
        } catch (const XTOOStatus& failure) {
            nal::LogError(NAL_HERE("source/requests"), failure.what());
        }
    }
}

}  // namespace

namespace nal {

std::list<CNALCertRequestStatus> ReadRequestList(const IdentObj& bytes, const CTOOString& path) {
    List records;
    for (unsigned at = 0; at < bytes.GetSize();) {
        CNALCertRequestStatus& record = records.emplace_back();
        const unsigned consumed = record.ReadData(bytes.GetData() + at, bytes.GetSize() - at);
        if (consumed == 0) {
            throw XTOOFile(TOO_E_READ, path, fmt::format("damaged request {} at byte {} of", records.size() - 1, at));
        }
        at += consumed;
    }
    return records;
}

}  // namespace nal

CNALCertRequestCfgFile::CNALCertRequestCfgFile(const char* path, bool keepsCopy)
    : m_path(path), m_keepsCopy(keepsCopy) {
    if (keepsCopy) m_retryPath = m_path + ".old";
}

// ---- loading and storing ----

void CNALCertRequestCfgFile::Load() {
    const IdentObj bytes = CTOOFile::ReadWhole(m_path, c_maxFileSize);
    m_list.clear();
    m_list = nal::ReadRequestList(bytes, m_path);
    m_asRead = EncodeEach(m_list);
}

void CNALCertRequestCfgFile::LoadFile() {
    try {
        Load();
        return;
    } catch (const XTOOStatus& failure) {
        if (m_retryPath.empty() || m_retryPath == m_path) throw;
        nal::LogError(NAL_HERE("source/requests"), failure.what());
    }
    m_path = m_retryPath;
    Load();
}

void CNALCertRequestCfgFile::StoreFile() {
    Store(m_list);
}

void CNALCertRequestCfgFile::Store(List records, bool isWhole) {
    CTOOString folder;
    CTOOString name;
    if (!storedev::ParseFullPath(m_path, folder, name)) folder = ".";
    CTOOFolder::MakeFolder(folder);
    const auto lock = IPC::CreateWriteLockerDeprecated(nal::FullPath(m_path) + "#requests");
    if (!isWhole) records = Merge(records, ReadFile(m_path));
    Write(records, folder, name);
    m_asRead = EncodeEach(records);
    m_list = std::move(records);
}

// What was done to the list since it was read, done to what the file holds now.
List CNALCertRequestCfgFile::Merge(const List& records, const List& found) const {
    const std::vector<IdentObj> theirs = EncodeEach(found);
    if (theirs == m_asRead) return records;
    std::map<IdentObj, unsigned> removed;
    std::map<IdentObj, unsigned> known;
    for (const auto& encoded : m_asRead)
        ++known[encoded];
    removed = known;
    List added;
    for (const auto& record : records) {
        const auto at = known.find(Encode(record));
        if (at == known.end() || at->second == 0) {
            added.push_back(record);
        } else {
            --at->second;
            --removed[at->first];
        }
    }
    List merged;
    auto encoded = theirs.begin();
    for (const auto& record : found) {
        const auto at = removed.find(*encoded++);
        if (at == removed.end() || at->second == 0) {
            merged.push_back(record);
        } else {
            --at->second;
        }
    }
    merged.splice(merged.end(), added);
    return merged;
}

void CNALCertRequestCfgFile::Write(const List& records, const CTOOString& folder, const CTOOString& name) const {
    IdentObj bytes;
    for (const auto& record : records) {
        const IdentObj encoded = Encode(record);
        if (encoded.GetSize() > c_maxFileSize - bytes.GetSize()) {
            throw XTOOFile(TOO_E_TOO_LARGE, m_path, "too many requests for");
        }
        bytes.Append(encoded.GetData(), encoded.GetSize());
    }
    SweepTemporaries(folder, name);
    if (m_keepsCopy && m_path != m_retryPath && CTOOFile::Exists(m_path)) CTOOFile::CopyFile(m_path, m_retryPath);

    const CTOOString temporary = CTOOFolder::UniqueFileName(
        folder, fmt::format("{}{:08X}{}", name.str(), CTOOFileTime::Now().dwLowDateTime, c_temporaryExtension));
    try {
        CTOOFile file(temporary, "wxbc+");
        file.Write(bytes);
        CopyPermissions(m_path, file);
        file.Flush();
        file.Close();
        CTOOFile::MoveFile(temporary, m_path);
    } catch (const XTOOStatus&) {
        try {
            CTOOFile::Delete(temporary);
        } catch (
            const XTOOStatus&) {  // NOLINT(bugprone-empty-catch): the first failure says more; the next store sweeps
        }
        throw;
    }
}

// ---- changes ----

unsigned CNALCertRequestCfgFile::AddRecord(const CNALCertRequestStatus& record, bool store) {
    List records = m_list;
    records.push_back(record);
    if (store) {
        Store(std::move(records));
    } else {
        m_list = std::move(records);
    }
    return static_cast<unsigned>(m_list.size() - 1);
}

void CNALCertRequestCfgFile::ReplaceRecord(const CNALCertRequestStatus& record, unsigned index, bool store) {
    if (index >= m_list.size()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALCertRequestCfgFile::ReplaceRecord");
    List records = m_list;
    *std::next(records.begin(), index) = record;
    if (store) {
        Store(std::move(records));
    } else {
        m_list = std::move(records);
    }
}

void CNALCertRequestCfgFile::DeleteRecord(const CNALCertRequestStatus& record) {
    unsigned index = 0;
    for (const auto& candidate : m_list) {
        if (candidate == record) return DeleteRecord(index);
        ++index;
    }
    throw XTOOStatus(TOO_E_NOT_FOUND, "CNALCertRequestCfgFile::DeleteRecord");
}

void CNALCertRequestCfgFile::DeleteRecord(unsigned index) {
    if (index >= m_list.size()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALCertRequestCfgFile::DeleteRecord");
    List records = m_list;
    records.erase(std::next(records.begin(), index));
    Store(std::move(records));
}

void CNALCertRequestCfgFile::DeleteAllRecords() {
    Store({}, true);
}

// ---- look-ups ----

CNALCertRequestStatus CNALCertRequestCfgFile::GetLastRequest() const {
    if (m_list.empty()) throw XTOOStatus(TOO_E_NOT_FOUND, "CNALCertRequestCfgFile::GetLastRequest");
    return m_list.back();
}

CNALCertRequestStatus CNALCertRequestCfgFile::GetCertRequestInfo(unsigned index, int* err) const {
    if (index >= m_list.size()) return Refuse(TOO_E_BAD_ARGUMENT, c_getText, err);
    return Answer(*std::next(m_list.begin(), index), err);
}

CNALCertRequestStatus CNALCertRequestCfgFile::GetCertRequestInfo(const IdentObj& id, int* err) const {
    return GetCertRequestInfo(&id, nullptr, 0, err);
}

CNALCertRequestStatus CNALCertRequestCfgFile::GetCertRequestInfo(const IdentObj* id, const IdentObj* name,
                                                                 unsigned from, int* err) const {
    unsigned index = 0;
    for (const auto& record : m_list) {
        if (index++ < from) continue;
        if ((!id || record.m_requestId == *id) && (!name || FitsName(record.m_userName, *name))) {
            return Answer(record, err);
        }
    }
    return Refuse(TOO_E_NOT_FOUND, c_getText, err);
}

List CNALCertRequestCfgFile::GetCertRequestInfoList(CNALX509Name* subject, unsigned* count) const {
    std::list<std::list<CNALRDNAttr>> attributes;
    if (subject) subject->GetNameInfo(attributes);
    List found;
    for (const auto& record : m_list) {
        try {
            if (!subject || CNALX509Name(record.m_subjectName) == *subject) found.push_back(record);
        } catch (const XTOOStatus&) {  // NOLINT(bugprone-empty-catch): a name that does not decode is another's
        }
    }
    if (count) *count = static_cast<unsigned>(found.size());
    return found;
}
