// How many cases a test of random ones takes.
#pragma once

#include <cstdlib>

#include "support/sanitized.h"

namespace nal_test {

/// `cases`; a hundred times as many when the environment has NAL_TEST_LONG; under sanitizers, whose programs take tens
/// of times as long, a fiftieth.
inline int CaseCount(int cases) {
    if (std::getenv("NAL_TEST_LONG") != nullptr) return 100 * cases;
    return kSanitized ? (cases + 49) / 50 : cases;
}

}  // namespace nal_test
