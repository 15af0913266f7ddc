#include "keycentre/service/records.h"

#include <utility>

#include "too/file.h"
#include "too/status.h"
#include "too/time.h"

namespace keycentre {
namespace {

constexpr char kTables[] = R"(
PRAGMA application_id = 1313688641;
PRAGMA user_version = 1;
CREATE TABLE setting (name TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE authority (
    role INTEGER PRIMARY KEY, container TEXT NOT NULL, certificate BLOB NOT NULL,
    crl_counter INTEGER NOT NULL, crl BLOB, crl_next INTEGER NOT NULL);
CREATE TABLE certificate (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    serial BLOB NOT NULL UNIQUE,
    authority INTEGER NOT NULL, state INTEGER NOT NULL,
    subject BLOB NOT NULL, name TEXT NOT NULL, key TEXT NOT NULL, request TEXT,
    certificate BLOB,
    made INTEGER NOT NULL, not_before INTEGER NOT NULL, not_after INTEGER NOT NULL,
    delivery INTEGER NOT NULL, folder TEXT NOT NULL, file TEXT NOT NULL,
    voucher INTEGER REFERENCES certificate, entitled INTEGER NOT NULL,
    revoked INTEGER, reason INTEGER NOT NULL);
CREATE UNIQUE INDEX certificate_key ON certificate (key) WHERE state <> 3;
CREATE UNIQUE INDEX certificate_request ON certificate (request) WHERE state <> 3;
CREATE INDEX certificate_open ON certificate (state, folder) WHERE state < 2;
CREATE INDEX certificate_revoked ON certificate (authority, revoked) WHERE revoked IS NOT NULL;
CREATE TABLE waiting (
    folder TEXT NOT NULL, file TEXT NOT NULL, inode INTEGER NOT NULL, size INTEGER NOT NULL, changed INTEGER NOT NULL,
    name TEXT NOT NULL, key TEXT NOT NULL, seen INTEGER NOT NULL,
    PRIMARY KEY (folder, file)) WITHOUT ROWID;
-- A record of a certificate stays, whatever program opens this file.
CREATE TRIGGER certificate_stays BEFORE DELETE ON certificate BEGIN SELECT RAISE(ABORT, 'records of certificates stay'); END;
CREATE TRIGGER serial_stays BEFORE UPDATE OF serial ON certificate BEGIN SELECT RAISE(ABORT, 'serial numbers stay'); END;
)";
constexpr std::int64_t kApplication = 1313688641;
constexpr std::int64_t kVersion = 1;

constexpr char kColumns[] =
    "id, serial, authority, state, subject, name, key, request, made, not_before, not_after, delivery, folder, file, voucher, "
    "entitled, revoked, reason";

/// @param withDer  whether the certificate itself stands behind kColumns
CertificateRecord Read(const Statement& row, bool withDer) {
    CertificateRecord record;
    record.id = row.Integer(0);
    record.serial = row.Bytes(1);
    record.authority = static_cast<Role>(row.Integer(2));
    record.state = static_cast<State>(row.Integer(3));
    record.subject = row.Bytes(4);
    record.name = row.Text(5);
    record.key = row.Text(6);
    record.request = row.Text(7);
    record.made = row.Time(8);
    record.notBefore = row.Time(9);
    record.notAfter = row.Time(10);
    record.delivery = static_cast<Delivery>(row.Integer(11));
    record.folder = row.Text(12);
    record.file = row.Text(13);
    record.voucher = row.Integer(14);
    record.entitled = row.Integer(15) != 0;
    if (!row.IsNull(16)) record.revoked = row.Time(16);
    record.reason = static_cast<unsigned>(row.Integer(17));
    if (withDer) record.certificate = row.Bytes(18);
    return record;
}

std::string Select(const char* condition, bool withDer = true) {
    return std::string("SELECT ") + kColumns + (withDer ? ", certificate" : "") + " FROM certificate WHERE " + condition;
}

template <class Key>
std::optional<CertificateRecord> FindOne(Connection& connection, const char* condition, const Key& key) {
    Statement row(connection, Select(condition));
    row.Bind(1, key);
    if (!row.Step()) return std::nullopt;
    return Read(row, true);
}

std::int64_t ReadNumber(Connection& connection, const char* sql) {
    Statement row(connection, sql);
    return row.Step() ? row.Integer(0) : 0;
}

}  // namespace

void Records::Create(const CTOOString& file) {
    Connection connection(file, Connection::Mode::Create);
    if (ReadNumber(connection, "SELECT count(*) FROM sqlite_master") != 0) {
        throw XTOOStatus(TOO_E_ALREADY_PRESENT, CTOOString("the database \"") + file + "\" is there already");
    }
    Transaction transaction(connection);
    connection.Execute(kTables);
    transaction.Commit();
}

Records::Records(const CTOOString& file) : m_connection(file, Connection::Mode::MustExist) {
    if (ReadNumber(m_connection, "PRAGMA application_id") != kApplication || ReadNumber(m_connection, "PRAGMA user_version") != kVersion) {
        throw XTOOStatus(TOO_E_BAD_STRUCTURE, CTOOString("\"") + file + "\" is not a key centre's database of version 1");
    }
}

void Records::RequireOneChange() const {
    if (m_connection.Changes() != 1) {
        throw XTOOStatus(TOO_E_NOT_INITIALIZED, CTOOString("the database \"") + m_connection.GetFile() + "\": a record is not in the state that a change needs");
    }
}

std::optional<std::int64_t> Records::GetSetting(const char* name) {
    Statement row(m_connection, "SELECT value FROM setting WHERE name = ?1");
    row.Bind(1, std::string_view(name));
    if (!row.Step()) return std::nullopt;
    return row.Integer(0);
}

void Records::PutSetting(const char* name, std::int64_t value) {
    Statement(m_connection, "INSERT OR REPLACE INTO setting VALUES (?1, ?2)").Bind(1, std::string_view(name)).Bind(2, value).Run();
}

std::list<AuthorityRecord> Records::GetAuthorities() {
    std::list<AuthorityRecord> authorities;
    Statement row(m_connection, "SELECT role, container, certificate, crl_counter, crl, crl_next FROM authority ORDER BY role");
    while (row.Step()) {
        AuthorityRecord record;
        record.role = static_cast<Role>(row.Integer(0));
        record.container = row.Text(1);
        record.certificate = row.Bytes(2);
        record.crlCounter = row.Integer(3);
        record.crl = row.Bytes(4);
        record.crlNext = row.Time(5);
        authorities.push_back(std::move(record));
    }
    return authorities;
}

void Records::PutAuthority(const AuthorityRecord& authority) {
    Statement(m_connection, "INSERT OR REPLACE INTO authority VALUES (?1, ?2, ?3, ?4, ?5, ?6)")
        .Bind(1, static_cast<std::int64_t>(authority.role))
        .Bind(2, authority.container.view())
        .Bind(3, authority.certificate)
        .Bind(4, authority.crlCounter)
        .Bind(5, authority.crl)
        .Bind(6, authority.crlNext)
        .Run();
}

void Records::SetCrlDue(Role authority) {
    Statement(m_connection, "UPDATE authority SET crl_next = 0 WHERE role = ?1").Bind(1, static_cast<std::int64_t>(authority)).Run();
    RequireOneChange();
}

std::int64_t Records::Add(const CertificateRecord& record) {
    Statement insert(m_connection,
                     "INSERT INTO certificate (serial, authority, state, subject, name, key, request, made, not_before, not_after, "
                     "delivery, folder, file, voucher, entitled, reason, certificate) "
                     "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, 0, ?16)");
    insert.Bind(1, record.serial)
        .Bind(2, static_cast<std::int64_t>(record.authority))
        .Bind(3, static_cast<std::int64_t>(record.state))
        .Bind(4, record.subject)
        .Bind(5, std::string_view(record.name))
        .Bind(6, std::string_view(record.key))
        .Bind(8, record.made)
        .Bind(9, record.notBefore)
        .Bind(10, record.notAfter)
        .Bind(11, static_cast<std::int64_t>(record.delivery))
        .Bind(12, std::string_view(record.folder))
        .Bind(13, std::string_view(record.file))
        .Bind(15, static_cast<std::int64_t>(record.entitled ? 1 : 0));
    if (!record.request.empty()) insert.Bind(7, std::string_view(record.request));
    if (record.voucher != 0) insert.Bind(14, record.voucher);
    if (!record.certificate.IsEmpty()) insert.Bind(16, record.certificate);
    insert.Run();
    return m_connection.LastRow();
}

void Records::SetIssued(std::int64_t id, const IdentObj& certificate) {
    Statement(m_connection, "UPDATE certificate SET certificate = ?2, state = 1 WHERE id = ?1 AND state = 0").Bind(1, id).Bind(2, certificate).Run();
    RequireOneChange();
}

void Records::SetAnswered(std::int64_t id) {
    Statement(m_connection, "UPDATE certificate SET state = 2 WHERE id = ?1 AND state IN (1, 2)").Bind(1, id).Run();
    RequireOneChange();
}

std::list<IdentObj> Records::AbandonReserved() {
    std::list<IdentObj> serials;
    Statement row(m_connection, "SELECT serial FROM certificate WHERE state = 0");
    while (row.Step())
        serials.push_back(row.Bytes(0));
    if (!serials.empty()) m_connection.Execute("UPDATE certificate SET state = 3 WHERE state = 0");
    return serials;
}

void Records::SetRevoked(std::int64_t id, const FILETIME& when, unsigned reason) {
    Statement(m_connection, "UPDATE certificate SET revoked = ?2, reason = ?3 WHERE id = ?1 AND revoked IS NULL")
        .Bind(1, id)
        .Bind(2, when)
        .Bind(3, static_cast<std::int64_t>(reason))
        .Run();
    RequireOneChange();
}

void Records::SetEntitled(std::int64_t id, bool entitled) {
    Statement(m_connection, "UPDATE certificate SET entitled = ?2 WHERE id = ?1").Bind(1, id).Bind(2, static_cast<std::int64_t>(entitled ? 1 : 0)).Run();
    RequireOneChange();
}

std::optional<CertificateRecord> Records::FindSerial(const IdentObj& serial) {
    return FindOne(m_connection, "serial = ?1 AND state <> 3", serial);
}

std::optional<CertificateRecord> Records::FindKey(const std::string& fingerprint) {
    return FindOne(m_connection, "key = ?1 AND state <> 3", std::string_view(fingerprint));
}

std::optional<CertificateRecord> Records::FindRequest(const std::string& fingerprint) {
    return FindOne(m_connection, "request = ?1 AND state <> 3", std::string_view(fingerprint));
}

std::vector<CertificateRecord> Records::FindUndelivered(const std::string& folder, std::int64_t after, std::size_t most) {
    std::vector<CertificateRecord> records;
    Statement row(m_connection, Select("state < 2 AND state = 1 AND folder = ?1 AND id > ?2 ORDER BY id LIMIT ?3"));
    row.Bind(1, std::string_view(folder)).Bind(2, after).Bind(3, static_cast<std::int64_t>(most));
    while (row.Step())
        records.push_back(Read(row, true));
    return records;
}

void Records::ForEachRevoked(Role authority, const std::function<void(const CertificateRecord&)>& take) {
    Statement row(m_connection, Select("authority = ?1 AND revoked IS NOT NULL ORDER BY revoked, id", false));
    row.Bind(1, static_cast<std::int64_t>(authority));
    while (row.Step())
        take(Read(row, false));
}

void Records::ForEach(bool withDer, const std::function<void(const CertificateRecord&)>& take) {
    Statement row(m_connection, Select("state <> 3 ORDER BY id", withDer));
    while (row.Step())
        take(Read(row, withDer));
}

bool Records::IsWaiting(const WaitingRecord& file) {
    Statement row(m_connection, "SELECT 1 FROM waiting WHERE folder = ?1 AND file = ?2 AND inode = ?3 AND size = ?4 AND changed = ?5");
    row.Bind(1, std::string_view(file.folder)).Bind(2, std::string_view(file.file)).Bind(3, file.inode).Bind(4, file.size).Bind(5, file.changed);
    return row.Step();
}

void Records::PutWaiting(const WaitingRecord& record) {
    Statement(m_connection, "INSERT OR REPLACE INTO waiting VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)")
        .Bind(1, std::string_view(record.folder))
        .Bind(2, std::string_view(record.file))
        .Bind(3, record.inode)
        .Bind(4, record.size)
        .Bind(5, record.changed)
        .Bind(6, std::string_view(record.name))
        .Bind(7, std::string_view(record.key))
        .Bind(8, record.seen)
        .Run();
}

void Records::RemoveWaiting(const std::string& folder, const std::string& file) {
    Statement(m_connection, "DELETE FROM waiting WHERE folder = ?1 AND file = ?2").Bind(1, std::string_view(folder)).Bind(2, std::string_view(file)).Run();
}

void Records::ForEachWaiting(const std::function<void(const WaitingRecord&)>& take) {
    Statement row(m_connection, "SELECT folder, file, inode, size, changed, name, key, seen FROM waiting ORDER BY folder, file");
    while (row.Step()) {
        take({row.Text(0), row.Text(1), row.Integer(2), row.Integer(3), row.Integer(4), row.Text(5), row.Text(6), row.Time(7)});
    }
}

}  // namespace keycentre
