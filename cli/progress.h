// A bar with speed and time left on standard error, for work that takes longer than a moment; and the way to stop such work.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace cli {

struct Globals;

/// While it lives, the library's long work on this thread is shown, when standard error is a terminal, and ends on Ctrl-C.
class Progress {
public:
    Progress(std::string what, const Globals& globals);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    using Clock = std::chrono::steady_clock;

    static bool Handle(std::uint64_t done, std::uint64_t all, void* self);
    void Draw(std::uint64_t done, std::uint64_t all);

    std::string m_what;
    bool m_isShown;
    bool m_isDrawn = false;
    std::uint64_t m_done = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_last = m_start;
};

}  // namespace cli
