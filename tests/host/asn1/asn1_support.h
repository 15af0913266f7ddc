// What the tests of the ASN.1 toolkit share.
#pragma once

#include <algorithm>
#include <string>

#include "asnt/view.h"
#include "support/hex.h"
#include "support/status_of.h"
#include "too/ident_obj.h"

namespace asnt_test {

/// Bytes from hexadecimal text; blanks are skipped.
inline IdentObj Bytes(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    const nal_test::Bytes bytes = nal_test::FromHex(hex);
    return IdentObj(bytes.data(), static_cast<unsigned>(bytes.size()));
}

using nal_test::StatusOf;

}  // namespace asnt_test
