// What the tests of the ASN.1 toolkit share.
#pragma once

#include <string>
#include <vector>

#include "asnt/view.h"
#include "too/ident_obj.h"
#include "too/status.h"

namespace asnt_test {

/// Bytes from hexadecimal text; blanks are skipped.
inline IdentObj Bytes(const std::string& hex) {
    std::string digits;
    for (const char c : hex) {
        if (c != ' ') digits.push_back(c);
    }
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return IdentObj(bytes.data(), static_cast<unsigned>(bytes.size()));
}

/// The code of the XTOOStatus that `action` throws, TOO_OK when it throws none.
template <class Action>
int StatusOf(Action&& action) {
    try {
        action();
    } catch (const XTOOStatus& status) {
        return status.GetCode();
    }
    return TOO_OK;
}

}  // namespace asnt_test
