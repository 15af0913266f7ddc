#include "too/string.h"

#include <algorithm>
#include <ostream>

namespace {
unsigned char Fold(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}
}  // namespace

CTOOString CTOOString::substr(std::size_t from, std::size_t count) const {
    return from >= m_text.size() ? CTOOString() : CTOOString(m_text.substr(from, count));
}

int CTOOString::CompareNoCase(std::string_view other) const noexcept {
    const std::size_t shorter = std::min(m_text.size(), other.size());
    for (std::size_t i = 0; i < shorter; ++i) {
        const int order = Fold(m_text[i]) - Fold(other[i]);
        if (order != 0) return order;
    }
    if (m_text.size() == other.size()) return 0;
    return m_text.size() < other.size() ? -1 : 1;
}

std::ostream& operator<<(std::ostream& out, const CTOOString& text) {
    return out << text.view();
}
