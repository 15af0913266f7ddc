#include "support/paths.h"

namespace nal_test {

std::string SourceDir() { return NAL_SOURCE_DIR; }

std::string BinaryDir() { return NAL_BINARY_DIR; }

}  // namespace nal_test
