// The header of the record file, 16 bytes in host byte order:
//
//   offset  size  field
//        0     8  creation time, FILETIME
//        8     4  version, 1
//       12     4  zero
//
// A header of zeros is that of a file whose maker did not get as far as writing it.

#include <fmt/format.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "dhcert/send_record.h"
#include "frame/full_path.h"
#include "frame/log.h"
#include "nal/dh_certs.h"
#include "too/locker.h"
#include "too/status.h"

namespace {

constexpr unsigned c_headerSize = 16;
constexpr unsigned c_versionOffset = 8;
constexpr std::uint32_t c_version = 1;
constexpr std::size_t c_mostNameLength = 4095;

long RequireRecordSize(long recordSize) {
    if (recordSize != CNALSendCertRecord::c_size) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALRecFileDHCert");
    return recordSize;
}

const char* OperationName(int op) {
    switch (op) {
        case CNALRecFileDHCert::c_addRecord:
            return "Add record";
        case CNALRecFileDHCert::c_putRecord:
            return "Put record";
        case CNALRecFileDHCert::c_getRecord:
            return "Get record";
        case CNALRecFileDHCert::c_putHeader:
            return "PutHeader";
        case CNALRecFileDHCert::c_saveList:
            return "Save list";
        default:
            return "Unknown";
    }
}

std::string_view BytesOf(const CNALSendCertRecord& record) {
    return {static_cast<const char*>(record.GetData()), CNALSendCertRecord::c_size};
}

void Append(IdentObj& records, const CNALSendCertRecord& record) {
    records.Append(record.GetData(), CNALSendCertRecord::c_size);
}

bool Fits(const CNALSendCertRecord& record, unsigned filter, const CNALSendCertRecord& pattern,
          const IdentObj& keyNumber) {
    using File = CNALRecFileDHCert;
    const auto asks = [=](unsigned bit) { return (filter & bit) != 0; };
    const long flags = record.Flag();
    constexpr long settled = c_NAL_DH_ACKNOWLEDGED | c_NAL_DH_REJECTED;
    if (asks(File::c_byDirection) && record.IsIncoming() != pattern.IsIncoming()) return false;
    if (asks(File::c_waiting) && (flags & settled) != 0) return false;
    if (asks(File::c_acknowledged) && (flags & c_NAL_DH_ACKNOWLEDGED) == 0) return false;
    if (asks(File::c_rejected) && (flags & c_NAL_DH_REJECTED) == 0) return false;
    if (asks(File::c_notRejected) && (flags & c_NAL_DH_REJECTED) != 0) return false;
    if (asks(File::c_actual) && (flags & c_NAL_DH_ACTUAL) == 0) return false;
    if (asks(File::c_byShortNumber) && record.ShortNumber() != pattern.ShortNumber()) return false;
    if (asks(File::c_byKeyNumber) && !nal::IsSameKey(record, keyNumber)) return false;
    if ((filter & File::c_byPeer) == File::c_byPeer) {
        if (!nal::IsSamePeer(record, pattern)) return false;
    } else {
        if (asks(File::c_byOwnType) && !record.IsSameCTSlf(pattern.ColTypeSlf().c_str())) return false;
        if (asks(File::c_byPeerNetwork) && !record.IsSameColID(pattern.ColID().c_str())) return false;
        if (asks(File::c_byPeerHost) && !record.IsSameApID(pattern.ApID().c_str())) return false;
    }
    return !asks(File::c_byNetFileName) || record.IsSameNetFileName(pattern.NetFileName().c_str());
}

// When the exchange that a record tells of last went on.
CTOOFileTime LastTime(const CNALSendCertRecord& record) {
    return std::max(record.TimeSend(), record.TimeReceive(), [](const auto& a, const auto& b) { return a < b; });
}

}  // namespace

// All records as they stand at one moment.
class CNALRecFileDHCert::Snapshot {
public:
    explicit Snapshot(IdentObj records) : m_records(std::move(records)) {}

    long Count() const { return m_records.GetSize() / CNALSendCertRecord::c_size; }
    CNALSendCertRecord operator[](long index) const {
        return CNALSendCertRecord(m_records.GetData() + index * CNALSendCertRecord::c_size);
    }

    // The index of the first record that is wanted, -1 when none is.
    template <class Wanted>
    long Find(Wanted wanted) const {
        for (long i = 0; i < Count(); ++i) {
            if (wanted((*this)[i])) return i;
        }
        return -1;
    }

    template <class Visit>
    void ForEach(Visit visit) const {
        for (long i = 0; i < Count(); ++i)
            visit((*this)[i]);
    }

private:
    IdentObj m_records;
};

CNALRecFileDHCert::CNALRecFileDHCert(const char* path, unsigned char mode, long recordSize)
    : CRecFile(path, mode, RequireRecordSize(recordSize), c_headerSize),
      m_lockName(FormLockName(nal::FullPath(GetPath()).c_str())),
      m_isOpenedToCreate(mode == c_create) {
    ReadHeader();
    if (!m_created.IsZero() || !m_isOpenedToCreate) return;
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    ReadHeader();
    if (!m_created.IsZero()) return;
    m_created = CTOOFileTime::Now();
    PutHeader();
}

CNALRecFileDHCert::CNALRecFileDHCert(const char* path)
    : CNALRecFileDHCert(path, c_create, CNALSendCertRecord::c_size) {}

CNALRecFileDHCert::~CNALRecFileDHCert() = default;

void CNALRecFileDHCert::ReadHeader() {
    unsigned char header[c_headerSize];
    if (!GetHeader(header)) ThrowFailure(0, 0);
    std::uint32_t version = 0;
    std::memcpy(&version, header + c_versionOffset, sizeof version);
    if (version > c_version) throw XTOOFile(TOO_E_BAD_STRUCTURE, GetPath(), "written by a later version:");
    std::memcpy(&m_created, header, sizeof m_created);
}

bool CNALRecFileDHCert::PutHeader() {
    unsigned char header[c_headerSize] = {};
    std::memcpy(header, &m_created, sizeof m_created);
    std::memcpy(header + c_versionOffset, &c_version, sizeof c_version);
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    CRecFile::PutHeader(header);
    return Check(c_putHeader, 0);
}

CTOOString CNALRecFileDHCert::FormLockName(const char* path) {
    std::string name = CTOOString(path).substr(0, c_mostNameLength).str();
    for (char& c : name) {
        if (c == '.' || c == '/' || c == ':' || c == '\\') {
            c = '_';
        } else if (c >= 'a' && c <= 'z') {
            c = static_cast<char>(c - 'a' + 'A');
        }
    }
    return {name};
}

void CNALRecFileDHCert::ThrowFailure(int op, unsigned adv) const {
    // Size, below, sets both anew.
    const int code = GetReturnCode();
    nal::LogError(NAL_HERE("source/dhcert"), GetReturnText());
    throw XTOOStatus(code, fmt::format("File=<{}> Finction=<{}> Adv=<{:08X}> Size={} Mode={} Rc={}", GetPath().str(),
                                       OperationName(op), adv, Size(), GetMode(), code));
}

bool CNALRecFileDHCert::Check(int op, unsigned adv) const {
    if (GetReturnCode() == TOO_OK) return true;
    if (op == c_getRecord && GetReturnCode() == TOO_E_RANGE) return false;
    ThrowFailure(op, adv);
    return false;
}

bool CNALRecFileDHCert::CheckAndThrowException(int op, unsigned adv) {
    if (Check(op, adv)) return true;
    CorrectErrors(op);
    return false;
}

bool CNALRecFileDHCert::GetRecord(long index, void* record) {
    Get(index, record);
    return CheckAndThrowException(c_getRecord, static_cast<unsigned>(index));
}

bool CNALRecFileDHCert::Put(long index, void* record) {
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    CRecFile::Put(index, record);
    return Check(c_putRecord, static_cast<unsigned>(index));
}

bool CNALRecFileDHCert::Add(void* record) {
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    CRecFile::Add(record);
    return Check(c_addRecord, 0);
}

CNALRecFileDHCert::Snapshot CNALRecFileDHCert::ReadAll() const {
    IdentObj records;
    if (!GetAll(records)) ThrowFailure(c_getRecord, 0);
    return Snapshot(std::move(records));
}

void CNALRecFileDHCert::ReplaceBy(const IdentObj& records, int op) {
    ReplaceAll(records.GetData(), records.GetSize() / CNALSendCertRecord::c_size);
    Check(op, records.GetSize() / CNALSendCertRecord::c_size);
}

// ---- the list in memory ----

long CNALRecFileDHCert::ReRead() {
    CDHCertSendList list;
    ReadAll().ForEach([&](const CNALSendCertRecord& record) { list.insert(record); });
    m_listAsRead = list;
    m_list = std::move(list);
    m_isListRead = true;
    return static_cast<long>(m_list.size());
}

void CNALRecFileDHCert::ReadListIfNeeded() {
    if (!m_isListRead) ReRead();
}

CDHCertSendList& CNALRecFileDHCert::GetList() {
    ReadListIfNeeded();
    return m_list;
}

void CNALRecFileDHCert::SetList(CDHCertSendList& list) {
    ReadListIfNeeded();
    m_list = list;
}

// What changed between the list as it was read and as it is now is done to the file as others have left it.
void CNALRecFileDHCert::PutListChanges(bool remove) {
    ReadListIfNeeded();
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    const Snapshot now = ReadAll();
    IdentObj records;
    CDHCertSendList there;
    bool isChanged = false;
    now.ForEach([&](const CNALSendCertRecord& record) {
        if (remove && m_listAsRead.count(record) != 0 && m_list.count(record) == 0) {
            isChanged = true;
            return;
        }
        Append(records, record);
        there.insert(record);
    });
    for (const auto& record : m_list) {
        if (m_listAsRead.count(record) != 0 || there.count(record) != 0) continue;
        Append(records, record);
        isChanged = true;
    }
    if (isChanged) ReplaceBy(records, c_saveList);
    ReRead();
}

long CNALRecFileDHCert::PutList() {
    const long before = Size();
    PutListChanges(false);
    return Size() - before;
}

long CNALRecFileDHCert::SaveList() {
    PutListChanges(true);
    return Size();
}

// ---- look-ups ----

long CNALRecFileDHCert::FilterList(CDHCertSendList& list, EFilter filter, const CNALSendCertRecord& pattern) const {
    const IdentObj keyNumber = pattern.NumberKey();
    for (auto at = list.begin(); at != list.end();) {
        at = Fits(*at, filter, pattern, keyNumber) ? std::next(at) : list.erase(at);
    }
    return static_cast<long>(list.size());
}

long CNALRecFileDHCert::Select(CDHCertSendList& list, EFilter filter, const CNALSendCertRecord& pattern) const {
    const IdentObj keyNumber = pattern.NumberKey();
    CDHCertSendList found;
    ReadAll().ForEach([&](const CNALSendCertRecord& record) {
        if (Fits(record, filter, pattern, keyNumber)) found.insert(record);
    });
    list = std::move(found);
    return static_cast<long>(list.size());
}

long CNALRecFileDHCert::FindRecord(EFilter filter, const CNALSendCertRecord& pattern,
                                   CNALSendCertRecord* record) const {
    const IdentObj keyNumber = pattern.NumberKey();
    const Snapshot all = ReadAll();
    const long index =
        all.Find([&](const CNALSendCertRecord& candidate) { return Fits(candidate, filter, pattern, keyNumber); });
    if (index >= 0 && record) *record = all[index];
    return index;
}

long CNALRecFileDHCert::FindRecord(const CNALSendCertRecord& record) const {
    return ReadAll().Find([&](const CNALSendCertRecord& candidate) { return candidate == record; });
}

std::vector<CNALSendCertRecord> CNALRecFileDHCert::GetPeerRecords(const SNALDHPeer& peer) const {
    std::vector<CNALSendCertRecord> records;
    ReadAll().ForEach([&](const CNALSendCertRecord& record) {
        if (peer.Matches(record)) records.push_back(record);
    });
    return records;
}

bool CNALRecFileDHCert::IsReceivedKey(const SNALDHPeer& peer, const IdentObj& keyNumber) const {
    return ReadAll().Find([&](const CNALSendCertRecord& record) {
        return nal::IsSameKey(record, keyNumber) && record.IsIncoming() && !record.IsReject() && peer.Matches(record);
    }) >= 0;
}

bool CNALRecFileDHCert::IsRejectWs(const char* apID) const {
    bool isRejected = false;
    CTOOFileTime latest;
    ReadAll().ForEach([&](const CNALSendCertRecord& record) {
        if (record.IsIncoming() || record.TimeSend() < latest || !record.IsSameApID(apID)) return;
        latest = record.TimeSend();
        isRejected = record.IsReject();
    });
    return isRejected;
}

// ---- marks ----

// Changes the selected records, each by itself. The result counts the selected ones.
template <class Selects, class Alter>
long CNALRecFileDHCert::ChangeRecords(Selects selects, Alter alter) {
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    const Snapshot all = ReadAll();
    long count = 0;
    for (long i = 0; i < all.Count(); ++i) {
        CNALSendCertRecord record = all[i];
        if (!selects(i, record)) continue;
        ++count;
        alter(record);
        if (record == all[i]) continue;
        CRecFile::Put(i, record.GetData());
        Check(c_putRecord, static_cast<unsigned>(i));
    }
    return count;
}

bool CNALRecFileDHCert::AddRecordFlag(long index, long flags) {
    return ChangeRecords([=](long i, const auto&) { return i == index; },
                         [=](auto& record) { record.AddFlag(flags); }) != 0;
}

bool CNALRecFileDHCert::DeleteRecordFlag(long index, long flags) {
    return ChangeRecords([=](long i, const auto&) { return i == index; },
                         [=](auto& record) { record.DelFlag(flags); }) != 0;
}

long CNALRecFileDHCert::MarkFromPacket(unsigned shortNumber, long flags) {
    if (shortNumber == 0) return 0;
    return ChangeRecords(
        [=](long, const auto& record) { return record.IsOutgoing() && record.ShortNumber() == shortNumber; },
        [=](auto& record) { record.AddFlag(flags); });
}

long CNALRecFileDHCert::MarkRecipient(const SNALDHPeer& peer, const IdentObj& keyNumber, long flags) {
    const bool acknowledges = (flags & c_NAL_DH_ACKNOWLEDGED) != 0;
    return ChangeRecords(
        [&](long, const auto& record) {
            return nal::IsSameKey(record, keyNumber) && record.IsOutgoing() && peer.Matches(record) &&
                   !(acknowledges && record.IsReject());
        },
        [=](auto& record) { record.AddFlag(flags); });
}

bool CNALRecFileDHCert::MarkActual(long index) {
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    if (!AddRecordFlag(index, c_NAL_DH_ACTUAL)) return false;
    const CNALSendCertRecord actual = ReadAll()[index];
    ChangeRecords(
        [&](long i, const auto& record) {
            return i != index && record.IsActual() && record.IsIncoming() == actual.IsIncoming() &&
                   nal::IsSamePeer(record, actual);
        },
        [](auto& record) { record.DelFlag(c_NAL_DH_ACTUAL); });
    return true;
}

// ---- removal ----

template <class Gone>
long CNALRecFileDHCert::RemoveRecords(Gone gone) {
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    const Snapshot all = ReadAll();
    IdentObj left;
    all.ForEach([&, isGone = gone(all)](const CNALSendCertRecord& record) {
        if (!isGone(record)) Append(left, record);
    });
    const long removed = all.Count() - left.GetSize() / CNALSendCertRecord::c_size;
    if (removed != 0) ReplaceBy(left, c_saveList);
    return removed;
}

long CNALRecFileDHCert::ClearInfo(const SNALDHPeer& peer) {
    return RemoveRecords(
        [&](const Snapshot&) { return [&](const CNALSendCertRecord& record) { return peer.Matches(record); }; });
}

long CNALRecFileDHCert::ClearInfo(const FILETIME& before) {
    const CTOOFileTime limit(before);
    return RemoveRecords([&](const Snapshot& all) {
        // The latest record of each peer and direction that is not rejected.
        std::unordered_map<std::string, CTOOFileTime> latest;
        const auto keyOf = [](const CNALSendCertRecord& record) {
            const std::string type = record.IsNullCol() ? "" : record.ColTypeSlf().str();
            return fmt::format("{}/{}/{}/{}", record.IsIncoming(), type, record.ColID().str(), record.ApID().str());
        };
        all.ForEach([&](const CNALSendCertRecord& record) {
            if (record.IsReject()) return;
            CTOOFileTime& time = latest[keyOf(record)];
            if (time < LastTime(record)) time = LastTime(record);
        });
        return [=](const CNALSendCertRecord& record) {
            const bool isWaiting = record.IsOutgoing() && !record.IsWasKvit() && !record.IsReject();
            if (isWaiting || record.IsActual() || LastTime(record) >= limit) return false;
            return record.IsReject() || LastTime(record) < latest.at(keyOf(record));
        };
    });
}

// ---- logging of certificates ----

// Merges the record into the entry that it belongs to, or adds it.
template <class IsEntry, class Merge>
long CNALRecFileDHCert::AddOrMerge(CNALSendCertRecord& record, IsEntry isEntry, Merge merge) {
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    const Snapshot all = ReadAll();
    const IdentObj keyNumber = record.NumberKey();
    const long index = all.Find([&](const CNALSendCertRecord& entry) {
        return nal::IsSameKey(entry, keyNumber) && isEntry(entry) && nal::IsSamePeer(entry, record);
    });
    CNALSendCertRecord result = record;
    if (index < 0) {
        CRecFile::Add(result.GetData());
        Check(c_addRecord, static_cast<unsigned>(all.Count()));
    } else {
        merge(all[index], result);
        CRecFile::Put(index, result.GetData());
        Check(c_putRecord, static_cast<unsigned>(index));
    }
    record = result;
    return index < 0 ? all.Count() : index;
}

long CNALRecFileDHCert::AddOnSend(CNALSendCertRecord& record) {
    if (record.IsIncoming()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALRecFileDHCert::AddOnSend");
    if (record.TimeSend().IsZero()) record.TimeSend(CTOOFileTime::Now());
    return AddOrMerge(
        record, [](const auto& entry) { return entry.IsOutgoing() && !entry.IsWasKvit() && !entry.IsReject(); },
        [](const auto& entry, auto& result) { result.AddFlag(entry.Flag()); });
}

long CNALRecFileDHCert::AddOnRecieve(CNALSendCertRecord& record) {
    if (record.IsOutgoing()) throw XTOOStatus(TOO_E_BAD_ARGUMENT, "CNALRecFileDHCert::AddOnRecieve");
    if (record.TimeReceive().IsZero()) record.TimeReceive(CTOOFileTime::Now());
    // A certificate that is sent once more, by whoever replays it, must not become usable again by that.
    return AddOrMerge(
        record, [](const auto& entry) { return entry.IsIncoming(); },
        [](const auto& entry, auto& result) { result.AddFlag(entry.Flag() & (c_NAL_DH_REJECTED | c_NAL_DH_ACTUAL)); });
}

// ---- correction ----

long CNALRecFileDHCert::CorrectErrors(int operation) {
    if (GetMode() == c_read) return 0;
    const auto lock = IPC::CreateWriteLockerDeprecated(m_lockName);
    if (!Repair()) ThrowFailure(operation, 0);
    if (operation == c_getRecord) return 0;

    const Snapshot all = ReadAll();
    IdentObj records;
    std::unordered_set<std::string> there;
    long corrected = 0;
    all.ForEach([&](const CNALSendCertRecord& record) {
        const CNALSendCertRecord correct(nal::CorrectRecord(record.GetImage()).m_bytes);
        const bool isKept = correct != CNALSendCertRecord() && there.emplace(BytesOf(correct)).second;
        if (!isKept || correct != record) ++corrected;
        if (isKept) Append(records, correct);
    });
    if (corrected != 0) ReplaceBy(records, operation);
    return corrected;
}
