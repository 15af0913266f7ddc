/// The host's logging facility, as the library uses it:
///
///     const OrkLogProps* props = OrkLog_GetProps_cl_module(0);
///     if (props->level > 0) {
///         OkrLogHelper record(props, 1, ClUnilogFname(__PRETTY_FUNCTION__, __func__), "source/chain", __LINE__);
///         record << "Error: " << text;
///     }
///
/// A record is one line. Level 0 logs nothing, 1 errors, 2 warnings too, 3 what happens, 4 and above details. Logging
/// never changes a result: nothing here throws, touches the last-error code or errno, or fails visibly. No key,
/// password, PIN or plaintext is ever written to a record.
///
/// The default facility reads the environment variable NAL_LOG once, when it is first asked: "LEVEL" or "LEVEL:stderr"
/// writes to standard error, "LEVEL:syslog" to syslog; unset, empty or anything else is level 0.
///
/// Thread-safe; one record belongs to one thread.
#pragma once

#include <cstdint>

#include "too/export.h"
#include "too/string.h"

/// A record that is being written; its owner alone knows its inside.
struct OrkLogRecord;

/// What a module may log, and with what. A facility may leave functions null; OkrLogHelper then leaves them out.
struct OrkLogProps {
    /// The current level; a record of a higher level is not written.
    int level;
    /// Opens a record. @param function, sourcePath  copied; may be null
    /// @return null when nothing is to be written; everything else here takes null for a record and does nothing
    OrkLogRecord* (*openRecord)(int level, const char* function, const char* sourcePath, int line);
    /// Appends zero-terminated text. Control characters and backslashes are written as escapes: the record stays one
    /// line.
    void (*writeText)(OrkLogRecord* record, const char* text);
    /// The same between double quotes, so that a reader sees where a value from outside begins and ends.
    void (*writeTextAlternate)(OrkLogRecord* record, const char* text);
    /// Appends a number: in decimal, in hexadecimal when it is negative.
    void (*writeNumber)(OrkLogRecord* record, std::int32_t number);
    /// Writes the record out and frees it.
    void (*closeRecord)(OrkLogRecord* record);
};

/// @param reserved  0
/// @return the properties of the certificate library's module; never null, valid for the life of the process
NAL_HOST_EXPORT const OrkLogProps* OrkLog_GetProps_cl_module(int reserved) noexcept;

/// The name under which a function is logged: qualified by its class, without result type and arguments.
/// @param prettyFunctionName  as __PRETTY_FUNCTION__ gives it
/// @param shortFunctionName   as __func__ gives it; the result when the other is null or does not contain it
NAL_HOST_EXPORT CTOOString ClUnilogFname(const char* prettyFunctionName, const char* shortFunctionName) noexcept;

/// Opens a record, appends to it, and closes it at the end of its life.
class OkrLogHelper {
public:
    /// @param props      as OrkLog_GetProps_cl_module gives it; null writes nothing
    /// @param level      of the record
    /// @param alternate  whether texts go to the alternate writer
    OkrLogHelper(const OrkLogProps* props, int level, const CTOOString& function, const char* sourcePath, int line,
                 bool alternate = false) noexcept
        : m_props(props), m_alternate(alternate) {
        if (props && props->openRecord && level <= props->level) {
            m_record = props->openRecord(level, function.c_str(), sourcePath, line);
        }
    }
    ~OkrLogHelper() {
        if (m_record && m_props->closeRecord) m_props->closeRecord(m_record);
    }
    OkrLogHelper(const OkrLogHelper&) = delete;
    OkrLogHelper& operator=(const OkrLogHelper&) = delete;

    /// Chooses the writer of the texts that follow.
    void SetAlternate(bool alternate) noexcept { m_alternate = alternate; }

    /// Appends through the alternate writer when it is chosen and exists, else through the plain one, else not at all.
    OkrLogHelper& operator<<(const char* text) noexcept {
        if (m_record && m_alternate && m_props->writeTextAlternate) {
            m_props->writeTextAlternate(m_record, text);
        } else if (m_record && m_props->writeText) {
            m_props->writeText(m_record, text);
        }
        return *this;
    }
    OkrLogHelper& operator<<(const CTOOString& text) noexcept { return *this << text.c_str(); }
    OkrLogHelper& operator<<(std::int32_t number) noexcept {
        if (m_record && m_props->writeNumber) m_props->writeNumber(m_record, number);
        return *this;
    }

private:
    const OrkLogProps* m_props;
    OrkLogRecord* m_record = nullptr;
    bool m_alternate;
};
