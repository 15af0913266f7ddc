// A key centre: its folder, its authorities and the steps of issuing.
//
//   centre.db              the records (records.h)
//   root.key ...           key containers, all under one password
//   root.cer ...           certificates of the authorities
//   crl/root.crl ...       the CRLs made last
//   centre.log             what was done (event_log.h)
//
// How a certificate comes to be, each step on the disk before the next begins:
//
//   1  its record is made with its serial number        Reserved
//   2  it is signed, and goes into the record           Issued
//   3  it is handed over
//   4  the record says so                               Answered
//
// A run that dies before 2 leaves a record without certificate, which the next run gives up; one that dies later leaves a certificate
// that the next run hands over, again if need be: handing over twice changes nothing.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "keycentre/issuer.h"
#include "keycentre/service/event_log.h"
#include "keycentre/service/folder_lock.h"
#include "keycentre/service/records.h"

namespace keycentre {

/// A certificate to be made.
struct Order {
    CNALPKCS10Request request;
    Profile profile;
    std::string name;               ///< the subject as text
    std::string key;                ///< fingerprint of the key
    std::string digest;             ///< fingerprint of the request
    std::uint32_t number = 0;       ///< certificate number that the request names
    std::int64_t voucher = 0;
    bool entitled = false;
    Delivery delivery = Delivery::None;
    std::string folder;
    std::string file;
};

class Centre {
public:
    struct Founding {
        CTOOString folder;              ///< must not exist
        const char* password = "";      ///< of the keys
        std::uint16_t network = 0;      ///< for whose hosts it issues
        CNALX509Name root;              ///< the root's name
        std::optional<CNALX509Name> issuing;  ///< name of a subordinate CA that issues in the root's place
        CNALX509Name lists;             ///< name of the signer of trust lists
        CTOOString paramOid;            ///< parameter set of the keys, RFC 4357 section 8.4; empty: 1.2.643.2.2.35.1
    };
    /// Makes a centre with its keys, certificates and first CRLs. The folder appears whole or not at all.
    /// @throws XTOOFile 8 when there is one; XTOOStatus as KeyPair and Records
    static void Found(const Founding& founding);

    /// Opens a centre's records. @throws XTOOFile 4 when there is none; as Records
    explicit Centre(const CTOOString& folder);

    /// Opens the keys. @throws XTOOStatus(86) for a wrong password
    void OpenKeys(const char* password);

    Records& GetRecords() { return m_records; }
    EventLog& GetLog() { return m_log; }
    std::uint16_t GetNetwork() const { return m_network; }
    /// Root first. What the records hold now of CRLs is in GetRecords().GetAuthorities().
    const std::list<AuthorityRecord>& GetAuthorities() const { return m_authorities; }
    const AuthorityRecord& GetAuthority(Role role) const;
    /// Who issues to users.
    Role GetIssuingRole() const { return m_issuingRole; }
    /// An authority with its key. @throws XTOOStatus(42) before OpenKeys
    const Issuer& GetIssuer(Role role) const;

    /// Held while records are changed in more than one step, so that what is found half-made then is a dead run's.
    /// Gives up what such a run had reserved.
    FolderLock Lock();

    /// Steps 1 and 2, for all orders at once. The lock is held.
    ///
    /// @return the records, in the order of the orders
    /// @throws XTOOStatus(196) when a key or request has a certificate already; (222), (223) when the issuing authority's certificate is
    ///         revoked or not valid now; nothing is issued then
    std::vector<CertificateRecord> Issue(const std::vector<Order>& orders);
    /// Step 4.
    void SetAnswered(const std::vector<CertificateRecord>& records);

    /// Makes a new CRL for the root and the issuing CA, and writes them to the folder `crl`. The lock is held.
    void MakeCrls(unsigned days = kCrlDays);
    /// The same for those that have none, whose next one is due, or that lack a revocation. @return whether there were any
    bool MakeDueCrls();
    /// Records a revocation. The CRL of the authority that signed the certificate is due from then on.
    /// @throws XTOOStatus(194) for an unknown serial, (196) when it is revoked already, (28) for the root's
    CertificateRecord Revoke(const IdentObj& serial, unsigned reason);
    CertificateRecord Entitle(const IdentObj& serial, bool entitled);

    static constexpr unsigned kCrlDays = 30;

private:
    void MakeCrl(Role role, unsigned days);
    void RequireIssuing(const Issuer& issuer);
    CertificateRecord Find(const IdentObj& serial);

    CTOOString m_folder;
    Records m_records;
    EventLog m_log;
    std::uint16_t m_network = 0;
    std::list<AuthorityRecord> m_authorities;
    Role m_issuingRole = Role::Root;
    std::map<Role, Issuer> m_issuers;
};

/// A serial number as people read it: hexadecimal, most significant byte first.
std::string SerialText(const IdentObj& serial);

}  // namespace keycentre
