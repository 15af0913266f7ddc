// PEM (RFC 7468): text around base64.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cli/fault.h"

namespace cli {

/// Whether a file that starts like this is PEM: text with a line "-----BEGIN ", not DER.
bool LooksLikePem(std::string_view head);

struct PemBlock {
    std::string label;
    IdentObj der;
};

/// Every block of a text. @throws Fault, which names the file, for a block that is damaged
std::vector<PemBlock> ReadPem(std::string_view text, const std::string& name);

/// Decodes the first block of a text that comes in pieces.
class PemDecoder {
public:
    /// Appends what is decoded to `out`.
    void Feed(std::string_view piece, std::string& out);
    /// Whether the block had its end and no bad character.
    bool IsComplete() const { return m_state == State::After && !m_bad; }

private:
    enum class State { Before, Inside, After };
    void Line(std::string_view line, std::string& out);
    void Flush(std::string& out, bool all);

    State m_state = State::Before;
    bool m_bad = false;
    std::string m_line;
    std::string m_base64;
};

}  // namespace cli
