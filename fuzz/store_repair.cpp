// Checking and salvaging a store file from outside, whatever is in it. What was salvaged must be a sound store.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/input_file.h"
#include "nal/store_repair.h"

// See fuzz/store_file.cpp.
extern "C" const char* __lsan_default_suppressions() { return "leak:libdb-5.3"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 1U << 20) return 0;
    const nal_fuzz::InputFile file(data, size);
    NALStoreReport report;
    int error = 0;
    NALCheckStoreFile(file.Path(), report, &error);
    const std::string salvaged = file.Path() + ".salvaged";
    if (!NALSalvageStoreFile(file.Path(), salvaged.c_str(), report, &error)) return 0;
    if (!NALCheckStoreFile(salvaged.c_str(), report, &error) && report.damaged == 0) std::abort();
    unlink(salvaged.c_str());
    return 0;
}
