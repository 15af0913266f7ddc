// Verification of a store's file before it is opened: Berkeley DB crashes on damaged files.
#pragma once

#include <string>

namespace nal {

/// Checks every page of `path`: its type, then all of it by Berkeley DB's own verification under the store's key order. Changes nothing.
///
/// @param finding  receives the first thing that is wrong, for logs; may be null
/// @return 0; EUCLEAN when the file is damaged or no store; another errno when it cannot be read
int VerifyTreeFile(const std::string& path, std::string* finding = nullptr);

}  // namespace nal
