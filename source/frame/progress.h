// Reports how far a long loop has come, and asks whether it should go on.
#pragma once

#include <cstdint>

namespace nal {

class Progress {
public:
    /// @param bytesInAll  0 when it is not known
    explicit Progress(std::uint64_t bytesInAll) : m_inAll(bytesInAll) {}

    /// Counts `bytes` more as done and tells the thread's handler, if there is one.
    /// @throws XTOOStatus(TOO_E_CANCELLED) when the handler cancels
    void Advance(std::uint64_t bytes);

private:
    std::uint64_t m_done = 0;
    std::uint64_t m_inAll;
};

}  // namespace nal
