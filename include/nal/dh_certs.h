/// The records of Diffie-Hellman certificates exchanged with the other hosts of the network: which key numbers went to
/// which peer, when they were sent and received, whether the peer acknowledged or rejected them, and which key is the
/// actual one. docs/dh-records.md describes the file.
#pragma once

#include <cstddef>
#include <set>
#include <vector>

#include "nal/export.h"
#include "too/ident_obj.h"
#include "too/rec_file.h"
#include "too/string.h"
#include "too/time.h"

class CNALCertContext;
class CNALCertStorage;

/// The marks of a record.
enum : long {
    c_NAL_DH_INCOMING = 0x1,      ///< received from the peer; clear: sent to it
    c_NAL_DH_ACKNOWLEDGED = 0x4,  ///< the receiving side has confirmed the certificate
    c_NAL_DH_REJECTED = 0x8,      ///< the receiving side will not use the certificate
    c_NAL_DH_ACTUAL = 0x20,       ///< the key in use with this peer in this direction
};

/// A record as it lies in the file. The offsets stand in source/dhcert/send_record.cpp, the only place that uses them.
struct SENDCERT_RECORD {
    unsigned char m_bytes[96];
};
static_assert(sizeof(SENDCERT_RECORD) == 96, "records are stored as they are in memory");

/// One certificate that was sent to, or received from, one peer.
///
/// Text fields have a fixed length and no terminator: a shorter text is filled up with zeros, of a longer one the first
/// characters count, null is the empty text. The "IsSame" tests take letters of either case as equal. Every accessor is
/// safe on a record of arbitrary bytes. Records compare as their 96 bytes. One object is for one thread at a time.
class NAL_EXPORT CNALSendCertRecord {
public:
    static constexpr unsigned c_size = sizeof(SENDCERT_RECORD);
    static constexpr unsigned c_maxNumberKey = 32;    ///< bytes of a key number
    static constexpr unsigned c_maxNetFileName = 15;  ///< characters of a network file name

    /// All bytes zero.
    CNALSendCertRecord() = default;
    /// @param image  96 bytes, copied
    explicit CNALSendCertRecord(const void* image);
    /// Fills own type, peer identifier, time sent, network file name, flags and key number. When `flags` has
    /// c_NAL_DH_INCOMING, the time received becomes the present time.
    CNALSendCertRecord(const char* colTypeSlf, const char* colID, const FILETIME& sent, long flags,
                       const IdentObj& keyNumber, const char* netFileName);

    /// The 96 bytes.
    const SENDCERT_RECORD& GetImage() const { return m_record; }
    const void* GetData() const { return m_record.m_bytes; }

    /// The own network type, four characters.
    CTOOString ColTypeSlf() const;
    void ColTypeSlf(const char* type);
    bool IsSameCTSlf(const char* type) const;
    /// Whether there is no own type: "0000", or never set. The two are the same type to IsSameCTSlf.
    bool IsNullCol() const;

    /// The peer's network identifier, four hexadecimal characters.
    CTOOString ColID() const;
    void ColID(const char* id);
    bool IsSameColID(const char* id) const;
    /// The same field under its other name.
    CTOOString ColType() const { return ColID(); }
    void ColType(const char* type) { ColID(type); }
    bool IsSameColType(const char* type) const { return IsSameColID(type); }
    /// The same field as a number, "%04hX"; 0 when it does not begin with hexadecimal digits.
    unsigned short ColTypeW() const;
    void ColTypeW(unsigned short type);

    /// The peer's host identifier, eight hexadecimal characters.
    CTOOString ApID() const;
    void ApID(const char* id);
    bool IsSameApID(const char* id) const;
    /// The same field as a number, "%08X"; 0 when it does not begin with hexadecimal digits.
    DWORD DwApID() const;
    void DwApID(DWORD id);

    /// Takes an identifier: 8 bytes are the host identifier, 12 bytes network and host identifier together.
    /// @return false, with nothing changed, for any other length
    bool SetID(const IdentObj& id);
    /// Gives 12 bytes when the record names a network, else the 8 of the host identifier.
    void GetID(IdentObj& id) const;

    CTOOFileTime TimeSend() const;
    void TimeSend(const FILETIME& time);
    CTOOFileTime TimeReceive() const;
    void TimeReceive(const FILETIME& time);
    /// The same as calendar fields. @throws XTOOStatus 28 for a time of the year 30828 or later
    CTOODateTime TimeSnd() const { return CTOODateTime(TimeSend()); }
    void TimeSnd(const CTOODateTime& time) { TimeSend(time.GetFileTime()); }
    CTOODateTime TimeRcv() const { return CTOODateTime(TimeReceive()); }
    void TimeRcv(const CTOODateTime& time) { TimeReceive(time.GetFileTime()); }

    /// The marks, c_NAL_DH_*; other bits are kept.
    long Flag() const;
    void Flag(long flags);
    void AddFlag(long flags) { Flag(Flag() | flags); }
    void DelFlag(long flags) { Flag(Flag() & ~flags); }
    bool IsIncoming() const { return (Flag() & c_NAL_DH_INCOMING) != 0; }
    bool IsOutgoing() const { return !IsIncoming(); }
    bool IsWasKvit() const { return (Flag() & c_NAL_DH_ACKNOWLEDGED) != 0; }
    bool IsReject() const { return (Flag() & c_NAL_DH_REJECTED) != 0; }
    bool IsActual() const { return (Flag() & c_NAL_DH_ACTUAL) != 0; }

    /// The key number, at most 32 bytes; of a longer one the first 32 are stored. Setting it clears the whole area
    /// first, the short number with it.
    IdentObj NumberKey() const;
    void NumberKey(const IdentObj& number);
    /// The short number, bytes 8 to 11 of the key number's area in host byte order: setting either changes the other.
    DWORD ShortNumber() const;
    void ShortNumber(DWORD number);

    /// The name of the file that carried the certificate through the network, at most 15 characters.
    CTOOString NetFileName() const;
    void NetFileName(const char* name);
    void NetNameString(CTOOString& name) const { name = NetFileName(); }
    bool IsSameNetFileName(const char* name) const;

    friend NAL_EXPORT bool operator==(const CNALSendCertRecord& a, const CNALSendCertRecord& b);
    friend bool operator!=(const CNALSendCertRecord& a, const CNALSendCertRecord& b) { return !(a == b); }
    friend NAL_EXPORT bool operator<(const CNALSendCertRecord& a, const CNALSendCertRecord& b);
    friend bool operator>(const CNALSendCertRecord& a, const CNALSendCertRecord& b) { return b < a; }

private:
    SENDCERT_RECORD m_record{};
};

/// An ordered set of records.
class NAL_EXPORT CDHCertSendList : public std::set<CNALSendCertRecord> {
public:
    /// Finds the first record with this network file name, letters of either case being equal.
    /// @return null when there is none; valid as long as the record is in the list
    const CNALSendCertRecord* Find(const char* netFileName) const;
    /// Finds the first record of a direction with this network file name and this key number. A null or empty name, or
    /// an empty number, stands for any.
    const CNALSendCertRecord* Find(bool incoming, const char* netFileName, const IdentObj& keyNumber) const;
};

/// The peer of an exchange: a host of a network, seen from one of the own networks. An empty part stands for any where
/// records are looked for.
struct NAL_EXPORT SNALDHPeer {
    CTOOString m_ownType;  ///< own network type; "0000" for none
    CTOOString m_colID;    ///< the peer's network identifier
    CTOOString m_apID;     ///< the peer's host identifier

    /// Whether a record belongs to this peer.
    bool Matches(const CNALSendCertRecord& record) const;
};

/// The record file of DH certificates, "CERTSEND.DAT".
///
/// Several processes may log sends and receipts in one file. Every change is made under an inter-process write lock
/// named after the file, and is on the disk, whole, when its call returns; a process killed at any moment leaves the
/// file as it was before or after the change. Look-ups read all records as they stand at one moment.
///
/// Beside the file the object has a list in memory, which starts as what the file held when GetList or ReRead was first
/// called and is the caller's to change. PutList and SaveList bring its changes into the file without undoing what
/// others changed meanwhile.
///
/// Every member throws XTOOStatus when the file fails, with the code of the record file and the text
/// "File=<path> Finction=<operation> Adv=<value> Size=<records> Mode=<mode> Rc=<code>"; the reason is logged. Code 3 is
/// a change of a file that was opened for reading. One object is for one thread at a time.
class NAL_EXPORT CNALRecFileDHCert : public CRecFile {
public:
    static constexpr const char* c_fileName = "CERTSEND.DAT";

    /// The operations that CheckAndThrowException names.
    enum EOperation {
        c_addRecord = 1,
        c_putRecord = 2,
        c_getRecord = 3,
        c_putHeader = 4,
        c_saveList = 5,
    };

    /// The fields of a pattern that a record must share, and the marks that it must have; bits, joined by |.
    enum EFilter : unsigned {
        c_any = 0,
        c_byDirection = 0x1,
        c_byOwnType = 0x2,
        c_byPeerNetwork = 0x4,
        c_byPeerHost = 0x8,
        c_byKeyNumber = 0x10,
        c_byNetFileName = 0x20,
        c_byShortNumber = 0x40,
        c_byPeer = c_byOwnType | c_byPeerNetwork | c_byPeerHost,
        c_waiting = 0x100,  ///< neither acknowledged nor rejected
        c_acknowledged = 0x200,
        c_rejected = 0x400,
        c_notRejected = 0x800,
        c_actual = 0x1000,
    };

    /// Opens the file.
    ///
    /// @param path        its path
    /// @param mode        CRecFile::c_read, c_write, or c_create, which makes a file that is missing or empty
    /// @param recordSize  96
    /// @throws XTOOFile as CRecFile does, and 206 for a file of a later version; XTOOStatus 28 for another record size
    CNALRecFileDHCert(const char* path, unsigned char mode, long recordSize);
    /// With record size 96 and mode c_create.
    explicit CNALRecFileDHCert(const char* path);
    ~CNALRecFileDHCert() override;

    /// When the file was made; zero for one that was made by other means. Changes of records leave it alone.
    const CTOOFileTime& GetCreationTime() const { return m_created; }
    /// Whether the file was opened with mode c_create.
    bool IsOpenedToCreate() const { return m_isOpenedToCreate; }

    /// The name of the inter-process lock of a file: its path, of which 4095 characters count, with '.', '/', ':' and
    /// '\\' replaced by '_', in upper case. The object's own lock is that of the absolute path of the file, so that
    /// processes in different folders exclude one another.
    static CTOOString FormLockName(const char* path);
    const CTOOString& GetLockName() const { return m_lockName; }

    /// Reads one record into 96 bytes. @return false, nothing being thrown, when there is no such record; CorrectErrors
    /// has then been called with c_getRecord
    bool GetRecord(long index, void* record);
    /// Replaces one record by 96 bytes. @return true
    bool Put(long index, void* record);
    /// Adds a record of 96 bytes behind the others. @return true
    bool Add(void* record);
    /// Writes the header: the creation time and the version. @return true
    bool PutHeader();

    /// The list in memory, read from the file at the first call.
    CDHCertSendList& GetList();
    /// Makes the list what the file holds; changes that were not put or saved are dropped. @return the number of
    /// records
    long ReRead();
    /// Replaces the list by another one; the file stays.
    void SetList(CDHCertSendList& list);
    /// Adds to the file what was put into the list since it was read and is not there yet; removes nothing.
    /// @return the number of records added. The list is read anew
    long PutList();
    /// The same, and removes from the file what was taken out of the list since it was read. Records that others added
    /// or changed meanwhile stay. All or nothing. @return the number of records in the file
    long SaveList();

    /// Takes out of `list` the records that do not fit. Does not read the file.
    /// @param pattern  the record whose fields count
    /// @return the number of records left
    long FilterList(CDHCertSendList& list, EFilter filter, const CNALSendCertRecord& pattern) const;
    /// Fills `list` with the records of the file that fit. @return how many there are
    long Select(CDHCertSendList& list, EFilter filter, const CNALSendCertRecord& pattern) const;
    /// Finds the first record of the file that fits.
    /// @param record  receives it, if not null
    /// @return its index, -1 when there is none
    long FindRecord(EFilter filter, const CNALSendCertRecord& pattern, CNALSendCertRecord* record = nullptr) const;

    /// Finds the first record of the file that equals this one in every byte. @return its index, -1 when there is none
    long FindRecord(const CNALSendCertRecord& record) const;
    /// The records of a peer in the order of the file.
    std::vector<CNALSendCertRecord> GetPeerRecords(const SNALDHPeer& peer) const;

    /// Whether this key was received from this peer and is not rejected.
    bool IsReceivedKey(const SNALDHPeer& peer, const IdentObj& keyNumber) const;
    /// Whether the host with this identifier rejected the last certificate sent to it: by time sent, among equal times
    /// the last in the file.
    bool IsRejectWs(const char* apID) const;

    /// Sets or clears marks of one record, so that no mark that another process sets is lost.
    /// @return false when there is no such record
    bool AddRecordFlag(long index, long flags);
    bool DeleteRecordFlag(long index, long flags);
    /// Sets marks that hold for a key whoever got it: those of every outgoing record with this short number.
    /// @param shortNumber  0, which keys of less than 9 bytes have, marks nothing
    /// @return the number of records that have them now
    long MarkFromPacket(unsigned shortNumber, long flags);
    /// Sets marks that one recipient's answer brings: those of the outgoing records of this peer with this key number.
    /// A rejected record is not acknowledged by an answer that comes late.
    /// @return the number of records that have them now
    long MarkRecipient(const SNALDHPeer& peer, const IdentObj& keyNumber, long flags);
    /// Makes one record the actual one and takes the mark from the others of its peer and direction. After a crash in
    /// between more than one may have it, never none; the latest counts (CNALDHCertManager).
    /// @return false when there is no such record
    bool MarkActual(long index);

    /// Removes every record of a peer that left. @return the number of records removed. All or nothing, as below
    long ClearInfo(const SNALDHPeer& peer);
    /// Removes records that are settled and older than `before`: rejected, acknowledged or incoming, with both times
    /// earlier. Kept are outgoing records that wait for an answer, actual ones, and of each peer and direction the
    /// latest that is not rejected, so that the choice of a key is as before.
    long ClearInfo(const FILETIME& before);

    /// Logs a certificate that was sent.
    ///
    /// An outgoing record of the same key number, peer network, peer host and own type that is neither acknowledged nor
    /// rejected is the entry of this send: it gets the record's time and file name, and keeps its marks beside the
    /// record's. Otherwise the record is added.
    ///
    /// @param record  an outgoing record; a time sent of zero becomes the present time. Receives what the file now
    /// holds
    /// @return the index of the entry
    /// @throws XTOOStatus 28 for an incoming record
    long AddOnSend(CNALSendCertRecord& record);

    /// Logs a certificate that was received.
    ///
    /// An incoming record of the same key number, peer network, peer host and own type is overwritten; of its marks it
    /// keeps rejected and actual, since receiving a certificate again changes neither. Otherwise the record is added.
    ///
    /// @param record  an incoming record; a time received of zero becomes the present time. Receives what the file now
    ///                holds
    /// @return the index of the entry
    /// @throws XTOOStatus 28 for an outgoing record
    long AddOnRecieve(CNALSendCertRecord& record);

    /// Puts a file right.
    ///
    /// With c_getRecord only what a crash left is settled: an unfinished change is finished, bytes at the end that are
    /// no whole record are cut off. With any other value also the records are gone over: a key length above 32 becomes
    /// 32; bytes behind the key number, behind the file name's end and in the last word become zero; records of zeros
    /// only and exact copies of an earlier record are removed. Identifiers are left as they are. All or nothing. A file
    /// opened for reading is left alone.
    ///
    /// @param operation  an EOperation, 0 for none
    /// @return the number of records changed or removed
    long CorrectErrors(int operation);

    /// Looks at the outcome of the last call of the record file.
    ///
    /// @param op   what was done, an EOperation
    /// @param adv  the record's index or another value for the text
    /// @return true after success; false when a "Get record" gave code 37, and CorrectErrors has then been called
    /// @throws XTOOStatus as the class says for every other failure
    bool CheckAndThrowException(int op, unsigned adv);

private:
    class Snapshot;

    void ReadHeader();
    bool Check(int op, unsigned adv) const;
    void ThrowFailure(int op, unsigned adv) const;
    Snapshot ReadAll() const;
    void ReplaceBy(const IdentObj& records, int op);
    template <class Selects, class Alter>
    long ChangeRecords(Selects selects, Alter alter);
    template <class Gone>
    long RemoveRecords(Gone gone);
    template <class IsEntry, class Merge>
    long AddOrMerge(CNALSendCertRecord& record, IsEntry isEntry, Merge merge);
    void ReadListIfNeeded();
    void PutListChanges(bool remove);

    CTOOString m_lockName;
    CTOOFileTime m_created;
    bool m_isOpenedToCreate;
    bool m_isListRead = false;
    CDHCertSendList m_list;
    CDHCertSendList m_listAsRead;
};

inline CNALRecFileDHCert::EFilter operator|(CNALRecFileDHCert::EFilter a, CNALRecFileDHCert::EFilter b) {
    return static_cast<CNALRecFileDHCert::EFilter>(static_cast<unsigned>(a) | static_cast<unsigned>(b));
}

/// Chooses the key and the certificate to use with a peer.
///
/// The last verdict of a peer and direction on a key decides whether it counts: a rejected record, or one that is not
/// rejected and was received or is acknowledged. Records that were sent and wait for an answer decide nothing, since the
/// peer is not known to have the key. Keys that count come in this order: those marked actual before all others, then by
/// time (sent for outgoing records, received for incoming ones, or sent when that is zero), the latest first; of equal
/// times, the later in the file. A record without a key number decides nothing.
///
/// The key number of a certificate is its subject key identifier, by which the storage finds it.
/// The manager uses the record file and the storage of its caller, which outlive it. One object is for one thread at a
/// time.
class NAL_EXPORT CNALDHCertManager {
public:
    enum EDirection {
        c_sent,      ///< own certificates, as the peer has them
        c_received,  ///< the peer's certificates
    };

    CNALDHCertManager(CNALRecFileDHCert& records, CNALCertStorage& storage) : m_records(records), m_storage(storage) {}

    /// Gives the first key by the order above, whether or not its certificate is at hand.
    /// @return false, and `keyNumber` unchanged, when no key counts
    bool GetActualKeyNumber(const SNALDHPeer& peer, EDirection direction, IdentObj& keyNumber) const;

    /// Gives the first key by the order above whose certificate is in the storage and in its validity period now. The
    /// certificate is not verified otherwise: that is the caller's, as for every certificate that it is about to use.
    /// @param keyNumber  receives the key number, if not null
    /// @return false, and the arguments unchanged, when there is none
    bool GetActualCertificate(const SNALDHPeer& peer, EDirection direction, CNALCertContext& certificate,
                              IdentObj* keyNumber = nullptr) const;

    /// Marks the key that GetActualCertificate gives as the actual one, for every process.
    /// @return false when there is none
    bool MarkActual(const SNALDHPeer& peer, EDirection direction);

private:
    CNALRecFileDHCert& m_records;
    CNALCertStorage& m_storage;
};
