/// Files of records of one size.
#pragma once

#include "too/export.h"
#include "too/ident_obj.h"
#include "too/string.h"

/// A file of records of one size, numbered from 0, behind a header of the caller's.
///
/// A change is on the disk when its call returns. After a crash at any moment each record and the header are whole,
/// either as before the change or as after it; a record that was only half added does not exist. After a failed change
/// the file is as before it, unless the disk refuses every further write; then it may be as after it. Each call locks
/// the file, so several objects, in any threads and processes, may work on one file; who needs several calls to be one
/// change takes an inter-process lock around them. One object is for one thread at a time.
///
/// The constructor throws; record calls report by result and GetReturnCode: 0 success, 37 a record beyond the end,
/// 3 a change of a file opened for reading, 28 a null buffer, otherwise the code of CTOOFile.
class NAL_HOST_EXPORT CRecFile {
public:
    enum : unsigned char {
        c_read = 0,    ///< an existing file, for reading
        c_write = 1,   ///< an existing file, for reading and writing
        c_create = 2,  ///< the same, and a file that is missing or empty is made
    };

    /// Opens the file.
    ///
    /// @param path        its path
    /// @param mode        one of the modes above
    /// @param recordSize  bytes in a record, 1 to 65536
    /// @param headerSize  bytes in the header, 0 to 65536; a new file's header is zeros
    /// @throws XTOOFile 206 when the file is no record file or has other sizes, 28 for a bad argument, or as CTOOFile
    CRecFile(const char* path, unsigned char mode, long recordSize, long headerSize = 0);
    CRecFile(const CRecFile&) = delete;
    CRecFile& operator=(const CRecFile&) = delete;
    virtual ~CRecFile();

    /// @return the number of records in the file now; 0 when that cannot be told, and then the return code says why
    long Size() const;

    /// Reads record `index` into `record`. @return success; on failure `record` is unchanged
    bool Get(long index, void* record) const;
    /// Reads all records at once, as they stand at one moment. @return success
    bool GetAll(IdentObj& records) const;
    /// Replaces record `index`.
    bool Put(long index, const void* record);
    /// Adds a record behind the last.
    bool Add(const void* record);
    /// Reads the header. @return success
    bool GetHeader(void* header) const;
    /// Replaces the header.
    bool PutHeader(const void* header);
    /// Replaces all records by `count` others, all or none; the header stays.
    bool ReplaceAll(const void* records, long count);
    /// Finishes what a crash left unfinished and cuts off bytes at the end that are no whole record. Nothing depends on
    /// it: other calls pass over both. @return success
    bool Repair();

    /// @return the return code of the last record call
    int GetReturnCode() const noexcept { return m_returnCode; }
    /// @return what went wrong in the last record call, for people; empty after success
    const CTOOString& GetReturnText() const noexcept { return m_returnText; }

    const CTOOString& GetPath() const noexcept { return m_path; }
    unsigned char GetMode() const noexcept { return m_mode; }
    long GetRecordSize() const noexcept { return m_recordSize; }
    long GetHeaderSize() const noexcept { return m_headerSize; }

private:
    class Lock;
    struct Slot;

    template <class Call>
    bool Report(Call call) const;
    void Open() const;
    void MakeIfCutShort() const;
    void CheckPrologue() const;
    void CheckArguments(const void* buffer, bool changes) const;
    IdentObj MakePrologue() const;
    long DataOffset() const noexcept;
    long OffsetOf(unsigned index) const noexcept;
    long SizeOf(unsigned index) const noexcept;
    Slot ReadSlot() const;
    void WriteSlot(const Slot& slot);
    long PlacedRecords() const;
    long CountRecords(const Slot& slot) const;
    void Place(const Slot& slot);
    void Change(const Slot& change);
    void Undo(const Slot& change, const Slot& old);
    void ClearSlot();

    CTOOString m_path;
    unsigned char m_mode;
    long m_recordSize;
    long m_headerSize;
    mutable int m_descriptor = -1;
    mutable bool m_isChecked = false;
    mutable int m_returnCode = 0;
    mutable CTOOString m_returnText;
};
