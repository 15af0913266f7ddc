#include "certstorage/db_memory.h"

#include <db.h>
#include <malloc.h>

#include <cstdlib>
#include <cstring>

namespace nal {
namespace {

// Berkeley DB's own kind of memory: what it allocates and frees goes through these two.
extern "C" void* AllocateZeroed(size_t size) { return std::calloc(1, size); }  // NOLINT(cppcoreguidelines-no-malloc)

extern "C" void FreeWiped(void* memory) {
    if (memory != nullptr) explicit_bzero(memory, malloc_usable_size(memory));
    std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc)
}

}  // namespace

void PrepareDbMemory() {
    static const bool done = [] {
        return db_env_set_func_malloc(AllocateZeroed) == 0 && db_env_set_func_free(FreeWiped) == 0;
    }();
    static_cast<void>(done);
}

}  // namespace nal
