#include <algorithm>

#include "model/integer_order.h"
#include "nal/certificate.h"
#include "too/text.h"

CTOOString Serial2TOOStr(const IdentObj& serial, bool spaced) {
    return TOOBin2Hex(nal::Reversed(serial), spaced);
}

bool TOOStr2Serial(const CTOOString& hex, IdentObj& serial) {
    IdentObj bytes;
    bytes.SetSize(static_cast<unsigned>(hex.length() / 2));
    bytes.SetSize(TOOHex2Bin(hex.c_str(), bytes.GetData(), bytes.GetSize()));
    if (bytes.IsEmpty()) return false;
    serial = nal::Reversed(bytes);
    return true;
}

void AddMonthToTime(SYSTEMTIME* time, unsigned short months) {
    static constexpr WORD c_lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const unsigned month = std::max<WORD>(time->wMonth, 1) + months - 1u;
    time->wYear = static_cast<WORD>(time->wYear + month / 12);
    time->wMonth = static_cast<WORD>(month % 12 + 1);
    time->wDay = std::min(time->wDay, c_lengths[month % 12]);
}
