/// The basic types and calendar records that the host interfaces share with the CryptoAPI-style interface of the
/// library.
#pragma once

#include <cstdint>

using BOOL = int;
using BYTE = unsigned char;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using LPCSTR = const char*;
using LPSTR = char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/// Bytes and their count. `pbData` may be null when `cbData` is 0.
struct CRYPTOAPI_BLOB {
    DWORD cbData;
    BYTE* pbData;
};

/// A time in 100-nanosecond units since 1601-01-01 00:00 UTC, in two words.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

/// A time as calendar fields, UTC. Months count from 1; day of week from 0 = Sunday.
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};
