/// Certificate requests as contexts, and the storages that keep them.
///
/// A request is handed around as a context, in the manner of the CryptoAPI: contexts are reference counted, belong to an open
/// storage, and are read through property identifiers. A storage is one file (docs/request-storage.md), which every change
/// rewrites whole: after a crash it is as it was before or after that change. Several processes may use one file at once.
///
/// A context is a picture of its entry when it was handed out and never changes. Contexts and storages may be used by any
/// thread; one handle variable is for one thread at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>

#include "nal/export.h"
#include "nal/wincrypt.h"
#include "too/ident_obj.h"
#include "too/status.h"
#include "too/string.h"
#include "too/time.h"
#include "too/types.h"

class CNALCertContext;
class CNALCRLContext;
class CNALReqContextStorage;

// Statuses of a request.
#define NAL_REQ_STATUS_MADE 1
#define NAL_REQ_STATUS_SENT 2
#define NAL_REQ_STATUS_ACCEPTED 3   ///< the key centre has it
#define NAL_REQ_STATUS_REFUSED 4    ///< the key centre will not issue
#define NAL_REQ_STATUS_RECEIVED 5   ///< the certificate is here
#define NAL_REQ_STATUS_INSTALLED 6  ///< the certificate is bound to its key pair

// Types of a request. Every value but 2 is a request of one's own.
#define NAL_REQ_TYPE_OWN 1
#define NAL_REQ_TYPE_EXTERNAL 2

// Indices of NAL_REQ_CONTEXT::rgTime.
#define NAL_REQ_TIME_MADE 0
#define NAL_REQ_TIME_SENT 1
#define NAL_REQ_TIME_DECIDED 2  ///< accepted or refused
#define NAL_REQ_TIME_RECEIVED 3
#define NAL_REQ_TIME_INSTALLED 4
#define NAL_REQ_TIME_COUNT 5

// Identifiers of NALGetReqProperties, with the type of the output.
#define NAL_REQ_PROP_IDENTITY 1     ///< IdentObj
#define NAL_REQ_PROP_REQUEST 2      ///< IdentObj
#define NAL_REQ_PROP_VALUE 3        ///< DWORD
#define NAL_REQ_PROP_HISTORY 4      ///< CNALReqHistory
#define NAL_REQ_PROP_STATUS 5       ///< DWORD
#define NAL_REQ_PROP_CERTIFICATE 6  ///< CNALCertContext
#define NAL_REQ_PROP_ISSUER 7       ///< CNALCertContext
#define NAL_REQ_PROP_CRL 8          ///< CNALCRLContext

/// Flag of NALCertOpenReqStorage: a file that is not there is made, as an empty storage.
#define NAL_REQ_STORAGE_CREATE 0x2000

/// A request as the host sees it. What its pointers name belongs to the context.
struct NAL_REQ_CONTEXT {
    /// 16 bytes in host byte order: network number << 16 (4), certificate number (4), random (8). The certificate that is
    /// issued takes its serial number from them.
    CRYPTOAPI_BLOB Identity;
    DWORD dwValue;                             ///< which key the request is for: AT_KEYEXCHANGE, AT_SIGNATURE, 0 for not known
    CRYPTOAPI_BLOB Request;                    ///< the request, DER (RFC 2986)
    DWORD dwStatus;                            ///< NAL_REQ_STATUS_*
    DWORD dwRequestType;                       ///< NAL_REQ_TYPE_*
    std::uint64_t rgTime[NAL_REQ_TIME_COUNT];  ///< file times (too/time.h) by NAL_REQ_TIME_*; 0 for not yet
    PCCERT_CONTEXT pCertificate;               ///< the certificate issued; null before
    PCCERT_CONTEXT pIssuer;                    ///< the certificate that issued it; null before
    PCCRL_CONTEXT pCrl;                        ///< the issuer's CRL; null before
    CRYPTOAPI_BLOB Container;                  ///< the name of the container that holds the key pair, UTF-8; may be empty
    CNALReqContextStorage* pStorage;           ///< the storage that it came from; null for none
};

// ---------------------------------------------------------------------------------------------------------------------
// History

/// One event: a status and since when.
struct CNALHistoryItem {
    DWORD m_status = 0;
    CTOOFileTime m_time;
};

inline bool operator==(const CNALHistoryItem& a, const CNALHistoryItem& b) {
    return a.m_status == b.m_status && a.m_time == b.m_time;
}
inline bool operator!=(const CNALHistoryItem& a, const CNALHistoryItem& b) {
    return !(a == b);
}
// Order is of the times alone.
inline bool operator<(const CNALHistoryItem& a, const CNALHistoryItem& b) {
    return a.m_time < b.m_time;
}
inline bool operator>(const CNALHistoryItem& a, const CNALHistoryItem& b) {
    return b.m_time < a.m_time;
}

/// The statuses that a request went through, in the order in which they were recorded.
class NAL_EXPORT CNALReqHistory {
public:
    /// @return the last item; an empty one (status 0, zero time) when there is none
    CNALHistoryItem GetCurrentStatus() const { return m_items.empty() ? CNALHistoryItem() : m_items.back(); }

    /// Takes the history of a context's entry from its storage, as the file has it now. A context without a storage has none:
    /// the list is then empty.
    /// @return TOO_OK; 28 for null; 194 when the entry was deleted; else the status with which the file could not be read. The
    ///         list is then untouched.
    int SetByContext(const NAL_REQ_CONTEXT* context);

    std::list<CNALHistoryItem> m_items;
};

// ---------------------------------------------------------------------------------------------------------------------
// Contexts

/// Makes a context with one reference from a record, which need not be a context: blobs are copied, certificates and CRL
/// duplicated. With a storage it counts as one of that storage's open contexts; it stands for an entry of the storage only
/// when `from` is an open context that does.
/// @return the context, for NALCloseReqContext
NAL_EXPORT const NAL_REQ_CONTEXT* NALCreateReqContext(NAL_REQ_CONTEXT& from);

/// Makes a context without a storage for a certificate that came without a request, with status 5.
/// @param external  whether it is for an external user (type 2)
/// @return the context, for NALCloseReqContext; null with last error 0x80070057 for null
NAL_EXPORT const NAL_REQ_CONTEXT* NALCreateReqContext(const CERT_CONTEXT* certificate, bool external);

/// Adds one reference. @return the same context; null for null
NAL_EXPORT const NAL_REQ_CONTEXT* NALDuplicateReqContext(const NAL_REQ_CONTEXT* context);

/// Drops one reference; the last one frees the context, and closes its storage when that waits for its last context.
/// @return FALSE for null, else TRUE
NAL_EXPORT BOOL NALCloseReqContext(const NAL_REQ_CONTEXT* context);

/// Reads a property.
///
/// @param id   NAL_REQ_PROP_*
/// @param out  an object of the property's type. For 6 without a certificate it is left as it is, and the call succeeds.
/// @param err  if not null, receives 0; 28 for a null context or output or another id; 194 for 7 and 8 when absent, and for 4
///             when the entry was deleted; for 4 also what SetByContext gives
/// @return TRUE exactly when the status is 0; otherwise `out` is untouched
NAL_EXPORT BOOL NALGetReqProperties(unsigned id, const NAL_REQ_CONTEXT* context, void* out, int* err);

/// Does nothing. @return TRUE
NAL_EXPORT BOOL NALSetReqProperties(unsigned id, const NAL_REQ_CONTEXT* context, const void* value, int* err);

/// Owns one reference to a context.
class NAL_EXPORT CNALCertReqContext {
public:
    CNALCertReqContext() = default;
    /// Takes the caller's reference over, as Attach.
    explicit CNALCertReqContext(const NAL_REQ_CONTEXT* context) : m_context(context) {}
    CNALCertReqContext(const CNALCertReqContext& other) : m_context(NALDuplicateReqContext(other.m_context)) {}
    CNALCertReqContext(CNALCertReqContext&& other) noexcept : m_context(other.Detach()) {}
    CNALCertReqContext& operator=(CNALCertReqContext other) noexcept {
        const NAL_REQ_CONTEXT* mine = m_context;
        m_context = other.m_context;
        other.m_context = mine;
        return *this;
    }
    ~CNALCertReqContext() { NALCloseReqContext(m_context); }

    /// Closes the present context and takes the caller's reference to another over.
    void Attach(const NAL_REQ_CONTEXT* context) { *this = CNALCertReqContext(context); }
    /// Hands the reference to the caller and leaves this empty.
    const NAL_REQ_CONTEXT* Detach() {
        const NAL_REQ_CONTEXT* context = m_context;
        m_context = nullptr;
        return context;
    }
    /// The context, still owned here; null when empty.
    const NAL_REQ_CONTEXT* Get() const { return m_context; }
    const NAL_REQ_CONTEXT* operator->() const { return m_context; }
    const NAL_REQ_CONTEXT& operator*() const { return *m_context; }
    explicit operator bool() const { return m_context != nullptr; }

private:
    const NAL_REQ_CONTEXT* m_context = nullptr;
};

// ---------------------------------------------------------------------------------------------------------------------
// Storages

namespace nal {
class RequestStorages;
class RequestStorageFile;
struct RequestEntry;
}  // namespace nal

/// An open request storage. Objects are made by NALCertOpenReqStorage, whose handle is the object's address; all openings of
/// one file in a process share one object.
///
/// Methods throw XTOOStatus, with a text that names the file: 206 for a file that is no sound storage, 28 for a context of
/// another storage, 194 for an entry that was deleted meanwhile, 12 above 64 MiB, and what CTOOFile throws (4 when the file is
/// gone, 9 for a full disk, ...). On failure nothing is changed, unless only the last step of a rewrite failed (see
/// CTOOWholeFile::Commit).
class NAL_EXPORT CNALReqContextStorage {
public:
    CNALReqContextStorage(const CNALReqContextStorage&) = delete;
    CNALReqContextStorage& operator=(const CNALReqContextStorage&) = delete;
    ~CNALReqContextStorage();

    /// @return the open storage of a handle; null for a stale or invented one
    static std::shared_ptr<CNALReqContextStorage> FromHandle(unsigned long handle);
    unsigned long GetHandle() const;
    /// The file's full path.
    const CTOOString& GetPath() const;

    /// Walks the entries in the order in which they were added. Entries added or deleted during the walk, also by other
    /// processes, disturb it nowhere else. An entry whose certificate or CRL does not decode is logged and passed over.
    /// @param previous  null to start, else the context returned last, which is closed whatever the outcome
    /// @return the next context, for NALCloseReqContext; null at the end
    const NAL_REQ_CONTEXT* EnumContexts(const NAL_REQ_CONTEXT* previous);

    /// Adds an entry with what `from` holds; its history begins with the status, at the time that rgTime has for it or, when
    /// that is 0, now. Without a status it is 1.
    /// @return a context of the new entry, for NALCloseReqContext
    const NAL_REQ_CONTEXT* AddContext(const NAL_REQ_CONTEXT& from);

    /// Records a new status.
    /// @param context  in: a context of the entry; out, on success: a new one that shows the change; the old one is closed
    /// @param when     since when; zero means now
    void ChangeContextStatus(const NAL_REQ_CONTEXT** context, unsigned status, FILETIME when);

    /// Records an answer of the key centre, with a new status, in one change. Other arguments as above.
    /// @throws XTOOStatus(28) for an empty certificate; an empty issuer or CRL takes the one that is there away
    void SetAnswer(const NAL_REQ_CONTEXT** context, const CNALCertContext& certificate, const CNALCertContext& issuer,
                   const CNALCRLContext& crl, unsigned status, FILETIME when);

    /// Deletes the context's entry. The context can still be read, and still has to be closed, but belongs to no storage then
    /// and cannot carry a walk on: a walk deletes through a copy of its context, made by NALCreateReqContext.
    void DeleteContext(const NAL_REQ_CONTEXT* context);

    /// The history of a context's entry as the file has it now.
    std::list<CNALHistoryItem> GetHistory(const NAL_REQ_CONTEXT* context) const;

private:
    friend class nal::RequestStorages;
    struct Open;

    explicit CNALReqContextStorage(const CTOOString& path);

    std::uint64_t EntryOf(const NAL_REQ_CONTEXT* context) const;
    void ChangeEntry(const NAL_REQ_CONTEXT** context, const std::function<void(nal::RequestEntry&)>& change);

    std::unique_ptr<nal::RequestStorageFile> m_file;
    std::unique_ptr<Open> m_open;
};

/// Opens a request storage.
///
/// @param provider  7, as CERT_STORE_PROV_FILENAME_A, with the path in `path`; or a pointer to text that is the path itself
/// @param flags     0, or NAL_REQ_STORAGE_CREATE
/// @param handle    receives the handle, for NALCertCloseReqStore; 0 on failure
/// @return TRUE when opened; FALSE with the last error set to the status: 28 for a null or empty argument, 230 for another
///         provider or flag, 4 for a missing file, 206 for one that is no storage, other statuses of the file; it is logged
///         with the file's name
NAL_EXPORT BOOL NALCertOpenReqStorage(const char* provider, const void* path, unsigned flags, unsigned long* handle);
/// The same, for who wants to know what is wrong.
/// @param err  receives the status; when null, a failure is thrown
/// @param msg  receives the text, which names the file
NAL_EXPORT BOOL NALCertOpenReqStorage(const char* provider, const void* path, unsigned flags, unsigned long* handle, int* err,
                                      CTOOString* msg);

/// Closes a storage as often as it was opened; the last closing waits for the storage's open contexts, if there are any.
/// @param flags  not used
/// @return FALSE with last error 43 for a stale or invented handle, else TRUE
NAL_EXPORT BOOL NALCertCloseReqStore(unsigned long handle, unsigned flags);

/// Walks the contexts of a storage, as CNALReqContextStorage::EnumContexts.
///
/// @param findType  0, every context
/// @param findPara  not used
/// @param previous  null to start, else the context returned last, which is closed whatever the outcome
/// @return the next context; null with last error 0x80092004 at the end, 43 for a bad handle, 230 for another find type, else
///         the status of the failure, which is logged
NAL_EXPORT const NAL_REQ_CONTEXT* NALFindReqContextInStorage(unsigned long handle, unsigned findType, void* findPara,
                                                             const NAL_REQ_CONTEXT* previous);

/// As CNALReqContextStorage::ChangeContextStatus of the context's storage.
/// @param reserved  not used
/// @return TRUE; FALSE with the last error set: 28 for null or a context without an open storage, else the status, which is
///         logged. The context is then the old one.
NAL_EXPORT BOOL NALChangeContextStatus(const NAL_REQ_CONTEXT** context, unsigned status, FILETIME when, void* reserved);

/// As CNALReqContextStorage::DeleteContext of the context's storage. When that storage waits for its last context, and this was
/// it, it is closed. The caller's reference stays and is closed as ever.
/// @return as NALChangeContextStatus
NAL_EXPORT BOOL NALDeleteContextFromStorage(const NAL_REQ_CONTEXT* context);

// ---------------------------------------------------------------------------------------------------------------------
// The transport folder

/// Lists the request storages of a transport folder: `d_station/e_users/*_extu.log` (external users), then
/// `d_station/o_users/*_ownu.log` (one's own), each sorted by name.
///
/// @param folder        the transport folder, with slashes or backslashes; folders that are missing give no files
/// @param allKinds      whether both kinds are listed
/// @param onlyExternal  without `allKinds`: external users' if set, one's own if not
/// @param err           receives 0, or the status with which a folder could not be read; when null, that is thrown
/// @return the paths; none on failure
NAL_EXPORT std::list<CTOOString> NALGetReqStatusFile(const CTOOString& folder, bool allKinds, bool onlyExternal, int* err);

/// What became of one certificate of an answer, or of one file of answers (with an empty serial number).
struct NAL_EXPORT CNALAnswerReport {
    CTOOString m_file;     ///< the file that it came in
    IdentObj m_serial;     ///< the certificate's serial number, least significant byte first
    int m_status = TOO_OK; ///< 0 taken, or taken before; 194 nobody asked for its key; 156 the request has another certificate
                           ///< already; 58 no certificate beside it signed it; else the file's failure
    bool m_isNew = false;  ///< whether this call took it
    CTOOString m_text;     ///< for the operator; empty when taken
};

/// Takes the answers of the key centre in: `d_station/tmp/ext_input.cer` and `own_input.cer`, stores that hold new certificates,
/// their issuers' and the CRLs.
///
/// A certificate that belongs to the key of a request in a storage of that kind (see NALGetReqStatusFile), and that an issuer's
/// certificate beside it signed, becomes property 6 of the request, the issuer's property 7, the issuer's CRL property 8, and the
/// status becomes 5. A request that has this certificate is left as it is, and so is one with status 5 or 6 and another
/// certificate. Certificates of CAs, and those that issued others of the file, are no answers themselves. The files stay: taking them in twice
/// changes nothing. Whether an answer is to be trusted is checked when it is installed.
///
/// @param transportFolder  with slashes or backslashes; missing files are fine
/// @param reports          if not null, receives a report a certificate, in the order of the files
/// @param err              receives 0 or the first status of a report that is not 0; when null, that is thrown
/// @param msg              receives its text
/// @return TRUE exactly when the status is 0; whatever it is, every other certificate was taken
NAL_EXPORT BOOL NALTakeAnswers(const CTOOString& transportFolder, std::list<CNALAnswerReport>* reports, int* err, CTOOString* msg);
