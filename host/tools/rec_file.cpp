// A record file:
//
//   offset   size  field
//        0      8  "TOORECF" and the version, 1
//        8      4  record size R
//       12      4  header size H
//       16      4  slot: CRC-32 of the rest of the slot as far as it is used
//       20      4  slot: what it holds, a record's index, 0xFFFFFFFE the header, 0xFFFFFFFF nothing
//       24      S  slot: the bytes of that record or of the header; S is the larger of R and H
//   24 + S      H  header
//        .      R  record 0, record 1, ...
//
// Numbers are in host byte order. The slot makes a change whole. To change something, its new bytes are
//   1. written to the slot, and the slot is made durable;
//   2. written to their place, and the place is made durable.
//   3. the slot is marked as empty, which need not be durable.
// Who reads takes what the slot holds in preference to its place; who changes first puts it there, since a slot that is
// not empty means that a crash came before 3. A crash in 1 leaves a slot whose CRC is wrong, which
// counts as nothing, and the old bytes in place; a crash in 2 leaves the new bytes in the slot, which count, even for a
// record whose place the file does not yet reach. Bytes at the end that are no whole record are never read.

#include "too/rec_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <boost/crc.hpp>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "host/tools/system_file.h"
#include "too/file.h"
#include "too/status.h"

using namespace nalhost;

namespace {

constexpr unsigned char c_magic[8] = {'T', 'O', 'O', 'R', 'E', 'C', 'F', 1};
constexpr long c_slotOffset = 16;
constexpr long c_slotHeadSize = 8;
constexpr long c_slotDataOffset = c_slotOffset + c_slotHeadSize;
constexpr long c_mostSize = 65536;
constexpr unsigned c_header = 0xFFFFFFFEU;
constexpr unsigned c_nothing = 0xFFFFFFFFU;
// Indices stay below the two above, and all records of a file fit one IdentObj.
constexpr long c_mostRecords = 0x7FFFFFFF;

void Put32(unsigned char* to, std::uint32_t value) {
    std::memcpy(to, &value, sizeof value);
}

std::uint32_t Get32(const unsigned char* from) {
    std::uint32_t value = 0;
    std::memcpy(&value, from, sizeof value);
    return value;
}

std::uint32_t Crc(const unsigned char* data, std::size_t size) {
    boost::crc_32_type crc;
    crc.process_bytes(data, size);
    return crc.checksum();
}

}  // namespace

struct CRecFile::Slot {
    unsigned index = c_nothing;
    IdentObj bytes;
};

// The lock of one call, on the file that the path names now.
class CRecFile::Lock {
public:
    // The delegation makes the destructor run, and so release the lock, when the checks here throw.
    Lock(const CRecFile& file, int operation) : Lock(file, operation, Acquire()) {
        if (file.m_isChecked) return;
        if (operation == LOCK_EX && file.m_mode == c_create) file.MakeIfCutShort();
        file.CheckPrologue();
        file.m_isChecked = true;
    }
    ~Lock() {
        if (m_file.m_descriptor >= 0) flock(m_file.m_descriptor, LOCK_UN);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

private:
    struct Acquire {};

    Lock(const CRecFile& file, int operation, Acquire) : m_file(file) {
        for (;;) {
            if (file.m_descriptor < 0) file.Open();
            LockDescriptor(file.m_descriptor, operation, file.m_path);
            // ReplaceAll of another object puts a new file in the place of the one that we have open.
            if (IsFileAt(file.m_descriptor, file.m_path.c_str())) break;
            close(std::exchange(file.m_descriptor, -1));
        }
    }

    const CRecFile& m_file;
};

CRecFile::CRecFile(const char* path, unsigned char mode, long recordSize, long headerSize)
    : m_path(path), m_mode(mode), m_recordSize(recordSize), m_headerSize(headerSize) {
    if (mode > c_create || recordSize < 1 || recordSize > c_mostSize || headerSize < 0 || headerSize > c_mostSize) {
        throw XTOOFile(TOO_E_BAD_ARGUMENT, m_path, "bad mode or size for");
    }
    try {
        const Lock lock(*this, mode == c_create ? LOCK_EX : LOCK_SH);  // checks the file, too
    } catch (...) {
        if (m_descriptor >= 0) close(m_descriptor);
        throw;
    }
}

CRecFile::~CRecFile() {
    if (m_descriptor >= 0) close(m_descriptor);
}

void CRecFile::Open() const {
    const int access = m_mode == c_read ? O_RDONLY : m_mode == c_write ? O_RDWR : O_RDWR | O_CREAT;
    m_descriptor = OpenFile(m_path, access, 0666, "cannot open").Release();
    m_isChecked = false;
}

void CRecFile::MakeIfCutShort() const {
    struct stat info {};
    if (fstat(m_descriptor, &info) != 0 || info.st_size >= DataOffset()) return;
    // Only the beginning of a file of these sizes, which holds no record yet or any more, is made whole; anything else
    // that is short is somebody's.
    const IdentObj prologue = MakePrologue();
    IdentObj found;
    found.SetSize(static_cast<unsigned>(std::min<off_t>(info.st_size, c_slotOffset)));
    ReadAt(m_descriptor, found.GetData(), found.GetSize(), 0, m_path);
    if (found != IdentObj(prologue.GetData(), found.GetSize())) return;
    WriteAt(m_descriptor, prologue.GetData(), prologue.GetSize(), 0, m_path);
    SyncDescriptor(m_descriptor, m_path);
    SyncFolderOf(m_path);
}

void CRecFile::CheckPrologue() const {
    const IdentObj wanted = MakePrologue();
    unsigned char found[c_slotOffset];
    const auto refuse = [&](const CTOOString& what) { throw XTOOFile(TOO_E_BAD_STRUCTURE, m_path, what); };
    if (ReadAt(m_descriptor, found, sizeof found, 0, m_path) != sizeof found) refuse("too short for a record file:");
    if (std::memcmp(found, c_magic, sizeof c_magic) != 0) refuse("not a record file:");
    if (std::memcmp(found, wanted.GetData(), sizeof found) != 0) {
        refuse(fmt::format("records of {} bytes behind a header of {}, not {} behind {}, in", Get32(found + 8),
                           Get32(found + 12), m_recordSize, m_headerSize));
    }
    struct stat info {};
    fstat(m_descriptor, &info);
    if (info.st_size < DataOffset()) refuse("cut short:");
}

IdentObj CRecFile::MakePrologue() const {
    IdentObj prologue;
    prologue.SetSize(static_cast<unsigned>(DataOffset()));
    unsigned char* to = prologue.GetData();
    std::memcpy(to, c_magic, sizeof c_magic);
    Put32(to + 8, static_cast<std::uint32_t>(m_recordSize));
    Put32(to + 12, static_cast<std::uint32_t>(m_headerSize));
    Put32(to + 20, c_nothing);
    Put32(to + 16, Crc(to + 20, 4));
    return prologue;
}

long CRecFile::DataOffset() const noexcept {
    return c_slotDataOffset + std::max(m_recordSize, m_headerSize) + m_headerSize;
}

long CRecFile::OffsetOf(unsigned index) const noexcept {
    return index == c_header ? DataOffset() - m_headerSize : DataOffset() + static_cast<long>(index) * m_recordSize;
}

long CRecFile::SizeOf(unsigned index) const noexcept {
    return index == c_header ? m_headerSize : m_recordSize;
}

CRecFile::Slot CRecFile::ReadSlot() const {
    IdentObj raw;
    raw.SetSize(static_cast<unsigned>(c_slotHeadSize + std::max(m_recordSize, m_headerSize)));
    const std::size_t got = ReadAt(m_descriptor, raw.GetData(), raw.GetSize(), c_slotOffset, m_path);
    Slot slot;
    if (got < raw.GetSize()) throw XTOOFile(TOO_E_READ, m_path, "cut short:");
    const unsigned index = Get32(raw.GetData() + 4);
    if (index == c_nothing || (index != c_header && index > PlacedRecords())) return slot;
    const auto size = static_cast<unsigned>(SizeOf(index));
    if (Crc(raw.GetData() + 4, 4 + size) != Get32(raw.GetData())) return slot;
    slot.index = index;
    slot.bytes.SetData(raw.GetData() + c_slotHeadSize, size);
    return slot;
}

void CRecFile::WriteSlot(const Slot& slot) {
    IdentObj raw;
    raw.SetSize(c_slotHeadSize);
    Put32(raw.GetData() + 4, slot.index);
    raw.Append(slot.bytes.GetData(), slot.bytes.GetSize());
    Put32(raw.GetData(), Crc(raw.GetData() + 4, raw.GetSize() - 4));
    WriteAt(m_descriptor, raw.GetData(), raw.GetSize(), c_slotOffset, m_path);
    SyncDescriptor(m_descriptor, m_path);
}

long CRecFile::PlacedRecords() const {
    struct stat info {};
    if (fstat(m_descriptor, &info) != 0) ThrowFile(errno, TOO_E_READ, m_path, "cannot take the length of");
    const long count = info.st_size < DataOffset() ? 0 : (info.st_size - DataOffset()) / m_recordSize;
    if (count > c_mostRecords) throw XTOOFile(TOO_E_TOO_LARGE, m_path, "too many records in");
    return count;
}

long CRecFile::CountRecords(const Slot& slot) const {
    const long placed = PlacedRecords();
    return slot.index == placed ? placed + 1 : placed;
}

void CRecFile::Place(const Slot& slot) {
    WriteAt(m_descriptor, slot.bytes.GetData(), slot.bytes.GetSize(), OffsetOf(slot.index), m_path);
    SyncDescriptor(m_descriptor, m_path);
}

void CRecFile::Change(const Slot& change) {
    const Slot pending = ReadSlot();
    if (pending.index != c_nothing) Place(pending);

    Slot old;
    const bool isNew = change.index != c_header && change.index >= PlacedRecords();
    if (!isNew) {
        old.index = change.index;
        old.bytes.SetSize(change.bytes.GetSize());
        ReadAt(m_descriptor, old.bytes.GetData(), old.bytes.GetSize(), OffsetOf(old.index), m_path);
    }
    try {
        WriteSlot(change);
        Place(change);
    } catch (const XTOOFile&) {
        Undo(change, old);
        throw;
    }
    try {
        ClearSlot();
    } catch (const XTOOFile&) {  // NOLINT(bugprone-empty-catch): the change is made; the next one tidies up
    }
}

// The caller of a failed change learns that nothing changed, so the old bytes are put back. The slot goes last: as long
// as it is there, what it holds is whole, whatever the place looks like. On a full disk this works, since it needs no
// room; on one that does nothing more, the change may turn out to have been made.
void CRecFile::Undo(const Slot& change, const Slot& old) {
    try {
        if (old.index == c_nothing) {
            SetDescriptorLength(m_descriptor, OffsetOf(change.index), m_path);
        } else {
            Place(old);
        }
        ClearSlot();
        SyncDescriptor(m_descriptor, m_path);
    } catch (const XTOOFile&) {  // NOLINT(bugprone-empty-catch): the first failure says more
    }
}

void CRecFile::ClearSlot() {
    const IdentObj prologue = MakePrologue();
    WriteAt(m_descriptor, prologue.GetData() + c_slotOffset, c_slotHeadSize, c_slotOffset, m_path);
}

template <class Call>
bool CRecFile::Report(Call call) const {
    m_returnText.clear();
    m_returnCode = TOO_OK;
    try {
        call();
    } catch (const XTOOStatus& failure) {
        m_returnCode = failure.GetCode();
        m_returnText = failure.GetText();
    } catch (const std::bad_alloc&) {
        m_returnCode = TOO_E_NO_MEMORY;
        m_returnText = m_path;
    }
    return m_returnCode == TOO_OK;
}

void CRecFile::CheckArguments(const void* buffer, bool changes) const {
    if (!buffer) throw XTOOFile(TOO_E_BAD_ARGUMENT, m_path, "null buffer for");
    if (changes && m_mode == c_read) throw XTOOFile(TOO_E_ACCESS, m_path, "opened for reading only:");
}

long CRecFile::Size() const {
    long count = 0;
    Report([&] {
        const Lock lock(*this, LOCK_SH);
        count = CountRecords(ReadSlot());
    });
    return count;
}

bool CRecFile::Get(long index, void* record) const {
    return Report([&] {
        CheckArguments(record, false);
        const Lock lock(*this, LOCK_SH);
        const Slot slot = ReadSlot();
        if (index < 0 || index >= CountRecords(slot)) {
            throw XTOOFile(TOO_E_RANGE, m_path, fmt::format("no record {} in", index));
        }
        const auto number = static_cast<unsigned>(index);
        IdentObj bytes = slot.bytes;
        if (slot.index != number) {
            bytes.SetSize(static_cast<unsigned>(m_recordSize));
            if (ReadAt(m_descriptor, bytes.GetData(), bytes.GetSize(), OffsetOf(number), m_path) != bytes.GetSize()) {
                throw XTOOFile(TOO_E_READ, m_path, "cut short:");
            }
        }
        std::memcpy(record, bytes.GetData(), bytes.GetSize());
    });
}

bool CRecFile::GetAll(IdentObj& records) const {
    return Report([&] {
        const Lock lock(*this, LOCK_SH);
        const Slot slot = ReadSlot();
        const long count = CountRecords(slot);
        if (count > static_cast<long>(std::numeric_limits<unsigned>::max()) / m_recordSize) {
            throw XTOOFile(TOO_E_TOO_LARGE, m_path, "too many records in");
        }
        IdentObj all;
        all.SetSize(static_cast<unsigned>(count * m_recordSize));
        ReadAt(m_descriptor, all.GetData(), all.GetSize(), OffsetOf(0), m_path);
        if (slot.index < static_cast<unsigned long>(count)) {
            std::memcpy(all.GetData() + static_cast<long>(slot.index) * m_recordSize, slot.bytes.GetData(),
                        slot.bytes.GetSize());
        }
        records = std::move(all);
    });
}

bool CRecFile::Put(long index, const void* record) {
    return Report([&] {
        CheckArguments(record, true);
        const Lock lock(*this, LOCK_EX);
        if (index < 0 || index >= CountRecords(ReadSlot())) {
            throw XTOOFile(TOO_E_RANGE, m_path, fmt::format("no record {} in", index));
        }
        Change({static_cast<unsigned>(index), IdentObj(record, static_cast<unsigned>(m_recordSize))});
    });
}

bool CRecFile::Add(const void* record) {
    return Report([&] {
        CheckArguments(record, true);
        const Lock lock(*this, LOCK_EX);
        const long count = CountRecords(ReadSlot());
        if (count >= c_mostRecords) throw XTOOFile(TOO_E_TOO_LARGE, m_path, "too many records in");
        Change({static_cast<unsigned>(count), IdentObj(record, static_cast<unsigned>(m_recordSize))});
    });
}

bool CRecFile::GetHeader(void* header) const {
    return Report([&] {
        CheckArguments(header, false);
        const Lock lock(*this, LOCK_SH);
        const Slot slot = ReadSlot();
        IdentObj bytes = slot.bytes;
        if (slot.index != c_header) {
            bytes.SetSize(static_cast<unsigned>(m_headerSize));
            if (ReadAt(m_descriptor, bytes.GetData(), bytes.GetSize(), OffsetOf(c_header), m_path) != bytes.GetSize()) {
                throw XTOOFile(TOO_E_READ, m_path, "cut short:");
            }
        }
        if (!bytes.IsEmpty()) std::memcpy(header, bytes.GetData(), bytes.GetSize());
    });
}

bool CRecFile::PutHeader(const void* header) {
    return Report([&] {
        CheckArguments(header, true);
        const Lock lock(*this, LOCK_EX);
        Change({c_header, IdentObj(header, static_cast<unsigned>(m_headerSize))});
    });
}

bool CRecFile::ReplaceAll(const void* records, long count) {
    return Report([&] {
        const bool needsNone = count == 0;
        CheckArguments(needsNone ? &count : records, true);
        if (count < 0 || count > c_mostRecords) throw XTOOFile(TOO_E_BAD_ARGUMENT, m_path, "bad count of records for");
        IdentObj header;
        header.SetSize(static_cast<unsigned>(m_headerSize));
        const Lock lock(*this, LOCK_EX);
        const Slot slot = ReadSlot();
        if (slot.index == c_header) {
            header = slot.bytes;
        } else {
            ReadAt(m_descriptor, header.GetData(), header.GetSize(), OffsetOf(c_header), m_path);
        }
        IdentObj prologue = MakePrologue();
        if (m_headerSize != 0) {
            std::memcpy(prologue.GetData() + OffsetOf(c_header), header.GetData(), header.GetSize());
        }
        CTOOWholeFile file(m_path);
        file.Write(prologue);
        file.Write(records, static_cast<std::size_t>(count) * static_cast<std::size_t>(m_recordSize));
        file.Commit();
    });
}

bool CRecFile::Repair() {
    return Report([&] {
        CheckArguments(this, true);
        const Lock lock(*this, LOCK_EX);
        const Slot pending = ReadSlot();
        if (pending.index != c_nothing) {
            Place(pending);
            ClearSlot();
        }
        const off_t end = OffsetOf(static_cast<unsigned>(PlacedRecords()));
        struct stat info {};
        if (fstat(m_descriptor, &info) != 0 || info.st_size <= end) return;
        SetDescriptorLength(m_descriptor, end, m_path);
        SyncDescriptor(m_descriptor, m_path);
    });
}
