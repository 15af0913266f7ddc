/// A bit string.
#pragma once

#include "too/ident_obj.h"
#include "too/types.h"

/// The octets of a bit string and how many bits at the low end of the last octet do not belong to it (0 to 7).
struct CTOOCryptBitBlob {
    IdentObj m_data;
    DWORD m_unusedBits = 0;

    CTOOCryptBitBlob() = default;
    explicit CTOOCryptBitBlob(IdentObj data, DWORD unusedBits = 0)
        : m_data(std::move(data)), m_unusedBits(unusedBits) {}
};

/// Order and equality by octets first, then by unused bits.
inline bool operator==(const CTOOCryptBitBlob& a, const CTOOCryptBitBlob& b) {
    return a.m_unusedBits == b.m_unusedBits && a.m_data == b.m_data;
}
inline bool operator!=(const CTOOCryptBitBlob& a, const CTOOCryptBitBlob& b) {
    return !(a == b);
}
inline bool operator<(const CTOOCryptBitBlob& a, const CTOOCryptBitBlob& b) {
    int order = a.m_data.Compare(b.m_data);
    return order < 0 || (order == 0 && a.m_unusedBits < b.m_unusedBits);
}
inline bool operator>(const CTOOCryptBitBlob& a, const CTOOCryptBitBlob& b) {
    return b < a;
}
