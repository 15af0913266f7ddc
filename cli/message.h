// Signed messages as commands see them.
#pragma once

#include <string>

#include "cli/files.h"
#include "cli/outcome.h"

namespace cli {

/// A signed message in a file; PEM is taken too.
class MessageFile {
public:
    /// @throws Fault for anything but a signed message
    /// @param own  works on a copy, so that nobody changes what was verified before it is read again
    explicit MessageFile(const std::string& path, bool own = false);

    const InputFile& File() const { return m_file; }
    bool WasPem() const { return m_file.WasPem(); }
    /// The label to write a message with that is to be as this one; null for DER.
    const char* PemLabel() const { return WasPem() ? "CMS" : nullptr; }
    /// The message; attached content stays in the file.
    const CNALSignData& Message() const { return m_message; }
    CNALSignData& Message() { return m_message; }
    bool IsAttached() const { return m_message.IsAttached(); }
    /// The whole message as DER; for detached ones, which are small.
    IdentObj Bytes() const;

private:
    InputFile m_file;
    CNALSignData m_message;
};

/// Writes a message to an output file, whole.
void WriteMessage(CNALSignData& message, OutputFile& output);

/// One signature of a message as data: signer, time, algorithm.
Json SignatureJson(const CNALMessageSignerInfo& info, std::size_t number);

}  // namespace cli
