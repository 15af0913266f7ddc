#include "keycentre/service/event_log.h"

#include <fcntl.h>

#include <cerrno>
#include <nlohmann/json.hpp>

#include "cli/terminal.h"
#include "too/status.h"
#include "too/testing.h"
#include "too/time.h"

namespace keycentre {

EventLog::EventLog(const CTOOString& file)
    : m_file(file), m_log(::open(file.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, 0600)) {
    if (!m_log.IsOpen()) throw XTOOFile(TOOStatusFromErrno(errno, TOO_E_OPEN), file, "cannot open", errno);
}

void EventLog::Add(const char* event, Fields fields, bool toCome) {
    nlohmann::ordered_json line = {{"time", CTOODateTime(true).ToString().str()}, {"event", event}};
    for (const auto& [name, value] : fields) {
        if (!value.empty()) line[name] = std::string(value);
    }
    const std::string object = cli::PrintableJson(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    // A line that a dead process left unfinished gets its end here, so that this one is whole.
    char last = '\n';
    const off_t size = ::lseek(m_log.Get(), 0, SEEK_END);
    const bool isCut = size > 0 && ::pread(m_log.Get(), &last, 1, size - 1) == 1 && last != '\n';
    const std::string text = (isCut ? "\n" : "") + object + "\n";

    int failure = too_testing::NextStepFails();
    if (failure == 0) failure = cli::WriteAll(m_log.Get(), text);
    if (failure != 0) throw XTOOFile(TOOStatusFromErrno(failure, TOO_E_WRITE), m_file, "cannot write", failure);
    if (!toCome) Sync();
}

void EventLog::Sync() {
    if (::fdatasync(m_log.Get()) != 0) throw XTOOFile(TOO_E_WRITE, m_file, "cannot write", errno);
}

}  // namespace keycentre
