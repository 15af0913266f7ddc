// The default logging facility behind orklog/orklog.h.
#pragma once

#include <string>
#include <string_view>

namespace nalhost {

struct LogSettings {
    int level = 0;
    bool toSyslog = false;
};

/// The settings that a value of NAL_LOG means; null and nonsense mean level 0.
LogSettings ParseLogSettings(const char* value) noexcept;

/// Takes settings in place of those of the environment. For tests, before any other thread logs.
void ConfigureLog(const LogSettings& settings) noexcept;

/// Appends `text` to `line` with control characters and backslashes escaped; bytes of UTF-8 stay as they are.
void AppendEscaped(std::string& line, std::string_view text);

}  // namespace nalhost
