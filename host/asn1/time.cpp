#include "asnt/time.h"

#include "too/time.h"

namespace asnt {
namespace {

constexpr int kFirstYear = 1601;
constexpr int kLastYear = 9999;
constexpr int kFirstUtcYear = 1950;
constexpr int kLastUtcYear = 2049;
constexpr std::size_t kFractionDigits = 7;

// Takes `count` digits off the front of `text`. @return their value, -1 when they are not all there
int TakeDigits(View& text, std::size_t count) {
    if (text.size < count) return -1;
    int value = 0;
    for (const unsigned char c : text.Sub(0, count)) {
        if (c < '0' || c > '9') return -1;
        value = value * 10 + (c - '0');
    }
    text = text.Sub(count);
    return value;
}

// Takes ".f" off the front of `text`, when it is there. @return false when it is there and malformed
bool TakeFraction(View& text, std::uint64_t& ticks) {
    ticks = 0;
    if (text.empty() || text[0] != '.') return true;
    text = text.Sub(1);
    std::size_t digits = 0;
    while (digits < text.size && text[digits] >= '0' && text[digits] <= '9')
        ++digits;
    if (digits == 0 || digits > kFractionDigits || text[digits - 1] == '0') return false;
    for (std::size_t i = 0; i < kFractionDigits; ++i)
        ticks = ticks * 10 + (i < digits ? text[i] - '0' : 0);
    text = text.Sub(digits);
    return true;
}

void AppendTwoDigits(std::string& text, unsigned value) {
    text.push_back(static_cast<char>('0' + value / 10));
    text.push_back(static_cast<char>('0' + value % 10));
}

}  // namespace

bool DecodeTime(Tag type, View content, FILETIME& time) {
    int calendarYear = 0;
    if (type == tag::UtcTime) {
        calendarYear = TakeDigits(content, 2);
        if (calendarYear < 0) return false;
        calendarYear += calendarYear < 50 ? 2000 : 1900;
    } else if (type == tag::GeneralizedTime) {
        calendarYear = TakeDigits(content, 4);
        if (calendarYear < kFirstYear) return false;
    } else {
        return false;
    }
    constexpr std::size_t kFields = 5;
    WORD fields[kFields];  // month, day, hour, minute, second
    for (WORD& field : fields) {
        const int value = TakeDigits(content, 2);
        if (value < 0) return false;
        field = static_cast<WORD>(value);
    }
    std::uint64_t fraction = 0;
    if (type == tag::GeneralizedTime && !TakeFraction(content, fraction)) return false;
    if (content.size != 1 || content[0] != 'Z') return false;

    const SYSTEMTIME calendar{
        static_cast<WORD>(calendarYear), fields[0], 0, fields[1], fields[2], fields[3], fields[4], 0};
    FILETIME whole;
    if (!SystemTimeToFileTime(&calendar, &whole)) return false;
    time = CTOOFileTime(CTOOFileTime(whole).GetTicks() + fraction);
    return true;
}

bool EncodeTime(Tag type, const FILETIME& time, std::string& content) {
    SYSTEMTIME calendar;
    if (!FileTimeToSystemTime(&time, &calendar)) return false;
    std::string text;
    if (type == tag::UtcTime) {
        if (calendar.wYear < kFirstUtcYear || calendar.wYear > kLastUtcYear) return false;
    } else if (type == tag::GeneralizedTime) {
        if (calendar.wYear > kLastYear) return false;
        AppendTwoDigits(text, calendar.wYear / 100);
    } else {
        return false;
    }
    for (const unsigned field : {calendar.wYear % 100u, 0u + calendar.wMonth, 0u + calendar.wDay, 0u + calendar.wHour,
                                 0u + calendar.wMinute, 0u + calendar.wSecond}) {
        AppendTwoDigits(text, field);
    }
    text.push_back('Z');
    content = std::move(text);
    return true;
}

Tag TimeTag(const FILETIME& time) {
    std::string unused;
    return EncodeTime(tag::UtcTime, time, unused) ? tag::UtcTime : tag::GeneralizedTime;
}

}  // namespace asnt
