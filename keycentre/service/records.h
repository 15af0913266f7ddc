// What the key centre knows of itself, of its authorities, and of every certificate that it made.
//
// docs/keycentre.md draws the tables. Every change here is part of a Transaction that the caller opens; the functions throw as
// Connection does, and XTOOStatus(194) for a record that is not there.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <vector>

#include "keycentre/service/sqlite.h"
#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

namespace keycentre {

/// The authorities of a centre.
enum class Role : int {
    Root = 1,    ///< signs itself, the other two, and users when there is no Issuing
    Issuing = 2, ///< a subordinate CA that signs users
    Lists = 3,   ///< signs trust lists; no CA
};

struct AuthorityRecord {
    Role role = Role::Root;
    CTOOString container;  ///< name of its key container in the centre's folder
    IdentObj certificate;  ///< DER
    std::int64_t crlCounter = 0;  ///< of the CRL made last, or begun
    IdentObj crl;          ///< DER of the one made last; empty when none was
    FILETIME crlNext{0, 0};  ///< when the next one is due; 0: now, for a revocation is on none yet
};

/// How far a certificate has come. A certificate leaves the centre only when it is Issued, and its serial number is never free again.
enum class State : int {
    Reserved = 0,   ///< has its serial number, and nothing is signed yet
    Issued = 1,     ///< signed and recorded
    Answered = 2,   ///< handed over
    Abandoned = 3,  ///< reserved by a run that died: there is no such certificate
};

/// Where a certificate is handed over.
enum class Delivery : int {
    None = 0,
    File = 1,      ///< a file of its own
    Own = 2,       ///< the transport folder's answers for its own users
    External = 3,  ///< those for external users
};

struct CertificateRecord {
    std::int64_t id = 0;
    IdentObj serial;         ///< 16 bytes, least significant first
    Role authority = Role::Root;
    State state = State::Reserved;
    IdentObj subject;        ///< the name's DER
    std::string name;        ///< the same as text
    std::string key;         ///< fingerprint of the public key
    std::string request;     ///< fingerprint of the request; empty for the centre's own certificates
    IdentObj certificate;    ///< DER; empty before Issued
    FILETIME made{0, 0};     ///< when it was reserved
    FILETIME notBefore{0, 0};
    FILETIME notAfter{0, 0};
    Delivery delivery = Delivery::None;
    std::string folder;      ///< the transport folder that the request lay in
    std::string file;        ///< the request's file name, or the path of the certificate's file
    std::int64_t voucher = 0;  ///< the certificate that signed the request; 0: the operator released it
    bool entitled = false;   ///< may vouch for others
    std::optional<FILETIME> revoked;
    unsigned reason = 0;     ///< CRLReason
};

/// A first request that waits for the operator.
struct WaitingRecord {
    std::string folder;
    std::string file;
    std::int64_t inode = 0, size = 0, changed = 0;  ///< what tells that the file is still the same
    std::string name;
    std::string key;
    FILETIME seen{0, 0};
};

class Records {
public:
    /// Makes the database. @throws 196 when there is one
    static void Create(const CTOOString& file);
    /// Opens one. @throws XTOOStatus(206) for a database of another kind or version
    explicit Records(const CTOOString& file);

    Connection& GetConnection() { return m_connection; }

    // --- Settings ---
    std::optional<std::int64_t> GetSetting(const char* name);
    void PutSetting(const char* name, std::int64_t value);

    // --- Authorities ---
    std::list<AuthorityRecord> GetAuthorities();
    void PutAuthority(const AuthorityRecord& authority);
    /// Makes the next CRL due now.
    void SetCrlDue(Role authority);

    // --- Certificates ---
    /// @return the new record's id. @throws 196 when serial, key or request is there already
    std::int64_t Add(const CertificateRecord& record);
    /// Records what was signed. @throws 42 unless it is Reserved
    void SetIssued(std::int64_t id, const IdentObj& certificate);
    void SetAnswered(std::int64_t id);
    /// Gives up what runs that died had reserved. @return the serial numbers given up
    std::list<IdentObj> AbandonReserved();
    void SetRevoked(std::int64_t id, const FILETIME& when, unsigned reason);
    void SetEntitled(std::int64_t id, bool entitled);

    /// Look-ups leave Abandoned records out.
    std::optional<CertificateRecord> FindSerial(const IdentObj& serial);
    std::optional<CertificateRecord> FindKey(const std::string& fingerprint);
    std::optional<CertificateRecord> FindRequest(const std::string& fingerprint);
    /// What is issued and not handed over into this folder, in the order of issue.
    /// @param after  the id of the record before the first one sought; 0 for all
    /// @param most   how many are given
    std::vector<CertificateRecord> FindUndelivered(const std::string& folder, std::int64_t after, std::size_t most);
    /// Every revoked certificate of an authority, oldest revocation first.
    void ForEachRevoked(Role authority, const std::function<void(const CertificateRecord&)>& take);
    /// Every certificate that is not Abandoned, in the order of issue, without its DER unless asked for.
    void ForEach(bool withDer, const std::function<void(const CertificateRecord&)>& take);

    // --- First requests ---
    /// Whether this file, unchanged, is known to wait.
    bool IsWaiting(const WaitingRecord& file);
    void PutWaiting(const WaitingRecord& record);
    void RemoveWaiting(const std::string& folder, const std::string& file);
    void ForEachWaiting(const std::function<void(const WaitingRecord&)>& take);

private:
    void RequireOneChange() const;

    Connection m_connection;
};

}  // namespace keycentre
