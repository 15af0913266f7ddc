#include "cli/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "cli/interrupt.h"
#include "cli/program.h"

namespace cli {
namespace {

using namespace std::chrono_literals;

constexpr auto kBefore = 500ms;  // work that is done sooner shows no bar
constexpr auto kBetween = 100ms;

std::string SizeText(double bytes) {
    const char* const units[] = {"B", "KiB", "MiB", "GiB"};
    unsigned unit = 0;
    for (; bytes >= 1024 && unit < 3; ++unit) bytes /= 1024;
    char text[32];
    std::snprintf(text, sizeof text, bytes < 10 && unit > 0 ? "%.1f %s" : "%.0f %s", bytes, units[unit]);
    return text;
}

std::string TimeText(double seconds) {
    const auto whole = static_cast<unsigned>(std::min(seconds, 359999.0));
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%u:%02u:%02u", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%u:%02u", whole / 60, whole % 60);
    }
    return text;
}

unsigned WindowWidth() {
    winsize size{};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Progress::Progress(std::string what, const Globals& globals)
    : m_what(Printable(what)), m_isShown(!globals.quiet && IsTerminal(STDERR_FILENO)) {
    NALSetProgressHandler(&Progress::Handle, this);
}

Progress::~Progress() {
    NALSetProgressHandler(nullptr, nullptr);
    if (m_isDrawn) WriteAll(STDERR_FILENO, "\r\x1B[K");
}

bool Progress::Handle(std::uint64_t done, std::uint64_t all, void* self) {
    auto& progress = *static_cast<Progress*>(self);
    if (Interrupted()) return false;
    if (!progress.m_isShown) return true;
    const Clock::time_point now = Clock::now();
    if (done < progress.m_done) progress.m_start = progress.m_last = now;  // another pass over the content, with a speed of its own
    progress.m_done = done;
    if (now - progress.m_start < kBefore || now - progress.m_last < kBetween) return true;
    progress.m_last = now;
    try {
        progress.Draw(done, all);
    } catch (const std::bad_alloc&) {
        progress.m_isShown = false;  // the work matters more than the bar
    }
    return true;
}

void Progress::Draw(std::uint64_t done, std::uint64_t all) {
    const double seconds = std::chrono::duration<double>(m_last - m_start).count();
    const double speed = static_cast<double>(done) / seconds;
    std::string text = SizeText(static_cast<double>(done)) + "  " + SizeText(speed) + "/s";
    const unsigned width = WindowWidth();
    if (all != 0) {
        const double part = std::min(1.0, static_cast<double>(done) / static_cast<double>(all));
        text += "  " + (speed > 0 ? TimeText(static_cast<double>(all - std::min(done, all)) / speed) : "-") + " left";
        char percent[8];
        std::snprintf(percent, sizeof percent, "%3.0f%%", part * 100);
        const std::size_t used = Columns(m_what) + text.size() + 12;
        const std::size_t room = used + 10 < width ? std::min<std::size_t>(width - used, 30) : 0;
        const auto filled = static_cast<std::size_t>(part * static_cast<double>(room));
        if (room != 0) text = "[" + std::string(filled, '#') + std::string(room - filled, '.') + "] " + percent + "  " + text;
    }
    std::string line = m_what + "  " + text;
    if (Columns(line) >= width) line = text.substr(0, width - 1);
    WriteAll(STDERR_FILENO, "\r" + line + "\x1B[K");
    m_isDrawn = true;
}

}  // namespace cli
