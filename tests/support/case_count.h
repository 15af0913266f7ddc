// How many of its cases a test takes.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <vector>

#include "support/sanitized.h"

namespace nal_test {

/// `cases`; a hundred times as many when the environment has NAL_TEST_LONG; under sanitizers, whose programs take tens
/// of times as long, a fiftieth.
inline int CaseCount(int cases) {
    if (std::getenv("NAL_TEST_LONG") != nullptr) return 100 * cases;
    return kSanitized ? (cases + 49) / 50 : cases;
}

/// All of these cases, or under sanitizers every seventh.
template <typename Case>
std::vector<Case> SomeOf(const std::vector<Case>& cases) {
    if (!kSanitized) return cases;
    std::vector<Case> some;
    for (std::size_t i = 0; i < cases.size(); i += 7)
        some.push_back(cases[i]);
    return some;
}

}  // namespace nal_test
