// The log of what a key centre did: one JSON object a line, only ever added to.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "keycentre/service/descriptor.h"
#include "too/string.h"

namespace keycentre {

class EventLog {
public:
    /// Opens the log, and makes it when it is not there. @throws XTOOFile
    explicit EventLog(const CTOOString& file);

    using Fields = std::initializer_list<std::pair<const char*, std::string_view>>;
    /// Adds a line: the present time, the event and the fields that are not empty. Control characters are escaped. It is on the disk
    /// when this returns, unless more is `toCome`.
    /// @throws XTOOFile
    void Add(const char* event, Fields fields, bool toCome = false);
    void Sync();

private:
    CTOOString m_file;
    Descriptor m_log;
};

}  // namespace keycentre
