/// The files in which a host keeps the state of its certificate requests and says how certificates are to be requested.
/// docs/request-files.md describes both files.
#pragma once

#include <list>
#include <vector>

#include "nal/export.h"
#include "nal/name.h"
#include "too/config_file.h"
#include "too/file.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

/// The state of one certificate request.
///
/// The library keeps the fields and compares them; what they mean is a convention among those who use the file, given
/// below. One object is for one thread at a time.
class NAL_EXPORT CNALCertRequestStatus {
public:
    /// The format that has the three optional identifiers.
    static constexpr DWORD c_formatWithOptional = 0x10002;
    /// The bytes of a record beside its identifiers.
    static constexpr unsigned c_fixedSize = 60;

    /// Reads a record from the start of `data`.
    ///
    /// @return the bytes consumed; 0, with the record unchanged, when `data` is null or fewer bytes are there than the
    ///         record says
    unsigned ReadData(const void* data, unsigned size);
    /// Reads a record at the position of `file`, which moves behind it.
    ///
    /// @param size  the most bytes that the record may have
    /// @return the bytes consumed; 0 on any error, and then record and position are unchanged
    unsigned ReadData(const CTOOFile& file, unsigned size);

    /// Writes the record.
    ///
    /// @param buf   receives GetObjectSize() bytes
    /// @param size  the room at `buf` in bytes
    /// @return the bytes written; 0 for a null buffer or too little room, and for a record of more than 4 GiB - 1
    unsigned WriteData(void* buf, unsigned size) const;
    /// Writes the record at the position of `file`, in one piece.
    ///
    /// @param size  the most bytes that may be written
    /// @return the bytes written, 0 on any error
    unsigned WriteData(CTOOFile& file, unsigned size) const;

    /// @return the size of the encoded record in bytes: 60 and the serialized sizes of the identifiers that its format
    ///         has; saturates at 4 GiB - 1
    unsigned GetObjectSize() const;

    /// Compares every field but the three optional identifiers.
    bool operator==(const CNALCertRequestStatus& other) const;
    bool operator!=(const CNALCertRequestStatus& other) const { return !(*this == other); }
    /// True only when each of the fields that == compares is less than, or greater than, the other's: not an order, and
    /// of two different records often neither is less. Kept so deliberately.
    bool operator<(const CNALCertRequestStatus& other) const;
    bool operator>(const CNALCertRequestStatus& other) const { return other < *this; }

    DWORD m_requestType = 0;  ///< first word: 1 for an own user, 2 for an external one
    DWORD m_format = 0;       ///< c_formatWithOptional, or anything else for a record without them
    IdentObj m_requestId;     ///< first identifier: the request's, by which it is looked up
    IdentObj m_subjectName;   ///< second: the DER of the subject's name
    IdentObj m_userName;      ///< third: the user's name as text
    DWORD m_status = 0;       ///< 1 made, 2 sent, 3 accepted, 4 refused, 5 received, 6 installed
    DWORD m_certificateNumber = 0;
    DWORD m_flags = 0;
    CTOOFileTime m_timeMade;  ///< times are zero for what has not happened
    CTOOFileTime m_timeSent;
    CTOOFileTime m_timeAnswered;
    CTOOFileTime m_timeReceived;
    CTOOFileTime m_timeInstalled;
    IdentObj m_certificateSerial;  ///< optional: the certificate's serial number, least significant byte first
    IdentObj m_certificateIssuer;  ///< optional: the DER of its issuer's name
    IdentObj m_subjectKeyId;       ///< optional: its subject key identifier
    IdentObj m_comment;            ///< last: text for people
};

/// The list file of request-status records.
///
/// LoadFile brings the list into memory, StoreFile writes it back. A store never leaves a half-written file: the new
/// content goes to a temporary file, which then takes the file's name; after a failure, or a crash at any moment, the
/// file is as before or as after. When it returns, the content is on the disk.
///
/// Several processes may work on one file: a store runs under an inter-process lock of the file. When another one has
/// changed the file since this object read it, the store does to the file as it is now what was done to the list:
/// records taken out of the list are taken out, records put into it come behind the others; a record that was replaced
/// is both. An object that has not loaded the file has only put in. The list is then what the file holds.
///
/// Failures are XTOOStatus: 4 no such file, 5 a damaged record or bytes behind the last one, 12 a file above
/// c_maxFileSize, 28 an index beyond the list, 194 no such request, and those of CTOOFile, which name the file. Where a
/// function has `err`, the code is stored there if it is not null, and else thrown. A change that cannot be stored
/// leaves the list as it was. One object is for one thread at a time.
class NAL_EXPORT CNALCertRequestCfgFile {
public:
    static constexpr unsigned c_maxFileSize = 64U * 1024 * 1024;

    /// Reads nothing yet.
    ///
    /// @param path      the file
    /// @param keepsCopy whether a store keeps what the file held before as "<path>.old", which is then the second path
    CNALCertRequestCfgFile(const char* path, bool keepsCopy);

    /// The file; after a retry the second path.
    const CTOOString& GetPath() const { return m_path; }
    /// The path that LoadFile tries when the file cannot be loaded; empty for none.
    const CTOOString& GetRetryPath() const { return m_retryPath; }
    void SetRetryPath(const char* path) { m_retryPath = path; }

    /// Replaces the list by what the file holds. When that fails and there is a second path, it becomes the file's
    /// path, and the load is tried once more from there; the first failure is logged.
    /// @throws XTOOStatus as the class says; the list is empty then if the file was damaged
    void LoadFile();
    /// Writes the list to the file. Makes the folder when it is missing.
    void StoreFile();

    /// Adds a record behind the others. @param store  whether the file is stored at once
    /// @return its index
    unsigned AddRecord(const CNALCertRequestStatus& record, bool store);
    /// @throws XTOOStatus(28, "CNALCertRequestCfgFile::ReplaceRecord")
    void ReplaceRecord(const CNALCertRequestStatus& record, unsigned index, bool store);
    /// Removes the first record that equals this one, and stores the file.
    /// @throws XTOOStatus(194, "CNALCertRequestCfgFile::DeleteRecord")
    void DeleteRecord(const CNALCertRequestStatus& record);
    /// Removes a record and stores the file. @throws XTOOStatus(28, "CNALCertRequestCfgFile::DeleteRecord")
    void DeleteRecord(unsigned index);
    /// Removes all records, from a damaged file and those of other processes too, and stores the file.
    void DeleteAllRecords();

    /// @return the last record of the list
    /// @throws XTOOStatus(194, "CNALCertRequestCfgFile::GetLastRequest") for an empty list
    CNALCertRequestStatus GetLastRequest() const;

    /// @return the record; with `err` on failure an empty one. The text is "CNALCertRequestCfgFile::GetCertRequestInfo"
    /// in
    ///         all three
    CNALCertRequestStatus GetCertRequestInfo(unsigned index, int* err = nullptr) const;
    /// The first record with this request identifier.
    CNALCertRequestStatus GetCertRequestInfo(const IdentObj& id, int* err) const;
    /// The first record, from an index on, with this request identifier and user name.
    ///
    /// @param id    null for any
    /// @param name  null for any. Letters A-Z count as a-z, and only as many characters as the record's name has are
    ///              compared, so a longer name fits too, and any name fits a record without one. Kept so deliberately.
    /// @param from  the index where the search begins
    CNALCertRequestStatus GetCertRequestInfo(const IdentObj* id, const IdentObj* name, unsigned from, int* err) const;
    /// The records of one subject in the order of the list.
    ///
    /// @param subject  compared as CNALX509Name compares; a record whose name does not decode is another's. Null for
    /// all
    /// @param count    receives their number, if not null
    /// @throws XTOOStatus 134 when `subject` does not decode
    std::list<CNALCertRequestStatus> GetCertRequestInfoList(CNALX509Name* subject, unsigned* count) const;
    /// The list itself, for changing it before StoreFile; valid as long as the object.
    std::list<CNALCertRequestStatus>* GetCertRequestInfoListAddr() { return &m_list; }

private:
    using List = std::list<CNALCertRequestStatus>;

    void Load();
    void Store(List records, bool isWhole = false);
    void Write(const List& records, const CTOOString& folder, const CTOOString& name) const;
    List Merge(const List& records, const List& found) const;

    CTOOString m_path;
    CTOOString m_retryPath;
    bool m_keepsCopy;
    List m_list;
    std::vector<IdentObj> m_asRead;  // the records, encoded, that the file had when it was last loaded or stored
};

/// The configuration file that says how certificates are to be requested. See CTOOConfigInfoFile for its form, for
/// errors and threads.
class NAL_EXPORT CNALCertificateInfo : public CTOOConfigInfoFile {
public:
    static constexpr const char* CertCfgFileName = "cert_pki.cfg";
    static constexpr const char* CertCfgFileGeneralSectionName = "General";
    static constexpr const char* CertCfgFileAlgorithmSectionName = "Algorithms";
    static constexpr const char* CertCfgFileCertificateSectionName = "Certificates";
    static constexpr const char* CertCfgFileHashAlgoNameKey = "HashAlgorithmName";
    static constexpr const char* CertCfgFileCertifIssuerNameKey = "CertIssuerName";
    static constexpr const char* CertCfgFileCertifNumberKey = "CertificateNumber";
    static constexpr const char* CertCfgFileSignExtensionKey = "SignExtension";

    /// As CTOOConfigInfoFile: path, whether it may be missing, the most bytes of the file and of a line (0: the
    /// defaults).
    CNALCertificateInfo(const char* file, bool mayBeMissing, unsigned long maxSize, unsigned long maxLine);
    ~CNALCertificateInfo() override;

    /// The keys of one section. @return whether the file has it; `keys` is empty when it does not
    bool GetGeneralSection(std::list<CConfigFileKeyListItem>* keys) const;
    bool GetAlgorithmSection(std::list<CConfigFileKeyListItem>* keys) const;
    bool GetCertificateSection(std::list<CConfigFileKeyListItem>* keys) const;
    /// Makes these the keys of one section and writes the file.
    void PutGeneralSection(const std::list<CConfigFileKeyListItem>& keys);
    void PutAlgorithmSection(const std::list<CConfigFileKeyListItem>& keys);
    void PutCertificateSection(const std::list<CConfigFileKeyListItem>& keys);
};
