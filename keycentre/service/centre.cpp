#include "keycentre/service/centre.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "keycentre/issuing/times.h"
#include "nal/fingerprint.h"
#include "nal/wide_string.h"
#include "too/file.h"
#include "too/folder.h"
#include "too/path.h"
#include "too/status.h"

namespace keycentre {
namespace {

constexpr char kDatabase[] = "centre.db";
constexpr char kLog[] = "centre.log";
constexpr char kNetwork[] = "network";

struct RoleFacts {
    Role role;
    const char* name;
};
constexpr RoleFacts kRoles[] = {{Role::Root, "root"}, {Role::Issuing, "issuing"}, {Role::Lists, "lists"}};

const char* NameOf(Role role) {
    for (const RoleFacts& facts : kRoles) {
        if (facts.role == role) return facts.name;
    }
    return "";
}

CTOOString In(const CTOOString& folder, const CTOOString& name) { return storedev::MakeFullPath(folder, name); }

std::string TextOf(const CNALX509Name& name) {
    std::wstring text;
    name.GetX500String(text, 0);
    return CNALString(text).ToBytes().str();
}

/// A folder that is removed with all that is in it, unless it is kept.
class NewFolder {
public:
    explicit NewFolder(const CTOOString& target) : m_target(target), m_path(target + ".new") {
        if (CTOOFolder::Exists(target) || CTOOFile::Exists(target)) {
            throw XTOOFile(TOO_E_FILE_EXISTS, target, "a key centre is not made where something is already");
        }
        CTOOString parent;
        CTOOString name;
        if (storedev::ParseFullPath(target, parent, name)) CTOOFolder::MakeFolder(parent);
        std::filesystem::remove_all(m_path.str());  // of a run that died
        if (::mkdir(m_path.c_str(), 0700) != 0) throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_WRITE), m_path, "cannot make the folder", errno);
    }
    ~NewFolder() {
        std::error_code ignored;
        if (!m_kept) std::filesystem::remove_all(m_path.str(), ignored);
    }
    NewFolder(const NewFolder&) = delete;
    NewFolder& operator=(const NewFolder&) = delete;

    const CTOOString& GetPath() const { return m_path; }
    void Keep() {
        CTOOFolder::Sync(m_path);
        if (::rename(m_path.c_str(), m_target.c_str()) != 0) {
            throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_WRITE), m_target, "cannot make the folder", errno);
        }
        m_kept = true;
        CTOOString parent;
        CTOOString name;
        CTOOFolder::Sync(storedev::ParseFullPath(m_target, parent, name) ? parent : CTOOString("."));
    }

private:
    CTOOString m_target;
    CTOOString m_path;
    bool m_kept = false;
};

/// The record of a certificate of the centre itself.
CertificateRecord OwnRecord(const Issuer& issuer, Role signedBy) {
    CertificateRecord record;
    record.serial = issuer.GetInfo().m_serialNumber;
    record.authority = signedBy;
    record.state = State::Answered;
    record.subject = issuer.GetName();
    record.name = TextOf(issuer.GetName());
    record.key = NALGetFingerprint(issuer.GetKeyPair().GetPublicKey().WriteData()).str();
    record.certificate = issuer.GetCertificate();
    record.made = Now();
    record.notBefore = issuer.GetInfo().m_notBefore;
    record.notAfter = issuer.GetInfo().m_notAfter;
    return record;
}

/// Cuts the periods of a profile that has both its times: nothing outlives the issuer.
void EndBy(const FILETIME& end, Profile& profile) {
    const auto cut = [&](std::optional<FILETIME>& time) {
        if (time && CTOOFileTime(*time) > CTOOFileTime(end)) time = end;
    };
    cut(profile.notAfter);
    if (!profile.privateKeyUsage && profile.privateKeyMonths != 0) {
        profile.privateKeyUsage = Period{profile.notBefore, AddMonths(*profile.notBefore, profile.privateKeyMonths)};
    }
    if (profile.privateKeyUsage) cut(profile.privateKeyUsage->notAfter);
}

CNALCertInfo Decode(const IdentObj& certificate) {
    CNALX509Certificate decoded;
    decoded.DecodeCert(certificate);
    return decoded.m_info;
}

}  // namespace

std::string SerialText(const IdentObj& serial) { return Serial2TOOStr(serial, false).str(); }

void Centre::Found(const Founding& founding) {
    NewFolder folder(founding.folder);
    const CTOOString parameters = founding.paramOid.empty() ? CTOOString("1.2.643.2.2.35.1") : founding.paramOid;
    const auto newKey = [&](Role role) {
        return KeyPair::Create(In(folder.GetPath(), CTOOString(NameOf(role)) + ".key"), founding.password, ORK_KEY_SIGNATURE, parameters.c_str());
    };
    const auto profileFor = [&](Profile profile) {
        profile.network = founding.network;
        return profile;
    };
    {
        Profile rootProfile = profileFor(RootProfile());
        if (!founding.issuing) rootProfile.pathLength = 0;
        const Issuer root = Issuer::SelfSigned(newKey(Role::Root), founding.root, rootProfile);

        const CTOOString file = In(folder.GetPath(), kDatabase);
        CTOOFile(file, "wx").Close();  // with permissions for the owner alone
        Records::Create(file);
        Records records(file);
        Transaction transaction(records.GetConnection());
        records.PutSetting(kNetwork, founding.network);
        const auto put = [&](Role role, const Issuer& issuer) {
            records.PutAuthority({role, CTOOString(NameOf(role)) + ".key", issuer.GetCertificate(), 0, {}, {}});
            records.Add(OwnRecord(issuer, Role::Root));
            CTOOWholeFile::Store(In(folder.GetPath(), CTOOString(NameOf(role)) + ".cer"), issuer.GetCertificate().GetData(), issuer.GetCertificate().GetSize());
        };
        put(Role::Root, root);
        if (founding.issuing) put(Role::Issuing, root.CertifyIssuer(newKey(Role::Issuing), *founding.issuing, profileFor(CaProfile())));
        put(Role::Lists, root.CertifyIssuer(newKey(Role::Lists), founding.lists, profileFor(TrustListProfile())));
        transaction.Commit();
    }
    CTOOFolder::MakeFolder(In(folder.GetPath(), "crl"), 0700);
    {
        Centre centre(folder.GetPath());
        centre.OpenKeys(founding.password);
        centre.MakeCrls();
        centre.m_log.Add("founded", {{"root", TextOf(founding.root)}, {"serial", SerialText(centre.GetIssuer(Role::Root).GetInfo().m_serialNumber)}});
    }
    folder.Keep();
}

Centre::Centre(const CTOOString& folder)
    : m_folder(folder), m_records([&] {
          const CTOOString file = In(folder, kDatabase);
          if (!CTOOFile::Exists(file)) throw XTOOFile(TOO_E_FILE_NOT_FOUND, file, "there is no key centre in this folder");
          return file;
      }()),
      m_log(In(folder, kLog)),
      m_network(static_cast<std::uint16_t>(m_records.GetSetting(kNetwork).value_or(0))),
      m_authorities(m_records.GetAuthorities()) {
    for (const AuthorityRecord& authority : m_authorities) {
        if (authority.role == Role::Issuing) m_issuingRole = Role::Issuing;
    }
}

const AuthorityRecord& Centre::GetAuthority(Role role) const {
    for (const AuthorityRecord& authority : m_authorities) {
        if (authority.role == role) return authority;
    }
    throw XTOOStatus(TOO_E_NOT_FOUND, CTOOString("the key centre has no authority \"") + NameOf(role) + "\"");
}

void Centre::OpenKeys(const char* password) {
    for (const AuthorityRecord& authority : m_authorities) {
        m_issuers.insert_or_assign(authority.role, Issuer(KeyPair::Open(In(m_folder, authority.container), password), authority.certificate));
    }
}

const Issuer& Centre::GetIssuer(Role role) const {
    const auto found = m_issuers.find(role);
    if (found == m_issuers.end()) throw XTOOStatus(TOO_E_NOT_INITIALIZED, "the key centre's keys are not open");
    return found->second;
}

FolderLock Centre::Lock() {
    FolderLock lock(m_folder, true);
    Transaction transaction(m_records.GetConnection());
    const std::list<IdentObj> dead = m_records.AbandonReserved();
    if (dead.empty()) return lock;
    transaction.Commit();
    for (const IdentObj& serial : dead)
        m_log.Add("abandoned", {{"serial", SerialText(serial)}}, true);
    m_log.Sync();
    return lock;
}

void Centre::RequireIssuing(const Issuer& issuer) {
    const std::string name = TextOf(issuer.GetName());
    const CTOOFileTime now = Now();
    if (now < issuer.GetInfo().m_notBefore || now > issuer.GetInfo().m_notAfter) {
        throw XTOOStatus(TOO_E_EXPIRED, CTOOString("the certificate of the issuing authority \"") + name + "\" is not valid now");
    }
    const auto record = m_records.FindSerial(issuer.GetInfo().m_serialNumber);
    if (record && record->revoked) throw XTOOStatus(TOO_E_REVOKED, CTOOString("the certificate of the issuing authority \"") + name + "\" is revoked");
}

std::vector<CertificateRecord> Centre::Issue(const std::vector<Order>& orders) {
    const Issuer& issuer = GetIssuer(m_issuingRole);
    RequireIssuing(issuer);
    std::vector<CertificateRecord> records;
    std::vector<Profile> profiles;
    records.reserve(orders.size());
    for (const Order& order : orders) {
        Profile profile = order.profile;
        profile.serial = MakeSerial(m_network, order.number);
        if (!profile.notBefore) profile.notBefore = Now();
        if (!profile.notAfter) profile.notAfter = AddMonths(*profile.notBefore, profile.months);
        EndBy(issuer.GetInfo().m_notAfter, profile);
        CertificateRecord record;
        record.serial = profile.serial;
        record.authority = m_issuingRole;
        record.subject = order.request.GetData().m_subject;
        record.name = order.name;
        record.key = order.key;
        record.request = order.digest;
        record.made = Now();
        record.notBefore = *profile.notBefore;
        record.notAfter = *profile.notAfter;
        record.delivery = order.delivery;
        record.folder = order.folder;
        record.file = order.file;
        record.voucher = order.voucher;
        record.entitled = order.entitled;
        records.push_back(std::move(record));
        profiles.push_back(std::move(profile));
    }
    {
        Transaction transaction(m_records.GetConnection());
        for (CertificateRecord& record : records)
            record.id = m_records.Add(record);
        transaction.Commit();
    }
    for (std::size_t i = 0; i < orders.size(); ++i)
        records[i].certificate = issuer.Certify(orders[i].request, profiles[i]);
    {
        Transaction transaction(m_records.GetConnection());
        for (const CertificateRecord& record : records)
            m_records.SetIssued(record.id, record.certificate);
        transaction.Commit();
    }
    for (CertificateRecord& record : records) {
        record.state = State::Issued;
        m_log.Add("issued", {{"serial", SerialText(record.serial)}, {"name", record.name}, {"key", record.key}, {"request", record.request}, {"file", record.file},
                             {"by", record.voucher == 0 ? "operator" : "voucher"}}, true);
    }
    m_log.Sync();
    return records;
}

void Centre::SetAnswered(const std::vector<CertificateRecord>& records) {
    Transaction transaction(m_records.GetConnection());
    for (const CertificateRecord& record : records)
        m_records.SetAnswered(record.id);
    transaction.Commit();
    for (const CertificateRecord& record : records)
        m_log.Add("answered", {{"serial", SerialText(record.serial)}, {"folder", record.folder}, {"file", record.file}}, true);
    m_log.Sync();
}

void Centre::MakeCrls(unsigned days) {
    MakeCrl(Role::Root, days);
    if (m_issuingRole != Role::Root) MakeCrl(m_issuingRole, days);
}

bool Centre::MakeDueCrls() {
    bool made = false;
    for (const AuthorityRecord& authority : m_records.GetAuthorities()) {
        // A day early, so that nobody is without a valid one while it travels.
        if (authority.role == Role::Lists || CTOOFileTime(authority.crlNext) > AddDays(Now(), 1)) continue;
        MakeCrl(authority.role, kCrlDays);
        made = true;
    }
    return made;
}

void Centre::MakeCrl(Role role, unsigned days) {
    std::list<AuthorityRecord> present = m_records.GetAuthorities();
    AuthorityRecord& record = *std::find_if(present.begin(), present.end(), [&](const AuthorityRecord& a) { return a.role == role; });
    {
        // The counter is on the disk before a CRL bears it, so no two CRLs have one number.
        Transaction transaction(m_records.GetConnection());
        ++record.crlCounter;
        m_records.PutAuthority(record);
        transaction.Commit();
    }
    CrlProfile profile;
    profile.counter = static_cast<std::uint64_t>(record.crlCounter);
    profile.thisUpdate = Now();
    profile.days = days;
    m_records.ForEachRevoked(role, [&](const CertificateRecord& revoked) {
        profile.revoked.push_back({revoked.serial, *revoked.revoked, revoked.reason == 0 ? std::nullopt : std::optional<unsigned>(revoked.reason)});
    });
    record.crl = GetIssuer(role).MakeCrl(profile);
    record.crlNext = AddDays(*profile.thisUpdate, days);
    // The file first: as long as the records do not say so, the CRL is due, and a run that died in between leaves no old file for good.
    CTOOWholeFile::Store(In(In(m_folder, "crl"), CTOOString(NameOf(role)) + ".crl"), record.crl.GetData(), record.crl.GetSize());
    {
        Transaction transaction(m_records.GetConnection());
        m_records.PutAuthority(record);
        transaction.Commit();
    }
    m_log.Add("crl", {{"authority", NameOf(role)}, {"counter", std::to_string(record.crlCounter)}, {"revoked", std::to_string(profile.revoked.size())}});
    m_authorities = m_records.GetAuthorities();
}

CertificateRecord Centre::Find(const IdentObj& serial) {
    std::optional<CertificateRecord> found = m_records.FindSerial(serial);
    if (!found) throw XTOOStatus(TOO_E_NOT_FOUND, "no certificate has the serial number " + CTOOString(SerialText(serial)));
    return *std::move(found);
}

CertificateRecord Centre::Revoke(const IdentObj& serial, unsigned reason) {
    CertificateRecord record = Find(serial);
    if (record.revoked) throw XTOOStatus(TOO_E_ALREADY_PRESENT, "the certificate " + CTOOString(SerialText(serial)) + " is revoked already");
    if (serial == Decode(GetAuthority(Role::Root).certificate).m_serialNumber) {
        throw XTOOStatus(TOO_E_BAD_ARGUMENT, "a root is not revoked by its own CRL: take it out of the hosts' trusted certificates");
    }
    Transaction transaction(m_records.GetConnection());
    record.revoked = Now();
    record.reason = reason;
    m_records.SetRevoked(record.id, *record.revoked, reason);
    // Should this run die before it makes a CRL, the next one does, whatever the clocks say.
    m_records.SetCrlDue(record.authority);
    transaction.Commit();
    m_log.Add("revoked", {{"serial", SerialText(serial)}, {"name", record.name}, {"reason", std::to_string(reason)}});
    return record;
}

CertificateRecord Centre::Entitle(const IdentObj& serial, bool entitled) {
    CertificateRecord record = Find(serial);
    Transaction transaction(m_records.GetConnection());
    m_records.SetEntitled(record.id, entitled);
    transaction.Commit();
    record.entitled = entitled;
    m_log.Add(entitled ? "entitled" : "entitlement withdrawn", {{"serial", SerialText(serial)}, {"name", record.name}});
    return record;
}

}  // namespace keycentre
