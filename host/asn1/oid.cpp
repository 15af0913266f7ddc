// Content octets of an OBJECT IDENTIFIER: sub-identifiers in base 128, most significant first, top bit set on all but
// the last octet of each. The first sub-identifier holds the first two arcs as 40 * first + second.

#include "asnt/oid.h"

#include <algorithm>
#include <optional>

namespace asnt {
namespace {

__extension__ typedef unsigned __int128 Arc;  // NOLINT(modernize-use-using)
constexpr Arc kMaxArc = ~Arc{0};
constexpr unsigned kSecondArcs = 40;

void AppendDecimal(std::string& text, Arc arc) {
    char digits[40];  // 2^128 has 39
    char* const end = digits + sizeof digits;
    char* first = end;
    do {
        *--first = static_cast<char>('0' + static_cast<int>(arc % 10));
        arc /= 10;
    } while (arc != 0);
    text.append(first, end);
}

void AppendBase128(std::string& content, Arc arc) {
    char octets[19];  // 128 bits, 7 in each
    char* const end = octets + sizeof octets;
    char* first = end;
    unsigned char more = 0;
    do {
        *--first = static_cast<char>(static_cast<unsigned char>(arc & 0x7F) | more);
        more = 0x80;
        arc >>= 7;
    } while (arc != 0);
    content.append(first, end);
}

// Takes one arc, and the dot behind it, off the front of `text`.
std::optional<Arc> TakeArc(std::string_view& text, bool& last) {
    const std::size_t dot = text.find('.');
    const std::string_view digits = text.substr(0, dot);
    last = dot == std::string_view::npos;
    text.remove_prefix(last ? text.size() : dot + 1);
    if (digits.empty() || (digits.size() > 1 && digits[0] == '0')) return std::nullopt;
    Arc arc = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
        const unsigned digit = static_cast<unsigned>(c - '0');
        if (arc > (kMaxArc - digit) / 10) return std::nullopt;
        arc = arc * 10 + digit;
    }
    return arc;
}

}  // namespace

bool OidToText(View content, std::string& text) {
    if (content.empty() || content.size > kMaxOidContent || (content[content.size - 1] & 0x80) != 0) return false;
    std::string result;
    result.reserve(content.size * 3);
    Arc value = 0;
    bool atStart = true;
    for (const unsigned char octet : content) {
        if (atStart && octet == 0x80) return false;
        if (value > kMaxArc >> 7) return false;
        value = value << 7 | (octet & 0x7F);
        atStart = (octet & 0x80) == 0;
        if (!atStart) continue;
        if (result.empty()) {
            const unsigned first = value < 2 * kSecondArcs ? static_cast<unsigned>(value) / kSecondArcs : 2;
            result.push_back(static_cast<char>('0' + first));
            value -= first * kSecondArcs;
        }
        result.push_back('.');
        AppendDecimal(result, value);
        value = 0;
    }
    text = std::move(result);
    return true;
}

bool OidFromText(std::string_view text, std::string& content) {
    bool last = false;
    const std::optional<Arc> first = TakeArc(text, last);
    if (!first || *first > 2 || last) return false;
    std::optional<Arc> arc = TakeArc(text, last);
    if (!arc || (*first < 2 && *arc >= kSecondArcs) || *arc > kMaxArc - 2 * kSecondArcs) return false;

    std::string result;
    AppendBase128(result, *first * kSecondArcs + *arc);
    while (!last) {
        arc = TakeArc(text, last);
        if (!arc) return false;
        AppendBase128(result, *arc);
        if (result.size() > kMaxOidContent) return false;
    }
    content = std::move(result);
    return true;
}

}  // namespace asnt
