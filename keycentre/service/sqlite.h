// SQLite behind owning types and exceptions.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "too/ident_obj.h"
#include "too/string.h"
#include "too/types.h"

namespace keycentre {

/// A database in use. For one thread at a time. Everything throws XTOOStatus: 4 no such file, 3 no access, 5 damaged, 6 cannot be
/// written, 9 the disk is full, 13 another process keeps it locked, 196 a value that must be single is there already; the text names
/// the file.
class Connection {
public:
    enum class Mode : unsigned char { MustExist, Create };
    /// Changes are on the disk when a transaction ends. Waits ten seconds for other processes.
    Connection(CTOOString file, Mode mode);

    /// Runs statements that take no values.
    void Execute(const char* sql);
    /// How many rows the last statement changed.
    int Changes() const { return sqlite3_changes(m_database.get()); }
    std::int64_t LastRow() const { return sqlite3_last_insert_rowid(m_database.get()); }
    const CTOOString& GetFile() const { return m_file; }

private:
    friend class Statement;
    friend class Transaction;
    struct Close {
        void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    };

    [[noreturn]] void Fail() const;
    void Require(int code) const {
        if (code != SQLITE_OK) Fail();
    }

    CTOOString m_file;
    std::unique_ptr<sqlite3, Close> m_database;
};

/// One statement with its values, counted from 1, and the columns of its present row, counted from 0.
class Statement {
public:
    Statement(Connection& connection, std::string_view sql);

    Statement& Bind(int index, std::int64_t value);
    Statement& Bind(int index, std::string_view text);
    Statement& Bind(int index, const IdentObj& bytes);
    Statement& Bind(int index, const FILETIME& time);
    Statement& BindNull(int index);
    template <class Value>
    Statement& Bind(int index, const std::optional<Value>& value) {
        return value ? Bind(index, *value) : BindNull(index);
    }

    /// Goes to the next row. @return false behind the last one
    bool Step();
    /// Runs a statement without rows; it may then be given other values and run again.
    void Run();

    bool IsNull(int column) const { return sqlite3_column_type(m_statement.get(), column) == SQLITE_NULL; }
    std::int64_t Integer(int column) const { return sqlite3_column_int64(m_statement.get(), column); }
    std::string Text(int column) const;
    IdentObj Bytes(int column) const;
    FILETIME Time(int column) const;

private:
    struct Finalize {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

    Connection& m_connection;
    std::unique_ptr<sqlite3_stmt, Finalize> m_statement;
};

/// A transaction; without Commit nothing of it stays.
class Transaction {
public:
    /// Waits for the right to write.
    explicit Transaction(Connection& connection);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// When it returns, the changes are on the disk.
    void Commit();

private:
    Connection& m_connection;
    bool m_open = true;
};

}  // namespace keycentre
