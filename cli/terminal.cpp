#include "cli/terminal.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace cli {
namespace {

constexpr char32_t kBadByte = 0xFFFFFFFF;

// One character of UTF-8 (RFC 3629), or a byte that is none.
char32_t NextCharacter(std::string_view text, std::size_t& at) {
    const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const unsigned first = byte(at);
    const std::size_t length = first < 0x80 ? 1 : first >> 5 == 6 ? 2 : first >> 4 == 14 ? 3 : first >> 3 == 30 ? 4 : 0;
    if (length == 1) return static_cast<char32_t>(text[at++]);
    char32_t c = length == 0 ? 0 : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (byte(at + i) >> 6 != 2) return ++at, kBadByte;
        c = c << 6 | (byte(at + i) & 0x3FU);
    }
    constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (length == 0 || c < kSmallest[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return ++at, kBadByte;
    at += length;
    return c;
}

struct Range {
    char32_t first, last;
};

// Controls, and characters that turn the direction of text, join, hide or end lines.
constexpr Range kUnsafe[] = {
    {0, 0x1F},         {0x7F, 0x9F},       {0xAD, 0xAD},       {0x61C, 0x61C},     {0x115F, 0x1160},   {0x180B, 0x180F}, {0x200B, 0x200F},
    {0x2028, 0x202E},  {0x2060, 0x206F},   {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB}, {0xE000, 0xF8FF},
    {0xE0000, 0xE0FFF}, {0xF0000, 0x10FFFF},
};

bool IsUnsafe(char32_t c) {
    for (const Range& range : kUnsafe) {
        if (c >= range.first && c <= range.last) return true;
    }
    return false;
}

// Calls `plain` with each run that may stay and `unsafe` with each character (or byte, then kBadByte) that may not.
template <class Plain, class Unsafe>
void Walk(std::string_view text, Plain plain, Unsafe unsafe) {
    std::size_t begin = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t here = at;
        const char32_t c = NextCharacter(text, at);
        if (c != kBadByte && !IsUnsafe(c)) continue;
        plain(text.substr(begin, here - begin));
        unsafe(c, static_cast<unsigned char>(text[here]));
        begin = at;
    }
    plain(text.substr(begin));
}

}  // namespace

bool IsTerminal(int descriptor) { return ::isatty(descriptor) == 1; }

bool UseColour(int descriptor) {
    const char* no = std::getenv("NO_COLOR");
    const char* term = std::getenv("TERM");
    return IsTerminal(descriptor) && (no == nullptr || *no == '\0') && !(term != nullptr && std::string_view(term) == "dumb");
}

std::string Printable(std::string_view text) {
    std::string out;
    Walk(
        text, [&](std::string_view run) { out += run; },
        [&](char32_t c, unsigned char byte) {
            char escape[16];
            if (c == kBadByte || c < 0x80) {
                std::snprintf(escape, sizeof escape, "\\x%02X", byte);
            } else {
                std::snprintf(escape, sizeof escape, "\\u{%04X}", static_cast<unsigned>(c));
            }
            out += escape;
        });
    return out;
}

std::string PrintableJson(std::string_view json) {
    std::string out;
    Walk(
        json, [&](std::string_view run) { out += run; },
        [&](char32_t c, unsigned char) {
            if (c == '\n') {
                out += '\n';  // the writer's own; inside strings it is escaped already
                return;
            }
            const auto unit = [&](unsigned value) {
                char escape[16];
                std::snprintf(escape, sizeof escape, "\\u%04x", value & 0xFFFF);
                out += escape;
            };
            if (c == kBadByte) {
                unit(0xFFFD);
            } else if (c < 0x10000) {
                unit(static_cast<unsigned>(c));
            } else {
                unit(0xD800 + (static_cast<unsigned>(c - 0x10000) >> 10));
                unit(0xDC00 + (static_cast<unsigned>(c - 0x10000) & 0x3FF));
            }
        });
    return out;
}

std::size_t Columns(std::string_view text) {
    std::size_t count = 0;
    for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    return count;
}

std::string Coloured(const std::string& text, Colour colour, bool use) {
    if (!use || colour == Colour::None || text.empty()) return text;
    const char* code = colour == Colour::Good ? "32" : colour == Colour::Bad ? "1;31" : colour == Colour::Warning ? "33" : "36";
    return "\x1B[" + std::string(code) + "m" + text + "\x1B[0m";
}

int WriteAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return errno;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

}  // namespace cli
