// Where the checkout and the build are, for tests that read data files or run programs.
#pragma once

#include <string>

namespace nal_test {

std::string SourceDir();
std::string BinaryDir();

}  // namespace nal_test
