// A record on standard error:
//
//   2026-11-22T08:30:00.125Z 4711 error CNALUser::CheckSignKeys source/win32/cnaluser:120 Error: ORKSignHash
//   time, UTC               process level function             source path and line      fields
//
// Syslog adds time, program and process itself, so there a record starts at the function.

#include "host/log/log.h"

#include <unistd.h>

#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/sinks/syslog_sink.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "orklog/orklog.h"
#include "too/last_error.h"
#include "too/time.h"

struct OrkLogRecord {
    spdlog::level::level_enum severity;
    std::string line;
};

namespace nalhost {
namespace {

constexpr std::size_t kMaxLine = 8192;
constexpr std::string_view kCut = " [cut]";

// Logging must leave no trace in what its caller looks at next.
class KeepErrors {
public:
    KeepErrors() : m_errno(errno), m_lastError(GetLastError()) {}
    ~KeepErrors() {
        SetLastError(m_lastError);
        errno = m_errno;
    }
    KeepErrors(const KeepErrors&) = delete;
    KeepErrors& operator=(const KeepErrors&) = delete;

private:
    int m_errno;
    DWORD m_lastError;
};

// Runs `action` and drops whatever goes wrong: a log that fails must not fail its caller.
template <class Action>
void Quietly(Action&& action) noexcept {
    try {
        const KeepErrors keep;
        action();
    } catch (...) {  // NOLINT(bugprone-empty-catch)
    }
}

spdlog::level::level_enum Severity(int level) {
    if (level <= 1) return spdlog::level::err;
    if (level == 2) return spdlog::level::warn;
    return level == 3 ? spdlog::level::info : spdlog::level::debug;
}

const char* SeverityName(spdlog::level::level_enum severity) {
    switch (severity) {
        case spdlog::level::err:
            return "error";
        case spdlog::level::warn:
            return "warning";
        case spdlog::level::info:
            return "info";
        default:
            return "debug";
    }
}

class Facility {
public:
    explicit Facility(const LogSettings& settings) : m_toSyslog(settings.toSyslog) {
        if (settings.level <= 0) return;
        std::shared_ptr<spdlog::sinks::sink> sink;
        if (m_toSyslog) {
            sink = std::make_shared<spdlog::sinks::syslog_sink_mt>("nal", LOG_PID, LOG_AUTHPRIV, false);
        } else {
            sink = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        }
        m_logger = std::make_unique<spdlog::logger>("nal", std::move(sink));
        m_logger->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
        m_logger->set_level(spdlog::level::trace);
        m_logger->flush_on(spdlog::level::trace);
        m_logger->set_error_handler([](const std::string&) {});
    }

    std::string Prefix(spdlog::level::level_enum severity) const {
        if (m_toSyslog) return {};
        SYSTEMTIME now;
        GetSystemTime(&now);
        return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z {} {} ", now.wYear, now.wMonth, now.wDay,
                           now.wHour, now.wMinute, now.wSecond, now.wMilliseconds, getpid(), SeverityName(severity));
    }

    void Write(const OrkLogRecord& record) {
        if (m_logger) m_logger->log(record.severity, spdlog::string_view_t(record.line));
    }

private:
    std::unique_ptr<spdlog::logger> m_logger;
    bool m_toSyslog;
};

OrkLogProps& Props() noexcept;

std::unique_ptr<Facility>& TheFacility() noexcept {
    // Never destroyed: objects with static lifetime may log while the process ends.
    static auto& facility = *std::make_unique<std::unique_ptr<Facility>>().release();
    return facility;
}

OrkLogRecord* OpenRecord(int level, const char* function, const char* sourcePath, int line) {
    OrkLogRecord* opened = nullptr;
    Quietly([&] {
        if (level > Props().level || !TheFacility()) return;
        auto record = std::make_unique<OrkLogRecord>();
        record->severity = Severity(level);
        record->line = TheFacility()->Prefix(record->severity);
        AppendEscaped(record->line, function ? function : "?");
        record->line += ' ';
        AppendEscaped(record->line, sourcePath ? sourcePath : "?");
        record->line += fmt::format(":{} ", line);
        opened = record.release();
    });
    return opened;
}

void AppendBounded(OrkLogRecord& record, std::string_view text) {
    if (record.line.size() >= kMaxLine) return;
    const std::size_t room = kMaxLine - record.line.size();
    AppendEscaped(record.line, text.substr(0, room));
    if (text.size() > room) record.line += kCut;
}

void WriteText(OrkLogRecord* record, const char* text) {
    if (!record || !text) return;
    Quietly([&] { AppendBounded(*record, text); });
}

void WriteTextAlternate(OrkLogRecord* record, const char* text) {
    if (!record || !text) return;
    Quietly([&] {
        std::string quoted = "\"";
        for (const char* c = text; *c != '\0'; ++c) {
            // Doubled, as in CSV: a backslash before it would be escaped itself.
            if (*c == '"') quoted += '"';
            quoted += *c;
        }
        AppendBounded(*record, quoted + '"');
    });
}

void WriteNumber(OrkLogRecord* record, std::int32_t number) {
    if (!record) return;
    Quietly([&] {
        AppendBounded(*record, number >= 0 ? fmt::format("{}", number)
                                           : fmt::format("0x{:08X}", static_cast<std::uint32_t>(number)));
    });
}

void CloseRecord(OrkLogRecord* record) {
    if (!record) return;
    Quietly([&] {
        const std::unique_ptr<OrkLogRecord> owned(record);
        if (TheFacility()) TheFacility()->Write(*owned);
    });
}

void Apply(OrkLogProps& props, const LogSettings& settings) noexcept {
    props.level = 0;
    Quietly([&] {
        TheFacility() = std::make_unique<Facility>(settings);
        props.level = settings.level;
    });
}

OrkLogProps FromEnvironment() noexcept {
    OrkLogProps props{0, OpenRecord, WriteText, WriteTextAlternate, WriteNumber, CloseRecord};
    Apply(props, ParseLogSettings(std::getenv("NAL_LOG")));
    return props;
}

OrkLogProps& Props() noexcept {
    static OrkLogProps props = FromEnvironment();
    return props;
}

bool IsControl(unsigned char c) {
    return c < 0x20 || c == 0x7F;
}

}  // namespace

LogSettings ParseLogSettings(const char* value) noexcept {
    const std::string_view text(value ? value : "");
    LogSettings settings;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), settings.level);
    const std::string_view target(rest, static_cast<std::size_t>(text.data() + text.size() - rest));
    settings.toSyslog = target == ":syslog";
    if (error != std::errc() || settings.level < 0 || !(target.empty() || target == ":stderr" || settings.toSyslog))
        return {};
    return settings;
}

void ConfigureLog(const LogSettings& settings) noexcept {
    Apply(Props(), settings);
}

void AppendEscaped(std::string& line, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        // U+0080 to U+009F are control characters too, and some terminals obey them.
        const bool wideControl = c == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
        if (c == '\\') {
            line += "\\\\";
        } else if (c == '\n') {
            line += "\\n";
        } else if (IsControl(c) || wideControl) {
            line += fmt::format("\\x{:02X}", c);
            if (wideControl) line += fmt::format("\\x{:02X}", static_cast<unsigned char>(text[++i]));
        } else {
            line += text[i];
        }
    }
}

}  // namespace nalhost

const OrkLogProps* OrkLog_GetProps_cl_module(int) noexcept {
    return &nalhost::Props();
}

CTOOString ClUnilogFname(const char* prettyFunctionName, const char* shortFunctionName) noexcept {
    CTOOString name;
    nalhost::Quietly([&] {
        const std::string_view pretty(prettyFunctionName ? prettyFunctionName : "");
        const std::string_view brief(shortFunctionName ? shortFunctionName : "");
        name = brief;
        // The name stands right before the first parenthesis of the arguments; a result type may hold none before it.
        std::size_t at = brief.empty() ? std::string_view::npos : pretty.find(std::string(brief) + "(");
        if (at == std::string_view::npos) return;
        const std::size_t end = at + brief.size();
        int angles = 0;
        while (at > 0) {
            const char before = pretty[at - 1];
            if (before == '>') ++angles;
            if (before == '<') --angles;
            if (angles == 0 && (before == ' ' || before == '*' || before == '&')) break;
            --at;
        }
        name = pretty.substr(at, end - at);
    });
    return name;
}
