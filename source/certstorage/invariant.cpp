#include "certstorage/invariant.h"

#include <cstdio>
#include <cstdlib>

namespace nal {

void StoreInvariantBroken(const LogPlace& place, const char* text) noexcept {
    LogError(place, text);
    std::fprintf(stderr, "%s: %s: Assertion `%s' failed.\n", kStoreSource, place.shortFunction, text);
    std::abort();
}

}  // namespace nal
