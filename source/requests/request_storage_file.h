// The file of a request storage: its entries, their encoding, and the rewrite that replaces the file whole.
//
//   RequestStorage ::= SEQUENCE {
//       format      INTEGER (1),
//       lastNumber  INTEGER,                  -- of the entry added last, deleted ones included
//       entries     SEQUENCE OF Entry }       -- by rising number
//
//   Entry ::= SEQUENCE {
//       number      INTEGER,                  -- above 0, never used again in this file
//       identity    OCTET STRING,
//       request     OCTET STRING,
//       value       INTEGER (0..4294967295),
//       type        INTEGER (0..4294967295),
//       times       SEQUENCE SIZE (5) OF INTEGER,
//       history     SEQUENCE SIZE (1..MAX) OF SEQUENCE { status INTEGER, time INTEGER },
//       container   OCTET STRING,
//       certificate [0] OCTET STRING OPTIONAL,
//       issuer      [1] OCTET STRING OPTIONAL,
//       crl         [2] OCTET STRING OPTIONAL }
//
// Times are file times. An entry's status is that of its last history item and is kept nowhere else.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "asnt/view.h"
#include "nal/request_context.h"
#include "too/file.h"
#include "too/ident_obj.h"
#include "too/string.h"

namespace nal {

/// Which of NAL_REQ_TIME_* a status sets; NAL_REQ_TIME_COUNT for none.
unsigned TimeOfRequestStatus(DWORD status);

struct RequestEntry {
    std::uint64_t number = 0;
    IdentObj identity;
    IdentObj request;
    DWORD value = 0;
    DWORD type = 0;
    std::array<std::uint64_t, NAL_REQ_TIME_COUNT> times{};
    std::list<CNALHistoryItem> history;  // never empty in a file
    IdentObj container;
    IdentObj certificate;  // DER, each; empty when there is none
    IdentObj issuer;
    IdentObj crl;

    DWORD Status() const { return history.empty() ? 0 : history.back().m_status; }
    /// Adds to the history, and sets the time that goes with the status.
    void Record(DWORD status, const CTOOFileTime& when);
};

struct RequestList {
    std::uint64_t lastNumber = 0;
    std::vector<RequestEntry> entries;

    /// @return null when there is none of that number
    const RequestEntry* Find(std::uint64_t number) const;
    /// The first entry behind `number`; null when there is none.
    const RequestEntry* After(std::uint64_t number) const;
    /// @return the entry. @throws XTOOStatus(194, path)
    const RequestEntry& Get(std::uint64_t number, const CTOOString& path) const;
    RequestEntry& Get(std::uint64_t number, const CTOOString& path);
};

/// @throws XTOOStatus(206, "RequestStorage") for anything that EncodeRequestList does not write
RequestList DecodeRequestList(asnt::View file);
IdentObj EncodeRequestList(const RequestList& list);

/// One file, shared by threads and processes. Failures are those that CNALReqContextStorage names.
class RequestStorageFile {
public:
    explicit RequestStorageFile(const CTOOString& path) : m_path(path) {}

    const CTOOString& Path() const { return m_path; }

    /// Makes an empty storage when there is no file.
    void Create();

    /// The file's content, read again only when the file is another than at the last reading.
    ///
    /// A rewrite within the same tick of the file system's clock that hits upon the same inode and size would go unseen, so who
    /// begins something new reads afresh.
    std::shared_ptr<const RequestList> Read(bool afresh = false);

    /// Reads the file, lets `change` work on its entries, and puts the result in its place, all under the inter-process lock.
    /// Nothing happens to the file when `change` throws.
    void Change(const std::function<void(RequestList&)>& change);

private:
    /// What tells one content of the file from the next.
    struct Stamp {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::uint64_t size = 0;
        std::int64_t changed = 0;  // nanoseconds
        bool operator==(const Stamp&) const = default;
    };

    CTOOString LockName() const;
    std::shared_ptr<const RequestList> ReadLocked(bool afresh);
    void Store(const RequestList& list);
    static Stamp StampOf(const CTOOFile& file);

    const CTOOString m_path;
    std::mutex m_mutex;  // the two below
    Stamp m_stamp;
    std::shared_ptr<const RequestList> m_list;
};

}  // namespace nal
