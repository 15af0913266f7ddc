#include "keycentre/service/sqlite.h"

#include <utility>

#include "too/status.h"
#include "too/testing.h"
#include "too/time.h"

namespace keycentre {
namespace {

constexpr int kPatience = 10000;  // milliseconds

int StatusOf(int code) {
    if (code == SQLITE_CONSTRAINT_UNIQUE || code == SQLITE_CONSTRAINT_PRIMARYKEY) return TOO_E_ALREADY_PRESENT;
    switch (code & 0xFF) {
        case SQLITE_NOMEM: return TOO_E_NO_MEMORY;
        case SQLITE_FULL: return TOO_E_DISK_FULL;
        case SQLITE_BUSY:
        case SQLITE_LOCKED: return TOO_E_LOCK;
        case SQLITE_CANTOPEN:
        case SQLITE_PERM:
        case SQLITE_READONLY: return TOO_E_ACCESS;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB: return TOO_E_READ;
        case SQLITE_IOERR: return TOO_E_WRITE;
        default: return TOO_E_INTERNAL;
    }
}

}  // namespace

Connection::Connection(CTOOString file, Mode mode) : m_file(std::move(file)) {
    sqlite3* database = nullptr;
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOFOLLOW | (mode == Mode::Create ? SQLITE_OPEN_CREATE : 0);
    const int code = sqlite3_open_v2(m_file.c_str(), &database, flags, nullptr);
    m_database.reset(database);
    Require(code);
    sqlite3_extended_result_codes(database, 1);
    sqlite3_busy_timeout(database, kPatience);
    // The database is the only record of what was issued: it is as durable as SQLite can make it.
    Execute("PRAGMA synchronous = EXTRA; PRAGMA foreign_keys = ON; PRAGMA trusted_schema = OFF; PRAGMA cell_size_check = ON");
}

void Connection::Fail() const {
    const int code = m_database ? sqlite3_extended_errcode(m_database.get()) : SQLITE_NOMEM;
    const char* text = m_database ? sqlite3_errmsg(m_database.get()) : "no memory";
    CTOOString message = CTOOString("the database \"") + m_file + "\": " + text;
    if ((code & 0xFF) == SQLITE_CORRUPT || (code & 0xFF) == SQLITE_NOTADB) message += "; put back a copy of it that is whole";
    throw XTOOStatus(StatusOf(code), message);
}

void Connection::Execute(const char* sql) {
    Require(sqlite3_exec(m_database.get(), sql, nullptr, nullptr, nullptr));
}

Statement::Statement(Connection& connection, std::string_view sql) : m_connection(connection) {
    sqlite3_stmt* statement = nullptr;
    connection.Require(sqlite3_prepare_v2(connection.m_database.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr));
    m_statement.reset(statement);
}

Statement& Statement::Bind(int index, std::int64_t value) {
    m_connection.Require(sqlite3_bind_int64(m_statement.get(), index, value));
    return *this;
}

Statement& Statement::Bind(int index, std::string_view text) {
    m_connection.Require(sqlite3_bind_text64(m_statement.get(), index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Statement& Statement::Bind(int index, const IdentObj& bytes) {
    m_connection.Require(sqlite3_bind_blob64(m_statement.get(), index, bytes.GetData(), bytes.GetSize(), SQLITE_TRANSIENT));
    return *this;
}

Statement& Statement::Bind(int index, const FILETIME& time) {
    return Bind(index, static_cast<std::int64_t>(CTOOFileTime(time).GetTicks()));
}

Statement& Statement::BindNull(int index) {
    m_connection.Require(sqlite3_bind_null(m_statement.get(), index));
    return *this;
}

bool Statement::Step() {
    const int code = sqlite3_step(m_statement.get());
    if (code == SQLITE_ROW) return true;
    if (code == SQLITE_DONE) return false;
    m_connection.Fail();
}

void Statement::Run() {
    Step();
    m_connection.Require(sqlite3_reset(m_statement.get()));
}

std::string Statement::Text(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement.get(), column));
    return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(m_statement.get(), column)));
}

IdentObj Statement::Bytes(int column) const {
    const void* bytes = sqlite3_column_blob(m_statement.get(), column);
    return bytes == nullptr ? IdentObj() : IdentObj(bytes, static_cast<unsigned>(sqlite3_column_bytes(m_statement.get(), column)));
}

FILETIME Statement::Time(int column) const { return CTOOFileTime(static_cast<std::uint64_t>(Integer(column))); }

Transaction::Transaction(Connection& connection) : m_connection(connection) { connection.Execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
    if (m_open) sqlite3_exec(m_connection.m_database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::Commit() {
    if (const int failure = too_testing::NextStepFails(); failure != 0) {
        throw XTOOStatus(TOOStatusFromErrno(failure, TOO_E_WRITE), CTOOString("the database \"") + m_connection.GetFile() + "\"");
    }
    m_connection.Execute("COMMIT");
    m_open = false;
}

}  // namespace keycentre
